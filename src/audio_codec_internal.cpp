// The audio encoder on FFmpeg.
//
// Index:
//   --- Formats ---         extension to muxer, encoder and settings
//   --- Output ---          the muxer's I/O on a descriptor, progress and cancel
//   --- Encoder session --- muxer, encoder, resampler and FIFO of one file
//   --- Entry point ---

#include "audio_codec_internal.h"

#include "audio_format_convert.h"
#include "replacement_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libswresample/swresample.h>
}

namespace {

constexpr int kMaxChannels = 8;
// Far above any real audio; keeps a wild value from reaching the codecs.
constexpr int kMaxSampleRateHz = 768000;
constexpr int kDefaultBitrateKbps = 192;
constexpr int kMinBitrateKbps = 32;
constexpr int kMaxBitrateKbps = 320;
// libopus refuses more than this per channel.
constexpr int kOpusMaxKbpsPerChannel = 256;
// Codecs that take frames of any length (PCM) get them in this size, and the
// resampler makes about this many frames from each slice of the input.
constexpr int kSliceFrames = 4096;

// --- Formats ---

enum class RateControl
{
    None,     // lossless: the bitrate is not used
    Bitrate,  // average bitrate in bits per second
    Quality,  // Vorbis: libvorbis refuses many average bitrates for a given rate
              // and channel count, but takes every quality
};

struct OutputFormat
{
    const char* Extension;  // lower case, with its dot
    const char* MuxerName;
    const char* EncoderName;
    RateControl Control;
};

// The one list of what the encoder writes, lossless formats first; the
// program's dialogs and usage text ask it through WritableExtensions.
constexpr OutputFormat kOutputFormats[] = {
    {".flac", "flac", "flac", RateControl::None},
    // 32-bit float keeps the editor's samples exactly, also beyond full scale.
    {".wav", "wav", "pcm_f32le", RateControl::None},
    {".ogg", "ogg", "libvorbis", RateControl::Quality},
    {".opus", "opus", "libopus", RateControl::Bitrate},
    {".mp3", "mp3", "libmp3lame", RateControl::Bitrate},
    {".m4a", "ipod", "aac", RateControl::Bitrate},
};

bool IsOfKind(const OutputFormat& Format, WritableKind Kind)
{
    const bool bLossy = Format.Control != RateControl::None;
    return Kind == WritableKind::Any || (Kind == WritableKind::Lossy) == bLossy;
}

const OutputFormat* FindOutputFormat(const std::string& Path)
{
    std::string extension = std::filesystem::path(Path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const OutputFormat& format : kOutputFormats)
        if (extension == format.Extension)
            return &format;
    return nullptr;
}

std::string UnsupportedExtensionText(const std::string& Path)
{
    const std::string extension = std::filesystem::path(Path).extension().string();
    const std::string what =
        extension.empty() ? "The file name has no extension" : "Unsupported audio file extension: " + extension;
    return what + " (use " + WritableExtensionsText(WritableKind::Any) + ").";
}

int BoundedBitrateKbps(int BitrateKbps)
{
    if (BitrateKbps <= 0)
        return kDefaultBitrateKbps;
    return std::clamp(BitrateKbps, kMinBitrateKbps, kMaxBitrateKbps);
}

// The Vorbis quality (0..10) whose nominal rate for 44.1 kHz stereo is the
// given one, interpolated between the steps.
double VorbisQualityForKbps(int Kbps)
{
    constexpr int kNominalKbps[] = {64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 500};
    constexpr int kSteps = static_cast<int>(std::size(kNominalKbps));
    if (Kbps <= kNominalKbps[0])
        return 0.0;
    for (int quality = 1; quality < kSteps; ++quality)
    {
        if (Kbps <= kNominalKbps[quality])
        {
            const int low = kNominalKbps[quality - 1];
            return quality - 1 + static_cast<double>(Kbps - low) / (kNominalKbps[quality] - low);
        }
    }
    return kSteps - 1.0;
}

// The WAV codec for a depth: 16- or 24-bit integers, else float.
const char* WavEncoderName(int SampleBits)
{
    return SampleBits == 16 ? "pcm_s16le" : SampleBits == 24 ? "pcm_s24le" : "pcm_f32le";
}

// Float where the codec takes it, else the deepest integer format it has;
// 16-bit first when SampleBits asks for it.
AVSampleFormat ChooseSampleFormat(const AVCodec* pCodec, int SampleBits)
{
    constexpr AVSampleFormat kPreferred[] = {AV_SAMPLE_FMT_FLTP, AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_S32P,
                                             AV_SAMPLE_FMT_S32,  AV_SAMPLE_FMT_S16P, AV_SAMPLE_FMT_S16};
    constexpr AVSampleFormat kSixteenFirst[] = {AV_SAMPLE_FMT_S16P, AV_SAMPLE_FMT_S16};
    if (!pCodec->sample_fmts)
        return AV_SAMPLE_FMT_FLT;
    for (AVSampleFormat preferred : kSixteenFirst)
        for (const AVSampleFormat* pFormat = pCodec->sample_fmts;
             SampleBits == 16 && *pFormat != AV_SAMPLE_FMT_NONE; ++pFormat)
            if (*pFormat == preferred)
                return preferred;
    for (AVSampleFormat preferred : kPreferred)
        for (const AVSampleFormat* pFormat = pCodec->sample_fmts; *pFormat != AV_SAMPLE_FMT_NONE; ++pFormat)
            if (*pFormat == preferred)
                return preferred;
    return pCodec->sample_fmts[0];
}

// The input rate where the codec takes it, else the nearest supported rate
// above it (nothing is lost), else the highest.
int ChooseSampleRate(const AVCodec* pCodec, int InputRateHz)
{
    if (!pCodec->supported_samplerates)
        return InputRateHz;
    int nearestAbove = 0;
    int highest = 0;
    for (const int* pRate = pCodec->supported_samplerates; *pRate != 0; ++pRate)
    {
        if (*pRate == InputRateHz)
            return InputRateHz;
        if (*pRate > InputRateHz && (nearestAbove == 0 || *pRate < nearestAbove))
            nearestAbove = *pRate;
        highest = std::max(highest, *pRate);
    }
    return nearestAbove != 0 ? nearestAbove : highest;
}

// The input's channel count where the codec takes it; otherwise the largest
// layout below it (MP3 holds two channels: more are mixed down), else the first.
int ChooseChannelLayout(const AVCodec* pCodec, int Channels, AVChannelLayout* OutLayout)
{
    if (!pCodec->ch_layouts)
    {
        av_channel_layout_default(OutLayout, Channels);
        return 0;
    }
    const AVChannelLayout* pBest = nullptr;
    for (const AVChannelLayout* pLayout = pCodec->ch_layouts; pLayout->nb_channels != 0; ++pLayout)
    {
        if (pLayout->nb_channels == Channels)
            return av_channel_layout_copy(OutLayout, pLayout);
        if (pLayout->nb_channels < Channels && (!pBest || pLayout->nb_channels > pBest->nb_channels))
            pBest = pLayout;
    }
    return av_channel_layout_copy(OutLayout, pBest ? pBest : pCodec->ch_layouts);
}

// --- Output ---

// The muxer writes into a descriptor of ours (the unnamed file has no path to
// open); the seek lets WAV, FLAC and M4A go back to complete their headers.
int WriteToDescriptor(void* pOpaque, uint8_t* pBuffer, int Size)
{
    const int fd = *static_cast<const int*>(pOpaque);
    for (int written = 0; written < Size;)
    {
        const ssize_t count = write(fd, pBuffer + written, static_cast<size_t>(Size - written));
        if (count < 0 && errno != EINTR)
            return AVERROR(errno);
        if (count == 0)
            return AVERROR(EIO);  // a regular file that takes nothing would loop forever
        written += count > 0 ? static_cast<int>(count) : 0;
    }
    return Size;
}

int64_t SeekDescriptor(void* pOpaque, int64_t Offset, int Whence)
{
    const int fd = *static_cast<const int*>(pOpaque);
    if (Whence & AVSEEK_SIZE)
    {
        struct stat status = {};
        return fstat(fd, &status) == 0 ? static_cast<int64_t>(status.st_size) : AVERROR(errno);
    }
    const off_t position = lseek(fd, Offset, Whence & ~AVSEEK_FORCE);
    return position < 0 ? AVERROR(errno) : static_cast<int64_t>(position);
}

// The caller's progress and cancel flags; either may be absent.
struct SaveWatch
{
    std::atomic<double>* pProgress;
    const std::atomic<bool>* pCancel;

