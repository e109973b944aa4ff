// Saves that replace a file whole or not at all: no name in the folder before
// the file is complete, progress and cancel, symbolic links followed, and a
// process killed in the middle of a save. Each case runs both through the
// unnamed file (O_TMPFILE) and the named temporary that stands in for it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <random>
#include <thread>

#include "audio_codec_internal.h"
#include "replacement_file.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kRateHz = 48000;
constexpr int kChannels = 2;
const std::string kOldBytes = "the file that was there before the save";

struct TemporaryMode
{
    const char* Name;
    bool bNamedOnly;
};
constexpr TemporaryMode kModes[] = {{"unnamed", false}, {"named", true}};

// An empty folder of its own for each case, so that cases running side by
// side never see each other's files.
std::string FreshFolder(const std::string& Name)
{
    const std::string folder = ScratchPath("crash_safe_save_test_" + Name);
    fs::remove_all(folder);
    fs::create_directories(folder);
    return folder;
}

std::vector<std::string> NamesIn(const std::string& Folder)
{
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(Folder, error), end; !error && entry != end; entry.increment(error))
        names.push_back(entry->path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// Stereo white noise at half scale: FLAC works hard on it, so a save lasts
// long enough to be watched and interrupted.
std::vector<float> Noise(double Seconds)
{
    std::mt19937 generator(7);
    std::uniform_real_distribution<float> level(-0.5f, 0.5f);
    std::vector<float> samples(static_cast<size_t>(Seconds * kRateHz) * kChannels);
    for (float& sample : samples)
        sample = level(generator);
    return samples;
}

bool Save(const std::string& Path, const std::vector<float>& Samples, const EncodeOptions& Options,
          std::string* ErrorMessage)
{
    return TarvikEncodeFloatAudioFileWith(Path, Samples.data(), Samples.size(), kRateHz, kChannels, Options,
                                          ErrorMessage);
}

// Calls Watch with the progress on another thread, as a program's interface
// would, until the save returns; gives back what Save returned.
template <typename Watcher>
bool SaveWatched(const std::string& Path, const std::vector<float>& Samples, EncodeOptions& Options,
                 std::string* ErrorMessage, Watcher Watch)
{
    std::atomic<bool> bDone{false};
    std::thread watcher([&] {
        while (!bDone.load())
            Watch(Options.pProgress->load());
    });
    const bool bSaved = Save(Path, Samples, Options, ErrorMessage);
    bDone = true;
    watcher.join();
    return bSaved;
}

// Watched from another thread while it encodes: no name in the folder but
// the target's (and the named temporary's), and progress that only rises, to 1.
TEST(CrashSafeSave, NoOtherNameAppearsWhileEncodingProgressRisesToOneAndCancelKeepsTheOldFile)
{
    const std::vector<float> samples = Noise(4.0);
    for (const TemporaryMode& mode : kModes)
    {
        const std::string folder = FreshFolder(std::string("watch_") + mode.Name);
        const std::string target = folder + "/take.flac";
        WriteFileBytes(target, kOldBytes);
        std::atomic<double> progress{-1.0};
        std::atomic<bool> bCancel{false};
        EncodeOptions options;
        options.pProgress = &progress;
        options.pCancel = &bCancel;
        options.bNamedTemporaryOnly = mode.bNamedOnly;
        size_t mostNames = 0;
        std::vector<double> seen;
        ASSERT_TRUE(SaveWatched(target, samples, options, nullptr, [&](double P) {
            // Only while encoding: the unnamed file gets a name for a moment
            // just before the rename, once the encoding is over (0.99).
            if (P > 0.0 && P < 0.9)
                mostNames = std::max(mostNames, NamesIn(folder).size());
            if (seen.empty() || seen.back() != P)
                seen.push_back(P);
        }));
        // The named temporary is seen beside the target, which shows that the
        // watcher does look while the encoding runs.
        EXPECT_EQ(mostNames, mode.bNamedOnly ? 2u : 1u) << mode.Name;
        EXPECT_EQ(NamesIn(folder), std::vector<std::string>{"take.flac"}) << mode.Name;
        EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end())) << mode.Name;
        EXPECT_TRUE(std::any_of(seen.begin(), seen.end(), [](double P) { return P > 0.0 && P < 1.0; }));
        EXPECT_EQ(progress.load(), 1.0);

        // Cancelled a third of the way, and before the start.
        WriteFileBytes(target, kOldBytes);
        std::string error;
        EXPECT_FALSE(SaveWatched(target, samples, options, &error, [&](double P) {
            if (P > 0.3)
                bCancel = true;
        }));
        EXPECT_EQ(error, "Saving cancelled.");
        EXPECT_LT(progress.load(), 1.0);
        error.clear();
        EXPECT_FALSE(Save(folder + "/new.flac", samples, options, &error));
        EXPECT_EQ(error, "Saving cancelled.");
        EXPECT_EQ(ReadFileBytes(target), kOldBytes) << mode.Name;
        EXPECT_EQ(NamesIn(folder), std::vector<std::string>{"take.flac"}) << mode.Name;
    }
}

