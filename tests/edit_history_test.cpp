// The opt-in edit history: undo and redo give back every earlier state sample
// for sample, per document, within a cap; with the history off nothing of
// the editor's behaviour changes. Also the two other extensions the program
// builds on: adopting a decoded document and the tab views.
#include <gtest/gtest.h>

#include <random>

#include "test_support.h"

namespace
{
using Lines = std::vector<std::string>;

struct Snapshot
{
    std::vector<float> Frames;
    uint64_t StateId;
};

Snapshot Take(GLWaveEdit& Editor)
{
    return {Access::PcmFrames(Editor), Editor.EditStateId()};
}

// A PCM document of Seconds whose frames are a ramp scaled by Scale, so that
// every document and every frame is told apart.
void OpenRamp(GLWaveEdit& Editor, double Seconds, float Scale)
{
    Editor.AdoptDecodedDocument("ramp" + std::to_string(Scale) + ".wav",
                                RampFrames(static_cast<size_t>(Seconds * 48000), Scale));
}

// One random edit on a random span of the active document.
void RandomEdit(GLWaveEdit& Editor, std::mt19937& Random)
{
    const double duration = Editor.DurationSec;
    std::uniform_real_distribution<double> at(0.0, duration);
    Editor.SetHostedSelection(at(Random), at(Random));
    switch (Random() % 5)
    {
    case 0: Editor.RequestCutSelection(); break;
    case 1: Editor.RequestDeleteSelection(); break;
    case 2: Editor.RequestCopySelection(); break;
    case 3: Editor.RequestPasteAtSelection(); break;
    default: Editor.ApplyGainPercent(std::uniform_real_distribution<double>(0.0, 400.0)(Random)); break;
    }
}

void ExpectState(GLWaveEdit& Editor, const Snapshot& Want, const std::string& Where)
{
    // Exact equality of every sample: operator== on the vectors.
    ASSERT_TRUE(Access::PcmFrames(Editor) == Want.Frames) << Where;
    EXPECT_EQ(Editor.EditStateId(), Want.StateId) << Where;
    EXPECT_EQ(Editor.DurationSec, static_cast<double>(Want.Frames.size() / 2) / 48000.0) << Where;
    // The record follows the mirror, as after every edit.
    EXPECT_TRUE(Access::RecordFrames(Editor, Access::ActiveDocumentIndex(Editor)) == Want.Frames) << Where;
}
}  // namespace

TEST(EditHistory, UndoAndRedoOfRandomEditsAcrossTabsGiveBackEveryStateSampleForSample)
{
    TestHost host;
    GLWaveEdit editor;
    editor.EnableEditHistory(size_t(1) << 30);
    OpenRamp(editor, 0.5, 1.0f);
    OpenRamp(editor, 0.3, -2.0f);
    std::mt19937 random(20261123);

    // Per document, the state after each edit, starting with the state as opened.
    std::vector<std::vector<Snapshot>> states(2);
    for (int doc = 0; doc < 2; ++doc)
    {
        editor.ActivateDocument(doc);
        states[doc].push_back(Take(editor));
    }
    for (int step = 0; step < 60; ++step)
    {
        const int doc = static_cast<int>(random() % 2);
        editor.ActivateDocument(doc);  // the history survives switching
        const uint64_t before = editor.EditStateId();
        RandomEdit(editor, random);
        if (editor.EditStateId() != before)
            states[doc].push_back(Take(editor));
    }
    ASSERT_GT(states[0].size() + states[1].size(), 30u);  // most edits changed something

    for (int doc = 0; doc < 2; ++doc)
    {
        editor.ActivateDocument(doc);
        for (size_t i = states[doc].size() - 1; i > 0; --i)
        {
            ASSERT_TRUE(editor.CanUndo());
            ASSERT_TRUE(editor.Undo());
            ExpectState(editor, states[doc][i - 1], "undo to state " + std::to_string(i - 1));
        }
        EXPECT_FALSE(editor.CanUndo());
        EXPECT_EQ(editor.EditStateId(), 0u);  // as opened
        for (size_t i = 1; i < states[doc].size(); ++i)
        {
            ASSERT_TRUE(editor.Redo());
            ExpectState(editor, states[doc][i], "redo to state " + std::to_string(i));
        }
        EXPECT_FALSE(editor.CanRedo());
    }
    // Closing a tab ends its history; the other keeps its own.
    editor.ActivateDocument(0);
    editor.CloseDocumentAt(0);
    EXPECT_TRUE(editor.CanUndo() == (states[1].size() > 1));
}

