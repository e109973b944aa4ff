// GLWaveEdit: the editor's behaviour. Sections follow the class declaration:
// Lifecycle, Documents, Import, Saving and window state, Waveform queries,
// Time view, Plot layout, Transport, Playback sync, Selection, Clipboard
// edits, Gain, Input. The render side lives in glwaveedit_render.cpp and
// glwaveedit_wave_data.cpp.

#include "glwaveedit.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libswresample/swresample.h>
}

#include "audio_codec_internal.h"
#include "audio_decode_core.h"
#include "core.h"
#include "gldeck_audio_player.h"
#include "glgeometry.h"
#include "glkeyaction.h"
#include "gltheme.h"
#include "large_buffer.h"
#include "sample_kernels.h"
#include "sdl_compat.h"

// Brings V into 0.0..1.0; anything not finite counts as 0.0.
static double Clamp01(double V)
{
    if (!std::isfinite(V) || V < 0.0)
        return 0.0;
    return std::min(1.0, V);
}

// --- Large buffers ---
// Shared with the extensions and the player (large_buffer.h).
using LargeBuffer::AssignFloats;
using LargeBuffer::ReserveFloats;

// --- Lifecycle ---

GLWaveEdit::GLWaveEdit() = default;

GLWaveEdit::GLWaveEdit(int iChildWindowID) : GLWaveEdit()
{
    ChildWindowID = static_cast<int64_t>(iChildWindowID);
}

// Members go in reverse order; AudioPlayer's destructor ends any playback.
// The colours are Destroy's alone.
GLWaveEdit::~GLWaveEdit() = default;

bool GLWaveEdit::Init()
{
    GLChildWindow::Init();
    const auto withAlpha = [](const GLColor& Source, float Alpha) {
        return new GLColor(Source.R, Source.G, Source.B, Alpha);
    };
    pBackgroundColor = new GLColor(GLTheme::OverlaySurfaceColor());
    pPlotBackColor = new GLColor(GLTheme::SemanticFill(GLTheme::ToneInfo));
    pWaveColor = withAlpha(GLTheme::SemanticAccent(GLTheme::ToneInfo), 0.98f);
    pWaveFillColor = withAlpha(GLTheme::SemanticAccent(GLTheme::ToneInfo), 0.2f);
    pGridColor = new GLColor(0.46f, 0.56f, 0.7f, 0.2f);
    pAxisColor = withAlpha(GLTheme::MutedTextColor(), 0.55f);
    pSelectionFillColor = withAlpha(GLTheme::SemanticAccent(GLTheme::ToneWarning), 0.18f);
    pSelectionBorderColor = withAlpha(GLTheme::SemanticAccent(GLTheme::ToneWarning), 0.98f);
    pPlayheadColor = new GLColor(GLTheme::SemanticAccent(GLTheme::ToneWarning));
    pHoverColor = withAlpha(GLTheme::SemanticAccent(GLTheme::ToneDanger), 0.98f);
    pTabBackColor = new GLColor(0.1f, 0.13f, 0.2f, 1.0f);
    pTabActiveColor = new GLColor(0.24f, 0.38f, 0.62f, 1.0f);
    pTabBorderColor = new GLColor(0.62f, 0.7f, 0.84f, 1.0f);
    pTextColor = new GLColor(GLTheme::PrimaryTextColor());
    pBorderColor = new GLColor(GLTheme::OverlayBorderColor());
    pBorderFocusColor = new GLColor(GLTheme::FocusBorderColor());
    return true;
}

// Deletes the colours and nothing else; the pointers keep their values, so
// nothing may draw after this.
void GLWaveEdit::Destroy()
{
    GLChildWindow::Destroy();
    GLColor* const colours[] = {pBackgroundColor,  pPlotBackColor,      pWaveColor,          pWaveFillColor,
                                pGridColor,        pAxisColor,          pSelectionFillColor, pSelectionBorderColor,
                                pPlayheadColor,    pHoverColor,         pTabBackColor,       pTabActiveColor,
                                pTabBorderColor,   pTextColor,          pBorderColor,        pBorderFocusColor};
    for (GLColor* colour : colours)
        if (colour)
            delete colour;
    // The last moment the host's context is sure to be current: the
    // destructor may run after the host has dropped it.
    if (ColumnShader)
        ColumnShader->Release();
}

const std::string& GLWaveEdit::SourcePath() const
{
    return SourceFilePath;
}

// --- Documents ---

// Copies of one field between mirror and record; frames and peaks go through
// AssignFloats so that the target's capacity is reused.
template <typename T>
static void CopyField(T& Target, const T& Source)
{
    Target = Source;
}

static void CopyField(std::vector<float>& Target, const std::vector<float>& Source)
{
    AssignFloats(Target, Source);
}

// Mirror and record hold the same twelve fields: this copies them, in one
// fixed order, one way or the other. The raw selection pair is kept.
//
// The frames exist once. Nothing outside the class reads a record, the
// active document's record is read only when that document is loaded again,
// and every load is preceded by a store of the document being left. So the
// active record notes that the mirror holds its frames, and they move into
// the record only when the document is left (ParkActiveFrames): the record
// then holds exactly what a copy at every store would have left there.
void GLWaveEdit::CopyMirrorAndRecord(AudioDocument& Record, bool bIntoRecord)
{
    const auto copy = [bIntoRecord](auto& MirrorField, auto& RecordField) {
        if (bIntoRecord)
            CopyField(RecordField, MirrorField);
        else
            CopyField(MirrorField, RecordField);
    };
    copy(SourceFilePath, Record.SourceFilePath);
    copy(ExternalPeaks, Record.ExternalPeaks);
    if (bIntoRecord && !Record.bFramesInMirror)
    {
        std::vector<float>().swap(Record.PcmFrames);
        Record.bFramesInMirror = true;
    }
    else if (!bIntoRecord && !Record.bFramesInMirror)
    {
        PcmFrames = std::move(Record.PcmFrames);
        Record.PcmFrames = std::vector<float>();
        Record.bFramesInMirror = true;
    }
    copy(PcmSampleRate, Record.PcmSampleRate);
    copy(PcmChannels, Record.PcmChannels);
    copy(DurationSec, Record.DurationSec);
    copy(ViewStartSec, Record.ViewStartSec);
    copy(ViewEndSec, Record.ViewEndSec);
    copy(SelectionStartValueSec, Record.SelectionStartSec);
    copy(SelectionEndValueSec, Record.SelectionEndSec);
    copy(bUseExternalPeaks, Record.bUseExternalPeaks);
    copy(bUsePcmFrames, Record.bUsePcmFrames);
}

void GLWaveEdit::StoreActiveDocument()
{
    if (ActiveDocumentIndex < 0 || ActiveDocumentIndex >= static_cast<int>(Documents.size()))
        return;
    CopyMirrorAndRecord(Documents[static_cast<size_t>(ActiveDocumentIndex)], true);
}

void GLWaveEdit::ParkActiveFrames()
{
    if (ActiveDocumentIndex < 0 || ActiveDocumentIndex >= static_cast<int>(Documents.size()))
        return;
    AudioDocument& record = Documents[static_cast<size_t>(ActiveDocumentIndex)];
    if (!record.bFramesInMirror)
        return;
    record.PcmFrames = std::move(PcmFrames);
    PcmFrames = std::vector<float>();
    record.bFramesInMirror = false;
}

const std::vector<float>& GLWaveEdit::RecordFrames(int Index) const
{
    const AudioDocument& record = Documents.at(static_cast<size_t>(Index));
    return record.bFramesInMirror ? PcmFrames : record.PcmFrames;
}

void GLWaveEdit::LoadActiveDocument(int Index)
{
    if (Index < 0 || Index >= static_cast<int>(Documents.size()))
        return;
    StoreActiveDocument();
    StopPlayback();
    ParkActiveFrames();
    ActiveDocumentIndex = Index;
    CopyMirrorAndRecord(Documents[static_cast<size_t>(Index)], false);
    bViewInitialized = true;
    InvalidateWaveCaches();
    ClampView();
    EmitSelectionChanged();
    SignalActiveDocumentChanged.emit(SourceFilePath);
}

