#include "playback_speed.h"

#include "gldeck_audio_player.h"

#include <algorithm>

#include <rubberband/RubberBandStretcher.h>

namespace
{
// The player's output, which is what is stretched.
constexpr int kRate = GLDeckAudioPlayer::kOutputSampleRate;
constexpr int kChannels = GLDeckAudioPlayer::kOutputChannels;
}  // namespace

PlaybackStretcher::PlaybackStretcher(double Speed)
    : Left(kMaxBlockFrames), Right(kMaxBlockFrames)
{
    using Stretcher = RubberBand::RubberBandStretcher;
    // R2 ("faster") costs a few percent of a core; speech, the usual reason
    // to slow down, keeps its words better with smooth transients.
    pStretcher = std::make_unique<Stretcher>(kRate, kChannels,
                                             Stretcher::OptionProcessRealTime | Stretcher::OptionEngineFaster |
                                                 Stretcher::OptionTransientsSmooth |
                                                 Stretcher::OptionThreadingNever);
    pStretcher->setMaxProcessSize(kMaxBlockFrames);
    SetSpeed(Speed);
}

PlaybackStretcher::~PlaybackStretcher() = default;

void PlaybackStretcher::SetSpeed(double Speed)
{
    SpeedRatio = std::clamp(Speed, kMinSpeed, kMaxSpeed);
    // Rubber Band's ratio is of durations: twice as fast is half as long.
    pStretcher->setTimeRatio(1.0 / SpeedRatio);
}

void PlaybackStretcher::Reset() { pStretcher->reset(); }

int PlaybackStretcher::FramesWanted() const
{
    return static_cast<int>(std::min<size_t>(pStretcher->getSamplesRequired(), kMaxBlockFrames));
}

void PlaybackStretcher::Feed(const float* pInterleaved, int Frames, bool bFinal)
{
    Frames = std::clamp(Frames, 0, kMaxBlockFrames);
    for (int i = 0; i < Frames; ++i)
    {
        Left[i] = pInterleaved[2 * i];
        Right[i] = pInterleaved[2 * i + 1];
    }
    const float* channels[kChannels] = {Left.data(), Right.data()};
    pStretcher->process(channels, static_cast<size_t>(Frames), bFinal);
}

int PlaybackStretcher::Available() const { return pStretcher->available(); }

int PlaybackStretcher::Take(float* pInterleaved, int Frames)
{
    Frames = std::clamp(std::min(Frames, Available()), 0, kMaxBlockFrames);
    float* channels[kChannels] = {Left.data(), Right.data()};
    const int taken = static_cast<int>(pStretcher->retrieve(channels, static_cast<size_t>(Frames)));
    for (int i = 0; i < taken; ++i)
    {
        pInterleaved[2 * i] = Left[i];
        pInterleaved[2 * i + 1] = Right[i];
    }
    return taken;
}

double PlaybackStretcher::HeldInputFrames() const
{
    const double held = static_cast<double>(std::max(0, Available())) + static_cast<double>(pStretcher->getStartDelay());
    return held * SpeedRatio;
}
