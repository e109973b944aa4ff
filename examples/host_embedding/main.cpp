// The smallest host: constructs editors the two ways, initialises them,
// connects every signal, assigns every provider, feeds a document through the
// editor's own paths and tears everything down. Built with sanitizers by the
// test script, so a leak or a bad access fails it.
#include <cstdio>
#include <string>
#include <vector>

#include "core.h"
#include "glwaveedit.h"

static int ExerciseEditor(GLWaveEdit& Editor)
{
    int signalCount = 0;
    Editor.SignalSeekPreview.connect([&](double) { ++signalCount; });
    Editor.SignalSeekCommitted.connect([&](double) { ++signalCount; });
    Editor.SignalTogglePause.connect([&](bool) { ++signalCount; });
    Editor.SignalSelectionChanged.connect([&](double, double) { ++signalCount; });
    Editor.SignalEditActionRequested.connect([&](std::string, double, double) { ++signalCount; });
    Editor.SignalActiveDocumentChanged.connect([&](std::string) { ++signalCount; });

    Editor.HasWaveformProvider = [] { return true; };
    Editor.WaveformPeakProvider = [](double, double) { return 0.5f; };
    Editor.WaveformRangeProvider = [](double, double, float& Min, float& Max) {
        Min = -0.25f;
        Max = 0.25f;
        return true;
    };
    Editor.WaveformLodProvider = [](double, double, int, std::vector<GLWaveEdit::WaveSample>&) { return false; };
    Editor.CurrentTimeProvider = [] { return 1.0; };
    Editor.DurationProvider = [] { return 10.0; };
    Editor.IsPreloadingProvider = [] { return false; };
    Editor.PreloadProgressProvider = [] { return 1.0; };

    if (!Editor.Init())
        return 1;
    Editor.X1 = -1.0;
    Editor.Y1 = 1.0;
    Editor.X2 = 1.0;
    Editor.Y2 = -1.0;
    Editor.MouseProcessing();  // takes time and duration from the providers

    Editor.NewUntitledDocument();
    Editor.SetExternalPeakWaveform("", std::vector<float>(64, 0.5f), 4.0);
    Editor.SetHostedSelection(1.0, 2.0);
    Editor.CloseActiveDocument();
    Editor.Destroy();
    return signalCount > 0 ? 0 : 1;
}

int main()
{
    Core host;
    host.CreateParts();
    p = &host;

    int failures = 0;
    {
        GLWaveEdit plain;
        failures += ExerciseEditor(plain);
    }
    {
        GLWaveEdit numbered(-7);
        failures += numbered.ChildWindowID == -7 ? 0 : 1;
        failures += ExerciseEditor(numbered);
    }
    p = nullptr;
    std::printf("host_embedding: %s\n", failures == 0 ? "ok" : "FAILED");
    return failures == 0 ? 0 : 1;
}
