// The plot rectangle from the window's edges and the text size, and the hit
// tests on the tab bar, the close boxes and the tab menu.
//
// The screen is 1024 x 2048 pixels, so that the two axes have different pixel
// sizes and every length below is an exact binary fraction. The window is
// inset by the 8 px padding, so that the plot runs from x = -0.5 to 0.5.
#include <gtest/gtest.h>

#include <tuple>
#include <utility>

#include "gltheme.h"
#include "test_support.h"
#include "ttf.h"

namespace
{
constexpr double kW = 1024.0, kH = 2048.0;

// A text renderer whose cells are as high as the test says.
struct FixedCellTTF : TTF
{
    explicit FixedCellTTF(int CellPx) : CellPx(CellPx) {}
    int GetCellHeight(int SizePx) const override { return LastSizePx = SizePx, CellPx; }
    int CellPx;
    mutable int LastSizePx = -1;
};

void PlaceWindow(GLWaveEdit& E)
{
    E.X1 = -0.5 - 8.0 / kW;
    E.X2 = 0.5 + 8.0 / kW;
    E.Y1 = 0.75;
    E.Y2 = -0.75;
}

// Lays the plot out without the preview delta; gives the bands above and below it in pixels.
std::pair<double, double> BandsPx(GLWaveEdit& E)
{
    Access::UpdatePlotRect(E, false);
    EXPECT_DOUBLE_EQ(Access::PlotX1(E), -0.5);
    EXPECT_DOUBLE_EQ(Access::PlotX2(E), 0.5);
    return {(0.75 - Access::PlotY1(E)) * kH, (Access::PlotY2(E) + 0.75) * kH};
}
std::pair<double, double> Px(double Top, double Bottom) { return {Top, Bottom}; }
}  // namespace

TEST(PlotRect, TakesPaddingAndLabelBandAtOneScaleAndTheTabBandAtTwice)
{
    TestHost host(1024, 2048);
    GLWaveEdit editor;
    PlaceWindow(editor);
    // Without text renderer the cell is 12: label max(5 + 12 + 12, 20) = 29, tab max(24, 26) = 26 doubled.
    EXPECT_EQ(BandsPx(editor), Px(8.0 + 52.0, 8.0 + 29.0));
    EXPECT_TRUE(Access::IsInsidePlot(editor, -0.5, 0.75 - 60.0 / kH));  // edges belong to the plot
    EXPECT_TRUE(Access::IsInsidePlot(editor, 0.5, -0.75 + 37.0 / kH));
    EXPECT_FALSE(Access::IsInsidePlot(editor, 0.5001, 0.0));
    EXPECT_FALSE(Access::IsInsidePlot(editor, 0.0, 0.75 - 59.0 / kH));

    FixedCellTTF ttf(20);
    host.Host.pRend->pTTF = &ttf;
    EXPECT_EQ(BandsPx(editor), Px(8.0 + 64.0, 8.0 + 37.0));  // tab max(32, 26), label 5 + 20 + 12
    ttf.CellPx = 16;
    editor.LabelBandPx = 50.0;
    EXPECT_EQ(BandsPx(editor), Px(8.0 + 56.0, 8.0 + 50.0));  // tab 28, label max(33, 50)
    ttf.CellPx = 10;
    EXPECT_EQ(BandsPx(editor), Px(8.0 + 52.0, 8.0 + 50.0));  // smaller text keeps the tab at 26
    ttf.CellPx = 0;
    editor.LabelBandPx = 0.0;
    EXPECT_EQ(BandsPx(editor), Px(8.0 + 52.0, 8.0 + 18.0));  // a cell of 0 counts as 1: 5 + 1 + 12
}

TEST(PlotRect, AsksTheCellHeightAtTheThemeScaledFontOrTheRenderersOwnSize)
{
    const GLTheme::Palette saved = GLTheme::Active();
    TestHost host(1024, 2048);
    FixedCellTTF ttf(12);
    host.Host.pRend->pTTF = &ttf;
    host.Host.pRend->FontSmallerPx = 17;
    GLWaveEdit editor;
    PlaceWindow(editor);
    auto sizeFor = [&](int FontPx) {
        editor.FontPx = FontPx;
        Access::UpdatePlotRect(editor, true);
        return ttf.LastSizePx;
    };
    EXPECT_EQ(sizeFor(0), 17);
    EXPECT_EQ(sizeFor(-3), 17);
    EXPECT_EQ(sizeFor(3), 8);  // kept within 8..96
    GLTheme::Active().TextScale = 2.0;
    EXPECT_EQ(sizeFor(14), 28);
    EXPECT_EQ(sizeFor(60), 96);
    EXPECT_EQ(sizeFor(0), 17);  // the renderer's own size is not scaled
    GLTheme::Active() = saved;
}

