// GLDeckAudioPlayer: one playback at a time, rendered block by block.
//
// Index:
//   --- Output ---     choosing and driving the SDL device or the silent output
//   --- Rendering ---  resampling, channel mapping, level ramps, seek, end
//   --- Playback thread ---
//   --- Public operations ---
//
// Threads: the public operations run on the frame thread. Rendering runs on
// the SDL audio thread (device) or on the playback thread (silent output),
// always under Impl::Lock, which is held for one block at most and never
// across a sleep or an SDL call. The playback thread lives from PlayPcm until
// the end of the audio or Stop; it suspends the device while nothing sounds.
#include "gldeck_audio_player.h"
#include "playback_speed.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <system_error>
#include <thread>

#include "sdl_compat.h"

namespace {

constexpr int kRampFrames = GLDeckAudioPlayer::kOutputSampleRate / 200;         // 5 ms
constexpr int kSilentBlockFrames = GLDeckAudioPlayer::kOutputSampleRate / 100;  // 10 ms
constexpr int kDeviceBufferFrames = 512;  // about 11 ms at 48000 Hz
constexpr int kMaxChannels = 64;
// A silent output that fell further behind than this (a stalled machine)
// restarts its schedule rather than rushing to catch up.
constexpr std::chrono::milliseconds kMaxSilentLag{100};

using Clock = std::chrono::steady_clock;

bool ForcedSilentOutput()
{
    const char* value = std::getenv("GLWE_AUDIO_OUTPUT");
    return value && std::strcmp(value, "silent") == 0;
}

// Empty when the frames can be played, else why not.
std::string InputProblem(const std::vector<float>& Frames, int SampleRate, int Channels)
{
    if (Frames.empty())
        return "No audio frames to play.";
    if (Channels < 1 || Channels > kMaxChannels)
        return "Cannot play " + std::to_string(Channels) + " channels: 1 to " + std::to_string(kMaxChannels) +
               " are supported.";
    if (SampleRate < 1)
        return "Cannot play audio at a sample rate of " + std::to_string(SampleRate) + " Hz.";
    if (Frames.size() < static_cast<size_t>(Channels))
        return "Fewer samples than one frame of " + std::to_string(Channels) + " channels.";
    return {};
}

}  // namespace

struct GLDeckAudioPlayer::Impl
{
    explicit Impl(GLDeckAudioPlayer& Player) : Owner(Player) {}

    GLDeckAudioPlayer& Owner;  // holds the atomics Playing, Paused and the seek request

    std::mutex Lock;                // guards everything down to bStopRequested
    std::condition_variable Wake;   // state changes for the playback thread
    std::vector<float> Frames;      // interleaved, SourceChannels wide
    int SourceRate = 1;
    int SourceChannels = 1;
    int64_t FrameCount = 0;
    double SourcePos = 0.0;         // in source frames, fractional
    double Step = 1.0;              // source frames per output frame
    int RampPos = 0;                // level in 1/kRampFrames steps; 0 is silent
    bool bSeekPending = false;      // a seek fading out before it jumps
    double PendingSeekSec = 0.0;
    bool bStopRequested = false;
    double LoopStartSec = 0.0;
    double LoopEndSec = 0.0;        // <= LoopStartSec: no loop
    uint64_t SeekJumps = 0;         // counts the jumps, so a render can tell one happened
    std::unique_ptr<PlaybackStretcher> pStretch;  // only while the speed is not 1
    std::vector<float> SourceBlock = std::vector<float>(PlaybackStretcher::kMaxBlockFrames * kOutputChannels);

    std::atomic<double> PositionSec{0.0};
    std::thread PlaybackThread;
    std::vector<float> SilentBlock = std::vector<float>(kSilentBlockFrames * kOutputChannels);

    // Frame thread only.
    bool bOutputChosen = false;
    bool bAudioSubsystem = false;
#if GLWE_USE_SDL3
    SDL_AudioStream* pDeviceStream = nullptr;
#else
    SDL_AudioDeviceID Device = 0;
#endif

    // --- Output ---

    bool HasDevice() const
    {
#if GLWE_USE_SDL3
        return pDeviceStream != nullptr;
#else
        return Device != 0;
#endif
    }

