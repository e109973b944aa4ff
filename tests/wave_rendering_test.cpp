// The render side's pure helpers: time axis steps, time labels and the text
// measure without a font; and the threads a frame starts. The waveform
// columns are checked against the span query in wave_summary_test.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <thread>

#include "test_support.h"

// Threads started while the count is on, counted here on their way to the C
// library's own pthread_create. The sanitizers start threads through theirs,
// which this would hide from them.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define GLWE_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define GLWE_SANITIZED 1
#endif
namespace
{
std::atomic<bool> bCountThreads{false};
std::atomic<int> ThreadsStarted{0};
}  // namespace
#ifndef GLWE_SANITIZED
extern "C" int pthread_create(pthread_t* Thread, const pthread_attr_t* Attributes, void* (*Start)(void*),
                              void* Argument)
{
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const Create create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    if (bCountThreads)
        ++ThreadsStarted;
    return create(Thread, Attributes, Start, Argument);
}
#endif

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

// Every label of one axis has the fields of the view's largest time and the
// decimals of the step, rounded to them.
TEST(AxisLabels, ShareOneFormatPerAxisAndRoundToTheirLastDigit)
{
    GLWaveEdit editor;
    struct Case
    {
        double ViewEndSec, StepSec, TimeSec;
        const char* Label;
    };
    const Case cases[] = {
        {10.0, 0.2, 0.0, "0.0s"},             {10.0, 0.2, 1.2000000001, "1.2s"},
        {10.0, 0.05, 1.2, "1.20s"},           {10.0, 1e-4, 0.00005, "0.0001s"},  // 0.5 tenth-ms rounds up
        {180.0, 0.001, 179.9996, "3:00.000"}, {180.0, 0.001, 0.0, "0:00.000"},
        {180.0, 1.0, 179.6, "3:00"},          {180.0, 0.5, 179.5, "2:59.5"},
        {3700.0, 15.0, 3600.0, "1:00:00"},    {3700.0, 15.0, 3585.0, "0:59:45"},
        {3700.0, 0.1, 3599.96, "1:00:00.0"},
    };
    for (const Case& c : cases)
    {
        editor.ViewStartSec = 0.0;
        editor.ViewEndSec = c.ViewEndSec;
        EXPECT_EQ(Access::FormatAxisTime(editor, c.TimeSec, c.StepSec), c.Label) << c.TimeSec;
    }
}

// Without a font a label measures 0.6 x 13 px per character, and a label
// needs its width plus three text heights (39 px); the padding of 8 / 1000 on
// an axis 2.0 wide is 4 px a side, so the plot is 992 px wide.
TEST(AxisTimeStep, TakesFinerStepsWhileLabelsFitButNeverFewerThanDesired)
{
    TestHost host(1000, 600);
    GLWaveEdit editor;
    editor.X1 = -1.0, editor.Y1 = 1.0, editor.X2 = 1.0, editor.Y2 = -1.0;
    Access::UpdatePlotRect(editor, false);
    struct Case
    {
        double ViewEndSec;
        int DesiredTicks;
        double StepSec;
    };
    const Case cases[] = {
        // 60 / 6 = 10 s; "1:00" is 31.2 + 39 px: 12 labels at 5 s fit (842 px), 30 at 2 s do not.
        {60.0, 6, 5.0},
        // 60 / 64 -> 1 s; 0.5 s would be 120 ticks, beyond the bound of 64.
        {60.0, 64, 1.0},
        // 3 / 6 = 0.5 s; "3.0s" at 0.2 s would be 15 labels, 1053 px: too many.
        {3.0, 6, 0.5},
    };
    for (const Case& c : cases)
    {
        editor.ViewStartSec = 0.0;
        editor.ViewEndSec = c.ViewEndSec;
        editor.DesiredXTicks = c.DesiredTicks;
        EXPECT_DOUBLE_EQ(Access::AxisTimeStep(editor), c.StepSec) << c.ViewEndSec << " " << c.DesiredTicks;
    }
}

TEST(PlayPosition, KeepsTheWidthOfTheDurationWhilePlaying)
{
    GLWaveEdit editor;
    struct Case
    {
        double DurationSec, PositionSec;
        const char* Text;
    };
    const Case cases[] = {
        {754.25, 5.0, "00:05.000 / 12:34.250"},      // minutes padded to the duration's two digits
        {754.25, 754.2496, "12:34.250 / 12:34.250"},  // 754.2496 rounds to the millisecond .250
        {5.0, 1.5, "0:01.500 / 0:05.000"},           // always at least m:ss
        {3723.0, 61.0, "0:01:01.000 / 1:02:03.000"},
        {10.0, 25.0, "0:10.000 / 0:10.000"},  // held at the end
    };
    for (const Case& c : cases)
    {
        editor.DurationSec = c.DurationSec;
        editor.CurrentTimeSec = c.PositionSec;
        EXPECT_EQ(editor.PlayPositionText(), c.Text);
        EXPECT_EQ(editor.PlayPositionText().size(), std::string(c.Text).size());
    }
}

TEST(RenderThreads, AFrameOfALongViewStartsAHelperOnlyWhereTheHostTurnedItOn)
{
#ifdef GLWE_SANITIZED
    GTEST_SKIP() << "the sanitizers own pthread_create";
#endif
    if (std::thread::hardware_concurrency() < 2)
        GTEST_SKIP() << "one core: the helper is never started";
    TestHost host;
    GLWaveEdit editor;
    editor.Init();
    editor.X1 = -0.9, editor.X2 = 0.9, editor.Y1 = 0.9, editor.Y2 = -0.9;
    // 100 s: beyond the 4 Mi frames (87 s) from which a view is shared out.
    editor.AdoptDecodedDocument("long", ConstantFrames(4800000, 0.1f, -0.1f));
    double viewEndSec = 95.0;
    const auto startedByAFrame = [&] {
        editor.ViewEndSec = ++viewEndSec;  // a view not seen before: columns anew
        ThreadsStarted = 0;
        bCountThreads = true;
        editor.Render(0.0, 0.0);
        bCountThreads = false;
        return ThreadsStarted.load();
    };
    EXPECT_EQ(startedByAFrame(), 0);
    editor.bRenderHelperThread = true;
    EXPECT_GE(startedByAFrame(), 1);
    editor.Destroy();
}
