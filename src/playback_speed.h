// Playback at another speed with the pitch kept, for transcription: the
// player's 48000 Hz stereo output goes through Rubber Band's real-time
// stretcher. Frames go in at the document's pace and come out at the
// listener's; the stretcher holds some of them between the two.
#pragma once

#include <memory>
#include <vector>

namespace RubberBand
{
class RubberBandStretcher;
}

class PlaybackStretcher
{
public:
    static constexpr double kMinSpeed = 0.5;
    static constexpr double kMaxSpeed = 2.0;

    // Speed as in SetSpeed. Allocates everything it will need, so that the
    // calls below can run on an audio thread.
    explicit PlaybackStretcher(double Speed);
    ~PlaybackStretcher();
    PlaybackStretcher(const PlaybackStretcher&) = delete;
    PlaybackStretcher& operator=(const PlaybackStretcher&) = delete;

    // 2 plays twice as fast; clamped to kMinSpeed .. kMaxSpeed.
    void SetSpeed(double Speed);
    double Speed() const { return SpeedRatio; }
    // Drops what it holds (after a seek or a new playback).
    void Reset();
    // Stereo frames still wanted before the next output is ready.
    int FramesWanted() const;
    // Stereo interleaved input, at most kMaxBlockFrames; bFinal after the last.
    void Feed(const float* pInterleaved, int Frames, bool bFinal);
    // Stereo frames ready to take; -1 once everything after a final feed is out.
    int Available() const;
    // Takes up to Frames ready stereo frames into pInterleaved; returns how many.
    int Take(float* pInterleaved, int Frames);
    // Input frames that went in but are not heard yet: the gap between the
    // document's position fed and the one the listener is at.
    double HeldInputFrames() const;

    static constexpr int kMaxBlockFrames = 1024;

private:
    std::unique_ptr<RubberBand::RubberBandStretcher> pStretcher;
    double SpeedRatio = 1.0;
    std::vector<float> Left, Right;  // one block, deinterleaved
};
