// GLWaveEdit's waveform data, the render side's half that draws nothing: one
// WaveSummary per document kept current by NoteFramesChanged, the render
// cache of waveform columns per trace made from it (or from the host's
// providers), and the columns of tabs not shown. No GL: a host may bring a
// summary up to date on a thread of its own (RefreshWaveSummary) while the
// frame thread leaves the editor alone, so that the next Render only draws.
//
// Sections, in order:
//   Summaries     one WaveSummary per document, kept current by NoteFramesChanged
//   Columns       the render cache of waveform columns, per trace, and the stash

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <thread>
#include <utility>
#include <vector>

#include "glwaveedit.h"

// --- Summaries ---

bool GLWaveEdit::IsPcmUsable() const
{
    return bUsePcmFrames && !PcmFrames.empty() && PcmChannels > 0 && PcmSampleRate > 0;
}

GLWaveEdit::DocumentSummary* GLWaveEdit::FindSummary(uint64_t DocumentId)
{
    for (DocumentSummary& entry : Summaries)
        if (entry.DocumentId == DocumentId)
            return &entry;
    return nullptr;
}

// An edit only marks what changed; the next use folds it in, so a burst of
// edits between two frames costs one update.
void GLWaveEdit::NoteFramesChanged(int64_t FirstFrame, int64_t EndFrame)
{
    DocumentSummary* entry = FindSummary(ActiveDocumentId());
    if (!entry)
        return;
    ++entry->Revision;
    if (!entry->bBuilt)
        return;
    const int64_t first = std::max<int64_t>(FirstFrame, 0);
    if (!entry->bPending)
    {
        entry->PendingFirst = first;
        entry->PendingEnd = EndFrame;
    }
    else
    {
        entry->PendingFirst = std::min(entry->PendingFirst, first);
        entry->PendingEnd = (EndFrame < 0 || entry->PendingEnd < 0) ? -1 : std::max(entry->PendingEnd, EndFrame);
    }
    entry->bPending = true;
}

// The active document's summary, current with its frames; null without PCM.
// Summaries of closed tabs go here too. Without a tab (frames set directly)
// there is no id to follow edits by, so the summary is rebuilt whenever the
// caches were invalidated.
const WaveSummary* GLWaveEdit::CurrentSummary()
{
    Summaries.erase(std::remove_if(Summaries.begin(), Summaries.end(),
                                   [this](const DocumentSummary& Entry) {
                                       return Entry.DocumentId != 0 &&
                                              std::find(DocumentIds.begin(), DocumentIds.end(), Entry.DocumentId) ==
                                                  DocumentIds.end();
                                   }),
                    Summaries.end());
    if (!IsPcmUsable())
        return nullptr;
    const uint64_t id = ActiveDocumentId();
    DocumentSummary* entry = FindSummary(id);
    if (!entry)
    {
        Summaries.emplace_back();
        entry = &Summaries.back();
        entry->DocumentId = id;
    }
    const int64_t frameCount = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    WaveSummary& summary = entry->Summary;
    summary.MaxWorkers = bRenderHelperThread ? WaveSummary::kMostWorkers : 1;
    // A length or shape that no noted change explains means frames were
    // replaced behind the summary's back: start again.
    const bool bUnexplained = summary.Channels() != PcmChannels ||
                              (summary.FrameCount() != frameCount && !(entry->bPending && entry->PendingEnd < 0));
    if (!entry->bBuilt || bUnexplained || (id == 0 && !bRenderSamplesValid))
    {
        summary.Build(PcmFrames.data(), frameCount, PcmChannels);
        entry->bBuilt = true;
        entry->bPending = false;
        ++entry->Revision;
    }
    else if (entry->bPending)
    {
        summary.Update(PcmFrames.data(), frameCount, PcmChannels, entry->PendingFirst, entry->PendingEnd);
        entry->bPending = false;
    }
    return &summary;
}

void GLWaveEdit::RefreshWaveSummary()
{
    CurrentSummary();
}

// --- Columns ---

// Column Index of Count evenly over StartSec .. StartSec + SpanSec.
static void ColumnSpan(double StartSec, double SpanSec, int Index, int Count, double& OutT0, double& OutT1)
{
    OutT0 = StartSec + (static_cast<double>(Index) / Count) * SpanSec;
    OutT1 = StartSec + (static_cast<double>(Index + 1) / Count) * SpanSec;
}

static double BoundedAmp(double Amp)
{
    return Amp == Amp ? std::clamp(Amp, -1.0, 1.0) : 0.0;
}

static GLWaveEdit::TraceColumn TraceColumnOf(float MinAmp, float MaxAmp, float RmsAmp)
{
    GLWaveEdit::TraceColumn column;
    column.MinAmp = static_cast<float>(BoundedAmp(MinAmp));
    column.MaxAmp = static_cast<float>(BoundedAmp(MaxAmp));
    column.RmsAmp = RmsAmp;
    column.bClipHigh = MaxAmp >= 1.0f;
    column.bClipLow = MinAmp <= -1.0f;
    return column;
}

