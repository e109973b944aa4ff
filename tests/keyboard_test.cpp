// Keys while the editor has the focus: space plays and pauses, f fits the
// view, c clears the selection.
#include <gtest/gtest.h>

#include "test_support.h"

namespace
{
constexpr int kSpace = 32, kF = 102, kC = 99;

// A focused editor on a 4 s PCM document, viewing 1..3.5, with the raw
// selection (3.0, 1.0).
struct Rig
{
    GLWaveEdit Editor;
    SignalLog Log{Editor};

    Rig()
    {
        Editor.NewUntitledDocument();
        Access::PcmFrames(Editor) = ConstantFrames(192000, 0.25f, -0.25f);
        Editor.DurationSec = 4.0, Editor.ViewStartSec = 1.0, Editor.ViewEndSec = 3.5;
        Access::SelectionStartValueSec(Editor) = 3.0, Access::SelectionEndValueSec(Editor) = 1.0;
        Editor.bFocused = true;
        Log.Clear();
    }
    bool Key(int Sym, bool bShift = false, bool bControl = false, bool bAlt = false)
    {
        return Editor.HandleGlobalKey(Sym, bShift, bControl, bAlt);
    }
};
}  // namespace

TEST(Keyboard, KeysAreLeftToTheHostWithoutFocusWithControlOrAltOrWhenUnknown)
{
    Rig r;
    r.Editor.bFocused = false;
    EXPECT_FALSE(r.Key(kSpace) || r.Key(kF) || r.Key(kC));
    r.Editor.bFocused = true;
    EXPECT_FALSE(r.Key(kC, false, true) || r.Key(kF, false, false, true) || r.Key(kSpace, false, true));
    EXPECT_FALSE(r.Key(67, true) || r.Key(120));  // an upper case C, and x, are no keys of the editor
    EXPECT_FALSE(r.Editor.IsPlaybackActive());
    EXPECT_TRUE(r.Editor.ViewStartSec == 1.0 && r.Editor.ViewEndSec == 3.5 && r.Editor.HasSelection());
    EXPECT_TRUE(r.Log.Lines.empty());
}

TEST(Keyboard, FFitsTheViewAndCClearsTheSelectionReportingOnlyARealOne)
{
    Rig r;
    EXPECT_TRUE(r.Key(kF, true));  // shift neither blocks nor changes a key
    EXPECT_TRUE(r.Editor.ViewStartSec == 0.0 && r.Editor.ViewEndSec == 4.0);
    EXPECT_TRUE(r.Key(kC));
    Access::SelectionStartValueSec(r.Editor) = Access::SelectionEndValueSec(r.Editor) = 2.0;  // no selection
    EXPECT_TRUE(r.Key(kC));
    EXPECT_TRUE(Access::SelectionStartValueSec(r.Editor) == 0.0 && Access::SelectionEndValueSec(r.Editor) == 0.0);
    EXPECT_EQ(r.Log.Lines, (Lines{"selection 0.000000 0.000000"}));
}

TEST(Keyboard, SpaceTogglesOwnPlaybackOrAsksTheHostAndIsConsumedWithNothingToPlay)
{
    Rig r;
    EXPECT_TRUE(r.Key(kSpace));
    EXPECT_TRUE(r.Editor.IsPlaybackActive() && !r.Editor.IsPlaybackPaused());
    EXPECT_TRUE(r.Key(kSpace, true));
    EXPECT_TRUE(r.Editor.IsPlaybackPaused());
    Access::bUsePcmFrames(r.Editor) = false;  // the host plays: it gets the toggle
    EXPECT_TRUE(r.Key(kSpace));
    EXPECT_TRUE(r.Editor.IsPlaybackPaused());
    EXPECT_EQ(r.Log.Lines, (Lines{"toggle true"}));
    GLWaveEdit idle;  // no PCM and no host slot, then PCM with nothing to play: consumed all the same
    idle.bFocused = true;
    EXPECT_TRUE(idle.HandleGlobalKey(kSpace, false, false, false));
    idle.NewUntitledDocument();
    EXPECT_TRUE(idle.HandleGlobalKey(kSpace, false, false, false) && !idle.IsPlaybackActive());
}
