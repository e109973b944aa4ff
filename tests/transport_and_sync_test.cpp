// Play, pause, stop and seek, and the per-pass sync of position, hold, view
// and selection. The player tests run on the player's silent output, which
// consumes frames in real time: they check bounds and growth, not timings.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "gldeck_audio_player.h"
#include "test_support.h"

namespace
{
// Seconds of stereo audio at 48000 Hz, with the view fitted to them.
void GivePcm(GLWaveEdit& E, double Seconds)
{
    E.AdoptDecodedDocument("pcm.wav", ConstantFrames(static_cast<size_t>(Seconds * 48000.0 + 0.5), 0.1f, 0.1f));
}

void Pass(GLWaveEdit& E) { Access::SyncPlaybackState(E); }
void Wait(int Ms) { std::this_thread::sleep_for(std::chrono::milliseconds(Ms)); }
void Hold(GLWaveEdit& E, double Sec, int Passes)
{
    Access::CommittedSeekDisplaySec(E) = Sec;
    Access::CommittedSeekDisplayFrames(E) = Passes;
}
std::pair<double, int> HoldOf(GLWaveEdit& E)
{
    return {Access::CommittedSeekDisplaySec(E), Access::CommittedSeekDisplayFrames(E)};
}
std::pair<double, double> Position(GLWaveEdit& E) { return {E.CurrentTimeSec, E.PreviewTimeSec}; }
const std::pair<double, int> kNoHold{-1.0, 0};

// Runs passes while a seek target is held, each showing Sec; gives how many ran before the hold ended.
int PassesHolding(GLWaveEdit& E, double Sec)
{
    int passes = 0;
    for (; Access::CommittedSeekDisplayFrames(E) > 0 && passes < 100; ++passes)
    {
        EXPECT_NEAR(Access::DisplayedTimeSec(E), Sec, 1e-9) << "pass " << passes;
        Pass(E);
    }
    EXPECT_EQ(HoldOf(E), kNoHold);
    return passes;
}
}  // namespace

TEST(Transport, WithoutUsablePcmPlayRefusesAndStopAndSeekMoveOnlyThePositionAndTheHold)
{
    GLWaveEdit editor;
    editor.SetExternalPeakWaveform("", {0.5f}, 10.0);  // peaks only, as a failed decode leaves
    std::string messages[3];
    EXPECT_FALSE(editor.PlayFromCurrentPosition(&messages[0]));
    EXPECT_FALSE(editor.PlaySelectionOrCurrent(&messages[1]));
    editor.TogglePlayback(&messages[2]);
    for (const std::string& message : messages)
        EXPECT_EQ(message, "No decoded PCM audio available for playback.");
    GLWaveEdit untitled;  // flagged, but no frames
    untitled.NewUntitledDocument();
    EXPECT_FALSE(untitled.PlayFromCurrentPosition() || untitled.PlaySelectionOrCurrent());
    EXPECT_EQ(Access::AudioPlayer(editor), nullptr);

    editor.CurrentTimeSec = 3.0;
    editor.PreviewTimeSec = 2.0;
    Hold(editor, 5.0, 4);
    editor.StopPlayback();
    EXPECT_EQ(Position(editor), std::make_pair(0.0, 0.0));
    EXPECT_EQ(HoldOf(editor), kNoHold);
    // Each seek holds its clamped target for 4 passes.
    auto seek = [&](double To) { return editor.SeekPlaybackTo(To), HoldOf(editor); };
    EXPECT_EQ(seek(-1.0), std::make_pair(0.0, 4));
    EXPECT_EQ(seek(25.0), std::make_pair(10.0, 4));
    seek(4.0);
    editor.SeekPlaybackRelative(1.5);  // 4 + 1.5
    EXPECT_EQ(Position(editor), std::make_pair(5.5, 5.5));
    EXPECT_EQ(HoldOf(editor), std::make_pair(5.5, 4));
    editor.PreviewTimeSec = 8.0;  // the base is the position, not what is on display: 5.5 - 1
    editor.SeekPlaybackRelative(-1.0);
    EXPECT_EQ(editor.CurrentTimeSec, 4.5);
    editor.DurationSec = 0.0;
    EXPECT_EQ(seek(3.0), std::make_pair(0.0, 4));
}

TEST(PlaybackSync, ACommittedSeekIsShownForFourPassesUnlessThePositionArrivesWithinATenth)
{
    TestHost host;
    GLWaveEdit editor;
    editor.NewUntitledDocument();  // PCM without a player or providers: only the test moves the position
    editor.DurationSec = 100.0;
    editor.SeekPlaybackTo(50.0);  // no player, so already there: the first pass ends the hold
    EXPECT_EQ(PassesHolding(editor, 50.0), 1);
    // Held target, position, passes until the hold ends: 1 on arrival, else all 4.
    const std::tuple<double, double, int> cases[] = {
        {50.0, 20.0, 4}, {50.0, 49.95, 1}, {0.1, 0.0, 1},  // exactly 0.1 apart has arrived
        {0.1000001, 0.0, 4}};
    for (auto [held, now, passes] : cases)
    {
        editor.SeekPlaybackTo(held);
        editor.CurrentTimeSec = now;
        EXPECT_EQ(PassesHolding(editor, held), passes) << held << " at " << now;
        EXPECT_EQ(Access::DisplayedTimeSec(editor), now);
    }
}

