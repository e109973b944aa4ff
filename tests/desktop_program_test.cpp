// The desktop program end to end: a real window under Xvfb driven by real
// input (xdotool), checked by the files on disk, the window's title (which
// carries the modified mark) and the pixels of screenshots; and the batch
// mode, checked by its output and exit status.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include <nlohmann/json.hpp>

#include "desktop_harness.h"
#include "test_support.h"

namespace fs = std::filesystem;

namespace
{
const std::string kProgram = GLWE_PROGRAM_PATH;

// The frame count `--info` reports for Path, or -1.
long long InfoFrames(const std::string& Path)
{
    const std::string out = ShellOutput("'" + kProgram + "' --info '" + Path + "' 2>/dev/null");
    const size_t at = out.find("frames: ");
    return at == std::string::npos ? -1 : std::stoll(out.substr(at + 8));
}

// The window's place and size on the display.
struct Geometry
{
    int X = 0, Y = 0, Width = 0, Height = 0;
};

Geometry WindowGeometry(const VirtualDisplay& Display, const RunningProgram& Run)
{
    const std::string shell =
        ShellOutput("DISPLAY=" + Display.Name() + " xdotool getwindowgeometry --shell " + Run.WindowId);
    Geometry g;
    std::sscanf(shell.c_str(), "WINDOW=%*d\nX=%d\nY=%d\nWIDTH=%d\nHEIGHT=%d", &g.X, &g.Y, &g.Width, &g.Height);
    return g;
}

class DesktopProgram : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!Display.IsUp())
            GTEST_SKIP() << "no Xvfb here";
        Home = ScratchPath(std::string("home-") + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(Home);
        fs::create_directories(Home);
    }
    // A shift-drag across the plot between two fractions of the window's width.
    void DragSelect(RunningProgram& Run, double From, double To)
    {
        const Geometry g = WindowGeometry(Display, Run);
        const int y = g.Height / 2;
        const std::string window = " --window " + Run.WindowId + " ";
        Run.Xdotool("mousemove" + window + std::to_string(int(g.Width * From)) + " " + std::to_string(y));
        SleepSeconds(0.2);
        Run.Xdotool("keydown shift");
        Run.Xdotool("mousedown 1");
        SleepSeconds(0.2);
        for (int step = 1; step <= 4; ++step)
        {
            const double at = From + (To - From) * step / 4.0;
            Run.Xdotool("mousemove" + window + std::to_string(int(g.Width * at)) + " " + std::to_string(y));
            SleepSeconds(0.1);
        }
        Run.Xdotool("mouseup 1");
        Run.Xdotool("keyup shift");
        SleepSeconds(0.2);
    }
    VirtualDisplay Display;
    std::string Home;
};
}  // namespace

TEST_F(DesktopProgram, AnEditedFileSavesAsANewFileTheSourceStaysAndTheGuardsKeepEverything)
{
    const std::string source =
        MakeFfmpegFixture("source.wav", "-f lavfi -i sine=f=440:d=3 -ac 1 -ar 44100 -c:a pcm_s16le");
    const std::string sourceBytes = ReadFileBytes(source);
    const std::string saved = (fs::path(source).parent_path() / "source (edited).wav").string();
    fs::remove(saved);

    RunningProgram run(Display, {source}, Home);
    ASSERT_FALSE(run.WindowId.empty());
    ASSERT_TRUE(run.WaitForTitle("source.wav", 20.0)) << run.Title();
    EXPECT_EQ(run.Title().rfind("* ", 0), std::string::npos);  // not modified yet

    DragSelect(run, 0.3, 0.6);
    run.Key("Delete");
    ASSERT_TRUE(run.WaitForTitle("* source.wav", 5.0)) << run.Title();

    // Ctrl+S on a file that was opened asks where to save, then in what
    // format; the defaults are a new file in the source's own format, and
    // the window then goes by the new file's name.
    run.Key("ctrl+s");
    run.Key("Return");
    run.Key("Return");
    ASSERT_TRUE(WaitUntil([&] { return fs::exists(saved); }, 20.0));
    ASSERT_TRUE(run.WaitForTitle("source (edited).wav - GLWaveEdit", 20.0, true)) << run.Title();
    EXPECT_TRUE(ReadFileBytes(source) == sourceBytes);  // byte for byte
    EXPECT_EQ(ShellOutput("ffprobe -v error -show_entries stream=codec_name,sample_rate,channels -of csv=p=0 '" +
                          saved + "'"),
              "pcm_s16le,44100,1\n");
    // 3 s at 44100 Hz is 132300 samples; the drag took roughly a third of the plot.
    const long long samples =
        std::stoll("0" + ShellOutput("ffprobe -v error -show_entries stream=duration_ts -of csv=p=0 '" + saved + "'"));
    EXPECT_GT(samples, 132300 * 0.4);
    EXPECT_LT(samples, 132300 * 0.9);

    // Undo after the save makes the document differ from the file again.
    run.Key("ctrl+z");
    ASSERT_TRUE(run.WaitForTitle("* source (edited).wav", 5.0)) << run.Title();

    // Ctrl+W and Ctrl+Q on the modified tab ask; Esc (Cancel) keeps everything.
    Screenshot before;
    ASSERT_TRUE(before.Take(Display));
    for (const char* keys : {"ctrl+w", "ctrl+q"})
    {
        run.Key(keys);
        Screenshot asking;
        ASSERT_TRUE(asking.Take(Display));
        EXPECT_NE(asking.Bytes, before.Bytes) << keys << ": no question showed";
        run.Key("Escape");
        EXPECT_TRUE(run.IsRunning()) << keys;
        EXPECT_TRUE(run.WaitForTitle("* source (edited).wav", 2.0)) << keys << ": " << run.Title();
    }
    EXPECT_TRUE(ReadFileBytes(source) == sourceBytes);
}

