// Edits, play starts, undo, switches and queries on a 60-minute stereo
// document, beside one memcpy of the same frames: the yardstick for "as fast
// as moving the data". bench/compare.sh reads the JSON output
// (--benchmark_format=json) and divides each time by the memcpy's.
//
// The document is laid out as the editor's decode lays it out (room reserved
// through ReserveFloats, then filled) and comes in through
// AdoptDecodedDocument, so every edit starts from the capacity an opened file
// has. The player takes its silent output.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>

#include "document_format.h"
#include "gldeck_audio_player.h"
#include "large_buffer.h"
#include "loudness.h"
#include "test_support.h"

namespace
{
constexpr double kHourSec = 3600.0;
constexpr size_t kHourFrames = static_cast<size_t>(kHourSec * kDocumentRateHz);

// An hour of a quiet ramp in a buffer reserved as the decoder reserves one.
std::vector<float> HourOfFrames()
{
    std::vector<float> frames;
    LargeBuffer::ReserveFloats(frames, kHourFrames * kDocumentChannels);
    frames.resize(kHourFrames * kDocumentChannels);
    for (size_t i = 0; i < frames.size(); ++i)
        frames[i] = static_cast<float>(i % 1000) * 1e-4f;
    return frames;
}

// One editor holding the hour, made once for all benchmarks.
struct HourDocument
{
    TestHost Host;
    GLWaveEdit Editor;