    // Chosen once, at the first PlayPcm: the default device if SDL can open
    // one at 48000 Hz stereo float, the silent output otherwise.
    void ChooseOutput()
    {
        if (bOutputChosen)
            return;
        bOutputChosen = true;
        if (ForcedSilentOutput())
            return;
#if GLWE_USE_SDL3
        bAudioSubsystem = SDL_InitSubSystem(SDL_INIT_AUDIO);
#else
        bAudioSubsystem = SDL_InitSubSystem(SDL_INIT_AUDIO) == 0;
#endif
        if (!bAudioSubsystem)
            return;
        OpenDevice();
        if (!HasDevice())
        {
            SDL_QuitSubSystem(SDL_INIT_AUDIO);
            bAudioSubsystem = false;
        }
    }

#if GLWE_USE_SDL3
    void OpenDevice()
    {
        SDL_AudioSpec outputFormat{};
        outputFormat.format = SDL_AUDIO_F32;
        outputFormat.channels = kOutputChannels;
        outputFormat.freq = kOutputSampleRate;
        // Opens paused; SDL converts to whatever the hardware takes.
        pDeviceStream = SDL_OpenAudioDeviceStream(SDL_AUDIO_DEVICE_DEFAULT_PLAYBACK, &outputFormat, &StreamCallback, this);
    }

    static void SDLCALL StreamCallback(void* pUser, SDL_AudioStream* pStream, int AdditionalBytes, int)
    {
        Impl& self = *static_cast<Impl*>(pUser);
        float block[kDeviceBufferFrames * kOutputChannels];
        const int frameBytes = static_cast<int>(sizeof(float)) * kOutputChannels;
        for (int leftFrames = AdditionalBytes / frameBytes; leftFrames > 0; leftFrames -= kDeviceBufferFrames)
        {
            const int frames = std::min(leftFrames, kDeviceBufferFrames);
            self.RenderForDevice(block, frames);
            SDL_PutAudioStreamData(pStream, block, frames * frameBytes);
        }
    }

    void ResumeOutput()
    {
        if (!pDeviceStream)
            return;
        SDL_ClearAudioStream(pDeviceStream);  // nothing of an earlier playback
        SDL_ResumeAudioStreamDevice(pDeviceStream);
    }

    void SuspendOutput()
    {
        if (pDeviceStream)
            SDL_PauseAudioStreamDevice(pDeviceStream);
    }

    void CloseOutput()
    {
        if (pDeviceStream)
            SDL_DestroyAudioStream(pDeviceStream);
        pDeviceStream = nullptr;
    }
#else
    void OpenDevice()
    {
        SDL_AudioSpec want{};
        want.freq = kOutputSampleRate;
        want.format = AUDIO_F32SYS;
        want.channels = kOutputChannels;
        want.samples = kDeviceBufferFrames;
        want.callback = &DeviceCallback;
        want.userdata = this;
        // No changes allowed: SDL converts to whatever the hardware takes.
        // The device opens paused.
        SDL_AudioSpec have{};
        Device = SDL_OpenAudioDevice(nullptr, 0, &want, &have, 0);
    }

    static void SDLCALL DeviceCallback(void* pUser, Uint8* pStream, int Bytes)
    {
        const int frames = Bytes / static_cast<int>(sizeof(float) * kOutputChannels);
        static_cast<Impl*>(pUser)->RenderForDevice(reinterpret_cast<float*>(pStream), frames);
    }

    void ResumeOutput()
    {
        if (Device)
            SDL_PauseAudioDevice(Device, 0);
    }

    // Returns once the callback has finished its block and will not run again.
    void SuspendOutput()
    {
        if (Device)
            SDL_PauseAudioDevice(Device, 1);
    }

    void CloseOutput()
    {
        if (Device)
            SDL_CloseAudioDevice(Device);
        Device = 0;
    }
#endif

    void ReleaseOutput()
    {
        CloseOutput();
        if (bAudioSubsystem)
            SDL_QuitSubSystem(SDL_INIT_AUDIO);
        bAudioSubsystem = false;
    }

    // --- Rendering ---

    // Source frame Index as a stereo pair. Beyond two channels, the first two
    // are the front pair and every other channel goes half to each side; each
    // side is divided by its total weight so the mix stays within the input's range.
    void StereoFrame(int64_t Index, float& OutLeft, float& OutRight) const
    {
        const float* pFrame = Frames.data() + Index * SourceChannels;
        if (SourceChannels == 1)
        {
            OutLeft = OutRight = pFrame[0];
            return;
        }
        float shared = 0.0f;
        for (int c = 2; c < SourceChannels; ++c)
            shared += pFrame[c];
        const float weight = 1.0f + 0.5f * static_cast<float>(SourceChannels - 2);
        OutLeft = (pFrame[0] + 0.5f * shared) / weight;
        OutRight = (pFrame[1] + 0.5f * shared) / weight;
    }

