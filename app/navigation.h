// Moving around from the keyboard: zoom in and out around the play position
// or the selection, back to the zoom before, step the play position, grow or
// shrink the selection from its moving edge, scroll by a page. Everything
// goes through the editor's public view fields, SeekPlaybackTo and
// SetHostedSelection, so that the editor's own gestures stay as they are.
#pragma once

#include <cstdint>
#include <vector>

struct Program;

struct Navigation
{
    // Views left by a zoom, newest last, for "zoom back".
    struct View
    {
        uint64_t DocumentId = 0;
        double StartSec = 0.0;
        double EndSec = 0.0;
    };
    std::vector<View> ZoomBack;
    // The selection the keys last made: which edge stays and which moves.
    // Any other selection (a drag, a select all) starts afresh.
    uint64_t SelectionDocumentId = 0;
    double AnchorSec = 0.0;
    double MovingSec = 0.0;
};

class GLWaveEdit;

// A view of SpanSec seconds from Start, kept inside the document and no
// narrower than the editor zooms.
void SetView(GLWaveEdit& Editor, double Start, double SpanSec);
void ZoomIn(Program& App);
void ZoomOut(Program& App);
void ZoomToSelection(Program& App);
void ZoomFit(Program& App);
void ZoomBack(Program& App);
// Views: a fraction of the visible span (0.1 a step, 1.0 a whole view).
void StepPlayPosition(Program& App, double Views);
void MoveSelectionEdge(Program& App, double Views);
void SelectToEdge(Program& App, bool bToEnd);
void ScrollPage(Program& App, double Pages);
