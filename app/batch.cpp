#include "batch.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "glwaveedit.h"
#include "loudness.h"
#include "markers.h"
#include "jobs.h"
#include "session.h"

namespace fs = std::filesystem;

namespace
{
// A progress line that rewrites itself, on a terminal only.
class ProgressLine
{
public:
    ProgressLine() : bTerminal(isatty(STDERR_FILENO) == 1) {}
    void Show(const std::string& What, double Fraction)
    {
        if (bTerminal)
            std::fprintf(stderr, "\r%s %3d%%", What.c_str(), static_cast<int>(Fraction * 100.0));
    }
    void End()
    {
        if (bTerminal)
            std::fprintf(stderr, "\r\033[K");
    }

private:
    bool bTerminal;
};

constexpr auto kPollInterval = std::chrono::milliseconds(50);
constexpr int kDefaultLossyKbps = 192;

// Waits for a background job's result, showing its progress meanwhile.
template <typename Result, typename Take, typename Progress>
Result WaitFor(const std::string& What, Take TakeResult, Progress Fraction)
{
    ProgressLine progress;
    Result result;
    while (!TakeResult(result))
    {
        progress.Show(What, Fraction());
        std::this_thread::sleep_for(kPollInterval);
    }
    progress.End();
    return result;
}

// The source's format, with what the command line chose instead.
SaveFormat BatchSaveFormat(const SourceFormat& Source, const Options& Opts)
{
    SaveFormat format = DefaultSaveFormat(Source, kDefaultLossyKbps);
    if (Opts.RateHz > 0)
        format.SampleRate = Opts.RateHz;
    if (Opts.Channels > 0)
        format.Channels = Opts.Channels;
    if (Opts.Bits > 0)
        format.Bits = Opts.Bits;
    if (Opts.BitrateKbps > 0)
        format.BitrateKbps = Opts.BitrateKbps;
    format.bDither = Opts.bDither;
    return format;
}

bool SaveAndWait(GLWaveEdit& Editor, Jobs& Work, Session& Docs, const std::string& Path, const Options& Opts)
{
    std::error_code error;
    if (fs::exists(Path, error) && !Opts.bOverwrite)
    {
        std::fprintf(stderr, "glwaveedit: %s exists; add --overwrite to replace it\n", Path.c_str());
        return false;
    }
    const uint64_t id = Editor.DocumentIdAt(Editor.ActiveDocument());
    SaveRequest request;
    request.DocumentId = id;
    request.Path = Path;
    request.pFrames = &Editor.ActiveFrames();
    request.SampleRate = Editor.ActiveSampleRate();
    request.Channels = Editor.ActiveChannels();
    request.Tags = Docs.Info(id).Tags;
    request.Markers = TimedMarkersOf(Editor);
    request.Source = Docs.Info(id).Source;
    request.Format = BatchSaveFormat(request.Source, Opts);
    request.BitrateKbps = request.Format.BitrateKbps;
    request.bOwnFormat = true;
    const std::string warning = ChannelWarning(request.Source);
    if (!warning.empty() && Opts.Channels == 0)
        std::fprintf(stderr, "glwaveedit: %s\n", warning.c_str());
    Work.StartSave(std::move(request));
    const SaveResult result = WaitFor<SaveResult>(
        "saving " + Path, [&Work](SaveResult& Out) { return Work.TakeSaved(Out); },
        [&Work] { return Work.SaveProgress(); });
    if (!result.bOk)
    {
        std::fprintf(stderr, "glwaveedit: cannot save %s: %s\n", Path.c_str(), result.Error.c_str());
        return false;
    }
    std::fprintf(stderr, "glwaveedit: saved %s\n", Path.c_str());
    return true;
}

void PrintInfo(const std::string& Path, const DocumentInfo& Info, const GLWaveEdit& Editor, const Options& Opts)
{
    const int64_t frames = DocumentFrames(Editor.ActiveFrames().size());
    std::printf("file: %s\nformat: %s\nduration: %.3f s\nframes: %lld at %d Hz stereo\n", Path.c_str(),
                Info.FormatSummary.c_str(), DocumentSeconds(frames), static_cast<long long>(frames), kDocumentRateHz);
    const std::string sample = "x" + (Info.Source.bLossy || !Info.Source.bKnown ? ProposedExtension(Info.Source)
                                                                                : std::filesystem::path(Path).extension().string());
    std::printf("saves as: %s\n", DescribeSave(BatchSaveFormat(Info.Source, Opts), sample).c_str());
    const std::string warning = ChannelWarning(Info.Source);
    if (!warning.empty())
        std::printf("note: %s\n", warning.c_str());
    LoudnessFigures figures;
    if (frames > 0 && MeasureLoudness(Editor.ActiveFrames().data(), static_cast<int64_t>(frames),
                                      Editor.ActiveChannels(), Editor.ActiveSampleRate(), figures).empty())
        std::printf("%s", DescribeLoudness(figures).c_str());
}

// A fade takes its seconds at the document's start or end; the selection the
// user made for later steps stays.
bool RunEffectStep(GLWaveEdit& Editor, const BatchStep& Step, std::string& Error)
{
    if (Step.What == BatchStep::Effect)
        return Editor.ApplyEffect({Step.Path, Step.A, Step.B}, &Error);
    const bool selected = Editor.HasSelection();
    const double start = Editor.SelectionStartSec();
    const double end = Editor.SelectionEndSec();
    const double length = std::min(Step.A, Editor.DurationSec);
    if (Step.What == BatchStep::FadeIn)
        Editor.SetHostedSelection(0.0, length);
    else
        Editor.SetHostedSelection(Editor.DurationSec - length, Editor.DurationSec);
    const bool applied = Editor.ApplyEffect({Step.What == BatchStep::FadeIn ? "fade-in" : "fade-out", 0.0, 0.0}, &Error);
    if (selected)
        Editor.SetHostedSelection(start, end);
    else
        Editor.ClearSelection(true);
    return applied;
}
bool RunMarkerStep(GLWaveEdit& Editor, const BatchStep& Step, std::string& Error)
{
    const double rate = Editor.ActiveSampleRate();
    if (Step.What == BatchStep::ExportMarkers)
        return WriteLabelFile(Step.Path, TimedMarkersOf(Editor), Error);
    std::vector<TimedMarker> added{{Step.A, Step.A, Step.Path}};
    if (Step.What == BatchStep::ImportMarkers && !ReadLabelFile(Step.Path, added, Error))
        return false;
    for (const TimedMarker& m : added)
        if (Editor.AddMarker(std::llround(m.StartSec * rate), std::llround(m.EndSec * rate), m.Name) == 0)
        {
            Error = "cannot add a marker without audio";
            return false;
        }
    return true;
}
}  // namespace

