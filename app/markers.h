// Markers and regions from the program's side: the editor keeps them per
// document and moves them with the edits; here they are made from the play
// position and the selection, walked with [ and ], journalled, and marked
// as a change of the document.
#pragma once

#include <string>
#include <vector>

#include "marker_files.h"

struct Program;
class GLWaveEdit;

// Turns the editor's markers on and journals each change of them.
void ConnectMarkers(Program& App, GLWaveEdit& Editor);
// M: a marker at the play position, with the next default name.
void AddMarkerAtPlayPosition(Program& App);
// Ctrl+B: a region over the selection.
void AddRegionFromSelection(Program& App);
// [ and ]: the play position to the previous or next marker or region edge.
void GoToMarkerEdge(Program& App, int Direction);
bool HasMarkers(const Program& App);

// The active document's markers and regions in seconds, as files take them.
std::vector<TimedMarker> TimedMarkersOf(const GLWaveEdit& Editor);
// A file's own markers, into the document just opened from it: not a change
// of the document, so neither journalled nor marked. Their ids are 1, 2, ...
// in the order of the file, the same at every open, so that a journal's later
// changes find them again.
void TakeFileMarkers(GLWaveEdit& Editor, const std::vector<TimedMarker>& Markers);
