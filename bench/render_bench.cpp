// What the user waits for when the waveform is drawn: one Render of a
// 60-minute stereo document (including the driver's work, up to glFinish) on
// a hidden SDL2 window with an OpenGL 2.1 context, beside a plain min/max scan
// of the same hour measured in the same run. Run it under `xvfb-run -a` where
// there is no display.
#include <benchmark/benchmark.h>

#include <GL/gl.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "document_format.h"
#include "large_buffer.h"
#include "sdl_compat.h"
#include "test_support.h"
#include "ttf.h"

namespace
{
constexpr double kHourSec = 3600.0;
constexpr size_t kHourFrames = static_cast<size_t>(kHourSec * kDocumentRateHz);
constexpr int kWindowWidthPx = 1280;
constexpr int kWindowHeightPx = 720;
constexpr const char* kFontPath = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// A hidden window and its GL context, with the editor filling it and an hour
// of noise-like audio in its first tab; made once for every benchmark.
struct RenderRig
{
    TestHost Host{kWindowWidthPx, kWindowHeightPx};
    SDL_Window* pWindow = nullptr;
    SDL_GLContext Context = nullptr;
    TTF Font;
    GLWaveEdit Editor;

    RenderRig()
    {
        if (SDL_Init(SDL_INIT_VIDEO) != 0)
            Fail("SDL_Init", SDL_GetError());
        SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 2);
        SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 1);
        pWindow = SDL_CreateWindow("render_bench", 0, 0, kWindowWidthPx, kWindowHeightPx,
                                   SDL_WINDOW_OPENGL | SDL_WINDOW_HIDDEN);
        if (!pWindow)
            Fail("SDL_CreateWindow", SDL_GetError());
        Context = SDL_GL_CreateContext(pWindow);
        if (!Context)
            Fail("SDL_GL_CreateContext", SDL_GetError());
        std::string error;
        // GLWE_BENCH_NO_TEXT=1 leaves the font out, to show what text costs.
        if (!std::getenv("GLWE_BENCH_NO_TEXT") && Font.Load(kFontPath, &error))
            Host.Host.pRend->pTTF = &Font;
        glViewport(0, 0, kWindowWidthPx, kWindowHeightPx);

        Editor.Init();
        Editor.X1 = -1.0;
        Editor.Y1 = 1.0;
        Editor.X2 = 1.0;
        Editor.Y2 = -1.0;
        // Allocated as the program's decoder allocates what it decodes: huge
        // pages asked for before the first touch.
        std::vector<float> frames;
        LargeBuffer::ReserveFloats(frames, kHourFrames * kDocumentChannels);
        frames.resize(kHourFrames * kDocumentChannels);
        uint32_t state = 12345;
        for (float& x : frames)
        {
            state = state * 1664525u + 1013904223u;
            x = static_cast<float>(static_cast<int32_t>(state) >> 8) * (0.8f / 8388608.0f);
        }
        Editor.AdoptDecodedDocument("hour.wav", std::move(frames));
        Draw();
        Settle();
    }

    // For several seconds after the hour is made, frames here cost the
    // calling thread several times what they cost later (large blocks mapped
    // and unmapped, kernel page work), whatever is drawn; frames are drawn
    // until that has passed, so that every benchmark sees the steady state.
    void Settle()
    {
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < until)
            Draw();
    }

    ~RenderRig()
    {
        Host.Host.pRend->pTTF = nullptr;
        Editor.Destroy();
        SDL_GL_DeleteContext(Context);
        SDL_DestroyWindow(pWindow);
        SDL_Quit();
    }

    [[noreturn]] static void Fail(const char* What, const char* Why)
    {
        std::fprintf(stderr, "render_bench: %s failed: %s (run under xvfb-run -a without a display)\n", What, Why);
        std::exit(1);
    }

    void Draw()
    {
        glClear(GL_COLOR_BUFFER_BIT);
        Editor.Render(0.0, 0.0);
        glFinish();
    }

    // A hundredth of the span to the right on even steps, back on odd ones.
    void NudgeView(double SpanSec, int Step)
    {
        const double shift = SpanSec * 0.01 * ((Step % 2) ? -1.0 : 1.0);
        Editor.ViewStartSec += shift;
        Editor.ViewEndSec += shift;
    }

    void ShowSpan(double SpanSec)
    {
        Editor.ViewStartSec = 1800.0 - SpanSec * 0.5;
        Editor.ViewEndSec = 1800.0 + SpanSec * 0.5;
    }
};

