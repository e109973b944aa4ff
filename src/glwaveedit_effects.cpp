// GLWaveEdit extension: effects. Each makes the frames that replace its span
// first (RenderEffect, a const pass that may fail without touching the
// document), then replaces them as one edit. The results depend only on the
// span's frames and the parameters, so a journalled effect replays sample for
// sample.

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "audio_effects.h"
#include "glwaveedit.h"
#include "large_buffer.h"
#include "loudness.h"
#include "sample_kernels.h"

using LargeBuffer::ReserveFloats;

namespace
{
// An inserted silence longer than a day is a typing slip.
constexpr double kMaxInsertSec = 24.0 * 3600.0;

// As the clipboard edits map a time to a frame: llround, held in 0..Count.
int64_t FrameOfTime(double TimeSec, int SampleRate, int64_t Count)
{
    const double scaled = TimeSec * SampleRate;
    if (!(scaled > 0.0))
        return 0;
    if (scaled >= static_cast<double>(Count))
        return Count;
    return std::clamp<int64_t>(std::llround(scaled), 0, Count);
}

const char* ActionOf(const std::string& Name)
{
    static const std::pair<const char*, const char*> kActions[] = {
        {"fade-in", "fade in"},       {"fade-out", "fade out"},     {"silence", "silence"},
        {"insert-silence", "insert silence"}, {"normalize", "normalize"}, {"loudness", "loudness"},
        {"dc", "remove dc"},          {"reverse", "reverse"},       {"highpass", "high-pass"},
        {"trim-silence", "trim silence"}};
    for (const auto& [name, action] : kActions)
        if (Name == name)
            return action;
    return nullptr;
}

double Linear(double Db)
{
    return std::pow(10.0, Db / 20.0);
}

std::string Db(double Value)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f", Value);
    return text;
}
}  // namespace

GLWaveEdit::EffectSpan GLWaveEdit::CurrentEffectSpan(const Effect& What) const
{
    if (PcmChannels <= 0 || PcmSampleRate <= 0)
        return {};
    const int64_t count = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    if (What.Name == "insert-silence")
    {
        const int64_t at = FrameOfTime(CurrentTimeSec, PcmSampleRate, count);
        return {at, at, false};
    }
    if (!HasSelection())
        return {0, count, true};
    return {FrameOfTime(SelectionStartSec(), PcmSampleRate, count), FrameOfTime(SelectionEndSec(), PcmSampleRate, count),
            false};
}

