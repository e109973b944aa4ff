// The visible time span: keeping it valid, fitting it, mapping x and time,
// zooming around a time and following the play position at 70%.
#include <gtest/gtest.h>

#include <limits>
#include <utility>

#include "test_support.h"

namespace
{
// A document of Duration seconds showing Start..End before the operation under test.
struct ViewCase
{
    double Duration, Start, End, Arg1, Arg2, WantStart, WantEnd;
};

template <typename OperationT>
void ExpectViews(double MinViewSpanSec, std::initializer_list<ViewCase> Cases, OperationT Operation)
{
    for (const ViewCase& c : Cases)
    {
        SCOPED_TRACE(testing::Message() << c.Duration << ": " << c.Start << ".." << c.End << " with " << c.Arg1);
        GLWaveEdit editor;
        editor.MinViewSpanSec = MinViewSpanSec;
        editor.DurationSec = c.Duration;
        editor.ViewStartSec = c.Start;
        editor.ViewEndSec = c.End;
        Operation(editor, c);
        EXPECT_NEAR(editor.ViewStartSec, c.WantStart, 1e-9);
        EXPECT_NEAR(editor.ViewEndSec, c.WantEnd, 1e-9);
    }
}
}  // namespace

TEST(ClampView, PushesAnOverhangingViewBackWithItsWidthAndBoundsTheWidth)
{
    auto clamp = [](GLWaveEdit& E, const ViewCase&) { Access::ClampView(E); };
    ExpectViews(0.1, {{0.0, 5.0, 3.0, 0, 0, 0.0, 0.1},      // empty document: 0..minSpan
                      {-4.0, 1.0, 2.0, 0, 0, 0.0, 0.1},     // a negative duration counts as 0
                      {0.1, 0.02, 0.05, 0, 0, 0.0, 0.1},    // duration equal to minSpan
                      {100.0, 95.0, 105.0, 0, 0, 90.0, 100.0},
                      {100.0, -3.0, 7.0, 0, 0, 0.0, 10.0},
                      {10.0, -5.0, 20.0, 0, 0, 0.0, 10.0},  // wider than the document
                      {10.0, 5.0, 3.0, 0, 0, 5.0, 5.1},     // inverted: minSpan wide from its start
                      {10.0, 9.99, 1.0, 0, 0, 9.9, 10.0}},  // ... with the start clamped to 10 - 0.1
                clamp);
    ExpectViews(0.0, {{10.0, 2.0, 2.001, 0, 0, 2.0, 2.01}}, clamp);  // the floor of 0.01 s still holds
    // Fitting shows the whole document, or at least the smallest span.
    auto fit = [](GLWaveEdit& E, const ViewCase&) { E.FitViewToData(); };
    ExpectViews(0.1, {{12.0, 3.0, 4.0, 0, 0, 0.0, 12.0}, {0.05, 3.0, 4.0, 0, 0, 0.0, 0.1}}, fit);
}

TEST(TimeAndX, MapInsideTheViewAndThePlotWithClampsAtTheEdges)
{
    GLWaveEdit editor;
    Access::PlotX1(editor) = -0.5;
    Access::PlotX2(editor) = 0.5;
    editor.ViewStartSec = 10.0;
    editor.ViewEndSec = 20.0;
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
    // x = -0.25 is a quarter across the plot: 10 + 0.25 * 10 = 12.5 s.
    const std::pair<double, double> xToTime[] = {{-0.25, 12.5}, {-1.0, 10.0}, {2.0, 20.0}};
    for (auto [x, t] : xToTime)
        EXPECT_DOUBLE_EQ(Access::TimeForMouse(editor, x), t) << x;
    // Anything not finite lands on the left edge, positive infinity too.
    const std::pair<double, double> timeToX[] = {{12.5, -0.25}, {25.0, 0.5}, {5.0, -0.5}, {nan, -0.5}, {inf, -0.5}};
    for (auto [t, x] : timeToX)
        EXPECT_DOUBLE_EQ(Access::XForTime(editor, t), x) << t;
    editor.ViewEndSec = 10.0;  // a view of no width
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
    // Arg1 is the anchor, Arg2 the ratio of the new width to the old.
    auto zoom = [](GLWaveEdit& E, const ViewCase& C) { Access::ZoomAroundTime(E, C.Arg1, C.Arg2); };
    ExpectViews(0.1, {{100.0, 20.0, 40.0, 25.0, 0.5, 22.5, 32.5},    // a quarter in: 10 wide, 25 - 2.5
                      {100.0, 20.0, 40.0, 30.0, 1.0, 20.0, 40.0},
                      {100.0, 20.0, 40.0, 20.0, 2.0, 20.0, 60.0},
                      {100.0, 20.0, 40.0, 40.0, 0.5, 30.0, 40.0},
                      {100.0, 20.0, 40.0, 10.0, 0.5, 15.0, 25.0},    // outside: (10 - 20) / 20 = -0.5, 10 + 5
                      {100.0, 20.0, 40.0, 30.0, 1000.0, 0.0, 100.0}},
                zoom);
    // Ratio 0 gives MinViewSpanSec = 0.001 around 30, then the clamp widens it to 0.01.
    ExpectViews(0.001, {{100.0, 20.0, 40.0, 30.0, 0.0, 29.9995, 30.0095}}, zoom);
}

TEST(AlignViewToPlaybackPage, KeepsThePlayPositionAtSeventyPercentWithinTheDocument)
{
    // Arg1 is the play position; Arg2 is 1 for a forced snap.
    auto follow = [](GLWaveEdit& E, const ViewCase& C) {
        E.CurrentTimeSec = C.Arg1;
        Access::AlignViewToPlaybackPage(E, C.Arg2 != 0.0);
    };
    ExpectViews(0.1, {{100.0, 0.0, 10.0, 3.0, 0, 0.0, 10.0},     // 3 - 7 < 0: stays at 0
                      {100.0, 0.0, 10.0, 50.0, 0, 43.0, 53.0},   // 50 - 0.7 * 10 = 43
                      {100.0, 0.0, 10.0, 99.0, 0, 90.0, 100.0},  // 92 limited to 100 - 10
                      {0.0, 5.0, 7.0, 3.0, 1, 5.0, 7.0},         // empty document: nothing moves
                      // The target is the current start: only a forced snap writes the span min(10, 5) = 5.
                      {5.0, 0.0, 10.0, 4.0, 0, 0.0, 10.0},
                      {5.0, 0.0, 10.0, 4.0, 1, 0.0, 5.0}},
                follow);
    // No ClampView and no 0.01 floor: a 0.001 s view stays 0.001 wide, 50 - 0.0007.
    ExpectViews(0.001, {{100.0, 0.0, 0.001, 50.0, 0, 49.9993, 50.0003}}, follow);
}
