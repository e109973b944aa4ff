// The crash journal: a journal belongs to the program that holds its lock,
// whatever its name says; a journal that cannot be written says so until a
// later entry gets every waiting one onto the disk; a replay leaves the
// user's clipboard and pointer time alone and announces its selection.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>

#include "program.h"
#include "recovery.h"
#include "test_support.h"

namespace fs = std::filesystem;

namespace
{
// A state folder of the test's own, from an empty start.
std::string FreshStateHome(const std::string& Name)
{
    const std::string home = ScratchPath(Name);
    fs::remove_all(home);
    fs::create_directories(home);
    setenv("XDG_STATE_HOME", home.c_str(), 1);
    return home;
}

JournalEntry Entry(const char* Kind, int64_t Start, int64_t End, std::vector<float> Inserted = {})
{
    JournalEntry entry;
    entry.Kind = Kind;
    entry.StartFrame = Start;
    entry.EndFrame = End;
    entry.Percent = 50.0;
    entry.Inserted = std::move(Inserted);
    return entry;
}

// The journal in the folder, which must be the only file there.
FoundJournal TheOneJournal()
{
    FoundJournal found;
    const std::vector<fs::directory_entry> files(fs::directory_iterator(Journal::Folder()), {});
    EXPECT_EQ(files.size(), 1u);
    EXPECT_TRUE(!files.empty() && Journal::Read(files[0].path().string(), found));
    return found;
}

std::vector<std::string> KindsOf(const std::vector<JournalEntry>& Entries)
{
    std::vector<std::string> kinds;
    for (const JournalEntry& entry : Entries)
        kinds.push_back(entry.Kind + " " + std::to_string(entry.StartFrame) + " " + std::to_string(entry.EndFrame));
    return kinds;
}
}  // namespace

TEST(RecoveryJournal, BelongsToWhoeverHoldsItsLockNotToThePidInItsName)
{
    FreshStateHome("journal-lock");
    fs::create_directories(Journal::Folder());
    // Named after PID 1, which is alive: still an orphan, since nobody holds it.
    std::ofstream(Journal::Folder() + "/1-7.journal") << "{\"glwaveedit_journal\":1,\"base\":\"\"}\n"
                                                      << "{\"kind\":\"gain\",\"start\":0,\"end\":10,\"percent\":50}\n";
    {
        std::vector<FoundJournal> found = Journal::FindOrphans();
        ASSERT_EQ(found.size(), 1u);
        EXPECT_EQ(KindsOf(found[0].Entries), std::vector<std::string>{"gain 0 10"});
        // While this program considers it, a second one does not see it.
        EXPECT_TRUE(Journal::FindOrphans().empty());
    }
    ASSERT_EQ(Journal::FindOrphans().size(), 1u);
    fs::remove(Journal::Folder() + "/1-7.journal");

    // A running program's journal is never taken; once it is gone (killed:
    // no clean end removed the file), its journal is offered.
    auto running = std::make_unique<Journal>();
    running->Record(3, "", Entry("cut", 10, 20));
    running->Record(3, "", Entry("paste", 5, 5, {0.25f, -0.5f, 1.0f, 2.0f}));
    running->Flush();
    EXPECT_TRUE(Journal::FindOrphans().empty());
    running.reset();
    std::vector<FoundJournal> orphans = Journal::FindOrphans();
    ASSERT_EQ(orphans.size(), 1u);
    EXPECT_EQ(KindsOf(orphans[0].Entries), (std::vector<std::string>{"cut 10 20", "paste 5 5"}));
    EXPECT_EQ(orphans[0].Entries[1].Inserted, (std::vector<float>{0.25f, -0.5f, 1.0f, 2.0f}));

    // Taken over after a crash that cut an entry short: the stub goes, and
    // what follows is readable.
    std::ofstream(orphans[0].Path, std::ios::app) << "{\"kind\":\"cu";
    Journal next;
    next.Adopt(8, orphans[0]);
    next.Record(8, "", Entry("delete", 1, 2));
    next.Flush();
    FoundJournal reread;
    ASSERT_TRUE(Journal::Read(orphans[0].Path, reread));
    EXPECT_EQ(KindsOf(reread.Entries), (std::vector<std::string>{"cut 10 20", "paste 5 5", "delete 1 2"}));
}

