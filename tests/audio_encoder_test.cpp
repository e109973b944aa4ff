// The encoder: a tone through every format and back through the ffmpeg
// program, and saves that fail without harming what was there.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "audio_codec_internal.h"
#include "test_support.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace {

namespace fs = std::filesystem;

constexpr double kToneHz = 1000.0;
constexpr double kToneAmplitude = 0.5;  // 20 * log10(0.5) = -6.02 dBFS
constexpr double kToneSeconds = 2.0;

std::vector<float> Tone(int RateHz, int Channels)
{
    const size_t frameCount = static_cast<size_t>(kToneSeconds * RateHz);
    std::vector<float> samples(frameCount * Channels);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(kToneAmplitude * std::sin(2.0 * M_PI * kToneHz * (i / Channels) / RateHz));
    return samples;
}

// Decodes Path with the ffmpeg program to float at 48000 Hz; empty on failure.
std::vector<float> Decode(const std::string& Path, int Channels)
{
    const std::string raw = MakeFfmpegFixture(fs::path(Path).filename().string() + ".f32",
                                              "-i \"" + Path + "\" -f f32le -ar 48000 -ac " + std::to_string(Channels));
    const std::string bytes = raw.empty() ? "" : ReadFileBytes(raw);
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    return samples;
}

// The level of the middle three quarters, clear of codec delay and padding.
double MiddleRmsDb(const std::vector<float>& Samples)
{
    const size_t first = Samples.size() / 8;
    const size_t last = Samples.size() - first;
    double sum = 0.0;
    for (size_t i = first; i < last; ++i)
        sum += static_cast<double>(Samples[i]) * Samples[i];
    return 10.0 * std::log10(sum / std::max<size_t>(1, last - first));
}

// Hidden temporary files that a save to Target left beside it.
std::vector<std::string> Leftovers(const std::string& Target)
{
    const std::string prefix = "." + fs::path(Target).stem().string() + ".tmp-";
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(Target).parent_path()))
        if (entry.path().filename().string().rfind(prefix, 0) == 0)
            names.push_back(entry.path().string());
    return names;
}

struct RoundTrip
{
    const char* Extension;
    int RateHz;
    int Channels;
    int BitrateKbps;
    int ToleranceFrames;  // at 48 kHz: one codec frame plus the encoder's delay
    const char* Signature;  // bytes near the start that name container or codec
};

class AudioEncoderRoundTrip : public testing::TestWithParam<RoundTrip> {};

TEST_P(AudioEncoderRoundTrip, ToneComesBackWithItsLengthAndLevel)
{
    const RoundTrip& trip = GetParam();
    // One name per case, so that cases running side by side do not meet.
    const std::string path = ScratchPath("audio_encoder_test_tone_" + std::to_string(trip.RateHz) + "_" +
                                         (trip.Extension + 1) + trip.Extension);
    WriteFileBytes(path, "an older file, to be replaced");
    std::string error;
    ASSERT_TRUE(TarvikEncodeFloatAudioFile(path, Tone(trip.RateHz, trip.Channels), trip.RateHz, trip.Channels,
                                           trip.BitrateKbps, &error))
        << error;
    EXPECT_NE(ReadFileBytes(path).substr(0, 4096).find(trip.Signature), std::string::npos);

    const std::vector<float> decoded = Decode(path, trip.Channels);
    // 2.0 s * 48000 = 96000 frames, whatever the rate written.
    const long expectedFrames = 96000;
    const long decodedFrames = static_cast<long>(decoded.size()) / trip.Channels;
    EXPECT_NEAR(decodedFrames, expectedFrames, trip.ToleranceFrames);
    // A sine's RMS is its amplitude / sqrt(2): 20 * log10(0.5 / 1.4142) = -9.03 dBFS.
    EXPECT_NEAR(MiddleRmsDb(decoded), -9.03, 1.0);
    EXPECT_TRUE(Leftovers(path).empty());
}

// Bitrate 0 takes the default; 1000 is held to the top of the range, which
// libopus would refuse for one channel above 256 kbps.
INSTANTIATE_TEST_SUITE_P(
    EveryFormat, AudioEncoderRoundTrip,
    testing::Values(RoundTrip{".wav", 48000, 2, 0, 0, "WAVE"},      // PCM keeps every frame
                    RoundTrip{".flac", 48000, 2, 0, 0, "fLaC"},     // lossless, length in its header
                    RoundTrip{".ogg", 48000, 2, 0, 2048, "vorbis"}, // one long block
                    RoundTrip{".opus", 48000, 2, 0, 1272, "OpusHead"},  // 960 frame + 312 pre-skip
                    RoundTrip{".mp3", 48000, 2, 0, 2257, "Info"},   // 1152 frame + 576 + 529 delay
                    RoundTrip{".M4A", 48000, 2, 0, 2048, "M4A "},   // 1024 frame + 1024 priming
                    // Written at 24000: (480 + 156) * 2 = 1272 frames at 48 kHz.
                    RoundTrip{".opus", 22050, 1, 1000, 1272, "OpusHead"},
                    // (576 + 1105) * 48000 / 22050 = 3660 frames at 48 kHz.
                    RoundTrip{".mp3", 22050, 1, 1000, 3660, "Info"}),
    [](const testing::TestParamInfo<RoundTrip>& Info) {
        return std::string(Info.param.Extension + 1) + "_" + std::to_string(Info.param.RateHz) + "Hz_" +
               std::to_string(Info.param.Channels) + "ch";
    });

