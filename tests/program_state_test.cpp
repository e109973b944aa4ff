// The program's state outside the editor: the command line, the persisted
// settings (a damaged file is set aside, never trusted), the modified marks
// that come from the editor's history position, and the background jobs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "glwaveedit.h"
#include "jobs.h"
#include "long_edits.h"
#include "options.h"
#include "program.h"
#include "session.h"
#include "settings.h"
#include "test_support.h"
#include "time_format.h"

namespace fs = std::filesystem;

namespace
{
bool Parse(std::vector<std::string> Words, Options& Out, std::string& Error)
{
    Words.insert(Words.begin(), "glwaveedit");
    std::vector<char*> argv;
    for (std::string& word : Words)
        argv.push_back(word.data());
    return ParseOptions(static_cast<int>(argv.size()), argv.data(), Out, Error);
}
}  // namespace

TEST(CommandLine, BatchStepsKeepTheirOrderAndBadOptionsAreRefused)
{
    Options options;
    std::string error;
    ASSERT_TRUE(Parse({"in.mp3", "--select", "1.0", "2.5", "--cut", "--gain", "80", "--save", "out.flac",
                       "--screenshot", "shot.png", "--frames", "7"},
                      options, error));
    EXPECT_EQ(options.ScreenshotPath, "shot.png");
    EXPECT_EQ(options.ScreenshotFrames, 7);
    ASSERT_EQ(options.Steps.size(), 4u);
    EXPECT_EQ(options.Steps[0].What, BatchStep::Select);
    EXPECT_EQ(options.Steps[0].B, 2.5);
    EXPECT_EQ(options.Steps[1].What, BatchStep::Cut);
    EXPECT_EQ(options.Steps[2].A, 80.0);
    EXPECT_EQ(options.Steps[3].Path, "out.flac");
    EXPECT_EQ(options.Files, std::vector<std::string>{"in.mp3"});
    EXPECT_TRUE(options.IsBatch());

    // A file may look like an option after "--".
    Options files;
    ASSERT_TRUE(Parse({"--", "-h", "--info"}, files, error));
    EXPECT_EQ(files.Files, (std::vector<std::string>{"-h", "--info"}));
    EXPECT_FALSE(files.bHelp);

    for (const std::vector<std::string>& bad :
         {std::vector<std::string>{"--help-me"}, {"-x"}, {"--select", "1"}, {"--select", "1", "nan"},
          {"--gain", "-5"}, {"--save"}, {"--frames", "0"}, {"--true-peak", "-1"}, {"--fade-in", "0"},
          {"--dc", "--true-peak", "-1"}})
    {
        Options refused;
        EXPECT_FALSE(Parse(bad, refused, error)) << bad.front();
    }
    Options help;
    ASSERT_TRUE(Parse({"-h"}, help, error));
    EXPECT_TRUE(help.bHelp);
}

