#include "audio_format_convert.h"

#include "audio_codec_internal.h"

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace
{
constexpr int kMaxRateHz = 768000;
constexpr int kMaxInputChannels = 8;
// The SoX resampler's precision in bits: its default (20) is well below a
// 16-bit file's noise; deeper files get its very-high-quality setting.
constexpr int kSoxrPrecisionBits = 20;
constexpr int kSoxrDeepPrecisionBits = 28;

// One mono sample through a resampler set up as the import sets up its own
// (FFmpeg's defaults, mono in, stereo float out at the same rate).
double MeasureMonoSpread()
{
    SwrContext* swr = nullptr;
    AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    if (swr_alloc_set_opts2(&swr, &stereo, AV_SAMPLE_FMT_FLT, kDocumentRateHz, &mono, AV_SAMPLE_FMT_FLT,
                            kDocumentRateHz, 0, nullptr) < 0 ||
        swr_init(swr) < 0)
    {
        swr_free(&swr);
        return M_SQRT1_2;  // FFmpeg's documented centre-to-front level
    }
    const float input[1] = {0.5f};
    float output[2] = {0.0f, 0.0f};
    const uint8_t* in[1] = {reinterpret_cast<const uint8_t*>(input)};
    uint8_t* out[1] = {reinterpret_cast<uint8_t*>(output)};
    const int made = swr_convert(swr, out, 1, in, 1);
    swr_free(&swr);
    return made == 1 && output[0] > 0.0f ? static_cast<double>(output[0]) / 0.5 : M_SQRT1_2;
}
}  // namespace

double ImportMonoSpreadGain()
{
    static const double gain = MeasureMonoSpread();
    return gain;
}

FormatConverter::~FormatConverter()
{
    swr_free(&pResampler);
}

bool FormatConverter::Open(const FormatConversion& Wanted, std::string& OutError)
{
    Settings = Wanted;
    Emitted = 0;
    swr_free(&pResampler);
    if (Settings.InputRateHz < 1 || Settings.InputRateHz > kMaxRateHz || Settings.OutputRateHz < 1 ||
        Settings.OutputRateHz > kMaxRateHz)
    {
        OutError = "Invalid sample rate: " + std::to_string(Settings.OutputRateHz) + " Hz.";
        return false;
    }
    if (Settings.InputChannels < 1 || Settings.InputChannels > kMaxInputChannels ||
        (Settings.OutputChannels != 1 && Settings.OutputChannels != Settings.InputChannels))
    {
        OutError = "Cannot convert " + std::to_string(Settings.InputChannels) + " channels to " +
                   std::to_string(Settings.OutputChannels) + ".";
        return false;
    }
    if (Settings.InputRateHz == Settings.OutputRateHz)
        return true;
    AVChannelLayout layout = {};
    av_channel_layout_default(&layout, Settings.OutputChannels);
    int rc = swr_alloc_set_opts2(&pResampler, &layout, AV_SAMPLE_FMT_FLT, Settings.OutputRateHz, &layout,
                                 AV_SAMPLE_FMT_FLT, Settings.InputRateHz, 0, nullptr);
    av_channel_layout_uninit(&layout);
    if (rc >= 0)
        rc = av_opt_set(pResampler, "resampler", "soxr", 0);
    if (rc >= 0)
        rc = av_opt_set_double(pResampler, "precision",
                               Settings.QuantiseBits == 16 ? kSoxrPrecisionBits : kSoxrDeepPrecisionBits, 0);
    if (rc >= 0)
        rc = swr_init(pResampler);
    if (rc < 0)
    {
        swr_free(&pResampler);
        OutError = "Cannot set up the resampler: " + FfmpegErrorText(rc) + ".";
        return false;
    }
    return true;
}

bool FormatConverter::Convert(const float* Input, size_t Count, std::vector<float>& Out, std::string& OutError)
{
    const float* frames = Input;
    if (Settings.OutputChannels == 1 && Settings.InputChannels > 1)
    {
        // The mean, in double: two equal channels give back their own value.
        Mixed.resize(Count);
        const int channels = Settings.InputChannels;
        const double scale = Settings.MonoScale / channels;
        for (size_t i = 0; i < Count; ++i)
        {
            double sum = 0.0;
            for (int c = 0; c < channels; ++c)
                sum += Input[i * channels + c];
            Mixed[i] = static_cast<float>(sum * scale);
        }
        frames = Mixed.data();
    }
    if (!pResampler)
    {
        Emit(frames, Count, Out);
        return true;
    }
    for (size_t done = 0; done < Count;)
    {
        const int slice = static_cast<int>(std::min<size_t>(Count - done, 1 << 16));
        if (!Resample(frames + done * Settings.OutputChannels, slice, Out, OutError))
            return false;
        done += static_cast<size_t>(slice);
    }
    return true;
}

bool FormatConverter::Finish(std::vector<float>& Out, std::string& OutError)
{
    if (pResampler && !Resample(nullptr, 0, Out, OutError))
        return false;
    if (Emitted < Settings.OutputFrames)
    {
        const std::vector<float> silence(static_cast<size_t>(Settings.OutputFrames - Emitted) * Settings.OutputChannels,
                                         0.0f);
        Emit(silence.data(), silence.size() / Settings.OutputChannels, Out);
    }
    return true;
}

bool FormatConverter::Resample(const float* Input, int Count, std::vector<float>& Out, std::string& OutError)
{
    const int room = swr_get_out_samples(pResampler, Count);
    if (room < 0)
    {
        OutError = "Failed while resampling audio: " + FfmpegErrorText(room) + ".";
        return false;
    }
    std::vector<float>& buffer = Resampled;
    buffer.resize(static_cast<size_t>(room) * Settings.OutputChannels + Settings.OutputChannels);
    uint8_t* out[1] = {reinterpret_cast<uint8_t*>(buffer.data())};
    const uint8_t* in[1] = {reinterpret_cast<const uint8_t*>(Input)};
    const int made = swr_convert(pResampler, out, room, Input ? in : nullptr, Count);
    if (made < 0)
    {
        OutError = "Failed while resampling audio: " + FfmpegErrorText(made) + ".";
        return false;
    }
    Emit(buffer.data(), static_cast<size_t>(made), Out);
    return true;
}

void FormatConverter::Emit(const float* Frames, size_t Count, std::vector<float>& Out)
{
    if (Settings.OutputFrames > 0)
        Count = static_cast<size_t>(std::clamp<int64_t>(Settings.OutputFrames - Emitted, 0, static_cast<int64_t>(Count)));
    Emitted += static_cast<int64_t>(Count);
    const size_t values = Count * Settings.OutputChannels;
    const size_t first = Out.size();
    Out.insert(Out.end(), Frames, Frames + values);
    if (Settings.QuantiseBits <= 0)
        return;
    const double steps = std::ldexp(1.0, Settings.QuantiseBits - 1);
    const double lowest = -steps;
    const double highest = steps - 1.0;
    for (size_t i = first; i < Out.size(); ++i)
    {
        double level = static_cast<double>(Out[i]) * steps;
        if (Settings.bDither)
            level += NextDither();
        Out[i] = static_cast<float>(std::clamp(std::nearbyint(level), lowest, highest) / steps);
    }
}

// The difference of two uniform values in -0.5..0.5 steps: triangular over
// -1..1 step.
float FormatConverter::NextDither()
{
    auto uniform = [this] {
        DitherState ^= DitherState << 13;
        DitherState ^= DitherState >> 7;
        DitherState ^= DitherState << 17;
        return static_cast<float>(DitherState >> 40) / static_cast<float>(1 << 24);
    };
    return uniform() - uniform();
}