    bool Cancelled() const { return pCancel && pCancel->load(std::memory_order_relaxed); }
    void Report(double Fraction) const
    {
        if (pProgress)
            pProgress->store(Fraction, std::memory_order_relaxed);
    }
};

constexpr const char* kCancelledText = "Saving cancelled.";
// The part of the progress that the encoding covers; the rest is the trailer
// and the rename, so 1 means the file is in place.
constexpr double kEncodingShare = 0.99;

// --- Encoder session ---

struct EncodeRequest
{
    const OutputFormat& Format;
    const AVCodec* pCodec;
    int SampleRate;
    int Channels;
    int BitrateKbps;
    const std::map<std::string, std::string>& Tags;
    int SampleBits;
    const std::vector<TimedMarker>& Markers;  // chapters, where the container is not WAV
};

// The FFmpeg objects of one file, declared in the order of their making and
// released in reverse by the destructor. Each step returns false and leaves a
// text in Error() on failure.
class EncoderSession
{
public:
    EncoderSession() = default;
    EncoderSession(const EncoderSession&) = delete;
    EncoderSession& operator=(const EncoderSession&) = delete;

    ~EncoderSession()
    {
        av_packet_free(&pPacket);
        av_frame_free(&pFrame);
        av_frame_free(&pConverted);
        if (pFifo)
            av_audio_fifo_free(pFifo);
        swr_free(&pResampler);
        if (pIo)
            av_freep(&pIo->buffer);  // the context does not own its buffer
        avio_context_free(&pIo);
        avcodec_free_context(&pEncoder);
        avformat_free_context(pOutput);
    }

