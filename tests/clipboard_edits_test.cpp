// Copy, cut, paste and delete on the active document's frames, checked frame
// by frame on ramps whose frame f holds (f, -f).
#include <gtest/gtest.h>

#include "test_support.h"

namespace
{

struct Rig
{
    GLWaveEdit Editor;
    SignalLog Log{Editor};

    // A document of Seconds at 48000 Hz, frame f = (f, -f).
    explicit Rig(double Seconds)
    {
        Editor.AdoptDecodedDocument("ramp.wav", RampFrames(static_cast<size_t>(Seconds * 48000), 1.0f));
        Log.Clear();
    }
    void Select(double A, double B) { Access::SelectionStartValueSec(Editor) = A, Access::SelectionEndValueSec(Editor) = B; }
    std::pair<double, double> Raw() { return {Access::SelectionStartValueSec(Editor), Access::SelectionEndValueSec(Editor)}; }
    std::vector<float>& Frames() { return Access::PcmFrames(Editor); }
    // The left samples of some frames, to compare with the frame numbers they should hold.
    std::vector<float> Lefts(std::initializer_list<size_t> Frames)
    {
        std::vector<float> out;
        for (size_t f : Frames)
            out.push_back(this->Frames().at(2 * f));
        return out;
    }
    size_t FrameCount() { return Frames().size() / 2; }
};
}  // namespace

TEST(ClipboardEdits, CutMovesTheRangeToTheClipboardAndPasteAtTheHoverBringsItBackWhilePlaying)
{
    Rig r(4.0);
    std::string error;
    ASSERT_TRUE(r.Editor.PlayFromCurrentPosition(&error)) << error;  // the player has its own copy
    Access::ExternalPeaks(r.Editor) = {0.5f, 0.25f};
    r.Select(2.0, 1.0);  // backwards: frames 48000..95999
    r.Editor.RequestCutSelection();
    EXPECT_EQ(r.Log.Lines, (Lines{"edit copy 1.000000 2.000000", "edit cut 1.000000 2.000000",
                                  "selection 0.000000 0.000000"}));
    ASSERT_EQ(r.FrameCount(), 144000u);
    EXPECT_EQ(r.Lefts({47999, 48000, 143999}), (std::vector<float>{47999, 96000, 191999}));
    const auto& clip = Access::ClipboardFrames(r.Editor);
    ASSERT_EQ(clip.size(), 2u * 48000u);
    EXPECT_TRUE(clip.front() == 48000.0f && clip[clip.size() - 2] == 95999.0f);
    EXPECT_EQ(r.Editor.DurationSec, 3.0);  // 144000 / 48000
    EXPECT_EQ(r.Raw(), (std::pair{1.0, 1.0}));
    const auto& record = Access::Document(r.Editor, 0);
    EXPECT_TRUE(Access::RecordFrames(r.Editor, 0) == r.Frames() && record.DurationSec == 3.0 && record.SelectionStartSec == 1.0 &&
                record.SelectionEndSec == 1.0);
    EXPECT_EQ(Access::ExternalPeaks(r.Editor), (std::vector<float>{0.5f, 0.25f}));
    r.Log.Clear();
    Access::HoverTimeSec(r.Editor) = 0.5;  // no selection: the hover decides, frame 24000
    r.Editor.RequestPasteAtSelection();
    EXPECT_EQ(r.Log.Lines, (Lines{"edit paste 0.500000 1.500000", "selection 0.500000 1.500000"}));
    ASSERT_EQ(r.FrameCount(), 192000u);
    EXPECT_EQ(r.Lefts({23999, 24000, 72000}), (std::vector<float>{23999, 48000, 24000}));
    EXPECT_EQ(r.Editor.DurationSec, 4.0);
    const std::vector<float> once = r.Frames();
    r.Editor.RequestPasteAtSelection();  // over the pasted, selected audio: the same again
    EXPECT_EQ(r.Frames(), once);
    EXPECT_EQ(clip.size(), 2u * 48000u);
    EXPECT_TRUE(r.Editor.IsPlaybackActive());
}

