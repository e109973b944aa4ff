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

class PlotLayout : public testing::Test
{
protected:
    PlotLayout()
    {
        editor.X1 = -0.5 - 8.0 / kW;
        editor.X2 = 0.5 + 8.0 / kW;
        editor.Y1 = 0.75;
        editor.Y2 = -0.75;
    }
    ~PlotLayout() override { GLTheme::Active() = savedTheme; }

    // Lays the plot out without the preview delta; gives the bands above and below it in pixels.
    std::pair<double, double> BandsPx()
    {
        Access::UpdatePlotRect(editor, false);
        EXPECT_DOUBLE_EQ(Access::PlotX1(editor), -0.5);
        EXPECT_DOUBLE_EQ(Access::PlotX2(editor), 0.5);
        return {(0.75 - Access::PlotY1(editor)) * kH, (Access::PlotY2(editor) + 0.75) * kH};
    }

    const GLTheme::Palette savedTheme = GLTheme::Active();
    TestHost host{1024, 2048};
    GLWaveEdit editor;
};
}  // namespace

TEST_F(PlotLayout, PlotRectTakesPaddingAndLabelBandAtOneScaleAndTheTabBandAtTwiceForTheTextSize)
{
    // Without text renderer the cell is 12: label max(5 + 12 + 12, 20) = 29, tab max(24, 26) = 26 doubled.
    EXPECT_EQ(BandsPx(), std::make_pair(8.0 + 52.0, 8.0 + 29.0));
    EXPECT_TRUE(Access::IsInsidePlot(editor, -0.5, 0.75 - 60.0 / kH));  // edges belong to the plot
    EXPECT_TRUE(Access::IsInsidePlot(editor, 0.5, -0.75 + 37.0 / kH));
    EXPECT_FALSE(Access::IsInsidePlot(editor, 0.5001, 0.0));
    EXPECT_FALSE(Access::IsInsidePlot(editor, 0.0, 0.75 - 59.0 / kH));

    FixedCellTTF ttf(0);
    host.Host.pRend->pTTF = &ttf;
    // Cell height, label band setting, then the bands above and below.
    const std::tuple<int, double, double, double> cases[] = {
        {20, 20.0, 8.0 + 64.0, 8.0 + 37.0},  // tab max(32, 26) doubled, label 5 + 20 + 12
        {16, 50.0, 8.0 + 56.0, 8.0 + 50.0},  // tab 28 doubled, label max(33, 50)
        {10, 50.0, 8.0 + 52.0, 8.0 + 50.0},  // smaller text keeps the tab at 26
        {0, 0.0, 8.0 + 52.0, 8.0 + 18.0}};   // a cell of 0 counts as 1: 5 + 1 + 12
    for (auto [cellPx, labelBandPx, topPx, bottomPx] : cases)
    {
        ttf.CellPx = cellPx;
        editor.LabelBandPx = labelBandPx;
        EXPECT_EQ(BandsPx(), std::make_pair(topPx, bottomPx)) << "cell " << cellPx;
    }

    // The cell height is asked at the theme-scaled font size within 8..96, or at the renderer's own size.
    host.Host.pRend->FontSmallerPx = 17;
    const std::tuple<double, int, int> sizes[] = {{1.0, 0, 17}, {1.0, -3, 17}, {1.0, 3, 8},
                                                  {2.0, 14, 28}, {2.0, 60, 96}, {2.0, 0, 17}};
    for (auto [scale, fontPx, wantPx] : sizes)
    {
        GLTheme::Active().TextScale = scale;
        editor.FontPx = fontPx;
        Access::UpdatePlotRect(editor, true);
        EXPECT_EQ(ttf.LastSizePx, wantPx) << scale << " x " << fontPx;
    }
}

