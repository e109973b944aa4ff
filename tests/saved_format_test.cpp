// A file saved by the program comes back in its own format: rate, channels,
// depth and level. The program's batch mode opens and saves synthesised
// band-limited material; FFmpeg's own tools read source and result at their
// native rate and format, so nothing here goes through the program's decoder.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "desktop_harness.h"
#include "test_support.h"

namespace fs = std::filesystem;

namespace
{
// Pink noise through a steep low-pass at 18 kHz: music-like, and nothing a
// resampler must cut at 44.1 kHz.
std::string Noise(int RateHz, double Seconds)
{
    std::string chain = "anoisesrc=c=pink:a=0.3:seed=7:r=" + std::to_string(RateHz) + ":d=" + std::to_string(Seconds);
    for (int i = 0; i < 6; ++i)
        chain += ",lowpass=f=18000";
    return "-f lavfi -i '" + chain + "'";
}

const std::string kProgram = GLWE_PROGRAM_PATH;

// Every sample of Path as FFmpeg decodes it at its own rate and channels, as
// 32-bit integers (16- and 24-bit samples are exact in them).
std::vector<int32_t> Samples(const std::string& Path)
{
    const std::string bytes = ShellOutput(std::string("'") + GLWE_FFMPEG_PATH + "' -v error -i '" + Path +
                                          "' -f s32le -c:a pcm_s32le - 2>/dev/null");
    std::vector<int32_t> out(bytes.size() / 4);
    std::memcpy(out.data(), bytes.data(), out.size() * 4);
    return out;
}

// "codec,sample format,rate,channels[,raw bits]" as ffprobe reads them.
std::string Probe(const std::string& Path)
{
    std::string out = ShellOutput("ffprobe -v error -select_streams a:0 -show_entries "
                                  "stream=codec_name,sample_rate,channels,sample_fmt,bits_per_raw_sample -of csv=p=0 '" +
                                  Path + "'");
    while (!out.empty() && (out.back() == '\n' || out.back() == ','))
        out.pop_back();
    return out;
}

// Saves Source through the batch mode with Steps before the save; "" on success.
std::string Save(const std::string& Source, const std::string& Out, const std::string& Steps = "")
{
    fs::remove(Out);
    const std::string command =
        "'" + kProgram + "' '" + Source + "' " + Steps + " --save '" + Out + "' 2>&1";
    const std::string said = ShellOutput(command);
    return fs::exists(Out) ? "" : said;
}

double PeakDb(const std::vector<int32_t>& Samples)
{
    int64_t peak = 1;
    for (int32_t s : Samples)
        peak = std::max<int64_t>(peak, std::llabs(static_cast<int64_t>(s)));
    return 20.0 * std::log10(static_cast<double>(peak) / 2147483648.0);
}

struct Source
{
    const char* Name;
    int RateHz;
    int Channels;
    const char* Codec;  // FFmpeg's encoder and sample format
    const char* Probed;  // what ffprobe says of the source and the saved file
};

void PrintTo(const Source& S, std::ostream* Os)
{
    *Os << S.Name;
}

std::string MakeSource(const Source& S, double Seconds)
{
    return MakeFfmpegFixture(S.Name, Noise(S.RateHz, Seconds) + " -ac " + std::to_string(S.Channels) + " " + S.Codec);
}

class NoEditAtTheEditorsRate : public ::testing::TestWithParam<Source>
{
};

// At 48 kHz nothing is resampled: every sample comes back as it was.
TEST_P(NoEditAtTheEditorsRate, GivesEverySampleBackInTheSourcesFormat)
{
    const Source& s = GetParam();
    const std::string source = MakeSource(s, 3.0);
    const std::string out = ScratchPath(std::string("saved-") + s.Name);
    ASSERT_EQ(Save(source, out), "");
    EXPECT_EQ(Probe(source), s.Probed);
    EXPECT_EQ(Probe(out), s.Probed);
    const std::vector<int32_t> before = Samples(source), after = Samples(out);
    ASSERT_EQ(before.size(), size_t(3 * 48000 * s.Channels));
    EXPECT_TRUE(after == before);
}

INSTANTIATE_TEST_SUITE_P(
    Formats, NoEditAtTheEditorsRate,
    ::testing::Values(Source{"s16-stereo.wav", 48000, 2, "-c:a pcm_s16le", "pcm_s16le,s16,48000,2,N/A"},
                      Source{"s16-mono.wav", 48000, 1, "-c:a pcm_s16le", "pcm_s16le,s16,48000,1,N/A"},
                      Source{"s24-stereo.wav", 48000, 2, "-c:a pcm_s24le", "pcm_s24le,s32,48000,2,24"},
                      Source{"s16-mono.flac", 48000, 1, "-c:a flac -sample_fmt s16", "flac,s16,48000,1,16"},
                      Source{"s24-stereo.flac", 48000, 2, "-c:a flac -sample_fmt s32", "flac,s32,48000,2,24"}),
    [](const ::testing::TestParamInfo<Source>& Info) {
        std::string name = Info.param.Name;
        for (char& c : name)
            if (!std::isalnum(static_cast<unsigned char>(c)))
                c = '_';
        return name;
    });

class ResampledBack : public ::testing::TestWithParam<Source>
{
};

// Share of equal samples and the largest difference over [First, Last) frames.
void Compare(const std::vector<int32_t>& A, const std::vector<int32_t>& B, int Channels, size_t First, size_t Last,
             double& OutEqualShare, int64_t& OutLargestLsb)
{
    size_t equal = 0;
    OutLargestLsb = 0;
    for (size_t i = First * Channels; i < Last * Channels; ++i)
    {
        equal += A[i] == B[i];
        OutLargestLsb = std::max<int64_t>(OutLargestLsb, std::llabs(int64_t(A[i]) - B[i]) >> 16);  // 16-bit steps
    }
    OutEqualShare = static_cast<double>(equal) / ((Last - First) * Channels);
}

// 44.1 kHz comes back from the editor's 48 kHz at its own length and level,
// nearly every sample exact; a cut shortens it by the cut and nothing else.
TEST_P(ResampledBack, KeepsLengthLevelAndSamples)
{
    const Source& s = GetParam();
    const std::string source = MakeSource(s, 4.0);
    const std::vector<int32_t> before = Samples(source);
    const size_t frames = before.size() / s.Channels, edge = s.RateHz / 100;  // 10 ms
    ASSERT_EQ(frames, size_t(4 * s.RateHz));

    const std::string out = ScratchPath(std::string("back-") + s.Name);
    ASSERT_EQ(Save(source, out), "");
    EXPECT_EQ(Probe(out), s.Probed);
    const std::vector<int32_t> after = Samples(out);
    ASSERT_EQ(after.size(), before.size());
    double share = 0.0;
    int64_t largest = 0;
    Compare(before, after, s.Channels, 0, frames, share, largest);
    EXPECT_GE(share, 0.999);
    Compare(before, after, s.Channels, edge, frames - edge, share, largest);
    EXPECT_LE(largest, 1);
    EXPECT_NEAR(PeakDb(after), PeakDb(before), 0.01);

    const std::string cut = ScratchPath(std::string("cut-") + s.Name);
    ASSERT_EQ(Save(source, cut, "--select 1.0 2.0 --cut"), "");
    // A second save to the same name is refused without --overwrite.
    EXPECT_NE(ShellOutput("'" + kProgram + "' '" + source + "' --save '" + cut + "' 2>&1; echo rc=$?").find("rc=1"),
              std::string::npos);
    EXPECT_EQ(Probe(cut), s.Probed);
    const std::vector<int32_t> shorter = Samples(cut);
    EXPECT_NEAR(double(shorter.size() / s.Channels), double(frames - s.RateHz), 1.0);
    ASSERT_GE(shorter.size(), size_t(s.RateHz) * s.Channels);
    Compare(before, shorter, s.Channels, edge, s.RateHz - edge, share, largest);
    EXPECT_GE(share, 0.999);
    EXPECT_LE(largest, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Formats, ResampledBack,
    ::testing::Values(Source{"m441.wav", 44100, 1, "-c:a pcm_s16le", "pcm_s16le,s16,44100,1,N/A"},
                      Source{"s441.flac", 44100, 2, "-c:a flac -sample_fmt s16", "flac,s16,44100,2,16"}),
    [](const ::testing::TestParamInfo<Source>& Info) { return Info.param.Channels == 1 ? "MonoWav" : "StereoFlac"; });

// The command line chooses otherwise; --info says what a save would keep;
// more channels than two come back as the stereo the document holds, with a
// word about it.
TEST(SavedFormat, OptionsOverrideItAndMoreThanTwoChannelsAreSaidToBecomeStereo)
{
    const std::string source = MakeFfmpegFixture("hi.flac", Noise(96000, 2.0) + " -ac 2 -c:a flac -sample_fmt s32");
    EXPECT_NE(ShellOutput("'" + kProgram + "' --info '" + source + "'").find("saves as: FLAC 24-bit, 96000 Hz, stereo"),
              std::string::npos);
    const std::string plain = ScratchPath("hi-16.wav"), dithered = ScratchPath("hi-16-dither.wav");
    ASSERT_EQ(Save(source, plain, "--rate 44100 --channels 1 --bits 16"), "");
    ASSERT_EQ(Save(source, dithered, "--rate 44100 --channels 1 --bits 16 --dither"), "");
    EXPECT_EQ(Probe(plain), "pcm_s16le,s16,44100,1,N/A");
    EXPECT_EQ(Probe(dithered), "pcm_s16le,s16,44100,1,N/A");
    const std::vector<int32_t> a = Samples(plain), b = Samples(dithered);
    ASSERT_EQ(a.size(), size_t(2 * 44100));
    ASSERT_EQ(b.size(), a.size());
    double share = 0.0;
    int64_t largest = 0;
    Compare(a, b, 1, 0, a.size(), share, largest);
    EXPECT_LT(share, 0.9);  // the dither moved many samples,
    EXPECT_LE(largest, 1);  // by one step at most

    const std::string surround =
        MakeFfmpegFixture("surround.wav", Noise(48000, 1.0) + " -af 'pan=5.1|c0=c0|c1=c0|c2=c0|c3=c0|c4=c0|c5=c0' -c:a pcm_s16le");
    const std::string out = ScratchPath("surround-saved.wav");
    fs::remove(out);
    const std::string said = ShellOutput("'" + kProgram + "' '" + surround + "' --save '" + out + "' 2>&1");
    EXPECT_NE(said.find("saved as stereo"), std::string::npos) << said;
    EXPECT_EQ(Probe(out), "pcm_s16le,s16,48000,2,N/A");
}
}  // namespace