    // Fd stays the caller's; the session only writes and seeks through it.
    bool Open(const EncodeRequest& Request, int Fd)
    {
        InputChannels = Request.Channels;
        OutputFd = Fd;
        return OpenMuxer(Request.Format) && OpenEncoder(Request) && OpenStream(Request.Tags, Request.Markers) &&
               OpenResampler(Request.SampleRate) && AllocateBuffers();
    }

    // Checks for a cancel before each slice of the input and reports the
    // share consumed after it.
    bool Write(const float* pSamples, size_t SampleCount, const SaveWatch& Watch)
    {
        const size_t channels = static_cast<size_t>(pConverter ? SourceChannels : InputChannels);
        const size_t frameCount = SampleCount / channels;
        for (size_t first = 0; first < frameCount; first += static_cast<size_t>(InputSliceFrames))
        {
            if (Watch.Cancelled())
                return Cancel();
            const int count = static_cast<int>(std::min<size_t>(InputSliceFrames, frameCount - first));
            if (!Feed(pSamples + first * channels, count))
                return false;
            Watch.Report(kEncodingShare * static_cast<double>(first + count) / frameCount);
        }
        return true;
    }

    // Drains the resampler, the FIFO's short tail and the encoder, then closes
    // the file.
    bool Finish()
    {
        if (!FinishConversion() || !Resample(nullptr, 0) || !EncodeFromFifo(1) || !SendToEncoder(nullptr))
            return false;
        const int trailerResult = av_write_trailer(pOutput);
        if (trailerResult < 0)
            return Fail("Failed to finish the audio file", trailerResult);
        // Write errors stay in the context until here.
        avio_flush(pIo);
        if (pIo->error < 0)
            return Fail("Failed to write the audio file", pIo->error);
        return true;
    }

    const std::string& Error() const { return ErrorText; }

    // The integer depth the file holds (16 or 24), 0 for float and lossy.
    int IntegerBits() const
    {
        const AVSampleFormat packed = av_get_packed_sample_fmt(pEncoder->sample_fmt);
        if (pEncoder->codec_id == AV_CODEC_ID_PCM_S24LE || (pEncoder->codec_id == AV_CODEC_ID_FLAC && packed == AV_SAMPLE_FMT_S32))
            return 24;
        return packed == AV_SAMPLE_FMT_S16 ? 16 : 0;
    }