// The tags of a file as libavformat reads them: the container's, then the
// audio stream's (where the Ogg demuxer puts Vorbis comments); empty on failure.
std::map<std::string, std::string> ReadTags(const std::string& Path)
{
    std::map<std::string, std::string> tags;
    AVFormatContext* pInput = nullptr;
    if (avformat_open_input(&pInput, Path.c_str(), nullptr, nullptr) < 0)
        return tags;
    if (avformat_find_stream_info(pInput, nullptr) >= 0)
    {
        std::vector<const AVDictionary*> dictionaries = {pInput->metadata};
        if (pInput->nb_streams > 0)
            dictionaries.push_back(pInput->streams[0]->metadata);
        for (const AVDictionary* pDictionary : dictionaries)
            for (const AVDictionaryEntry* pEntry = nullptr;
                 (pEntry = av_dict_get(pDictionary, "", pEntry, AV_DICT_IGNORE_SUFFIX));)
                tags.emplace(pEntry->key, pEntry->value);
    }
    avformat_close_input(&pInput);
    return tags;
}

TEST(AudioEncoderTags, EveryFormatCarriesTheTagsItCanHold)
{
    // Not ASCII on purpose: the tags travel as UTF-8.
    const std::map<std::string, std::string> tags = {{"title", "Tönende Probe"}, {"artist", "Ensemble Ø"},
                                                     {"album", "Takes"},         {"track", "7"},
                                                     {"date", "2024"},           {"comment", "second take"}};
    const std::vector<float> samples = Tone(48000, 2);
    for (const char* extension : {".ogg", ".opus", ".flac", ".mp3", ".m4a", ".wav"})
    {
        const std::string path = ScratchPath(std::string("audio_encoder_test_tags") + extension);
        EncodeOptions options;
        options.Tags = tags;
        options.Tags["ignored"] = "";  // an empty value is left out, not written empty
        std::string error;
        ASSERT_TRUE(TarvikEncodeFloatAudioFileWith(path, samples.data(), samples.size(), 48000, 2, options, &error))
            << extension << ": " << error;
        const std::map<std::string, std::string> back = ReadTags(path);
        for (const auto& [key, value] : tags)
            EXPECT_EQ(back.count(key) ? back.at(key) : "(missing)", value) << extension << " " << key;
        EXPECT_EQ(back.count("ignored"), 0u) << extension;
    }
}

TEST(AudioEncoderFailures, RefusedSaveLeavesTheExistingFileByteForByte)
{
    const std::string kept = ScratchPath("audio_encoder_test_keep.wav");
    const std::string unknown = ScratchPath("audio_encoder_test_keep.xyz");
    WriteFileBytes(kept, "precious bytes");
    WriteFileBytes(unknown, "precious bytes");
    const std::vector<float> stereo = Tone(48000, 2);
    std::string error;

    EXPECT_FALSE(TarvikEncodeFloatAudioFile(unknown, stereo, 48000, 2, 0, &error));
    EXPECT_NE(error.find(".xyz"), std::string::npos) << error;
    EXPECT_EQ(ReadFileBytes(unknown), "precious bytes");

    struct BadCall { std::vector<float> Samples; int RateHz; int Channels; };
    const BadCall badCalls[] = {{stereo, 0, 2}, {stereo, 48000, 0}, {stereo, 48000, 9}, {{0.1f, 0.2f, 0.3f}, 48000, 2},
                                {{}, 48000, 2}};
    for (const BadCall& call : badCalls)
    {
        error.clear();
        EXPECT_FALSE(TarvikEncodeFloatAudioFile(kept, call.Samples, call.RateHz, call.Channels, 0, &error));
        EXPECT_FALSE(error.empty()) << call.RateHz << " Hz, " << call.Channels << " channels";
    }
    EXPECT_FALSE(TarvikEncodeFloatAudioFile(kept, {}, 48000, 2, 0, nullptr));
    EXPECT_EQ(ReadFileBytes(kept), "precious bytes");
    EXPECT_TRUE(Leftovers(kept).empty());
}

// A folder where the file should go (the encoding succeeds, the rename
// cannot), a missing folder, /proc and a read-only folder.
TEST(AudioEncoderFailures, AnUnwritableTargetFailsWithAReasonAndLeavesNothingBehind)
{
    const std::string folder = ScratchPath("audio_encoder_test_folder.flac");
    const std::string missing = ScratchPath("audio_encoder_test_missing");
    const std::string readOnly = ScratchPath("audio_encoder_test_readonly");
    fs::create_directories(folder);
    fs::create_directories(readOnly);
    chmod(readOnly.c_str(), 0555);
    std::vector<std::string> targets{folder, missing + "/tone.ogg", "/proc/audio_encoder_test.ogg"};
    if (geteuid() != 0)  // root writes into a 0555 folder anyway
        targets.push_back(readOnly + "/tone.mp3");
    for (const std::string& path : targets)
    {
        std::string error;
        EXPECT_FALSE(TarvikEncodeFloatAudioFile(path, Tone(48000, 2), 48000, 2, 0, &error)) << path;
        EXPECT_FALSE(error.empty()) << path;
    }
    EXPECT_TRUE(fs::is_directory(folder) && Leftovers(folder).empty());
    EXPECT_FALSE(fs::exists(missing));
    EXPECT_TRUE(fs::is_empty(readOnly));
    chmod(readOnly.c_str(), 0755);
}

}  // namespace
