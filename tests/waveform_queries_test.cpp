// Amplitude of a time span from PCM frames, external peaks and the host's
// providers, in that order.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "test_support.h"

namespace
{
// Stereo frames at 4 frames per second, so that quarter seconds are whole frames.
void GivePcm(GLWaveEdit& E, const std::vector<float>& Frames)
{
    Access::PcmFrames(E) = Frames;
    Access::PcmSampleRate(E) = 4;
    Access::bUsePcmFrames(E) = true;
    E.DurationSec = static_cast<double>(Frames.size() / 2) / 4.0;
}

void GivePeaks(GLWaveEdit& E, const std::vector<float>& Peaks, double DurationSec)
{
    Access::ExternalPeaks(E) = Peaks;
    Access::bUseExternalPeaks(E) = true;
    E.DurationSec = DurationSec;
}

// Frame mixes: 0.75, 0 (1 and -1), 1.5 (2 and 1), -0.5, 0.2, NaN, 0, -0.125.
const std::vector<float> kFrames = {0.75f, 0.75f, 1.0f, -1.0f, 2.0f, 1.0f, -0.5f,   -0.5f,
                                    0.2f,  0.2f,  NAN,  0.0f,  0.0f, 0.0f, -0.125f, -0.125f};
// Ten peaks over 10 s: the index is floor or ceil of the time.
const std::vector<float> kPeaks = {0.1f, 0.2f, -0.7f, 0.3f, NAN, 1.5f, 0.0f, 0.0f, 0.0f, 0.4f};

struct Span
{
    double Start, End, Min, Max;
};

// Each span must answer with its range, from the frames and peaks alone or through the whole chain.
void ExpectRanges(GLWaveEdit& E, bool bChain, std::initializer_list<Span> Spans)
{
    for (const Span& s : Spans)
    {
        SCOPED_TRACE(testing::Message() << s.Start << ".." << s.End);
        double lo = 9.0, hi = 9.0;
        EXPECT_TRUE(bChain ? Access::WaveformRangeForSpan(E, s.Start, s.End, lo, hi)
                           : Access::ExternalRangeForSpan(E, s.Start, s.End, lo, hi));
        EXPECT_NEAR(lo, s.Min, 1e-6);
        EXPECT_NEAR(hi, s.Max, 1e-6);
    }
}
bool Answers(GLWaveEdit& E, double A, double B)
{
    double lo = 9.0, hi = 9.0;
    return Access::ExternalRangeForSpan(E, A, B, lo, hi);
}
}  // namespace

TEST(PcmRange, ReadsTheChannelMixFromFloorToCeilFrameAndAlwaysIncludesZero)
{
    GLWaveEdit editor;
    GivePcm(editor, kFrames);
    ExpectRanges(editor, false,
                 {{0.25, 0.25, 0.0, 0.0},      // frame 1: 1 and -1 cancel
                  {0.5, 0.5, 0.0, 1.0},        // frame 2: mix 1.5 clamped
                  {0.5, 0.75, -0.5, 1.0},      // frames 2..3
                  {0.75, 0.5, -0.5, 1.0},      // reversed: 3..2 swapped
                  {0.3, 0.3, 0.0, 1.0},        // floor(1.2) = 1 .. ceil(1.2) = 2
                  {1.0, 1.0, 0.0, 0.2},        // constant 0.2: the minimum stays 0.0
                  {1.25, 1.25, 0.0, 0.0},      // a NaN mix changes nothing
                  {5.0, 6.0, -0.125, 0.0},     // past the end: the last frame
                  {-2.0, -1.0, 0.0, 0.75}});   // before the start: frame 0
}

