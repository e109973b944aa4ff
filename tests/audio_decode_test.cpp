// The program's decoder: the editor's own import sample for sample, the
// file's facts and tags, nothing read but the chosen file, and cancel,
// progress and the size bound working from another thread.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "audio_decode.h"
#include "test_support.h"

namespace
{
struct Result
{
    bool bOk = false;
    DecodedAudio Audio;
    std::string Error;
};

Result Decode(const std::string& Path, DecodeControl Control = {})
{
    Result r;
    r.bOk = DecodeAudioFile(Path, Control, r.Audio, &r.Error);
    return r;
}

// A hang guard, not a timing: a decoding that never returns fails the test
// instead of stalling the suite.
Result DecodeWithin(std::chrono::seconds Limit, const std::string& Path, DecodeControl Control = {})
{
    auto pending = std::async(std::launch::async, [=] { return Decode(Path, Control); });
    if (pending.wait_for(Limit) != std::future_status::ready)
    {
        ADD_FAILURE() << Path << " did not return within " << Limit.count() << " s";
        std::abort();  // the thread cannot be joined; nothing else would end it
    }
    return pending.get();
}

std::vector<float> EditorFrames(const std::string& Path)
{
    GLWaveEdit editor;
    editor.SetExternalPeakWaveform(Path, {}, 0.0);
    return Access::PcmFrames(editor);
}

float LargestDifference(const std::vector<float>& A, const std::vector<float>& B)
{
    float largest = 0.0f;
    for (size_t i = 0; i < std::min(A.size(), B.size()); ++i)
        largest = std::max(largest, std::fabs(A[i] - B[i]));
    return largest;
}

// The three ways the decoder can go: on the calling thread, decoding and
// resampling as a pipeline, and, as any file of a second or more, in halves.
std::vector<std::pair<std::string, DecodeControl>> EveryWay()
{
    DecodeControl oneThread, pipeline, halves;
    oneThread.Threads = 1;
    pipeline.HalvesFromSec = 1e9;
    halves.HalvesFromSec = 1.0;
    return {{"one thread", oneThread}, {"pipeline", pipeline}, {"halves", halves}};
}

const char* const kStereo441 =
    "-f lavfi -i 'aevalsrc=0.5*sin(2*PI*440*t)|0.3*sin(2*PI*660*t):s=44100:d=4'";
}  // namespace

