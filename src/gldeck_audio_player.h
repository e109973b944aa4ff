// GLDeckAudioPlayer: the shell's audio player. Playback runs on a thread of
// the player's own; every public operation may be called from the frame thread
// while it runs. Output is 48000 Hz stereo float through the SDL audio device,
// or, where no device can be opened, through a silent output that consumes
// frames in real time so that position, pause, seek and end behave the same.
// The environment variable GLWE_AUDIO_OUTPUT=silent forces the silent output
// (the tests set it; read at the first PlayPcm). Other rates and channel counts
// are converted: linear resampling, mono to both sides, more than two down-mixed.
// Pause, resume and seek ramp the level over 5 ms so that they do not click.
// Another speed goes through a pitch-keeping stretcher (playback_speed.h).
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

class GLDeckAudioPlayer
{
public:
    static constexpr int kOutputSampleRate = 48000;
    static constexpr int kOutputChannels = 2;

    GLDeckAudioPlayer();
    ~GLDeckAudioPlayer();  // ends any playback and joins the thread
    GLDeckAudioPlayer(const GLDeckAudioPlayer&) = delete;
    GLDeckAudioPlayer& operator=(const GLDeckAudioPlayer&) = delete;

    // Plays Frames (interleaved, SampleRate x Channels) from StartSec on the
    // player's thread and returns at once. Replaces whatever was playing and
    // clears a pause, so a new playback is always heard. False with a reason in
    // ErrorMessage (when not null) if the frames cannot be played.
    bool PlayPcm(std::vector<float> Frames, int SampleRate, int Channels, double StartSec,
                 std::string* ErrorMessage);
    // Ends playback; IsPlaying() is false when it returns.
    void Stop();
    void SetPaused(bool bPause);
    void TogglePaused();
    // A request: the playback thread moves there within a few milliseconds.
    void SeekToSeconds(double TargetSec);
    // Loops StartSec .. EndSec: a position reaching EndSec goes on at StartSec
    // within the same output block, sample for sample, so the wrap adds no
    // gap. EndSec <= StartSec turns looping off. Kept across PlayPcm.
    void SetLoop(double StartSec, double EndSec);
    // Plays faster (up to 2) or slower (down to 0.5) with the pitch kept;
    // positions stay in the frames' time. Kept across PlayPcm.
    void SetSpeed(double Speed);
    double Speed() const;
    // Position in seconds from the start of the played frames; any thread.
    double CurrentSeconds() const;

    bool IsPlaying() const { return Playing.load(std::memory_order_acquire); }
    bool IsPaused() const { return Paused.load(std::memory_order_acquire); }
    // True when sound goes to a real device, false on the silent output and
    // before the first PlayPcm, which is when the output is chosen.
    bool HasAudioDevice() const;

private:
    // Written by the playback side and by the operations above; read anywhere.
    std::atomic<bool> Playing{false};
    std::atomic<bool> Paused{false};
    std::atomic<bool> SeekRequested{false};
    std::atomic<double> SeekTargetSec{0.0};

    struct Impl;
    std::unique_ptr<Impl> pImpl;
};
