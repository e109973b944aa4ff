// Inputs on which a fuzzer once found a fault (tests/fuzz_regressions),
// replayed through the fuzzers' own harness, with the check that names the
// fault. A crash or a sanitizer report during a replay fails the run.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_harness.h"
#include "test_support.h"

namespace
{
std::vector<std::filesystem::path> InputsOf(const std::string& Target)
{
    std::vector<std::filesystem::path> inputs;
    const std::filesystem::path folder = std::filesystem::path(GLWE_FUZZ_REGRESSIONS_DIR) / Target;
    if (std::filesystem::is_directory(folder))
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            inputs.push_back(entry.path());
    return inputs;
}

// The process's peak resident memory so far (VmHWM), in bytes.
size_t PeakResidentBytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0)
            return std::stoull(line.substr(6)) * 1024;
    return 0;
}

std::vector<uint8_t> Bytes(const std::filesystem::path& Path)
{
    std::ifstream file(Path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}
}  // namespace

// mp3-lying-duration-oom: 572 bytes whose frame headers claim about 2 hours,
// so the decode reserved 2.6 GB up front. The reservation is now bounded by
// the file: at most 128 floats a byte, 572 x 128 = 73216 floats (286 KiB).
// mp3-channel-change-segv: an MP3 whose frames change their channel count
// midway; the resampler, set up for the first shape, read a plane that was
// not there (a null read in swr_convert). Such frames are now passed over.
// wav-info-tag-size-oom: a 1.6 KB WAV whose INFO tags claim about 645 MB
// each; FFmpeg allocated (and zeroed) what they claimed, 1.9 GB in all. The
// harness caps FFmpeg's allocations as the program does.
// wav-infinite-samples-false-difference: a float WAV holding infinities; the
// harness's check that halves agree with one thread took inf - inf for a
// difference. Equal values now agree whatever they are.
// mp3-channel-change-decoders-disagree: MP3 frames in stereo, then mono, then
// stereo again; the import passed over the mono ones and went on, the
// program's decoder stopped at them. Both now pass over them.
// Each input also goes through the program's decoder, whole and in halves,
// which must agree with each other and with the import (the same frames, or
// a failure at the same step), and stay within the same bound.
// Every input here is a few KiB at most, so 16 MiB is far above any honest
// buffer and far below the old reservation, and no replay may raise the
// peak resident memory by 256 MiB.
TEST(FuzzRegressions, ImportInputsOpenWithoutCrashAndWithinBoundedMemory)
{
    const auto inputs = InputsOf("import");
    ASSERT_FALSE(inputs.empty());
    for (const auto& input : inputs)
    {
        SCOPED_TRACE(input.filename().string());
        const std::vector<uint8_t> bytes = Bytes(input);
        const size_t peakBefore = PeakResidentBytes();
        GLWaveEditFuzz::ImportOnce(bytes.data(), bytes.size());
        GLWaveEditFuzz::DecodeOnce(bytes.data(), bytes.size());
        EXPECT_LT(PeakResidentBytes() - peakBefore, size_t(256) << 20);

        TestHost host;
        GLWaveEdit editor;
        editor.SetExternalPeakWaveform(input.string(), {}, 0.0);
        EXPECT_LT(Access::PcmFrames(editor).capacity() * sizeof(float), size_t(16) << 20);
    }
}

// wav-absurd-sample-rate-slow: a WAV header claiming 1912650624 Hz, which
// took the resampler 16 s to set up. Rates outside 1000..768000 Hz are now
// refused as the resampler's, so the file opens as a tab without PCM.
TEST(FuzzRegressions, AWavWithAnAbsurdSampleRateOpensWithoutPcm)
{
    TestHost host;
    GLWaveEdit editor;
    const auto input = std::filesystem::path(GLWE_FUZZ_REGRESSIONS_DIR) / "import" / "wav-absurd-sample-rate-slow";
    ASSERT_TRUE(std::filesystem::exists(input));
    editor.SetExternalPeakWaveform(input.string(), {}, 2.5);
    EXPECT_FALSE(Access::bUsePcmFrames(editor));
    EXPECT_EQ(editor.DurationSec, 2.5);  // the host's duration, as for every failed decode
    EXPECT_EQ(editor.DocumentCount(), 1);
}
