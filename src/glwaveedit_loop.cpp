// Looped playback: the player wraps its position itself, inside the block it
// is rendering, so that the loop's restart costs no gap.

#include <memory>

#include "gldeck_audio_player.h"
#include "glwaveedit.h"

void GLWaveEdit::SetPlaybackLoop(double StartSec, double EndSec)
{
    // The player keeps the loop across plays; it opens no output until the first.
    if (!AudioPlayer)
        AudioPlayer = std::make_unique<GLDeckAudioPlayer>();
    AudioPlayer->SetLoop(StartSec, EndSec);
}
