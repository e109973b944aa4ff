// The editor object (fields after construction, Init's colours, Destroy) and
// what it relies on in the host: Signal, IsValidRect and the key dispatcher.
#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "glgeometry.h"
#include "glkeyaction.h"
#include "gltheme.h"
#include "test_support.h"

namespace
{
using Colour = GLColor* GLWaveEdit::*;
// In declaration order, which is the order Destroy deletes them in.
const Colour kColours[16] = {
    &GLWaveEdit::pBackgroundColor,    &GLWaveEdit::pPlotBackColor,        &GLWaveEdit::pWaveColor,
    &GLWaveEdit::pWaveFillColor,      &GLWaveEdit::pGridColor,            &GLWaveEdit::pAxisColor,
    &GLWaveEdit::pSelectionFillColor, &GLWaveEdit::pSelectionBorderColor, &GLWaveEdit::pPlayheadColor,
    &GLWaveEdit::pHoverColor,         &GLWaveEdit::pTabBackColor,         &GLWaveEdit::pTabActiveColor,
    &GLWaveEdit::pTabBorderColor,     &GLWaveEdit::pTextColor,            &GLWaveEdit::pBorderColor,
    &GLWaveEdit::pBorderFocusColor};

struct ThemeGuard
{
    GLTheme::Palette Saved = GLTheme::Active();
    ~ThemeGuard() { GLTheme::Active() = Saved; }
};

// Reports its deletion, so that Destroy's work can be watched.
struct WatchedColour : GLColor
{
    WatchedColour(int Id, std::vector<int>* Log) : Id(Id), Log(Log) {}
    ~WatchedColour() override { Log->push_back(Id); }
    int Id;
    std::vector<int>* Log;
};

GLColor WithAlpha(GLColor C, float A) { return C.A = A, C; }

void ExpectDefaults(GLWaveEdit& E)
{
    for (Colour field : kColours)
        EXPECT_EQ(E.*field, nullptr);
    EXPECT_EQ(std::vector<double>({E.DurationSec, E.ViewStartSec, E.ViewEndSec, E.BorderWidth, E.PaddingPx,
                                   E.LabelBandPx, E.WheelZoomStep, E.MinViewSpanSec}),
              std::vector<double>({0.0, 0.0, 1.0, 5.0, 8.0, 20.0, 0.22, 0.1}));
    EXPECT_EQ(std::vector<int>({E.DesiredXTicks, E.FontPx, Access::PcmSampleRate(E), Access::PcmChannels(E),
                                Access::ClipboardSampleRate(E), Access::ClipboardChannels(E),
                                Access::ActiveDocumentIndex(E), Access::UntitledCounter(E),
                                Access::TabMenuDocumentIndex(E), Access::CommittedSeekDisplayFrames(E)}),
              std::vector<int>({6, 0, 48000, 2, 48000, 2, -1, 1, -1, 0}));
    EXPECT_TRUE(E.bShowGrid && E.bShowSelection && E.bWaveFill);
    EXPECT_FALSE(Access::bViewInitialized(E) || Access::bUsePcmFrames(E) || Access::bUseExternalPeaks(E));
    EXPECT_EQ(Access::HoverPeak(E), -1.0);
    EXPECT_EQ(Access::CommittedSeekDisplaySec(E), -1.0);
    EXPECT_EQ(Access::AudioPlayer(E), nullptr);
    EXPECT_TRUE(E.SourcePath().empty() && Access::Documents(E).empty());
}
}  // namespace

TEST(EditorObject, BothConstructorsGiveTheDefaultsAndTheSecondStoresASignExtendedId)
{
    GLWaveEdit plain, minusOne(-1), lowest(INT_MIN);
    ExpectDefaults(plain);
    ExpectDefaults(minusOne);
    EXPECT_EQ(plain.ChildWindowID, 0);
    EXPECT_EQ(minusOne.ChildWindowID, -1);  // zero extension would give 4294967295
    EXPECT_EQ(lowest.ChildWindowID, static_cast<int64_t>(INT_MIN));
}

