// The audio player on its silent output, which keeps time like a device: start,
// position, pause, seek, replacement, end, stop, destruction, refusals, loop
// and speed.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>
#include <thread>

#include "gldeck_audio_player.h"
#include "playback_speed.h"
#include "test_support.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr double kBlockSec = 0.010;  // the silent output's block: it runs at most this far ahead

std::unique_ptr<GLDeckAudioPlayer> SilentPlayer()
{
    setenv("GLWE_AUDIO_OUTPUT", "silent", 1);
    return std::make_unique<GLDeckAudioPlayer>();
}

std::vector<float> Silence(double Seconds, int Rate, int Channels)
{
    return std::vector<float>(static_cast<size_t>(Seconds * Rate) * Channels, 0.25f);
}

double SecondsSince(Clock::time_point Start) { return std::chrono::duration<double>(Clock::now() - Start).count(); }

// Polls Condition for up to 3 s; true as soon as it holds.
bool WaitFor(const std::function<bool()>& Condition)
{
    const auto deadline = Clock::now() + std::chrono::seconds(3);
    while (!Condition())
    {
        if (Clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(milliseconds(2));
    }
    return true;
}

TEST(AudioPlayer, StartsIdleThenPlaysFromTheStartInRealTime)
{
    auto player = SilentPlayer();
    EXPECT_FALSE(player->IsPlaying());
    EXPECT_FALSE(player->IsPaused());
    EXPECT_EQ(player->CurrentSeconds(), 0.0);

    const auto started = Clock::now();
    ASSERT_TRUE(player->PlayPcm(Silence(10.0, 48000, 2), 48000, 2, 1.5, nullptr));
    EXPECT_TRUE(player->IsPlaying());
    EXPECT_FALSE(player->HasAudioDevice());
    double previous = player->CurrentSeconds();
    EXPECT_GE(previous, 1.5);
    for (int i = 0; i < 10; ++i)
    {
        std::this_thread::sleep_for(milliseconds(30));
        const double now = player->CurrentSeconds();
        EXPECT_GE(now, previous);
        // Never ahead of the wall clock by more than one block.
        EXPECT_LE(now, 1.5 + SecondsSince(started) + kBlockSec + 1e-9);
        previous = now;
    }
    EXPECT_GT(previous, 1.5 + 0.05);  // 300 ms of wall time have passed
}

TEST(AudioPlayer, PauseHoldsThePositionAfterItsFadeSeeksArriveAndResumeContinuesFromThere)
{
    auto player = SilentPlayer();
    ASSERT_TRUE(player->PlayPcm(Silence(10.0, 48000, 2), 48000, 2, 0.0, nullptr));
    std::this_thread::sleep_for(milliseconds(100));
    player->SetPaused(true);
    const double atPause = player->CurrentSeconds();
    std::this_thread::sleep_for(milliseconds(150));
    const double held = player->CurrentSeconds();
    EXPECT_TRUE(player->IsPlaying());
    EXPECT_TRUE(player->IsPaused());
    EXPECT_GE(held, atPause);
    EXPECT_LE(held, atPause + 0.005 + 1e-9);  // only the 5 ms fade-out: 240 frames at 48000 Hz
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(player->CurrentSeconds(), held);

    player->SeekToSeconds(99.0);  // a seek while paused arrives, clamped to the end
    EXPECT_TRUE(WaitFor([&] { return player->CurrentSeconds() == 10.0; }));
    player->SeekToSeconds(2.0);
    EXPECT_TRUE(WaitFor([&] { return player->CurrentSeconds() < 2.01; }));
    EXPECT_TRUE(player->IsPaused() && player->CurrentSeconds() >= 2.0);

    player->TogglePaused();
    EXPECT_FALSE(player->IsPaused());
    EXPECT_TRUE(WaitFor([&] { return player->CurrentSeconds() > 2.0; }));
    EXPECT_LT(player->CurrentSeconds(), 3.0);  // continued, not restarted or skipped
}

TEST(AudioPlayer, PlayDuringAPauseReplacesThePlaybackAndIsHeard)
{
    auto player = SilentPlayer();
    ASSERT_TRUE(player->PlayPcm(Silence(10.0, 48000, 2), 48000, 2, 5.0, nullptr));
    player->SetPaused(true);
    ASSERT_TRUE(player->PlayPcm(Silence(3.0, 22050, 1), 22050, 1, 1.0, nullptr));
    EXPECT_TRUE(player->IsPlaying());
    EXPECT_FALSE(player->IsPaused());
    EXPECT_TRUE(WaitFor([&] { return player->CurrentSeconds() > 1.05; }));
    EXPECT_LT(player->CurrentSeconds(), 3.0);
}

TEST(AudioPlayer, EndOfTheAudioStopsPlayingAtItsLengthAfterThatMuchWallTime)
{
    auto player = SilentPlayer();
    const auto started = Clock::now();
    // Mono at 44100 Hz, resampled: 11025 frames last 0.25 s.
    ASSERT_TRUE(player->PlayPcm(Silence(0.25, 44100, 1), 44100, 1, 0.0, nullptr));
    EXPECT_TRUE(WaitFor([&] { return !player->IsPlaying(); }));
    EXPECT_GE(SecondsSince(started), 0.25 - kBlockSec);
    EXPECT_DOUBLE_EQ(player->CurrentSeconds(), 0.25);
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_DOUBLE_EQ(player->CurrentSeconds(), 0.25);

    // Six channels down-mixed, started past the end: clamped, ends at once.
    ASSERT_TRUE(player->PlayPcm(Silence(0.5, 48000, 6), 48000, 6, 9.0, nullptr));
    EXPECT_TRUE(WaitFor([&] { return !player->IsPlaying(); }));
    EXPECT_DOUBLE_EQ(player->CurrentSeconds(), 0.5);
}

// A hang guard, not a timing: destruction must not wait for the audio's end.
TEST(AudioPlayer, StopAndDestructionEndPlayingOrPausedPlayback)
{
    for (const bool bPause : {false, true})
    {
        auto player = SilentPlayer();
        ASSERT_TRUE(player->PlayPcm(Silence(60.0, 48000, 2), 48000, 2, 0.0, nullptr));
        player->SetPaused(bPause);
        player->Stop();
        EXPECT_FALSE(player->IsPlaying() || player->IsPaused()) << "paused: " << bPause;
        player->Stop();  // twice is harmless
        EXPECT_FALSE(player->IsPlaying());
        ASSERT_TRUE(player->PlayPcm(Silence(60.0, 48000, 2), 48000, 2, 0.0, nullptr));
        player->SetPaused(bPause);
        std::this_thread::sleep_for(milliseconds(30));
        const auto started = Clock::now();
        player.reset();
        EXPECT_LT(SecondsSince(started), 0.5) << "paused: " << bPause;
    }
}

TEST(AudioPlayer, RefusesBadInputWithAReasonAndKeepsPlaying)
{
    auto player = SilentPlayer();
    ASSERT_TRUE(player->PlayPcm(Silence(10.0, 48000, 2), 48000, 2, 0.0, nullptr));
    struct Case { std::vector<float> Frames; int Rate; int Channels; };
    const Case cases[] = {{{}, 48000, 2}, {{0.1f}, 48000, 0}, {{0.1f}, 48000, -3}, {{0.1f, 0.1f}, 0, 2},
                          {{0.1f}, 48000, 2}, {std::vector<float>(200), 48000, 100}};
    for (const Case& bad : cases)
    {
        std::string message;
        EXPECT_FALSE(player->PlayPcm(bad.Frames, bad.Rate, bad.Channels, 0.0, &message));
        EXPECT_FALSE(message.empty()) << bad.Rate << " Hz, " << bad.Channels << " channels";
        EXPECT_FALSE(player->PlayPcm(bad.Frames, bad.Rate, bad.Channels, 0.0, nullptr));
    }
    EXPECT_TRUE(player->IsPlaying());
}

}  // namespace