    // Linear interpolation between the two source frames around SourcePos.
    void SampleAtPosition(float& OutLeft, float& OutRight) const
    {
        const int64_t first = static_cast<int64_t>(SourcePos);
        const int64_t second = std::min(first + 1, FrameCount - 1);
        const float fraction = static_cast<float>(SourcePos - static_cast<double>(first));
        float left0, right0, left1, right1;
        StereoFrame(first, left0, right0);
        StereoFrame(second, left1, right1);
        OutLeft = left0 + (left1 - left0) * fraction;
        OutRight = right0 + (right1 - right0) * fraction;
    }

    double DurationSec() const { return static_cast<double>(FrameCount) / SourceRate; }

    // The position the listener is at: behind the source's by what the
    // stretcher holds, and inside the loop when there is one.
    void PublishPosition()
    {
        double position = SourcePos;
        if (pStretch)
        {
            position -= pStretch->HeldInputFrames() / Step;
            const double loopStart = LoopStartSec * SourceRate;
            const double loopEnd = std::min(LoopEndSec * SourceRate, static_cast<double>(FrameCount));
            if (loopEnd > loopStart && position < loopStart && SourcePos >= loopStart)
                position = std::max(loopStart, position + (loopEnd - loopStart));
        }
        PositionSec.store(std::clamp(position, 0.0, static_cast<double>(FrameCount)) / SourceRate,
                          std::memory_order_release);
    }

    // A new seek request becomes pending; it jumps once the level is down. Lock held.
    void TakeSeekRequestLocked()
    {
        if (!Owner.SeekRequested.exchange(false, std::memory_order_acq_rel))
            return;
        PendingSeekSec = Owner.SeekTargetSec.load(std::memory_order_acquire);
        bSeekPending = true;
    }

    void JumpIfFadedOutLocked()
    {
        if (!bSeekPending || RampPos != 0)
            return;
        SourcePos = std::clamp(PendingSeekSec, 0.0, DurationSec()) * SourceRate;
        bSeekPending = false;
        ++SeekJumps;
    }

    // At or past a loop's end the position goes on from its start.
    void WrapLoopLocked()
    {
        if (LoopEndSec <= LoopStartSec)
            return;
        const double end = std::min(LoopEndSec * SourceRate, static_cast<double>(FrameCount));
        const double start = std::clamp(LoopStartSec * SourceRate, 0.0, end);
        if (SourcePos >= end && end > start)
            SourcePos = start + std::fmod(SourcePos - end, end - start);
    }

    // Renders up to OutFrames stereo frames of the source at 48000 Hz at its
    // own pace. A pause or seek first ramps the level to 0; after a pause the
    // position holds, after a seek it jumps and the level ramps up again.
    // Returns the frames made: fewer when paused or at the end (bOutEnded).
    // Lock held.
    int RenderSourceLocked(float* pOut, int OutFrames, bool& bOutEnded)
    {
        TakeSeekRequestLocked();
        bOutEnded = false;
        int done = 0;
        for (; done < OutFrames; ++done)
        {
            JumpIfFadedOutLocked();
            WrapLoopLocked();
            const bool bFadeOut = bSeekPending || Owner.Paused.load(std::memory_order_relaxed);
            if (bFadeOut && RampPos == 0)
                break;
            if (SourcePos >= static_cast<double>(FrameCount))
            {
                bOutEnded = true;
                break;
            }
            RampPos = bFadeOut ? RampPos - 1 : std::min(RampPos + 1, kRampFrames);
            const float level = static_cast<float>(RampPos) / kRampFrames;
            float left, right;
            SampleAtPosition(left, right);
            pOut[done * 2] = left * level;
            pOut[done * 2 + 1] = right * level;
            SourcePos += Step;
        }
        WrapLoopLocked();  // the position shown never passes the loop's end
        return done;
    }

    // Fills OutFrames stereo frames at 48000 Hz, silence where nothing sounds,
    // through the stretcher when the speed is not 1. Lock held.
    void RenderLocked(float* pOut, int OutFrames)
    {
        int done = 0;
        bool bEnded = false;
        if (pStretch)
            done = RenderStretchedLocked(pOut, OutFrames, bEnded);
        else
            done = RenderSourceLocked(pOut, OutFrames, bEnded);
        if (bEnded)
            Owner.Playing.store(false, std::memory_order_release);
        std::fill(pOut + done * 2, pOut + OutFrames * 2, 0.0f);
        PublishPosition();
    }

