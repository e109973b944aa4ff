// What a document's file was, and what saving makes of it. The editor holds
// every document as 48000 Hz stereo float; the program remembers the source's
// own rate, channels, depth and codec at open and gives the file back in
// them unless the user chooses otherwise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "document_format.h"

struct DecodedAudio;
struct EncodeOptions;

struct SourceFormat
{
    bool bKnown = false;  // false for a document that was never a file
    std::string Codec;        // short names: "pcm_s16le", "flac", "mp3"
    std::string CodecLongName;
    int SampleRate = 0;
    int Channels = 0;
    std::string Layout;       // "mono", "stereo", "5.1(side)"
    int Bits = 0;             // 16, 24, 32; 0 for lossy codecs
    bool bFloat = false;
    bool bLossy = false;
    int BitrateKbps = 0;      // of a lossy stream; 0 when unknown
    int64_t Frames = 0;       // samples per channel at SampleRate
    size_t OpenedFrames = 0;  // the document's frames at open, the resampler's tail included
};

// The format a save writes. Rate and channels are the file's; Bits 16 or 24
// for integer samples, 32 for float, 0 for the container's default.
struct SaveFormat
{
    int SampleRate = kDocumentRateHz;
    int Channels = 2;
    int Bits = 0;
    bool bDither = false;
    int BitrateKbps = 192;  // lossy containers only
};

SourceFormat SourceFormatOf(const DecodedAudio& Audio);

// "WAV 16-bit, 44100 Hz, mono"-like: how a source reads in the status bar.
std::string DescribeSource(const SourceFormat& Source);
// The same for what a save to Path writes.
std::string DescribeSave(const SaveFormat& Format, const std::string& Path);

// The extension a Save As proposes: the source's own container for WAV and
// FLAC, otherwise lossless FLAC.
std::string ProposedExtension(const SourceFormat& Source);

// What saving writes by default: the source's rate, channels (stereo for more
// than two) and depth; LossyKbps for a lossy container the source was not in.
SaveFormat DefaultSaveFormat(const SourceFormat& Source, int LossyKbps);

// Why the saved file cannot be the source's layout ("" when it can).
std::string ChannelWarning(const SourceFormat& Source);

// The encoder's settings for Format, for a document of DocumentFrames frames
// at 48000 Hz stereo. An unedited document comes back at the source's length.
void ApplySaveFormat(const SaveFormat& Format, const SourceFormat& Source, size_t DocumentFrames,
                     EncodeOptions& Out);

// About how many bytes a save of DocumentFrames writes to Path in Format.
uint64_t EstimatedBytes(const SaveFormat& Format, const std::string& Path, size_t DocumentFrames);

// "1.8 MB"
std::string ByteSizeText(uint64_t Bytes);
