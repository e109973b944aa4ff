// Playback speed with the pitch kept: the player stretches what it plays, so
// the document, its positions and every signal stay in document time.

#include <memory>

#include "gldeck_audio_player.h"
#include "glwaveedit.h"

void GLWaveEdit::SetPlaybackSpeed(double Speed)
{
    // The player keeps the speed across plays; it opens no output until the first.
    if (!AudioPlayer)
        AudioPlayer = std::make_unique<GLDeckAudioPlayer>();
    AudioPlayer->SetSpeed(Speed);
}

double GLWaveEdit::PlaybackSpeed() const { return AudioPlayer ? AudioPlayer->Speed() : 1.0; }
