// The editor object (fields after construction, Init's colours, Destroy) and
// what it relies on in the host: Signal and IsValidRect.
#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <string>
#include <vector>

#include "glgeometry.h"
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

// Reports its deletion, so that Destroy's work can be watched.
struct WatchedColour : GLColor
{
    WatchedColour(int Id, std::vector<int>* Log) : Id(Id), Log(Log) {}
    ~WatchedColour() override { Log->push_back(Id); }
    int Id;
    std::vector<int>* Log;
};

struct ThemeGuard
{
    GLTheme::Palette Saved = GLTheme::Active();
    ~ThemeGuard() { GLTheme::Active() = Saved; }
};

GLColor WithAlpha(GLColor C, float A) { return C.A = A, C; }
std::vector<float> Rgba(const GLColor& C) { return {C.R, C.G, C.B, C.A}; }

// Every field a new editor sets, as one list; the last counts set pointers and non-empty containers.
std::vector<double> Fields(GLWaveEdit& E)
{
    double present = Access::AudioPlayer(E) != nullptr || !E.SourcePath().empty() || !Access::Documents(E).empty();
    for (Colour field : kColours)
        present += E.*field != nullptr;
    using A = Access;
    return {E.DurationSec, E.ViewStartSec, E.ViewEndSec, E.BorderWidth, E.PaddingPx, E.LabelBandPx, E.WheelZoomStep,
            E.MinViewSpanSec, 1.0 * E.DesiredXTicks, 1.0 * E.FontPx, 1.0 * A::PcmSampleRate(E), 1.0 * A::PcmChannels(E),
            1.0 * A::ClipboardSampleRate(E), 1.0 * A::ClipboardChannels(E), 1.0 * A::ActiveDocumentIndex(E),
            1.0 * A::UntitledCounter(E), 1.0 * A::TabMenuDocumentIndex(E), 1.0 * A::CommittedSeekDisplayFrames(E),
            A::HoverPeak(E), A::CommittedSeekDisplaySec(E), 1.0 * E.bShowGrid, 1.0 * E.bShowSelection,
            1.0 * E.bWaveFill, 1.0 * A::bViewInitialized(E), 1.0 * A::bUsePcmFrames(E),
            1.0 * A::bUseExternalPeaks(E), present};
}
}  // namespace

TEST(EditorObject, BothConstructorsGiveTheDefaultsAndTheSecondStoresASignExtendedId)
{
    const std::vector<double> defaults = {0.0, 0.0, 1.0,  5.0, 8.0, 20.0, 0.22, 0.1,  6, 0, 48000, 2, 48000, 2,
                                          -1,  1,   -1,   0,   -1.0, -1.0, 1,   1,   1, 0, 0,     0, 0};
    GLWaveEdit plain, minusOne(-1);
    EXPECT_EQ(Fields(plain), defaults);
    EXPECT_EQ(Fields(minusOne), defaults);
    EXPECT_EQ(plain.ChildWindowID, 0);
    EXPECT_EQ(minusOne.ChildWindowID, -1);  // zero extension would give 4294967295
}

TEST(EditorObject, InitCopiesTheThemeColoursEachIntoItsOwnObject)
{
    ThemeGuard theme;
    GLTheme::Active().OverlaySurface = {0.25f, 0.5f, 0.75f, 0.61f};  // an alpha the editor never sets
    GLWaveEdit editor;
    EXPECT_TRUE(editor.Init());
    const GLColor warning = GLTheme::SemanticAccent(GLTheme::ToneWarning);
    const GLColor wave = WithAlpha(GLTheme::SemanticAccent(GLTheme::ToneInfo), 0.98f);
    // A theme change after Init reaches none of the copies.
    GLTheme::Active().OverlaySurface = {1.0f, 1.0f, 1.0f, 1.0f};
    GLTheme::Active().Accent[GLTheme::ToneInfo] = {0.0f, 0.0f, 0.0f, 0.0f};
    EXPECT_EQ(Rgba(*editor.pBackgroundColor), (std::vector<float>{0.25f, 0.5f, 0.75f, 0.61f}));  // alpha kept
    EXPECT_EQ(Rgba(*editor.pWaveColor), Rgba(wave));                                      // alpha replaced
    EXPECT_EQ(Rgba(*editor.pPlayheadColor), Rgba(warning));  // the theme's own alpha
    EXPECT_EQ(Rgba(*editor.pGridColor), (std::vector<float>{0.46f, 0.56f, 0.7f, 0.2f}));  // not from the theme
    std::set<GLColor*> distinct;
    for (Colour field : kColours)
        distinct.insert(editor.*field);
    EXPECT_EQ(distinct.size(), 16u);
    EXPECT_EQ(distinct.count(nullptr), 0u);
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
        handedIn.push_back(editor.*kColours[i] = (i % 2 == 0) ? new WatchedColour(i, &deleted) : nullptr);
    }
    Access::Documents(editor).resize(2);
    Access::PcmFrames(editor) = ConstantFrames(14400, 0.1f, 0.1f);  // 48000 * 0.3 = 14400 frames
    Access::bUsePcmFrames(editor) = true;
    editor.DurationSec = 0.3;
    ASSERT_TRUE(editor.PlayFromCurrentPosition());

    editor.Destroy();
    EXPECT_EQ(deleted, (std::vector<int>{0, 2, 4, 6, 8, 10, 12, 14}));
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(editor.*kColours[i], handedIn[i]) << "pointers stay as they were";
    EXPECT_TRUE(editor.IsPlaybackActive());
    EXPECT_EQ(Access::Documents(editor).size() + Access::PcmFrames(editor).size(), 2u + 28800u);
}

TEST(HostContract, SignalCallsEverySlotInOrderWithItsOwnCopyOfATemporaryString)
{
    Signal<std::string, double> signal;
    std::vector<std::string> seen;
    signal.connect([&](std::string S, double V) { seen.push_back("1 " + (S += "!") + std::to_string(V)); });
    signal.connect([&](std::string S, double V) { seen.push_back("2 " + std::move(S) + std::to_string(V)); });
    signal.connect([&](std::string S, double V) { seen.push_back("3 " + S + std::to_string(V)); });
    signal.emit(std::string("cut"), 2.5);
    EXPECT_EQ(seen, (std::vector<std::string>{"1 cut!2.500000", "2 cut2.500000", "3 cut2.500000"}));
}

TEST(HostContract, IsValidRectWantsPositiveWidthAndHeightAndRefusesNaN)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(GLGeometry::IsValidRect(-0.5, 0.5, 0.5, -0.5));
    EXPECT_FALSE(GLGeometry::IsValidRect(0.5, 0.5, 0.5, -0.5));   // no width
    EXPECT_FALSE(GLGeometry::IsValidRect(-0.5, -0.5, 0.5, 0.5));  // upside down
    EXPECT_FALSE(GLGeometry::IsValidRect(nan, 0.5, 0.5, -0.5) || GLGeometry::IsValidRect(-0.5, 0.5, 0.5, nan));
}
