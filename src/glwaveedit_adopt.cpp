// GLWaveEdit extension: a document decoded elsewhere (on a worker thread of
// the host, say) comes in as SetExternalPeakWaveform's own decode would, but
// without a second decode and without a copy of its frames.

#include "glwaveedit.h"


// The frames' format: what the editor's own decode gives.
static constexpr int kAdoptedSampleRate = 48000;
static constexpr int kAdoptedChannels = 2;

void GLWaveEdit::AdoptDecodedDocument(const std::string& Path, std::vector<float>&& Frames,
                                      std::vector<float>&& RecordStorage)
{
    StoreActiveDocument();
    StopPlayback();
    SourceFilePath = Path;
    ExternalPeaks.clear();
    bUseExternalPeaks = false;
    // A half frame at the end cannot be played or edited; it goes.
    Frames.resize(Frames.size() - Frames.size() % kAdoptedChannels);
    PcmFrames = std::move(Frames);
    bUsePcmFrames = !PcmFrames.empty();
    if (bUsePcmFrames)
    {
        DurationSec = static_cast<double>(PcmFrames.size() / kAdoptedChannels) / kAdoptedSampleRate;
        PcmSampleRate = kAdoptedSampleRate;
        PcmChannels = kAdoptedChannels;
    }
    else
    {
        DurationSec = 0.0;
    }
    std::vector<float> storage = std::move(RecordStorage);
    FinishOpenedDocument(storage.capacity() >= PcmFrames.size() ? &storage : nullptr);
}