TEST_F(PlotLayout, PlotRectFollowsAnActivePreviewedWindowMoveOnlyWhenAskedTo)
{
    GLWindow window;
    editor.pHostWindow = &window;
    host.Root().MovePreviewDeltaX = 0.125;
    host.Root().MovePreviewDeltaY = -0.0625;
    auto plot = [&](bool bActive, bool bApply) {
        window.bMovePreviewActive = bActive;
        Access::UpdatePlotRect(editor, bApply);
        return std::make_tuple(Access::PlotX1(editor), Access::PlotX2(editor), Access::PlotY1(editor),
                               Access::PlotY2(editor));
    };
    const auto still = std::make_tuple(-0.5, 0.5, 0.75 - 60.0 / kH, -0.75 + 37.0 / kH);
    EXPECT_EQ(plot(false, true), still);  // no preview under way
    EXPECT_EQ(plot(true, false), still);  // not asked to
    // Moved by (0.125, -0.0625): all four sides are exact binary fractions.
    EXPECT_EQ(plot(true, true), std::make_tuple(-0.375, 0.625, 0.75 - 60.0 / kH - 0.0625, -0.75 + 37.0 / kH - 0.0625));
    // The tab bar keeps the window's left, right and top; only its bottom follows PlotY1.
    Access::Documents(editor).resize(1);
    EXPECT_TRUE(Access::IsInsideTabBar(editor, -0.49, 0.7));
    EXPECT_FALSE(Access::IsInsideTabBar(editor, 0.55, 0.74));
}

TEST_F(PlotLayout, TabsSplitTheBarEquallyAndPutTheCloseBoxSixPixelsInFromTheRight)
{
    Access::UpdatePlotRect(editor, true);
    const double y = 0.735;  // the bar runs from 0.75 - 8/2048 down to PlotY1 + 8/2048 = 0.724609375
    EXPECT_FALSE(Access::IsInsideTabBar(editor, 0.0, y));  // no documents, no tabs
    EXPECT_EQ(Access::HitTestDocumentTab(editor, 0.0, y), -1);
    Access::Documents(editor).resize(1);
    EXPECT_EQ(Access::HitTestDocumentTab(editor, 0.49, y), 0);

    Access::Documents(editor).resize(4);  // four tabs of 0.25
    const std::tuple<double, double, int> tabs[] = {
        {-0.5, y, 0}, {-0.26, y, 0}, {-0.25, y, 1},  // a boundary belongs to the right
        {0.5, y, 3},                                 // the right edge clamps to the last
        {0.0, 0.7225, -1},                           // the strip just over the plot
        {0.0, 0.7479, -1},                           // the top padding
        {-0.51, y, -1}};
    for (auto [x, yy, want] : tabs)
        EXPECT_EQ(Access::HitTestDocumentTab(editor, x, yy), want) << x << ", " << yy;

    // Box 18 px on the y scale, 36/2048 wide; margin 6 px on the x scale, 12/1024.
    // Tab 1 ends at 0.0: its box runs from -12/1024 - 36/2048 = -0.029296875 to -0.01171875.
    const std::tuple<double, double, int> boxes[] = {
        {-0.02, y, 1}, {-0.029296875, y, 1}, {-0.01171875, 0.724609375, 1}, {-0.03, y, -1},
        {-0.005, y, -1},  // in the margin
        {0.48, y, 3},     // the last tab ends at 0.5
        {-0.02, 0.7225, -1}};
    for (auto [x, yy, want] : boxes)
        EXPECT_EQ(Access::HitTestDocumentTabClose(editor, x, yy), want) << x << ", " << yy;
    // A plot of 96/2048 gives 96 * 0.16 = 15.36 px, under 18: the box starts at -0.02671875.
    editor.Y2 = 0.75 - (60.0 + 96.0 + 37.0) / kH;
    Access::UpdatePlotRect(editor, true);
    EXPECT_EQ(Access::HitTestDocumentTabClose(editor, -0.026, y), 1);
    EXPECT_EQ(Access::HitTestDocumentTabClose(editor, -0.028, y), -1);
}

TEST_F(PlotLayout, TabMenuOpensOnlyForAnExistingTabAndHangsDownRightFromItsAnchor)
{
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