TEST(RecoveryJournal, SaysEditsAreNotProtectedWhileItCannotWriteAndCatchesUpAfter)
{
    const std::string home = FreshStateHome("journal-full");
    const std::string folder = home + "/glwaveedit";
    // A full disk where this machine lets a test mount one; elsewhere a folder
    // that cannot be made, which the journal reports the same way.
    struct Mounted
    {
        std::string At;
        ~Mounted() { umount(At.c_str()); }
    };
    const bool bFullDisk = mount("tmpfs", home.c_str(), "tmpfs", 0, "size=96k") == 0;
    const Mounted unmount{bFullDisk ? home : ""};
    const std::string filler = folder + "/filler";
    if (bFullDisk)
    {
        fs::create_directories(folder);
        std::ofstream(filler) << std::string(80 * 1024, 'x');
    }
    else
        std::ofstream(folder) << "in the way";

    Journal journal;
    const std::vector<float> pasted(8192, 0.125f);  // 32 KiB: more than is left
    journal.Record(1, "", Entry("paste", 0, 0, pasted));
    journal.Record(1, "", Entry("gain", 0, 100));
    journal.Flush();
    const std::string problem = journal.Problem();
    EXPECT_NE(problem.find("not protected"), std::string::npos) << problem;

    fs::remove(bFullDisk ? filler : folder);
    journal.Record(1, "", Entry("delete", 3, 4));
    journal.Flush();
    EXPECT_EQ(journal.Problem(), "");
    // Every waiting entry went down in order with the one that succeeded.
    const FoundJournal written = TheOneJournal();
    EXPECT_EQ(KindsOf(written.Entries), (std::vector<std::string>{"paste 0 0", "gain 0 100", "delete 3 4"}));
    EXPECT_EQ(written.Entries.at(0).Inserted, pasted);
    journal.ForgetAll();
}

TEST(RecoveryJournal, ReplayLeavesTheClipboardAndPointerTimeAndAnnouncesTheSelection)
{
    TestHost host;
    GLWaveEdit editor(1);
    editor.Init();
    editor.AdoptDecodedDocument("ramp.wav", RampFrames(48000, 1e-5f));
    editor.SetHostedSelection(0.5, 0.75);
    editor.RequestCopySelection();
    const std::vector<float> clipboard = Access::ClipboardFrames(editor);
    Access::HoverTimeSec(editor) = 0.3;
    editor.ClearSelection(false);

    const std::vector<float> inserted = ConstantFrames(100, 0.5f, -0.5f);
    ASSERT_TRUE(editor.ReplayEdit("paste", 1000, 1000, 0.0, inserted));
    EXPECT_EQ(std::vector<float>(editor.ActiveFrames().begin() + 2000, editor.ActiveFrames().begin() + 2200), inserted);
    EXPECT_EQ(Access::ClipboardFrames(editor), clipboard);
    EXPECT_EQ(Access::HoverTimeSec(editor), 0.3);

    SignalLog log(editor);
    ASSERT_TRUE(editor.ReplayEdit("gain", 4800, 9600, 50.0, {}));
    ASSERT_FALSE(log.Lines.empty());
    EXPECT_EQ(log.Lines.back(), "selection 0.100000 0.200000");
    ASSERT_TRUE(editor.ReplayEdit("gain", 0, 48100, 50.0, {}));
    EXPECT_FALSE(editor.HasSelection());  // the whole document was gained without one
    EXPECT_EQ(log.Lines.back(), "selection 0.000000 0.000000");
    editor.Destroy();
}

TEST(RecoveryJournal, EffectsComeBackFromTheirLinesSampleForSample)
{
    FreshStateHome("journal-effects");
    GLWaveEdit edited;
    const std::vector<float> original = RampFrames(48000, 1e-5f);
    edited.AdoptDecodedDocument("ramp.wav", std::vector<float>(original));
    // Each effect as the program journals it: what it is and the frames it took.
    const std::vector<std::pair<GLWaveEdit::Effect, std::pair<double, double>>> steps = {
        {{"fade-in", 1, 0}, {0.1, 0.4}},   {{"highpass", 80, 0}, {0, 0}},     {{"loudness", -40, -1}, {0, 0}},
        {{"reverse", 0, 0}, {0.2, 0.3}},   {{"insert-silence", 0.25, 0}, {0, 0}}, {{"trim-silence", -40, 0}, {0, 0}},
    };
    Journal journal;
    for (const auto& [what, selection] : steps)
    {
        edited.SetHostedSelection(selection.first, selection.second);
        edited.CurrentTimeSec = 0.6;
        GLWaveEdit::EffectSpan span;
        std::string error;
        ASSERT_TRUE(edited.ApplyEffect(what, &error, &span)) << what.Name << ": " << error;
        JournalEntry entry = Entry("effect", span.StartFrame, span.EndFrame);
        entry.Effect = what.Name, entry.EffectA = what.A, entry.EffectB = what.B, entry.bWhole = span.bWhole;
        journal.Record(1, "", std::move(entry));
    }
    journal.Flush();
    ASSERT_EQ(journal.Problem(), "");

    const FoundJournal found = TheOneJournal();
    ASSERT_EQ(found.Entries.size(), steps.size());
    GLWaveEdit replayed;
    replayed.AdoptDecodedDocument("ramp.wav", std::vector<float>(original));
    for (const JournalEntry& entry : found.Entries)
        ASSERT_TRUE(replayed.ApplyEffectToFrames({entry.Effect, entry.EffectA, entry.EffectB},
                                                 {entry.StartFrame, entry.EndFrame, entry.bWhole}))
            << entry.Effect;
    EXPECT_TRUE(replayed.ActiveFrames() == edited.ActiveFrames());
    EXPECT_FALSE(replayed.ActiveFrames() == original);
    journal.ForgetAll();
}