    // From here on the input goes through Conversion first; its input is
    // what Write is given, its output what the encoder was opened for.
    bool Convert(const FormatConversion& Conversion)
    {
        pConverter = std::make_unique<FormatConverter>();
        if (!pConverter->Open(Conversion, ErrorText))
            return false;
        SourceChannels = Conversion.InputChannels;
        return true;
    }

private:
    // Count input frames into the FIFO and on to the encoder, through the
    // converter when there is one.
    bool Feed(const float* pFrames, int Count)
    {
        if (pConverter)
        {
            Converted.clear();
            if (!pConverter->Convert(pFrames, static_cast<size_t>(Count), Converted, ErrorText))
                return false;
            pFrames = Converted.data();
            Count = static_cast<int>(Converted.size() / static_cast<size_t>(InputChannels));
        }
        const uint8_t* pInput = reinterpret_cast<const uint8_t*>(pFrames);
        return Count == 0 || (Resample(&pInput, Count) && EncodeFromFifo(FrameSize));
    }

    bool FinishConversion()
    {
        if (!pConverter)
            return true;
        Converted.clear();
        if (!pConverter->Finish(Converted, ErrorText))
            return false;
        const uint8_t* pInput = reinterpret_cast<const uint8_t*>(Converted.data());
        const int count = static_cast<int>(Converted.size() / static_cast<size_t>(InputChannels));
        return count == 0 || Resample(&pInput, count);
    }

    bool Fail(const std::string& What, int Code)
    {
        ErrorText = What + ": " + FfmpegErrorText(Code) + ".";
        return false;
    }

    bool Cancel()
    {
        ErrorText = kCancelledText;
        return false;
    }

    bool OpenMuxer(const OutputFormat& Format)
    {
        const int result = avformat_alloc_output_context2(&pOutput, nullptr, Format.MuxerName, nullptr);
        if (result < 0 || !pOutput)
            return Fail(std::string("Failed to set up the ") + Format.MuxerName + " container", result);
        return true;
    }

    bool OpenEncoder(const EncodeRequest& Request)
    {
        pEncoder = avcodec_alloc_context3(Request.pCodec);
        if (!pEncoder)
            return Fail("Failed to allocate the encoder", AVERROR(ENOMEM));
        const int layoutResult = ChooseChannelLayout(Request.pCodec, Request.Channels, &pEncoder->ch_layout);
        if (layoutResult < 0)
            return Fail("Failed to choose a channel layout", layoutResult);
        pEncoder->sample_fmt = ChooseSampleFormat(Request.pCodec, Request.SampleBits);
        pEncoder->sample_rate = ChooseSampleRate(Request.pCodec, Request.SampleRate);
        pEncoder->time_base = AVRational{1, pEncoder->sample_rate};
        SetRateControl(Request);
        // FLAC takes 32-bit samples as 24-bit ones, its deepest.
        if (av_get_packed_sample_fmt(pEncoder->sample_fmt) == AV_SAMPLE_FMT_S32)
            pEncoder->bits_per_raw_sample = 24;
        if (pOutput->oformat->flags & AVFMT_GLOBALHEADER)
            pEncoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        const int result = avcodec_open2(pEncoder, Request.pCodec, nullptr);
        if (result < 0)
            return Fail(std::string("Failed to open the ") + Request.pCodec->name + " encoder", result);
        const bool bAnyFrameSize = Request.pCodec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE;
        FrameSize = bAnyFrameSize || pEncoder->frame_size <= 0 ? kSliceFrames : pEncoder->frame_size;
        return true;
    }

    void SetRateControl(const EncodeRequest& Request)
    {
        const int kbps = BoundedBitrateKbps(Request.BitrateKbps);
        if (Request.Format.Control == RateControl::Quality)
        {
            pEncoder->flags |= AV_CODEC_FLAG_QSCALE;
            pEncoder->global_quality = static_cast<int>(std::lround(VorbisQualityForKbps(kbps) * FF_QP2LAMBDA));
        }
        else if (Request.Format.Control == RateControl::Bitrate)
        {
            const bool bOpus = Request.pCodec->id == AV_CODEC_ID_OPUS;
            const int ceilingKbps = bOpus ? kOpusMaxKbpsPerChannel * pEncoder->ch_layout.nb_channels : kbps;
            pEncoder->bit_rate = static_cast<int64_t>(std::min(kbps, ceilingKbps)) * 1000;
        }
    }