TEST(AudioDecode, EveryFormatEqualsTheEditorsImportOnOneThreadAsAPipelineAndInHalves)
{
    // bSplits: the halves must have been joined. AAC's noise substitution
    // draws on a generator that runs through the whole file, so a second
    // half cannot make the same noise; its seam check then leaves the file to
    // one thread, and only the equality is asked.
    struct Fixture { const char* Name; std::string Args; int Rate; int Channels; const char* Codec; bool bSplits; };
    const Fixture fixtures[] = {
        {"audio_decode.mp3", std::string(kStereo441) + " -c:a libmp3lame", 44100, 2, "MP3", true},
        {"audio_decode.ogg", std::string(kStereo441) + " -c:a libvorbis", 44100, 2, "Vorbis", true},
        {"audio_decode.flac", std::string(kStereo441) + " -c:a flac", 44100, 2, "FLAC", true},
        {"audio_decode.wav", std::string(kStereo441) + " -c:a pcm_s16le", 44100, 2, "PCM signed 16-bit", true},
        {"audio_decode.m4a", std::string(kStereo441) + " -c:a aac", 44100, 2, "AAC", false},
        {"audio_decode_nopns.m4a", std::string(kStereo441) + " -c:a aac -aac_pns 0", 44100, 2, "AAC", true},
        // Silent around the middle: the frames after the seam cannot show a
        // second half placed wrong, the count of samples before it must.
        {"audio_decode_quiet_middle.flac",
         "-f lavfi -i 'aevalsrc=0.5*sin(2*PI*440*t)*(lt(t\\,1.5)+gt(t\\,2.5)):s=44100:d=4' -ac 2 -c:a flac", 44100, 2,
         "FLAC", true},
        // Long enough for the second half to write into the output's own room.
        {"audio_decode_minute.flac", "-f lavfi -i anoisesrc=color=pink:sample_rate=44100:duration=60 -ac 2 -c:a flac",
         44100, 2, "FLAC", true},
        {"audio_decode_mono.mp3",
         "-f lavfi -i sine=frequency=440:sample_rate=22050:duration=3 -c:a libmp3lame", 22050, 1, "MP3", true},
        {"audio_decode_surround.m4a", "-f lavfi -i 'aevalsrc=0.25*sin(2*PI*440*t):c=5.1:s=48000:d=2' -c:a aac",
         48000, 6, "AAC", false},
        {"audio_decode_video.mp4",
         "-f lavfi -i testsrc=size=64x48:rate=10:duration=2 -f lavfi -i sine=frequency=440:duration=2 "
         "-c:v mpeg4 -c:a aac -shortest",
         44100, 1, "AAC", false},
    };
    for (const Fixture& f : fixtures)
    {
        SCOPED_TRACE(f.Name);
        const std::string path = MakeFfmpegFixture(f.Name, f.Args);
        const std::vector<float> expected = EditorFrames(path);
        ASSERT_GT(expected.size(), 48000u * 2);  // more than a second came out of the editor's import
        for (const auto& [way, control] : EveryWay())
        {
            SCOPED_TRACE(way);
            const Result r = Decode(path, control);
            ASSERT_TRUE(r.bOk) << r.Error;
            // The import's frames, then the resampler's tail, which makes the
            // whole the source's length at 48000 Hz.
            ASSERT_EQ(r.Audio.Frames.size() - r.Audio.TailFrames * 2, expected.size());
            const std::vector<float> common(r.Audio.Frames.begin(), r.Audio.Frames.begin() + expected.size());
            EXPECT_LE(LargestDifference(common, expected), 1e-6f);
            EXPECT_NEAR(double(r.Audio.Frames.size() / 2), double(r.Audio.SourceFrames) * 48000 / f.Rate, 1.0);
            if (f.Rate != 48000)  // at the output's own rate nothing waits in the resampler
            {
                EXPECT_GT(r.Audio.TailFrames, 0u);
            }
            if (way != std::string("halves"))
            {
                EXPECT_EQ(r.Audio.SecondHalfFromFrame, 0u);
            }
            else if (f.bSplits)  // else the first thread decoded it all, and nothing was shown
            {
                EXPECT_GT(r.Audio.SecondHalfFromFrame, 48000u);
            }
            EXPECT_EQ(r.Audio.SourceSampleRate, f.Rate);
            EXPECT_EQ(r.Audio.SourceChannels, f.Channels);
            EXPECT_NE(r.Audio.CodecName.find(f.Codec), std::string::npos) << r.Audio.CodecName;
        }
    }
}

TEST(AudioDecode, ReportsTheFilesFormatDurationAndTags)
{
    const std::string tags =
        " -metadata title='Night Take' -metadata artist=Someone -metadata album=Demos -metadata track=7"
        " -metadata date=2024 -metadata comment=rough";
    struct Fixture { const char* Name; const char* Codec; const char* Container; const char* Layout; };
    const Fixture fixtures[] = {
        {"audio_decode_tags.mp3", "libmp3lame", "MP2/3 (MPEG audio layer 2/3)", "stereo"},
        {"audio_decode_tags.ogg", "libvorbis", "Ogg", "stereo"},  // Vorbis comments live on the stream
        {"audio_decode_tags.flac", "flac", "raw FLAC", "stereo"},
    };
    for (const Fixture& f : fixtures)
    {
        SCOPED_TRACE(f.Name);
        const std::string path =
            MakeFfmpegFixture(f.Name, std::string(kStereo441) + " -c:a " + f.Codec + tags);
        const Result r = Decode(path);
        ASSERT_TRUE(r.bOk) << r.Error;
        EXPECT_EQ(r.Audio.ContainerName, f.Container);
        EXPECT_EQ(r.Audio.SourceChannelLayout, f.Layout);
        EXPECT_NEAR(r.Audio.SourceDurationSec, 4.0, 0.06);  // 4 s, give or take an MP3 frame (1152 / 44100)
        const std::map<std::string, std::string> expected{{"title", "Night Take"}, {"artist", "Someone"},
                                                          {"album", "Demos"},      {"track", "7"},
                                                          {"date", "2024"},        {"comment", "rough"}};
        for (const auto& [key, value] : expected)
            EXPECT_EQ(r.Audio.Tags.count(key) ? r.Audio.Tags.at(key) : "<missing>", value) << key;
    }
}

