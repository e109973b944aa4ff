// The decoding steps of the import and the program's decoder (see
// audio_decode_core.h).

#include "audio_decode_core.h"

#include <algorithm>
#include <cerrno>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libswresample/swresample.h>
}

namespace AudioDecodeCore
{
Step OpenStream(AVFormatContext** Format, const char* Url, AVDictionary** Options, AVCodecContext** Codec,
                int& OutStreamIndex, int& OutCode)
{
    OutCode = avformat_open_input(Format, Url, nullptr, Options);
    if (OutCode < 0)
        return Step::OpenInput;
    OutCode = avformat_find_stream_info(*Format, nullptr);
    if (OutCode < 0)
        return Step::ReadStreamInfo;
    OutStreamIndex = av_find_best_stream(*Format, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (OutStreamIndex < 0)
    {
        OutCode = OutStreamIndex;
        return Step::FindStream;
    }
    OutCode = 0;
    const AVCodecParameters* parameters = (*Format)->streams[OutStreamIndex]->codecpar;
    const AVCodec* decoder = avcodec_find_decoder(parameters->codec_id);
    if (!decoder)
        return Step::FindDecoder;
    *Codec = avcodec_alloc_context3(decoder);
    if (!*Codec)
        return Step::AllocateDecoder;
    OutCode = avcodec_parameters_to_context(*Codec, parameters);
    if (OutCode >= 0)
        OutCode = avcodec_open2(*Codec, decoder, nullptr);
    return OutCode < 0 ? Step::OpenDecoder : Step::None;
}

int SetUpConversion(SwrContext** Swr, const AVCodecContext& Codec, int OutRate, int OutChannels, Conversion& Out)
{
    AVChannelLayout outLayout;
    av_channel_layout_default(&outLayout, OutChannels);
    AVChannelLayout inputLayout = {};
    int rc = 0;
    if (Codec.ch_layout.nb_channels > 0)
        rc = av_channel_layout_copy(&inputLayout, &Codec.ch_layout);
    else
        av_channel_layout_default(&inputLayout, OutChannels);
    if (rc >= 0)
        rc = swr_alloc_set_opts2(Swr, &outLayout, AV_SAMPLE_FMT_FLT, OutRate, &inputLayout, Codec.sample_fmt,
                                 Codec.sample_rate, 0, nullptr);
    // The shape the resampler reads every frame in, fixed here.
    Out.InputChannels = inputLayout.nb_channels;
    Out.InputFormat = Codec.sample_fmt;
    av_channel_layout_uninit(&outLayout);
    av_channel_layout_uninit(&inputLayout);
    if (rc >= 0 && !*Swr)
        rc = AVERROR(EINVAL);
    if (rc >= 0)
        rc = swr_init(*Swr);
    if (rc < 0)
        return rc;
    Out.Swr = *Swr;
    Out.OutRate = OutRate;
    Out.OutChannels = OutChannels;
    return 0;
}

bool Conversion::Takes(const AVFrame& Frame) const
{
    return Frame.ch_layout.nb_channels == InputChannels && Frame.format == InputFormat;
}

int64_t Conversion::RoomFor(int CodecRate, int Samples) const
{
    const int rate = std::max(CodecRate, 1);
    const int64_t delay = swr_get_delay(Swr, rate);
    return std::max<int64_t>(1, av_rescale_rnd(delay + Samples, OutRate, rate, AV_ROUND_UP));
}

int Conversion::Convert(const AVFrame& Frame, int FromSample, float* Out, int Room)
{
    // extended_data, not data: it has a plane for every channel.
    const uint8_t** planes = const_cast<const uint8_t**>(Frame.extended_data);
    if (FromSample > 0)
    {
        const auto format = static_cast<AVSampleFormat>(Frame.format);
        const bool bPlanar = av_sample_fmt_is_planar(format);
        const int channels = Frame.ch_layout.nb_channels;
        const size_t skipBytes =
            static_cast<size_t>(FromSample) * av_get_bytes_per_sample(format) * (bPlanar ? 1 : channels);
        Planes.assign(planes, planes + (bPlanar ? channels : 1));
        for (const uint8_t*& plane : Planes)
            plane += skipBytes;
        planes = Planes.data();
    }
    uint8_t* outData[1] = {reinterpret_cast<uint8_t*>(Out)};
    return swr_convert(Swr, outData, Room, planes, Frame.nb_samples - FromSample);
}

int Conversion::TailRoom() const
{
    return swr_get_out_samples(Swr, 0);
}

int Conversion::Drain(float* Out, int Room)
{
    uint8_t* outData[1] = {reinterpret_cast<uint8_t*>(Out)};
    return swr_convert(Swr, outData, Room, nullptr, 0);
}
}  // namespace AudioDecodeCore