    bool OpenStream(const std::map<std::string, std::string>& Tags, const std::vector<TimedMarker>& Markers)
    {
        pStream = avformat_new_stream(pOutput, nullptr);
        if (!pStream)
            return Fail("Failed to add the audio stream", AVERROR(ENOMEM));
        const int parameterResult = avcodec_parameters_from_context(pStream->codecpar, pEncoder);
        if (parameterResult < 0)
            return Fail("Failed to describe the audio stream", parameterResult);
        pStream->time_base = pEncoder->time_base;
        if (!SetTags(Tags) || !SetChapters(Markers) || !OpenOutput())
            return false;
        const int headerResult = avformat_write_header(pOutput, nullptr);
        if (headerResult < 0)
            return Fail("Failed to write the file header", headerResult);
        return true;
    }

    // On the container, where the muxer of every format here takes them from
    // (the Ogg one copies them into each stream's Vorbis comments).
    bool SetTags(const std::map<std::string, std::string>& Tags)
    {
        for (const auto& [key, value] : Tags)
        {
            if (key.empty() || value.empty())
                continue;
            const int result = av_dict_set(&pOutput->metadata, key.c_str(), value.c_str(), 0);
            if (result < 0)
                return Fail("Failed to set the tag \"" + key + "\"", result);
        }
        return true;
    }

    // Chapters go on the container before its header, in milliseconds, the
    // finest step that ID3 CHAP and the Vorbis comments hold. WAV has none:
    // its cue points are written after the muxer is done. FLAC and Ogg
    // muxers write no chapters, so they go as the CHAPTERnnn comments that
    // FFmpeg's demuxers read back as chapters. A chapter track starts at 0:
    // an unnamed chapter fills the time before the first marker.
    bool SetChapters(const std::vector<TimedMarker>& Markers)
    {
        const std::string muxer = pOutput->oformat->name;
        if (muxer == "wav" || Markers.empty())
            return true;
        if (muxer == "flac" || muxer == "ogg" || muxer == "opus")
        {
            for (size_t i = 0; i < Markers.size(); ++i)
            {
                const int64_t ms = std::llround(Markers[i].StartSec * 1000.0);
                char key[32];
                char time[48];
                std::snprintf(key, sizeof(key), "CHAPTER%03zu", i + 1);
                std::snprintf(time, sizeof(time), "%02lld:%02lld:%02lld.%03lld", static_cast<long long>(ms / 3600000),
                              static_cast<long long>(ms / 60000 % 60), static_cast<long long>(ms / 1000 % 60),
                              static_cast<long long>(ms % 1000));
                if (av_dict_set(&pOutput->metadata, key, time, 0) < 0 ||
                    av_dict_set(&pOutput->metadata, (std::string(key) + "NAME").c_str(), Markers[i].Name.c_str(), 0) < 0)
                    return Fail("Failed to write the chapters", AVERROR(ENOMEM));
            }
            return true;
        }
        std::vector<TimedMarker> chapters = Markers;
        if (muxer == "ipod" && chapters.front().StartSec > 0.0)
            chapters.insert(chapters.begin(), TimedMarker{0.0, chapters.front().StartSec, std::string()});
        for (size_t i = 0; i < chapters.size(); ++i)
        {
            AVChapter* chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
            if (!chapter || av_dynarray_add_nofree(&pOutput->chapters, reinterpret_cast<int*>(&pOutput->nb_chapters),
                                                   chapter) < 0)
            {
                av_free(chapter);
                return Fail("Failed to add the chapters", AVERROR(ENOMEM));
            }
            chapter->id = static_cast<int64_t>(i + 1);
            chapter->time_base = AVRational{1, 1000};
            chapter->start = std::llround(chapters[i].StartSec * 1000.0);
            chapter->end = std::llround(chapters[i].EndSec * 1000.0);
            const int result = av_dict_set(&chapter->metadata, "title", chapters[i].Name.c_str(), 0);
            if (result < 0)
                return Fail("Failed to name a chapter", result);
        }
        return true;
    }