TEST(AudioDecode, RefusesWhatIsNotAnAudioFileWithAClearMessage)
{
    const std::string fake = ScratchPath("audio_decode_fake.mp3");
    WriteFileBytes(fake, "ID3abcdefg");  // 10 bytes: an ID3 tag's start and nothing else
    const std::string noise = ScratchPath("audio_decode_noise.wav");
    std::string bytes;
    for (uint32_t i = 0, seed = 777; i < 50000; ++i)
        bytes.push_back(static_cast<char>((seed = seed * 1664525u + 1013904223u) >> 24));
    WriteFileBytes(noise, bytes);
    const std::string folder = ScratchPath("audio_decode_folder");
    std::filesystem::create_directories(folder);
    const std::string fifo = ScratchPath("audio_decode_fifo.wav");
    std::filesystem::remove(fifo);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    struct Case { std::string Path; const char* Message; };
    const Case cases[] = {
        {ScratchPath("audio_decode_missing.wav"), "File not found."},
        {"", "File not found."},
        {folder, "That is a folder, not an audio file."},
        {fifo, "Not a regular file (a pipe or a device)."},  // would wait for a writer if opened plainly
        {"/dev/zero", "Not a regular file (a pipe or a device)."},
        {fake, "Not an audio file."},
        {noise, "Not an audio file."},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.Path);
        const Result r = DecodeWithin(std::chrono::seconds(10), c.Path);
        EXPECT_FALSE(r.bOk);
        EXPECT_EQ(r.Error, c.Message);
        EXPECT_TRUE(r.Audio.Frames.empty());
    }
    std::filesystem::remove(fifo);
}

TEST(AudioDecode, OpensANameWithAColonAsItselfAndNoNameAsAProtocol)
{
    const std::string take = MakeFfmpegFixture("take:2.wav", std::string(kStereo441) + " -c:a pcm_s16le");
    const std::string other = MakeFfmpegFixture("audio_decode_other.wav", std::string(kStereo441) + " -c:a pcm_s16le");
    const Result byFullPath = Decode(take);
    ASSERT_TRUE(byFullPath.bOk) << byFullPath.Error;

    // "take:" in front would name a protocol to FFmpeg; here it is the file's name.
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(std::filesystem::path(take).parent_path());
    const Result byRelativePath = Decode("take:2.wav");
    const Result concat = Decode("concat:take:2.wav|audio_decode_other.wav");
    std::filesystem::current_path(before);

    ASSERT_TRUE(byRelativePath.bOk) << byRelativePath.Error;
    EXPECT_EQ(byRelativePath.Audio.Frames, byFullPath.Audio.Frames);
    EXPECT_FALSE(concat.bOk);  // both parts exist, but no file has that name
    EXPECT_EQ(concat.Error, "File not found.");
}

TEST(AudioDecode, NeverReadsAFileThatTheChosenFileNames)
{
    // The file a hostile list points at: a 1 kHz tone, 2 s, of a kind a
    // playlist may name.
    const std::string secret =
        MakeFfmpegFixture("audio_decode_secret.mp3", "-f lavfi -i sine=frequency=1000:duration=2 -c:a libmp3lame");
    const std::string playlist = "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXTINF:2.0,\nfile://" + secret +
                                 "\n#EXT-X-ENDLIST\n";
    struct Case { const char* Name; std::string Text; };
    const Case cases[] = {
        {"audio_decode_playlist.m3u8", playlist},
        {"audio_decode_playlist.mp3", playlist},
        {"audio_decode_list.wav", "ffconcat version 1.0\nfile '" + secret + "'\n"},
        {"audio_decode_relative_list.wav", "ffconcat version 1.0\nfile 'audio_decode_secret.mp3'\n"},
    };
    // The editor's import, which opens what it is given, does follow the
    // playlist: the fixture is a real threat.
    WriteFileBytes(ScratchPath(cases[0].Name), cases[0].Text);
    // More than a second of it: 48000 * 2 floats.
    ASSERT_GT(EditorFrames(ScratchPath(cases[0].Name)).size(), 96000u);
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.Name);
        const std::string path = ScratchPath(c.Name);
        WriteFileBytes(path, c.Text);
        const Result r = DecodeWithin(std::chrono::seconds(10), path);
        EXPECT_FALSE(r.bOk) << "decoded " << r.Audio.Frames.size() << " floats";
        EXPECT_FALSE(r.Error.empty());
    }
}