bool GLWaveEdit::RenderEffect(const Effect& What, const EffectSpan& Span, std::vector<float>& Out,
                              std::string* ErrorMessage) const
{
    const auto fail = [ErrorMessage](const std::string& Message) {
        if (ErrorMessage)
            *ErrorMessage = Message;
        return false;
    };
    if (!bUsePcmFrames || PcmChannels <= 0 || PcmSampleRate <= 0)
        return fail("No decoded PCM audio available.");
    if (!ActionOf(What.Name))
        return fail("Unknown effect \"" + What.Name + "\".");
    if (!std::isfinite(What.A) || !std::isfinite(What.B))
        return fail("The effect's values must be numbers.");
    const int channels = PcmChannels;
    const int64_t count = static_cast<int64_t>(PcmFrames.size()) / channels;
    if (Span.StartFrame < 0 || Span.EndFrame < Span.StartFrame || Span.EndFrame > count)
        return fail("The range is outside the audio.");
    const int64_t length = Span.EndFrame - Span.StartFrame;
    const float* const first = PcmFrames.data() + Span.StartFrame * channels;
    const float* const last = first + length * channels;

    if (What.Name == "insert-silence")
    {
        if (!(What.A > 0.0) || What.A > kMaxInsertSec)
            return fail("The silence must last more than 0 s and at most 24 hours.");
        const int64_t frames = std::llround(What.A * PcmSampleRate);
        if (frames <= 0)
            return fail("The silence is shorter than one frame.");
        Out.assign(static_cast<size_t>(frames) * channels, 0.0f);
        return true;
    }
    if (length == 0)
        return fail("The selected range is empty.");

    if (What.Name == "fade-in" || What.Name == "fade-out")
    {
        static const char* const kCurves[] = {"tri", "log", "hsin"};
        const int curve = static_cast<int>(What.A);
        if (curve < 0 || curve > 2 || curve != What.A)
            return fail("The fade's curve is 0 (linear), 1 (logarithmic) or 2 (S-curve).");
        const std::string chain = std::string("afade=t=") + (What.Name == "fade-in" ? "in" : "out") +
                                  ":ss=0:ns=" + std::to_string(length) + ":curve=" + kCurves[curve];
        const std::string error = AudioEffects::RunFilterChain(chain, first, length, channels, PcmSampleRate, Out);
        if (!error.empty())
            return fail("Fade: " + error);
    }
    else if (What.Name == "highpass")
    {
        if (!(What.A > 0.0) || What.A >= PcmSampleRate / 2.0)
            return fail("The cutoff must be above 0 Hz and below half the sample rate.");
        const std::string error = AudioEffects::RunFilterChain("highpass=f=" + std::to_string(What.A), first, length,
                                                               channels, PcmSampleRate, Out);
        if (!error.empty())
            return fail("High-pass: " + error);
    }
    else if (What.Name == "silence")
        Out.assign(static_cast<size_t>(length) * channels, 0.0f);
    else if (What.Name == "reverse")
    {
        ReserveFloats(Out, static_cast<size_t>(length) * channels);
        Out.resize(static_cast<size_t>(length) * channels);
        for (int64_t frame = 0; frame < length; ++frame)
            std::copy(first + (length - 1 - frame) * channels, first + (length - frame) * channels,
                      Out.data() + frame * channels);
    }
    else if (What.Name == "dc")
    {
        std::vector<double> sums(channels, 0.0);
        for (const float* sample = first; sample < last; sample += channels)
            for (int channel = 0; channel < channels; ++channel)
                sums[channel] += sample[channel];
        ReserveFloats(Out, static_cast<size_t>(length) * channels);
        Out.assign(first, last);
        for (int channel = 0; channel < channels; ++channel)
        {
            const float mean = static_cast<float>(sums[channel] / static_cast<double>(length));
            for (int64_t frame = 0; frame < length; ++frame)
                Out[frame * channels + channel] -= mean;
        }
    }
    else if (What.Name == "normalize")
    {
        if (What.A > 0.0)
            return fail("The peak must be at most 0 dBFS.");
        std::vector<float> peaks(channels, 0.0f);
        for (const float* sample = first; sample < last; sample += channels)
            for (int channel = 0; channel < channels; ++channel)
                peaks[channel] = std::max(peaks[channel], std::fabs(sample[channel]));
        const float loudest = *std::max_element(peaks.begin(), peaks.end());
        if (!(loudest > 0.0f))
            return fail("The audio is silent: there is no peak to normalize.");
        ReserveFloats(Out, static_cast<size_t>(length) * channels);
        Out.assign(first, last);
        for (int channel = 0; channel < channels; ++channel)
        {
            const float peak = What.B != 0.0 ? loudest : peaks[channel];
            if (!(peak > 0.0f))
                continue;
            const float gain = static_cast<float>(Linear(What.A) / peak);
            for (int64_t frame = 0; frame < length; ++frame)
                Out[frame * channels + channel] = std::clamp(Out[frame * channels + channel] * gain, -1.0f, 1.0f);
        }
    }
    else if (What.Name == "loudness")
    {
        LoudnessFigures figures;
        const std::string error = MeasureLoudness(first, length, channels, PcmSampleRate, figures);
        if (!error.empty())
            return fail("Loudness: " + error);
        if (!std::isfinite(figures.IntegratedLufs))
            return fail("The audio is too quiet to measure its loudness.");
        const LoudnessPlan plan = PlanLoudness(figures, What.A, What.B);
        if (!plan.bFits)
            return fail(Db(What.A) + " LUFS would put the true peak at " + Db(figures.TruePeakDbtp + plan.GainDb) +
                        " dBTP, over the ceiling of " + Db(What.B) + " dBTP; " + Db(plan.ReachableLufs) +
                        " LUFS is the loudest within it.");
        ReserveFloats(Out, static_cast<size_t>(length) * channels);
        Out.assign(first, last);
        SampleKernels::ApplyGainClamped(Out.data(), Out.data() + Out.size(), static_cast<float>(Linear(plan.GainDb)));
    }
    else if (What.Name == "trim-silence")
    {
        if (What.A > 0.0 || What.B < 0.0)
            return fail("The threshold must be at most 0 dBFS and the length at least 0 s.");
        const float threshold = static_cast<float>(Linear(What.A));
        const int64_t shortest = std::llround(What.B * PcmSampleRate);
        const auto quiet = [&](int64_t Frame) {
            for (int channel = 0; channel < channels; ++channel)
                if (std::fabs(first[Frame * channels + channel]) >= threshold)
                    return false;
            return true;
        };
        int64_t begin = 0;
        while (begin < length && quiet(begin))
            ++begin;
        if (begin == length)
            return fail("All of the audio is below the threshold; nothing would be left.");
        int64_t end = length;
        while (end > begin && quiet(end - 1))
            --end;
        if (begin < shortest)
            begin = 0;
        if (length - end < shortest)
            end = length;
        Out.assign(first + begin * channels, first + end * channels);
        return true;
    }
    // Every other effect keeps the length; a filter that did not is a fault.
    if (Out.size() != static_cast<size_t>(length) * channels)
        return fail("The effect gave back " + std::to_string(Out.size() / channels) + " frames for " +
                    std::to_string(length) + ".");
    return true;
}