    // The source at its own pace into the stretcher, and what it has ready
    // out of it, until OutFrames are out or the source holds (a pause) or
    // the stretcher has given out its last frame after the end (bOutEnded).
    int RenderStretchedLocked(float* pOut, int OutFrames, bool& bOutEnded)
    {
        bOutEnded = false;
        int done = 0;
        while (done < OutFrames)
        {
            const int ready = pStretch->Available();
            if (ready > 0)
            {
                done += pStretch->Take(pOut + done * 2, OutFrames - done);
                continue;
            }
            if (ready < 0)
            {
                bOutEnded = true;
                break;
            }
            const int wanted = std::clamp(pStretch->FramesWanted(), 1, PlaybackStretcher::kMaxBlockFrames);
            bool bSourceEnded = false;
            const uint64_t jumpsBefore = SeekJumps;
            const int made = RenderSourceLocked(SourceBlock.data(), wanted, bSourceEnded);
            // After a jump what the stretcher holds is of the old place, and
            // faded out: it goes, so the new place is heard at once.
            if (SeekJumps != jumpsBefore)
                pStretch->Reset();
            pStretch->Feed(SourceBlock.data(), made, bSourceEnded);
            if (made < wanted && !bSourceEnded)
                break;  // holding for a pause
        }
        return done;
    }
    // Paused and faded out: nothing to render until resumed. Lock held.
    bool IsHeldLocked() const
    {
        return Owner.Paused.load(std::memory_order_relaxed) && RampPos == 0 && !bSeekPending &&
               !Owner.SeekRequested.load(std::memory_order_acquire);
    }

    // The SDL audio thread's share; wakes the playback thread once the output
    // can be suspended.
    void RenderForDevice(float* pOut, int OutFrames)
    {
        bool bOutputIdle = false;
        {
            std::lock_guard<std::mutex> guard(Lock);
            RenderLocked(pOut, OutFrames);
            bOutputIdle = !Owner.Playing.load(std::memory_order_relaxed) || IsHeldLocked();
        }
        if (bOutputIdle)
            Wake.notify_all();
    }

    // --- Playback thread ---

    // Runs one playback to its end or to Stop. On the silent output it is the
    // clock: a block of 10 ms per 10 ms of wall time, on an absolute schedule.
    // With a device it only suspends and resumes the device while paused.
    void PlaybackLoop()
    {
        ResumeOutput();
        std::unique_lock<std::mutex> lock(Lock);
        Clock::time_point nextBlock = Clock::now();
        while (!bStopRequested && Owner.Playing.load(std::memory_order_relaxed))
        {
            if (IsHeldLocked())
            {
                WaitWhileHeld(lock);
                nextBlock = Clock::now();
            }
            else if (HasDevice())
            {
                Wake.wait(lock, [this] {
                    return bStopRequested || !Owner.Playing.load(std::memory_order_relaxed) || IsHeldLocked();
                });
            }
            else
            {
                RenderLocked(SilentBlock.data(), kSilentBlockFrames);
                nextBlock = NextSilentBlock(nextBlock);
                Wake.wait_until(lock, nextBlock, [this] { return bStopRequested; });
            }
        }
        lock.unlock();
        SuspendOutput();
    }

    static Clock::time_point NextSilentBlock(Clock::time_point Previous)
    {
        const auto next = Previous + std::chrono::microseconds(1000000LL * kSilentBlockFrames / kOutputSampleRate);
        const auto now = Clock::now();
        return next + kMaxSilentLag < now ? now : next;
    }

    // Output suspended, no CPU used; seeks are served here, as the output is silent.
    void WaitWhileHeld(std::unique_lock<std::mutex>& HeldLock)
    {
        HeldLock.unlock();
        SuspendOutput();
        HeldLock.lock();
        Wake.wait(HeldLock, [this] {
            return bStopRequested || !Owner.Paused.load(std::memory_order_relaxed) ||
                   Owner.SeekRequested.load(std::memory_order_acquire);
        });
        TakeSeekRequestLocked();
        JumpIfFadedOutLocked();  // the level is already down
        PublishPosition();
        if (bStopRequested || Owner.Paused.load(std::memory_order_relaxed))
            return;
        HeldLock.unlock();
        ResumeOutput();
        HeldLock.lock();
    }

    void EndPlayback()
    {
        {
            std::lock_guard<std::mutex> guard(Lock);
            bStopRequested = true;
        }
        Wake.notify_all();
        if (PlaybackThread.joinable())
            PlaybackThread.join();
        Owner.Playing.store(false, std::memory_order_release);
        Owner.Paused.store(false, std::memory_order_release);
    }
};

// --- Public operations ---

GLDeckAudioPlayer::GLDeckAudioPlayer() : pImpl(std::make_unique<Impl>(*this)) {}

GLDeckAudioPlayer::~GLDeckAudioPlayer()
{
    pImpl->EndPlayback();
    pImpl->ReleaseOutput();
}