TEST(AudioDecode, RefusesARateBeyondAnyRecordingWithTheRateInTheMessage)
{
    const std::string path = MakeFfmpegFixture("audio_decode_ghz.wav", "-f lavfi -i sine=duration=0.1");
    std::string bytes = ReadFileBytes(path);
    const uint32_t rate = 1900000000;  // little-endian at byte 24 of the canonical header
    for (int i = 0; i < 4; ++i)
        bytes[24 + i] = static_cast<char>(rate >> (8 * i));
    WriteFileBytes(path, bytes);
    const Result r = Decode(path);
    EXPECT_FALSE(r.bOk);
    EXPECT_NE(r.Error.find("1900000000 Hz"), std::string::npos) << r.Error;
}

TEST(AudioDecode, CancelFromAnotherThreadStopsEarlyAndProgressEndsAtOne)
{
    // 10 minutes: far more than the moment it takes to cancel.
    const std::string path = MakeFfmpegFixture(
        "audio_decode_long.wav", "-f lavfi -i sine=frequency=440:sample_rate=44100:duration=600 -ac 2 -c:a pcm_s16le");
    for (const auto& [way, wayControl] : EveryWay())
    {
        SCOPED_TRACE(way);
        std::atomic<bool> cancel{false};
        std::atomic<double> progress{0.0};
        DecodeControl control = wayControl;
        control.pCancel = &cancel;
        control.pProgress = &progress;
        auto pending = std::async(std::launch::async, [&] { return Decode(path, control); });
        while (progress.load() == 0.0)
            std::this_thread::yield();
        cancel = true;
        ASSERT_EQ(pending.wait_for(std::chrono::seconds(10)), std::future_status::ready);
        const Result r = pending.get();
        EXPECT_FALSE(r.bOk);
        EXPECT_EQ(r.Error, "Opening cancelled.");
        EXPECT_TRUE(r.Audio.Frames.empty());
        EXPECT_LT(progress.load(), 1.0);
    }
    const std::string whole = MakeFfmpegFixture("audio_decode_progress.flac", std::string(kStereo441) + " -c:a flac");
    for (const auto& [way, wayControl] : EveryWay())
    {
        SCOPED_TRACE(way);
        std::atomic<double> progress{0.0};
        std::atomic<bool> bDone{false};
        DecodeControl control = wayControl;
        control.pProgress = &progress;
        // Sampled from beside: the two halves report in turn, and the sum
        // they show must never go back.
        std::thread watcher([&] {
            double last = 0.0;
            while (!bDone.load())
            {
                const double now = progress.load();
                EXPECT_GE(now, last);
                last = now;
                std::this_thread::yield();
            }
        });
        const Result r = Decode(whole, control);
        bDone = true;
        watcher.join();
        ASSERT_TRUE(r.bOk) << r.Error;
        EXPECT_EQ(progress.load(), 1.0);
    }
}

TEST(AudioDecode, StopsAtTheSizeBoundWithItsSizeInTheMessage)
{
    const std::string path = MakeFfmpegFixture("audio_decode_bound.flac", std::string(kStereo441) + " -c:a flac");
    const Result whole = Decode(path);
    ASSERT_TRUE(whole.bOk) << whole.Error;
    const uint64_t bytes = whole.Audio.Frames.size() * sizeof(float);  // about 4 s * 48000 * 8 = 1.5 MB

    struct Case { uint64_t MaxBytes; bool bOk; const char* Message; };
    const Case cases[] = {
        {bytes, true, ""},  // exactly the output: allowed
        {bytes - 8, false,  // one stereo frame less
         "The audio is longer than the limit of 1.5 MiB of decoded samples; opening stopped."},
        // In halves, past the seam: the second half's bound counts what the first made.
        {uint64_t(1) << 20, false,
         "The audio is longer than the limit of 1.0 MiB of decoded samples; opening stopped."},
        // Before the seam, in the first half's own part.
        {uint64_t(6) << 17, false,
         "The audio is longer than the limit of 0.8 MiB of decoded samples; opening stopped."},
    };
    for (const Case& c : cases)
        for (const auto& [way, wayControl] : EveryWay())
        {
            SCOPED_TRACE(std::to_string(c.MaxBytes) + " bytes, " + way);
            DecodeControl control = wayControl;
            control.MaxDecodedBytes = c.MaxBytes;
            const Result r = Decode(path, control);
            EXPECT_EQ(r.bOk, c.bOk);
            EXPECT_EQ(r.Error, c.Message);
            EXPECT_EQ(r.Audio.Frames.size(), c.bOk ? whole.Audio.Frames.size() : 0u);
        }
}
