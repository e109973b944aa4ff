// Times in the program's chosen format, and typed: the View choice of
// format, the editor's axis and readout following it, and the status bar's
// selection and play position, which a click turns into a field to type in.
#pragma once

#include <string>

struct Program;

// Gives the editor the program's time text for its axis, readout and play position.
void ConnectTimeFormat(Program& App);
// The active document's source rate (its samples), or 0 when it has none.
int ActiveSourceRate(const Program& App);
// The status bar's right-hand side from the selection on: each time a button
// that opens a field to type the time in; Enter applies it.
void DrawTypedTimes(Program& App);
// Its width in pixels, so the bar can right-align it.
float TypedTimesWidth(const Program& App);