// Edits run off the frame thread; keys that come while one runs wait their
// turn. A burst of select all, cut, paste, clear the selection and paste
// again on five minutes (the cut alone moves 58 MB) must leave exactly two
// copies; Ctrl+S and Return sent while they may still run must save them.
TEST_F(DesktopProgram, KeysSentDuringALongEditAreAllTakenInOrder)
{
    const std::string source = MakeFfmpegFixture("burst.wav", "-f lavfi -i sine=f=440:d=300 -ac 2 -ar 48000");
    const std::string saved = (fs::path(source).parent_path() / "burst (edited).wav").string();
    fs::remove(saved);
    RunningProgram run(Display, {source}, Home);
    ASSERT_FALSE(run.WindowId.empty());
    ASSERT_TRUE(run.WaitForTitle("burst.wav", 20.0)) << run.Title();

    run.Xdotool("key --window " + run.WindowId + " --delay 5 ctrl+a ctrl+x ctrl+v c ctrl+v");
    ASSERT_TRUE(run.WaitForTitle("* burst.wav", 20.0)) << run.Title();
    run.Key("ctrl+s");
    run.Key("Return");
    run.Key("Return");
    ASSERT_TRUE(WaitUntil([&] { return fs::exists(saved); }, 30.0));
    ASSERT_TRUE(run.WaitForTitle("burst (edited).wav - GLWaveEdit", 30.0, true)) << run.Title();
    EXPECT_EQ(InfoFrames(saved), 2LL * 300 * 48000);
}

TEST_F(DesktopProgram, AClickSeeksAndABadFileShowsItsReasonInTheStatusBarWithoutATab)
{
    const std::string good = MakeFfmpegFixture("click.wav", "-f lavfi -i sine=f=220:d=4 -ac 2 -ar 48000");
    const std::string bad = ScratchPath("fake.mp3");
    std::ofstream(bad) << "not audio";
    RunningProgram run(Display, {good, bad}, Home);
    ASSERT_FALSE(run.WindowId.empty());
    ASSERT_TRUE(run.WaitForTitle("click.wav", 20.0));
    SleepSeconds(1.0);  // the bad file's turn

    const Geometry g = WindowGeometry(Display, run);
    Screenshot shot;
    ASSERT_TRUE(shot.Take(Display));
    // The error colour (255, 115, 102) in the status bar at the bottom of the window.
    EXPECT_GT(shot.Count(g.X, g.Y + g.Height - 30, g.X + g.Width / 2, g.Y + g.Height, {255, 115, 102}, 40), 20);
    EXPECT_EQ(run.Title(), "click.wav - GLWaveEdit");

    // One xdotool click (press and release together) on the plot moves the
    // playhead, drawn in (102, 242, 140), to that column.
    const int clickX = g.Width / 4;
    run.Xdotool("mousemove --window " + run.WindowId + " " + std::to_string(clickX) + " " +
                std::to_string(g.Height / 2));
    run.Xdotool("click 1");
    SleepSeconds(0.5);
    ASSERT_TRUE(shot.Take(Display));
    const int top = g.Y + 80;
    const int bottom = g.Y + g.Height - 80;
    EXPECT_GT(shot.Count(g.X + clickX - 3, top, g.X + clickX + 4, bottom, {102, 242, 140}, 40), 50);
}