TEST(PlaybackSync, AsksTheProvidersOnlyWhileNeitherSourceFlagIsSetAndClampsTheirAnswers)
{
    TestHost host;
    GLWaveEdit editor;
    int calls = 0;
    double hostDuration = 0.0, hostTime = 0.0;
    editor.DurationProvider = [&] { return ++calls, hostDuration; };
    editor.CurrentTimeProvider = [&] { return ++calls, hostTime; };
    // From a duration of 8 s at 2 s: duration, position, preview and view end after one pass.
    auto pass = [&](bool bPcm, bool bPeaks, double Duration, double Time) {
        Access::bUsePcmFrames(editor) = bPcm;
        Access::bUseExternalPeaks(editor) = bPeaks;
        editor.DurationSec = 8.0;
        editor.CurrentTimeSec = 2.0;
        hostDuration = Duration;
        hostTime = Time;
        Pass(editor);
        return std::make_tuple(editor.DurationSec, editor.CurrentTimeSec, editor.PreviewTimeSec, editor.ViewEndSec);
    };
    EXPECT_EQ(pass(false, false, 30.0, 12.0), std::make_tuple(30.0, 12.0, 12.0, 30.0));  // the first pass fits
    EXPECT_EQ(pass(false, false, 60.0, 75.0), std::make_tuple(60.0, 60.0, 60.0, 30.0));  // ... only the first
    EXPECT_EQ(pass(false, false, 60.0, -3.0), std::make_tuple(60.0, 0.0, 0.0, 30.0));
    EXPECT_EQ(pass(false, false, -5.0, 12.0), std::make_tuple(0.0, 0.0, 0.0, 0.1));  // as 0 s: view 0..0.1
    EXPECT_EQ(calls, 8);  // two in each pass
    // Either flag silences them, data or not.
    EXPECT_EQ(pass(false, true, 30.0, 12.0), std::make_tuple(8.0, 2.0, 2.0, 0.1));
    EXPECT_EQ(pass(true, false, 30.0, 12.0), std::make_tuple(8.0, 2.0, 2.0, 0.1));
    EXPECT_EQ(calls, 8);
}

TEST(PlaybackSync, ClampsAPresentSelectionAndEndsOnlySeekAndSelectDragsAfterALostRelease)
{
    TestHost host;
    GLWaveEdit editor;
    GivePcm(editor, 8.0);
    SignalLog log(editor);
    auto clamped = [&](double A, double B) {
        Access::SelectionStartValueSec(editor) = A;
        Access::SelectionEndValueSec(editor) = B;
        Pass(editor);
        return std::make_pair(Access::SelectionStartValueSec(editor), Access::SelectionEndValueSec(editor));
    };
    EXPECT_EQ(clamped(10.0, 5.0), std::make_pair(8.0, 5.0));  // order kept
    EXPECT_EQ(clamped(9.0, 10.0), std::make_pair(8.0, 8.0));
    EXPECT_EQ(clamped(-1.0, 3.0), std::make_pair(0.0, 3.0));
    EXPECT_EQ(clamped(12.0, 12.0), std::make_pair(12.0, 12.0));  // no selection: left alone
    EXPECT_TRUE(log.Lines.empty());

    auto afterPass = [&](Access::DragMode Drag, bool bLeftNow, bool bLeftBefore) {
        Access::ActiveDrag(editor) = Drag;
        host.Pointer().pButton[0] = bLeftNow;
        host.Pointer().pPrevButton[0] = bLeftBefore;
        Pass(editor);
        return Access::ActiveDrag(editor);
    };
    EXPECT_EQ(afterPass(Access::DragSeek, false, false), Access::DragNone);
    EXPECT_EQ(afterPass(Access::DragSelect, false, false), Access::DragNone);
    EXPECT_EQ(afterPass(Access::DragPan, false, false), Access::DragPan);
    EXPECT_EQ(afterPass(Access::DragResizeSelectionEnd, false, false), Access::DragResizeSelectionEnd);
    EXPECT_EQ(afterPass(Access::DragSelect, false, true), Access::DragSelect);  // released this frame

    // A seek drag keeps its preview, and a hold outranks it on display.
    editor.CurrentTimeSec = 2.0;
    editor.PreviewTimeSec = 7.0;
    EXPECT_EQ(afterPass(Access::DragSeek, true, true), Access::DragSeek);
    EXPECT_EQ(Access::DisplayedTimeSec(editor), 7.0);
    Hold(editor, 3.0, 4);
    EXPECT_EQ(Access::DisplayedTimeSec(editor), 3.0);
    afterPass(Access::DragNone, false, false);
    EXPECT_EQ(editor.PreviewTimeSec, 2.0);

    p = nullptr;  // without a mouse the left button counts as up
    Access::ActiveDrag(editor) = Access::DragSeek;
    Pass(editor);
    p = &host.Host;
    EXPECT_EQ(Access::ActiveDrag(editor), Access::DragNone);
}