// A loop: the position wraps from its end to its start again and again,
// never leaves it, and keeps pace with the clock across the wraps.
TEST(AudioPlayer, ALoopWrapsFromItsEndToItsStartRepeatedlyWithoutLosingTime)
{
    auto player = SilentPlayer();
    player->SetLoop(0.5, 0.8);
    ASSERT_TRUE(player->PlayPcm(Silence(2.0, 44100, 1), 44100, 1, 0.5, nullptr));
    const auto started = Clock::now();
    double previous = player->CurrentSeconds();
    double unwrapped = 0.0;
    int wraps = 0;
    while (SecondsSince(started) < 1.5)
    {
        std::this_thread::sleep_for(milliseconds(3));
        const double now = player->CurrentSeconds();
        ASSERT_GE(now, 0.5 - 1e-9);
        ASSERT_LE(now, 0.8 + 1e-9);
        if (now < previous)
        {
            ++wraps;
            unwrapped += (0.8 - previous) + (now - 0.5);
        }
        else
            unwrapped += now - previous;
        previous = now;
    }
    const double wall = SecondsSince(started);
    EXPECT_GE(wraps, 3);
    EXPECT_TRUE(player->IsPlaying());  // the end of the audio is never reached
    EXPECT_GT(unwrapped, wall * 0.8) << wraps << " wraps";
    EXPECT_LE(unwrapped, wall + 2 * kBlockSec);

    // Off again: it plays on past the old end.
    player->SetLoop(0.0, 0.0);
    EXPECT_TRUE(WaitFor([&] { return player->CurrentSeconds() > 0.85; }));
}