void GLWaveEdit::NewUntitledDocument()
{
    StoreActiveDocument();
    StopPlayback();
    ParkActiveFrames();
    SourceFilePath = "Untitled-" + std::to_string(UntitledCounter) + ".ogg";
    ++UntitledCounter;
    ExternalPeaks.clear();
    PcmFrames.clear();
    PcmSampleRate = kDocumentRateHz;
    PcmChannels = kDocumentChannels;
    ClipboardSampleRate = kDocumentRateHz;
    ClipboardChannels = kDocumentChannels;
    DurationSec = 0.0;
    CurrentTimeSec = 0.0;
    PreviewTimeSec = 0.0;
    ViewStartSec = 0.0;
    SelectionStartValueSec = 0.0;
    SelectionEndValueSec = 0.0;
    ViewEndSec = MinViewSpanSec;
    bUseExternalPeaks = false;
    bUsePcmFrames = true;
    bViewInitialized = true;
    InvalidateWaveCaches();

    AudioDocument record;
    record.SourceFilePath = SourceFilePath;
    record.PcmSampleRate = PcmSampleRate;
    record.PcmChannels = PcmChannels;
    record.DurationSec = DurationSec;
    record.ViewStartSec = ViewStartSec;
    record.ViewEndSec = ViewEndSec;
    record.bUsePcmFrames = true;
    record.bFramesInMirror = true;
    Documents.push_back(std::move(record));
    AppendDocumentId();
    ActiveDocumentIndex = static_cast<int>(Documents.size()) - 1;

    EmitSelectionChanged();
    SignalActiveDocumentChanged.emit(SourceFilePath);
}

void GLWaveEdit::CloseActiveDocument()
{
    CloseDocument(ActiveDocumentIndex);
}

void GLWaveEdit::CloseDocument(int Index)
{
    if (Index < 0 || Index >= static_cast<int>(Documents.size()))
        return;
    const bool closingActive = Index == ActiveDocumentIndex;
    // A document that is being closed is not stored anywhere.
    if (!closingActive)
        StoreActiveDocument();
    StopPlayback();
    HistoryForgetDocument(DocumentIds[static_cast<size_t>(Index)]);
    MarkersForgetDocument(DocumentIds[static_cast<size_t>(Index)]);
    Documents.erase(Documents.begin() + Index);
    DocumentIds.erase(DocumentIds.begin() + Index);

    if (Documents.empty())
    {
        ActiveDocumentIndex = -1;
        CloseTabMenu();
        NewUntitledDocument();
        return;
    }

    const int last = static_cast<int>(Documents.size()) - 1;
    if (closingActive)
    {
        // The neighbour that moved into the closed one's place. With no active
        // index the load's store writes nothing of the closed document.
        const int next = std::clamp(Index, 0, last);
        ActiveDocumentIndex = -1;
        LoadActiveDocument(next);
    }
    else
    {
        const int shifted = ActiveDocumentIndex > Index ? ActiveDocumentIndex - 1 : ActiveDocumentIndex;
        const int next = std::clamp(shifted, 0, last);
        ActiveDocumentIndex = next;
        LoadActiveDocument(next);
    }
    CloseTabMenu();
}

// --- Import ---

namespace
{
// The FFmpeg objects of one decoding, released in the reverse of their making
// on every way out.
struct DecodeResources
{
    AVFormatContext* Format = nullptr;
    AVCodecContext* CodecContext = nullptr;
    SwrContext* Swr = nullptr;
    AVPacket* Packet = nullptr;
    AVFrame* Frame = nullptr;

    DecodeResources() = default;
    DecodeResources(const DecodeResources&) = delete;
    DecodeResources& operator=(const DecodeResources&) = delete;
    ~DecodeResources()
    {
        av_frame_free(&Frame);
        av_packet_free(&Packet);
        swr_free(&Swr);
        avcodec_free_context(&CodecContext);
        avformat_close_input(&Format);
    }
};

// Room for the whole file before the first frame arrives (see
// LargeBuffer::FloatsToReserveForDecoding). Only a wish: a header may claim
// hours that the file does not hold, so where the room cannot be had the
// frames grow as they come.
void ReserveForDuration(std::vector<float>& Frames, const AVFormatContext* Format)
{
    if (Format->duration <= 0)
        return;
    const int64_t fileBytes = Format->pb ? avio_size(Format->pb) : -1;
    LargeBuffer::TryReserveFloats(Frames, static_cast<size_t>(LargeBuffer::FloatsToReserveForDecoding(
                                              static_cast<double>(Format->duration) / AV_TIME_BASE, fileBytes)));
}
}  // namespace

// The import's words for the step where a decoding failed.
const char* EditorImport::FailureMessage(AudioDecodeCore::Step FailedStep)
{
    using AudioDecodeCore::Step;
    switch (FailedStep)
    {
    case Step::OpenInput:
        return "Failed to open audio file.";
    case Step::ReadStreamInfo:
        return "Failed to read audio stream info.";
    case Step::FindStream:
        return "No audio stream found.";
    case Step::FindDecoder:
        return "No decoder found for audio stream.";
    case Step::AllocateDecoder:
        return "Failed to allocate decoder.";
    case Step::OpenDecoder:
        return "Failed to open decoder.";
    case Step::SetUpResampler:
        return "Failed to configure audio resampler.";
    case Step::AllocateBuffers:
        return "Failed to allocate decode buffers.";
    case Step::Resample:
        return "Failed while resampling audio.";
    case Step::None:
    case Step::NothingDecoded:
    case Step::OwnLimit:
        break;
    }
    return "No decoded PCM audio produced.";
}

// Decodes the best audio stream of Path into interleaved float at 48000 Hz,
// 2 channels. What was decoded before a damaged stretch or a read error counts
// as the whole file. The FFmpeg steps are those of the program's decoder
// (audio_decode_core.h), so that the two agree frame for frame.
static bool DecodeAudioFileToFloatStereo(const std::string& Path, std::vector<float>& OutFrames,
                                         double& OutDurationSec, std::string* ErrorMessage)
{
    using AudioDecodeCore::Step;
    const auto fail = [ErrorMessage](Step FailedStep) {
        if (ErrorMessage)
            *ErrorMessage = EditorImport::FailureMessage(FailedStep);
        return false;
    };
    OutFrames.clear();
    DecodeResources res;

    int streamIndex = -1;
    int code = 0;
    const Step openFailure =
        AudioDecodeCore::OpenStream(&res.Format, Path.c_str(), nullptr, &res.CodecContext, streamIndex, code);
    if (openFailure != Step::None)
        return fail(openFailure);

    // Any rate the resampler accepts is converted (SDR recordings at 2.4 MHz,
    // data loggers at 500 Hz); a host that fears absurd headers refuses them
    // before they get here.
    AudioDecodeCore::Conversion conversion;
    if (AudioDecodeCore::SetUpConversion(&res.Swr, *res.CodecContext, kDocumentRateHz, kDocumentChannels,
                                         conversion) < 0)
        return fail(Step::SetUpResampler);

    res.Packet = av_packet_alloc();
    res.Frame = av_frame_alloc();
    if (!res.Packet || !res.Frame)
        return fail(Step::AllocateBuffers);

    ReserveForDuration(OutFrames, res.Format);
    std::vector<float> convertBuffer;
    const auto receiveFrames = [&]() {
        while (avcodec_receive_frame(res.CodecContext, res.Frame) == 0)
        {
            // A frame in another shape than the resampler's (an MP3 that
            // turns mono midway) is passed over like a damaged stretch.
            if (!conversion.Takes(*res.Frame))
            {
                av_frame_unref(res.Frame);
                continue;
            }
            const int dstSamples = std::max(
                1, static_cast<int>(conversion.RoomFor(res.CodecContext->sample_rate, res.Frame->nb_samples)));
            convertBuffer.resize(static_cast<size_t>(dstSamples) * kDocumentChannels);
            const int outSamples = conversion.Convert(*res.Frame, 0, convertBuffer.data(), dstSamples);
            if (outSamples < 0)
            {
                fail(Step::Resample);
                av_frame_unref(res.Frame);
                return false;
            }
            const size_t floats = static_cast<size_t>(outSamples) * kDocumentChannels;
            // Where the header gave no duration the buffer still grows on
            // huge pages, doubling, rather than by the vector's own growth;
            // where that much cannot be had, the insert grows it as usual.
            if (OutFrames.capacity() < OutFrames.size() + floats)
                LargeBuffer::TryReserveFloats(OutFrames, std::max(OutFrames.size() * 2, OutFrames.size() + floats));
            OutFrames.insert(OutFrames.end(), convertBuffer.begin(), convertBuffer.begin() + floats);
            av_frame_unref(res.Frame);
        }
        return true;
    };

    bool ok = true;
    while (av_read_frame(res.Format, res.Packet) >= 0)
    {
        // A packet the decoder refuses is a damaged stretch: it is passed over.
        if (res.Packet->stream_index == streamIndex && avcodec_send_packet(res.CodecContext, res.Packet) == 0)
            ok = receiveFrames();
        av_packet_unref(res.Packet);
        if (!ok)
            break;
    }
    if (ok)
    {
        avcodec_send_packet(res.CodecContext, nullptr);
        ok = receiveFrames();
    }

    OutDurationSec = DocumentSeconds(DocumentFrames(OutFrames.size()));
    if (!ok || OutFrames.empty())
    {
        if (ErrorMessage && ErrorMessage->empty())
            *ErrorMessage = "No decoded PCM audio produced.";
        return false;
    }
    return true;
}

