// GLWaveEdit extension: effects. Each makes the frames that replace its span
// first (RenderEffect, a const pass that may fail without touching the
// document), then replaces them as one edit. The results depend only on the
// span's frames and the parameters, so a journalled effect replays sample for
// sample. Normalize and loudness work out a gain per channel first (their
// analysis, kept while the frames stay as they were) and then apply it in
// place: one pass over the frames, no copy of them.

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "audio_effects.h"
#include "glwaveedit.h"
#include "large_buffer.h"
#include "loudness.h"
#include "sample_kernels.h"
#include "work_progress.h"

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

// Passes over a span are reported in blocks of this many frames, and a stop
// request is looked at between them.
constexpr int64_t kProgressBlock = 1 << 16;

bool IsGainEffect(const std::string& Name)
{
    return Name == "normalize" || Name == "loudness";
}
}  // namespace

// The last analysis, with what it was made from: a document, the revision of
// its frames, where they lay and the span.
struct GLWaveEdit::EffectAnalysis
{
    uint64_t DocumentId = 0;
    uint64_t Revision = 0;
    const float* Data = nullptr;
    size_t Size = 0;
    int64_t StartFrame = 0;
    int64_t EndFrame = 0;
    bool bHasLoudness = false;
    LoudnessFigures Loudness;
    std::vector<float> SamplePeaks;  // per channel

    // An empty analysis of Span as the editor's frames are now: what Describes checks.
    static std::shared_ptr<EffectAnalysis> Of(const GLWaveEdit& Editor, const EffectSpan& Span)
    {
        auto analysis = std::make_shared<EffectAnalysis>();
        analysis->DocumentId = Editor.ActiveDocumentId();
        analysis->Revision = Editor.FramesRevision;
        analysis->Data = Editor.PcmFrames.data();
        analysis->Size = Editor.PcmFrames.size();
        analysis->StartFrame = Span.StartFrame;
        analysis->EndFrame = Span.EndFrame;
        return analysis;
    }

    bool Describes(const GLWaveEdit& Editor, const EffectSpan& Span) const
    {
        return DocumentId == Editor.ActiveDocumentId() && Revision == Editor.FramesRevision &&
               Data == Editor.PcmFrames.data() && Size == Editor.PcmFrames.size() &&
               StartFrame == Span.StartFrame && EndFrame == Span.EndFrame;
    }
};

void GLWaveEdit::SetEffectProgress(WorkProgress* Progress)
{
    pEffectProgress = Progress;
}

bool GLWaveEdit::MeasureEffectSpan(const EffectSpan& Span, LoudnessFigures& Out, std::string* ErrorMessage) const
{
    const auto fail = [ErrorMessage](const std::string& Message) {
        if (ErrorMessage)
            *ErrorMessage = Message;
        return false;
    };
    if (PcmChannels <= 0 || PcmSampleRate <= 0)
        return fail("No decoded PCM audio available.");
    const int64_t count = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    if (Span.StartFrame < 0 || Span.EndFrame <= Span.StartFrame || Span.EndFrame > count)
        return fail("The range is empty or outside the audio.");
    if (pEffectAnalysis && pEffectAnalysis->bHasLoudness && pEffectAnalysis->Describes(*this, Span))
    {
        Out = pEffectAnalysis->Loudness;
        return true;
    }
    BeginWorkPass(pEffectProgress, Span.EndFrame - Span.StartFrame);
    const std::string error = MeasureLoudness(PcmFrames.data() + Span.StartFrame * PcmChannels,
                                              Span.EndFrame - Span.StartFrame, PcmChannels, PcmSampleRate, Out,
                                              pEffectProgress);
    if (!error.empty())
        return fail(error);
    auto analysis = EffectAnalysis::Of(*this, Span);
    analysis->bHasLoudness = true;
    analysis->Loudness = Out;
    pEffectAnalysis = std::move(analysis);
    return true;
}