TEST(ClipboardEdits, DeleteCollapsesAtTheStartAndDeletingEverythingLeavesAnEditableDocument)
{
    Rig r(4.0);
    r.Select(1.0, 2.0);
    r.Editor.RequestDeleteSelection();
    EXPECT_EQ(r.Log.Lines, (Lines{"edit delete 1.000000 2.000000", "selection 0.000000 0.000000"}));
    EXPECT_EQ(r.Lefts({48000}), std::vector<float>{96000});
    EXPECT_TRUE(Access::ClipboardFrames(r.Editor).empty());
    EXPECT_EQ(Access::Document(r.Editor, 0).SelectionEndSec, 1.0);
    r.Select(0.0, 0.5);
    r.Editor.RequestCopySelection();
    r.Select(0.0, 3.0);
    r.Editor.RequestDeleteSelection();
    EXPECT_TRUE(r.Frames().empty() && r.Editor.DurationSec == 0.0 && Access::bUsePcmFrames(r.Editor));
    r.Log.Clear();
    Access::HoverTimeSec(r.Editor) = 2.0;  // nothing to be inside: frame 0
    r.Editor.RequestPasteAtSelection();
    EXPECT_EQ(r.Frames(), Access::ClipboardFrames(r.Editor));
    EXPECT_EQ(r.Log.Lines, (Lines{"edit paste 0.000000 0.500000", "selection 0.000000 0.500000"}));
}

TEST(ClipboardEdits, EmptyRangesAndUnusableAudioAreRefusedSilently)
{
    Rig r(4.0);
    r.Select(0.0, 0.25);
    r.Editor.RequestCopySelection();  // frames 0..11999
    r.Log.Clear();
    const std::vector<float> before = r.Frames(), clip = Access::ClipboardFrames(r.Editor);
    // 1.000002 s is frame 48000.096, which rounds to 48000 at both ends; 5..6 s
    // lies wholly behind the last frame; 0..0 is no selection. Without usable
    // PCM, or with a clipboard of another rate, paste is refused as well.
    struct Case { double A, B; bool bPcm; int Rate; };
    for (const Case& c : {Case{1.0, 1.000002, true, 48000}, Case{5.0, 6.0, true, 48000}, Case{0.0, 0.0, true, 48000},
                          Case{1.0, 2.0, false, 48000}, Case{1.0, 2.0, true, 44100}})
    {
        SCOPED_TRACE(std::to_string(c.A) + " " + std::to_string(c.bPcm) + " " + std::to_string(c.Rate));
        r.Select(c.A, c.B);
        Access::bUsePcmFrames(r.Editor) = c.bPcm, Access::PcmSampleRate(r.Editor) = c.Rate;
        if (c.Rate == 48000)  // a copy at another rate is allowed: it only refuses to paste
            r.Editor.RequestCopySelection(), r.Editor.RequestCutSelection(), r.Editor.RequestDeleteSelection();
        if (c.B == 2.0)
            r.Editor.RequestPasteAtSelection();
        EXPECT_EQ(r.Frames(), before);
        EXPECT_EQ(Access::ClipboardFrames(r.Editor), clip);
        EXPECT_TRUE(r.Log.Lines.empty());
    }
    Access::bUsePcmFrames(r.Editor) = true, Access::PcmSampleRate(r.Editor) = 48000;
    r.Select(1.0, 1.000002);  // paste over the empty range removes nothing, inserts at 48000
    r.Editor.RequestPasteAtSelection();
    EXPECT_EQ(r.FrameCount(), 192000u + 12000u);
    EXPECT_EQ(r.Lefts({47999, 48000, 60000}), (std::vector<float>{47999, 0, 48000}));
    EXPECT_EQ(r.Log.Lines, (Lines{"edit paste 1.000000 1.250000", "selection 1.000000 1.250000"}));
}

TEST(ClipboardEdits, OneClipboardServesEveryDocumentAndOutlivesItsSource)
{
    Rig r(4.0);
    r.Select(1.0, 1.5);
    r.Editor.RequestCopySelection();
    r.Editor.CloseActiveDocument();  // the source goes; a new untitled document takes its place
    EXPECT_EQ(r.Editor.SourcePath(), "Untitled-1.ogg");
    r.Log.Clear();
    Access::HoverTimeSec(r.Editor) = 3.0;
    r.Editor.RequestPasteAtSelection();
    EXPECT_EQ(r.Frames(), Access::ClipboardFrames(r.Editor));
    EXPECT_EQ(r.Editor.DurationSec, 0.5);
    r.Editor.ClearSelection(false);
    Access::HoverTimeSec(r.Editor) = 9.0;  // past the end: appended
    r.Editor.RequestPasteAtSelection();
    ASSERT_EQ(r.FrameCount(), 48000u);
    EXPECT_EQ(r.Lefts({24000}), std::vector<float>{48000});
    EXPECT_EQ(Access::RecordFrames(r.Editor, 0), r.Frames());
    EXPECT_EQ(r.Log.Lines, (Lines{"edit paste 0.000000 0.500000", "selection 0.000000 0.500000",
                                  "edit paste 0.500000 1.000000", "selection 0.500000 1.000000"}));
}