bool EditorImport::Decode(const std::string& Path, std::vector<float>& OutFrames, std::string* ErrorMessage)
{
    double durationSec = 0.0;
    return DecodeAudioFileToFloatStereo(Path, OutFrames, durationSec, ErrorMessage);
}

void GLWaveEdit::SetExternalPeakWaveform(const std::string& Path, const std::vector<float>& Peaks,
                                         double DurationSeconds)
{
    StoreActiveDocument();
    StopPlayback();
    ParkActiveFrames();
    SourceFilePath = Path;
    AssignFloats(ExternalPeaks, Peaks);
    bUseExternalPeaks = !ExternalPeaks.empty();
    PcmFrames.clear();
    bUsePcmFrames = false;

    // Nothing reads the reason: a failed file shows as a tab without PCM.
    std::string decodeError;
    double decodedDurationSec = 0.0;
    const bool decoded =
        !Path.empty() && DecodeAudioFileToFloatStereo(Path, PcmFrames, decodedDurationSec, &decodeError);
    if (decoded)
    {
        DurationSec = decodedDurationSec;
        PcmSampleRate = kDocumentRateHz;
        PcmChannels = kDocumentChannels;
        bUsePcmFrames = true;
    }
    else
    {
        DurationSec = DurationSeconds > 0.0 ? DurationSeconds : 0.0;
    }

    FinishOpenedDocument();
}

// What opening does once the mirror holds the new document's audio: a fresh
// position and selection, the whole document in view, a new record appended
// and made active. Shared with AdoptDecodedDocument.
void GLWaveEdit::FinishOpenedDocument()
{
    CurrentTimeSec = 0.0;
    PreviewTimeSec = 0.0;
    CommittedSeekDisplaySec = -1.0;
    CommittedSeekDisplayFrames = 0;
    ClearSelection(false);
    InvalidateWaveCaches();
    FitViewToData();
    bViewInitialized = true;

    Documents.emplace_back();
    AppendDocumentId();
    ActiveDocumentIndex = static_cast<int>(Documents.size()) - 1;
    CopyMirrorAndRecord(Documents.back(), true);
    SignalActiveDocumentChanged.emit(SourceFilePath);
}

void GLWaveEdit::AppendDocumentId()
{
    DocumentIds.push_back(NextDocumentId++);
}

uint64_t GLWaveEdit::ActiveDocumentId() const
{
    if (ActiveDocumentIndex < 0 || ActiveDocumentIndex >= static_cast<int>(DocumentIds.size()))
        return 0;
    return DocumentIds[static_cast<size_t>(ActiveDocumentIndex)];
}

// --- Saving and window state ---

bool GLWaveEdit::SaveToFile(const std::string& Path, int BitrateKbps, std::string* ErrorMessage) const
{
    return TarvikEncodeFloatAudioFile(Path, PcmFrames, PcmSampleRate, PcmChannels, BitrateKbps, ErrorMessage);
}

const char* GLWaveEdit::GetStateType() const
{
    return "wave_edit";
}

void GLWaveEdit::SerializeExtraState(nlohmann::json& j) const
{
    j["view_start_sec"] = ViewStartSec;
    j["view_end_sec"] = ViewEndSec;
    j["selection_start_sec"] = SelectionStartValueSec;
    j["selection_end_sec"] = SelectionEndValueSec;
}

// A number under Key, or Fallback for anything else: a missing key, null, a
// string, a boolean, an array, or an Obj that is no object at all.
static double GetOr(const nlohmann::json& Obj, const char* Key, double Fallback)
{
    if (!Obj.is_object())
        return Fallback;
    const auto found = Obj.find(Key);
    if (found == Obj.end() || found->is_null())
        return Fallback;
    // Integers, unsigned integers and floats convert; the rest would throw.
    if (!found->is_number())
        return Fallback;
    return found->get<double>();
}

// Restores without clamping: the next pass clamps view and selection.
void GLWaveEdit::ApplyExtraState(const nlohmann::json& j)
{
    ViewStartSec = GetOr(j, "view_start_sec", ViewStartSec);
    ViewEndSec = GetOr(j, "view_end_sec", ViewEndSec);
    SelectionStartValueSec = GetOr(j, "selection_start_sec", SelectionStartValueSec);
    SelectionEndValueSec = GetOr(j, "selection_end_sec", SelectionEndValueSec);
    bViewInitialized = true;
}

// --- Waveform queries ---

bool GLWaveEdit::HasWaveform() const
{
    if (bUsePcmFrames && !PcmFrames.empty())
        return true;
    if (bUseExternalPeaks && !ExternalPeaks.empty())
        return true;
    return HasWaveformProvider ? HasWaveformProvider() : false;
}

// Index = floor or ceil of a scaled time, kept in 0..Last; NaN counts as 0.
int64_t GLWaveEdit::BoundedIndex(double Scaled, int64_t Last)
{
    if (!(Scaled > 0.0))
        return 0;
    if (Scaled >= static_cast<double>(Last))
        return Last;
    return static_cast<int64_t>(Scaled);
}

// A fraction kept in 0.0..1.0, NaN counting as 0.0.
static double ClampFraction(double V)
{
    return V == V ? std::clamp(V, 0.0, 1.0) : 0.0;
}

bool GLWaveEdit::ExternalRangeForSpan(double StartSec, double EndSec, double& MinOut, double& MaxOut) const
{
    const bool pcmUsable = bUsePcmFrames && !PcmFrames.empty() && PcmChannels > 0 && PcmSampleRate > 0;
    if (pcmUsable)
    {
        const int64_t frameCount = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
        if (frameCount == 0)
            return false;
        int64_t f0 = BoundedIndex(std::floor(StartSec * PcmSampleRate), frameCount - 1);
        int64_t f1 = BoundedIndex(std::ceil(EndSec * PcmSampleRate), frameCount - 1);
        if (f1 < f0)
            std::swap(f0, f1);
        // Both start at 0.0, so the range always contains silence.
        float minAmp = 0.0f;
        float maxAmp = 0.0f;
        SampleKernels::FoldMixRange(PcmFrames.data() + f0 * PcmChannels, f1 - f0 + 1, PcmChannels, minAmp, maxAmp);
        MinOut = std::clamp(static_cast<double>(minAmp), -1.0, 1.0);
        MaxOut = std::clamp(static_cast<double>(maxAmp), -1.0, 1.0);
        return true;
    }

    if (!bUseExternalPeaks || ExternalPeaks.empty() || !(DurationSec > 0.0))
        return false;
    const double duration = std::max(DurationSec, 1e-9);
    const double startFrac = ClampFraction(StartSec / duration);
    const double endFrac = ClampFraction(EndSec / duration);
    const int64_t n = static_cast<int64_t>(ExternalPeaks.size());
    int64_t i0 = std::min(static_cast<int64_t>(std::floor(startFrac * n)), n - 1);
    int64_t i1 = std::min(static_cast<int64_t>(std::ceil(endFrac * n)), n - 1);
    if (i1 < i0)
        std::swap(i0, i1);
    float peak = 0.0f;
    for (int64_t i = i0; i <= i1; ++i)
    {
        const float magnitude = std::fabs(ExternalPeaks[static_cast<size_t>(i)]);
        if (magnitude > peak)
            peak = magnitude;
    }
    const double bounded = std::clamp(static_cast<double>(peak), 0.0, 1.0);
    MinOut = -bounded;
    MaxOut = bounded;
    return true;
}

