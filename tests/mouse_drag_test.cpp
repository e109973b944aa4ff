// The per-frame pass: presses, held drags and releases of the plot's left and
// middle buttons, followed pass by pass through the signals they fire.
#include <gtest/gtest.h>

#include "sdl_compat.h"
#include "test_support.h"

namespace
{
using Lines = std::vector<std::string>;

// A 10 s document in a window whose plot spans x -0.5..0.5 on a 1000 px
// screen: 2.0 / 1000 = 0.002 per pixel, so the plot is 500 px wide, the drag
// threshold of 4 px is 0.008, and a selection edge grabs within 10 px, that is
// 10 s / 500 px * 10 = 0.2 s.
struct Rig
{
    TestHost Host{1000, 1000};
    GLWaveEdit Editor;
    SignalLog Log{Editor};
    Tarvik& Root = Host.Root();

    explicit Rig(bool bPcm)
    {
        Root.Windows.push_back(&Editor);
        Editor.X1 = -0.508, Editor.X2 = 0.508, Editor.Y1 = 0.5, Editor.Y2 = -0.5;
        Editor.NewUntitledDocument();
        Access::PcmFrames(Editor) = ConstantFrames(480000, 0.5f, -0.5f);
        Access::bUsePcmFrames(Editor) = bPcm;
        Editor.DurationSec = Editor.ViewEndSec = 10.0;
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
    // A release on a frame in which the window was hidden, then a visible frame.
    void LoseRelease(double X)
    {
        Editor.bVisible = false;
        Pass(X, false);
        EXPECT_NE(Drag(), Access::DragNone);
        Editor.bVisible = true;
        Pass(X, false);
    }
    unsigned Drag() { return Access::ActiveDrag(Editor); }
    void Select(double A, double B) { Access::SelectionStartValueSec(Editor) = A, Access::SelectionEndValueSec(Editor) = B; }
    std::pair<double, double> Raw() { return {Access::SelectionStartValueSec(Editor), Access::SelectionEndValueSec(Editor)}; }
};
}  // namespace

TEST(MouseDrag, ClickWithPcmSeeksAtPressAndReleaseAndOnlyPreviewsWhileHeld)
{
    Rig r(true);
    SDL_SetModState(KMOD_LCTRL);  // Control plays no part: a plain press
    r.Pass(r.At(2.0), true);
    EXPECT_EQ(r.Drag(), Access::DragSeek);
    EXPECT_TRUE(r.Editor.bFocused);
    EXPECT_NEAR(r.Editor.CurrentTimeSec, 2.0, 1e-9);
    EXPECT_EQ(Access::CommittedSeekDisplayFrames(r.Editor), 4);  // the seek's own hold replaced 12
    EXPECT_EQ(r.Root.CursorCode, 11);
    SDL_SetModState(KMOD_LSHIFT);  // shift during a seek drag changes nothing
    r.Pass(r.At(5.0), true);
    EXPECT_NEAR(r.Editor.CurrentTimeSec, 2.0, 1e-9);  // held: the position waits for the release
    r.Pass(r.At(5.0), false);
    EXPECT_EQ(r.Drag(), Access::DragNone);
    EXPECT_NEAR(r.Editor.CurrentTimeSec, 5.0, 1e-9);
    EXPECT_EQ(r.Log.Lines, (Lines{"preview 2.000000", "preview 5.000000"}));
}

TEST(MouseDrag, WithoutPcmTheHostGetsBothCommitsAndThePressTimeWinsWithinFourPixels)
{
    Rig r(false);
    r.Editor.CurrentTimeSec = 7.0;
    const double x0 = r.At(2.0);  // 1 px = 0.002 = 0.04 s
    r.Pass(x0, true);
    r.Pass(x0 + 0.007, true);  // 3.5 px: the press time, not 2.07
    r.Pass(r.At(5.0), true);
    r.Pass(x0 - 0.007, true);  // back within 4 px: the press time again, not 1.93
    r.Pass(x0 + 0.007, false);
    EXPECT_EQ(r.Log.Lines, (Lines{"commit 2.000000", "preview 2.000000", "preview 2.000000", "preview 5.000000",
                                  "preview 2.000000", "commit 2.000000"}));
    EXPECT_EQ(r.Editor.CurrentTimeSec, 7.0);  // the host moves the position, not the editor
    EXPECT_EQ(Access::CommittedSeekDisplayFrames(r.Editor), 12);
    // Out of the plot the preview sits on the view's start, and so does the commit.
    r.Log.Clear();
    const double outside = r.At(0.0) - 0.1;
    r.Pass(r.At(3.0), true);
    r.Pass(outside, true);
    EXPECT_FALSE(Access::bHover(r.Editor));
    EXPECT_NEAR(Access::HoverTimeSec(r.Editor), 3.0, 1e-9);  // the last inside value
    r.Pass(outside, false);
    EXPECT_EQ(r.Log.Lines, (Lines{"commit 3.000000", "preview 3.000000", "preview 0.000000", "commit 0.000000"}));
    // Hovering: no cursor and no claim outside the plot, code 11 inside.
    r.Root.CursorCode = 0;
    r.Root.bChildWindowProcessed = false;
    r.Pass(outside, false);
    EXPECT_EQ(r.Root.CursorCode, 0);
    EXPECT_FALSE(r.Root.bChildWindowProcessed);
    r.Pass(r.At(4.0), false);
    EXPECT_EQ(r.Root.CursorCode, 11);
    EXPECT_TRUE(r.Root.bChildWindowProcessed);
}

TEST(MouseDrag, ShiftSweepLeftwardsLeavesTheRawPairReversed)
{
    Rig r(true);
    r.Select(1.0, 2.0);
    SDL_SetModState(KMOD_LSHIFT);
    r.Pass(r.At(6.0), true);  // far from both edges: a new sweep, the old selection goes
    EXPECT_EQ(r.Drag(), Access::DragSelect);
    SDL_SetModState(KMOD_NONE);  // letting go of shift does not change the drag
    r.Pass(r.At(4.0), true);
    r.Pass(r.At(3.0), false);  // the release writes nothing more
    EXPECT_EQ(r.Drag(), Access::DragNone);
    EXPECT_NEAR(r.Raw().first, 6.0, 1e-9);
    EXPECT_NEAR(r.Raw().second, 4.0, 1e-9);
    EXPECT_EQ(r.Editor.CurrentTimeSec, 0.0);  // no seek
    EXPECT_EQ(r.Log.Lines, (Lines{"selection 0.000000 0.000000", "selection 0.000000 0.000000",
                                  "selection 4.000000 6.000000"}));
}

TEST(MouseDrag, ShiftPressOnAnEdgeMovesThatEdgeUntilReleasedEvenUnseen)
{
    Rig r(true);
    r.Select(2.0, 6.0);
    SDL_SetModState(KMOD_LSHIFT);
    r.Pass(r.At(2.1), true);  // 0.1 s from the start edge: the edge jumps to the pointer
    EXPECT_EQ(r.Drag(), Access::DragResizeSelectionStart);
    EXPECT_EQ(r.Root.CursorCode, 5);
    r.Pass(r.At(3.0), true);
    r.Pass(r.At(3.0), false);
    EXPECT_EQ(r.Drag(), Access::DragNone);
    EXPECT_EQ(r.Root.CursorCode, 5);  // the pointer rests on the moved edge
    r.Pass(r.At(5.9), true);  // near the end edge only
    EXPECT_EQ(r.Drag(), Access::DragResizeSelectionEnd);
    r.LoseRelease(r.At(5.0));  // both buttons up and no release edge still ends it
    EXPECT_EQ(r.Drag(), Access::DragNone);
    r.Select(2.0, 2.1);
    r.Pass(r.At(2.05), true);  // within reach of both edges: the start edge wins
    EXPECT_EQ(r.Drag(), Access::DragResizeSelectionStart);
    EXPECT_EQ(r.Log.Lines, (Lines{"selection 2.100000 6.000000", "selection 3.000000 6.000000",
                                  "selection 3.000000 5.900000", "selection 2.050000 2.100000"}));
}

TEST(MouseDrag, SeekOrSweepWhoseReleaseWasNeverSeenEndsWithoutCommit)
{
    Rig r(false);
    r.Editor.CurrentTimeSec = 7.0;  // 5 s from the seek: every pass counts the hold down
    r.Pass(r.At(2.0), true);
    r.Editor.bEnabled = false;
    r.Pass(r.At(2.0), true);
    EXPECT_EQ(Access::CommittedSeekDisplayFrames(r.Editor), 12);  // a disabled window runs no pass
    r.Editor.bEnabled = true;
    r.LoseRelease(r.At(2.0));
    EXPECT_EQ(r.Drag(), Access::DragNone);
    SDL_SetModState(KMOD_LSHIFT);
    r.Pass(r.At(6.0), true);
    r.LoseRelease(r.At(4.0));
    EXPECT_EQ(r.Drag(), Access::DragNone);
    EXPECT_EQ(r.Log.Lines, (Lines{"commit 2.000000", "preview 2.000000", "selection 0.000000 0.000000",
                                  "selection 0.000000 0.000000"}));
}

TEST(MouseDrag, MiddleDragPansFromItsAnchorsAndStopsAtTheDocumentEdge)
{
    Rig r(true);
    r.Editor.ViewStartSec = 2.0;  // 4 s over a plot 1.0 wide
    r.Editor.ViewEndSec = 6.0;
    auto view = [&](double Start, double End) {
        EXPECT_NEAR(r.Editor.ViewStartSec, Start, 1e-9);
        EXPECT_NEAR(r.Editor.ViewEndSec, End, 1e-9);
    };
    r.Pass(0.0, false, true);
    EXPECT_EQ(r.Drag(), Access::DragPan);
    r.Pass(-0.25, false, true);  // a quarter plot left: 1 s later
    view(3.0, 7.0);
    r.Pass(0.75, false, true);  // 3 s earlier: -1..3, pushed back to 0..4
    view(0.0, 4.0);
    r.Pass(0.25, false, true);  // 1 s earlier than the anchors 2..6, not than 0..4
    view(1.0, 5.0);
    r.Pass(0.25, false, false);
    EXPECT_EQ(r.Drag(), Access::DragNone);
    r.Pass(0.25, false, false);
    view(1.0, 5.0);
    EXPECT_TRUE(r.Log.Lines.empty());
}

TEST(MouseDrag, TheLatestPressWinsBetweenSeekAndPan)
{
    Rig r(false);
    r.Pass(r.At(2.0), true, true);  // both at once: the press's seek, then the pan
    EXPECT_EQ(r.Drag(), Access::DragPan);
    r.Pass(r.At(2.0), false, true);  // a left release during a pan does nothing
    EXPECT_EQ(r.Drag(), Access::DragPan);
    r.Pass(r.At(2.0), false, false);
    r.Pass(r.At(4.0), true);
    r.Pass(r.At(4.0), true, true);  // a middle press ends a seek drag without a commit
    r.Pass(r.At(4.0), false, true);
    EXPECT_EQ(r.Drag(), Access::DragPan);
    r.Pass(r.At(6.0), true, true);  // and a left press ends the pan
    r.Pass(r.At(6.0), true, false);  // whose middle release then does nothing
    EXPECT_EQ(r.Drag(), Access::DragSeek);
    EXPECT_EQ(r.Log.Lines, (Lines{"commit 2.000000", "commit 4.000000", "preview 4.000000", "commit 6.000000",
                                  "preview 6.000000", "preview 6.000000"}));
}

TEST(MouseDrag, InvalidWindowRectangleEndsTheDragAfterTheSync)
{
    Rig r(false);
    r.Editor.CurrentTimeSec = 7.0;
    r.Pass(r.At(2.0), true);
    const double x = r.At(4.0);
    r.Editor.X2 = r.Editor.X1;
    r.Pass(x, true);
    EXPECT_EQ(r.Drag(), Access::DragNone);
    EXPECT_FALSE(Access::bHover(r.Editor));
    EXPECT_EQ(Access::CommittedSeekDisplayFrames(r.Editor), 11);  // the sync still ran
    r.Editor.X2 = 0.508;
    r.Pass(x, true);  // held, but no press edge: no drag starts
    EXPECT_EQ(r.Drag(), Access::DragNone);
    EXPECT_EQ(r.Log.Lines, (Lines{"commit 2.000000", "preview 2.000000"}));
}
