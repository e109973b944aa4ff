// How playback goes on: looped over the selection (or the whole document).
#pragma once

struct Program;

struct PlaybackOptions
{
    bool bLoop = false;
    // What the editor was last told, so that it is told only of changes.
    double AppliedStartSec = 0.0;
    double AppliedEndSec = 0.0;
};

void ToggleLoop(Program& App);
// Keeps the editor's loop on the current selection: called every frame.
void ApplyPlaybackOptions(Program& App);