bool GLWaveEdit::ExternalLodForSpan(double StartSec, double EndSec, int TargetSamples,
                                    std::vector<WaveSample>& OutSamples) const
{
    OutSamples.clear();
    if (!bUseExternalPeaks || ExternalPeaks.empty() || !(DurationSec > 0.0) || TargetSamples <= 0)
        return false;
    const int sampleCount = TargetSamples;
    OutSamples.reserve(static_cast<size_t>(sampleCount));
    const double span = std::max(EndSec - StartSec, 1e-9);
    for (int i = 0; i < sampleCount; ++i)
    {
        const double t0 = StartSec + (static_cast<double>(i) / sampleCount) * span;
        const double t1 = StartSec + (static_cast<double>(i + 1) / sampleCount) * span;
        double minAmp = 0.0;
        double maxAmp = 0.0;
        if (!ExternalRangeForSpan(t0, t1, minAmp, maxAmp))
            continue;
        OutSamples.push_back(WaveSample{t0 + (t1 - t0) * 0.5, minAmp, maxAmp});
    }
    return !OutSamples.empty();
}

// Stored sources first, then the host's range, then the host's peak.
bool GLWaveEdit::WaveformRangeForSpan(double StartSec, double EndSec, double& MinOut, double& MaxOut) const
{
    if (ExternalRangeForSpan(StartSec, EndSec, MinOut, MaxOut))
        return true;
    if (WaveformRangeProvider)
    {
        float minValue = 0.0f;
        float maxValue = 0.0f;
        if (WaveformRangeProvider(StartSec, EndSec, minValue, maxValue))
        {
            MinOut = std::clamp(static_cast<double>(minValue), -1.0, 1.0);
            MaxOut = std::clamp(static_cast<double>(maxValue), -1.0, 1.0);
            if (MinOut > MaxOut)
                std::swap(MinOut, MaxOut);
            return true;
        }
    }
    if (WaveformPeakProvider)
    {
        const double peak = std::clamp(static_cast<double>(WaveformPeakProvider(StartSec, EndSec)), 0.0, 1.0);
        MinOut = -peak;
        MaxOut = peak;
        return true;
    }
    return false;
}

double GLWaveEdit::WaveformPeakForSpan(double StartSec, double EndSec) const
{
    double minValue = 0.0;
    double maxValue = 0.0;
    if (!WaveformRangeForSpan(StartSec, EndSec, minValue, maxValue))
        return -1.0;
    return std::max(std::fabs(maxValue), std::fabs(minValue));
}

void GLWaveEdit::InvalidateWaveCaches()
{
    bRenderSamplesValid = false;
    ++FramesRevision;
}

// --- Time view ---

void GLWaveEdit::FitViewToData()
{
    ViewStartSec = 0.0;
    ViewEndSec = std::max(DurationSec, MinViewSpanSec);
    ClampView();
}

void GLWaveEdit::ClampView()
{
    const double duration = std::max(0.0, DurationSec);
    const double minSpan = std::max(MinViewSpanSec, 0.01);
    if (minSpan >= duration)
    {
        ViewStartSec = 0.0;
        ViewEndSec = std::max(duration, minSpan);
        return;
    }
    // A view over an edge is pushed back with its width, not cut off.
    const double span = std::min(std::max(ViewEndSec - ViewStartSec, minSpan), duration);
    ViewStartSec = std::clamp(ViewStartSec, 0.0, duration - span);
    ViewEndSec = ViewStartSec + span;
}

double GLWaveEdit::TimeForMouse(double MouseX) const
{
    const double frac = Clamp01((MouseX - PlotX1) / std::max(PlotX2 - PlotX1, 1e-9));
    return ViewStartSec + (ViewEndSec - ViewStartSec) * frac;
}

double GLWaveEdit::XForTime(double TimeSec) const
{
    if (ViewStartSec >= ViewEndSec)
        return PlotX1;
    const double frac = Clamp01((TimeSec - ViewStartSec) / std::max(ViewEndSec - ViewStartSec, 1e-9));
    return PlotX1 + (PlotX2 - PlotX1) * frac;
}

void GLWaveEdit::ZoomAroundTime(double AnchorSec, double Ratio)
{
    const double oldSpan = std::max(ViewEndSec - ViewStartSec, MinViewSpanSec);
    const double newSpan = std::max(oldSpan * Ratio, MinViewSpanSec);
    const double anchorFrac = oldSpan > 1e-9 ? (AnchorSec - ViewStartSec) / oldSpan : 0.5;
    ViewStartSec = AnchorSec - anchorFrac * newSpan;
    ViewEndSec = ViewStartSec + newSpan;
    ClampView();
}

// Keeps the play position at 70% of the view, scrolling continuously.
void GLWaveEdit::AlignViewToPlaybackPage(bool bForceSnapToPage)
{
    const double duration = std::max(0.0, DurationSec);
    if (duration == 0.0)
        return;
    const double span = std::min(std::max(ViewEndSec - ViewStartSec, MinViewSpanSec), duration);
    if (span <= 0.0)
        return;
    const double cursorSec = std::clamp(CurrentTimeSec, 0.0, duration);
    const double maxStart = std::max(0.0, duration - span);
    const double followFraction = 0.7;
    const double targetStart = std::clamp(cursorSec - span * followFraction, 0.0, maxStart);
    if (!bForceSnapToPage && std::fabs(targetStart - ViewStartSec) <= 1e-9)
        return;
    ViewStartSec = targetStart;
    ViewEndSec = targetStart + span;
}

// --- Plot layout ---

// The screen in pixels, each at least 1; 1 x 1 where the host has no screen.
static void ScreenSizePx(double& OutWidth, double& OutHeight)
{
    const bool hasScreen = p && p->pCoreSDL;
    OutWidth = hasScreen ? std::max(p->pCoreSDL->Width, 1) : 1.0;
    OutHeight = hasScreen ? std::max(p->pCoreSDL->Height, 1) : 1.0;
}

void GLWaveEdit::UpdatePlotRect(bool bApplyActiveWindowDelta)
{
    const bool hasTTF = p && p->pRend && p->pRend->pTTF;
    int cellH = 12;
    if (hasTTF)
    {
        const int fontPx = FontPx > 0 ? GLTheme::ScaleTextPx(FontPx, 8, 96) : p->pRend->FontSmallerPx;
        cellH = std::max(p->pRend->pTTF->GetCellHeight(fontPx), 1);
    }
    double width = 1.0;
    double height = 1.0;
    ScreenSizePx(width, height);
    // Padding and the label band use the screen size alone; the tab band the
    // true pixel size on an axis 2.0 wide.
    const double padX = PaddingPx / width;
    const double padY = PaddingPx / height;
    const double labelBandPx = std::max(BorderWidth + cellH + 12.0, LabelBandPx);
    const double labelBand = labelBandPx / height;

    double plotDeltaX = 0.0;
    double plotDeltaY = 0.0;
    if (bApplyActiveWindowDelta)
        GetActiveWindowPreviewDelta(plotDeltaX, plotDeltaY);
    PlotX1 = X1 + padX + std::max(ScaleGutterPx, 0.0) * 2.0 / width + plotDeltaX;
    PlotX2 = X2 - padX + plotDeltaX;

    const double tabBandPx = std::max(cellH + 12.0, 26.0);
    const double tabBand = 2.0 * tabBandPx / height;
    PlotY1 = Y1 - padY - tabBand + plotDeltaY;
    PlotY2 = Y2 + padY + labelBand + plotDeltaY;
}