TEST(PeakRange, IsSymmetricAndIndexesByFloorAndCeilOfTheFractionTimesTheCount)
{
    GLWaveEdit editor;
    GivePeaks(editor, kPeaks, 10.0);
    ExpectRanges(editor, false,
                 {{2.0, 2.0, -0.7, 0.7},      // -0.7 counts by its size
                  {0.5, 0.9, -0.2, 0.2},      // indexes 0 .. ceil(0.9) = 1
                  {3.5, 0.5, -0.7, 0.7},      // 3..1 swapped
                  {10.0, 10.0, -0.4, 0.4},    // ceil(10) = 10 limited to 9
                  {4.0, 4.0, 0.0, 0.0},       // a NaN peak changes nothing
                  {5.0, 5.0, -1.0, 1.0},      // 1.5 clamped
                  {-5.0, -1.0, -0.1, 0.1}});  // before the start: index 0
    GivePeaks(editor, {0.6f}, 10.0);
    ExpectRanges(editor, false, {{7.0, 9.0, -0.6, 0.6}});  // one peak answers every span

    GivePeaks(editor, kPeaks, 0.0);
    EXPECT_FALSE(Answers(editor, 0.0, 1.0));
    EXPECT_TRUE(Access::HasWaveform(editor));  // looks at no duration

    GivePeaks(editor, kPeaks, 10.0);
    Access::bUsePcmFrames(editor) = true;  // flagged without frames: the peaks answer
    ExpectRanges(editor, false, {{2.0, 2.0, -0.7, 0.7}});
    GivePcm(editor, kFrames);  // usable frames come first (the peaks would say 0.2 here)
    ExpectRanges(editor, false, {{0.5, 0.75, -0.5, 1.0}});
    Access::PcmFrames(editor) = {0.5f};  // less than a frame: false, and the peaks are not tried
    EXPECT_FALSE(Answers(editor, 2.0, 2.0));
}

TEST(WaveformChain, FallsThroughToTheRangeThenThePeakProviderAndClampsTheirAnswers)
{
    GLWaveEdit editor;
    double lo = 9.0, hi = 9.0;
    EXPECT_FALSE(Access::HasWaveform(editor) || Access::WaveformRangeForSpan(editor, 1.0, 2.0, lo, hi));
    EXPECT_EQ(lo, 9.0);  // untouched
    EXPECT_EQ(Access::WaveformPeakForSpan(editor, 1.0, 2.0), -1.0);

    int rangeCalls = 0, peakCalls = 0;
    bool rangeAnswers = true;
    std::vector<double> peakArgs;
    float peak = 0.3f;
    editor.WaveformRangeProvider = [&](double, double, float& Lo, float& Hi) {
        Lo = 0.8f;  // above its maximum, which lies beyond full scale
        Hi = -2.0f;
        return ++rangeCalls, rangeAnswers;
    };
    editor.WaveformPeakProvider = [&](double A, double B) { return ++peakCalls, peakArgs = {A, B}, peak; };
    ExpectRanges(editor, true, {{1.0, 2.0, -1.0, 0.8}});  // clamped to (0.8, -1.0), then swapped
    EXPECT_EQ(std::make_pair(rangeCalls, peakCalls), std::make_pair(1, 0));
    EXPECT_DOUBLE_EQ(Access::WaveformPeakForSpan(editor, 1.0, 2.0), 1.0);

    rangeAnswers = false;  // what it wrote is dropped
    ExpectRanges(editor, true, {{5.0, 4.0, -0.3, 0.3}});
    EXPECT_EQ(peakArgs, (std::vector<double>{5.0, 4.0}));  // inverted as given
    peak = -0.4f;
    EXPECT_EQ(Access::WaveformPeakForSpan(editor, 1.0, 2.0), 0.0);  // silence, not -1.0
    peak = 2.0f;
    GivePcm(editor, {0.5f});  // less than a frame: on to the providers, whose 2.0 is clamped
    ExpectRanges(editor, true, {{0.0, 1.0, -1.0, 1.0}});
    Access::bUsePcmFrames(editor) = false;
    editor.HasWaveformProvider = [] { return true; };
    EXPECT_TRUE(Access::HasWaveform(editor));
}