    HourDocument()
    {
        setenv("GLWE_AUDIO_OUTPUT", "silent", 1);
        Editor.AdoptDecodedDocument("hour.wav", HourOfFrames());
    }
};

HourDocument& Document()
{
    static auto document = std::make_unique<HourDocument>();
    return *document;
}

GLWaveEdit& Editor()
{
    return Document().Editor;
}

// The clipboard holds 10 s, from 100 s.
void CopyTenSeconds(GLWaveEdit& E)
{
    E.SetHostedSelection(100.0, 110.0);
    E.RequestCopySelection();
}

// Paste at 1800 s with no selection: the pasted 10 s end up selected.
void PasteAtTheMiddle(GLWaveEdit& E)
{
    E.SetHostedSelection(1800.0, 1800.0);
    Access::HoverTimeSec(E) = 1800.0;
    E.RequestPasteAtSelection();
}

void SelectTenSecondsInTheMiddle(GLWaveEdit& E)
{
    E.SetHostedSelection(1800.0, 1810.0);
}

// --- Anchor ---

void BM_MemcpyOfAllFrames(benchmark::State& State)
{
    const auto& source = Access::PcmFrames(Editor());
    std::vector<float> target(source.size(), 1.0f);  // touched once, before timing
    for (auto _ : State)
    {
        std::memcpy(target.data(), source.data(), source.size() * sizeof(float));
        benchmark::DoNotOptimize(target.data());
    }
    State.SetBytesProcessed(State.iterations() * static_cast<int64_t>(source.size() * sizeof(float)));
}

// The plainest pass over the hour: its min and max, the anchor of what the
// overview strip may cost after an edit (half of this).
void BM_PlainScanOfAllFrames(benchmark::State& State)
{
    const auto& frames = Access::PcmFrames(Editor());
    for (auto _ : State)
    {
        float low = 0.0f, high = 0.0f;
        for (const float sample : frames)
            low = std::min(low, sample), high = std::max(high, sample);
        benchmark::DoNotOptimize(low);
        benchmark::DoNotOptimize(high);
    }
}

// The overview strip's 1200 columns after a 10 s cut from the middle: the
// summary's update from the cut on and the fold of the columns. The cut and
// the paste that puts the 10 s back (and its update) are not timed.
void BM_OverviewAfterACut(benchmark::State& State)
{
    GLWaveEdit& editor = Editor();
    std::vector<float> columns;
    CopyTenSeconds(editor);
    editor.OverviewColumns(1200, columns);
    for (auto _ : State)
    {
        State.PauseTiming();
        SelectTenSecondsInTheMiddle(editor);
        editor.RequestCutSelection();
        State.ResumeTiming();
        benchmark::DoNotOptimize(editor.OverviewColumns(1200, columns));
        State.PauseTiming();
        PasteAtTheMiddle(editor);
        editor.OverviewColumns(1200, columns);
        State.ResumeTiming();
    }
}

// --- Edits ---

void BM_GainOnTheWholeDocument(benchmark::State& State)
{
    GLWaveEdit& editor = Editor();
    editor.ClearSelection(false);
    for (auto _ : State)
        benchmark::DoNotOptimize(editor.ApplyGainPercent(100.0));
}

// Cut or delete (Remove) 10 s from the middle; the paste that puts them back
// is not timed.
void BM_RemoveTenSecondsFromTheMiddle(benchmark::State& State, void (GLWaveEdit::*Remove)())
{
    GLWaveEdit& editor = Editor();
    CopyTenSeconds(editor);
    for (auto _ : State)
    {
        SelectTenSecondsInTheMiddle(editor);
        (editor.*Remove)();
        State.PauseTiming();
        PasteAtTheMiddle(editor);
        State.ResumeTiming();
    }
}

// The cut above with 10,000 markers over the hour, one every 0.36 s, which
// all after the middle move: beside the cut without them, the cost of
// following the edit (the aim: under 1 ms more).
void BM_CutWithTenThousandMarkers(benchmark::State& State)
{
    GLWaveEdit& editor = Editor();
    editor.EnableMarkers(true);
    for (int i = 0; i < 10000; ++i)
        editor.AddMarker(static_cast<int64_t>(i) * 17280, static_cast<int64_t>(i) * 17280);  // 0.36 s * 48000
    CopyTenSeconds(editor);
    for (auto _ : State)
    {
        SelectTenSecondsInTheMiddle(editor);
        editor.RequestCutSelection();
        State.PauseTiming();
        PasteAtTheMiddle(editor);
        State.ResumeTiming();
    }
    State.counters["markers"] = static_cast<double>(editor.ActiveMarkers().size());
    editor.EnableMarkers(false);
}

// --- Effects ---

void BM_LoudnessOfTheHour(benchmark::State& State)
{
    const auto& frames = Access::PcmFrames(Editor());
    for (auto _ : State)
    {
        LoudnessFigures figures;
        benchmark::DoNotOptimize(MeasureLoudness(frames.data(), DocumentFrames(frames.size()), kDocumentChannels,
                                                 kDocumentRateHz, figures));
    }
}

// The analysis an effect needs (the peaks, the loudness) on its own...
void BM_EffectAnalysisOfTheHour(benchmark::State& State, const char* Name, double A, double B)
{
    GLWaveEdit& editor = Editor();
    editor.ClearSelection(false);
    const GLWaveEdit::Effect effect{Name, A, B};
    std::vector<float> gains;
    for (auto _ : State)
    {
        State.PauseTiming();
        editor.ApplyGainPercent(100.0);  // a change of the frames: the kept analysis goes
        State.ResumeTiming();
        if (!editor.EffectGains(effect, editor.CurrentEffectSpan(effect), gains))
            State.SkipWithError(Name);
    }
}

// ...and the edit after it, as the dialog's analysis leaves it.
void BM_EffectOnTheWholeDocument(benchmark::State& State, const char* Name, double A, double B)
{
    GLWaveEdit& editor = Editor();
    editor.ClearSelection(false);
    const GLWaveEdit::Effect effect{Name, A, B};
    std::vector<float> gains;
    for (auto _ : State)
    {
        State.PauseTiming();
        const bool analysed = editor.EffectGains(effect, editor.CurrentEffectSpan(effect), gains);
        State.ResumeTiming();
        if (!analysed || !editor.ApplyEffect(effect))
            State.SkipWithError(Name);
    }
}

void BM_EffectOnTenSeconds(benchmark::State& State, const char* Name)
{
    GLWaveEdit& editor = Editor();
    for (auto _ : State)
    {
        SelectTenSecondsInTheMiddle(editor);
        if (!editor.ApplyEffect({Name, 0.0, 0.0}))
            State.SkipWithError(Name);
    }
}

// The first paste into a document just opened: it is the one that may have
// to grow the buffers. Each pass opens a fresh hour and closes it untimed.
void BM_FirstPasteIntoAnOpenedDocument(benchmark::State& State)
{
    GLWaveEdit& editor = Editor();
    CopyTenSeconds(editor);
    for (auto _ : State)
    {
        State.PauseTiming();
        editor.AdoptDecodedDocument("fresh.wav", HourOfFrames());
        State.ResumeTiming();
        PasteAtTheMiddle(editor);
        State.PauseTiming();
        editor.CloseDocumentAt(editor.ActiveDocument());
        State.ResumeTiming();
    }
}

// Later pastes; the delete that takes each one out again is not timed.
void BM_PasteTenSecondsIntoTheMiddle(benchmark::State& State)
{
    GLWaveEdit& editor = Editor();
    CopyTenSeconds(editor);
    PasteAtTheMiddle(editor);
    editor.RequestDeleteSelection();
    for (auto _ : State)
    {
        PasteAtTheMiddle(editor);
        State.PauseTiming();
        editor.RequestDeleteSelection();  // the pasted audio is selected
        State.ResumeTiming();
    }
}

// --- Play start ---

// A player's first play: it allocates its copy.
void BM_FirstPlayStart(benchmark::State& State)
{
    GLWaveEdit& editor = Editor();
    for (auto _ : State)
    {
        State.PauseTiming();
        Access::AudioPlayer(editor).reset();
        State.ResumeTiming();
        benchmark::DoNotOptimize(editor.PlayFromCurrentPosition());
    }
    editor.StopPlayback();
}

// Every play after one: the copy goes into the memory of the last one.
void BM_PlayStartAfterOnePlay(benchmark::State& State)
{
    GLWaveEdit& editor = Editor();
    editor.PlayFromCurrentPosition();
    for (auto _ : State)
        benchmark::DoNotOptimize(editor.PlayFromCurrentPosition());
    editor.StopPlayback();
}

// --- Edit history ---

// With the history on, each pass cuts 10 s from the middle, undoes, redoes
// and undoes again, and times the one step TimedStep names (0 cut, 1 undo,
// 2 redo): the cut is the yardstick of its undo and redo.
void BM_TenSecondCutWithHistory(benchmark::State& State, int TimedStep)
{
    GLWaveEdit& editor = Editor();
    editor.EnableEditHistory(size_t(1) << 30);
    const std::function<void()> steps[] = {[&] {
                                               SelectTenSecondsInTheMiddle(editor);
                                               editor.RequestCutSelection();
                                           },
                                           [&] { editor.Undo(); }, [&] { editor.Redo(); }, [&] { editor.Undo(); }};
    for (auto _ : State)
    {
        State.PauseTiming();
        for (int step = 0; step < 4; ++step)
        {
            if (step == TimedStep)
                State.ResumeTiming();
            steps[step]();
            if (step == TimedStep)
                State.PauseTiming();
        }
        State.ResumeTiming();
    }
    editor.EnableEditHistory(0);
}

// --- Switches and queries ---

// Two tabs: the hour and an empty one; each switch stores one and loads the other.
void BM_SwitchBetweenHourAndEmptyTab(benchmark::State& State)
{
    GLWaveEdit& editor = Editor();
    const int hourIndex = editor.ActiveDocument();
    editor.NewUntitledDocument();
    const int emptyIndex = editor.ActiveDocument();
    for (auto _ : State)
    {
        Access::LoadActiveDocument(editor, hourIndex);
        Access::LoadActiveDocument(editor, emptyIndex);
    }
    Access::CloseDocument(editor, emptyIndex);
}

// The hover query of one pass with the whole hour in view: 1/300 of the view.
void BM_HoverPeakWithTheHourInView(benchmark::State& State)
{
    GLWaveEdit& editor = Editor();
    editor.FitViewToData();
    for (auto _ : State)
        benchmark::DoNotOptimize(Access::WaveformPeakForSpan(editor, 1800.0, 1800.0 + kHourSec / 300.0));
}
}  // namespace