void AdoptOpened(GLWaveEdit& Editor, Session& Docs, OpenResult& Opened)
{
    if (Opened.bPrepared)
        Editor.AdoptPreparedDocument(Opened.Path, std::move(Opened.Prepared));
    else
        Editor.AdoptDecodedDocument(Opened.Path, std::move(Opened.Audio.Frames));
    DocumentInfo& info = Docs.Info(Editor.DocumentIdAt(Editor.ActiveDocument()));
    info.SourcePath = Opened.Path;
    info.DiskStamp = FileStamp::Of(Opened.Path);  // as this program read it
    info.FormatSummary = Opened.Format;
    info.Tags = std::move(Opened.Audio.Tags);
    info.Source = Opened.Source;
    info.Save = DefaultSaveFormat(info.Source, info.Save.BitrateKbps);
    TakeFileMarkers(Editor, Opened.Audio.Markers);
}

bool OpenAndWait(GLWaveEdit& Editor, Jobs& Work, Session& Docs, const std::string& Path, std::string& OutError)
{
    Work.QueueOpen(Path);
    OpenResult result = WaitFor<OpenResult>(
        "opening " + Path, [&Work](OpenResult& Out) { return Work.TakeOpened(Out); },
        [&Work] { return Work.OpenProgress(); });
    if (!result.bOk)
    {
        OutError = result.Error;
        return false;
    }
    AdoptOpened(Editor, Docs, result);
    return true;
}

bool RunBatchSteps(GLWaveEdit& Editor, Jobs& Work, Session& Docs, const Options& Opts)
{
    for (const BatchStep& step : Opts.Steps)
    {
        std::string error;
        switch (step.What)
        {
        case BatchStep::Select: Editor.SetHostedSelection(step.A, step.B); break;
        case BatchStep::Cut: Editor.RequestCutSelection(); break;
        case BatchStep::Delete: Editor.RequestDeleteSelection(); break;
        case BatchStep::Gain:
            if (!Editor.ApplyGainPercent(step.A, &error))
            {
                std::fprintf(stderr, "glwaveedit: gain: %s\n", error.c_str());
                return false;
            }
            break;
        case BatchStep::Effect:
        case BatchStep::FadeIn:
        case BatchStep::FadeOut:
            if (!RunEffectStep(Editor, step, error))
            {
                std::fprintf(stderr, "glwaveedit: %s: %s\n", step.Path.empty() ? "fade" : step.Path.c_str(),
                             error.c_str());
                return false;
            }
            break;
        case BatchStep::Save:
            if (!SaveAndWait(Editor, Work, Docs, step.Path, Opts))
                return false;
            break;
        case BatchStep::ImportMarkers:
        case BatchStep::AddMarker:
        case BatchStep::ExportMarkers:
            if (!RunMarkerStep(Editor, step, error))
            {
                std::fprintf(stderr, "glwaveedit: %s\n", error.c_str());
                return false;
            }
            break;
        }
    }
    return true;
}

int RunBatch(const Options& Opts)
{
    if (Opts.Files.empty())
    {
        std::fprintf(stderr, "glwaveedit: the batch mode needs a FILE\n");
        return 2;
    }
    if (!Opts.Steps.empty() && Opts.Files.size() != 1)
    {
        std::fprintf(stderr, "glwaveedit: edit steps take exactly one FILE\n");
        return 2;
    }
    GLWaveEdit editor;
    editor.EnableMarkers(true);  // a file's markers follow the steps into the saved file
    Jobs work;
    work.bPrepareDocuments = true;  // the window's path: one open to time and trust
    Session docs;
    for (const std::string& path : Opts.Files)
    {
        std::string error;
        if (!OpenAndWait(editor, work, docs, path, error))
        {
            std::fprintf(stderr, "glwaveedit: cannot open %s: %s\n", path.c_str(), error.c_str());
            return 1;
        }
        if (Opts.bInfo)
            PrintInfo(path, docs.Info(editor.DocumentIdAt(editor.ActiveDocument())), editor, Opts);
    }
    return RunBatchSteps(editor, work, docs, Opts) ? 0 : 1;
}