TEST(PersistedSettings, SurviveARoundTripAndADamagedFileIsSetAsideWithAMessage)
{
    const std::string folder = ScratchPath("settings");
    fs::remove_all(folder);
    const std::string path = folder + "/glwaveedit/state.json";

    AppSettings written;
    written.bChannelLanes = false;
    written.LossyBitrateKbps = 256;
    written.WindowWidth = 900;
    written.Time = TimeFormat::Samples;
    written.EditorStateType = "wave_edit";
    written.EditorState = {{"view_start_sec", 1.5}};
    for (int i = 0; i < 12; ++i)
        AddRecentFile(written, "/music/" + std::to_string(i) + ".wav");
    AddRecentFile(written, "/music/3.wav");  // again: moves to the front, once
    ASSERT_EQ(written.RecentFiles.size(), kMaxRecentFiles);
    EXPECT_EQ(written.RecentFiles[0], "/music/3.wav");
    EXPECT_EQ(written.RecentFiles[1], "/music/11.wav");

    std::string error;
    ASSERT_TRUE(SaveSettings(path, written, error)) << error;
    AppSettings read;
    std::string message;
    LoadSettings(path, read, message);
    EXPECT_TRUE(message.empty()) << message;
    EXPECT_FALSE(read.bChannelLanes);
    EXPECT_EQ(read.LossyBitrateKbps, 256);
    EXPECT_EQ(read.WindowWidth, 900);
    EXPECT_EQ(read.Time, TimeFormat::Samples);
    EXPECT_EQ(read.RecentFiles, written.RecentFiles);
    EXPECT_EQ(read.EditorState["view_start_sec"], 1.5);

    // No file: the defaults, silently.
    LoadSettings(folder + "/none.json", read, message);
    EXPECT_TRUE(message.empty());
    EXPECT_EQ(read.LossyBitrateKbps, 192);

    // Broken JSON, a foreign file and wrong types are each set aside.
    for (const char* content :
         {"{\"program\": \"glwaveedit\", \"window\": {", "{\"name\": \"something else\"}",
          "{\"program\": \"glwaveedit\", \"window\": {\"width\": \"wide\"}}",
          "{\"program\": \"glwaveedit\", \"view\": {\"time_format\": \"fortnights\"}}", "[1, 2, 3]", ""})
    {
        std::ofstream(path, std::ios::trunc) << content;
        message.clear();
        LoadSettings(path, read, message);
        EXPECT_NE(message.find("set aside"), std::string::npos) << content;
        EXPECT_FALSE(fs::exists(path)) << content;
        EXPECT_EQ(read.WindowWidth, 1280) << content;
    }
    // Out-of-range values in a file of ours are held to what works.
    std::ofstream(path, std::ios::trunc)
        << R"({"program": "glwaveedit", "window": {"width": 5, "height": 100000}, "saving": {"lossy_bitrate_kbps": 0}})";
    LoadSettings(path, read, message);
    EXPECT_EQ(read.WindowWidth, 320);
    EXPECT_EQ(read.WindowHeight, 16384);
    EXPECT_EQ(read.LossyBitrateKbps, 32);
}

// Typed times: every way a user writes one, in each format, and what is
// refused with a reason; what is shown reads back as the same time.
TEST(TypedTimes, ReadClockSecondsAndSamplesAndRefuseTheRest)
{
    const struct
    {
        const char* Text;
        TimeFormat Format;
        double Seconds;
    } good[] = {
        {"1:02:03.5", TimeFormat::Clock, 3723.5},   {"2:03.25", TimeFormat::Clock, 123.25},
        {" 12.5 ", TimeFormat::Clock, 12.5},        {"12.5 s", TimeFormat::Seconds, 12.5},
        {"88200 smp", TimeFormat::Clock, 2.0},      {"88200", TimeFormat::Samples, 2.0},
        {"88200", TimeFormat::Seconds, 88200.0},    {"0.75", TimeFormat::Samples, 0.75},
    };
    for (const auto& c : good)
    {
        double seconds = -1.0;
        std::string error;
        EXPECT_TRUE(ParseTime(c.Text, c.Format, 44100, seconds, error)) << c.Text << ": " << error;
        EXPECT_DOUBLE_EQ(seconds, c.Seconds) << c.Text;
    }
    for (const char* bad : {"", "-3", "1:75", "1:2:3:4", "1.5:30", "abc", "12 smp x", "1.5 smp"})
    {
        double seconds = 0.0;
        std::string error;
        EXPECT_FALSE(ParseTime(bad, TimeFormat::Clock, 44100, seconds, error)) << bad;
        EXPECT_FALSE(error.empty()) << bad;
    }
    for (const TimeFormat format : {TimeFormat::Clock, TimeFormat::Seconds, TimeFormat::Samples})
        for (const double seconds : {0.0, 2.5, 61.25, 3725.125})
        {
            double read = -1.0;
            std::string error;
            ASSERT_TRUE(ParseTime(TimeText(seconds, format, 48000), format, 48000, read, error)) << error;
            EXPECT_NEAR(read, seconds, 1e-9) << TimeText(seconds, format, 48000);
        }
    EXPECT_EQ(AxisTimeText(2.0, 0.5, TimeFormat::Samples, 44100), "88200");
    EXPECT_EQ(AxisTimeText(2.25, 0.25, TimeFormat::Seconds, 44100), "2.25");
    EXPECT_EQ(AxisTimeText(2.25, 0.25, TimeFormat::Clock, 44100), "");  // the editor's own
}