TEST(EditorObject, InitCopiesSixteenThemeColoursEachIntoItsOwnObject)
{
    ThemeGuard theme;
    // Source alphas unlike any alpha the editor sets itself.
    GLTheme::Active().Fill[GLTheme::ToneInfo].A = 0.5f;
    GLTheme::Active().PrimaryText.A = 0.61f;
    GLTheme::Active().OverlayBorder.A = 0.62f;
    GLTheme::Active().FocusBorder.A = 0.63f;
    const GLColor info = GLTheme::SemanticAccent(GLTheme::ToneInfo);
    const GLColor warning = GLTheme::SemanticAccent(GLTheme::ToneWarning);
    const GLColor expected[16] = {
        GLTheme::OverlaySurfaceColor(), GLTheme::SemanticFill(GLTheme::ToneInfo), WithAlpha(info, 0.98f),
        WithAlpha(info, 0.2f), {0.46f, 0.56f, 0.7f, 0.2f}, WithAlpha(GLTheme::MutedTextColor(), 0.55f),
        WithAlpha(warning, 0.18f), WithAlpha(warning, 0.98f),
        warning,  // the playhead keeps the theme's 0.9
        WithAlpha(GLTheme::SemanticAccent(GLTheme::ToneDanger), 0.98f), {0.1f, 0.13f, 0.2f, 1.0f},
        {0.24f, 0.38f, 0.62f, 1.0f}, {0.62f, 0.7f, 0.84f, 1.0f}, GLTheme::PrimaryTextColor(),
        GLTheme::OverlayBorderColor(), GLTheme::FocusBorderColor()};
    GLWaveEdit editor;
    auto expectColours = [&] {
        for (int i = 0; i < 16; ++i)
        {
            const GLColor* c = editor.*kColours[i];
            ASSERT_NE(c, nullptr) << i;
            EXPECT_EQ(std::vector<float>({c->R, c->G, c->B, c->A}),
                      std::vector<float>({expected[i].R, expected[i].G, expected[i].B, expected[i].A}))
                << "colour " << i;
        }
    };
    EXPECT_TRUE(editor.Init());
    expectColours();
    std::set<GLColor*> distinct;
    for (Colour field : kColours)
        distinct.insert(editor.*field);
    EXPECT_EQ(distinct.size(), 16u);
    EXPECT_EQ(Access::ActiveDocumentIndex(editor), -1);

    // A theme change after Init reaches none of the copies.
    GLTheme::Active().OverlaySurface = {1.0f, 1.0f, 1.0f, 1.0f};
    GLTheme::Active().Accent[GLTheme::ToneInfo] = {0.0f, 0.0f, 0.0f, 0.0f};
    expectColours();
    editor.Destroy();
}

TEST(EditorObject, DestroyDeletesTheColoursInFieldOrderAndLeavesDocumentsAndPlayerAlone)
{
    TestHost host;
    GLWaveEdit editor;
    editor.Init();
    std::vector<int> deleted;
    std::vector<GLColor*> handedIn;
    for (int i = 0; i < 16; ++i)  // watched colours on even fields, nulls on odd ones
    {
        delete (editor.*kColours[i]);
        editor.*kColours[i] = (i % 2 == 0) ? new WatchedColour(i, &deleted) : nullptr;
        handedIn.push_back(editor.*kColours[i]);
    }
    Access::Documents(editor).resize(2);
    Access::ActiveDocumentIndex(editor) = 1;
    Access::PcmFrames(editor) = ConstantFrames(14400, 0.1f, 0.1f);  // 48000 * 0.3 = 14400 frames
    Access::bUsePcmFrames(editor) = true;
    editor.DurationSec = 0.3;
    ASSERT_TRUE(editor.PlayFromCurrentPosition());

    editor.Destroy();
    EXPECT_EQ(deleted, (std::vector<int>{0, 2, 4, 6, 8, 10, 12, 14}));
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(editor.*kColours[i], handedIn[i]) << "pointers stay as they were";
    EXPECT_TRUE(editor.IsPlaybackActive());
    EXPECT_EQ(Access::Documents(editor).size(), 2u);
    EXPECT_EQ(Access::PcmFrames(editor).size(), 28800u);
}

TEST(HostContract, SignalCallsEverySlotInOrderWithItsOwnCopyOfATemporaryString)
{
    Signal<std::string, double> signal;
    signal.emit(std::string("nobody listens"), 1.0);
    std::vector<std::string> seen;
    signal.connect([&](std::string S, double V) { seen.push_back("1 " + (S += "!") + std::to_string(V)); });
    signal.connect([&](std::string S, double V) { seen.push_back("2 " + std::move(S) + std::to_string(V)); });
    signal.connect([&](std::string S, double V) { seen.push_back("3 " + S + std::to_string(V)); });
    signal.emit(std::string("cut"), 2.5);
    EXPECT_EQ(seen, (std::vector<std::string>{"1 cut!2.500000", "2 cut2.500000", "3 cut2.500000"}));
}

TEST(HostContract, IsValidRectWantsPositiveWidthAndHeightAndDispatchSkipsNone)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(GLGeometry::IsValidRect(-0.5, 0.5, 0.5, -0.5));
    EXPECT_FALSE(GLGeometry::IsValidRect(0.5, 0.5, 0.5, -0.5));
    EXPECT_FALSE(GLGeometry::IsValidRect(-0.5, -0.5, 0.5, 0.5));
    EXPECT_FALSE(GLGeometry::IsValidRect(nan, 0.5, 0.5, -0.5));
    EXPECT_FALSE(GLGeometry::IsValidRect(-0.5, 0.5, 0.5, nan));

    std::vector<GLKeyAction> run;
    auto executor = [&](GLKeyAction Action) { return run.push_back(Action), true; };
    EXPECT_FALSE(GLDispatchKeyAction(GLKeyAction::None, executor));
    for (GLKeyAction action : {GLKeyAction::SelectFirst, GLKeyAction::Activate, GLKeyAction::Cancel})
        EXPECT_TRUE(GLDispatchKeyAction(action, executor));
    EXPECT_EQ(run, (std::vector<GLKeyAction>{GLKeyAction::SelectFirst, GLKeyAction::Activate, GLKeyAction::Cancel}));
}
