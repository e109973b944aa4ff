// The visible time span: keeping it valid, fitting it, mapping x and time,
// zooming around a time and following the play position at 70%.
#include <gtest/gtest.h>

#include <limits>

#include "test_support.h"

namespace
{
void SetView(GLWaveEdit& E, double DurationSec, double StartSec, double EndSec)
{
    E.DurationSec = DurationSec;
    E.ViewStartSec = StartSec;
    E.ViewEndSec = EndSec;
}

#define EXPECT_VIEW(E, Start, End)                 \
    do                                             \
    {                                              \
        EXPECT_NEAR((E).ViewStartSec, Start, 1e-9); \
        EXPECT_NEAR((E).ViewEndSec, End, 1e-9);     \
    } while (0)
}  // namespace

TEST(ClampView, PushesAnOverhangingViewBackWithItsWidthAndBoundsTheWidth)
{
    GLWaveEdit editor;
    struct Case
    {
        double Duration, Start, End, WantStart, WantEnd;
    };
    const Case cases[] = {
        {0.0, 5.0, 3.0, 0.0, 0.1},       // empty document: 0..minSpan
        {-4.0, 1.0, 2.0, 0.0, 0.1},      // a negative duration counts as 0
        {0.1, 0.02, 0.05, 0.0, 0.1},     // duration equal to minSpan
        {100.0, 95.0, 105.0, 90.0, 100.0},
        {100.0, -3.0, 7.0, 0.0, 10.0},
        {10.0, -5.0, 20.0, 0.0, 10.0},   // wider than the document
        {10.0, 5.0, 3.0, 5.0, 5.1},      // inverted: minSpan wide from its start
        {10.0, 9.99, 1.0, 9.9, 10.0},    // ... with the start clamped to 10 - 0.1
    };
    for (const Case& c : cases)
    {
        SetView(editor, c.Duration, c.Start, c.End);
        Access::ClampView(editor);
        EXPECT_VIEW(editor, c.WantStart, c.WantEnd);
    }
    editor.MinViewSpanSec = 0.0;  // the floor of 0.01 s still holds
    SetView(editor, 10.0, 2.0, 2.001);
    Access::ClampView(editor);
    EXPECT_VIEW(editor, 2.0, 2.01);
}

TEST(FitViewToData, ShowsTheWholeDocumentOrAtLeastTheSmallestSpan)
{
    GLWaveEdit editor;
    SetView(editor, 12.0, 3.0, 4.0);
    editor.FitViewToData();
    EXPECT_VIEW(editor, 0.0, 12.0);
    editor.DurationSec = 0.05;
    editor.FitViewToData();
    EXPECT_VIEW(editor, 0.0, 0.1);
}

TEST(TimeAndX, MapInsideTheViewAndThePlotWithClampsAtTheEdges)
{
    GLWaveEdit editor;
    Access::PlotX1(editor) = -0.5;
    Access::PlotX2(editor) = 0.5;
    SetView(editor, 100.0, 10.0, 20.0);
    EXPECT_DOUBLE_EQ(Access::TimeForMouse(editor, -0.25), 12.5);
    EXPECT_DOUBLE_EQ(Access::TimeForMouse(editor, -1.0), 10.0);
    EXPECT_DOUBLE_EQ(Access::TimeForMouse(editor, 2.0), 20.0);
    EXPECT_DOUBLE_EQ(Access::XForTime(editor, 12.5), -0.25);
    EXPECT_DOUBLE_EQ(Access::XForTime(editor, 25.0), 0.5);
    EXPECT_DOUBLE_EQ(Access::XForTime(editor, 5.0), -0.5);
    // Anything not finite lands on the left edge, positive infinity too.
    EXPECT_DOUBLE_EQ(Access::XForTime(editor, std::numeric_limits<double>::quiet_NaN()), -0.5);
    EXPECT_DOUBLE_EQ(Access::XForTime(editor, std::numeric_limits<double>::infinity()), -0.5);
    editor.ViewEndSec = 10.0;
    EXPECT_DOUBLE_EQ(Access::XForTime(editor, 10.0), -0.5);

    // A plot of no width divides by 1e-9: 1e-12 to its right is a thousandth of the view.
    editor.ViewEndSec = 20.0;
    Access::PlotX1(editor) = Access::PlotX2(editor) = 0.25;
    EXPECT_DOUBLE_EQ(Access::TimeForMouse(editor, 0.25), 10.0);
    EXPECT_NEAR(Access::TimeForMouse(editor, 0.25 + 1e-12), 10.01, 1e-5);
    EXPECT_DOUBLE_EQ(Access::TimeForMouse(editor, 0.3), 20.0);
}