TEST(ModifiedMarks, FollowTheHistoryPositionAndUndoBackToTheSavedStateClearsThem)
{
    TestHost host;
    GLWaveEdit editor;
    editor.EnableEditHistory(size_t(1) << 30);
    Session session;
    editor.AdoptDecodedDocument("a.wav", RampFrames(48000, 0.5f));
    const uint64_t id = editor.DocumentIdAt(0);
    EXPECT_FALSE(session.IsModified(editor, id));

    editor.SetHostedSelection(0.1, 0.2);
    editor.RequestDeleteSelection();
    EXPECT_TRUE(session.IsModified(editor, id));
    ASSERT_TRUE(editor.Undo());
    EXPECT_FALSE(session.IsModified(editor, id));  // back as opened
    ASSERT_TRUE(editor.Redo());
    session.Info(id).SavedStateId = editor.EditStateId();  // saved here
    EXPECT_FALSE(session.IsModified(editor, id));
    ASSERT_TRUE(editor.Undo());
    EXPECT_TRUE(session.IsModified(editor, id));  // undo after a save differs from the file
    EXPECT_EQ(session.ModifiedIds(editor), std::vector<uint64_t>{id});

    // The bookkeeping follows the tabs.
    editor.AdoptDecodedDocument("b.wav", RampFrames(100, 0.5f));
    session.Info(editor.DocumentIdAt(1)).SourcePath = "b.wav";
    editor.CloseDocumentAt(0);
    session.Prune(editor);
    EXPECT_EQ(session.Find(id), nullptr);
    EXPECT_NE(session.Find(editor.DocumentIdAt(0)), nullptr);
    EXPECT_EQ(session.IndexOf(editor, editor.DocumentIdAt(0)), 0);
}