void GLWaveEdit::GetActiveWindowPreviewDelta(double& OutDeltaX, double& OutDeltaY) const
{
    OutDeltaX = 0.0;
    OutDeltaY = 0.0;
    if (pHostWindow && pHostWindow->bMovePreviewActive && p && p->pTarvik)
    {
        OutDeltaX = p->pTarvik->MovePreviewDeltaX;
        OutDeltaY = p->pTarvik->MovePreviewDeltaY;
    }
}

bool GLWaveEdit::IsInsidePlot(double X, double Y) const
{
    return X >= PlotX1 && X <= PlotX2 && Y <= PlotY1 && Y >= PlotY2;
}

// The tab bar's rectangle; its lower edge stands 8 px above the plot, so the
// strip just over the plot belongs to neither.
GLWaveEdit::TabBarRect GLWaveEdit::TabBar() const
{
    double width = 1.0;
    double height = 1.0;
    ScreenSizePx(width, height);
    const double padX = PaddingPx / width;
    return TabBarRect{X1 + padX, Y1 - PaddingPx / height, X2 - padX, PlotY1 + 8.0 / height};
}

// Left and right edge of tab Index: equal widths that fill the bar, the last
// tab ending exactly at the bar's end.
void GLWaveEdit::TabSpan(int Index, double& OutX1, double& OutX2) const
{
    const TabBarRect bar = TabBar();
    const int count = std::max(static_cast<int>(Documents.size()), 1);
    const double tabW = (bar.X2 - bar.X1) / count;
    OutX1 = bar.X1 + Index * tabW;
    OutX2 = Index == count - 1 ? bar.X2 : OutX1 + tabW;
}

// Left and right edge of tab Index's close box; it spans the bar's height.
void GLWaveEdit::CloseBoxSpan(int Index, double& OutX1, double& OutX2) const
{
    double width = 1.0;
    double height = 1.0;
    ScreenSizePx(width, height);
    double tx1 = 0.0;
    double tx2 = 0.0;
    TabSpan(Index, tx1, tx2);
    // The plot's height decides the box, so on any ordinary window it is 18 px.
    const double tabH = std::max((PlotY1 - PlotY2) * height * 0.16, 1.0);
    const double closeSize = std::clamp(tabH, 10.0, 18.0) * (2.0 / height);
    const double margin = (2.0 / width) * 6.0;
    OutX2 = tx2 - margin;
    OutX1 = OutX2 - closeSize;
}

bool GLWaveEdit::IsInsideTabBar(double X, double Y) const
{
    if (Documents.empty())
        return false;
    const TabBarRect bar = TabBar();
    return X >= bar.X1 && X <= bar.X2 && Y >= bar.Y2 && Y <= bar.Y1;
}

int GLWaveEdit::HitTestDocumentTab(double X, double Y) const
{
    if (!IsInsideTabBar(X, Y))
        return -1;
    const TabBarRect bar = TabBar();
    const int count = std::max(static_cast<int>(Documents.size()), 1);
    const double w = (bar.X2 - bar.X1) / count;
    const double slot = std::floor((X - bar.X1) / std::max(w, 1e-9));
    // A bar of infinite width gives inf / inf: no tab, rather than a NaN cast.
    if (std::isnan(slot))
        return -1;
    return static_cast<int>(std::clamp(slot, 0.0, static_cast<double>(count - 1)));
}

int GLWaveEdit::HitTestDocumentTabClose(double X, double Y) const
{
    const int tabIndex = HitTestDocumentTab(X, Y);
    if (tabIndex < 0 || tabIndex >= static_cast<int>(Documents.size()))
        return -1;
    double cx1 = 0.0;
    double cx2 = 0.0;
    CloseBoxSpan(tabIndex, cx1, cx2);
    const TabBarRect bar = TabBar();
    if (X >= cx1 && X <= cx2 && Y >= bar.Y2 && Y <= bar.Y1)
        return tabIndex;
    return -1;
}

// The menu is 0.18 by 0.1 normalised units, hanging down and right of its
// anchor, past the window's edge if need be.
bool GLWaveEdit::IsInsideTabMenu(double X, double Y) const
{
    if (!bTabMenuOpen)
        return false;
    return X >= TabMenuX && X <= TabMenuX + 0.18 && Y >= TabMenuY - 0.1 && Y <= TabMenuY;
}

int GLWaveEdit::HitTestTabMenuItem(double X, double Y) const
{
    return IsInsideTabMenu(X, Y) ? 0 : -1;
}

void GLWaveEdit::OpenTabMenu(double X, double Y, int TabIndex)
{
    if (TabIndex < 0 || TabIndex >= static_cast<int>(Documents.size()))
        return;
    bTabMenuOpen = true;
    TabMenuDocumentIndex = TabIndex;
    TabMenuX = X;
    TabMenuY = Y;
}

void GLWaveEdit::CloseTabMenu()
{
    bTabMenuOpen = false;
    TabMenuDocumentIndex = -1;
    TabMenuX = 0.0;
    TabMenuY = 0.0;
}

// --- Transport ---

bool GLWaveEdit::PlayFromCurrentPosition(std::string* ErrorMessage)
{
    return StartPlaybackAt(CurrentTimeSec, ErrorMessage);
}

// Starts at the selection's lower end and runs on to the end of the document.
bool GLWaveEdit::PlaySelectionOrCurrent(std::string* ErrorMessage)
{
    return StartPlaybackAt(HasSelection() ? SelectionStartSec() : CurrentTimeSec, ErrorMessage);
}

// The shared road of both play commands: a copy of the frames to the player,
// from RequestedStartSec clamped to the document. On failure nothing changes
// but the player, which stays for the next attempt.
bool GLWaveEdit::StartPlaybackAt(double RequestedStartSec, std::string* ErrorMessage)
{
    if (!bUsePcmFrames || PcmFrames.empty() || PcmSampleRate <= 0 || PcmChannels <= 0)
    {
        if (ErrorMessage)
            *ErrorMessage = "No decoded PCM audio available for playback.";
        return false;
    }
    if (!AudioPlayer)
        AudioPlayer = std::make_unique<GLDeckAudioPlayer>();
    const double startSec = std::clamp(RequestedStartSec, 0.0, std::max(0.0, DurationSec));
    // The player keeps its own copy, so no edit can reach what it plays. The
    // copy is made while the running playback goes on: the player ends that
    // one in PlayPcm, and only once the new frames are ready.
    std::vector<float> framesCopy;
    AssignFloats(framesCopy, PcmFrames);
    if (!AudioPlayer->PlayPcm(std::move(framesCopy), PcmSampleRate, PcmChannels, startSec, ErrorMessage))
        return false;
    CurrentTimeSec = startSec;
    PreviewTimeSec = startSec;
    CommittedSeekDisplaySec = -1.0;
    CommittedSeekDisplayFrames = 0;
    AlignViewToPlaybackPage(false);
    return true;
}

void GLWaveEdit::PausePlayback()
{
    if (AudioPlayer)
        AudioPlayer->SetPaused(true);
}

void GLWaveEdit::StopPlayback()
{
    if (AudioPlayer)
        AudioPlayer->Stop();
    CurrentTimeSec = 0.0;
    PreviewTimeSec = 0.0;
    CommittedSeekDisplaySec = -1.0;
    CommittedSeekDisplayFrames = 0;
}

void GLWaveEdit::TogglePlayback(std::string* ErrorMessage)
{
    if (AudioPlayer && AudioPlayer->IsPlaying())
    {
        AudioPlayer->TogglePaused();
        // The player may have stopped meanwhile, so ask again.
        if (AudioPlayer->IsPlaying() && !AudioPlayer->IsPaused())
            AlignViewToPlaybackPage(false);
        return;
    }
    PlayFromCurrentPosition(ErrorMessage);
}

void GLWaveEdit::SeekPlaybackTo(double TargetSeconds)
{
    const double target = std::clamp(TargetSeconds, 0.0, std::max(0.0, DurationSec));
    CurrentTimeSec = target;
    PreviewTimeSec = target;
    CommittedSeekDisplaySec = target;
    CommittedSeekDisplayFrames = 4;
    if (AudioPlayer && AudioPlayer->IsPlaying())
        AudioPlayer->SeekToSeconds(target);
}

void GLWaveEdit::SeekPlaybackRelative(double DeltaSeconds)
{
    SeekPlaybackTo(CurrentTimeSec + DeltaSeconds);
}

