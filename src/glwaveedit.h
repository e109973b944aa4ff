// GLWaveEdit: a multi-document audio wave editor that lives as one child
// window of the OpenGL shell.
//
// The active document lives in the mirror fields of this class (path, peaks,
// frames, rate, channels, duration, view, selection and the two source
// flags); every operation reads and changes only those. Each tab has an
// AudioDocument record in Documents, and only the document operations move
// data between mirror and record. Leaving a document is always: store into
// the record, stop playback, then change the mirror.
//
// Threads. The class is not thread-safe: a host calls it from one thread at a
// time, though not always the same one (the program runs long edits and
// RefreshWaveSummary on a worker while its frame thread leaves the editor
// alone, and its save worker copies ActiveFrames() while no call changes
// them). PrepareForAdoption needs no editor and runs on any thread. The
// editor's own threads: the one inside GLDeckAudioPlayer, which plays its
// own copy of the frames; with bRenderHelperThread on, a helper for the
// length of a frame of a long view, which only reads; and the summary
// workers PrepareForAdoption may start, which read only what it was given.
//
// Index of operations, in the order of the class (and of glwaveedit.cpp):
//   Lifecycle         constructors, Init, Destroy, SourcePath
//   Documents         NewUntitledDocument, CloseActiveDocument, CloseDocument,
//                     StoreActiveDocument, LoadActiveDocument,
//                     SetExternalPeakWaveform, SaveToFile, window state
//   Waveform queries  HasWaveform ... InvalidateWaveCaches
//   Time view         FitViewToData, ClampView, TimeForMouse, XForTime,
//                     ZoomAroundTime, AlignViewToPlaybackPage
//   Plot layout       UpdatePlotRect ... CloseTabMenu
//   Transport         PlayFromCurrentPosition ... IsPlaybackPaused
//   Playback sync     SyncPlaybackState, DisplayedTimeSec
//   Selection         HasSelection ... EmitSelectionChanged
//   Clipboard edits   RequestCopySelection ... RequestDeleteSelection
//   Gain              ApplyGainPercent
//   Input             MouseProcessing, mouse events, HandleGlobalKey
//   Extensions        opt-in, each in a file of its own and off by default:
//                     tabs (glwaveedit_tabs.cpp), adopting a decoded document
//                     (glwaveedit_adopt.cpp), edit history (glwaveedit_history.cpp),
//                     replaying journalled edits (glwaveedit_replay.cpp),
//                     looped playback (glwaveedit_loop.cpp),
//                     effects (glwaveedit_effects.cpp),
//                     markers and regions (glwaveedit_markers.cpp)
//   Render side       Render, PlayPositionText, NiceTimeStep, FormatTimeLabel
//                     (glwaveedit_render.cpp, drawing only); the waveform
//                     data it draws, the per-document summaries and the
//                     columns made from them (glwaveedit_wave_data.cpp,
//                     wave_summary.h)
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "glchildwindow.h"
#include "document_format.h"
#include "glcolor.h"
#include "signalslot.h"
#include "wave_column_shader.h"
#include "wave_summary.h"

class GLDeckAudioPlayer;
struct LoudnessFigures;
struct WorkProgress;

class GLWaveEdit : public GLChildWindow
{
    // The tests' one way to the private operations.
    friend struct GLWaveEditTestAccess;

public:
    // One waveform column.
    struct WaveSample
    {
        double TimeSec = 0.0;  // centre time of the column
        double MinAmp = 0.0;   // lowest amplitude, -1.0..1.0
        double MaxAmp = 0.0;   // highest amplitude, -1.0..1.0
    };

    // One column of one trace (a channel or the mix), as drawn.
    struct TraceColumn
    {
        float MinAmp = 0.0f;   // -1.0..1.0
        float MaxAmp = 0.0f;   // -1.0..1.0
        float RmsAmp = -1.0f;  // negative where the source has none
        bool bClipHigh = false;  // a sample at or above +1.0
        bool bClipLow = false;   // a sample at or below -1.0
    };

private:
    // What a held button is doing.
    enum DragMode : unsigned int
    {
        DragNone = 0,
        DragSeek = 1,                  // left: preview a position, commit at release
        DragPan = 2,                   // middle: move the view with the pointer
        DragSelect = 3,                // shift-left: sweep a new selection
        DragResizeSelectionStart = 4,  // shift-left on an edge: move SelectionStartValueSec
        DragResizeSelectionEnd = 5,    // shift-left on an edge: move SelectionEndValueSec
    };