TEST(EditHistory, UndoRestoresSelectionAndViewAndEndsLikeEveryEdit)
{
    TestHost host;
    GLWaveEdit editor;
    editor.EnableEditHistory(size_t(1) << 30);
    OpenRamp(editor, 4.0, 1.0f);
    editor.ViewStartSec = 0.5;
    editor.ViewEndSec = 3.5;
    editor.SetHostedSelection(1.0, 2.0);
    SignalLog log(editor);
    editor.RequestCutSelection();  // frames 48000..95999 go; the selection collapses at 1.0
    editor.ViewStartSec = 0.0;
    editor.ViewEndSec = 3.0;
    log.Clear();

    ASSERT_TRUE(editor.Undo());
    EXPECT_EQ(log.Lines, (Lines{"edit undo 1.000000 2.000000", "selection 1.000000 2.000000"}));
    EXPECT_EQ(Access::SelectionStartValueSec(editor), 1.0);
    EXPECT_EQ(Access::SelectionEndValueSec(editor), 2.0);
    EXPECT_EQ(editor.ViewStartSec, 0.5);
    EXPECT_EQ(editor.ViewEndSec, 3.5);
    EXPECT_EQ(Access::PcmFrames(editor), RampFrames(4 * 48000, 1.0f));
    log.Clear();

    ASSERT_TRUE(editor.Redo());  // back to what undo found: the cut, its collapsed selection and view
    EXPECT_EQ(log.Lines, (Lines{"edit redo 1.000000 2.000000", "selection 0.000000 0.000000"}));
    EXPECT_EQ(Access::PcmFrames(editor).size(), 2u * 3 * 48000);
    EXPECT_EQ(editor.ViewEndSec, 3.0);
}

TEST(EditHistory, TheCapDropsTheOldestStepsAndNeverTheNewest)
{
    TestHost host;
    GLWaveEdit editor;
    // Each gain on a 1 s stereo document stores 48000 x 2 floats = 384000 bytes;
    // a cap of 1 MB keeps two of them.
    editor.EnableEditHistory(1000000);
    OpenRamp(editor, 1.0, 0.000001f);
    std::vector<std::vector<float>> states{Access::PcmFrames(editor)};
    for (int i = 0; i < 5; ++i)
    {
        ASSERT_TRUE(editor.ApplyGainPercent(150.0));
        states.push_back(Access::PcmFrames(editor));
    }
    EXPECT_TRUE(editor.HistoryDroppedSteps());
    EXPECT_LE(editor.HistoryBytes(), 1000000u);
    ASSERT_TRUE(editor.Undo());
    EXPECT_EQ(Access::PcmFrames(editor), states[4]);
    ASSERT_TRUE(editor.Undo());
    EXPECT_EQ(Access::PcmFrames(editor), states[3]);
    EXPECT_FALSE(editor.CanUndo());
    EXPECT_NE(editor.EditStateId(), 0u);  // not the state as opened: that one is gone

    // A new edit after undo drops what could be redone.
    ASSERT_TRUE(editor.ApplyGainPercent(50.0));
    EXPECT_FALSE(editor.CanRedo());

    // A step larger than the whole cap is not kept, and nothing before it
    // can be undone any more; the state still reads as changed.
    const uint64_t before = editor.EditStateId();
    editor.EnableEditHistory(100000);  // below one gain's 384000 bytes
    ASSERT_TRUE(editor.ApplyGainPercent(120.0));
    EXPECT_FALSE(editor.CanUndo());
    EXPECT_NE(editor.EditStateId(), before);
    EXPECT_EQ(editor.HistoryBytes(), 0u);
}