bool GLWaveEdit::IsPlaybackActive() const
{
    return AudioPlayer && AudioPlayer->IsPlaying();
}

bool GLWaveEdit::IsPlaybackPaused() const
{
    return AudioPlayer && AudioPlayer->IsPaused();
}

// --- Playback sync ---

void GLWaveEdit::SyncPlaybackState()
{
    const bool externalSourceActive = bUsePcmFrames || bUseExternalPeaks;
    const bool audioPlayerActive = AudioPlayer && AudioPlayer->IsPlaying();
    if (audioPlayerActive)
        CurrentTimeSec = std::clamp(AudioPlayer->CurrentSeconds(), 0.0, std::max(0.0, DurationSec));
    if (!externalSourceActive)
    {
        if (DurationProvider)
            DurationSec = std::max(0.0, DurationProvider());
        if (CurrentTimeProvider)
            CurrentTimeSec = std::clamp(CurrentTimeProvider(), 0.0, std::max(0.0, DurationSec));
    }

    // A release this window never saw: the previous frame counts too, so a
    // normal release is still found and ended by the pass itself.
    const bool leftActive = p && p->pMouse && (p->pMouse->pButton[0] || p->pMouse->pPrevButton[0]);
    if (!leftActive && (ActiveDrag == DragSeek || ActiveDrag == DragSelect))
        ActiveDrag = DragNone;

    if (CommittedSeekDisplayFrames > 0 && CommittedSeekDisplaySec >= 0.0)
    {
        const double holdDelta = std::fabs(CurrentTimeSec - CommittedSeekDisplaySec);
        if (holdDelta <= 0.1)
        {
            CommittedSeekDisplaySec = -1.0;
            CommittedSeekDisplayFrames = 0;
        }
        else if (--CommittedSeekDisplayFrames == 0)
        {
            CommittedSeekDisplaySec = -1.0;
        }
    }
    if (ActiveDrag != DragSeek)
        PreviewTimeSec = CurrentTimeSec;
    if (!bViewInitialized)
    {
        FitViewToData();
        bViewInitialized = true;
    }
    if (audioPlayerActive && !AudioPlayer->IsPaused())
        AlignViewToPlaybackPage(false);
    ClampView();
    if (HasSelection())
    {
        SelectionStartValueSec = std::min(DurationSec, std::max(SelectionStartValueSec, 0.0));
        SelectionEndValueSec = std::min(DurationSec, std::max(SelectionEndValueSec, 0.0));
    }
}

// The held seek target outranks a seek drag's preview.
double GLWaveEdit::DisplayedTimeSec() const
{
    if (CommittedSeekDisplayFrames > 0 && CommittedSeekDisplaySec >= 0.0)
        return CommittedSeekDisplaySec;
    if (ActiveDrag == DragSeek)
        return PreviewTimeSec;
    return CurrentTimeSec;
}

// --- Selection ---

bool GLWaveEdit::HasSelection() const
{
    return std::fabs(SelectionEndValueSec - SelectionStartValueSec) > 1e-6;
}

double GLWaveEdit::SelectionStartSec() const
{
    return std::min(SelectionStartValueSec, SelectionEndValueSec);
}

double GLWaveEdit::SelectionEndSec() const
{
    return std::max(SelectionStartValueSec, SelectionEndValueSec);
}

void GLWaveEdit::ClearSelection(bool bEmitSignal)
{
    const bool hadSelection = HasSelection();
    SelectionStartValueSec = 0.0;
    SelectionEndValueSec = 0.0;
    if (hadSelection && bEmitSignal)
        EmitSelectionChanged();
}

void GLWaveEdit::SetHostedSelection(double StartSeconds, double EndSeconds)
{
    if (!std::isfinite(StartSeconds) || !std::isfinite(EndSeconds))
        return;
    const double duration = DurationSec > 0.0 ? DurationSec : 0.0;
    SelectionStartValueSec = std::clamp(std::min(StartSeconds, EndSeconds), 0.0, duration);
    SelectionEndValueSec = std::clamp(std::max(StartSeconds, EndSeconds), 0.0, duration);
    InvalidateWaveCaches();
}

// Ten pixels at the current zoom, never under 0.02 s.
double GLWaveEdit::SelectionEdgeHitToleranceSec() const
{
    double widthPx = std::fabs(PlotX2 - PlotX1) * 0.5;
    if (p && p->pCoreSDL)
        widthPx *= std::max(p->pCoreSDL->Width, 1);
    const double secPerPx = std::max(ViewEndSec - ViewStartSec, 1e-9) / std::max(widthPx, 1.0);
    return std::max(secPerPx * 10.0, 0.02);
}

// (0.0, 0.0) is how the signal says that there is no selection.
void GLWaveEdit::EmitSelectionChanged()
{
    if (HasSelection())
        SignalSelectionChanged.emit(SelectionStartSec(), SelectionEndSec());
    else
        SignalSelectionChanged.emit(0.0, 0.0);
}

// --- Clipboard edits ---

// The frame of a time: llround of seconds times the rate, kept in
// 0..FrameCount; NaN counts as frame 0.
static int64_t FrameOfTime(double TimeSec, int SampleRate, int64_t FrameCount)
{
    const double scaled = TimeSec * SampleRate;
    if (!(scaled > 0.0))
        return 0;
    if (scaled >= static_cast<double>(FrameCount))
        return FrameCount;
    return std::clamp<int64_t>(std::llround(scaled), 0, FrameCount);
}

namespace
{
struct FrameRange
{
    int64_t StartFrame = 0;
    int64_t EndFrame = 0;
    bool IsEmpty() const { return StartFrame >= EndFrame; }
};
}  // namespace

static FrameRange FramesOfSpan(double StartSec, double EndSec, int SampleRate, int64_t FrameCount)
{
    return FrameRange{FrameOfTime(StartSec, SampleRate, FrameCount), FrameOfTime(EndSec, SampleRate, FrameCount)};
}

void GLWaveEdit::RequestCopySelection()
{
    if (!HasSelection() || !bUsePcmFrames || PcmChannels <= 0 || PcmSampleRate <= 0)
        return;
    const int64_t frameCount = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    const FrameRange range = FramesOfSpan(SelectionStartSec(), SelectionEndSec(), PcmSampleRate, frameCount);
    if (range.IsEmpty())
        return;
    ClipboardSampleRate = PcmSampleRate;
    ClipboardChannels = PcmChannels;
    AssignFloats(ClipboardFrames, PcmFrames.data() + range.StartFrame * PcmChannels,
                 PcmFrames.data() + range.EndFrame * PcmChannels);
    SignalEditActionRequested.emit(std::string("copy"), SelectionStartSec(), SelectionEndSec());
}

// Delete and Cut: removes the selected frames and collapses the selection at
// its start. Cut has filled the clipboard before it comes here.
void GLWaveEdit::RemoveSelectedFrames(const char* Action)
{
    const double start = SelectionStartSec();
    const double end = SelectionEndSec();
    const int64_t frameCount = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    const FrameRange range = FramesOfSpan(start, end, PcmSampleRate, frameCount);
    if (range.IsEmpty())
        return;
    const EditKind kind = std::strcmp(Action, "cut") == 0 ? EditKind::Cut : EditKind::Delete;
    RecordEdit({kind, range.StartFrame, range.EndFrame - range.StartFrame, 0});
    PcmFrames.erase(PcmFrames.begin() + range.StartFrame * PcmChannels,
                    PcmFrames.begin() + range.EndFrame * PcmChannels);
    NoteFramesChanged(range.StartFrame, -1);
    DurationSec = static_cast<double>(PcmFrames.size() / static_cast<size_t>(PcmChannels)) / PcmSampleRate;
    SelectionStartValueSec = start;
    SelectionEndValueSec = start;
    FinishEdit(Action, start, end);
}

// The common tail of every edit that changed the audio, in its fixed order.
void GLWaveEdit::FinishEdit(const char* Action, double SpanStartSec, double SpanEndSec)
{
    InvalidateWaveCaches();
    ClampView();
    SignalEditActionRequested.emit(std::string(Action), SpanStartSec, SpanEndSec);
    EmitSelectionChanged();
    StoreActiveDocument();
}

