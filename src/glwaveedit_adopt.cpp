// GLWaveEdit extension: a document decoded elsewhere (on a worker thread of
// the host, say) comes in as SetExternalPeakWaveform's own decode would, but
// without a second decode and without a copy of its frames. Prepared, it
// brings the waveform summary made on that thread too.

#include "glwaveedit.h"
#include "large_buffer.h"

// The mirror takes the frames as the editor's own decode would leave them.
void GLWaveEdit::TakeAdoptedFrames(const std::string& Path, std::vector<float>&& Frames)
{
    StoreActiveDocument();
    StopPlayback();
    ParkActiveFrames();
    SourceFilePath = Path;
    ExternalPeaks.clear();
    bUseExternalPeaks = false;
    // A half frame at the end cannot be played or edited; it goes.
    Frames.resize(Frames.size() - Frames.size() % kDocumentChannels);
    PcmFrames = std::move(Frames);
    bUsePcmFrames = !PcmFrames.empty();
    if (bUsePcmFrames)
    {
        DurationSec = DocumentSeconds(DocumentFrames(PcmFrames.size()));
        PcmSampleRate = kDocumentRateHz;
        PcmChannels = kDocumentChannels;
    }
    else
    {
        DurationSec = 0.0;
    }
}

void GLWaveEdit::AdoptDecodedDocument(const std::string& Path, std::vector<float>&& Frames)
{
    TakeAdoptedFrames(Path, std::move(Frames));
    FinishOpenedDocument();
}

GLWaveEdit::PreparedDocument GLWaveEdit::PrepareForAdoption(std::vector<float>&& Frames, int SummaryWorkers)
{
    PreparedDocument prepared;
    prepared.Frames = std::move(Frames);
    prepared.Frames.resize(prepared.Frames.size() - prepared.Frames.size() % kDocumentChannels);
    if (prepared.Frames.empty())
        return prepared;
    prepared.Summary.MaxWorkers = SummaryWorkers;
    prepared.Summary.Build(prepared.Frames.data(), DocumentFrames(prepared.Frames.size()), kDocumentChannels);
    return prepared;
}

void GLWaveEdit::AdoptPreparedDocument(const std::string& Path, PreparedDocument&& Document)
{
    TakeAdoptedFrames(Path, std::move(Document.Frames));
    FinishOpenedDocument();
    // The summary comes in already built, unless a signal handler asked for one meanwhile.
    const WaveSummary& summary = Document.Summary;
    const uint64_t id = ActiveDocumentId();
    if (bUsePcmFrames && id != 0 && !FindSummary(id) && summary.Channels() == PcmChannels &&
        summary.FrameCount() == static_cast<int64_t>(PcmFrames.size()) / PcmChannels)
    {
        DocumentSummary& entry = Summaries.emplace_back();
        entry.DocumentId = id;
        entry.Summary = std::move(Document.Summary);
        entry.bBuilt = true;
        entry.Revision = 1;
    }
}