TEST(PlotRect, FollowsAPreviewedWindowMoveOnlyWhenAskedTo)
{
    TestHost host(1024, 2048);
    GLWaveEdit editor;
    PlaceWindow(editor);
    GLWindow window;
    editor.pHostWindow = &window;
    host.Root().MovePreviewDeltaX = 0.125;
    host.Root().MovePreviewDeltaY = -0.0625;
    auto delta = [&] {
        double dx = 7.0, dy = 7.0;
        Access::GetActiveWindowPreviewDelta(editor, dx, dy);
        return std::make_pair(dx, dy);
    };
    EXPECT_EQ(delta(), std::make_pair(0.0, 0.0));  // no preview under way
    window.bMovePreviewActive = true;
    EXPECT_EQ(delta(), std::make_pair(0.125, -0.0625));
    EXPECT_EQ(BandsPx(editor), Px(60.0, 37.0));  // false ignores it
    Access::UpdatePlotRect(editor, true);
    EXPECT_DOUBLE_EQ(Access::PlotX1(editor), -0.375);
    EXPECT_DOUBLE_EQ(Access::PlotX2(editor), 0.625);
    EXPECT_DOUBLE_EQ(Access::PlotY1(editor), 0.75 - 60.0 / kH - 0.0625);
    EXPECT_DOUBLE_EQ(Access::PlotY2(editor), -0.75 + 37.0 / kH - 0.0625);
    // The tab bar keeps the window's left, right and top; only its bottom follows PlotY1.
    Access::Documents(editor).resize(1);
    EXPECT_TRUE(Access::IsInsideTabBar(editor, -0.49, 0.7));
    EXPECT_FALSE(Access::IsInsideTabBar(editor, 0.55, 0.74));

    p = nullptr;
    EXPECT_EQ(delta(), std::make_pair(0.0, 0.0));
    p = &host.Host;
    editor.pHostWindow = nullptr;
    EXPECT_EQ(delta(), std::make_pair(0.0, 0.0));
}

TEST(TabHitTests, SplitTheBarEquallyAndPutTheCloseBoxSixPixelsInFromTheRight)
{
    TestHost host(1024, 2048);
    GLWaveEdit editor;
    PlaceWindow(editor);
    Access::UpdatePlotRect(editor, true);
    const double y = 0.735;  // the bar runs from 0.75 - 8/2048 down to PlotY1 + 8/2048 = 0.724609375
    EXPECT_FALSE(Access::IsInsideTabBar(editor, 0.0, y));  // no documents, no tabs
    EXPECT_EQ(Access::HitTestDocumentTab(editor, 0.0, y), -1);
    Access::Documents(editor).resize(1);
    EXPECT_EQ(Access::HitTestDocumentTab(editor, 0.49, y), 0);

    Access::Documents(editor).resize(4);  // four tabs of 0.25
    auto tab = [&](double X, double Y) { return Access::HitTestDocumentTab(editor, X, Y); };
    EXPECT_EQ(tab(-0.5, y), 0);
    EXPECT_EQ(tab(-0.26, y), 0);
    EXPECT_EQ(tab(-0.25, y), 1);      // a boundary belongs to the right
    EXPECT_EQ(tab(0.5, y), 3);        // the right edge clamps to the last
    EXPECT_EQ(tab(0.0, 0.7225), -1);  // the strip just over the plot
    EXPECT_EQ(tab(0.0, 0.7479), -1);  // the top padding
    EXPECT_EQ(tab(-0.51, y), -1);

    // Box 18 px on the y scale, 36/2048 wide; margin 6 px on the x scale, 12/1024.
    // Tab 1 ends at 0.0: its box runs from -12/1024 - 36/2048 = -0.029296875 to -0.01171875.
    auto close = [&](double X, double Y) { return Access::HitTestDocumentTabClose(editor, X, Y); };
    EXPECT_EQ(close(-0.02, y), 1);
    EXPECT_EQ(close(-0.029296875, y), 1);
    EXPECT_EQ(close(-0.01171875, 0.724609375), 1);
    EXPECT_EQ(close(-0.03, y), -1);
    EXPECT_EQ(close(-0.005, y), -1);  // in the margin
    EXPECT_EQ(close(0.48, y), 3);     // the last tab ends at 0.5
    EXPECT_EQ(close(-0.02, 0.7225), -1);
    // A plot of 96/2048 gives 96 * 0.16 = 15.36 px, under 18: the box starts at -0.02671875.
    editor.Y2 = 0.75 - (60.0 + 96.0 + 37.0) / kH;
    Access::UpdatePlotRect(editor, true);
    EXPECT_EQ(close(-0.026, y), 1);
    EXPECT_EQ(close(-0.028, y), -1);
}

TEST(TabMenu, OpensOnlyForAnExistingTabAndHangsDownRightFromItsAnchor)
{
    GLWaveEdit editor;
    PlaceWindow(editor);
    Access::Documents(editor).resize(4);
    auto state = [&] {
        return std::make_tuple(Access::bTabMenuOpen(editor), Access::TabMenuDocumentIndex(editor),
                               Access::TabMenuX(editor), Access::TabMenuY(editor));
    };
    Access::OpenTabMenu(editor, 0.25, 0.5, 4);  // not a tab
    EXPECT_EQ(state(), std::make_tuple(false, -1, 0.0, 0.0));
    Access::OpenTabMenu(editor, 0.125, -0.6875, 2);
    Access::OpenTabMenu(editor, 0.25, 0.5, -1);  // these leave it where it was
    Access::OpenTabMenu(editor, 0.25, 0.5, 4);
    EXPECT_EQ(state(), std::make_tuple(true, 2, 0.125, -0.6875));
    // 0.18 wide and 0.1 high in screen units, reaching below the window's bottom at -0.75.
    EXPECT_TRUE(Access::IsInsideTabMenu(editor, 0.125, -0.6875));
    EXPECT_EQ(Access::HitTestTabMenuItem(editor, 0.3, -0.78), 0);
    const std::pair<double, double> outside[] = {{0.31, -0.7}, {0.2, -0.79}, {0.12, -0.7}, {0.2, -0.68}};
    for (auto [x, y] : outside)
        EXPECT_EQ(Access::HitTestTabMenuItem(editor, x, y), -1) << x << ", " << y;

    Access::CloseTabMenu(editor);
    EXPECT_EQ(state(), std::make_tuple(false, -1, 0.0, 0.0));
    EXPECT_EQ(Access::HitTestTabMenuItem(editor, 0.125, -0.6875), -1);
}