bool GLDeckAudioPlayer::PlayPcm(std::vector<float> Frames, int SampleRate, int Channels, double StartSec,
                                std::string* ErrorMessage)
{
    const std::string problem = InputProblem(Frames, SampleRate, Channels);
    if (!problem.empty())
    {
        if (ErrorMessage)
            *ErrorMessage = problem;
        return false;
    }
    pImpl->ChooseOutput();
    pImpl->EndPlayback();
    {
        std::lock_guard<std::mutex> guard(pImpl->Lock);
        Impl& state = *pImpl;
        // The old frames leave in the parameter and are freed after the lock.
        state.Frames.swap(Frames);
        state.SourceRate = SampleRate;
        state.SourceChannels = Channels;
        state.FrameCount = static_cast<int64_t>(state.Frames.size() / static_cast<size_t>(Channels));
        state.Step = static_cast<double>(SampleRate) / kOutputSampleRate;
        const double startSec = std::isfinite(StartSec) ? std::clamp(StartSec, 0.0, state.DurationSec()) : 0.0;
        state.SourcePos = startSec * SampleRate;
        state.RampPos = 0;  // every start fades in
        if (state.pStretch)
            state.pStretch->Reset();
        state.bSeekPending = false;
        state.bStopRequested = false;
        state.PublishPosition();
        SeekRequested.store(false, std::memory_order_release);
        Paused.store(false, std::memory_order_release);
        Playing.store(true, std::memory_order_release);
    }
    try
    {
        pImpl->PlaybackThread = std::thread(&Impl::PlaybackLoop, pImpl.get());
    }
    catch (const std::system_error& error)
    {
        Playing.store(false, std::memory_order_release);
        if (ErrorMessage)
            *ErrorMessage = std::string("Cannot start the playback thread: ") + error.what();
        return false;
    }
    return true;
}

void GLDeckAudioPlayer::Stop() { pImpl->EndPlayback(); }

void GLDeckAudioPlayer::SetPaused(bool bPause)
{
    {
        std::lock_guard<std::mutex> guard(pImpl->Lock);
        Paused.store(bPause, std::memory_order_release);
    }
    pImpl->Wake.notify_all();
}

void GLDeckAudioPlayer::TogglePaused()
{
    {
        std::lock_guard<std::mutex> guard(pImpl->Lock);
        Paused.store(!Paused.load(std::memory_order_relaxed), std::memory_order_release);
    }
    pImpl->Wake.notify_all();
}

void GLDeckAudioPlayer::SeekToSeconds(double TargetSec)
{
    {
        // Clamped to the audio by the playback side; not finite means the start.
        std::lock_guard<std::mutex> guard(pImpl->Lock);
        SeekTargetSec.store(std::isfinite(TargetSec) ? TargetSec : 0.0, std::memory_order_release);
        SeekRequested.store(true, std::memory_order_release);
    }
    pImpl->Wake.notify_all();
}

void GLDeckAudioPlayer::SetLoop(double StartSec, double EndSec)
{
    std::lock_guard<std::mutex> guard(pImpl->Lock);
    pImpl->LoopStartSec = std::isfinite(StartSec) ? std::max(StartSec, 0.0) : 0.0;
    pImpl->LoopEndSec = std::isfinite(EndSec) ? EndSec : 0.0;
}

void GLDeckAudioPlayer::SetSpeed(double Speed)
{
    if (!std::isfinite(Speed))
        return;
    Speed = std::clamp(Speed, PlaybackStretcher::kMinSpeed, PlaybackStretcher::kMaxSpeed);
    // Made outside the lock: the stretcher allocates its buffers up front.
    std::unique_ptr<PlaybackStretcher> made;
    if (Speed != 1.0)
    {
        std::lock_guard<std::mutex> guard(pImpl->Lock);
        if (pImpl->pStretch)
        {
            pImpl->pStretch->SetSpeed(Speed);
            return;
        }
    }
    if (Speed != 1.0)
        made = std::make_unique<PlaybackStretcher>(Speed);
    std::lock_guard<std::mutex> guard(pImpl->Lock);
    // At 1 the source plays as it is, with nothing held between.
    pImpl->pStretch.swap(made);
    pImpl->PublishPosition();
}

double GLDeckAudioPlayer::Speed() const
{
    std::lock_guard<std::mutex> guard(pImpl->Lock);
    return pImpl->pStretch ? pImpl->pStretch->Speed() : 1.0;
}

double GLDeckAudioPlayer::CurrentSeconds() const { return pImpl->PositionSec.load(std::memory_order_acquire); }

bool GLDeckAudioPlayer::HasAudioDevice() const { return pImpl->HasDevice(); }
