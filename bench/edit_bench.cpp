// Edits, switches and queries on a 60-minute stereo document, beside one
// memcpy of the same frames: the yardstick for "as fast as moving the data".
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>

#include "test_support.h"

namespace
{
constexpr double kHourSec = 3600.0;
constexpr size_t kHourFrames = static_cast<size_t>(kHourSec * 48000);

// One editor holding an hour of a quiet ramp, made once for all benchmarks.
struct HourDocument
{
    TestHost Host;
    GLWaveEdit Editor;

    HourDocument()
    {
        Editor.NewUntitledDocument();
        auto& frames = Access::PcmFrames(Editor);
        frames.resize(kHourFrames * 2);
        for (size_t i = 0; i < frames.size(); ++i)
            frames[i] = static_cast<float>(i % 1000) * 1e-4f;
        Editor.DurationSec = kHourSec;
        Access::StoreActiveDocument(Editor);
    }
};

HourDocument& Document()
{
    static auto document = std::make_unique<HourDocument>();
    return *document;
}

void BM_MemcpyOfAllFrames(benchmark::State& State)
{
    const auto& source = Access::PcmFrames(Document().Editor);
    std::vector<float> target(source.size(), 1.0f);  // touched once, before timing
    for (auto _ : State)
    {
        std::memcpy(target.data(), source.data(), source.size() * sizeof(float));
        benchmark::DoNotOptimize(target.data());
    }
    State.SetBytesProcessed(State.iterations() * static_cast<int64_t>(source.size() * sizeof(float)));
}

// Cut 10 s from the middle; the paste that puts it back is not timed.
void BM_CutTenSecondsFromTheMiddle(benchmark::State& State)
{
    GLWaveEdit& editor = Document().Editor;
    for (auto _ : State)
    {
        editor.SetHostedSelection(1800.0, 1810.0);
        editor.RequestCutSelection();
        State.PauseTiming();
        editor.RequestPasteAtSelection();  // the selection collapsed at 1800.0
        State.ResumeTiming();
    }
}

// Paste 10 s into the middle; the delete that takes it out again is not timed.
void BM_PasteTenSecondsIntoTheMiddle(benchmark::State& State)
{
    GLWaveEdit& editor = Document().Editor;
    editor.SetHostedSelection(100.0, 110.0);
    editor.RequestCopySelection();
    for (auto _ : State)
    {
        editor.SetHostedSelection(1800.0, 1800.0);
        Access::HoverTimeSec(editor) = 1800.0;
        editor.RequestPasteAtSelection();
        State.PauseTiming();
        editor.RequestDeleteSelection();  // the pasted audio is selected
        State.ResumeTiming();
    }
}

void BM_GainOnTheWholeDocument(benchmark::State& State)
{
    GLWaveEdit& editor = Document().Editor;
    editor.ClearSelection(false);
    for (auto _ : State)
        benchmark::DoNotOptimize(editor.ApplyGainPercent(100.0));
}

// Two tabs: the hour and an empty one; each switch stores one and loads the other.
void BM_SwitchBetweenHourAndEmptyTab(benchmark::State& State)
{
    GLWaveEdit& editor = Document().Editor;
    editor.NewUntitledDocument();
    const int hourIndex = 0;
    const int emptyIndex = Access::ActiveDocumentIndex(editor);
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
    GLWaveEdit& editor = Document().Editor;
    editor.FitViewToData();
    for (auto _ : State)
        benchmark::DoNotOptimize(Access::WaveformPeakForSpan(editor, 1800.0, 1800.0 + kHourSec / 300.0));
}
}  // namespace

BENCHMARK(BM_MemcpyOfAllFrames)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_CutTenSecondsFromTheMiddle)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_PasteTenSecondsIntoTheMiddle)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_GainOnTheWholeDocument)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_SwitchBetweenHourAndEmptyTab)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_HoverPeakWithTheHourInView)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
