// The shell's audio encoder on FFmpeg. The container and codec follow the
// path's extension, in any case: .ogg Vorbis, .opus Opus, .mp3 MP3, .flac FLAC
// (24-bit unless asked otherwise), .wav 32-bit float PCM (the samples exactly,
// also beyond full scale; 16- or 24-bit when asked), .m4a AAC. The file is written into an unnamed file beside its target
// and given the target's name only when complete and on the disk, so neither a
// failure nor a killed process leaves a truncated file or harms the file that
// was there (see replacement_file.h). Saving to a symbolic link replaces the
// file it points to and keeps the link.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "marker_files.h"

struct EncodeOptions
{
    // For the lossy formats: 0 or less means 192, other values are held to
    // 32..320 (Opus to 256 per channel); for Vorbis it picks the quality of
    // that nominal rate.
    int BitrateKbps = 0;
    // Keys as FFmpeg names them: title, artist, album, track, date, comment
    // (others pass through where the muxer knows them). Written as Vorbis
    // comments in .ogg, .opus and .flac, ID3v2 in .mp3, iTunes atoms in .m4a
    // and a LIST INFO chunk in .wav. Empty values are left out.
    std::map<std::string, std::string> Tags;
    // When not null: 0 at the start, rising with the audio encoded, 1 once the
    // file has its name. Written by the encoding thread, any thread may read.
    std::atomic<double>* pProgress = nullptr;
    // When not null and set (from any thread) before the file gets its name:
    // the encoding stops, the target stays as it was, no file is left, and the
    // result is false with "Saving cancelled.".
    const std::atomic<bool>* pCancel = nullptr;
    // The file's own format. SampleBits: 16 or 24 for integer samples, 32 for
    // float (WAV; FLAC holds 24 at most), 0 for the format's default (WAV
    // float, FLAC 24-bit); lossy formats take no depth. On the way the
    // samples go to OutputRateHz (0: the input's rate) with the SoX
    // resampler, to OutputChannels (0: the input's; 1: the mean of the
    // input's channels times MonoScale), are rounded to an integer depth (with
    // triangular dither when bDither), and are held to OutputFrames frames
    // (0: as many as the resampler gives).
    int SampleBits = 0;
    int OutputRateHz = 0;
    int OutputChannels = 0;
    double MonoScale = 1.0;
    bool bDither = false;
    int64_t OutputFrames = 0;
    // Writes through a hidden named temporary even where the filesystem has
    // unnamed files: for tests, and filesystems that misreport O_TMPFILE.
    bool bNamedTemporaryOnly = false;
    // Markers and regions, by time: cue points with their names in .wav,
    // chapters elsewhere (ID3 CHAP in .mp3, a chapter track in .m4a,
    // CHAPTERnnn comments in .ogg, .opus and .flac).
    std::vector<TimedMarker> Markers;
};

// Samples points to SampleCount interleaved floats, SampleRate frames per
// second (1 to 768000), Channels per frame (1 to 8); they are read during the
// call only, and no copy is made. A rate or channel count that the codec lacks
// is converted: to the nearest supported rate above, and MP3 mixes more than
// two channels down to stereo. Empty samples are refused, as an empty file of
// most of these formats does not open again. Returns true when the file is
// written; false with a reason in ErrorMessage (when not null) otherwise, with
// the target as it was.
bool TarvikEncodeFloatAudioFileWith(const std::string& Path, const float* Samples, size_t SampleCount,
                                    int SampleRate, int Channels, const EncodeOptions& Options,
                                    std::string* ErrorMessage);

// The same with the default options and BitrateKbps.
bool TarvikEncodeFloatAudioFile(const std::string& Path, const std::vector<float>& Samples, int SampleRate,
                                int Channels, int BitrateKbps, std::string* ErrorMessage);

// The formats written, one list in the encoder's hands, lossless ones first:
// the program's dialogs and usage text ask it rather than keep their own.
enum class WritableKind
{
    Any,
    Lossless,  // FLAC, WAV: no bitrate
    Lossy,     // a bitrate applies
};
// The extensions (lower case, with the dot) of the formats of Kind.
std::vector<std::string> WritableExtensions(WritableKind Kind = WritableKind::Any);
// ".flac, .wav, .ogg, .opus, .mp3 or .m4a": them joined for a message.
std::string WritableExtensionsText(WritableKind Kind, const char* Separator = ", ", const char* LastSeparator = " or ");
// Path's extension, in any case, is that of a format of Kind.
bool IsWritablePath(const std::string& Path, WritableKind Kind = WritableKind::Any);

// FFmpeg's words for one of its error codes ("Invalid data found when
// processing input"), for the messages of everything here on FFmpeg.
std::string FfmpegErrorText(int Code);
