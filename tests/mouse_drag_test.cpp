// The per-frame pass: presses, held drags and releases of the plot's left and
// middle buttons, followed pass by pass through the signals they fire.
#include <gtest/gtest.h>

#include "sdl_compat.h"
#include "test_support.h"

namespace
{

// A 10 s document in a window whose plot spans x -0.5..0.5 on a 1000 px
// screen: 2.0 / 1000 = 0.002 per pixel, so the plot is 500 px wide, 1 px is
// 0.02 s, the drag threshold of 4 px is 0.008, and a selection edge grabs
// within 10 px = 0.2 s.
struct Rig
{
    TestHost Host{1000, 1000};
    GLWaveEdit Editor;
    SignalLog Log{Editor};
    Tarvik& Root = Host.Root();

    explicit Rig(bool bPcm, double SelStart = 0.0, double SelEnd = 0.0)
    {
        Root.Windows.push_back(&Editor);
        Editor.X1 = -0.508, Editor.X2 = 0.508, Editor.Y1 = 0.5, Editor.Y2 = -0.5;
        if (bPcm)
            Editor.AdoptDecodedDocument("ten.wav", ConstantFrames(480000, 0.5f, -0.5f));
        else
            Editor.SetExternalPeakWaveform("", {0.5f}, 10.0);  // peaks only: the host plays
        Editor.SetHostedSelection(SelStart, SelEnd);
        Access::UpdatePlotRect(Editor, true);
        Log.Clear();
    }
    // x of a time in the current view.
    double At(double T)
    {
        const double x1 = Access::PlotX1(Editor), x2 = Access::PlotX2(Editor);
        return x1 + (T - Editor.ViewStartSec) / (Editor.ViewEndSec - Editor.ViewStartSec) * (x2 - x1);
    }
    // One frame with the pointer at x, halfway down the plot.
    void Pass(double X, bool bLeft, bool bMiddle = false)
    {
        SetPointer(Host.Pointer(), X, 0.5 * (Access::PlotY1(Editor) + Access::PlotY2(Editor)), bLeft, bMiddle);
        Editor.MouseProcessing();
    }
    unsigned Drag() { return Access::ActiveDrag(Editor); }
};
}  // namespace

TEST(MouseDrag, ClickSeeksItselfWithPcmOrTellsTheHostAndThePressTimeWinsWithinFourPixels)
{
    // With PCM the editor seeks at press and release and only previews while
    // held; without, the host gets both commits and keeps the position.
    struct Mode { bool bPcm; double TimeHeld, TimeAfter; int FramesAfterPress; Lines Signals; };
    const Mode modes[] = {
        {true, 2.0, 5.0, 4, {"preview 2.000000", "preview 2.000000", "preview 5.000000", "preview 2.000000"}},
        {false, 7.0, 7.0, 12, {"commit 2.000000", "preview 2.000000", "preview 2.000000", "preview 5.000000",
                               "preview 2.000000", "commit 5.000000"}},
    };
    for (const Mode& m : modes)
    {
        SCOPED_TRACE(m.bPcm);
        Rig r(m.bPcm);
        r.Editor.CurrentTimeSec = 7.0;
        SDL_SetModState(KMOD_LCTRL);  // Control plays no part: a plain press
        const double x0 = r.At(2.0);
        r.Pass(x0, true);
        EXPECT_TRUE(r.Drag() == Access::DragSeek && r.Editor.bFocused && r.Root.CursorCode == 11);
        EXPECT_EQ(Access::CommittedSeekDisplayFrames(r.Editor), m.FramesAfterPress);  // a seek holds 4, a commit 12
        SDL_SetModState(KMOD_LSHIFT);  // shift during a seek drag changes nothing
        r.Pass(x0 + 0.007, true);      // 3.5 px: the press time, not 2.07
        r.Pass(r.At(5.0), true);
        r.Pass(x0 - 0.007, true);  // back within 4 px: the press time again, not 1.93
        EXPECT_NEAR(r.Editor.CurrentTimeSec, m.TimeHeld, 1e-9);
        r.Pass(r.At(5.0), false);
        EXPECT_EQ(r.Drag(), Access::DragNone);
        EXPECT_NEAR(r.Editor.CurrentTimeSec, m.TimeAfter, 1e-9);
        EXPECT_EQ(r.Log.Lines, m.Signals);
    }
}

