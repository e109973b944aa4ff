#include "playback_options.h"

#include <cstdio>

#include "glwaveedit.h"
#include "program.h"

namespace
{
// The selection, or with none the whole document; 0, 0 with looping off.
void LoopSpan(const Program& App, double& OutStart, double& OutEnd)
{
    const GLWaveEdit& editor = *App.pEditor;
    OutStart = 0.0;
    OutEnd = 0.0;
    if (!App.Playback.bLoop)
        return;
    if (editor.HasSelection())
    {
        OutStart = editor.SelectionStartSec();
        OutEnd = editor.SelectionEndSec();
    }
    else
        OutEnd = editor.DurationSec;
}
}  // namespace

void ToggleLoop(Program& App)
{
    App.Playback.bLoop = !App.Playback.bLoop;
    ApplyPlaybackOptions(App);
    GLWaveEdit& editor = *App.pEditor;
    double start = 0.0;
    double end = 0.0;
    LoopSpan(App, start, end);
    // Turned on while playing outside the loop: it is heard from its start.
    if (App.Playback.bLoop && editor.IsPlaybackActive() &&
        (editor.CurrentTimeSec < start || editor.CurrentTimeSec > end))
        editor.SeekPlaybackTo(start);
    App.Say(App.Playback.bLoop ? (editor.HasSelection() ? "Loop: the selection." : "Loop: the whole document.")
                               : "Loop off.");
}

void SetPlaybackSpeed(Program& App, double Speed)
{
    App.Playback.Speed = Speed;
    App.pEditor->SetPlaybackSpeed(Speed);
    char text[64];
    std::snprintf(text, sizeof text, "Playback speed %gx%s", Speed, Speed == 1.0 ? "." : ", pitch kept.");
    App.Say(text);
}

void ApplyPlaybackOptions(Program& App)
{
    double start = 0.0;
    double end = 0.0;
    LoopSpan(App, start, end);
    PlaybackOptions& options = App.Playback;
    if (start == options.AppliedStartSec && end == options.AppliedEndSec)
        return;
    options.AppliedStartSec = start;
    options.AppliedEndSec = end;
    App.pEditor->SetPlaybackLoop(start, end);
}