    // The stored state of one tab; the mirror fields hold the active one live.
    struct AudioDocument
    {
        std::string SourceFilePath;        // path, or the name of an untitled document
        std::vector<float> ExternalPeaks;  // host's peaks, evenly over the document
        std::vector<float> PcmFrames;      // interleaved float frames
        int PcmSampleRate = kDocumentRateHz;
        int PcmChannels = kDocumentChannels;
        double DurationSec = 0.0;
        double ViewStartSec = 0.0;
        double ViewEndSec = 1.0;
        double SelectionStartSec = 0.0;  // raw pair, unordered
        double SelectionEndSec = 0.0;
        bool bUseExternalPeaks = false;
        bool bUsePcmFrames = false;
        // The document is active and its frames are the mirror's: PcmFrames
        // above stays empty until the document is left (see RecordFrames).
        bool bFramesInMirror = false;

        AudioDocument() = default;
        AudioDocument(AudioDocument&&) noexcept = default;
        AudioDocument& operator=(AudioDocument&&) noexcept = default;
        ~AudioDocument() = default;
    };

public:
    // Colours, made by Init and deleted by Destroy.
    GLColor* pBackgroundColor = nullptr;
    GLColor* pPlotBackColor = nullptr;
    GLColor* pWaveColor = nullptr;
    GLColor* pWaveFillColor = nullptr;
    GLColor* pGridColor = nullptr;
    GLColor* pAxisColor = nullptr;
    GLColor* pSelectionFillColor = nullptr;
    GLColor* pSelectionBorderColor = nullptr;
    GLColor* pPlayheadColor = nullptr;
    GLColor* pHoverColor = nullptr;
    GLColor* pTabBackColor = nullptr;
    GLColor* pTabActiveColor = nullptr;
    GLColor* pTabBorderColor = nullptr;
    GLColor* pTextColor = nullptr;
    GLColor* pBorderColor = nullptr;
    GLColor* pBorderFocusColor = nullptr;

    double DurationSec = 0.0;     // length of the active document (mirror)
    double CurrentTimeSec = 0.0;  // play position
    double PreviewTimeSec = 0.0;  // position shown under a seek drag
    double ViewStartSec = 0.0;    // left end of the visible span (mirror)
    double ViewEndSec = 1.0;      // right end of the visible span (mirror)

    // Settings the host may change at any time.
    double BorderWidth = 5.0;     // part of the label band's height, pixels
    double PaddingPx = 8.0;       // padding inside the window
    double LabelBandPx = 20.0;    // least height of the time label band
    double WheelZoomStep = 0.22;  // one wheel step zooms by 1 + this
    double MinViewSpanSec = 0.1;  // narrowest view that zooming aims for
    int DesiredXTicks = 6;        // wanted ticks on the time axis
    int FontPx = 0;               // text size; 0 or less takes the renderer's own
    bool bShowGrid = true;
    bool bShowSelection = true;
    bool bWaveFill = true;
    bool bChannelLanes = true;   // a lane per PCM channel; false: one trace of the channel mix
    bool bAmplitudeDb = false;   // amplitude scale in dBFS instead of -1..1
    double AmplitudeZoom = 1.0;  // vertical zoom: 1 shows full scale, 2 half of it (at least 1)
    bool bColumnShader = true;   // columns by a fragment shader where GL has one; false: as lines
    // Off by default, as the editor starts no thread of its own. On, a frame
    // whose view holds more than about 90 s of audio has a second thread
    // fold half of its columns, for the length of that frame.
    bool bRenderHelperThread = false;
    // Extension, 0 by default: pixels kept left of the plot for the amplitude
    // scale, which is then drawn there instead of over the first columns of
    // audio. The plot rectangle, and so every time <-> x of the hit tests,
    // starts right of it.
    double ScaleGutterPx = 0.0;

    // Host hooks, called synchronously on the frame thread. An empty one
    // counts as absent.
    std::function<bool()> HasWaveformProvider;                           // by HasWaveform
    std::function<float(double, double)> WaveformPeakProvider;           // peak of a span, last source
    std::function<bool(double, double, float&, float&)> WaveformRangeProvider;  // min/max of a span
    std::function<bool(double, double, int, std::vector<WaveSample>&)> WaveformLodProvider;  // render side
    std::function<double()> CurrentTimeProvider;  // host's play position, while the editor has no data
    std::function<double()> DurationProvider;     // host's duration, while the editor has no data
    std::function<bool()> IsPreloadingProvider;   // render side: the host is still loading
    std::function<double()> PreloadProgressProvider;  // render side: 0.0..1.0
    // Extension (glwaveedit_tabs.cpp), empty by default: asked with the tab's
    // index before a click on its close box or the tab menu's "Close" closes
    // it. False withholds the close, so that a host can ask the user first and
    // close the tab itself with CloseDocumentAt. Empty: every close goes ahead.
    std::function<bool(int)> CloseRequestProvider;
    // Extension (glwaveedit_tabs.cpp), empty by default: true for a tab whose
    // label the render side marks with a bullet (the program: unsaved changes).
    std::function<bool(int)> TabMarkProvider;
    // Extension (glwaveedit_render.cpp), empty by default: for a tab (by
    // index) whose two channels carry one mono source, the factor from the
    // document's level to the source's (the inverse of the import's spread);
    // 0 or less for any other tab. Such a tab is drawn as one lane named "M"
    // at the source's level: its waveform, scale, readout and clip marks in
    // the file's terms. The frames and every query stay the document's.
    std::function<double(int)> MonoSourceLevelProvider;
    // Extension (glwaveedit_render.cpp), empty by default: the text of a time
    // on the axis, in the hover readout and in the play position, telling
    // apart times StepSec apart (a host's choice of seconds or samples).
    // Empty, or an empty answer: the render side's own clock text.
    std::function<std::string(double TimeSec, double StepSec)> TimeTextProvider;
    // Extension (glwaveedit_tabs.cpp), empty by default: the label of the tab
    // at the index, in place of its source's file name (the program: the file
    // a document now saves to). Empty, or an empty answer: the file name.
    std::function<std::string(int)> TabLabelProvider;

