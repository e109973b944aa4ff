// The tabs: new documents, switching between them and closing them, with the
// active document's state in the mirror and each tab's in its record.
#include <gtest/gtest.h>

#include <tuple>

#include "test_support.h"

namespace
{
using Lines = std::vector<std::string>;
// Path, sample count, duration, view and raw selection of one document.
using State = std::tuple<std::string, size_t, double, double, double, double, double>;

State Mirror(GLWaveEdit& E)
{
    return {E.SourcePath(), Access::PcmFrames(E).size(), E.DurationSec, E.ViewStartSec, E.ViewEndSec,
            Access::SelectionStartValueSec(E), Access::SelectionEndValueSec(E)};
}

State Record(GLWaveEdit& E, int Index)
{
    const auto& d = Access::Document(E, Index);
    return {d.SourceFilePath, d.PcmFrames.size(), d.DurationSec, d.ViewStartSec, d.ViewEndSec,
            d.SelectionStartSec, d.SelectionEndSec};
}

// Documents of 1, 2 and 3 s, each with a view of its own; B's and C's
// selections run backwards.
const State A{"Untitled-1.ogg", 96000, 1.0, 0.2, 0.7, 0.1, 0.4};
const State B{"Untitled-2.ogg", 192000, 2.0, 0.5, 1.5, 1.5, 0.5};
const State C{"Untitled-3.ogg", 288000, 3.0, 1.0, 2.0, 2.5, 1.0};

// A, B and C made one after the other; C is active and not yet stored.
struct Tabs
{
    GLWaveEdit Editor;
    SignalLog Log{Editor};

    Tabs()
    {
        for (const State* s : {&A, &B, &C})
        {
            Editor.NewUntitledDocument();
            Access::PcmFrames(Editor).assign(std::get<1>(*s), 0.25f);
            std::tie(std::ignore, std::ignore, Editor.DurationSec, Editor.ViewStartSec, Editor.ViewEndSec,
                     Access::SelectionStartValueSec(Editor), Access::SelectionEndValueSec(Editor)) = *s;
        }
        Log.Clear();
    }
};
struct ThreeDocuments : testing::Test, Tabs {};
}  // namespace

TEST(DocumentStore, ClosingTheOnlyDocumentMakesAFreshUntitledOneWithTheNextNumber)
{
    GLWaveEdit editor;
    SignalLog log(editor);
    Access::StoreActiveDocument(editor);  // no document yet: both do nothing
    editor.CloseActiveDocument();
    EXPECT_TRUE(Access::Documents(editor).empty() && Access::ActiveDocumentIndex(editor) == -1 && log.Lines.empty());
    editor.NewUntitledDocument();
    Access::SelectionEndValueSec(editor) = 0.5, editor.ViewEndSec = 3.0;
    log.Clear();
    editor.CloseActiveDocument();
    ASSERT_EQ(Access::Documents(editor).size(), 1u);
    EXPECT_EQ(Access::ActiveDocumentIndex(editor), 0);
    EXPECT_EQ(Mirror(editor), (State{"Untitled-2.ogg", 0, 0.0, 0.0, 0.1, 0.0, 0.0}));
    EXPECT_EQ(Record(editor, 0), Mirror(editor));
    EXPECT_TRUE(Access::bUsePcmFrames(editor));
    EXPECT_EQ(log.Lines, (Lines{"selection 0.000000 0.000000", "active Untitled-2.ogg"}));
}

TEST(DocumentStore, ClosingTheActiveTabBringsInItsRightNeighbourOrElseTheOneBeforeIt)
{
    // Which tab is active when closing; the unsaved change made to it is lost
    // with it, and C, never stored when it is closed, gives nothing to a record.
    struct Case { int Active; State Next; State Kept; Lines Signals; };
    const Case cases[] = {
        {1, C, C, {"selection 1.000000 2.500000", "active Untitled-3.ogg"}},
        {2, B, B, {"selection 0.500000 1.500000", "active Untitled-2.ogg"}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.Active);
        Tabs t;
        if (c.Active != 2)
            Access::LoadActiveDocument(t.Editor, c.Active);  // stores C
        Access::SelectionStartValueSec(t.Editor) = 0.2;
        t.Log.Clear();
        t.Editor.CloseActiveDocument();
        EXPECT_EQ(Access::ActiveDocumentIndex(t.Editor), 1);
        EXPECT_EQ(Mirror(t.Editor), c.Next);
        ASSERT_EQ(Access::Documents(t.Editor).size(), 2u);
        EXPECT_EQ(Record(t.Editor, 0), A);
        EXPECT_EQ(Record(t.Editor, 1), c.Kept);
        EXPECT_EQ(t.Log.Lines, c.Signals);
    }
}

TEST_F(ThreeDocuments, ClosingABackgroundTabKeepsTheActiveOneAndItsUnsavedStateButStopsPlayback)
{
    Editor.CurrentTimeSec = 1.7;  // 70% into C's view 1..2, so playing does not move the view
    std::string error;
    ASSERT_TRUE(Editor.PlayFromCurrentPosition(&error)) << error;
    Access::CloseDocument(Editor, 0);
    EXPECT_EQ(Access::ActiveDocumentIndex(Editor), 1);
    EXPECT_EQ(Mirror(Editor), C);
    EXPECT_TRUE(Record(Editor, 0) == B && Record(Editor, 1) == C);
    EXPECT_TRUE(!Editor.IsPlaybackActive() && Editor.CurrentTimeSec == 0.0);
    EXPECT_EQ(Log.Lines, (Lines{"selection 1.000000 2.500000", "active Untitled-3.ogg"}));
    Access::LoadActiveDocument(Editor, 0);
    Access::CloseDocument(Editor, 1);  // the tab behind the active one
    EXPECT_TRUE(Access::ActiveDocumentIndex(Editor) == 0 && Mirror(Editor) == B);
}

TEST_F(ThreeDocuments, SwitchingAwayAndBackKeepsABackwardSelectionAndStartsThePlayheadAtZero)
{
    Access::LoadActiveDocument(Editor, 0);
    Editor.CurrentTimeSec = 0.5;
    Log.Clear();
    Access::LoadActiveDocument(Editor, 2);
    EXPECT_EQ(Mirror(Editor), C);
    EXPECT_EQ(Record(Editor, 0), A);
    EXPECT_EQ(Editor.CurrentTimeSec, 0.0);
    Editor.CurrentTimeSec = 0.5;
    Access::LoadActiveDocument(Editor, 2);  // the active tab again: the whole load runs
    EXPECT_EQ(Editor.CurrentTimeSec, 0.0);
    EXPECT_EQ(Log.Lines, (Lines{"selection 1.000000 2.500000", "active Untitled-3.ogg",
                                "selection 1.000000 2.500000", "active Untitled-3.ogg"}));
    Editor.CurrentTimeSec = 0.5;
    Log.Clear();
    Access::LoadActiveDocument(Editor, -1);
    Access::LoadActiveDocument(Editor, 3);
    Access::CloseDocument(Editor, 3);
    EXPECT_TRUE(Editor.CurrentTimeSec == 0.5 && Access::Documents(Editor).size() == 3u && Log.Lines.empty());
}