TEST_F(DesktopProgram, FramesAreDrawnWhileAnHourLongFileLoads)
{
    // The batch mode's hour: a twenty-minute file now opens within a second.
    const std::string file =
        MakeFfmpegFixture("hour.mp3", "-f lavfi -i sine=f=440:d=3600 -ac 2 -ar 44100 -b:a 192k");
    RunningProgram run(Display, {file}, Home);
    ASSERT_FALSE(run.WindowId.empty());
    const Geometry g = WindowGeometry(Display, run);
    // Frames while it loads: the menu bar, ImGui's dark (36, 36, 36) along
    // the top, is drawn, and the frames change as the progress moves.
    Screenshot first;
    int menuPixels = 0;
    for (double waited = 0.0; waited < 3.0 && menuPixels < g.Width * 4; waited += 0.1)
    {
        ASSERT_TRUE(first.Take(Display));
        menuPixels = first.Count(g.X, g.Y, g.X + g.Width, g.Y + 18, {36, 36, 36}, 8);
    }
    SleepSeconds(0.4);
    Screenshot second;
    ASSERT_TRUE(second.Take(Display));
    const bool stillLoading = run.Title().find("hour.mp3") == std::string::npos;
    ASSERT_TRUE(stillLoading) << "loaded before the frames were taken; the check proves nothing";
    EXPECT_GT(menuPixels, g.Width * 4);
    EXPECT_NE(first.Bytes, second.Bytes);
    EXPECT_TRUE(run.WaitForTitle("hour.mp3", 60.0));
}

TEST(BatchMode, MarkersOfALabelFileFollowACutIntoTheSavedWavAndTheExportedLabels)
{
    const std::string source = MakeFfmpegFixture("marked.wav", "-f lavfi -i sine=f=440:d=4 -ac 2 -ar 48000");
    ASSERT_FALSE(source.empty());
    const std::string labels = ScratchPath("marked-in.txt");
    const std::string outLabels = ScratchPath("marked-out.txt");
    const std::string out = ScratchPath("marked-cut.wav");
    fs::remove(out);
    WriteFileBytes(labels, "1.000000\t1.000000\tOne\n2.000000\t3.000000\tTwo\n");
    ASSERT_EQ(RunShell("'" + kProgram + "' '" + source + "' --markers '" + labels + "' --add-marker 0.25 'Early on'" +
                       " --select 0.5 1.5 --cut --export-markers '" + outLabels + "' --save '" + out + "'"),
              0);
    // The cut of 0.5..1.5 s takes "One" with it and moves "Two" back by 1 s.
    EXPECT_EQ(ReadFileBytes(outLabels), "0.250000\t0.250000\tEarly on\n1.000000\t2.000000\tTwo\n");
    // FFmpeg reads the saved file's cue points as chapters.
    EXPECT_EQ(ShellOutput("ffprobe -v error -show_chapters -show_entries chapter=start_time:chapter_tags=title "
                          "-of csv=p=0 '" + out + "'"),
              "0.250000,Early on\n1.000000,Two\n");
}