    // Notifications, fired synchronously once the state they report is final.
    Signal<double> SignalSeekPreview;    // each held pass of a seek drag: the preview time
    Signal<double> SignalSeekCommitted;  // a committed seek, while the editor has no PCM
    Signal<bool> SignalTogglePause;      // space, while the editor has no PCM; always true
    Signal<double, double> SignalSelectionChanged;  // ordered selection, or 0.0, 0.0 for none
    Signal<std::string, double, double> SignalEditActionRequested;  // an edit done: word and span
    Signal<std::string> SignalActiveDocumentChanged;  // path of the document just made active

private:
    std::string SourceFilePath;          // (mirror)
    std::vector<float> ExternalPeaks;    // (mirror)
    std::vector<float> PcmFrames;        // interleaved, PcmChannels per frame (mirror)
    std::vector<float> ClipboardFrames;  // one clipboard for all documents
    std::unique_ptr<GLDeckAudioPlayer> AudioPlayer;  // made on the first play
    int PcmSampleRate = kDocumentRateHz;             // (mirror)
    int PcmChannels = kDocumentChannels;             // (mirror)
    int ClipboardSampleRate = kDocumentRateHz;
    int ClipboardChannels = kDocumentChannels;
    bool bUseExternalPeaks = false;  // (mirror)
    bool bUsePcmFrames = false;      // (mirror)
    double HoverTimeSec = 0.0;       // time under the pointer, last inside value
    double HoverPeak = -1.0;         // peak there; -1.0 when no source answers
    double CommittedSeekDisplaySec = -1.0;  // time held on display; negative: none
    int CommittedSeekDisplayFrames = 0;     // passes the hold may still last
    double PlotX1 = 0.0;
    double PlotY1 = 0.0;
    double PlotX2 = 0.0;
    double PlotY2 = 0.0;
    double SelectionAnchorSec = 0.0;
    double SelectionStartValueSec = 0.0;  // raw pair, unordered (mirror)
    double SelectionEndValueSec = 0.0;
    double DragAnchorTimeSec = 0.0;
    double DragAnchorViewStartSec = 0.0;
    double DragAnchorViewEndSec = 0.0;
    double DragAnchorMouseX = 0.0;
    bool bViewInitialized = false;  // false until the view has had its first fit
    bool bHover = false;            // the pointer is over the plot
    DragMode ActiveDrag = DragNone;
    bool bRenderSamplesValid = false;  // the render cache below may be used
    double CachedRenderStartSec = 0.0;
    double CachedRenderEndSec = 0.0;
    int CachedRenderSampleCount = 0;
    double CachedRenderWidthPx = 0.0;
    std::vector<WaveSample> CachedRenderSamples;
    std::vector<AudioDocument> Documents;  // the tabs, in tab order
    int ActiveDocumentIndex = -1;          // -1 while there is no document
    int UntitledCounter = 1;               // number of the next untitled document
    bool bTabMenuOpen = false;
    int TabMenuDocumentIndex = -1;
    double TabMenuX = 0.0;
    double TabMenuY = 0.0;
    // A stable id per tab, parallel to Documents, for state that extensions
    // and the render side keep per document (history, waveform summaries).
    std::vector<uint64_t> DocumentIds;
    uint64_t NextDocumentId = 1;
    struct EditHistory;                         // glwaveedit_history.cpp
    std::shared_ptr<EditHistory> pEditHistory;  // null: no history (the default)
    struct MarkerStore;                         // glwaveedit_markers.cpp
    std::shared_ptr<MarkerStore> pMarkers;      // null: no markers (the default)

public:
    // --- Lifecycle ---
    GLWaveEdit();
    explicit GLWaveEdit(int iChildWindowID);
    GLWaveEdit(const GLWaveEdit&) = delete;
    GLWaveEdit& operator=(const GLWaveEdit&) = delete;
    ~GLWaveEdit() override;
    bool Init() override;     // makes the sixteen colours
    void Destroy() override;  // deletes them and the render side's GL objects
    const std::string& SourcePath() const;