TEST(PlaybackWithPlayer, PlaysPausesSeeksAndEndsAtTheLastPositionRead)
{
    TestHost host;
    GLWaveEdit editor;
    GivePcm(editor, 1.0);
    editor.ViewEndSec = 0.1;  // a view of 0.1 s for playback to drag along
    editor.SeekPlaybackTo(0.3);  // a hold, which playing ends
    editor.CurrentTimeSec = -1.0;
    ASSERT_TRUE(editor.PlayFromCurrentPosition());
    EXPECT_TRUE(editor.IsPlaybackActive() && !editor.IsPlaybackPaused());
    EXPECT_EQ(editor.CurrentTimeSec, 0.0);
    EXPECT_EQ(HoldOf(editor), kNoHold);

    // Polls until the player stops or Passes run out; positions only grow.
    auto pollRising = [&](int Passes) {
        for (int i = 0; i < Passes && editor.IsPlaybackActive(); ++i)
        {
            const double before = editor.CurrentTimeSec;
            Wait(20);
            Pass(editor);
            EXPECT_GE(editor.CurrentTimeSec, before);
        }
    };
    pollRising(6);
    EXPECT_GT(editor.CurrentTimeSec, 0.0);
    EXPECT_NEAR(editor.ViewStartSec, std::max(0.0, editor.CurrentTimeSec - 0.07), 1e-9);  // 0.7 * 0.1 in

    editor.PausePlayback();
    EXPECT_TRUE(editor.IsPlaybackActive() && editor.IsPlaybackPaused());
    Wait(30);
    Pass(editor);
    const double pausedAt = editor.CurrentTimeSec;
    editor.ViewStartSec = 0.3;  // a pan while paused is not pulled back
    Wait(150);
    Pass(editor);
    EXPECT_NEAR(editor.CurrentTimeSec, pausedAt, 0.03);
    EXPECT_EQ(editor.ViewStartSec, 0.3);

    editor.TogglePlayback();  // resumes
    EXPECT_FALSE(editor.IsPlaybackPaused());
    editor.SeekPlaybackTo(0.85);
    for (int i = 0; i < 4 && Access::CommittedSeekDisplayFrames(editor) > 0; ++i)
        Wait(10), Pass(editor);
    // The hold ended because the player got there, not because its passes ran out.
    EXPECT_EQ(HoldOf(editor), kNoHold);
    EXPECT_NEAR(editor.CurrentTimeSec, 0.85, 0.1);

    pollRising(45);
    ASSERT_FALSE(editor.IsPlaybackActive());
    const double last = editor.CurrentTimeSec;
    Pass(editor);
    EXPECT_EQ(Position(editor), std::make_pair(last, last));
    EXPECT_GT(last, 0.75);  // neither reset to 0.0 nor beyond the end
    EXPECT_LE(last, 1.0);

    editor.TogglePlayback();  // a new playback from where the last one ended
    EXPECT_EQ(editor.CurrentTimeSec, last);
    Wait(20);
    Pass(editor);
    EXPECT_GE(editor.CurrentTimeSec, last);
}

TEST(PlaybackWithPlayer, SelectionPlayStartsAtTheLowerBoundAndATinySelectionCountsAsNone)
{
    TestHost host;
    GLWaveEdit editor;
    GivePcm(editor, 1.0);
    editor.ViewEndSec = 0.1;
    editor.CurrentTimeSec = 0.1;
    Access::SelectionStartValueSec(editor) = 0.4;
    Access::SelectionEndValueSec(editor) = 0.2;
    ASSERT_TRUE(editor.PlaySelectionOrCurrent());
    EXPECT_EQ(Position(editor), std::make_pair(0.2, 0.2));
    EXPECT_NEAR(editor.ViewStartSec, 0.13, 1e-9);  // 0.2 - 0.7 * 0.1
    Access::SelectionEndValueSec(editor) = 0.4000005;  // within 1e-6
    editor.CurrentTimeSec = 0.05;
    ASSERT_TRUE(editor.PlaySelectionOrCurrent());
    EXPECT_EQ(editor.CurrentTimeSec, 0.05);
}

TEST(PlaybackWithPlayer, APlayThePlayerRefusesLeavesTheRunningPlaybackPlaying)
{
    TestHost host;
    GLWaveEdit editor;
    editor.AdoptDecodedDocument("a", ConstantFrames(48000, 0.1f, 0.1f));
    ASSERT_TRUE(editor.PlayFromCurrentPosition());
    GLDeckAudioPlayer& player = *Access::AudioPlayer(editor);
    // Frames of more channels than the player takes: PlayPcm refuses them
    // before it touches what plays.
    Access::PcmChannels(editor) = 1000;
    std::string error;
    EXPECT_FALSE(editor.PlayFromCurrentPosition(&error));
    EXPECT_TRUE(player.IsPlaying()) << error;
}