RenderRig& Rig()
{
    static auto rig = std::make_unique<RenderRig>();
    return *rig;
}

// The anchor: one plain pass over every sample for its min and max.
void BM_PlainMinMaxScanOfTheHour(benchmark::State& State)
{
    const std::vector<float>& frames = Access::PcmFrames(Rig().Editor);
    for (auto _ : State)
    {
        float minAmp = 0.0f;
        float maxAmp = 0.0f;
        for (const float x : frames)
        {
            if (x < minAmp)
                minAmp = x;
            if (x > maxAmp)
                maxAmp = x;
        }
        benchmark::DoNotOptimize(minAmp);
        benchmark::DoNotOptimize(maxAmp);
    }
}

// The summary of the hour built whole, as after an open, without drawing.
void BM_SummaryBuildOfTheHour(benchmark::State& State)
{
    const std::vector<float>& frames = Access::PcmFrames(Rig().Editor);
    WaveSummary summary;
    summary.MaxWorkers = WaveSummary::kMostWorkers;
    for (auto _ : State)
    {
        summary.Build(frames.data(), DocumentFrames(frames.size()), kDocumentChannels);
        benchmark::DoNotOptimize(summary.FrameCount());
    }
}

// Span in milliseconds from the argument, 60 min down to 10 ms.
double SpanOf(const benchmark::State& State)
{
    return static_cast<double>(State.range(0)) / 1000.0;
}

void BM_RenderCachedView(benchmark::State& State)
{
    RenderRig& rig = Rig();
    rig.ShowSpan(SpanOf(State));
    rig.Draw();
    for (auto _ : State)
        rig.Draw();
}

// A view that moves every frame, as while following playback or panning;
// Frame is what each step then does.
template <typename FrameT>
void RunMovingView(benchmark::State& State, FrameT Frame)
{
    RenderRig& rig = Rig();
    const double span = SpanOf(State);
    rig.ShowSpan(span);
    int step = 0;
    for (auto _ : State)
    {
        rig.NudgeView(span, step++);
        Frame(rig);
    }
}

void BM_RenderMovingView(benchmark::State& State)
{
    RunMovingView(State, [](RenderRig& Rig) { Rig.Draw(); });
}

// Each pass of a shift drag sets the selection, then a frame is drawn.
void BM_RenderAfterSelectionChange(benchmark::State& State)
{
    RenderRig& rig = Rig();
    rig.Editor.FitViewToData();
    int step = 0;
    for (auto _ : State)
    {
        rig.Editor.SetHostedSelection(1000.0, 1000.0 + (++step % 500));
        rig.Draw();
    }
    rig.Editor.ClearSelection(false);
}

// The switch itself (copying the hour back into view) is the editor's, not
// the render side's; only the first frame after it is timed.
void BM_RenderAfterTabSwitchBack(benchmark::State& State)
{
    RenderRig& rig = Rig();
    rig.Editor.FitViewToData();
    rig.Editor.NewUntitledDocument();
    for (auto _ : State)
    {
        State.PauseTiming();
        rig.Draw();
        rig.Editor.ActivateDocument(0);
        State.ResumeTiming();
        rig.Draw();
        State.PauseTiming();
        rig.Editor.ActivateDocument(1);
        State.ResumeTiming();
    }
    rig.Editor.CloseDocumentAt(1);
    rig.Editor.ActivateDocument(0);
}