    // --- Documents ---
    void NewUntitledDocument();
    void CloseActiveDocument();
    // Decodes Path (when not empty) to the document format (48000 Hz stereo
    // float, document_format.h) and appends it as the active tab. A file that
    // fails still gives a tab with Peaks and DurationSeconds.
    void SetExternalPeakWaveform(const std::string& Path, const std::vector<float>& Peaks,
                                 double DurationSeconds);
    // The active document's frames through the encoder; the format follows
    // the extension of Path.
    bool SaveToFile(const std::string& Path, int BitrateKbps, std::string* ErrorMessage = nullptr) const;
    const char* GetStateType() const override;
    void SerializeExtraState(nlohmann::json& j) const override;
    void ApplyExtraState(const nlohmann::json& j) override;

private:
    void CloseDocument(int Index);
    void StoreActiveDocument();
    void LoadActiveDocument(int Index);
    void CopyMirrorAndRecord(AudioDocument& Record, bool bIntoRecord);
    // The active document is left: its frames move from the mirror into its
    // record, before anything changes the mirror.
    void ParkActiveFrames();
    // The frames of record Index: the mirror's while it is the active one.
    const std::vector<float>& RecordFrames(int Index) const;
    // The shared tail of opening a document.
    void FinishOpenedDocument();
    void TakeAdoptedFrames(const std::string& Path, std::vector<float>&& Frames);
    void AppendDocumentId();
    uint64_t ActiveDocumentId() const;  // 0 with no active document

    // --- Waveform queries ---
    bool HasWaveform() const;
    static int64_t BoundedIndex(double Scaled, int64_t Last);
    bool ExternalRangeForSpan(double StartSec, double EndSec, double& MinOut, double& MaxOut) const;
    bool ExternalLodForSpan(double StartSec, double EndSec, int TargetSamples,
                            std::vector<WaveSample>& OutSamples) const;
    bool WaveformRangeForSpan(double StartSec, double EndSec, double& MinOut, double& MaxOut) const;
    double WaveformPeakForSpan(double StartSec, double EndSec) const;
    void InvalidateWaveCaches();
    // The active document's frames changed from FirstFrame up to EndFrame
    // (exclusive); EndFrame < 0: to the end, whose length may have changed.
    // Keeps the per-document summary current (glwaveedit_wave_data.cpp).
    void NoteFramesChanged(int64_t FirstFrame, int64_t EndFrame);

public:
    // --- Time view ---
    void FitViewToData();

private:
    void ClampView();
    double TimeForMouse(double MouseX) const;
    double XForTime(double TimeSec) const;
    void ZoomAroundTime(double AnchorSec, double Ratio);
    void AlignViewToPlaybackPage(bool bForceSnapToPage);

    // --- Plot layout ---
    void UpdatePlotRect(bool bApplyActiveWindowDelta);
    void GetActiveWindowPreviewDelta(double& OutDeltaX, double& OutDeltaY) const;
    bool IsInsidePlot(double X, double Y) const;
    bool IsInsideTabBar(double X, double Y) const;
    int HitTestDocumentTab(double X, double Y) const;
    int HitTestDocumentTabClose(double X, double Y) const;
    bool IsInsideTabMenu(double X, double Y) const;
    int HitTestTabMenuItem(double X, double Y) const;
    void OpenTabMenu(double X, double Y, int TabIndex);
    void CloseTabMenu();
    // Geometry shared by the tab hit tests and the render side.
    struct TabBarRect
    {
        double X1, Y1, X2, Y2;  // Y1 top, Y2 the lower edge
    };
    TabBarRect TabBar() const;
    void TabSpan(int Index, double& OutX1, double& OutX2) const;
    void CloseBoxSpan(int Index, double& OutX1, double& OutX2) const;

public:
    // --- Transport ---
    bool PlayFromCurrentPosition(std::string* ErrorMessage = nullptr);
    bool PlaySelectionOrCurrent(std::string* ErrorMessage = nullptr);
    void PausePlayback();
    void StopPlayback();
    void TogglePlayback(std::string* ErrorMessage = nullptr);
    void SeekPlaybackTo(double TargetSeconds);
    void SeekPlaybackRelative(double DeltaSeconds);
    bool IsPlaybackActive() const;
    bool IsPlaybackPaused() const;

private:
    bool StartPlaybackAt(double RequestedStartSec, std::string* ErrorMessage);