TEST(ZoomAroundTime, KeepsTheAnchorInPlaceUnlessTheDocumentEdgeIntervenes)
{
    GLWaveEdit editor;
    struct Case
    {
        double Anchor, Ratio, WantStart, WantEnd;
    };
    const Case cases[] = {
        {25.0, 0.5, 22.5, 32.5},   // a quarter in: 10 wide, 25 - 2.5
        {30.0, 1.0, 20.0, 40.0},
        {20.0, 2.0, 20.0, 60.0},
        {40.0, 0.5, 30.0, 40.0},
        {10.0, 0.5, 15.0, 25.0},   // outside stays outside: (10 - 20) / 20 = -0.5, 10 + 5
        {30.0, 1000.0, 0.0, 100.0},
    };
    for (const Case& c : cases)
    {
        SetView(editor, 100.0, 20.0, 40.0);
        Access::ZoomAroundTime(editor, c.Anchor, c.Ratio);
        EXPECT_VIEW(editor, c.WantStart, c.WantEnd);
    }
    // Ratio 0 gives MinViewSpanSec = 0.001 around 30, then the clamp widens it to 0.01.
    editor.MinViewSpanSec = 0.001;
    SetView(editor, 100.0, 20.0, 40.0);
    Access::ZoomAroundTime(editor, 30.0, 0.0);
    EXPECT_VIEW(editor, 29.9995, 30.0095);
}

TEST(AlignViewToPlaybackPage, KeepsThePlayPositionAtSeventyPercentWithinTheDocument)
{
    GLWaveEdit editor;
    auto follow = [&](double Duration, double Start, double End, double Now, bool bForce) {
        SetView(editor, Duration, Start, End);
        editor.CurrentTimeSec = Now;
        Access::AlignViewToPlaybackPage(editor, bForce);
    };
    follow(100.0, 0.0, 10.0, 3.0, false);  // 3 - 7 < 0: stays at 0
    EXPECT_VIEW(editor, 0.0, 10.0);
    follow(100.0, 0.0, 10.0, 50.0, false);  // 50 - 0.7 * 10 = 43
    EXPECT_VIEW(editor, 43.0, 53.0);
    follow(100.0, 0.0, 10.0, 99.0, false);  // 92 limited to 100 - 10
    EXPECT_VIEW(editor, 90.0, 100.0);
    follow(0.0, 5.0, 7.0, 3.0, true);  // empty document: nothing moves
    EXPECT_VIEW(editor, 5.0, 7.0);
    // The target is the current start: only a forced snap writes the span min(10, 5) = 5.
    follow(5.0, 0.0, 10.0, 4.0, false);
    EXPECT_VIEW(editor, 0.0, 10.0);
    follow(5.0, 0.0, 10.0, 4.0, true);
    EXPECT_VIEW(editor, 0.0, 5.0);
    // No ClampView and no 0.01 floor: a 0.001 s view stays 0.001 wide.
    editor.MinViewSpanSec = 0.001;
    follow(100.0, 0.0, 0.001, 50.0, false);  // 50 - 0.0007
    EXPECT_VIEW(editor, 49.9993, 50.0003);
}
