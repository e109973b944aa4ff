// The tabs: new documents, switching between them and closing them, with the
// active document's state in the mirror and each tab's in its record.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>

#include "test_support.h"

namespace
{
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
    return {d.SourceFilePath, Access::RecordFrames(E, Index).size(), d.DurationSec, d.ViewStartSec, d.ViewEndSec,
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

TEST(AdoptedDocuments, ComeInAsADecodedFileDoesWithTheSameSignalsAndNoCopyOfTheFrames)
{
    TestHost host;
    GLWaveEdit editor;
    editor.NewUntitledDocument();
    editor.SetHostedSelection(0.0, 0.0);
    SignalLog log(editor);
    std::vector<float> frames = RampFrames(24000, 1.0f);
    const float* data = frames.data();
    editor.AdoptDecodedDocument("/music/take.flac", std::move(frames));

    EXPECT_EQ(log.Lines, (Lines{"active /music/take.flac"}));
    EXPECT_EQ(editor.ActiveFrames().data(), data);  // moved in
    EXPECT_TRUE(Access::bUsePcmFrames(editor) && !Access::bUseExternalPeaks(editor));
    EXPECT_TRUE(editor.DurationSec == 0.5 && editor.ViewStartSec == 0.0 && editor.ViewEndSec == 0.5);  // 24000 / 48000
    EXPECT_TRUE(editor.ActiveDocument() == 1 && editor.DocumentCount() == 2);
    EXPECT_EQ(editor.DocumentPathAt(1), "/music/take.flac");
    EXPECT_EQ(editor.DocumentPathAt(2), "");

    editor.CloseDocumentAt(0);

    // Left for another tab, a document's frames move into its record, uncopied.
    editor.AdoptDecodedDocument("/music/b.flac", RampFrames(4800, 2.0f));
    EXPECT_EQ(Access::RecordFrames(editor, 0).data(), data);
    EXPECT_EQ(Access::RecordFrames(editor, 1), RampFrames(4800, 2.0f));

    // Nothing decoded: a tab without PCM, as a failed decode gives.
    editor.AdoptDecodedDocument("empty.wav", {});
    EXPECT_FALSE(Access::bUsePcmFrames(editor));
    EXPECT_EQ(editor.DurationSec, 0.0);
}

// Each document's frames exist once: the active one's are the mirror's, and
// move into its record only when it is left. Random opens, new tabs,
// switches (to the active tab too), closes, edits, undos and redos over up to
// three documents are followed by a model that keeps every document's frames
// and history apart, as if each store copied them; after every step each
// record holds exactly the model's frames, the active record holds none of
// its own, and undo and redo lead back to the very frames and state ids
// that each document had (the history belongs to its tab).
TEST(DocumentStore, RecordsAndHistoriesHoldEveryDocumentsFramesThroughRandomTabsAndEdits)
{
    struct State
    {
        std::vector<float> Frames;
        uint64_t Id = 0;  // the editor's state id; 0 as opened
    };
    struct ModelDocument
    {
        std::string Path;
        State Now;
        std::vector<State> Undo, Redo;
    };
    for (const unsigned seed : {7u, 2024u})
    {
        TestHost host;
        GLWaveEdit editor;
        editor.EnableEditHistory(size_t(1) << 30);
        editor.NewUntitledDocument();
        std::vector<ModelDocument> docs{{"Untitled-1.ogg", {}, {}, {}}};
        int active = 0, untitled = 2, opened = 0;
        std::vector<float> clipboard;
        std::mt19937 random(seed);
        const auto pick = [&random](int Count) { return static_cast<int>(random() % static_cast<unsigned>(Count)); };
        for (int step = 0; step < 1500; ++step)
        {
            ModelDocument& doc = docs[static_cast<size_t>(active)];
            const int frames = static_cast<int>(doc.Now.Frames.size() / 2);
            const int what = pick(10);
            const bool canEdit = frames >= 2;
            int a = canEdit ? pick(frames) : 0, b = canEdit ? pick(frames + 1) : 0;
            if (a > b)
                std::swap(a, b);
            b = std::max(b, a + 1);
            const auto select = [&] { editor.SetHostedSelection(a / 48000.0, b / 48000.0); };
            const auto edit = [&](std::vector<float> Next) {
                doc.Undo.push_back(doc.Now);
                doc.Redo.clear();
                doc.Now = {std::move(Next), editor.EditStateId()};
            };
            std::vector<float> next = doc.Now.Frames;
            if (what == 0 && docs.size() < 3)
            {
                // Ramps of their own scale: every document and frame differs.
                const std::string path = "doc" + std::to_string(++opened) + ".wav";
                std::vector<float> ramp = RampFrames(static_cast<size_t>(2000 + pick(4000)), 1e-5f * opened);
                docs.push_back({path, {ramp, 0}, {}, {}});
                editor.AdoptDecodedDocument(path, std::move(ramp));
                active = static_cast<int>(docs.size()) - 1;
            }
            else if (what == 1 && docs.size() < 3)
            {
                editor.NewUntitledDocument();
                docs.push_back({"Untitled-" + std::to_string(untitled++) + ".ogg", {}, {}, {}});
                active = static_cast<int>(docs.size()) - 1;
            }
            else if (what == 2)
            {
                active = pick(static_cast<int>(docs.size()));
                Access::LoadActiveDocument(editor, active);  // as a click on a tab, the active one too
            }
            else if (what == 3 && docs.size() > 1)
            {
                const int closing = pick(static_cast<int>(docs.size()));
                editor.CloseDocumentAt(closing);
                docs.erase(docs.begin() + closing);
                const int last = static_cast<int>(docs.size()) - 1;
                active = closing == active ? std::min(closing, last) : active - (active > closing ? 1 : 0);
            }
            else if (what >= 4 && what <= 6 && canEdit && (what != 6 || !clipboard.empty()))
            {
                // Cut, delete or paste: the selected frames go, the clipboard's come in.
                select();
                if (what == 4)
                    editor.RequestCutSelection(), clipboard.assign(next.begin() + 2 * a, next.begin() + 2 * b);
                else
                    what == 5 ? editor.RequestDeleteSelection() : editor.RequestPasteAtSelection();
                next.erase(next.begin() + 2 * a, next.begin() + 2 * b);
                if (what == 6)
                    next.insert(next.begin() + 2 * a, clipboard.begin(), clipboard.end());
                edit(next);
            }
            else if (what == 7 && canEdit)
            {
                const double percent = pick(2) ? 150.0 : 50.0;
                select();
                ASSERT_TRUE(editor.ApplyGainPercent(percent));
                for (int i = 2 * a; i < 2 * b; ++i)
                    next[static_cast<size_t>(i)] =
                        std::clamp(next[static_cast<size_t>(i)] * static_cast<float>(percent / 100.0), -1.0f, 1.0f);
                edit(next);
            }
            else if ((what == 8 && !doc.Undo.empty()) || (what == 9 && !doc.Redo.empty()))
            {
                std::vector<State>& from = what == 8 ? doc.Undo : doc.Redo;
                ASSERT_TRUE(what == 8 ? editor.Undo() : editor.Redo());
                (what == 8 ? doc.Redo : doc.Undo).push_back(doc.Now);
                doc.Now = from.back();
                from.pop_back();
            }
            const std::string where = "seed " + std::to_string(seed) + ", step " + std::to_string(step) + ", kind " +
                                      std::to_string(what);
            ASSERT_EQ(editor.DocumentCount(), static_cast<int>(docs.size())) << where;
            ASSERT_EQ(editor.ActiveDocument(), active) << where;
            const ModelDocument& now = docs[static_cast<size_t>(active)];
            ASSERT_TRUE(editor.ActiveFrames() == now.Now.Frames) << where;
            EXPECT_TRUE(editor.EditStateId() == now.Now.Id &&
                        editor.DurationSec == static_cast<double>(now.Now.Frames.size() / 2) / 48000.0)
                << where;
            EXPECT_TRUE(editor.CanUndo() == !now.Undo.empty() && editor.CanRedo() == !now.Redo.empty()) << where;
            EXPECT_EQ(Access::Document(editor, active).PcmFrames.capacity(), 0u) << where;
            for (int i = 0; i < editor.DocumentCount(); ++i)
            {
                ASSERT_EQ(Access::Document(editor, i).SourceFilePath, docs[static_cast<size_t>(i)].Path) << where;
                ASSERT_TRUE(Access::RecordFrames(editor, i) == docs[static_cast<size_t>(i)].Now.Frames) << where << ", tab " << i;
            }
        }
    }
}
