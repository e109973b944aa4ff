// One thread gates the blocks for the integrated loudness and the range; the
// caller's thread meanwhile finds the true peaks (4x oversampled by
// libebur128) and sums the plain levels. Each reads the frames once.

#include "loudness.h"

#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <thread>

namespace
{
constexpr int64_t kBlockFrames = 1 << 16;

struct StateDeleter
{
    void operator()(ebur128_state* State) const { ebur128_destroy(&State); }
};
using State = std::unique_ptr<ebur128_state, StateDeleter>;

double Db(double Linear)
{
    return Linear > 0.0 ? 20.0 * std::log10(Linear) : -HUGE_VAL;
}

bool Feed(ebur128_state* State, const float* Frames, int64_t Count, int Channels)
{
    for (int64_t done = 0; done < Count; done += kBlockFrames)
    {
        const int64_t block = std::min(kBlockFrames, Count - done);
        if (ebur128_add_frames_float(State, Frames + done * Channels, static_cast<size_t>(block)) != EBUR128_SUCCESS)
            return false;
    }
    return true;
}
}  // namespace

std::string MeasureLoudness(const float* Frames, int64_t Count, int Channels, int SampleRate, LoudnessFigures& Out)
{
    Out = LoudnessFigures{};
    if (!Frames || Count <= 0 || Channels <= 0 || SampleRate <= 0)
        return "no audio to measure";
    State gated(ebur128_init(static_cast<unsigned>(Channels), static_cast<unsigned long>(SampleRate),
                             EBUR128_MODE_I | EBUR128_MODE_LRA));
    State peaks(ebur128_init(static_cast<unsigned>(Channels), static_cast<unsigned long>(SampleRate),
                             EBUR128_MODE_TRUE_PEAK | EBUR128_MODE_SAMPLE_PEAK));
    if (!gated || !peaks)
        return "out of memory for the loudness meter";

    bool gatedFed = false;
    std::thread gating([&] { gatedFed = Feed(gated.get(), Frames, Count, Channels); });
    const bool peaksFed = Feed(peaks.get(), Frames, Count, Channels);
    std::vector<double> sums(Channels, 0.0);
    std::vector<double> squares(Channels, 0.0);
    for (int64_t frame = 0; frame < Count; ++frame)
        for (int channel = 0; channel < Channels; ++channel)
        {
            const double value = Frames[frame * Channels + channel];
            sums[channel] += value;
            squares[channel] += value * value;
        }
    gating.join();
    if (!gatedFed || !peaksFed)
        return "the loudness meter refused the frames";

    if (ebur128_loudness_global(gated.get(), &Out.IntegratedLufs) != EBUR128_SUCCESS)
        return "the integrated loudness could not be measured";
    if (ebur128_loudness_range(gated.get(), &Out.RangeLu) != EBUR128_SUCCESS)
        Out.RangeLu = 0.0;
    Out.TruePeakDbtp = -HUGE_VAL;
    for (int channel = 0; channel < Channels; ++channel)
    {
        double truePeak = 0.0;
        double samplePeak = 0.0;
        if (ebur128_true_peak(peaks.get(), static_cast<unsigned>(channel), &truePeak) != EBUR128_SUCCESS ||
            ebur128_sample_peak(peaks.get(), static_cast<unsigned>(channel), &samplePeak) != EBUR128_SUCCESS)
            return "the peaks could not be measured";
        Out.TruePeakDbtpPerChannel.push_back(Db(truePeak));
        Out.TruePeakDbtp = std::max(Out.TruePeakDbtp, Out.TruePeakDbtpPerChannel.back());
        Out.SamplePeakDbfs.push_back(Db(samplePeak));
        Out.RmsDbfs.push_back(Db(std::sqrt(squares[channel] / static_cast<double>(Count))));
        Out.DcOffset.push_back(sums[channel] / static_cast<double>(Count));
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