TEST(MouseDrag, ShiftSweepLeftwardsLeavesTheRawPairReversed)
{
    Rig r(true, 1.0, 2.0);
    SDL_SetModState(KMOD_LSHIFT);
    r.Pass(r.At(6.0), true);  // far from both edges: a new sweep, the old selection goes
    EXPECT_EQ(r.Drag(), Access::DragSelect);
    SDL_SetModState(KMOD_NONE);  // letting go of shift does not change the drag
    r.Pass(r.At(4.0), true);
    r.Pass(r.At(3.0), false);  // the release writes nothing more
    EXPECT_EQ(r.Drag(), Access::DragNone);
    EXPECT_NEAR(Access::SelectionStartValueSec(r.Editor), 6.0, 1e-9);
    EXPECT_NEAR(Access::SelectionEndValueSec(r.Editor), 4.0, 1e-9);
    EXPECT_EQ(r.Editor.CurrentTimeSec, 0.0);  // no seek
    EXPECT_EQ(r.Log.Lines, (Lines{"selection 0.000000 0.000000", "selection 0.000000 0.000000",
                                  "selection 4.000000 6.000000"}));
}

TEST(MouseDrag, ShiftPressOnAnEdgeMovesThatEdgeAndTheStartEdgeWinsWhenBothAreNear)
{
    Rig r(true, 2.0, 6.0);
    SDL_SetModState(KMOD_LSHIFT);
    r.Pass(r.At(2.1), true);  // 0.1 s from the start edge: the edge jumps to the pointer
    EXPECT_TRUE(r.Drag() == Access::DragResizeSelectionStart && r.Root.CursorCode == 5);
    r.Pass(r.At(3.0), true);
    r.Pass(r.At(3.0), false);
    EXPECT_TRUE(r.Drag() == Access::DragNone && r.Root.CursorCode == 5);  // resting on the moved edge
    r.Pass(r.At(5.9), true);  // near the end edge only
    EXPECT_EQ(r.Drag(), Access::DragResizeSelectionEnd);
    r.Pass(r.At(5.9), false);
    Access::SelectionEndValueSec(r.Editor) = 3.1;
    r.Pass(r.At(3.05), true);  // within reach of both edges
    EXPECT_EQ(r.Drag(), Access::DragResizeSelectionStart);
    EXPECT_EQ(r.Log.Lines, (Lines{"selection 2.100000 6.000000", "selection 3.000000 6.000000",
                                  "selection 3.000000 5.900000", "selection 3.050000 3.100000"}));
}

TEST(MouseDrag, ADragWhoseReleaseFellOnAHiddenFrameEndsWithoutCommit)
{
    // Rows 14 (seek, sweep: left up now and before) and 13 (resize: no release edge).
    struct Case { double SelStart, SelEnd, PressAt; unsigned Drag; Lines Signals; };
    const Case cases[] = {
        {0.0, 0.0, 2.0, Access::DragSeek, {"commit 2.000000", "preview 2.000000"}},
        {0.0, 0.0, 6.0, Access::DragSelect, {"selection 0.000000 0.000000", "selection 0.000000 0.000000"}},
        {2.0, 6.0, 5.9, Access::DragResizeSelectionEnd, {"selection 2.000000 5.900000"}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.Drag);
        Rig r(false, c.SelStart, c.SelEnd);
        SDL_SetModState(c.Drag == Access::DragSeek ? KMOD_NONE : KMOD_LSHIFT);
        r.Pass(r.At(c.PressAt), true);
        ASSERT_EQ(r.Drag(), c.Drag);
        r.Editor.bVisible = false;
        r.Pass(r.At(c.PressAt), false);
        EXPECT_EQ(r.Drag(), c.Drag);  // a hidden window runs no pass
        r.Editor.bVisible = true;
        r.Pass(r.At(4.0), false);
        EXPECT_EQ(r.Drag(), Access::DragNone);
        EXPECT_EQ(r.Log.Lines, c.Signals);
    }
}

