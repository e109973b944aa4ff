// One thread gates the blocks for the integrated loudness and the range
// (libebur128) and sums the plain levels; the caller's thread meanwhile finds
// the true peaks. Each reads the frames once.
//
// The true peak is the peak of the audio resampled to four times its rate by
// FFmpeg's resampler, as FFmpeg's own ebur128 filter finds it: libswresample's
// vector code does this several times faster than libebur128's interpolator,
// which would otherwise take most of the measurement's time.

#include "loudness.h"

#include <ebur128.h>

extern "C"
{
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <thread>

#include "work_progress.h"

namespace
{
constexpr int64_t kBlockFrames = 1 << 15;
constexpr int kOversampling = 4;

struct StateDeleter
{
    void operator()(ebur128_state* State) const { ebur128_destroy(&State); }
};
using State = std::unique_ptr<ebur128_state, StateDeleter>;

struct ResamplerDeleter
{
    void operator()(SwrContext* Context) const { swr_free(&Context); }
};
using Resampler = std::unique_ptr<SwrContext, ResamplerDeleter>;

double Db(double Linear)
{
    return Linear > 0.0 ? 20.0 * std::log10(Linear) : -HUGE_VAL;
}

Resampler MakeOversampler(int Channels, int SampleRate)
{
    AVChannelLayout layout;
    av_channel_layout_default(&layout, Channels);
    SwrContext* context = nullptr;
    const int made = swr_alloc_set_opts2(&context, &layout, AV_SAMPLE_FMT_FLT, SampleRate * kOversampling, &layout,
                                         AV_SAMPLE_FMT_FLT, SampleRate, 0, nullptr);
    av_channel_layout_uninit(&layout);
    Resampler owned(context);
    if (made < 0 || !owned || swr_init(owned.get()) < 0)
        return nullptr;
    return owned;
}

// The per-channel levels of the frames, and the peaks of their oversampling.
struct Levels
{
    std::vector<double> Sums, Squares;
    std::vector<float> SamplePeaks, TruePeaks;
    std::vector<float> Oversampled;

    explicit Levels(int Channels)
        : Sums(Channels, 0.0), Squares(Channels, 0.0), SamplePeaks(Channels, 0.0f), TruePeaks(Channels, 0.0f)
    {
    }

    void Fold(const float* Frames, int64_t Count, int Channels)
    {
        for (int64_t frame = 0; frame < Count; ++frame)
            for (int channel = 0; channel < Channels; ++channel)
            {
                const float value = Frames[frame * Channels + channel];
                SamplePeaks[channel] = std::max(SamplePeaks[channel], std::fabs(value));
                Sums[channel] += value;
                Squares[channel] += static_cast<double>(value) * value;
            }
    }

    // Frames null flushes the resampler's tail. False when it failed.
    bool Oversample(SwrContext* Context, const float* Frames, int64_t Count, int Channels)
    {
        const int room = swr_get_out_samples(Context, static_cast<int>(Count));
        if (room < 0)
            return false;
        Oversampled.resize(static_cast<size_t>(room) * Channels + Channels);
        uint8_t* out = reinterpret_cast<uint8_t*>(Oversampled.data());
        const uint8_t* in = reinterpret_cast<const uint8_t*>(Frames);
        const int got = swr_convert(Context, &out, room + 1, Frames ? &in : nullptr, static_cast<int>(Count));
        if (got < 0)
            return false;
        for (int64_t frame = 0; frame < got; ++frame)
            for (int channel = 0; channel < Channels; ++channel)
                TruePeaks[channel] = std::max(TruePeaks[channel], std::fabs(Oversampled[frame * Channels + channel]));
        return true;
    }
};
}  // namespace

std::string MeasureLoudness(const float* Frames, int64_t Count, int Channels, int SampleRate, LoudnessFigures& Out,
                            WorkProgress* Progress)
{
    Out = LoudnessFigures{};
    if (!Frames || Count <= 0 || Channels <= 0 || SampleRate <= 0)
        return "no audio to measure";
    State gated(ebur128_init(static_cast<unsigned>(Channels), static_cast<unsigned long>(SampleRate),
                             EBUR128_MODE_I | EBUR128_MODE_LRA));
    if (!gated)
        return "out of memory for the loudness meter";
    Resampler oversampler = MakeOversampler(Channels, SampleRate);
    if (!oversampler)
        return "the resampler for the true peak could not be made";

    // The plain levels are summed on the gating thread, the lighter of the two.
    Levels levels(Channels);
    bool gatedFed = false;
    std::thread gating([&] {
        for (int64_t done = 0; done < Count; done += kBlockFrames)
        {
            const int64_t block = std::min(kBlockFrames, Count - done);
            const float* first = Frames + done * Channels;
            if (ebur128_add_frames_float(gated.get(), first, static_cast<size_t>(block)) != EBUR128_SUCCESS)
                return;
            levels.Fold(first, block, Channels);  // while the block is in the cache
            if (!WorkGoesOn(Progress, block / 2))
                break;
        }
        gatedFed = true;
    });
    bool oversampled = true;
    for (int64_t done = 0; done < Count && oversampled; done += kBlockFrames)
    {
        const int64_t block = std::min(kBlockFrames, Count - done);
        const float* first = Frames + done * Channels;
        oversampled = levels.Oversample(oversampler.get(), first, block, Channels);
        if (!WorkGoesOn(Progress, block - block / 2))
            break;
    }
    oversampled = oversampled && levels.Oversample(oversampler.get(), nullptr, 0, Channels);
    gating.join();
    if (Progress && Progress->IsCancelled())
        return WorkCancelledMessage();
    if (!gatedFed)
        return "the loudness meter refused the frames";
    if (!oversampled)
        return "the true peak could not be measured";

    if (ebur128_loudness_global(gated.get(), &Out.IntegratedLufs) != EBUR128_SUCCESS)
        return "the integrated loudness could not be measured";
    if (ebur128_loudness_range(gated.get(), &Out.RangeLu) != EBUR128_SUCCESS)
        Out.RangeLu = 0.0;
    Out.TruePeakDbtp = -HUGE_VAL;
    for (int channel = 0; channel < Channels; ++channel)
    {
        // The oversampled signal never reads lower than the samples it passes through.
        const double truePeak = std::max(levels.TruePeaks[channel], levels.SamplePeaks[channel]);
        Out.TruePeakDbtpPerChannel.push_back(Db(truePeak));
        Out.TruePeakDbtp = std::max(Out.TruePeakDbtp, Out.TruePeakDbtpPerChannel.back());
        Out.SamplePeakDbfs.push_back(Db(levels.SamplePeaks[channel]));
        Out.RmsDbfs.push_back(Db(std::sqrt(levels.Squares[channel] / static_cast<double>(Count))));
        Out.DcOffset.push_back(levels.Sums[channel] / static_cast<double>(Count));
    }
    return "";
}

std::string FormatLevel(double Value)
{
    if (std::isnan(Value))
        return "nan";
    if (std::isinf(Value))
        return Value < 0 ? "-inf" : "inf";
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f", Value);
    return text;
}

std::string DescribeLoudness(const LoudnessFigures& Figures)
{
    std::string text = "integrated loudness: " + FormatLevel(Figures.IntegratedLufs) + " LUFS\n" +
                       "loudness range: " + FormatLevel(Figures.RangeLu) + " LU\n" +
                       "true peak: " + FormatLevel(Figures.TruePeakDbtp) + " dBTP\n";
    for (size_t channel = 0; channel < Figures.SamplePeakDbfs.size(); ++channel)
    {
        char dc[32];
        std::snprintf(dc, sizeof(dc), "%.6f", Figures.DcOffset[channel]);
        text += "channel " + std::to_string(channel + 1) + ": true peak " +
                FormatLevel(Figures.TruePeakDbtpPerChannel[channel]) + " dBTP, sample peak " +
                FormatLevel(Figures.SamplePeakDbfs[channel]) + " dBFS, RMS " + FormatLevel(Figures.RmsDbfs[channel]) +
                " dBFS, DC offset " + dc + "\n";
    }
    return text;
}

LoudnessPlan PlanLoudness(const LoudnessFigures& Figures, double TargetLufs, double CeilingDbtp)
{
    LoudnessPlan plan;
    plan.GainDb = TargetLufs - Figures.IntegratedLufs;
    plan.ReachableLufs = Figures.IntegratedLufs + (CeilingDbtp - Figures.TruePeakDbtp);
    // A hundredth of a dB of slack, so that a target at the ceiling exactly fits.
    plan.bFits = Figures.TruePeakDbtp + plan.GainDb <= CeilingDbtp + 0.01;
    return plan;
}
