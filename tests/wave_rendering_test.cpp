// The render side's pure helpers: time axis steps, axis labels and the play
// position's text; and the threads a frame starts. The waveform
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