void GLWaveEdit::RequestCutSelection()
{
    if (!HasSelection() || !bUsePcmFrames || PcmChannels <= 0 || PcmSampleRate <= 0)
        return;
    RequestCopySelection();
    RemoveSelectedFrames("cut");
}

void GLWaveEdit::RequestDeleteSelection()
{
    if (!HasSelection() || !bUsePcmFrames || PcmChannels <= 0 || PcmSampleRate <= 0)
        return;
    RemoveSelectedFrames("delete");
}

void GLWaveEdit::RequestPasteAtSelection()
{
    if (ClipboardFrames.empty() || !bUsePcmFrames || PcmChannels <= 0 || PcmSampleRate <= 0 ||
        ClipboardSampleRate != PcmSampleRate || ClipboardChannels != PcmChannels)
        return;
    const bool selected = HasSelection();
    const double at = selected ? SelectionStartSec() : HoverTimeSec;
    const int64_t frameCount = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    int64_t insertFrame = FrameOfTime(at, PcmSampleRate, frameCount);
    const int64_t clipboardFrameCount = static_cast<int64_t>(ClipboardFrames.size()) / PcmChannels;
    const FrameRange replaced = selected
                                    ? FramesOfSpan(SelectionStartSec(), SelectionEndSec(), PcmSampleRate, frameCount)
                                    : FrameRange{insertFrame, insertFrame};
    RecordEdit({EditKind::Paste, replaced.IsEmpty() ? insertFrame : replaced.StartFrame,
                replaced.IsEmpty() ? 0 : replaced.EndFrame - replaced.StartFrame, clipboardFrameCount});
    if (selected)
    {
        const FrameRange range = replaced;
        if (!range.IsEmpty())
        {
            PcmFrames.erase(PcmFrames.begin() + range.StartFrame * PcmChannels,
                            PcmFrames.begin() + range.EndFrame * PcmChannels);
            insertFrame = range.StartFrame;
        }
    }
    // Growth goes through ReserveFloats so a long document lands on huge pages
    // with room for the pastes that follow.
    ReserveFloats(PcmFrames, PcmFrames.size() + ClipboardFrames.size());
    PcmFrames.insert(PcmFrames.begin() + insertFrame * PcmChannels, ClipboardFrames.begin(), ClipboardFrames.end());
    NoteFramesChanged(insertFrame, -1);
    DurationSec = static_cast<double>(PcmFrames.size() / static_cast<size_t>(PcmChannels)) / PcmSampleRate;

    const double pasteStart = static_cast<double>(insertFrame) / PcmSampleRate;
    const double pasteEnd =
        pasteStart + static_cast<double>(ClipboardFrames.size() / static_cast<size_t>(PcmChannels)) / PcmSampleRate;
    SelectionStartValueSec = pasteStart;
    SelectionEndValueSec = pasteEnd;
    FinishEdit("paste", pasteStart, pasteEnd);
}

// --- Gain ---

bool GLWaveEdit::ApplyGainPercent(double Percent, std::string* ErrorMessage)
{
    const auto fail = [ErrorMessage](const char* Message) {
        if (ErrorMessage)
            *ErrorMessage = Message;
        return false;
    };
    if (!bUsePcmFrames || PcmFrames.empty() || PcmChannels <= 0 || PcmSampleRate <= 0)
        return fail("No decoded PCM audio available for gain.");
    if (!std::isfinite(Percent) || Percent < 0.0)
        return fail("Gain must be a non-negative percent.");
    const int64_t frameCount = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    if (frameCount == 0)
        return fail("No audio frames available for gain.");
    const FrameRange range = HasSelection()
                                 ? FramesOfSpan(SelectionStartSec(), SelectionEndSec(), PcmSampleRate, frameCount)
                                 : FrameRange{0, frameCount};
    if (range.IsEmpty())
        return fail("Selected audio range is empty.");

    StopPlayback();
    RecordEdit({EditKind::Gain, range.StartFrame, range.EndFrame - range.StartFrame,
                range.EndFrame - range.StartFrame, Percent});
    // A gain beyond float range is held at FLT_MAX, so silence stays 0.0
    // instead of becoming 0 x inf = NaN; everything else clamps to full scale.
    const float gain = static_cast<float>(std::min(Percent / 100.0, static_cast<double>(FLT_MAX)));
    float* const first = PcmFrames.data() + range.StartFrame * PcmChannels;
    float* const last = PcmFrames.data() + range.EndFrame * PcmChannels;
    SampleKernels::ApplyGainClamped(first, last, gain);
    NoteFramesChanged(range.StartFrame, range.EndFrame);
    InvalidateWaveCaches();

    char action[512];
    std::snprintf(action, sizeof(action), "gain %f%%", Percent);
    SignalEditActionRequested.emit(std::string(action), static_cast<double>(range.StartFrame) / PcmSampleRate,
                                   static_cast<double>(range.EndFrame) / PcmSampleRate);
    StoreActiveDocument();
    return true;
}

// --- Input ---

// A seek from the mouse: the editor's own player while it has PCM, the host
// otherwise, which hears of it through SignalSeekCommitted.
void GLWaveEdit::CommitSeek(double TimeSec)
{
    CommittedSeekDisplaySec = TimeSec;
    CommittedSeekDisplayFrames = 12;
    if (bUsePcmFrames)
        SeekPlaybackTo(TimeSec);
    else
        SignalSeekCommitted.emit(TimeSec);
}

// Preview time under a seek drag: the anchor time until the pointer has moved
// more than 4 pixels from the press, the time under the pointer after.
void GLWaveEdit::ApplySeekPositionRule(double MouseX)
{
    double width = 1.0;
    double height = 1.0;
    ScreenSizePx(width, height);
    const double dragThreshold = (2.0 / width) * 4.0;
    PreviewTimeSec = std::fabs(MouseX - DragAnchorMouseX) > dragThreshold ? TimeForMouse(MouseX) : DragAnchorTimeSec;
}

bool GLWaveEdit::IsOnSelectionEdge(double TimeSec, double ToleranceSec) const
{
    return HasSelection() && (std::fabs(TimeSec - SelectionStartSec()) <= ToleranceSec ||
                              std::fabs(TimeSec - SelectionEndSec()) <= ToleranceSec);
}

void GLWaveEdit::BeginLeftDrag(double MouseX)
{
    Tarvik& root = *p->pTarvik;
    root.ClearWindowFocus();
    bFocused = true;
    const bool shiftHeld = (SDL_GetModState() & 3) != 0;
    const double edgeTolSec = SelectionEdgeHitToleranceSec();
    if (shiftHeld && HasSelection() && std::fabs(HoverTimeSec - SelectionStartSec()) <= edgeTolSec)
    {
        ActiveDrag = DragResizeSelectionStart;
    }
    else if (shiftHeld && HasSelection() && std::fabs(HoverTimeSec - SelectionEndSec()) <= edgeTolSec)
    {
        ActiveDrag = DragResizeSelectionEnd;
    }
    else if (shiftHeld)
    {
        ActiveDrag = DragSelect;
        SelectionAnchorSec = HoverTimeSec;
        SelectionStartValueSec = HoverTimeSec;
        SelectionEndValueSec = HoverTimeSec;
        EmitSelectionChanged();
    }
    else
    {
        ActiveDrag = DragSeek;
        DragAnchorMouseX = MouseX;
        DragAnchorTimeSec = HoverTimeSec;
        PreviewTimeSec = HoverTimeSec;
        CommitSeek(HoverTimeSec);
    }
    root.MarkChildWindowProcessed();
}

void GLWaveEdit::BeginPan(double MouseX)
{
    Tarvik& root = *p->pTarvik;
    root.ClearWindowFocus();
    bFocused = true;
    ActiveDrag = DragPan;
    DragAnchorMouseX = MouseX;
    DragAnchorViewStartSec = ViewStartSec;
    DragAnchorViewEndSec = ViewEndSec;
    root.MarkChildWindowProcessed();
}