TEST(BatchMode, TrimFadeAndLoudnessToMinus16AsFfmpegMeasuresTheSavedFile)
{
    // Half a second of silence, then pink noise.
    const std::string source = MakeFfmpegFixture(
        "talk.wav", "-f lavfi -i \"anoisesrc=color=pink:amplitude=0.2:seed=5:d=12,adelay=500:all=1\" -ac 2 -ar 48000");
    const std::string out = ScratchPath("talk-16.wav");
    fs::remove(out);
    ASSERT_EQ(RunShell("'" + kProgram + "' '" + source + "' --trim-silence -80 --fade-in 0.5 --fade-out 1 --loudness -16 "
                       "--save '" + out + "'"),
              0);
    EXPECT_EQ(InfoFrames(out), 12LL * 48000);  // the 0.5 s of silence went, nothing else
    const std::string measured =
        ShellOutput("ffmpeg -hide_banner -nostats -i '" + out + "' -af ebur128=peak=true -f null - 2>&1");
    const size_t summary = measured.rfind("Summary:");
    ASSERT_NE(summary, std::string::npos) << measured;
    const size_t at = measured.find("I:", summary);
    ASSERT_NE(at, std::string::npos);
    EXPECT_NEAR(std::stod(measured.substr(at + 2)), -16.0, 0.1) << measured.substr(summary);

    const std::string info = ShellOutput("'" + kProgram + "' '" + out + "' --info");
    EXPECT_NE(info.find("integrated loudness: -16.0 LUFS"), std::string::npos) << info;
    // A target the ceiling refuses changes nothing and says what can be reached.
    const std::string refused = ShellOutput("'" + kProgram + "' '" + out + "' --loudness 0 --true-peak -1 --save '" +
                                            ScratchPath("talk-0.wav") + "' 2>&1; echo rc=$?");
    EXPECT_NE(refused.find("LUFS is the loudest within it"), std::string::npos) << refused;
    EXPECT_NE(refused.find("rc=1"), std::string::npos) << refused;
}

TEST(BatchMode, OptionsAreCheckedAndFailuresSayWhyWithAnExitStatus)
{
    const std::string help = ShellOutput("'" + kProgram + "' --help");
    EXPECT_NE(help.find("--info"), std::string::npos);
    EXPECT_NE(help.find("Ctrl+Z"), std::string::npos);
    EXPECT_EQ(RunShell("'" + kProgram + "' -h >/dev/null"), 0);
    EXPECT_EQ(RunShell("'" + kProgram + "' --frobnicate 2>/dev/null"), 2);
    EXPECT_EQ(RunShell("'" + kProgram + "' --select 1 2>/dev/null"), 2);

    const std::string missing = ShellOutput("'" + kProgram + "' --info /nonexistent/take.wav 2>&1; echo rc=$?");
    EXPECT_NE(missing.find("not found"), std::string::npos) << missing;
    EXPECT_NE(missing.find("rc=1"), std::string::npos);

    // Without any display the program says so instead of hanging.
    const std::string headless =
        ShellOutput("env -u DISPLAY -u WAYLAND_DISPLAY timeout 20 '" + kProgram + "' 2>&1; echo rc=$?");
    EXPECT_NE(headless.find("no display"), std::string::npos) << headless;
    EXPECT_NE(headless.find("rc=1"), std::string::npos) << headless;
}

TEST_F(DesktopProgram, EditsComeBackAfterAKillHoweverTheProgramIsStartedAgain)
{
    const std::string source = MakeFfmpegFixture("journal.wav", "-f lavfi -i sine=f=523:d=2 -ac 2 -ar 48000");
    const std::string other = MakeFfmpegFixture("other.wav", "-f lavfi -i sine=f=330:d=1 -ac 2 -ar 48000");
    const std::string expected = ScratchPath("journal-expected.wav");
    fs::remove(expected);
    // The same five edits in the batch mode: the cut of everything and its
    // paste at the start give the frames back, so three gains remain.
    ASSERT_EQ(RunShell("'" + kProgram + "' '" + source + "' --gain 90 --gain 90 --gain 110 --save '" + expected +
                       "' 2>/dev/null"),
              0);
    // Started again on the same file (its tab takes the edits), without a
    // file, and on another file, each at once after the kill.
    const std::vector<std::vector<std::string>> roads = {{source}, {}, {other}};
    for (size_t road = 0; road < roads.size(); ++road)
    {
        SCOPED_TRACE("road " + std::to_string(road));
        const std::string restored = ScratchPath("journal-restored-" + std::to_string(road) + ".wav");
        fs::remove(restored);
        {
            RunningProgram first(Display, {source}, Home);
            ASSERT_TRUE(first.WaitForTitle("journal.wav", 20.0));
            for (const char* keys : {"ctrl+a", "ctrl+Down", "ctrl+Down", "ctrl+x", "ctrl+v", "ctrl+Up"})
                first.Key(keys);
            ASSERT_TRUE(first.WaitForTitle("* journal.wav", 5.0)) << first.Title();
            SleepSeconds(1.0);  // within a second, the journal is on the disk
        }  // killed with SIGKILL here

        RunningProgram second(Display, roads[road], Home);
        ASSERT_FALSE(second.WindowId.empty());
        second.Key("Return");  // "Restore", the question's default
        ASSERT_TRUE(second.WaitForTitle("* journal.wav", 20.0)) << second.Title();
        second.Key("ctrl+s");
        second.Key("ctrl+a");  // the path field holds the suggestion: replace it
        second.Xdotool("type --delay 5 '" + restored + "'");
        second.Key("Return");
        second.Key("Return");  // the save format: the source's
        ASSERT_TRUE(WaitUntil([&] { return fs::exists(restored); }, 20.0));
        ASSERT_TRUE(second.WaitForTitle(fs::path(restored).filename().string() + " - GLWaveEdit", 20.0, true))
            << second.Title();
        // Both saved as the source's 16-bit WAV from equal frames: equal files.
        EXPECT_TRUE(ReadFileBytes(restored) == ReadFileBytes(expected));
    }
}