// Another speed: the position runs that much faster than the wall clock and
// stays in the frames' time; the stretcher keeps a tone's pitch while it
// shortens or lengthens it (zero crossings counted, both channels alike).
TEST(AudioPlayer, AnotherSpeedKeepsPitchAndDocumentTime)
{
    for (const double speed : {2.0, 0.5})
    {
        PlaybackStretcher stretcher(speed);
        const int inputFrames = 48000;
        std::vector<float> tone(2 * inputFrames);
        for (int i = 0; i < inputFrames; ++i)
            tone[2 * i] = tone[2 * i + 1] = 0.5f * static_cast<float>(std::sin(2 * M_PI * 1000.0 * i / 48000.0));
        std::vector<float> out, block(2 * PlaybackStretcher::kMaxBlockFrames);
        int fed = 0;
        while (stretcher.Available() >= 0)
        {
            if (stretcher.Available() > 0)
            {
                const int taken = stretcher.Take(block.data(), PlaybackStretcher::kMaxBlockFrames);
                out.insert(out.end(), block.begin(), block.begin() + 2 * taken);
                continue;
            }
            const int n = std::min(std::max(stretcher.FramesWanted(), 1), inputFrames - fed);
            stretcher.Feed(tone.data() + 2 * fed, n, fed + n == inputFrames);
            fed += n;
        }
        const size_t frames = out.size() / 2;
        EXPECT_NEAR(static_cast<double>(frames), inputFrames / speed, inputFrames / speed * 0.1) << speed;
        // The middle half, away from the start's delay and the end's tail.
        int crossings = 0;
        for (size_t i = frames / 4 + 1; i < frames * 3 / 4; ++i)
        {
            crossings += (out[2 * i - 2] < 0) != (out[2 * i] < 0);
            ASSERT_EQ(out[2 * i], out[2 * i + 1]);
        }
        const double hz = crossings / 2.0 / (static_cast<double>(frames / 2) / 48000.0);
        EXPECT_NEAR(hz, 1000.0, 20.0) << speed;
    }

    auto player = SilentPlayer();
    player->SetSpeed(2.0);
    EXPECT_EQ(player->Speed(), 2.0);
    ASSERT_TRUE(player->PlayPcm(Silence(10.0, 48000, 2), 48000, 2, 1.0, nullptr));
    const auto started = Clock::now();
    std::this_thread::sleep_for(milliseconds(600));
    const double advanced = player->CurrentSeconds() - 1.0;
    const double wall = SecondsSince(started);
    EXPECT_GT(advanced, 2.0 * wall * 0.75 - 0.1);  // at 1 it would be about wall
    // What the stretcher holds is an estimate of its latency: within 0.1 s.
    EXPECT_LE(advanced, 2.0 * wall + 0.1);
    player->SetSpeed(1.0);
    EXPECT_EQ(player->Speed(), 1.0);
}
