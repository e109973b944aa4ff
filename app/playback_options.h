// How playback goes on: looped over the selection (or the whole document),
// and at what speed.
#pragma once

struct Program;

struct PlaybackOptions
{
    bool bLoop = false;
    double Speed = 1.0;  // pitch kept; 1 plays as recorded
    // What the editor was last told, so that it is told only of changes.
    double AppliedStartSec = 0.0;
    double AppliedEndSec = 0.0;
};

void ToggleLoop(Program& App);
// Pitch kept; the Play menu offers 0.5 to 2, for transcribing and skimming.
void SetPlaybackSpeed(Program& App, double Speed);
// Keeps the editor's loop on the current selection: called every frame.
void ApplyPlaybackOptions(Program& App);
