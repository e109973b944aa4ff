// Mouse events: tabs, close boxes (and the host's say in a close), the tab
// menu, the wheel, the double click and the pointer leaving the window.
#include <gtest/gtest.h>

#include <tuple>

#include "test_support.h"

namespace
{

// On a 1000 px screen with 8 px padding the tab bar runs across x -0.5..0.5
// and, with no font (cell 12 px, tab band 26 px = 0.052), down from
// 0.5 - 0.008 = 0.492 to the plot's top 0.44 plus 0.008 = 0.448. A close box
// is 18 px = 0.036 wide and ends 6 px = 0.012 before its tab's right end.
constexpr double kTabY = 0.47;

struct Rig
{
    TestHost Host{1000, 1000};
    GLWaveEdit Editor;
    SignalLog Log{Editor};
    Tarvik& Root = Host.Root();

    explicit Rig(int DocumentCount)
    {
        Root.Windows.push_back(&Editor);
        Editor.X1 = -0.508, Editor.X2 = 0.508, Editor.Y1 = 0.5, Editor.Y2 = -0.5;
        for (int i = 0; i < DocumentCount; ++i)
            Editor.NewUntitledDocument();
        Editor.DurationSec = 10.0;  // the active document's mirror only
        Editor.ViewStartSec = 2.0, Editor.ViewEndSec = 6.0;
        Log.Clear();
    }
    double Tabs() { return static_cast<double>(Access::Documents(Editor).size()); }
    double TabX(int I) { return -0.5 + (I + 0.5) / Tabs(); }
    double CloseX(int I) { return -0.5 + (I + 1.0) / Tabs() - 0.03; }
    void Click(int Button, double X, double Y) { Editor.EventMouseClick(Button, X, Y); }
    void ExpectView(double Start, double End)
    {
        EXPECT_NEAR(Editor.ViewStartSec, Start, 1e-6);
        EXPECT_NEAR(Editor.ViewEndSec, End, 1e-6);
    }
};
}  // namespace

TEST(MouseEvents, LeftClickOnATabLoadsItWithFocusAndItsCloseBoxClosesItWithout)
{
    Rig r(3);
    GLWaveEdit other;
    other.bFocused = true;
    r.Root.Windows.push_back(&other);
    r.Click(0, r.TabX(0), kTabY);
    EXPECT_TRUE(Access::ActiveDocumentIndex(r.Editor) == 0 && r.Editor.bFocused && !other.bFocused);
    EXPECT_TRUE(r.Root.bChildWindowProcessed);
    r.Editor.CurrentTimeSec = 1.5;
    r.Click(0, r.TabX(0), kTabY);  // the active tab again: loaded again
    EXPECT_EQ(r.Editor.CurrentTimeSec, 0.0);
    r.Editor.bFocused = false;
    r.Click(0, r.CloseX(1), kTabY);  // tab 1 spans -0.167..0.167, its box 0.119..0.155
    ASSERT_EQ(Access::Documents(r.Editor).size(), 2u);
    EXPECT_EQ(Access::Document(r.Editor, 1).SourceFilePath, "Untitled-3.ogg");
    EXPECT_TRUE(Access::ActiveDocumentIndex(r.Editor) == 0 && !r.Editor.bFocused);
    EXPECT_EQ(r.Log.Lines, (Lines{"selection 0.000000 0.000000", "active Untitled-1.ogg",
                                  "selection 0.000000 0.000000", "active Untitled-1.ogg",
                                  "selection 0.000000 0.000000", "active Untitled-1.ogg"}));
}