// One pass of a held button: the drag's effect, its cursor, the claim on input.
void GLWaveEdit::HoldDrag(double MouseX, bool bLeftDown, bool bMiddleDown)
{
    Tarvik& root = *p->pTarvik;
    if (ActiveDrag == DragSeek && bLeftDown)
    {
        ApplySeekPositionRule(MouseX);
        SignalSeekPreview.emit(PreviewTimeSec);
        root.SetChildWindowCursor(kCursorIBeam);
        root.MarkChildWindowProcessed();
    }
    if (ActiveDrag == DragSelect && bLeftDown)
    {
        SelectionEndValueSec = TimeForMouse(MouseX);
        EmitSelectionChanged();
        root.SetChildWindowCursor(kCursorIBeam);
        root.MarkChildWindowProcessed();
    }
    if ((ActiveDrag == DragResizeSelectionStart || ActiveDrag == DragResizeSelectionEnd) && bLeftDown)
    {
        const double t = std::clamp(TimeForMouse(MouseX), 0.0, std::max(DurationSec, 0.0));
        (ActiveDrag == DragResizeSelectionStart ? SelectionStartValueSec : SelectionEndValueSec) = t;
        EmitSelectionChanged();
        root.SetChildWindowCursor(kCursorSizeWE);
        root.MarkChildWindowProcessed();
    }
    if (ActiveDrag == DragPan && bMiddleDown)
    {
        // From the anchors every pass, so nothing accumulates at an edge.
        const double viewSpan = std::max(DragAnchorViewEndSec - DragAnchorViewStartSec, MinViewSpanSec);
        const double dxFrac = (MouseX - DragAnchorMouseX) / std::max(PlotX2 - PlotX1, 1e-9);
        const double shiftSec = -dxFrac * viewSpan;
        ViewStartSec = DragAnchorViewStartSec + shiftSec;
        ViewEndSec = DragAnchorViewEndSec + shiftSec;
        ClampView();
        root.SetChildWindowCursor(kCursorIBeam);
        root.MarkChildWindowProcessed();
    }
}

void GLWaveEdit::MouseProcessing()
{
    if (!bEnabled || !bVisible)
        return;
    SyncPlaybackState();
    if (!GLGeometry::IsValidRect(X1, Y1, X2, Y2))
    {
        ActiveDrag = DragNone;
        bHover = false;
        return;
    }
    if (!p || !p->pMouse || !p->pTarvik)
        return;
    UpdatePlotRect(true);

    const Mouse& pointer = *p->pMouse;
    const double mx = pointer.X3D;
    const double my = pointer.Y3D;
    const bool inside = IsInsidePlot(mx, my);
    bHover = inside;
    if (inside)
    {
        HoverTimeSec = TimeForMouse(mx);
        HoverPeak = WaveformPeakForSpan(HoverTimeSec,
                                        HoverTimeSec + std::max((ViewEndSec - ViewStartSec) / 300.0, 0.001));
    }

    const bool leftDown = pointer.pButton[0];
    const bool middleDown = pointer.pButton[1];
    const bool leftPressed = leftDown && !pointer.pPrevButton[0];
    const bool leftReleased = !leftDown && pointer.pPrevButton[0];
    const bool middlePressed = middleDown && !pointer.pPrevButton[1];
    const bool middleReleased = !middleDown && pointer.pPrevButton[1];

    // A press wins over whatever drag was running.
    if (leftPressed && inside)
        BeginLeftDrag(mx);
    if (middlePressed && inside)
        BeginPan(mx);
    HoldDrag(mx, leftDown, middleDown);

    const bool leftDrag = ActiveDrag == DragSeek || ActiveDrag == DragSelect ||
                          ActiveDrag == DragResizeSelectionStart || ActiveDrag == DragResizeSelectionEnd;
    if (leftReleased && leftDrag)
    {
        if (ActiveDrag == DragSeek)
        {
            ApplySeekPositionRule(mx);
            CommitSeek(PreviewTimeSec);
        }
        ActiveDrag = DragNone;
    }
    if (middleReleased && ActiveDrag == DragPan)
        ActiveDrag = DragNone;
    // A resize whose release this window never saw.
    if (!leftDown && !middleDown &&
        (ActiveDrag == DragResizeSelectionStart || ActiveDrag == DragResizeSelectionEnd))
        ActiveDrag = DragNone;

    if (inside && ActiveDrag == DragNone)
    {
        Tarvik& root = *p->pTarvik;
        root.SetChildWindowCursor(IsOnSelectionEdge(HoverTimeSec, SelectionEdgeHitToleranceSec()) ? kCursorSizeWE
                                                                                                 : kCursorIBeam);
        root.MarkChildWindowProcessed();
    }
}

void GLWaveEdit::EventMouseOut()
{
    bHovered = false;
    bHover = false;
    HoverPeak = -1.0;
}

static void ClaimInput(bool bTakeFocus, GLChildWindow& Window)
{
    if (!p || !p->pTarvik)
        return;
    if (bTakeFocus)
    {
        p->pTarvik->ClearWindowFocus();
        Window.bFocused = true;
    }
    p->pTarvik->MarkChildWindowProcessed();
}

void GLWaveEdit::EventMouseClick(int ButtonID, double x, double y)
{
    GLChildWindow::EventMouseClick(ButtonID, x, y);
    UpdatePlotRect(true);

    if (bTabMenuOpen)
    {
        if (ButtonID == 0 && HitTestTabMenuItem(x, y) == 0)
        {
            const int closeIndex = TabMenuDocumentIndex;
            CloseTabMenu();
            if (!CloseRequestProvider || CloseRequestProvider(closeIndex))
                CloseDocument(closeIndex);
            return;
        }
        // Any other click closes the menu and then does what it would have done.
        if (ButtonID != 0 || !IsInsideTabMenu(x, y))
            CloseTabMenu();
    }

    if (ButtonID == 0)
    {
        const int closeTabIndex = HitTestDocumentTabClose(x, y);
        if (closeTabIndex >= 0)
        {
            if (!CloseRequestProvider || CloseRequestProvider(closeTabIndex))
                CloseDocument(closeTabIndex);
            ClaimInput(false, *this);
            return;
        }
        const int tabIndex = HitTestDocumentTab(x, y);
        if (tabIndex >= 0)
        {
            LoadActiveDocument(tabIndex);
            ClaimInput(true, *this);
        }
        return;
    }
    if (ButtonID == 2)
    {
        const int tabIndex = HitTestDocumentTab(x, y);
        if (tabIndex >= 0)
        {
            OpenTabMenu(x, y, tabIndex);
            ClaimInput(false, *this);
        }
        return;
    }
    if (ButtonID == 3 || ButtonID == 4)
    {
        const double anchor = IsInsidePlot(x, y) ? TimeForMouse(x) : (ViewStartSec + ViewEndSec) * 0.5;
        const double ratio = ButtonID == 3 ? 1.0 / (1.0 + WheelZoomStep) : 1.0 + WheelZoomStep;
        ZoomAroundTime(anchor, ratio);
    }
}

void GLWaveEdit::EventMouseRelease(int ButtonID, double x, double y)
{
    GLChildWindow::EventMouseRelease(ButtonID, x, y);
}

void GLWaveEdit::EventMouseDoubleClick(int ButtonID)
{
    GLChildWindow::EventMouseDoubleClick(ButtonID);
    if (ButtonID == 0)
        FitViewToData();
}

bool GLWaveEdit::HandleGlobalKey(int KeySym, bool ShiftMod, bool ControlMod, bool AltMod)
{
    (void)ShiftMod;  // shift neither blocks nor changes a key
    if (!bFocused)
        return false;
    if (ControlMod || AltMod)
        return false;
    GLKeyAction action = GLKeyAction::None;
    switch (KeySym)
    {
    case SDLK_SPACE: action = GLKeyAction::Activate; break;
    case SDLK_F: action = GLKeyAction::SelectFirst; break;
    case SDLK_C: action = GLKeyAction::Cancel; break;
    default: return false;
    }
    return GLDispatchKeyAction(action, [this](GLKeyAction Action) {
        switch (Action)
        {
        case GLKeyAction::Activate:
            if (bUsePcmFrames)
                TogglePlayback(nullptr);
            else
                SignalTogglePause.emit(true);
            break;
        case GLKeyAction::SelectFirst: FitViewToData(); break;
        case GLKeyAction::Cancel: ClearSelection(true); break;
        default: break;
        }
        return true;
    });
}
