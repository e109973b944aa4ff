// The render side's pure helpers: time axis steps, time labels, the waveform
// columns drawn from the mix summary, and the text measure without a font.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "test_support.h"

TEST(NiceTimeStep, PicksTheSmallestOneTwoFiveStepNotBelowTheRoughStep)
{
    GLWaveEdit editor;
    // From 50 s on, whole minutes on the same ladder: 55 -> 1 min, 130 s = 2.2 min -> 5 min;
    // nonsense gives the smallest step.
    const double cases[][2] = {{0.3, 0.5},    {1.0, 1.0},     {1.01, 2.0}, {7.0, 10.0},
                               {0.0012, 0.002}, {55.0, 60.0}, {130.0, 300.0}, {0.0, 1e-4},
                               {-3.0, 1e-4},  {std::numeric_limits<double>::quiet_NaN(), 1e-4}};
    for (const auto& c : cases)
        EXPECT_DOUBLE_EQ(Access::NiceTimeStep(editor, c[0]), c[1]) << c[0];
}

TEST(NiceTimeStep, EveryStepIsALadderValueAtMostTwoAndAHalfTimesTheRoughStep)
{
    GLWaveEdit editor;
    for (double rough = 0.001; rough < 20000.0; rough *= 1.37)
    {
        const double step = Access::NiceTimeStep(editor, rough);
        const double unit = step >= 60.0 ? 60.0 : 1.0;
        const double mantissa = step / unit / std::pow(10.0, std::floor(std::log10(step / unit) + 1e-9));
        EXPECT_GE(step, rough);
        EXPECT_LE(step, rough * 2.5 + 1e-9) << rough;
        EXPECT_TRUE(std::fabs(mantissa - 1.0) < 1e-9 || std::fabs(mantissa - 2.0) < 1e-9 ||
                    std::fabs(mantissa - 5.0) < 1e-9)
            << "rough " << rough << " gave " << step;
    }
}

TEST(FormatTimeLabel, ReadsAsSecondsMinutesOrHoursByMagnitude)
{
    GLWaveEdit editor;
    EXPECT_EQ(Access::FormatTimeLabel(editor, 0.0), "0s");
    EXPECT_EQ(Access::FormatTimeLabel(editor, 0.1 + 0.2), "0.3s");  // 0.30000000000000004
    EXPECT_EQ(Access::FormatTimeLabel(editor, 12.5), "12.5s");
    EXPECT_EQ(Access::FormatTimeLabel(editor, 0.002), "0.002s");
    EXPECT_EQ(Access::FormatTimeLabel(editor, 65.0), "1:05");
    EXPECT_EQ(Access::FormatTimeLabel(editor, 65.5), "1:05.5");
    EXPECT_EQ(Access::FormatTimeLabel(editor, 59.99996), "1:00");  // rounds to 60.0000 s
    EXPECT_EQ(Access::FormatTimeLabel(editor, 3723.0), "1:02:03");  // 1 h 2 min 3 s
    EXPECT_EQ(Access::FormatTimeLabel(editor, -2.0), "-2s");
    EXPECT_EQ(Access::FormatTimeLabel(editor, std::numeric_limits<double>::infinity()), "--");
}

// Three seconds of stereo at 48000 Hz whose channels differ, so the mix matters,
// with one NaN that both sides must ignore.
static void LoadSynthesisedSignal(GLWaveEdit& Editor)
{
    std::vector<float> frames(48000 * 3 * 2);
    for (size_t f = 0; f < frames.size() / 2; ++f)
    {
        const double t = f / 48000.0;
        frames[2 * f] = static_cast<float>(0.9 * std::sin(2.0 * M_PI * 5.0 * t) * t / 3.0);
        frames[2 * f + 1] = static_cast<float>(0.4 * std::sin(2.0 * M_PI * 440.0 * t));
    }
    frames[2 * 70001] = std::numeric_limits<float>::quiet_NaN();
    Access::PcmFrames(Editor) = std::move(frames);
    Access::PcmSampleRate(Editor) = 48000;
    Access::PcmChannels(Editor) = 2;
    Access::bUsePcmFrames(Editor) = true;
    Editor.DurationSec = 3.0;
}

static void ExpectColumnsMatchSpanQuery(GLWaveEdit& Editor, double StartSec, double EndSec, int Columns)
{
    Editor.ViewStartSec = StartSec;
    Editor.ViewEndSec = EndSec;
    ASSERT_TRUE(Access::RefreshRenderColumns(Editor, Columns, static_cast<double>(Columns)));
    const auto& samples = Access::CachedRenderSamples(Editor);
    ASSERT_EQ(samples.size(), static_cast<size_t>(Columns));
    for (int i = 0; i < Columns; ++i)
    {
        const double t0 = StartSec + (static_cast<double>(i) / Columns) * (EndSec - StartSec);
        const double t1 = StartSec + (static_cast<double>(i + 1) / Columns) * (EndSec - StartSec);
        double minAmp = 0.0;
        double maxAmp = 0.0;
        ASSERT_TRUE(Access::ExternalRangeForSpan(Editor, t0, t1, minAmp, maxAmp));
        EXPECT_EQ(samples[i].MinAmp, minAmp) << "column " << i;
        EXPECT_EQ(samples[i].MaxAmp, maxAmp) << "column " << i;
        EXPECT_DOUBLE_EQ(samples[i].TimeSec, (t0 + t1) * 0.5);
    }
}

TEST(WaveColumns, AgreeWithTheSpanQueryFromSingleFramesToCoarseBlocksAndFollowChangedFrames)
{
    GLWaveEdit editor;
    LoadSynthesisedSignal(editor);
    ExpectColumnsMatchSpanQuery(editor, 1.4, 1.41, 300);    // 480 frames: a frame or two per column
    ExpectColumnsMatchSpanQuery(editor, 0.1234, 2.9, 700);  // ~190 frames: ragged ends only
    ExpectColumnsMatchSpanQuery(editor, 0.01, 3.0, 4);      // ~36000 frames: coarse blocks of 16384
    ExpectColumnsMatchSpanQuery(editor, 0.0, 3.0, 50);      // 2880 frames: fine blocks
    for (float& sample : Access::PcmFrames(editor))
        sample *= 0.5f;
    Access::InvalidateWaveCaches(editor);  // the columns cached for 0..3 s at 50 must not survive
    ExpectColumnsMatchSpanQuery(editor, 0.0, 3.0, 50);
}

TEST(TextMeasure, EstimatesAFontlessLineAndAdvanceFromTheSize)
{
    TTF noFont;
    EXPECT_EQ(noFont.GetCellHeight(10), 12);             // ceil(10 * 1.2)
    EXPECT_DOUBLE_EQ(noFont.MeasureTextPx("abc", 10), 18.0);  // 3 * 0.6 * 10
    EXPECT_DOUBLE_EQ(noFont.MeasureTextPx("\xC3\xA9", 10), 6.0);  // one code point in two bytes
}