TEST(CrashSafeSave, SavingThroughLinksReplacesTheFileAtTheEndAndKeepsTheLinks)
{
    const std::vector<float> samples = RampFrames(4800, 1.0f / 4800);
    for (const TemporaryMode& mode : kModes)
    {
        const std::string folder = FreshFolder(std::string("links_") + mode.Name);
        fs::create_directories(folder + "/real");
        const std::string real = folder + "/real/take.wav";
        WriteFileBytes(real, kOldBytes);
        chmod(real.c_str(), 0640);
        // first -> (absolute) second -> (relative) real/take.wav
        fs::create_symlink("real/take.wav", folder + "/second.wav");
        fs::create_symlink(folder + "/second.wav", folder + "/first.wav");
        // dangling -> later.wav, which does not exist yet; loop.wav -> itself
        fs::create_symlink("later.wav", folder + "/dangling.wav");
        fs::create_symlink("loop.wav", folder + "/loop.wav");
        EncodeOptions options;
        options.bNamedTemporaryOnly = mode.bNamedOnly;
        std::string error;

        ASSERT_TRUE(Save(folder + "/first.wav", samples, options, &error)) << mode.Name << ": " << error;
        EXPECT_EQ(fs::read_symlink(folder + "/first.wav"), fs::path(folder + "/second.wav"));
        EXPECT_EQ(fs::read_symlink(folder + "/second.wav"), fs::path("real/take.wav"));
        EXPECT_EQ(ReadFileBytes(real).substr(0, 4), "RIFF") << mode.Name;
        struct stat status = {};
        ASSERT_EQ(stat(real.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0640u) << mode.Name;

        ASSERT_TRUE(Save(folder + "/dangling.wav", samples, options, &error)) << mode.Name << ": " << error;
        EXPECT_TRUE(fs::is_symlink(folder + "/dangling.wav"));
        EXPECT_EQ(ReadFileBytes(folder + "/later.wav").substr(0, 4), "RIFF") << mode.Name;

        EXPECT_FALSE(Save(folder + "/loop.wav", samples, options, &error));
        EXPECT_NE(error.find("Too many levels of symbolic links"), std::string::npos) << error;
        const std::vector<std::string> expected = {"dangling.wav", "first.wav", "later.wav", "loop.wav", "real",
                                                   "second.wav"};
        EXPECT_EQ(NamesIn(folder), expected) << mode.Name;
        EXPECT_EQ(NamesIn(folder + "/real"), std::vector<std::string>{"take.wav"}) << mode.Name;
    }
}

TEST(CrashSafeSave, AFullDiskFailsTheSaveAndKeepsTheOldFile)
{
    // A file size limit stands in for a full disk: past 64 KiB every write
    // fails with EFBIG. It is set in a child, which reports through its exit
    // code: 0 for a save refused with a reason, 1 for one that succeeded.
    constexpr rlim_t kLimitBytes = 64 * 1024;
    const std::vector<float> samples = Noise(4.0);  // about 1.5 MB as FLAC
    for (const TemporaryMode& mode : kModes)
    {
        const std::string folder = FreshFolder(std::string("full_") + mode.Name);
        const std::string target = folder + "/take.flac";
        WriteFileBytes(target, kOldBytes);
        const pid_t child = fork();
        ASSERT_GE(child, 0) << "fork failed";
        if (child == 0)
        {
            signal(SIGXFSZ, SIG_IGN);  // the write fails instead of the process
            const rlimit limit{kLimitBytes, kLimitBytes};
            setrlimit(RLIMIT_FSIZE, &limit);
            EncodeOptions options;
            options.bNamedTemporaryOnly = mode.bNamedOnly;
            std::string error;
            const bool bSaved = Save(target, samples, options, &error);
            std::fprintf(stderr, "%s: %s\n", mode.Name, error.c_str());
            _exit(!bSaved && error.find("File too large") != std::string::npos ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << mode.Name;
        EXPECT_EQ(ReadFileBytes(target), kOldBytes) << mode.Name;
        EXPECT_EQ(NamesIn(folder), std::vector<std::string>{"take.flac"}) << mode.Name;
    }
}

// --- Killed saves ---

// Saves Samples over Target in a child process and kills it with SIGKILL
// after Delay; returns once the child is reaped.
void SaveAndKill(const std::string& Target, const std::vector<float>& Samples, bool bNamedOnly,
                 std::chrono::microseconds Delay)
{
    const pid_t child = fork();
    ASSERT_GE(child, 0) << "fork failed";
    if (child == 0)
    {
        EncodeOptions options;
        options.bNamedTemporaryOnly = bNamedOnly;
        _exit(Save(Target, Samples, options, nullptr) ? 0 : 1);
    }
    std::this_thread::sleep_for(Delay);
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
}

TEST(CrashSafeSave, AKilledSaveLeavesTheOldFileOrTheNewOneAndNothingElse)
{
    constexpr int kTrials = 20;
    const std::vector<float> samples = Noise(40.0);
    for (const TemporaryMode& mode : kModes)
    {
        const std::string folder = FreshFolder(std::string("kill_") + mode.Name);
        const std::string target = folder + "/take.flac";
        // What a complete save writes, and how long it takes here: the least
        // of three, since one slowed by a neighbour's load would spread the
        // kills past the end of most saves.
        EncodeOptions options;
        options.bNamedTemporaryOnly = mode.bNamedOnly;
        auto saveTime = std::chrono::microseconds::max();
        for (int i = 0; i < 3; ++i)
        {
            const Clock::time_point start = Clock::now();
            ASSERT_TRUE(Save(target, samples, options, nullptr));
            saveTime = std::min(saveTime, std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start));
        }
        const std::string newBytes = ReadFileBytes(target);

        // Kills spread over the save and a little past its end (5/4 of it).
        std::mt19937 generator(20240611);
        std::uniform_int_distribution<long> delayUs(0, saveTime.count() * 5 / 4);
        int oldKept = 0;
        int straysLeft = 0;
        for (int trial = 0; trial < kTrials; ++trial)
        {
            WriteFileBytes(target, kOldBytes);
            SaveAndKill(target, samples, mode.bNamedOnly, std::chrono::microseconds(delayUs(generator)));
            const std::string bytes = ReadFileBytes(target);
            EXPECT_TRUE(bytes == kOldBytes || bytes == newBytes) << mode.Name << " trial " << trial;
            oldKept += bytes == kOldBytes;
            // A named temporary cannot vanish with its process; the next save
            // to the target removes it. The unnamed file leaves nothing.
            straysLeft += NamesIn(folder).size() > 1;
            if (mode.bNamedOnly)
                RemoveStaleTemporaries(target);
            EXPECT_EQ(NamesIn(folder), std::vector<std::string>{"take.flac"}) << mode.Name << " trial " << trial;
        }
        // Most kills land in the middle of a save, or the test proves little.
        EXPECT_GE(oldKept, kTrials / 2) << mode.Name << ": a save takes " << saveTime.count() << " us";
        // A kill in the middle of a named save leaves its temporary (one
        // before the child opened it does not).
        EXPECT_EQ(straysLeft > 0, mode.bNamedOnly) << mode.Name;
        EXPECT_LE(straysLeft, oldKept) << mode.Name;
        std::printf("%s: a save takes %ld us; %d of %d kills kept the old file, %d left a temporary\n", mode.Name,
                    static_cast<long>(saveTime.count()), oldKept, kTrials, straysLeft);
    }
}

}  // namespace