    // --- Playback sync ---
    void SyncPlaybackState();
    double DisplayedTimeSec() const;

public:
    // --- Selection ---
    bool HasSelection() const;
    double SelectionStartSec() const;
    double SelectionEndSec() const;
    void ClearSelection(bool bEmitSignal);
    void SetHostedSelection(double StartSeconds, double EndSeconds);

private:
    double SelectionEdgeHitToleranceSec() const;
    void EmitSelectionChanged();

public:
    // --- Clipboard edits ---
    void RequestCopySelection();
    void RequestCutSelection();
    void RequestPasteAtSelection();
    void RequestDeleteSelection();

private:
    void RemoveSelectedFrames(const char* Action);
    void FinishEdit(const char* Action, double SpanStartSec, double SpanEndSec);

public:
    // --- Gain ---
    bool ApplyGainPercent(double Percent, std::string* ErrorMessage = nullptr);

    // --- Input ---
    void MouseProcessing() override;
    void EventMouseOut() override;
    void EventMouseClick(int ButtonID, double x, double y) override;
    void EventMouseRelease(int ButtonID, double x, double y) override;
    void EventMouseDoubleClick(int ButtonID) override;
    bool HandleGlobalKey(int KeySym, bool ShiftMod, bool ControlMod, bool AltMod) override;

private:
    void BeginLeftDrag(double MouseX);
    void BeginPan(double MouseX);
    void HoldDrag(double MouseX, bool bLeftDown, bool bMiddleDown);
    void ApplySeekPositionRule(double MouseX);
    void CommitSeek(double TimeSec);
    bool IsOnSelectionEdge(double TimeSec, double ToleranceSec) const;

public:
    // --- Extensions: tabs (glwaveedit_tabs.cpp) ---
    // Read-only views of the tab list and direct moves, for a host that keeps
    // its own bookkeeping per tab (modified marks, save targets).
    int DocumentCount() const;
    int ActiveDocument() const;                    // index, -1 with none
    uint64_t DocumentIdAt(int Index) const;        // 0 when out of range
    std::string DocumentPathAt(int Index) const;   // "" when out of range
    void ActivateDocument(int Index);              // as a click on the tab
    void CloseDocumentAt(int Index);               // as a click on its close box, unasked
    // The active document's frames, read-only: interleaved, as many channels
    // as the document has. Valid until the next edit or document change.
    const std::vector<float>& ActiveFrames() const;
    int ActiveChannels() const;
    int ActiveSampleRate() const;

    // --- Extensions: adopting a decoded document (glwaveedit_adopt.cpp) ---
    // Appends a document decoded elsewhere, as SetExternalPeakWaveform does
    // after its own decode, with the same steps, state and signals. Frames are
    // in the document format (document_format.h), and are moved in, not copied;
    // empty Frames give a tab without PCM, as a failed decode does.
    void AdoptDecodedDocument(const std::string& Path, std::vector<float>&& Frames);
    // Everything of an adoption that does not need the editor, made on any
    // thread: the waveform summary. The adoption then only moves memory, so
    // that a host's frame thread does not stall for the summary of an hour.
    struct PreparedDocument
    {
        std::vector<float> Frames;  // as AdoptDecodedDocument takes them
        WaveSummary Summary;        // of Frames
    };
    // SummaryWorkers as WaveSummary::MaxWorkers: 1 starts no thread.
    static PreparedDocument PrepareForAdoption(std::vector<float>&& Frames, int SummaryWorkers = 1);
    // AdoptDecodedDocument with what PrepareForAdoption made: the same steps,
    // state and signals. Parts that do not fit the frames are made here.
    void AdoptPreparedDocument(const std::string& Path, PreparedDocument&& Document);

    // --- Extensions: edit history (glwaveedit_history.cpp) ---
    // Off by default: with it off no edit stores anything. On, every cut,
    // paste, delete and gain of a document can be undone and redone, sample
    // exact; the history belongs to its document and ends when the tab
    // closes. A step stores only what its edit removed or overwrote. CapBytes
    // bounds the stored frames of all documents together; the oldest steps go
    // first. 0 turns the history off and drops it.
    void EnableEditHistory(size_t CapBytes);
    bool IsEditHistoryEnabled() const;
    bool CanUndo() const;
    bool CanRedo() const;
    // Ends like every edit: caches, view clamp, SignalEditActionRequested
    // with "undo" or "redo" and the span, selection signal, store.
    bool Undo();
    bool Redo();
    // The active document's place in its history: 0 as opened, else the id of
    // the last applied step. Equal ids mean equal audio.
    uint64_t EditStateId() const;
    uint64_t EditStateIdOf(uint64_t DocumentId) const;  // the same for any tab, by its id
    bool HistoryDroppedSteps() const;  // the active document lost its oldest steps to the cap
    size_t HistoryBytes() const;       // stored frames of all documents, in bytes