TEST(EditHistory, OffByDefaultAndWhenOffTheEditorBehavesExactlyAsWithout)
{
    TestHost host;
    GLWaveEdit plain;
    GLWaveEdit recording;
    recording.EnableEditHistory(size_t(1) << 30);
    EXPECT_FALSE(plain.IsEditHistoryEnabled());
    SignalLog plainLog(plain);
    SignalLog recordingLog(recording);
    for (GLWaveEdit* editor : {&plain, &recording})
    {
        OpenRamp(*editor, 0.5, 1.0f);
        std::mt19937 random(7);
        for (int step = 0; step < 40; ++step)
            RandomEdit(*editor, random);
    }
    // Recording changes no signal and no sample of the edits themselves.
    EXPECT_EQ(plainLog.Lines, recordingLog.Lines);
    EXPECT_TRUE(Access::PcmFrames(plain) == Access::PcmFrames(recording));

    plainLog.Clear();
    const std::vector<float> before = Access::PcmFrames(plain);
    EXPECT_FALSE(plain.CanUndo());
    EXPECT_FALSE(plain.Undo());
    EXPECT_FALSE(plain.Redo());
    EXPECT_TRUE(plainLog.Lines.empty());
    EXPECT_TRUE(Access::PcmFrames(plain) == before);
    EXPECT_EQ(plain.HistoryBytes(), 0u);

    // Turning it off drops what was stored.
    recording.EnableEditHistory(0);
    EXPECT_FALSE(recording.CanUndo());
    EXPECT_EQ(recording.HistoryBytes(), 0u);
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
    EXPECT_EQ(Access::PcmFrames(editor).data(), data);  // moved in
    EXPECT_TRUE(Access::bUsePcmFrames(editor));
    EXPECT_FALSE(Access::bUseExternalPeaks(editor));
    EXPECT_EQ(editor.DurationSec, 0.5);  // 24000 / 48000
    EXPECT_EQ(editor.ViewStartSec, 0.0);
    EXPECT_EQ(editor.ViewEndSec, 0.5);
    EXPECT_EQ(editor.ActiveDocument(), 1);
    EXPECT_EQ(editor.DocumentCount(), 2);
    EXPECT_EQ(Access::RecordFrames(editor, 1), Access::PcmFrames(editor));
    EXPECT_EQ(editor.DocumentPathAt(1), "/music/take.flac");
    EXPECT_EQ(editor.DocumentPathAt(2), "");

    // Ids stay with their tabs when another closes.
    const uint64_t second = editor.DocumentIdAt(1);
    EXPECT_NE(editor.DocumentIdAt(0), second);
    editor.CloseDocumentAt(0);
    EXPECT_EQ(editor.DocumentIdAt(0), second);
    EXPECT_EQ(editor.DocumentIdAt(1), 0u);

    // Left for another tab, a document's frames move into its record, uncopied.
    editor.AdoptDecodedDocument("/music/b.flac", RampFrames(4800, 2.0f));
    EXPECT_EQ(Access::RecordFrames(editor, 0).data(), data);
    EXPECT_EQ(Access::RecordFrames(editor, 1), RampFrames(4800, 2.0f));

    // Nothing decoded: a tab without PCM, as a failed decode gives.
    editor.AdoptDecodedDocument("empty.wav", {});
    EXPECT_FALSE(Access::bUsePcmFrames(editor));
    EXPECT_EQ(editor.DurationSec, 0.0);
}

TEST(CloseRequests, AClickOnACloseBoxOrTheTabMenuAsksTheHostFirst)
{
    TestHost host;
    GLWaveEdit editor;
    editor.X1 = -1.0, editor.Y1 = 1.0, editor.X2 = 1.0, editor.Y2 = -1.0;
    OpenRamp(editor, 0.5, 1.0f);
    OpenRamp(editor, 0.5, 2.0f);
    std::vector<int> asked;
    bool allow = false;
    editor.CloseRequestProvider = [&](int Index) {
        asked.push_back(Index);
        return allow;
    };
    Access::UpdatePlotRect(editor, false);
    // The first tab's close box: scan its row for the spot the hit test names.
    double boxX = 0.0, boxY = 0.0;
    for (double x = -1.0; x < 1.0 && boxX == 0.0; x += 0.001)
        for (double y = 1.0; y > 0.8 && boxX == 0.0; y -= 0.002)
            if (Access::HitTestDocumentTabClose(editor, x, y) == 0)
                boxX = x, boxY = y;
    ASSERT_NE(boxX, 0.0);
    editor.EventMouseClick(0, boxX, boxY);
    EXPECT_EQ(asked, std::vector<int>{0});
    EXPECT_EQ(editor.DocumentCount(), 2);  // withheld
    allow = true;
    editor.EventMouseClick(0, boxX, boxY);
    EXPECT_EQ(editor.DocumentCount(), 1);
}
