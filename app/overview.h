// The overview strip above the editor: the whole document as one small
// waveform, the visible span as a frame on it. A click centres the view
// there, dragging the frame pans, dragging its edges zooms. Hidden in View.
#pragma once

#include <cstdint>
#include <vector>

struct Program;

struct OverviewStrip
{
    bool bShown = true;
    float HeightPx = 0.0f;  // this frame's, 0 when hidden or without audio
    // The columns drawn, remade when the document, its length, an edit or
    // the strip's width changes.
    std::vector<float> MinMax;
    uint64_t DocumentId = 0;
    double DurationSec = -1.0;
    int EditSerial = -1;
    int Columns = 0;
    // A drag in progress: what it moves, and where in the frame it took hold.
    enum class Grip
    {
        None,
        Frame,
        StartEdge,
        EndEdge,
    } Held = Grip::None;
    double GripOffsetSec = 0.0;
};

// Draws the strip under the menu bar and answers its mouse; sets HeightPx.
void DrawOverview(Program& App);
void ToggleOverview(Program& App);
