#include "save_format.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "audio_codec_internal.h"
#include "audio_decode.h"
#include "audio_format_convert.h"
#include "document_format.h"

namespace
{
// FLAC of music-like material is about this share of the PCM it holds.
constexpr double kFlacShareOfPcm = 0.6;
constexpr uint64_t kWavHeaderBytes = 44;

std::string LowerExtension(const std::string& Path)
{
    std::string ext = std::filesystem::path(Path).extension().string();
    for (char& c : ext)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

std::string ChannelWords(int Channels)
{
    return Channels == 1 ? "mono" : Channels == 2 ? "stereo" : std::to_string(Channels) + " channels";
}

std::string DepthWords(int Bits)
{
    return Bits >= 32 ? "32-bit float" : std::to_string(Bits) + "-bit";
}

// The container's short name as users know it.
std::string KindOf(const SourceFormat& Source)
{
    if (Source.Codec.rfind("pcm_", 0) == 0)
        return "PCM";
    if (Source.Codec == "flac")
        return "FLAC";
    std::string name = Source.Codec;
    for (char& c : name)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return name;
}

int EffectiveBits(const SaveFormat& Format, const std::string& Ext)
{
    if (Ext == ".flac")
        return Format.Bits == 16 ? 16 : 24;
    if (Ext == ".wav")
        return Format.Bits == 16 || Format.Bits == 24 ? Format.Bits : 32;
    return 0;
}
}  // namespace

SourceFormat SourceFormatOf(const DecodedAudio& Audio)
{
    SourceFormat source;
    source.bKnown = Audio.SourceSampleRate > 0 && Audio.SourceChannels > 0;
    source.Codec = Audio.SourceCodec;
    source.CodecLongName = Audio.CodecName;
    source.SampleRate = Audio.SourceSampleRate;
    source.Channels = Audio.SourceChannels;
    source.Layout = Audio.SourceChannelLayout;
    source.Bits = Audio.SourceBits;
    source.bFloat = Audio.bSourceFloat;
    source.bLossy = Audio.bSourceLossy;
    source.BitrateKbps = Audio.SourceBitrateKbps;
    source.Frames = Audio.SourceFrames;
    source.OpenedFrames = DocumentFrames(Audio.Frames.size());
    return source;
}

std::string DescribeSource(const SourceFormat& Source)
{
    if (!Source.bKnown)
        return "";
    std::string text = KindOf(Source);
    if (Source.bLossy)
        text += Source.BitrateKbps > 0 ? " " + std::to_string(Source.BitrateKbps) + " kb/s" : "";
    else if (Source.Bits > 0)
        text += " " + (Source.bFloat ? std::to_string(Source.Bits) + "-bit float" : std::to_string(Source.Bits) + "-bit");
    text += ", " + std::to_string(Source.SampleRate) + " Hz, " + ChannelWords(Source.Channels);
    if (Source.Channels > 2 && !Source.Layout.empty())
        text += " (" + Source.Layout + ")";
    return text;
}

std::string DescribeSave(const SaveFormat& Format, const std::string& Path)
{
    const std::string ext = LowerExtension(Path);
    std::string text = ext.empty() ? "audio" : ext.substr(1);
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    const int bits = EffectiveBits(Format, ext);
    if (bits > 0)
        text += " " + DepthWords(bits) + (Format.bDither && bits < 32 ? " dithered" : "");
    else
        text += " " + std::to_string(Format.BitrateKbps) + " kb/s";
    return text + ", " + std::to_string(Format.SampleRate) + " Hz, " + ChannelWords(Format.Channels);
}

std::string ProposedExtension(const SourceFormat& Source)
{
    if (Source.bKnown && !Source.bLossy && Source.Codec.rfind("pcm_", 0) == 0)
        return ".wav";
    return ".flac";
}

SaveFormat DefaultSaveFormat(const SourceFormat& Source, int LossyKbps)
{
    SaveFormat format;
    format.BitrateKbps = Source.bLossy && Source.BitrateKbps > 0 ? Source.BitrateKbps : LossyKbps;
    if (!Source.bKnown)
        return format;
    format.SampleRate = Source.SampleRate;
    format.Channels = Source.Channels == 1 ? 1 : 2;
    if (Source.bFloat)
        format.Bits = 32;
    else if (!Source.bLossy && Source.Bits > 0)
        format.Bits = Source.Bits <= 16 ? 16 : Source.Bits <= 24 ? 24 : 32;
    return format;
}

std::string ChannelWarning(const SourceFormat& Source)
{
    if (!Source.bKnown || Source.Channels <= 2)
        return "";
    return "The source has " + std::to_string(Source.Channels) + " channels" +
           (Source.Layout.empty() ? "" : " (" + Source.Layout + ")") +
           "; the document holds the stereo mix made at opening, so it is saved as stereo.";
}

void ApplySaveFormat(const SaveFormat& Format, const SourceFormat& Source, size_t DocumentFrames,
                     EncodeOptions& Out)
{
    Out.OutputRateHz = Format.SampleRate;
    Out.OutputChannels = Format.Channels;
    Out.SampleBits = Format.Bits;
    Out.bDither = Format.bDither;
    Out.BitrateKbps = Format.BitrateKbps;
    // A mono source was spread over both channels at the import's level.
    Out.MonoScale = Format.Channels == 1 && Source.bKnown && Source.Channels == 1 ? 1.0 / ImportMonoSpreadGain() : 1.0;
    // At the source's rate the document's frames map back onto the source's
    // samples: unedited, the file has the source's length; cut, it is
    // shorter by the cut's share.
    const double frames = Source.bKnown && Format.SampleRate == Source.SampleRate && Source.Frames > 0 &&
                                  Source.OpenedFrames > 0
                              ? static_cast<double>(DocumentFrames) * Source.Frames / Source.OpenedFrames
                              : static_cast<double>(DocumentFrames) * Format.SampleRate / kDocumentRateHz;
    Out.OutputFrames = std::max<int64_t>(1, std::llround(frames));
}

uint64_t EstimatedBytes(const SaveFormat& Format, const std::string& Path, size_t DocumentFrames)
{
    const std::string ext = LowerExtension(Path);
    const double seconds = static_cast<double>(DocumentFrames) / kDocumentRateHz;
    const int bits = EffectiveBits(Format, ext);
    if (bits == 0)
        return static_cast<uint64_t>(seconds * Format.BitrateKbps * 1000.0 / 8.0);
    const double pcm = seconds * Format.SampleRate * Format.Channels * bits / 8.0;
    return static_cast<uint64_t>(ext == ".flac" ? pcm * kFlacShareOfPcm : pcm + kWavHeaderBytes);
}

std::string ByteSizeText(uint64_t Bytes)
{
    char text[32];
    if (Bytes >= (uint64_t(1) << 30))
        std::snprintf(text, sizeof text, "%.2f GB", static_cast<double>(Bytes) / 1e9);
    else if (Bytes >= 1000000)
        std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(Bytes) / 1e6);
    else
        std::snprintf(text, sizeof text, "%.0f kB", static_cast<double>(Bytes) / 1e3);
    return text;
}