TEST(BackgroundJobs, OpenSaveAndCancelOnTheirWorkersWhileTheCallerWaits)
{
    const std::string source = MakeFfmpegFixture("jobs.flac", "-f lavfi -i sine=f=440:d=2 -ac 2 -ar 48000");
    // Every finished job wakes the caller, who sleeps until then. Declared
    // before the jobs: a running task may still wake while they end.
    std::mutex wakeLock;
    std::condition_variable wake;
    int wakes = 0;
    Jobs work;
    work.OnFinished = [&] {
        std::lock_guard<std::mutex> hold(wakeLock);
        ++wakes;
        wake.notify_all();
    };
    // A missing file and a good one, one after the other, in order.
    work.QueueOpen(ScratchPath("no-such-file.wav"));
    work.QueueOpen(source);
    std::vector<OpenResult> results(2);
    for (OpenResult& result : results)
        while (!work.TakeOpened(result))
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_FALSE(results[0].bOk);
    EXPECT_EQ(results[0].Error, "File not found.");
    ASSERT_TRUE(results[1].bOk) << results[1].Error;
    EXPECT_EQ(results[1].Audio.Frames.size(), 2u * 96000u);  // 2 s at 48000 Hz, stereo
    EXPECT_FALSE(work.IsOpening());

    // The save copies the frames first; the caller may change them afterwards.
    std::vector<float> frames = results[1].Audio.Frames;
    const std::string target = ScratchPath("jobs-out.wav");
    std::filesystem::remove(target);
    SaveRequest request;
    request.DocumentId = 7;
    request.StateId = 3;
    request.Path = target;
    request.pFrames = &frames;
    ASSERT_TRUE(work.StartSave(request));
    EXPECT_FALSE(work.StartSave(request));  // one at a time
    while (work.IsSnapshotting())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::fill(frames.begin(), frames.end(), 0.0f);
    {
        // The wake-up comes with the result already there and the job over.
        std::unique_lock<std::mutex> hold(wakeLock);
        ASSERT_TRUE(wake.wait_for(hold, std::chrono::seconds(20), [&] { return wakes == 3; })) << wakes;
    }
    EXPECT_FALSE(work.IsSaving());
    SaveResult saved;
    ASSERT_TRUE(work.TakeSaved(saved));
    ASSERT_TRUE(saved.bOk) << saved.Error;
    EXPECT_EQ(saved.DocumentId, 7u);
    EXPECT_EQ(saved.StateId, 3u);
    GLWaveEdit editor;
    editor.SetExternalPeakWaveform(target, {}, 0.0);
    EXPECT_EQ(editor.ActiveFrames(), results[1].Audio.Frames);  // float WAV: what was copied, not the zeros

    // Cancelling drops what waits and stops what runs.
    for (int i = 0; i < 3; ++i)
        work.QueueOpen(source);
    work.CancelOpens();
    int finished = 0;
    OpenResult late;
    for (int i = 0; i < 400 && work.IsOpening(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    while (work.TakeOpened(late))
        ++finished;
    EXPECT_FALSE(work.IsOpening());
    EXPECT_LE(finished, 1);  // at most the one that was running
}

TEST(BackgroundJobs, EditsRunInTheirOrderOffTheFrameThreadAndTheirEndIsSeen)
{
    LongEdits edits;
    std::mutex lock;
    std::vector<int> ran;
    std::vector<std::thread::id> threads;
    std::atomic<bool> release{false};
    for (int i = 0; i < 3; ++i)
        edits.Queue("Edit", [&, i] {
            while (i == 0 && !release.load())
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            std::lock_guard<std::mutex> hold(lock);
            ran.push_back(i);
            threads.push_back(std::this_thread::get_id());
        });
    EXPECT_TRUE(edits.IsBusy());  // queued: the frame must leave the editor alone already
    EXPECT_FALSE(edits.IsRunning());
    edits.StartQueued();
    EXPECT_TRUE(edits.IsRunning());
    EXPECT_FALSE(edits.WaitForEnd(20));  // the first is held
    release = true;
    ASSERT_TRUE(edits.WaitForEnd(10000));
    EXPECT_FALSE(edits.IsBusy());
    std::lock_guard<std::mutex> hold(lock);
    EXPECT_EQ(ran, (std::vector<int>{0, 1, 2}));
    for (const std::thread::id& id : threads)
        EXPECT_NE(id, std::this_thread::get_id());
}

TEST(PlaybackAfterAnEdit, ThePositionFollowsTheAudioThroughACutAndAPasteAndStaysThroughAGain)
{
    GLWaveEdit editor;
    editor.AdoptDecodedDocument("ramp.wav", RampFrames(4 * 48000, 1e-6f));
    editor.SetHostedSelection(1.0, 1.5);
    editor.RequestCutSelection();
    EXPECT_DOUBLE_EQ(PositionAfterEdit(0.5, editor.LastEdit()), 0.5);
    EXPECT_DOUBLE_EQ(PositionAfterEdit(1.2, editor.LastEdit()), 1.0);  // inside the cut: where it was
    EXPECT_DOUBLE_EQ(PositionAfterEdit(3.0, editor.LastEdit()), 2.5);  // after it: 0.5 s earlier
    editor.SetHostedSelection(2.0, 2.1);
    editor.RequestPasteAtSelection();
    EXPECT_DOUBLE_EQ(PositionAfterEdit(2.05, editor.LastEdit()), 2.0);
    EXPECT_DOUBLE_EQ(PositionAfterEdit(3.0, editor.LastEdit()), 3.4);  // 3.0 + 0.5 pasted - 0.1 replaced
    ASSERT_TRUE(editor.ApplyGainPercent(50.0));
    EXPECT_DOUBLE_EQ(PositionAfterEdit(2.2, editor.LastEdit()), 2.2);  // in place: it stays
}