    // --- Extensions: the edit record (glwaveedit_history.cpp) ---
    // What the last edit of the frames did, exact to the frame: at StartFrame
    // RemovedFrames frames gave way to InsertedFrames others (as many for an
    // edit in place, such as a gain). Every edit makes one where it calls the
    // history's hook, before the frames change, whether or not the history is
    // on; a host that follows edits (the journal, playback kept in place,
    // marks on the timeline) reads it rather than turning the seconds of
    // SignalEditActionRequested back into frames.
    enum class EditKind
    {
        Cut,
        Delete,
        Paste,
        Gain,
        Effect,  // any of ApplyEffect's
        Undo,    // the step's record turned round: what it inserted goes, what it removed comes back
        Redo,    // the step's record again
    };
    struct EditRecord
    {
        EditKind Kind = EditKind::Cut;
        int64_t StartFrame = 0;
        int64_t RemovedFrames = 0;
        int64_t InsertedFrames = 0;
        double Percent = 0.0;  // a gain's percent; 0 for the other kinds
    };
    // The record of the last edit of any document; valid from the edit's
    // SignalEditActionRequested on. All zero before the first edit; a copy
    // changes no frames and leaves it as it was.
    const EditRecord& LastEdit() const;

    // --- Extensions: replaying a journalled edit (glwaveedit_replay.cpp) ---
    // Repeats one edit on the active document through the same operations
    // that made it, so that a journal of edits gives back the edited frames
    // sample for sample. Kind is "cut", "delete", "gain", "paste", "undo" or
    // "redo"; frames are of the active document. A paste inserts Inserted
    // (interleaved, the document's channels) in place of StartFrame ..
    // EndFrame. False when the edit does not apply to the document.
    bool ReplayEdit(const std::string& Kind, int64_t StartFrame, int64_t EndFrame, double Percent,
                    const std::vector<float>& Inserted);

    // --- Extensions: looped playback (glwaveedit_loop.cpp) ---
    // Off by default. Playback that reaches EndSec goes on at StartSec without
    // a gap, until the loop is turned off with EndSec <= StartSec; kept for
    // every later play until then.
    void SetPlaybackLoop(double StartSec, double EndSec);
    // --- Extensions: overview (glwaveedit_overview.cpp) ---
    // The active document's mix as Columns min/max pairs over its whole
    // length, from the waveform summary the render side keeps current with
    // every edit. False, and OutMinMax empty, without decoded frames.
    bool OverviewColumns(int Columns, std::vector<float>& OutMinMax);
    // The plot's left and right edges in clip space, as the last pass laid
    // them out, for a host that draws above the same times.
    void PlotSpanX(double& OutX1, double& OutX2) const;
    // --- Extensions: playback speed (glwaveedit_speed.cpp) ---
    // 1 by default. 0.5 to 2, the pitch kept; kept for every later play.
    // Positions, the playhead and every signal stay in document time.
    void SetPlaybackSpeed(double Speed);
    double PlaybackSpeed() const;
    // --- Extensions: effects (glwaveedit_effects.cpp) ---
    // Processing edits, each one edit like a gain: undoable, announced with
    // an action text of its own ("fade in"), ended in the edits' fixed order.
    // Nothing calls them unless a host does. Name and the meaning of A, B:
    //   fade-in, fade-out  A: curve, 0 linear, 1 logarithmic, 2 S-curve
    //   silence            -
    //   insert-silence     A: seconds, at the play position
    //   normalize          A: peak in dBFS; B: 1 channels linked, 0 each on its own
    //   loudness           A: integrated loudness in LUFS; B: true-peak ceiling in dBTP
    //   dc, reverse        -
    //   highpass           A: cutoff in Hz
    //   trim-silence       A: threshold in dBFS; B: shortest silence trimmed, seconds
    struct Effect
    {
        std::string Name;
        double A = 0.0;
        double B = 0.0;
    };
    // The frames an effect read and whether they were the whole document
    // (no selection), as a journal keeps them for ApplyEffectToFrames.
    struct EffectSpan
    {
        int64_t StartFrame = 0;
        int64_t EndFrame = 0;
        bool bWhole = false;
    };
    // On the selection, or the whole document without one; insert-silence at
    // the play position. False, with the reason, when it does not apply.
    bool ApplyEffect(const Effect& What, std::string* ErrorMessage = nullptr, EffectSpan* Applied = nullptr);
    // The same on given frames of the active document. After it, with bWhole
    // there is no selection; otherwise the selection spans the result.
    bool ApplyEffectToFrames(const Effect& What, const EffectSpan& Span, std::string* ErrorMessage = nullptr);
    // The frames What would give in place of Span, without an edit (a preview).
    bool RenderEffect(const Effect& What, const EffectSpan& Span, std::vector<float>& Out,
                      std::string* ErrorMessage = nullptr) const;
    // The span ApplyEffect would take now.
    EffectSpan CurrentEffectSpan(const Effect& What) const;
    // Where the effects report their passes and look for a stop request
    // (work_progress.h); null, the default, runs every effect to its end.
    // A stopped effect fails with "Cancelled." and leaves the document,
    // its history and its selection as they were. The host owns Progress.
    void SetEffectProgress(WorkProgress* Progress);
    // The loudness figures of Span (loudness.h), as the loudness effect
    // needs them. Kept until the frames change, so that an effect applied
    // after a measurement of the same frames does not measure them again.
    bool MeasureEffectSpan(const EffectSpan& Span, LoudnessFigures& Out, std::string* ErrorMessage = nullptr) const;
    // The gain of each channel that normalize or loudness would apply to
    // Span, from their analysis (the peaks, the loudness), which is kept as
    // MeasureEffectSpan keeps its figures. False, with the reason, when the
    // effect would be refused.
    bool EffectGains(const Effect& What, const EffectSpan& Span, std::vector<float>& Gains,
                     std::string* ErrorMessage = nullptr) const;