// From a view of about 90 s of 48 kHz audio on, the columns are shared out.
static constexpr double kMinFramesToShareColumns = 4.0 * 1024 * 1024;

// Every column of every trace from the summary; the mix also into
// CachedRenderSamples, where it equals the span query column by column.
bool GLWaveEdit::PcmColumns(int ColumnCount, const WaveSummary& Summary)
{
    CachedRenderSamples.clear();
    if (Summary.FrameCount() == 0)
        return false;
    CachedTraceCount = Summary.Traces();
    CachedTraceColumns.assign(static_cast<size_t>(CachedTraceCount) * ColumnCount, TraceColumn{});
    CachedRenderSamples.resize(static_cast<size_t>(ColumnCount));
    // A long view folds dozens of blocks and two ragged ends per column, most
    // of a moving frame's own work: the second core takes half the columns.
    const double viewFrames = (ViewEndSec - ViewStartSec) * PcmSampleRate;
    if (bRenderHelperThread && viewFrames >= kMinFramesToShareColumns && ColumnCount >= 2 &&
        std::thread::hardware_concurrency() > 1)
    {
        try
        {
            std::thread helper([&] { PcmColumnRange(ColumnCount / 2, ColumnCount, ColumnCount, Summary); });
            PcmColumnRange(0, ColumnCount / 2, ColumnCount, Summary);
            helper.join();
            return true;
        }
        catch (const std::system_error&)
        {
            // No thread to be had: the calling thread does them all.
        }
    }
    PcmColumnRange(0, ColumnCount, ColumnCount, Summary);
    return true;
}

// Columns First .. End of ColumnCount; each writes only its own entries.
void GLWaveEdit::PcmColumnRange(int First, int End, int ColumnCount, const WaveSummary& Summary)
{
    const int64_t frameCount = Summary.FrameCount();
    const int traces = Summary.Traces();
    std::vector<WaveSummary::Stats> stats(static_cast<size_t>(traces));
    const double spanSec = std::max(ViewEndSec - ViewStartSec, 1e-9);
    for (int i = First; i < End; ++i)
    {
        double t0 = 0.0;
        double t1 = 0.0;
        ColumnSpan(ViewStartSec, spanSec, i, ColumnCount, t0, t1);
        int64_t f0 = BoundedIndex(std::floor(t0 * PcmSampleRate), frameCount - 1);
        int64_t f1 = BoundedIndex(std::ceil(t1 * PcmSampleRate), frameCount - 1);
        if (f1 < f0)
            std::swap(f0, f1);
        Summary.FoldFrames(PcmFrames.data(), f0, f1, stats.data());
        const double frames = static_cast<double>(f1 - f0 + 1);
        bool bAnyHigh = false;
        bool bAnyLow = false;
        for (int t = 0; t < traces; ++t)
        {
            TraceColumn column =
                TraceColumnOf(stats[t].MinAmp, stats[t].MaxAmp, static_cast<float>(std::sqrt(stats[t].SumSquares / frames)));
            // The mix clips where any channel does, though averaging may hide it.
            if (t == Summary.MixTrace())
            {
                column.bClipHigh = bAnyHigh;
                column.bClipLow = bAnyLow;
            }
            bAnyHigh = bAnyHigh || column.bClipHigh;
            bAnyLow = bAnyLow || column.bClipLow;
            CachedTraceColumns[static_cast<size_t>(t) * ColumnCount + i] = column;
        }
        const WaveSummary::Stats& mix = stats[static_cast<size_t>(Summary.MixTrace())];
        CachedRenderSamples[static_cast<size_t>(i)] = WaveSample{
            t0 + (t1 - t0) * 0.5, std::clamp(double(mix.MinAmp), -1.0, 1.0), std::clamp(double(mix.MaxAmp), -1.0, 1.0)};
    }
}

// One trace, without RMS, for the sources that give min and max alone.
void GLWaveEdit::TraceColumnsFromSamples()
{
    CachedTraceCount = 1;
    CachedTraceColumns.clear();
    for (const WaveSample& column : CachedRenderSamples)
        CachedTraceColumns.push_back(
            TraceColumnOf(static_cast<float>(column.MinAmp), static_cast<float>(column.MaxAmp), -1.0f));
}

bool GLWaveEdit::LodProviderColumns(int ColumnCount)
{
    CachedRenderSamples.clear();
    if (!WaveformLodProvider || !WaveformLodProvider(ViewStartSec, ViewEndSec, ColumnCount, CachedRenderSamples))
    {
        CachedRenderSamples.clear();
        return false;
    }
    // The host's columns are bounded like every other amplitude.
    for (WaveSample& column : CachedRenderSamples)
    {
        column.MinAmp = BoundedAmp(column.MinAmp);
        column.MaxAmp = BoundedAmp(column.MaxAmp);
    }
    return !CachedRenderSamples.empty();
}

