// The opt-in edit history: what undo restores besides the frames, the cap,
// and with the history off nothing of the editor's behaviour changes. Undo
// and redo sample for sample across random edits and tabs: document_store_test.
#include <gtest/gtest.h>

#include <random>
#include <tuple>

#include "test_support.h"

namespace
{

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
}  // namespace

TEST(EditHistory, UndoRestoresSelectionAndViewAndEndsLikeEveryEdit)
{
    TestHost host;
    GLWaveEdit editor;
    editor.EnableEditHistory(size_t(1) << 30);
    OpenRamp(editor, 4.0, 1.0f);
    editor.ViewStartSec = 0.5, editor.ViewEndSec = 3.5;
    editor.SetHostedSelection(1.0, 2.0);
    SignalLog log(editor);
    editor.RequestCutSelection();  // frames 48000..95999 go; the selection collapses at 1.0
    editor.ViewStartSec = 0.0, editor.ViewEndSec = 3.0;
    log.Clear();

    ASSERT_TRUE(editor.Undo());
    EXPECT_EQ(log.Lines, (Lines{"edit undo 1.000000 2.000000", "selection 1.000000 2.000000"}));
    EXPECT_EQ(std::make_tuple(editor.SelectionStartSec(), editor.SelectionEndSec(), editor.ViewStartSec, editor.ViewEndSec),
              std::make_tuple(1.0, 2.0, 0.5, 3.5));
    EXPECT_EQ(editor.ActiveFrames(), RampFrames(4 * 48000, 1.0f));
    log.Clear();

    ASSERT_TRUE(editor.Redo());  // back to what undo found: the cut, its collapsed selection and view
    EXPECT_EQ(log.Lines, (Lines{"edit redo 1.000000 2.000000", "selection 0.000000 0.000000"}));
    EXPECT_EQ(editor.ActiveFrames().size(), 2u * 3 * 48000);
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
    std::vector<std::vector<float>> states{editor.ActiveFrames()};
    for (int i = 0; i < 5; ++i)
    {
        ASSERT_TRUE(editor.ApplyGainPercent(150.0));
        states.push_back(editor.ActiveFrames());
    }
    EXPECT_TRUE(editor.HistoryDroppedSteps());
    EXPECT_LE(editor.HistoryBytes(), 1000000u);
    ASSERT_TRUE(editor.Undo());
    EXPECT_EQ(editor.ActiveFrames(), states[4]);
    ASSERT_TRUE(editor.Undo());
    EXPECT_EQ(editor.ActiveFrames(), states[3]);
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
    EXPECT_TRUE(plain.ActiveFrames() == recording.ActiveFrames());
    plainLog.Clear();
    const std::vector<float> before = plain.ActiveFrames();
    EXPECT_FALSE(plain.CanUndo() || plain.Undo() || plain.Redo() || plain.HistoryBytes() != 0);
    EXPECT_TRUE(plainLog.Lines.empty() && plain.ActiveFrames() == before);
    recording.EnableEditHistory(0);  // turning it off drops what was stored
    EXPECT_FALSE(recording.CanUndo() || recording.HistoryBytes() != 0);
}
