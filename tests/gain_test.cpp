// Gain in percent on the selection or the whole document: exact scaling,
// clamping to full scale, and refusals that say why and change nothing.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "test_support.h"

namespace
{

// A 4 s stereo document whose every frame is (Level, -Level).
struct Rig
{
    GLWaveEdit Editor;
    SignalLog Log{Editor};

    explicit Rig(float Level)
    {
        Editor.AdoptDecodedDocument("gain.wav", ConstantFrames(192000, Level, -Level));  // 4 s
        Log.Clear();
    }
    void Select(double A, double B) { Access::SelectionStartValueSec(Editor) = A, Access::SelectionEndValueSec(Editor) = B; }
    std::vector<float>& Frames() { return Access::PcmFrames(Editor); }
    // How many samples differ from (Inside, -Inside) within frames First..Last-1
    // and from (Outside, -Outside) elsewhere.
    size_t Mismatches(size_t First, size_t Last, float Inside, float Outside)
    {
        size_t bad = 0;
        for (size_t i = 0; i < Frames().size(); ++i)
        {
            const float level = (i / 2 >= First && i / 2 < Last) ? Inside : Outside;
            bad += Frames()[i] != (i % 2 == 0 ? level : -level);
        }
        return bad;
    }
};
}  // namespace

TEST(Gain, RefusalsGiveTheFirstFailingReasonAndLeaveAudioAndPlaybackAlone)
{
    const char* const kPercent = "Gain must be a non-negative percent.";
    const char* const kNoPcm = "No decoded PCM audio available for gain.";
    const auto oneSample = [](Rig& r) { r.Frames() = {0.5f}; };  // not one whole frame of two channels
    struct Case { double Percent; void (*Spoil)(Rig&); const char* Message; };
    const Case cases[] = {
        {std::numeric_limits<double>::quiet_NaN(), nullptr, kPercent},
        {std::numeric_limits<double>::infinity(), nullptr, kPercent},
        {-1.0, nullptr, kPercent},
        {50.0, [](Rig& r) { r.Select(5.0, 6.0); }, "Selected audio range is empty."},  // behind the last frame
        {-1.0, oneSample, kPercent},  // the percent is tested before the frames
        {50.0, oneSample, "No audio frames available for gain."},
        {-1.0, [](Rig& r) { Access::bUsePcmFrames(r.Editor) = false; }, kNoPcm},  // and after the PCM
        {100.0, [](Rig& r) { r.Editor.NewUntitledDocument(); }, kNoPcm},  // flag on, no samples
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(std::to_string(c.Percent) + " " + c.Message);
        Rig r(0.5f);
        std::string error;
        ASSERT_TRUE(r.Editor.PlayFromCurrentPosition(&error)) << error;
        if (c.Spoil)
            c.Spoil(r);
        const bool bPlaying = r.Editor.IsPlaybackActive();
        const std::vector<float> before = r.Frames();
        r.Log.Clear();
        EXPECT_FALSE(r.Editor.ApplyGainPercent(c.Percent, &error));
        EXPECT_EQ(error, c.Message);
        EXPECT_FALSE(r.Editor.ApplyGainPercent(c.Percent, nullptr));
        EXPECT_EQ(r.Frames(), before);
        EXPECT_EQ(r.Editor.IsPlaybackActive(), bPlaying);
        EXPECT_TRUE(r.Log.Lines.empty());
    }
}

TEST(Gain, SelectionFromOneToTwoSecondsScalesFrames48000To95999AndClamps)
{
    Rig r(0.75f);
    std::string error = "untouched";
    ASSERT_TRUE(r.Editor.PlayFromCurrentPosition(&error));
    r.Editor.CurrentTimeSec = 1.0;
    r.Select(2.0, 1.0);  // samples 96000..191999
    EXPECT_TRUE(r.Editor.ApplyGainPercent(200.0, &error));
    EXPECT_EQ(error, "untouched");
    EXPECT_TRUE(!r.Editor.IsPlaybackActive() && r.Editor.CurrentTimeSec == 0.0);
    EXPECT_EQ(r.Mismatches(48000, 96000, 1.0f, 0.75f), 0u);  // 0.75 * 2 = 1.5, held at 1.0
    EXPECT_EQ(r.Log.Lines, (Lines{"edit gain 200.000000% 1.000000 2.000000"}));
    EXPECT_TRUE(Access::SelectionStartValueSec(r.Editor) == 2.0 && Access::SelectionEndValueSec(r.Editor) == 1.0);
    EXPECT_EQ(r.Editor.DurationSec, 4.0);
    EXPECT_EQ(Access::RecordFrames(r.Editor, 0), r.Frames());
    EXPECT_TRUE(r.Editor.ApplyGainPercent(50.0, nullptr));  // the same span again: 1.0 * 0.5
    EXPECT_EQ(r.Mismatches(48000, 96000, 0.5f, 0.75f), 0u);
}

TEST(Gain, WithoutSelectionTheWholeDocumentScalesAndTheSpanIsCutAtTheEnd)
{
    Rig r(0.5f);
    EXPECT_TRUE(r.Editor.ApplyGainPercent(150.0));
    EXPECT_TRUE(r.Editor.ApplyGainPercent(12.5));
    EXPECT_EQ(r.Mismatches(0, 192000, 0.09375f, 0.0f), 0u);  // 0.5 * 1.5 * 0.125
    r.Frames()[2 * 180000] = 1.5f;  // beyond full scale, inside the next span
    r.Frames()[0] = 1.5f;           // outside it
    r.Select(3.5, 10.0);
    EXPECT_TRUE(r.Editor.ApplyGainPercent(100.0));
    EXPECT_TRUE(r.Frames()[2 * 180000] == 1.0f && r.Frames()[0] == 1.5f);
    EXPECT_TRUE(r.Editor.ApplyGainPercent(0.0));
    EXPECT_EQ(r.Mismatches(168000, 192000, 0.0f, 0.09375f), 1u);  // frame 0's 1.5 stays
    EXPECT_EQ(r.Log.Lines,
              (Lines{"edit gain 150.000000% 0.000000 4.000000", "edit gain 12.500000% 0.000000 4.000000",
                     "edit gain 100.000000% 3.500000 4.000000", "edit gain 0.000000% 3.500000 4.000000"}));
    r.Editor.ClearSelection(false);  // the whole document, with its silent end
    EXPECT_TRUE(r.Editor.ApplyGainPercent(1e300));  // 1e298 is infinite as a float, 0 * inf is not a number
    for (float sample : r.Frames())
        ASSERT_TRUE(std::isfinite(sample) && std::fabs(sample) <= 1.0f) << sample;
    EXPECT_TRUE(r.Frames()[2] == 1.0f && r.Frames()[3] == -1.0f);
}
