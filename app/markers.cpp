// Markers and regions from the program's side (see markers.h). Changes run
// in the edit queue like the edits, so that they never meet one running on
// its thread.

#include "markers.h"

#include <algorithm>
#include <cmath>

#include "glwaveedit.h"
#include "program.h"

namespace
{
int64_t FrameOf(const GLWaveEdit& Editor, double Sec)
{
    return std::llround(Sec * Editor.ActiveSampleRate());
}

std::string TimeText(const GLWaveEdit& Editor, int64_t Frame)
{
    return DurationText(static_cast<double>(Frame) / Editor.ActiveSampleRate());
}
}  // namespace

void ConnectMarkers(Program& App, GLWaveEdit& Editor)
{
    Editor.EnableMarkers(true);
    Editor.SignalMarkerChanged.connect([&App](std::string Kind, GLWaveEdit::Marker What) {
        const GLWaveEdit& editor = *App.pEditor;
        App.Docs.Info(editor.DocumentIdAt(editor.ActiveDocument())).bMarkersChanged = true;
        JournalMarkerChange(App, Kind, What);
    });
}

void AddMarkerAtPlayPosition(Program& App)
{
    App.Edits.Queue("Adding a marker", [&App] {
        GLWaveEdit& editor = *App.pEditor;
        const int64_t frame = FrameOf(editor, editor.CurrentTimeSec);
        if (editor.AddMarker(frame, frame) != 0)
            App.Say("Marker added at " + TimeText(editor, frame) + ".");
    });
}

void AddRegionFromSelection(Program& App)
{
    App.Edits.Queue("Adding a region", [&App] {
        GLWaveEdit& editor = *App.pEditor;
        const int64_t start = FrameOf(editor, editor.SelectionStartSec());
        const int64_t end = FrameOf(editor, editor.SelectionEndSec());
        if (end > start && editor.AddMarker(start, end) != 0)
            App.Say("Region added from " + TimeText(editor, start) + " to " + TimeText(editor, end) + ".");
        else
            App.Complain("A region needs a selection.");
    });
}

void GoToMarkerEdge(Program& App, int Direction)
{
    App.Edits.Queue("Seeking", [&App, Direction] {
        GLWaveEdit& editor = *App.pEditor;
        const int64_t here = FrameOf(editor, editor.CurrentTimeSec);
        bool found = false;
        int64_t best = 0;
        const auto consider = [&](int64_t Edge) {
            if ((Direction > 0 ? Edge > here : Edge < here) &&
                (!found || (Direction > 0 ? Edge < best : Edge > best)))
            {
                best = Edge;
                found = true;
            }
        };
        for (const GLWaveEdit::Marker& m : editor.ActiveMarkers())
        {
            consider(m.StartFrame);
            if (m.IsRegion())
                consider(m.EndFrame);
        }
        if (found)
            editor.SeekPlaybackTo(static_cast<double>(best) / editor.ActiveSampleRate());
        else
            App.Say(Direction > 0 ? "No marker after the play position." : "No marker before the play position.");
    });
}

std::vector<TimedMarker> TimedMarkersOf(const GLWaveEdit& Editor)
{
    std::vector<TimedMarker> out;
    const double rate = Editor.ActiveSampleRate();
    for (const GLWaveEdit::Marker& m : Editor.ActiveMarkers())
        out.push_back({static_cast<double>(m.StartFrame) / rate, static_cast<double>(m.EndFrame) / rate, m.Name});
    return out;
}

void TakeFileMarkers(GLWaveEdit& Editor, const std::vector<TimedMarker>& Markers)
{
    const int64_t frames = static_cast<int64_t>(Editor.ActiveFrames().size()) / std::max(1, Editor.ActiveChannels());
    uint64_t id = 1;
    for (const TimedMarker& m : Markers)
    {
        GLWaveEdit::Marker taken;
        taken.Id = id;
        taken.StartFrame = std::min(FrameOf(Editor, m.StartSec), frames);
        taken.EndFrame = std::clamp(FrameOf(Editor, m.EndSec), taken.StartFrame, frames);
        taken.Name = m.Name;
        if (Editor.ReplayMarkerChange("marker-add", taken))
            ++id;
    }
}

bool HasMarkers(const Program& App)
{
    return !App.pEditor->ActiveMarkers().empty();
}