    // --- Extensions: markers and regions (glwaveedit_markers.cpp) ---
    // Off by default: with them off nothing is kept and nothing a host sees
    // changes. On, each document has its own markers (a frame and a name) and
    // regions (a span of frames and a name); they end with their tab. They
    // follow the edits: a cut or delete before one moves it back, one inside
    // the removed frames goes (a region is clipped, and goes once nothing of
    // it is left), an insertion before one moves it on. An edit that keeps
    // its length (gain, most effects) overwrites in place and moves nothing.
    // Undo and redo bring back what an edit moved or removed, exactly.
    struct Marker
    {
        uint64_t Id = 0;         // stable within its document, never reused there
        int64_t StartFrame = 0;  // the marker's frame, or the region's first
        int64_t EndFrame = 0;    // == StartFrame for a marker; a region's end, exclusive
        std::string Name;
        bool IsRegion() const { return EndFrame > StartFrame; }
        bool operator==(const Marker& Other) const
        {
            return Id == Other.Id && StartFrame == Other.StartFrame && EndFrame == Other.EndFrame &&
                   Name == Other.Name;
        }
    };
    void EnableMarkers(bool bOn);  // off drops the markers of every document
    bool AreMarkersEnabled() const;
    // The active document's markers and regions by start, then end, then id;
    // empty while off. Valid until the next change of markers, edit or tab.
    const std::vector<Marker>& ActiveMarkers() const;
    std::vector<Marker> MarkersOf(uint64_t DocumentId) const;  // any tab's, by its id
    // Adds a marker (EndFrame <= StartFrame) or a region to the active
    // document, clamped to its frames; an empty name gets the next default
    // ("Marker 3", "Region 2"). The new id, or 0 while off or without audio.
    uint64_t AddMarker(int64_t StartFrame, int64_t EndFrame, const std::string& Name = std::string());
    // Moves or renames one (a marker stays a marker); false if no such id.
    bool SetMarker(uint64_t Id, int64_t StartFrame, int64_t EndFrame, const std::string& Name);
    bool RemoveMarker(uint64_t Id);
    // A journalled change repeated with the id it had: Kind "marker-add",
    // "marker-set" or "marker-remove". False when it does not apply.
    bool ReplayMarkerChange(const std::string& Kind, const Marker& What);
    // Each add, set and remove of a marker made through the calls above (not
    // the moves that edits, undo and redo make, which follow the edit): the
    // kind as ReplayMarkerChange takes it and the marker as it now is.
    Signal<std::string, Marker> SignalMarkerChanged;

private:
    // Called by every edit just before it changes the frames as Edit says:
    // keeps Edit for LastEdit and hands it to the history's hook.
    void RecordEdit(const EditRecord& Edit);
    EditRecord LastEditRecord;
    // The history's hook: nothing while the history is off.
    void HistoryBeforeChange(const EditRecord& Edit);
    struct EffectAnalysis;
    WorkProgress* pEffectProgress = nullptr;
    mutable std::shared_ptr<EffectAnalysis> pEffectAnalysis;  // the last measurement, with what it measured
    uint64_t FramesRevision = 0;  // bumped with every change of the frames (InvalidateWaveCaches)
    void HistoryForgetDocument(uint64_t DocumentId);
    // What an edit, undo or redo did to markers beyond what its reverse
    // undoes by itself, kept in the edit's history step.
    struct MarkerEditRecord;
    // The active document's markers follow an edit that replaces
    // RemovedFrames frames at StartFrame with InsertedFrames others; what the
    // reverse could not restore comes back for the step. Null while off.
    std::shared_ptr<MarkerEditRecord> MarkersFollowEdit(int64_t StartFrame, int64_t RemovedFrames,
                                                        int64_t InsertedFrames);
    // Undo or redo of such an edit: the markers follow it, Held's are put
    // back, and Held becomes what the next swap of the step puts back.
    void MarkersSwapEdit(std::shared_ptr<MarkerEditRecord>& Held, int64_t StartFrame, int64_t RemovedFrames,
                         int64_t InsertedFrames);
    void MarkersForgetDocument(uint64_t DocumentId);

public:
    // --- Render side ---
    void Render(GLdouble X1Clip, GLdouble Y1Clip, GLdouble X2Clip, GLdouble Y2Clip, GLdouble OffsetX,
                GLdouble OffsetY) override;
    void Render(GLdouble OffsetX, GLdouble OffsetY) override;
    // "1:02.345 / 3:00.000": the play position and the duration to the
    // millisecond, both with the duration's fields, so that the text keeps
    // its width while playing; for a host's status bar.
    std::string PlayPositionText() const;
    // Folds the changes of the active document's frames into its waveform
    // summary now instead of in the next Render. No GL: a host that runs an
    // edit on a thread of its own calls this there after the edit, so that
    // the frame thread's next Render only draws.
    void RefreshWaveSummary();

private:
    double NiceTimeStep(double RoughStepSec) const;
    std::string FormatTimeLabel(double TimeSec) const;