// Each line keeps its edit's frame record; a replay that does not change the
// frames the record names does not count as restored, and a line written
// before the records were kept still replays.
TEST(RecoveryJournal, EditsReplayFromTheirFrameRecordsAndOlderLinesStillRestore)
{
    FreshStateHome("journal-records");
    const std::vector<float> original = RampFrames(48000, 1e-5f);
    GLWaveEdit edited;
    edited.EnableEditHistory(64 << 20);
    edited.AdoptDecodedDocument("ramp.wav", std::vector<float>(original));
    Journal journal;
    const auto edit = [&](const std::function<void()>& Make) {
        Make();
        journal.Record(1, "", JournalEntryOfLastEdit(edited));
    };
    edit([&] { edited.SetHostedSelection(0.25, 0.5); edited.RequestCutSelection(); });
    edit([&] { edited.SetHostedSelection(0.1, 0.125); edited.RequestPasteAtSelection(); });
    edit([&] { edited.ApplyGainPercent(50.0); });
    edit([&] { edited.Undo(); });
    journal.Flush();
    std::vector<fs::path> files(fs::directory_iterator(Journal::Folder()), fs::directory_iterator());
    ASSERT_EQ(files.size(), 1u);
    FoundJournal found;
    ASSERT_TRUE(Journal::Read(files[0].string(), found));
    ASSERT_EQ(found.Entries.size(), 4u);
    // The paste put the cut's 0.25 s = 12000 frames in place of 0.1..0.125 s,
    // frames 4800..6000.
    EXPECT_EQ(KindsOf({found.Entries[1]}), std::vector<std::string>{"paste 4800 6000"});
    EXPECT_EQ(found.Entries[1].InsertedFrames, 12000);

    GLWaveEdit replayed;
    replayed.EnableEditHistory(64 << 20);
    replayed.AdoptDecodedDocument("ramp.wav", std::vector<float>(original));
    for (const JournalEntry& entry : found.Entries)
        EXPECT_TRUE(ReplayJournalEntry(replayed, entry)) << entry.Kind;
    EXPECT_TRUE(replayed.ActiveFrames() == edited.ActiveFrames());
    journal.ForgetAll();

    // A cut of frames 4800..9600 as journals wrote it before, and the same
    // line with a record that a cut cannot make.
    const std::string oldLine = R"({"end":9600,"inserted":0,"kind":"cut","percent":0.0,"start":4800})";
    const std::string path = Journal::Folder() + "/older.journal";
    std::ofstream(path) << R"({"base":"","glwaveedit_journal":1})" << "\n"
                        << oldLine << "\n"
                        << oldLine.substr(0, oldLine.size() - 1) << R"(,"inserted_frames":5})" << "\n";
    ASSERT_TRUE(Journal::Read(path, found));
    ASSERT_EQ(found.Entries.size(), 2u);
    EXPECT_EQ(found.Entries[0].InsertedFrames, -1);
    GLWaveEdit restored;
    restored.AdoptDecodedDocument("ramp.wav", std::vector<float>(original));
    EXPECT_TRUE(ReplayJournalEntry(restored, found.Entries[0]));
    std::vector<float> cut = original;
    cut.erase(cut.begin() + 4800 * 2, cut.begin() + 9600 * 2);
    EXPECT_TRUE(restored.ActiveFrames() == cut);
    EXPECT_FALSE(ReplayJournalEntry(restored, found.Entries[1]));
    fs::remove(path);
}