// The first frame after a 10 s cut from the middle; the cut, and the paste
// that restores the hour (and its frame), are not timed.
void BM_RenderAfterCutInTheMiddle(benchmark::State& State)
{
    RenderRig& rig = Rig();
    rig.Editor.FitViewToData();
    rig.Draw();
    for (auto _ : State)
    {
        State.PauseTiming();
        rig.Editor.SetHostedSelection(1800.0, 1810.0);
        rig.Editor.RequestCutSelection();
        State.ResumeTiming();
        rig.Draw();
        State.PauseTiming();
        rig.Editor.RequestPasteAtSelection();
        rig.Editor.ClearSelection(false);
        rig.Draw();
        State.ResumeTiming();
    }
}

void BM_RenderAfterGainOnAll(benchmark::State& State)
{
    RenderRig& rig = Rig();
    rig.Editor.FitViewToData();
    rig.Editor.ClearSelection(false);
    rig.Draw();
    for (auto _ : State)
    {
        State.PauseTiming();
        rig.Editor.ApplyGainPercent(100.0);
        State.ResumeTiming();
        rig.Draw();
    }
}

// A freshly opened hour: its first frame builds the summary.
void BM_FirstRenderAfterOpen(benchmark::State& State)
{
    RenderRig& rig = Rig();
    for (auto _ : State)
    {
        State.PauseTiming();
        rig.Editor.AdoptDecodedDocument("again.wav", std::vector<float>(Access::PcmFrames(rig.Editor)));
        State.ResumeTiming();
        rig.Draw();
        State.PauseTiming();
        rig.Editor.CloseActiveDocument();
        rig.Editor.ActivateDocument(0);
        rig.Draw();
        State.ResumeTiming();
    }
}

// The GL floor of a frame here: clear, one blended quad over the window, and
// glFinish. Under Xvfb the rasteriser is Mesa's software one, so every
// filled pixel is CPU work that a GPU would take over.
void BM_BlendedWindowQuadAlone(benchmark::State& State)
{
    Rig();
    for (auto _ : State)
    {
        glClear(GL_COLOR_BUFFER_BIT);
        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
        glColor4f(0.2f, 0.4f, 0.8f, 0.5f);
        glBegin(GL_QUADS);
        glVertex2d(-1.0, -1.0);
        glVertex2d(1.0, -1.0);
        glVertex2d(1.0, 1.0);
        glVertex2d(-1.0, 1.0);
        glEnd();
        glFinish();
    }
}

// The editor's own work for a frame of a moving view, without GL: the
// waveform columns of every trace from the summary, 1264 columns wide.
void BM_ColumnsOfAMovingView(benchmark::State& State)
{
    RunMovingView(State, [](RenderRig& Rig) {
        benchmark::DoNotOptimize(Access::RefreshRenderColumns(Rig.Editor, 1264, 1264.0));
    });
}

void Spans(benchmark::internal::Benchmark* Bench)
{
    for (const int64_t spanMs : {3600000, 600000, 60000, 10000, 1000, 100, 10})
        Bench->Arg(spanMs);
}
}  // namespace

BENCHMARK(BM_PlainMinMaxScanOfTheHour)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_SummaryBuildOfTheHour)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_BlendedWindowQuadAlone)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ColumnsOfAMovingView)->Apply(Spans)->Unit(benchmark::kMillisecond);
// Mesa's software GL compiles a pipeline the first time it meets a state: a
// second of warm-up keeps that out of the steady frame's figure.
BENCHMARK(BM_RenderCachedView)->Apply(Spans)->Unit(benchmark::kMillisecond)->MinWarmUpTime(1.0);
BENCHMARK(BM_RenderMovingView)->Apply(Spans)->Unit(benchmark::kMillisecond)->MinWarmUpTime(1.0);
BENCHMARK(BM_RenderAfterSelectionChange)->Unit(benchmark::kMillisecond)->MinWarmUpTime(1.0);
BENCHMARK(BM_RenderAfterTabSwitchBack)->Unit(benchmark::kMillisecond)->Iterations(20);
BENCHMARK(BM_RenderAfterCutInTheMiddle)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_RenderAfterGainOnAll)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_FirstRenderAfterOpen)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_PlainMinMaxScanOfTheHour)->Unit(benchmark::kMillisecond)->Iterations(5);

BENCHMARK_MAIN();
