// Tarvik: the shell's root object. Child windows reach it through p->pTarvik
// for focus, the pointer shape and the claim on the current input.
#pragma once

#include <vector>

class GLChildWindow;

// The pointer shapes behind CursorCode, as the shell draws them.
constexpr int kCursorDefault = 0;   // the arrow; the shell resets to it every frame
constexpr int kCursorSizeWE = 5;    // left-right arrows: over a selection edge, or moving one
constexpr int kCursorIBeam = 11;    // a text beam: elsewhere over the plot, and during a drag

class Tarvik
{
public:
    // Offset of a window move that is only being previewed, normalised units.
    double MovePreviewDeltaX = 0.0;
    double MovePreviewDeltaY = 0.0;

    // Set when a child window has dealt with the current input; the shell
    // clears it at the start of every frame.
    bool bChildWindowProcessed = false;

    // The last pointer shape asked for, and whether a child asked for it. The
    // shell turns the code into a system cursor.
    int CursorCode = 0;
    bool bCursorFromChild = false;

    // Windows whose focus ClearWindowFocus takes away. Not owned.
    std::vector<GLChildWindow*> Windows;

    void ClearWindowFocus();
    void SetCursor(int Code, bool bFromChild);
    void SetChildWindowCursor(int Code) { SetCursor(Code, true); }
    void MarkChildWindowProcessed() { bChildWindowProcessed = true; }
};
