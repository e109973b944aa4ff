#include "navigation.h"

#include <algorithm>
#include <cmath>

#include "glwaveedit.h"
#include "program.h"

namespace
{
constexpr size_t kZoomBackDepth = 64;

uint64_t ActiveId(const GLWaveEdit& Editor)
{
    return Editor.DocumentIdAt(Editor.ActiveDocument());
}

double Span(const GLWaveEdit& Editor)
{
    return std::max(Editor.ViewEndSec - Editor.ViewStartSec, 0.0);
}

void RememberView(Program& App)
{
    GLWaveEdit& editor = *App.pEditor;
    auto& back = App.Nav.ZoomBack;
    back.push_back({ActiveId(editor), editor.ViewStartSec, editor.ViewEndSec});
    if (back.size() > kZoomBackDepth)
        back.erase(back.begin());
}

// Where a zoom keeps still: the selection's middle, else the play position.
double ZoomAnchor(const GLWaveEdit& Editor)
{
    if (Editor.HasSelection())
        return (Editor.SelectionStartSec() + Editor.SelectionEndSec()) * 0.5;
    return Editor.CurrentTimeSec;
}

// The anchor keeps its place on screen when it is in view, else the view
// centres on it.
void ZoomBy(Program& App, double Ratio)
{
    GLWaveEdit& editor = *App.pEditor;
    if (editor.DurationSec <= 0.0)
        return;
    RememberView(App);
    const double anchor = ZoomAnchor(editor);
    const double span = Span(editor);
    const bool visible = anchor >= editor.ViewStartSec && anchor <= editor.ViewEndSec && span > 0.0;
    const double fraction = visible ? (anchor - editor.ViewStartSec) / span : 0.5;
    const double newSpan = span * Ratio;
    SetView(editor, anchor - fraction * newSpan, newSpan);
}

// Scrolls the least that brings Time into view.
void Reveal(GLWaveEdit& Editor, double TimeSec)
{
    const double span = Span(Editor);
    if (TimeSec < Editor.ViewStartSec)
        SetView(Editor, TimeSec, span);
    else if (TimeSec > Editor.ViewEndSec)
        SetView(Editor, TimeSec - span, span);
}
}  // namespace

// A view of Span seconds starting at Start, kept inside the document and no
// narrower than the editor zooms, as the editor itself keeps its view.
void SetView(GLWaveEdit& Editor, double Start, double SpanSec)
{
    const double duration = std::max(Editor.DurationSec, 0.0);
    const double minSpan = std::max(Editor.MinViewSpanSec, 0.01);
    if (minSpan >= duration)
    {
        Editor.ViewStartSec = 0.0;
        Editor.ViewEndSec = std::max(duration, minSpan);
        return;
    }
    const double span = std::clamp(SpanSec, minSpan, duration);
    Editor.ViewStartSec = std::clamp(Start, 0.0, duration - span);
    Editor.ViewEndSec = Editor.ViewStartSec + span;
}

void ZoomIn(Program& App)
{
    ZoomBy(App, 0.5);
}

void ZoomOut(Program& App)
{
    ZoomBy(App, 2.0);
}

void ZoomToSelection(Program& App)
{
    GLWaveEdit& editor = *App.pEditor;
    if (!editor.HasSelection())
    {
        App.Say("Zoom to selection: there is no selection.");
        return;
    }
    RememberView(App);
    SetView(editor, editor.SelectionStartSec(), editor.SelectionEndSec() - editor.SelectionStartSec());
}

void ZoomFit(Program& App)
{
    RememberView(App);
    App.pEditor->FitViewToData();
}

void ZoomBack(Program& App)
{
    GLWaveEdit& editor = *App.pEditor;
    auto& back = App.Nav.ZoomBack;
    const uint64_t id = ActiveId(editor);
    while (!back.empty() && back.back().DocumentId != id)
        back.pop_back();
    if (back.empty())
    {
        App.Say("No zoom to go back to.");
        return;
    }
    SetView(editor, back.back().StartSec, back.back().EndSec - back.back().StartSec);
    back.pop_back();
}

void StepPlayPosition(Program& App, double Views)
{
    GLWaveEdit& editor = *App.pEditor;
    if (editor.DurationSec <= 0.0)
        return;
    editor.SeekPlaybackTo(editor.CurrentTimeSec + Views * Span(editor));
    Reveal(editor, editor.CurrentTimeSec);
}

void MoveSelectionEdge(Program& App, double Views)
{
    GLWaveEdit& editor = *App.pEditor;
    if (editor.DurationSec <= 0.0)
        return;
    Navigation& nav = App.Nav;
    const uint64_t id = ActiveId(editor);
    const bool ours = editor.HasSelection() && nav.SelectionDocumentId == id &&
                      std::fabs(std::min(nav.AnchorSec, nav.MovingSec) - editor.SelectionStartSec()) < 1e-9 &&
                      std::fabs(std::max(nav.AnchorSec, nav.MovingSec) - editor.SelectionEndSec()) < 1e-9;
    if (!ours)
    {
        // A selection made otherwise moves at its end; none grows from the play position.
        nav.AnchorSec = editor.HasSelection() ? editor.SelectionStartSec() : editor.CurrentTimeSec;
        nav.MovingSec = editor.HasSelection() ? editor.SelectionEndSec() : editor.CurrentTimeSec;
    }
    nav.SelectionDocumentId = id;
    nav.MovingSec = std::clamp(nav.MovingSec + Views * Span(editor), 0.0, editor.DurationSec);
    editor.SetHostedSelection(nav.AnchorSec, nav.MovingSec);
    Reveal(editor, nav.MovingSec);
}

void SelectToEdge(Program& App, bool bToEnd)
{
    GLWaveEdit& editor = *App.pEditor;
    if (editor.DurationSec <= 0.0)
        return;
    // From the selection's other side, or from the play position.
    double from = editor.CurrentTimeSec;
    if (editor.HasSelection())
        from = bToEnd ? editor.SelectionStartSec() : editor.SelectionEndSec();
    const double to = bToEnd ? editor.DurationSec : 0.0;
    editor.SetHostedSelection(from, to);
    App.Nav.SelectionDocumentId = ActiveId(editor);
    App.Nav.AnchorSec = from;
    App.Nav.MovingSec = to;
    Reveal(editor, to);
}

void ScrollPage(Program& App, double Pages)
{
    GLWaveEdit& editor = *App.pEditor;
    const double span = Span(editor);
    SetView(editor, editor.ViewStartSec + Pages * span, span);
}
