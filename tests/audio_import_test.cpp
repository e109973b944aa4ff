// Opening files as new tabs: any format decoded to 48000 Hz stereo float, and
// a tab all the same when the decoding fails.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>

#include "test_support.h"

TEST(AudioImport, FailedDecodingStillAppendsATabWithTheHostsPeaksAndDuration)
{
    const std::string noise = ScratchPath("audio_import_noise.wav");
    std::ofstream out(noise, std::ios::binary);
    for (uint32_t i = 0, seed = 12345; i < 20000; ++i)
        out.put(static_cast<char>((seed = seed * 1664525u + 1013904223u) >> 24));
    out.close();
    const std::vector<float> peaks{0.5f, 0.25f};
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Case { std::string Path; std::vector<float> Peaks; double Given; double Expected; };
    const Case cases[] = {
        {noise, peaks, 3.0, 3.0},
        {ScratchPath("audio_import_missing.flac"), peaks, 2.5, 2.5},
        {"", peaks, 4.0, 4.0},
        {"", {}, nan, 0.0},
        {noise, {}, -2.0, 0.0},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.Path + " " + std::to_string(c.Given));
        GLWaveEdit editor;
        SignalLog log(editor);
        editor.NewUntitledDocument();
        log.Clear();
        editor.SetExternalPeakWaveform(c.Path, c.Peaks, c.Given);
        ASSERT_EQ(editor.DocumentCount(), 2);
        EXPECT_TRUE(editor.ActiveDocument() == 1 && editor.SourcePath() == c.Path);
        EXPECT_TRUE(!Access::bUsePcmFrames(editor) && editor.ActiveFrames().empty());
        EXPECT_EQ(Access::bUseExternalPeaks(editor), !c.Peaks.empty());
        EXPECT_EQ(Access::ExternalPeaks(editor), c.Peaks);
        EXPECT_TRUE(editor.DurationSec == c.Expected && Access::Document(editor, 1).DurationSec == c.Expected);
        EXPECT_EQ(editor.ViewEndSec, std::max(c.Expected, 0.1));  // fitted to the whole document
        EXPECT_EQ(log.Lines, (Lines{"active " + c.Path}));
    }
}

TEST(AudioImport, RatesFarFromTheAudioBandAreResampledLikeAnyOther)
{
    // A data logger at 500 Hz and an SDR recording at 2.4 MHz.
    struct Fixture { const char* Name; int Rate; double Seconds; };
    for (const Fixture& f : {Fixture{"audio_import_500.wav", 500, 2.0}, Fixture{"audio_import_2m4.wav", 2400000, 0.5}})
    {
        SCOPED_TRACE(f.Name);
        const std::string path = MakeFfmpegFixture(
            f.Name, "-f lavfi -i sine=frequency=50:sample_rate=" + std::to_string(f.Rate) + ":duration=" +
                        std::to_string(f.Seconds));
        GLWaveEdit editor;
        editor.SetExternalPeakWaveform(path, {0.5f}, 0.0);
        ASSERT_TRUE(Access::bUsePcmFrames(editor) && Access::bUseExternalPeaks(editor));  // decoded, peaks kept
        // Less the resampler's tail, which it holds back: 16 input samples.
        EXPECT_NEAR(editor.DurationSec, f.Seconds, 16.0 / f.Rate + 0.001);
        EXPECT_GT(*std::max_element(editor.ActiveFrames().begin(), editor.ActiveFrames().end()), 0.05f);
    }
}

// In a child of the test: the address space bounded to what it uses now and
// 1 GiB more, the file opened; the seconds decoded, rounded to 10 ms.
static double SecondsOpenedUnderAMemoryLimit(const std::string& Path)
{
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t limit = static_cast<rlim_t>(pages) * 4096 + (rlim_t(1) << 30);
    const rlimit bound{limit, limit};
    setrlimit(RLIMIT_AS, &bound);
    GLWaveEdit editor;
    editor.SetExternalPeakWaveform(Path, {}, 0.0);
    return std::round(editor.DurationSec * 100.0) / 100.0;
}

TEST(AudioImport, AHeaderThatClaimsHoursDoesNotFailWhereTheMinutesItHoldsFitInMemory)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' shadow memory does not live under an address space limit";
#endif
    // 20 s of noise whose STREAMINFO says 3 hours: 3 * 3600 * 48000 samples.
    const std::string path = MakeFfmpegFixture("audio_import_claims_hours.flac",
                                               "-f lavfi -i anoisesrc=r=48000:a=0.5:d=20 -ac 2");
    std::string bytes = ReadFileBytes(path);
    ASSERT_EQ(bytes.compare(0, 4, "fLaC"), 0);
    const uint64_t claimed = 3ull * 3600 * 48000;  // 36 bits from the low nibble of STREAMINFO's byte 13
    bytes[8 + 13] = static_cast<char>((bytes[8 + 13] & 0xF0) | ((claimed >> 32) & 0x0F));
    for (int i = 0; i < 4; ++i)
        bytes[8 + 14 + i] = static_cast<char>(claimed >> (24 - 8 * i));
    WriteFileBytes(path, bytes);
    // Room for what the header claims is beyond the limit; 20 s (8 MB of float) are not.
    EXPECT_EXIT(std::exit(SecondsOpenedUnderAMemoryLimit(path) == 20.0 ? 0 : 1), ::testing::ExitedWithCode(0), "");
}