BENCHMARK(BM_LoudnessOfTheHour)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK_CAPTURE(BM_EffectAnalysisOfTheHour, normalize, "normalize", -1.0, 1.0)
    ->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK_CAPTURE(BM_EffectAnalysisOfTheHour, loudness, "loudness", -30.0, 0.0)
    ->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK_CAPTURE(BM_EffectOnTheWholeDocument, normalize, "normalize", -1.0, 1.0)
    ->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK_CAPTURE(BM_EffectOnTheWholeDocument, loudness, "loudness", -30.0, 0.0)
    ->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK_CAPTURE(BM_EffectOnTenSeconds, fade, "fade-in")->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_CAPTURE(BM_EffectOnTenSeconds, silence, "silence")->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_CAPTURE(BM_EffectOnTenSeconds, reverse, "reverse")->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_MemcpyOfAllFrames)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_PlainScanOfAllFrames)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_OverviewAfterACut)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_GainOnTheWholeDocument)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_CAPTURE(BM_RemoveTenSecondsFromTheMiddle, cut, &GLWaveEdit::RequestCutSelection)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK_CAPTURE(BM_RemoveTenSecondsFromTheMiddle, delete, &GLWaveEdit::RequestDeleteSelection)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK(BM_CutWithTenThousandMarkers)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_FirstPasteIntoAnOpenedDocument)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_PasteTenSecondsIntoTheMiddle)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_FirstPlayStart)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_PlayStartAfterOnePlay)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_CAPTURE(BM_TenSecondCutWithHistory, cut, 0)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_CAPTURE(BM_TenSecondCutWithHistory, undo, 1)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_CAPTURE(BM_TenSecondCutWithHistory, redo, 2)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_SwitchBetweenHourAndEmptyTab)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_HoverPeakWithTheHourInView)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