TEST(MouseDrag, MiddleDragPansFromItsAnchorsAndStopsAtTheDocumentEdge)
{
    Rig r(true);
    r.Editor.ViewStartSec = 2.0, r.Editor.ViewEndSec = 6.0;  // 4 s over a plot 1.0 wide
    // Pointer x, then the view start it gives from the anchors 2..6: a quarter
    // plot left is 1 s later; 3 s earlier is -1..3, pushed back to 0..4; and
    // 1 s earlier counts from the anchors, not from 0..4.
    const double steps[][2] = {{0.0, 2.0}, {-0.25, 3.0}, {0.75, 0.0}, {0.25, 1.0}};
    for (const auto& s : steps)
    {
        r.Pass(s[0], false, true);
        EXPECT_EQ(r.Drag(), Access::DragPan);
        EXPECT_NEAR(r.Editor.ViewStartSec, s[1], 1e-9) << s[0];
        EXPECT_NEAR(r.Editor.ViewEndSec, s[1] + 4.0, 1e-9) << s[0];
    }
    r.Pass(0.25, false, false);
    r.Pass(-0.25, false, false);  // released: the pointer moves alone
    EXPECT_EQ(r.Drag(), Access::DragNone);
    EXPECT_NEAR(r.Editor.ViewStartSec, 1.0, 1e-9);
    EXPECT_TRUE(r.Log.Lines.empty());
}

TEST(MouseDrag, TheLatestPressWinsBetweenSeekAndPan)
{
    Rig r(false);
    r.Pass(r.At(2.0), true, true);  // both at once: the press's seek, then the pan
    r.Pass(r.At(2.0), false, true);  // a left release during a pan does nothing
    EXPECT_EQ(r.Drag(), Access::DragPan);
    r.Pass(r.At(2.0), false, false);
    r.Pass(r.At(4.0), true);
    r.Pass(r.At(4.0), true, true);  // a middle press ends a seek drag without a commit
    r.Pass(r.At(4.0), false, true);
    EXPECT_EQ(r.Drag(), Access::DragPan);
    r.Pass(r.At(6.0), true, true);   // and a left press ends the pan
    r.Pass(r.At(6.0), true, false);  // whose middle release then does nothing
    EXPECT_EQ(r.Drag(), Access::DragSeek);
    EXPECT_EQ(r.Log.Lines, (Lines{"commit 2.000000", "commit 4.000000", "preview 4.000000", "commit 6.000000",
                                  "preview 6.000000", "preview 6.000000"}));
}

TEST(MouseDrag, InvalidWindowRectangleEndsTheDragAfterTheSync)
{
    Rig r(false);
    r.Editor.CurrentTimeSec = 7.0;  // 5 s from the seek: every pass counts the hold down
    r.Pass(r.At(2.0), true);
    const double x = r.At(4.0);
    r.Editor.X2 = r.Editor.X1;
    r.Pass(x, true);
    EXPECT_TRUE(r.Drag() == Access::DragNone && !Access::bHover(r.Editor));
    EXPECT_EQ(Access::CommittedSeekDisplayFrames(r.Editor), 11);  // the sync still ran
    r.Editor.X2 = 0.508;
    r.Pass(x, true);  // held, but no press edge: no drag starts
    EXPECT_EQ(r.Drag(), Access::DragNone);
    EXPECT_EQ(r.Log.Lines, (Lines{"commit 2.000000", "preview 2.000000"}));
}