    bool OpenOutput()
    {
        constexpr int kIoBufferBytes = 64 * 1024;
        uint8_t* pBuffer = static_cast<uint8_t*>(av_malloc(kIoBufferBytes));
        if (!pBuffer)
            return Fail("Failed to open the output file", AVERROR(ENOMEM));
        pIo = avio_alloc_context(pBuffer, kIoBufferBytes, 1, &OutputFd, nullptr, WriteToDescriptor, SeekDescriptor);
        if (!pIo)
        {
            av_free(pBuffer);
            return Fail("Failed to open the output file", AVERROR(ENOMEM));
        }
        pOutput->pb = pIo;
        pOutput->flags |= AVFMT_FLAG_CUSTOM_IO;
        return true;
    }

    bool OpenResampler(int InputRateHz)
    {
        // Scaled by the rate change, so that a large upsampling does not make
        // huge buffers.
        const int64_t sliceFrames = av_rescale(kSliceFrames, InputRateHz, pEncoder->sample_rate);
        InputSliceFrames = static_cast<int>(std::max<int64_t>(1, sliceFrames));
        AVChannelLayout inputLayout = {};
        av_channel_layout_default(&inputLayout, InputChannels);
        const int allocResult =
            swr_alloc_set_opts2(&pResampler, &pEncoder->ch_layout, pEncoder->sample_fmt, pEncoder->sample_rate,
                                &inputLayout, AV_SAMPLE_FMT_FLT, InputRateHz, 0, nullptr);
        av_channel_layout_uninit(&inputLayout);
        if (allocResult < 0 || !pResampler)
            return Fail("Failed to set up the resampler", allocResult < 0 ? allocResult : AVERROR(ENOMEM));
        const int initResult = swr_init(pResampler);
        if (initResult < 0)
            return Fail("Failed to set up the resampler", initResult);
        return true;
    }

    bool AllocateBuffers()
    {
        pFifo = av_audio_fifo_alloc(pEncoder->sample_fmt, pEncoder->ch_layout.nb_channels, FrameSize);
        pConverted = av_frame_alloc();
        pFrame = av_frame_alloc();
        pPacket = av_packet_alloc();
        if (!pFifo || !pConverted || !pFrame || !pPacket)
            return Fail("Failed to allocate audio buffers", AVERROR(ENOMEM));
        return ReserveFrame(pFrame, FrameSize);
    }

    // Gives Frame room for at least Samples samples in the encoder's format.
    bool ReserveFrame(AVFrame* pTarget, int Samples)
    {
        if (pTarget->nb_samples >= Samples && pTarget->buf[0])
            return true;
        av_frame_unref(pTarget);
        pTarget->format = pEncoder->sample_fmt;
        pTarget->sample_rate = pEncoder->sample_rate;
        pTarget->nb_samples = Samples;
        const int layoutResult = av_channel_layout_copy(&pTarget->ch_layout, &pEncoder->ch_layout);
        const int result = layoutResult < 0 ? layoutResult : av_frame_get_buffer(pTarget, 0);
        if (result < 0)
            return Fail("Failed to allocate audio buffers", result);
        return true;
    }

    // Converts Count input frames (none with a null Input: that drains the
    // resampler's delay) into the FIFO.
    bool Resample(const uint8_t** Input, int Count)
    {
        const int capacity = swr_get_out_samples(pResampler, Count);
        if (capacity < 0)
            return Fail("Failed while resampling audio", capacity);
        if (capacity == 0 || !ReserveFrame(pConverted, capacity))
            return capacity == 0;
        const int made = swr_convert(pResampler, pConverted->extended_data, capacity, Input, Count);
        if (made < 0)
            return Fail("Failed while resampling audio", made);
        if (av_audio_fifo_write(pFifo, reinterpret_cast<void**>(pConverted->extended_data), made) < made)
            return Fail("Failed to buffer audio", AVERROR(ENOMEM));
        return true;
    }

    // Encodes frames of FrameSize while the FIFO holds at least MinSamples;
    // the last one may be shorter.
    bool EncodeFromFifo(int MinSamples)
    {
        while (av_audio_fifo_size(pFifo) >= MinSamples)
        {
            const int count = std::min(FrameSize, av_audio_fifo_size(pFifo));
            // The encoder may still hold the previous buffer; the full size is
            // restored first so that a fresh buffer is large enough.
            pFrame->nb_samples = FrameSize;
            const int writableResult = av_frame_make_writable(pFrame);
            if (writableResult < 0)
                return Fail("Failed to allocate audio buffers", writableResult);
            if (av_audio_fifo_read(pFifo, reinterpret_cast<void**>(pFrame->extended_data), count) < count)
                return Fail("Failed to buffer audio", AVERROR_BUG);
            pFrame->nb_samples = count;
            pFrame->pts = NextPts;
            NextPts += count;
            if (!SendToEncoder(pFrame))
                return false;
        }
        return true;
    }