TEST(MouseEvents, TabMenuOpensOnRightClickAndClosesOnAnythingElse)
{
    Rig r(3);
    const bool& open = Access::bTabMenuOpen(r.Editor);
    const double x = r.TabX(1);
    r.Click(2, x, kTabY);
    EXPECT_TRUE(open && Access::TabMenuDocumentIndex(r.Editor) == 1 && Access::TabMenuX(r.Editor) == x);
    r.Click(2, r.TabX(2), kTabY);  // another tab: the menu moves there
    EXPECT_TRUE(open && Access::TabMenuX(r.Editor) == r.TabX(2));
    // Each closes the menu: right on the plot, middle, the wheel (which still
    // zooms, 4 / 1.22 = 3.2787 s), left outside the menu (then the tab is clicked).
    const std::tuple<int, double, double, double> closers[] = {
        {2, 0.0, 0.0, 4.0}, {1, 0.0, 0.0, 4.0}, {3, 0.0, 0.0, 4.0 / 1.22}};
    for (const auto& [button, cx, cy, span] : closers)
    {
        r.Click(2, x, kTabY);
        r.Click(button, cx, cy);
        EXPECT_FALSE(open) << button;
        EXPECT_NEAR(r.Editor.ViewEndSec - r.Editor.ViewStartSec, span, 1e-6) << button;
    }
    EXPECT_FALSE(r.Editor.bFocused);
    r.Click(2, x, kTabY);
    r.Click(0, r.TabX(0), kTabY);
    EXPECT_TRUE(!open && Access::ActiveDocumentIndex(r.Editor) == 0);
    r.Click(2, x, kTabY);
    r.Root.bChildWindowProcessed = false;
    r.Click(0, x + 0.09, kTabY - 0.05);  // on the item: tab 1 closes
    EXPECT_FALSE(open || r.Root.bChildWindowProcessed);
    ASSERT_EQ(Access::Documents(r.Editor).size(), 2u);
    EXPECT_EQ(Access::Document(r.Editor, 1).SourceFilePath, "Untitled-3.ogg");
    r.Click(2, r.TabX(1), kTabY);
    r.Editor.CloseActiveDocument();  // any close shuts the menu
    EXPECT_FALSE(open);
}

TEST(MouseEvents, WheelZoomsAroundThePointerOnThePlotAndTheMiddleElsewhere)
{
    Rig r(1);
    // x -0.25 is a quarter into the plot: t = 2 + 0.25 * 4 = 3.0. Zooming in,
    // the span 4 / 1.22 = 3.2786885 keeps 3.0 a quarter in: 3 - 0.8196721.
    r.Click(3, -0.25, 0.0);
    r.ExpectView(2.1803279, 5.4590164);
    r.Click(4, -0.25, 0.0);  // 3.2786885 * 1.22 = 4 around the same 3.0
    r.ExpectView(2.0, 6.0);
    r.Click(3, -0.25, kTabY);  // over the tab bar: around 4.0, 4 - 3.2786885 / 2
    r.ExpectView(2.3606557, 5.6393443);
    EXPECT_FALSE(r.Editor.bFocused || r.Root.bChildWindowProcessed);
}

TEST(MouseEvents, DoubleClickFitsTheViewAndMouseOutForgetsTheHoverOnly)
{
    Rig r(1);
    r.Editor.EventMouseDoubleClick(2);
    r.ExpectView(2.0, 6.0);
    r.Editor.EventMouseDoubleClick(0);
    r.ExpectView(0.0, 10.0);
    r.Editor.bHovered = Access::bHover(r.Editor) = true;
    Access::HoverPeak(r.Editor) = 0.5, Access::HoverTimeSec(r.Editor) = 4.0;
    Access::ActiveDrag(r.Editor) = Access::DragSeek;
    r.Editor.EventMouseOut();
    r.Editor.EventMouseRelease(0, 0.0, 0.0);
    EXPECT_FALSE(r.Editor.bHovered || Access::bHover(r.Editor));
    EXPECT_TRUE(Access::HoverPeak(r.Editor) == -1.0 && Access::HoverTimeSec(r.Editor) == 4.0);
    EXPECT_EQ(Access::ActiveDrag(r.Editor), Access::DragSeek);
    EXPECT_TRUE(r.Log.Lines.empty());
}

TEST(MouseEvents, AClickOnACloseBoxOrTheTabMenusCloseAsksTheHostFirst)
{
    Rig r(2);
    std::vector<int> asked;
    bool allow = false;
    r.Editor.CloseRequestProvider = [&](int Index) { return asked.push_back(Index), allow; };
    r.Click(0, r.CloseX(1), kTabY);
    r.Click(2, r.TabX(0), kTabY);
    r.Click(0, r.TabX(0) + 0.09, kTabY - 0.05);  // on the menu's item
    EXPECT_EQ(asked, (std::vector<int>{1, 0}));
    EXPECT_EQ(r.Editor.DocumentCount(), 2);  // withheld
    allow = true;
    r.Click(0, r.CloseX(1), kTabY);
    EXPECT_EQ(r.Editor.DocumentCount(), 1);
}