bool GLWaveEdit::EffectGains(const Effect& What, const EffectSpan& Span, std::vector<float>& Gains,
                             std::string* ErrorMessage) const
{
    const auto fail = [ErrorMessage](const std::string& Message) {
        if (ErrorMessage)
            *ErrorMessage = Message;
        return false;
    };
    const int channels = PcmChannels;
    const int64_t length = Span.EndFrame - Span.StartFrame;
    if (What.Name == "loudness")
    {
        LoudnessFigures figures;
        std::string error;
        if (!MeasureEffectSpan(Span, figures, &error))
            return fail(error == WorkCancelledMessage() ? error : "Loudness: " + error);
        if (!std::isfinite(figures.IntegratedLufs))
            return fail("The audio is too quiet to measure its loudness.");
        const LoudnessPlan plan = PlanLoudness(figures, What.A, What.B);
        if (!plan.bFits)
            return fail(Db(What.A) + " LUFS would put the true peak at " + Db(figures.TruePeakDbtp + plan.GainDb) +
                        " dBTP, over the ceiling of " + Db(What.B) + " dBTP; " + Db(plan.ReachableLufs) +
                        " LUFS is the loudest within it.");
        Gains.assign(channels, static_cast<float>(Linear(plan.GainDb)));
        return true;
    }
    if (What.A > 0.0)
        return fail("The peak must be at most 0 dBFS.");
    std::vector<float> peaks;
    if (pEffectAnalysis && pEffectAnalysis->Describes(*this, Span) && !pEffectAnalysis->SamplePeaks.empty())
        peaks = pEffectAnalysis->SamplePeaks;
    else
    {
        peaks.assign(channels, 0.0f);
        BeginWorkPass(pEffectProgress, length);
        const float* const first = PcmFrames.data() + Span.StartFrame * channels;
        for (int64_t done = 0; done < length; done += kProgressBlock)
        {
            const int64_t block = std::min(kProgressBlock, length - done);
            for (const float* sample = first + done * channels; sample < first + (done + block) * channels;
                 sample += channels)
                for (int channel = 0; channel < channels; ++channel)
                    peaks[channel] = std::max(peaks[channel], std::fabs(sample[channel]));
            if (!WorkGoesOn(pEffectProgress, block))
                return fail(WorkCancelledMessage());
        }
        auto analysis = EffectAnalysis::Of(*this, Span);
        analysis->SamplePeaks = peaks;
        pEffectAnalysis = std::move(analysis);
    }
    const float loudest = *std::max_element(peaks.begin(), peaks.end());
    if (!(loudest > 0.0f))
        return fail("The audio is silent: there is no peak to normalize.");
    Gains.assign(channels, 1.0f);
    for (int channel = 0; channel < channels; ++channel)
    {
        const float peak = What.B != 0.0 ? loudest : peaks[channel];
        if (peak > 0.0f)
            Gains[channel] = static_cast<float>(Linear(What.A) / peak);
    }
    return true;
}

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
    BeginWorkPass(pEffectProgress, length);

    if (What.Name == "fade-in" || What.Name == "fade-out")
    {
        static const char* const kCurves[] = {"tri", "log", "hsin"};
        const int curve = static_cast<int>(What.A);
        if (curve < 0 || curve > 2 || curve != What.A)
            return fail("The fade's curve is 0 (linear), 1 (logarithmic) or 2 (S-curve).");
        const std::string chain = std::string("afade=t=") + (What.Name == "fade-in" ? "in" : "out") +
                                  ":ss=0:ns=" + std::to_string(length) + ":curve=" + kCurves[curve];
        const std::string error = AudioEffects::RunFilterChain(chain, first, length, channels, PcmSampleRate, Out,
                                                               pEffectProgress);
        if (!error.empty())
            return fail(error == WorkCancelledMessage() ? error : "Fade: " + error);
    }
    else if (What.Name == "highpass")
    {
        if (!(What.A > 0.0) || What.A >= PcmSampleRate / 2.0)
            return fail("The cutoff must be above 0 Hz and below half the sample rate.");
        const std::string error = AudioEffects::RunFilterChain("highpass=f=" + std::to_string(What.A), first, length,
                                                               channels, PcmSampleRate, Out, pEffectProgress);
        if (!error.empty())
            return fail(error == WorkCancelledMessage() ? error : "High-pass: " + error);
    }
    else if (What.Name == "silence")
        Out.assign(static_cast<size_t>(length) * channels, 0.0f);
    else if (What.Name == "reverse")
    {
        ReserveFloats(Out, static_cast<size_t>(length) * channels);
        Out.resize(static_cast<size_t>(length) * channels);
        for (int64_t done = 0; done < length; done += kProgressBlock)
        {
            const int64_t end = std::min(length, done + kProgressBlock);
            for (int64_t frame = done; frame < end; ++frame)
                std::copy(first + (length - 1 - frame) * channels, first + (length - frame) * channels,
                          Out.data() + frame * channels);
            if (!WorkGoesOn(pEffectProgress, end - done))
                return fail(WorkCancelledMessage());
        }
    }
    else if (What.Name == "dc")
    {
        std::vector<double> sums(channels, 0.0);
        for (int64_t done = 0; done < length; done += kProgressBlock)
        {
            const float* const end = first + std::min(length, done + kProgressBlock) * channels;
            for (const float* sample = first + done * channels; sample < end; sample += channels)
                for (int channel = 0; channel < channels; ++channel)
                    sums[channel] += sample[channel];
            if (!WorkGoesOn(pEffectProgress, std::min(kProgressBlock, length - done)))
                return fail(WorkCancelledMessage());
        }
        ReserveFloats(Out, static_cast<size_t>(length) * channels);
        Out.assign(first, last);
        for (int channel = 0; channel < channels; ++channel)
        {
            const float mean = static_cast<float>(sums[channel] / static_cast<double>(length));
            for (int64_t frame = 0; frame < length; ++frame)
                Out[frame * channels + channel] -= mean;
        }
    }
    else if (IsGainEffect(What.Name))
    {
        std::vector<float> gains;
        if (!EffectGains(What, Span, gains, ErrorMessage))
            return false;
        ReserveFloats(Out, static_cast<size_t>(length) * channels);
        Out.assign(first, last);
        SampleKernels::ApplyChannelGainsClamped(Out.data(), length, channels, gains.data());
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
    std::vector<float> gains;
    const int64_t oldLength = Span.EndFrame - Span.StartFrame;
    // A gain needs no copy of the frames: it is applied where they are, once
    // nothing can fail any more.
    const bool bInPlace = IsGainEffect(What.Name) && bUsePcmFrames && PcmChannels > 0 && PcmSampleRate > 0 &&
                          Span.StartFrame >= 0 && Span.EndFrame > Span.StartFrame &&
                          Span.EndFrame <= static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    if (bInPlace ? !EffectGains(What, Span, gains, ErrorMessage) : !RenderEffect(What, Span, result, ErrorMessage))
        return false;
    const int channels = PcmChannels;
    const int64_t newLength = bInPlace ? oldLength : static_cast<int64_t>(result.size()) / channels;

    // From here on the edit goes through: a stop request is too late.
    StopPlayback();
    RecordEdit({EditKind::Effect, Span.StartFrame, oldLength, newLength});
    if (bInPlace)
    {
        SampleKernels::ApplyChannelGainsClamped(PcmFrames.data() + Span.StartFrame * channels, oldLength, channels,
                                                gains.data());
        NoteFramesChanged(Span.StartFrame, Span.EndFrame);
    }
    else if (newLength == oldLength)
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