    // A null Frame flushes the encoder.
    bool SendToEncoder(const AVFrame* pInput)
    {
        const int sendResult = avcodec_send_frame(pEncoder, pInput);
        if (sendResult < 0)
            return Fail("Failed to encode audio", sendResult);
        while (true)
        {
            const int receiveResult = avcodec_receive_packet(pEncoder, pPacket);
            if (receiveResult == AVERROR(EAGAIN) || receiveResult == AVERROR_EOF)
                return true;
            if (receiveResult < 0)
                return Fail("Failed to encode audio", receiveResult);
            av_packet_rescale_ts(pPacket, pEncoder->time_base, pStream->time_base);
            pPacket->stream_index = pStream->index;
            const int writeResult = av_interleaved_write_frame(pOutput, pPacket);
            if (writeResult < 0)
                return Fail("Failed to write audio data", writeResult);
        }
    }

    AVFormatContext* pOutput = nullptr;  // owns pStream; pb is pIo
    AVCodecContext* pEncoder = nullptr;
    AVStream* pStream = nullptr;
    AVIOContext* pIo = nullptr;  // writes to OutputFd
    SwrContext* pResampler = nullptr;
    AVAudioFifo* pFifo = nullptr;
    AVFrame* pConverted = nullptr;  // the resampler's output
    AVFrame* pFrame = nullptr;      // one frame for the encoder
    AVPacket* pPacket = nullptr;
    int OutputFd = -1;  // the caller's
    int InputChannels = 0;   // of the resampler's input: the converter's output when there is one
    int SourceChannels = 0;  // of what Write is given, when converted
    std::unique_ptr<FormatConverter> pConverter;
    std::vector<float> Converted;
    int InputSliceFrames = 0;  // input frames per call of the resampler
    int FrameSize = 0;  // samples per encoder frame
    int64_t NextPts = 0;  // in samples of the encoder's rate
    std::string ErrorText;
};

// --- Entry point ---

bool CheckArguments(const float* pSamples, size_t SampleCount, int SampleRate, int Channels, std::string& OutError)
{
    if (SampleRate < 1 || SampleRate > kMaxSampleRateHz)
        OutError = "Invalid sample rate: " + std::to_string(SampleRate) + " Hz.";
    else if (Channels < 1 || Channels > kMaxChannels)
        OutError = "Invalid channel count: " + std::to_string(Channels) + " (1 to 8).";
    else if (SampleCount % static_cast<size_t>(Channels) != 0)
        OutError = "Sample count " + std::to_string(SampleCount) + " is not a multiple of " +
                   std::to_string(Channels) + " channels.";
    // An empty Ogg, Opus, MP3 or M4A file is not read back by FFmpeg itself, so
    // no format gets one.
    else if (SampleCount == 0)
        OutError = "Nothing to save: the audio is empty.";
    else if (!pSamples)
        OutError = "No samples given for " + std::to_string(SampleCount) + " values.";
    else
        return true;
    return false;
}

const AVCodec* FindEncoder(const std::string& Path, int SampleBits, const OutputFormat*& OutFormat,
                           std::string& OutError)
{
    OutFormat = FindOutputFormat(Path);
    if (!OutFormat)
    {
        OutError = UnsupportedExtensionText(Path);
        return nullptr;
    }
    const char* name = std::strcmp(OutFormat->MuxerName, "wav") == 0 ? WavEncoderName(SampleBits) : OutFormat->EncoderName;
    const AVCodec* pCodec = avcodec_find_encoder_by_name(name);
    if (!pCodec)
        OutError = std::string("This FFmpeg has no ") + name + " encoder for " + OutFormat->Extension + " files.";
    return pCodec;
}

bool EncodeFile(const std::string& Path, const float* pSamples, size_t SampleCount, int SampleRate, int Channels,
                const EncodeOptions& Options, std::string& OutError)
{
    const SaveWatch watch{Options.pProgress, Options.pCancel};
    watch.Report(0.0);
    const OutputFormat* pFormat = nullptr;
    if (!CheckArguments(pSamples, SampleCount, SampleRate, Channels, OutError))
        return false;
    const AVCodec* pCodec = FindEncoder(Path, Options.SampleBits, pFormat, OutError);
    if (!pCodec)
        return false;
    const bool bConverted = Options.OutputRateHz > 0 || Options.OutputChannels > 0 || Options.SampleBits > 0 ||
                            Options.OutputFrames > 0;
    FormatConversion conversion;
    conversion.InputRateHz = SampleRate;
    conversion.InputChannels = Channels;
    conversion.OutputRateHz = Options.OutputRateHz > 0 ? Options.OutputRateHz : SampleRate;
    conversion.OutputChannels = Options.OutputChannels > 0 ? Options.OutputChannels : Channels;
    conversion.MonoScale = Options.MonoScale;
    conversion.bDither = Options.bDither;
    conversion.OutputFrames = Options.OutputFrames;
    if (conversion.OutputChannels != Channels && conversion.OutputChannels != 1)
    {
        OutError = "Cannot save " + std::to_string(Channels) + " channels as " +
                   std::to_string(conversion.OutputChannels) + ".";
        return false;
    }

    ReplacementFile file;
    if (!file.Create(Path, Options.bNamedTemporaryOnly, OutError))
        return false;
    EncoderSession session;
    const EncodeRequest request{*pFormat,
                                pCodec,
                                conversion.OutputRateHz,
                                conversion.OutputChannels,
                                Options.BitrateKbps,
                                Options.Tags,
                                Options.SampleBits,
                                Options.Markers};
    bool ok = session.Open(request, file.Descriptor());
    if (ok && bConverted)
    {
        conversion.QuantiseBits = session.IntegerBits();
        ok = session.Convert(conversion);
    }
    if (!ok || !session.Write(pSamples, SampleCount, watch) || !session.Finish())
    {
        OutError = session.Error();
        return false;
    }
    if (!Options.Markers.empty() && std::strcmp(pFormat->MuxerName, "wav") == 0 &&
        !AppendWavCues(file.Descriptor(), conversion.OutputRateHz, Options.Markers, OutError))
        return false;
    // The last moment a cancel can keep the old file.
    if (watch.Cancelled())
    {
        OutError = kCancelledText;
        return false;
    }
    if (!file.Commit(OutError))
        return false;
    watch.Report(1.0);
    return true;
}

}  // namespace