bool GLWaveEdit::RangeColumns(int ColumnCount)
{
    CachedRenderSamples.clear();
    const double spanSec = std::max(ViewEndSec - ViewStartSec, 1e-9);
    for (int i = 0; i < ColumnCount; ++i)
    {
        double t0 = 0.0;
        double t1 = 0.0;
        ColumnSpan(ViewStartSec, spanSec, i, ColumnCount, t0, t1);
        WaveSample column;
        column.TimeSec = t0 + (t1 - t0) * 0.5;
        if (WaveformRangeForSpan(t0, t1, column.MinAmp, column.MaxAmp))
            CachedRenderSamples.push_back(column);
    }
    return !CachedRenderSamples.empty();
}

// The columns of the tab being left go with its summary, for the switch back.
void GLWaveEdit::StashColumns()
{
    DocumentSummary* left = CachedSummaryId != 0 ? FindSummary(CachedSummaryId) : nullptr;
    if (!left || CachedSummaryRevision != left->Revision)
        return;
    StashedColumns& stash = left->Stash;
    stash.StartSec = CachedRenderStartSec;
    stash.EndSec = CachedRenderEndSec;
    stash.Count = CachedRenderSampleCount;
    stash.WidthPx = CachedRenderWidthPx;
    stash.Revision = CachedSummaryRevision;
    stash.Rate = CachedRenderRate;
    stash.TraceCount = CachedTraceCount;
    stash.Samples.swap(CachedRenderSamples);
    stash.Columns.swap(CachedTraceColumns);
    stash.bHeld = true;
}

// The tab's own columns back, when nothing they were made from has changed.
bool GLWaveEdit::TakeStashedColumns(DocumentSummary& Entry, int ColumnCount, double WidthPx)
{
    StashedColumns& stash = Entry.Stash;
    if (!stash.bHeld || stash.StartSec != ViewStartSec || stash.EndSec != ViewEndSec || stash.Count != ColumnCount ||
        stash.WidthPx != WidthPx || stash.Revision != Entry.Revision || stash.Rate != PcmSampleRate)
        return false;
    CachedRenderSamples.swap(stash.Samples);
    CachedTraceColumns.swap(stash.Columns);
    CachedTraceCount = stash.TraceCount;
    stash.bHeld = false;
    CachedRenderStartSec = ViewStartSec;
    CachedRenderEndSec = ViewEndSec;
    CachedRenderSampleCount = ColumnCount;
    CachedRenderWidthPx = WidthPx;
    CachedSummaryId = Entry.DocumentId;
    CachedSummaryRevision = Entry.Revision;
    CachedRenderRate = PcmSampleRate;
    bRenderSamplesValid = true;
    return true;
}

// Columns for the visible span, reused while the view, the column count and
// the summary's revision are unchanged. The summary itself follows edits and
// survives selection changes and tab switches, so a new view costs only a
// few folds per column.
bool GLWaveEdit::RefreshRenderColumns(int ColumnCount, double WidthPx)
{
    const int columnCount = std::clamp(ColumnCount, 1, kMaxRenderColumns);
    const WaveSummary* summary = CurrentSummary();
    const uint64_t id = ActiveDocumentId();
    DocumentSummary* entry = summary ? FindSummary(id) : nullptr;
    const uint64_t revision = entry ? entry->Revision : 0;
    // A host still loading changes its answers without telling the editor.
    const bool hostLoading = IsPreloadingProvider && IsPreloadingProvider();
    const bool keyUnchanged = CachedRenderStartSec == ViewStartSec && CachedRenderEndSec == ViewEndSec &&
                              CachedRenderSampleCount == columnCount && CachedRenderWidthPx == WidthPx &&
                              CachedSummaryId == id && CachedSummaryRevision == revision &&
                              CachedRenderRate == PcmSampleRate;
    // A tab's summary counts every change of its frames, so its columns
    // outlive an invalidation that changed nothing they show (a new selection).
    const bool bRevisionTells = entry && id != 0;
    if ((bRenderSamplesValid || bRevisionTells) && keyUnchanged && !hostLoading)
    {
        bRenderSamplesValid = true;
        return !CachedRenderSamples.empty();
    }

    if (CachedSummaryId != id)
        StashColumns();
    if (!hostLoading && entry && TakeStashedColumns(*entry, columnCount, WidthPx))
        return !CachedRenderSamples.empty();

    // Sources in the order of the span query's chain, the cheapest way to each.
    if (!(summary && PcmColumns(columnCount, *summary)))
    {
        if (!ExternalLodForSpan(ViewStartSec, ViewEndSec, columnCount, CachedRenderSamples) &&
            !LodProviderColumns(columnCount))
            RangeColumns(columnCount);
        TraceColumnsFromSamples();
    }
    CachedRenderStartSec = ViewStartSec;
    CachedRenderEndSec = ViewEndSec;
    CachedRenderSampleCount = columnCount;
    CachedRenderWidthPx = WidthPx;
    CachedSummaryId = id;
    CachedSummaryRevision = revision;
    CachedRenderRate = PcmSampleRate;
    bRenderSamplesValid = true;
    return !CachedRenderSamples.empty();
}