// The keys that move around and a click on the overview, checked by the view
// and selection the program keeps at exit; and the amplitude scale beside the audio: the columns right
// of the plot's left edge are waveform, the gutter left of it is not.
TEST_F(DesktopProgram, KeysZoomStepAndSelectAndTheScaleHidesNoAudio)
{
    const std::string file = MakeFfmpegFixture("nav.wav", "-f lavfi -i 'aevalsrc=0.9*sin(2*PI*220*t):d=20:s=48000' -ac 1");
    RunningProgram run(Display, {file}, Home);
    ASSERT_TRUE(run.WaitForTitle("nav.wav", 20.0));
    SleepSeconds(1.0);

    // Window margin 4 px, half the editor's 8 px padding, the 64 px gutter.
    const Geometry g = WindowGeometry(Display, run);
    const int plotX1 = g.X + 4 + 4 + 64;
    Screenshot shot;
    ASSERT_TRUE(shot.Take(Display));
    // The middle of the upper lane (the editor plays mono on both sides),
    // off the pointer's hover line.
    const int midY = g.Y + g.Height * 3 / 10;
    const Rgb fill = shot.At(g.X + g.Width / 2 + 37, midY);  // the sine's
    const int area = 6 * 30;
    EXPECT_GT(shot.Count(plotX1 + 3, midY - 15, plotX1 + 9, midY + 15, fill, 12), area * 9 / 10);
    EXPECT_LT(shot.Count(plotX1 - 12, midY - 15, plotX1 - 6, midY + 15, fill, 12), area / 10);

    // Fitted to 0..20 s, the play position at 0: two zooms in keep it at the
    // left edge (0..5); on a tenth of the view each to 1.5 s; the selection
    // out to 2.5 s and its moving edge back to 2.0; the view zoomed to it
    // (1.5 .. 2.0) and back out to 0..5; a page on: 5..10.
    for (const char* key : {"ctrl+1", "ctrl+1", "Right", "Right", "Right", "Left", "Right", "shift+Right", "shift+Right",
                            "shift+Left", "ctrl+e", "ctrl+2", "Next"})
        run.Key(key);
    SleepSeconds(0.5);
    // A click on the overview strip (under the menu bar, over the plot's
    // times) at 15 s centres the 5 s view there.
    const int stripX = 8 + 64 + (g.Width - 16 - 64) * 3 / 4;
    run.Xdotool("mousemove --window " + run.WindowId + " " + std::to_string(stripX) + " 37");
    SleepSeconds(0.2);
    run.Xdotool("click 1");
    SleepSeconds(0.5);
    run.Key("ctrl+q");
    ASSERT_EQ(run.WaitForExit(20.0), 0);

    std::ifstream in(Home + "/config/glwaveedit/state.json");
    const nlohmann::json state = nlohmann::json::parse(in, nullptr, false);
    ASSERT_FALSE(state.is_discarded());
    const nlohmann::json& editor = state["editor"]["state"];
    EXPECT_NEAR(editor.value("view_start_sec", -1.0), 12.5, 0.1);
    EXPECT_NEAR(editor.value("view_end_sec", -1.0) - editor.value("view_start_sec", -1.0), 5.0, 1e-6);
    EXPECT_NEAR(editor.value("selection_start_sec", -1.0), 1.5, 1e-6);
    EXPECT_NEAR(editor.value("selection_end_sec", -1.0), 2.0, 1e-6);
}