bool GLWaveEdit::ApplyEffect(const Effect& What, std::string* ErrorMessage, EffectSpan* Applied)
{
    const EffectSpan span = CurrentEffectSpan(What);
    if (!ApplyEffectToFrames(What, span, ErrorMessage))
        return false;
    if (Applied)
        *Applied = span;
    return true;
}

bool GLWaveEdit::ApplyEffectToFrames(const Effect& What, const EffectSpan& Span, std::string* ErrorMessage)
{
    std::vector<float> result;
    if (!RenderEffect(What, Span, result, ErrorMessage))
        return false;
    const int channels = PcmChannels;
    const int64_t newLength = static_cast<int64_t>(result.size()) / channels;
    const int64_t oldLength = Span.EndFrame - Span.StartFrame;

    StopPlayback();
    RecordEdit({EditKind::Effect, Span.StartFrame, oldLength, newLength});
    if (newLength == oldLength)
    {
        std::copy(result.begin(), result.end(), PcmFrames.begin() + Span.StartFrame * channels);
        NoteFramesChanged(Span.StartFrame, Span.EndFrame);
    }
    else
    {
        PcmFrames.erase(PcmFrames.begin() + Span.StartFrame * channels, PcmFrames.begin() + Span.EndFrame * channels);
        ReserveFloats(PcmFrames, PcmFrames.size() + result.size());
        PcmFrames.insert(PcmFrames.begin() + Span.StartFrame * channels, result.begin(), result.end());
        NoteFramesChanged(Span.StartFrame, -1);
    }
    DurationSec = static_cast<double>(PcmFrames.size() / static_cast<size_t>(channels)) / PcmSampleRate;

    const double startSec = static_cast<double>(Span.StartFrame) / PcmSampleRate;
    const double endSec = static_cast<double>(Span.StartFrame + newLength) / PcmSampleRate;
    SelectionStartValueSec = Span.bWhole ? 0.0 : startSec;
    SelectionEndValueSec = Span.bWhole ? 0.0 : endSec;
    FinishEdit(ActionOf(What.Name), startSec, endSec);
    return true;
}
