// The selection: an unordered raw pair, its ordered accessors, clearing,
// setting it from the host, its signal, and the grab zone around its edges.
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "test_support.h"

namespace
{
void SetRaw(GLWaveEdit& E, double A, double B)
{
    Access::SelectionStartValueSec(E) = A;
    Access::SelectionEndValueSec(E) = B;
}

void ExpectRaw(GLWaveEdit& E, double A, double B)
{
    EXPECT_DOUBLE_EQ(Access::SelectionStartValueSec(E), A);
    EXPECT_DOUBLE_EQ(Access::SelectionEndValueSec(E), B);
}

using Lines = std::vector<std::string>;
}  // namespace

TEST(Selection, IsPresentBeyondAMicrosecondAndReportsItsEndsInOrder)
{
    GLWaveEdit editor;
    SignalLog log(editor);
    SetRaw(editor, 3.0, 1.0);
    EXPECT_TRUE(editor.HasSelection());
    EXPECT_EQ(editor.SelectionStartSec(), 1.0);
    EXPECT_EQ(editor.SelectionEndSec(), 3.0);
    Access::EmitSelectionChanged(editor);

    SetRaw(editor, 2.0, 2.0000005);  // collapsed, but not at zero
    EXPECT_FALSE(editor.HasSelection());
    EXPECT_EQ(editor.SelectionStartSec(), 2.0);
    EXPECT_EQ(editor.SelectionEndSec(), 2.0000005);
    Access::EmitSelectionChanged(editor);
    EXPECT_EQ(log.Lines, (Lines{"selection 1.000000 3.000000", "selection 0.000000 0.000000"}));

    SetRaw(editor, 0.0, 1e-6);  // exactly 1e-6 apart is none
    EXPECT_FALSE(editor.HasSelection());
    SetRaw(editor, 0.0, 1.5e-6);
    EXPECT_TRUE(editor.HasSelection());
    SetRaw(editor, std::numeric_limits<double>::quiet_NaN(), 1.0);
    EXPECT_FALSE(editor.HasSelection());
}

TEST(Selection, ClearingAlwaysZeroesThePairAndSignalsOnlyALostSelectionWhenAsked)
{
    GLWaveEdit editor;
    SignalLog log(editor);
    Access::SelectionAnchorSec(editor) = 4.0;
    SetRaw(editor, 2.5, 2.5);
    editor.ClearSelection(true);  // there was none: silent, but zeroed
    ExpectRaw(editor, 0.0, 0.0);
    SetRaw(editor, 1.0, 3.0);
    editor.ClearSelection(false);
    ExpectRaw(editor, 0.0, 0.0);
    EXPECT_TRUE(log.Lines.empty());
    SetRaw(editor, 3.0, 1.0);
    editor.ClearSelection(true);
    ExpectRaw(editor, 0.0, 0.0);
    EXPECT_EQ(log.Lines, (Lines{"selection 0.000000 0.000000"}));
    EXPECT_EQ(Access::SelectionAnchorSec(editor), 4.0);
}

TEST(Selection, HostedSelectionIsOrderedClampedSilentAndIgnoresNonFiniteValues)
{
    GLWaveEdit editor;
    SignalLog log(editor);
    editor.DurationSec = 10.0;
    editor.SetHostedSelection(5.0, 2.0);
    ExpectRaw(editor, 2.0, 5.0);
    editor.SetHostedSelection(-1.0, 1000.0);
    ExpectRaw(editor, 0.0, 10.0);
    editor.SetHostedSelection(12.0, 15.0);  // wholly past the end collapses there
    ExpectRaw(editor, 10.0, 10.0);
    EXPECT_FALSE(editor.HasSelection());
    EXPECT_TRUE(log.Lines.empty());

    // Non-finite: nothing changes, the render cache included.
    editor.SetHostedSelection(1.0, 3.0);
    Access::bRenderSamplesValid(editor) = true;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    editor.SetHostedSelection(nan, 4.0);
    editor.SetHostedSelection(2.0, inf);
    editor.SetHostedSelection(-inf, 4.0);
    ExpectRaw(editor, 1.0, 3.0);
    EXPECT_TRUE(Access::bRenderSamplesValid(editor));
    editor.SetHostedSelection(2.0, 4.0);
    EXPECT_FALSE(Access::bRenderSamplesValid(editor));

    editor.DurationSec = -2.0;  // no length: every finite pair becomes (0, 0)
    editor.SetHostedSelection(1.0, 3.0);
    ExpectRaw(editor, 0.0, 0.0);
    EXPECT_TRUE(log.Lines.empty());
}

TEST(Selection, EdgeToleranceIsTenPixelsAtTheCurrentZoomWithAFloor)
{
    GLWaveEdit editor;
    auto tolerance = [&](double PlotX1, double PlotX2, double ViewStart, double ViewEnd) {
        Access::PlotX1(editor) = PlotX1;
        Access::PlotX2(editor) = PlotX2;
        editor.ViewStartSec = ViewStart;
        editor.ViewEndSec = ViewEnd;
        return Access::SelectionEdgeHitToleranceSec(editor);
    };
    {
        TestHost host(1000, 600);
        // Plot 2.0 wide: 2.0 * 0.5 * 1000 = 1000 px; 10 s / 1000 px * 10 = 0.1 s.
        EXPECT_DOUBLE_EQ(tolerance(-1.0, 1.0, 0.0, 10.0), 0.1);
        EXPECT_DOUBLE_EQ(tolerance(1.0, -1.0, 0.0, 10.0), 0.1);   // width taken as absolute
        EXPECT_DOUBLE_EQ(tolerance(-1.0, 1.0, 0.0, 1.0), 0.02);   // 0.01 s is under the floor
        EXPECT_DOUBLE_EQ(tolerance(0.0, 0.0, 0.0, 40.0), 400.0);  // narrower than 1 px: 40 / 1 * 10
        EXPECT_DOUBLE_EQ(tolerance(-1.0, 1.0, 5.0, 3.0), 0.02);   // inverted view: 1e-9 s
    }
    // Without a host the screen width drops out: 8.0 * 0.5 = 4 px; 10 / 4 * 10 = 25 s.
    EXPECT_DOUBLE_EQ(tolerance(-4.0, 4.0, 0.0, 10.0), 25.0);
}