    // The render columns of a tab not shown, and what they were made from.
    struct StashedColumns
    {
        bool bHeld = false;
        double StartSec = 0.0;
        double EndSec = 0.0;
        int Count = 0;
        double WidthPx = 0.0;
        uint64_t Revision = 0;
        int Rate = 0;
        int TraceCount = 0;
        std::vector<WaveSample> Samples;
        std::vector<TraceColumn> Columns;
    };

    // A waveform summary per document, keyed by its id and kept current by
    // NoteFramesChanged; dropped lazily once its tab is gone.
    struct DocumentSummary
    {
        uint64_t DocumentId = 0;
        WaveSummary Summary;
        uint64_t Revision = 0;      // bumped by every change of the frames
        bool bBuilt = false;        // false: the next use builds it whole
        bool bPending = false;      // a change waits to be folded in
        int64_t PendingFirst = 0;   // first changed frame
        int64_t PendingEnd = 0;     // end of the change; < 0: to the end
        StashedColumns Stash;       // its columns while another tab is shown
    };
    // Widest column count drawn; beyond it a column is narrower than a pixel
    // on any real screen.
    static constexpr int kMaxRenderColumns = 8192;
    std::vector<DocumentSummary> Summaries;
    uint64_t CachedSummaryId = 0;        // summary the columns were made from
    uint64_t CachedSummaryRevision = 0;
    int CachedRenderRate = 0;            // sample rate the columns were made at
    int CachedTraceCount = 0;                     // traces per column below
    std::vector<TraceColumn> CachedTraceColumns;  // trace-major: trace * columns + column
    std::unique_ptr<WaveColumnShader> ColumnShader;  // made on the first frame that may use it
    std::vector<WaveColumnShader::Column> ShaderColumns;  // lane-major, reused between frames
    double RenderLevelScale = 0.0;  // this frame's MonoSourceLevelProvider answer; 0: none

    // The waveform data (glwaveedit_wave_data.cpp), no GL.
    bool IsPcmUsable() const;
    DocumentSummary* FindSummary(uint64_t DocumentId);
    const WaveSummary* CurrentSummary();
    bool PcmColumns(int ColumnCount, const WaveSummary& Summary);
    void PcmColumnRange(int First, int End, int ColumnCount, const WaveSummary& Summary);
    void TraceColumnsFromSamples();
    bool LodProviderColumns(int ColumnCount);
    bool RangeColumns(int ColumnCount);
    bool RefreshRenderColumns(int ColumnCount, double WidthPx);
    void StashColumns();
    bool TakeStashedColumns(DocumentSummary& Entry, int ColumnCount, double WidthPx);

    // Drawing (glwaveedit_render.cpp).
    std::string FormatAxisTime(double TimeSec, double StepSec) const;
    double AxisTimeStep() const;
    int TextSizePx() const;
    void RenderFrame() const;
    void RenderTabBar() const;
    void RenderTabMenu() const;
    void RenderGrid(double StepSec) const;
    int LaneCount() const;
    int TraceOfLane(int Lane) const;
    void LaneBounds(int Lane, double& OutTop, double& OutBottom) const;
    double AmpY(double Amp, double Top, double Bottom) const;
    void RenderWaveform();
    std::vector<double> ColumnXs() const;
    WaveColumnShader::Look ColumnLook(int Trace) const;
    bool RenderColumnsByShader(int Lanes);
    void LaneExtents(int Lane, WaveColumnShader::Column* Out) const;
    void RenderLaneColumns(int Lane) const;
    void RenderClipCaps(int Trace, const std::vector<double>& Xs, double Top, double Bottom) const;
    void RenderLaneSamples(int Trace, double Top, double Bottom) const;
    void RenderAmplitudeScale(int Lane, double Top, double Bottom) const;
    void RenderSelection() const;
    void RenderMarkers() const;
    void RenderHoverReadout(double StepSec) const;
    void RenderTimeLabels(double StepSec) const;
    void RenderCentredMessage() const;
};