bool TarvikEncodeFloatAudioFileWith(const std::string& Path, const float* Samples, size_t SampleCount,
                                    int SampleRate, int Channels, const EncodeOptions& Options,
                                    std::string* ErrorMessage)
{
    std::string error;
    const bool bWritten = EncodeFile(Path, Samples, SampleCount, SampleRate, Channels, Options, error);
    if (!bWritten && ErrorMessage)
        *ErrorMessage = error;
    return bWritten;
}

bool TarvikEncodeFloatAudioFile(const std::string& Path, const std::vector<float>& Samples, int SampleRate,
                                int Channels, int BitrateKbps, std::string* ErrorMessage)
{
    EncodeOptions options;
    options.BitrateKbps = BitrateKbps;
    return TarvikEncodeFloatAudioFileWith(Path, Samples.data(), Samples.size(), SampleRate, Channels, options,
                                          ErrorMessage);
}

// --- The formats written ---

std::vector<std::string> WritableExtensions(WritableKind Kind)
{
    std::vector<std::string> extensions;
    for (const OutputFormat& format : kOutputFormats)
        if (IsOfKind(format, Kind))
            extensions.push_back(format.Extension);
    return extensions;
}

std::string WritableExtensionsText(WritableKind Kind, const char* Separator, const char* LastSeparator)
{
    const std::vector<std::string> extensions = WritableExtensions(Kind);
    std::string text;
    for (size_t i = 0; i < extensions.size(); ++i)
        text += (i == 0 ? "" : i + 1 == extensions.size() ? LastSeparator : Separator) + extensions[i];
    return text;
}

bool IsWritablePath(const std::string& Path, WritableKind Kind)
{
    const OutputFormat* format = FindOutputFormat(Path);
    return format && IsOfKind(*format, Kind);
}

std::string FfmpegErrorText(int Code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(Code, text, sizeof text);
    return text;
}
