// What the tests share: a host for the editor, the one way to its private
// operations, a recorder of its signals, and audio fixtures made with FFmpeg.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core.h"
#include "glwaveedit.h"

// Installs a Core with a screen, mouse and root object as the global p for the
// lifetime of the object, and removes it again.
class TestHost
{
public:
    explicit TestHost(int WidthPx = 1000, int HeightPx = 1000);
    ~TestHost();
    TestHost(const TestHost&) = delete;
    TestHost& operator=(const TestHost&) = delete;

    Core Host;
    Mouse& Pointer() { return *Host.pMouse; }
    Tarvik& Root() { return *Host.pTarvik; }
};

// Gives an editor a window rectangle and one pass's pointer state in one call.
void SetPointer(Mouse& Pointer, double X, double Y, bool bLeft, bool bMiddle);

// The single seam into GLWaveEdit's private side.
struct GLWaveEditTestAccess
{
    using E = GLWaveEdit;
    using DragMode = GLWaveEdit::DragMode;
    static constexpr DragMode DragNone = GLWaveEdit::DragNone;
    static constexpr DragMode DragSeek = GLWaveEdit::DragSeek;
    static constexpr DragMode DragPan = GLWaveEdit::DragPan;
    static constexpr DragMode DragSelect = GLWaveEdit::DragSelect;
    static constexpr DragMode DragResizeSelectionStart = GLWaveEdit::DragResizeSelectionStart;
    static constexpr DragMode DragResizeSelectionEnd = GLWaveEdit::DragResizeSelectionEnd;

#define GLWE_FIELD(Name) \
    static auto& Name(E& Editor) { return Editor.Name; }
    GLWE_FIELD(ExternalPeaks)
    GLWE_FIELD(PcmFrames)
    GLWE_FIELD(ClipboardFrames)
    GLWE_FIELD(AudioPlayer)
    GLWE_FIELD(PcmSampleRate)
    GLWE_FIELD(PcmChannels)
    GLWE_FIELD(bUseExternalPeaks)
    GLWE_FIELD(bUsePcmFrames)
    GLWE_FIELD(HoverTimeSec)
    GLWE_FIELD(HoverPeak)
    GLWE_FIELD(CommittedSeekDisplaySec)
    GLWE_FIELD(CommittedSeekDisplayFrames)
    GLWE_FIELD(PlotX1)
    GLWE_FIELD(PlotY1)
    GLWE_FIELD(PlotX2)
    GLWE_FIELD(PlotY2)
    GLWE_FIELD(SelectionAnchorSec)
    GLWE_FIELD(SelectionStartValueSec)
    GLWE_FIELD(SelectionEndValueSec)
    GLWE_FIELD(bViewInitialized)
    GLWE_FIELD(bHover)
    GLWE_FIELD(ActiveDrag)
    GLWE_FIELD(bRenderSamplesValid)
    GLWE_FIELD(CachedRenderSamples)
    GLWE_FIELD(Documents)
    GLWE_FIELD(ActiveDocumentIndex)
    GLWE_FIELD(bTabMenuOpen)
    GLWE_FIELD(TabMenuDocumentIndex)
    GLWE_FIELD(TabMenuX)
    GLWE_FIELD(Summaries)
#undef GLWE_FIELD

// Forwards a private operation: Access::Name(editor, args...).
#define GLWE_CALL(Name)                                        \
    template <typename... Args>                                \
    static decltype(auto) Name(E& Editor, Args&&... Values)    \
    {                                                          \
        return Editor.Name(std::forward<Args>(Values)...);     \
    }
    GLWE_CALL(CloseDocument)
    GLWE_CALL(StoreActiveDocument)
    GLWE_CALL(LoadActiveDocument)
    GLWE_CALL(HasWaveform)
    GLWE_CALL(ExternalRangeForSpan)
    GLWE_CALL(WaveformRangeForSpan)
    GLWE_CALL(WaveformPeakForSpan)
    GLWE_CALL(UpdatePlotRect)
    GLWE_CALL(SyncPlaybackState)
    GLWE_CALL(DisplayedTimeSec)
    GLWE_CALL(EmitSelectionChanged)
    GLWE_CALL(NiceTimeStep)
    GLWE_CALL(FormatTimeLabel)
    GLWE_CALL(FormatAxisTime)
    GLWE_CALL(RefreshRenderColumns)
#undef GLWE_CALL

    // A document record's fields, read by index; its frames only through
    // RecordFrames (the active record's are the mirror's).
    static const auto& Document(E& Editor, int Index) { return Editor.Documents.at(static_cast<size_t>(Index)); }
    static const std::vector<float>& RecordFrames(E& Editor, int Index) { return Editor.RecordFrames(Index); }
};
using Access = GLWaveEditTestAccess;

// Every signal of an editor as one ordered list of lines such as
// "selection 1.000000 3.000000" or "edit cut 1.000000 2.000000".
using Lines = std::vector<std::string>;
class SignalLog
{
public:
    explicit SignalLog(GLWaveEdit& Editor);
    ::Lines Lines;
    void Clear() { Lines.clear(); }
};

// Interleaved stereo frames at Rate whose every frame is (Left, Right).
std::vector<float> ConstantFrames(size_t FrameCount, float Left, float Right);
// Interleaved stereo frames whose frame f holds (f, -f) scaled by Scale, so a
// test can tell exactly which frames moved.
std::vector<float> RampFrames(size_t FrameCount, float Scale);

// A whole file as bytes ("" when it cannot be read), and a file made of Bytes.
std::string ReadFileBytes(const std::string& Path);
void WriteFileBytes(const std::string& Path, const std::string& Bytes);

// A scratch folder for this test binary, created on first use.
std::string ScratchPath(const std::string& FileName);
// Runs the ffmpeg program with Arguments (after "-y -hide_banner -loglevel error")
// writing FileName in the scratch folder; returns its path, or "" after
// recording the failure in the running test.
std::string MakeFfmpegFixture(const std::string& FileName, const std::string& Arguments);

// Runs a shell command; its exit status.
int RunShell(const std::string& Command);
// The standard output of a shell command.
std::string ShellOutput(const std::string& Command);
