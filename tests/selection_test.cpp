// The selection: an unordered raw pair, its ordered accessors, setting it
// from the host, and its signal. Clearing it: keyboard_test ("c").
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "test_support.h"

namespace
{
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

std::pair<double, double> Raw(GLWaveEdit& E)
{
    return {Access::SelectionStartValueSec(E), Access::SelectionEndValueSec(E)};
}
void SetRaw(GLWaveEdit& E, double A, double B)
{
    Access::SelectionStartValueSec(E) = A;
    Access::SelectionEndValueSec(E) = B;
}
}  // namespace

TEST(Selection, IsPresentBeyondAMicrosecondAndReportsItsEndsInOrder)
{
    GLWaveEdit editor;
    SignalLog log(editor);
    // Sets the raw pair and signals it; gives presence and the ordered ends.
    auto select = [&](double A, double B) {
        SetRaw(editor, A, B);
        Access::EmitSelectionChanged(editor);
        return std::make_tuple(editor.HasSelection(), editor.SelectionStartSec(), editor.SelectionEndSec());
    };
    EXPECT_EQ(select(3.0, 1.0), std::make_tuple(true, 1.0, 3.0));
    EXPECT_EQ(select(2.0, 2.0000005), std::make_tuple(false, 2.0, 2.0000005));  // collapsed, but not at zero
    EXPECT_EQ(select(0.0, 1e-6), std::make_tuple(false, 0.0, 1e-6));            // exactly 1e-6 apart is none
    EXPECT_EQ(select(0.0, 1.5e-6), std::make_tuple(true, 0.0, 1.5e-6));         // printed as 0.000002
    EXPECT_FALSE(std::get<0>(select(kNaN, 1.0)));
    EXPECT_EQ(log.Lines, (Lines{"selection 1.000000 3.000000", "selection 0.000000 0.000000",
                                "selection 0.000000 0.000000", "selection 0.000000 0.000002",
                                "selection 0.000000 0.000000"}));
}

TEST(Selection, HostedSelectionIsOrderedClampedSilentAndIgnoresNonFiniteValues)
{
    GLWaveEdit editor;
    SignalLog log(editor);
    auto host = [&](double Duration, double A, double B) {
        editor.DurationSec = Duration;
        editor.SetHostedSelection(A, B);
        return Raw(editor);
    };
    EXPECT_EQ(host(10.0, 5.0, 2.0), std::make_pair(2.0, 5.0));
    EXPECT_EQ(host(10.0, -1.0, 1000.0), std::make_pair(0.0, 10.0));
    EXPECT_EQ(host(10.0, 12.0, 15.0), std::make_pair(10.0, 10.0));  // wholly past the end collapses there
    EXPECT_EQ(host(-2.0, 1.0, 3.0), std::make_pair(0.0, 0.0));      // no length: every finite pair is (0, 0)
    EXPECT_TRUE(log.Lines.empty());

    // Non-finite: nothing changes, the render cache included.
    host(10.0, 1.0, 3.0);
    Access::bRenderSamplesValid(editor) = true;
    host(10.0, kNaN, 4.0);
    host(10.0, 2.0, kInf);
    EXPECT_EQ(host(10.0, -kInf, 4.0), std::make_pair(1.0, 3.0));
    EXPECT_TRUE(Access::bRenderSamplesValid(editor));
    host(10.0, 2.0, 4.0);
    EXPECT_FALSE(Access::bRenderSamplesValid(editor));
}

