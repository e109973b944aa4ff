// Long work off the frame thread: opening decodes files one after another on
// a worker of its own, saving copies a document's frames and encodes the copy
// on another. The frame thread queues work, reads progress, cancels and takes
// finished results. One thing more crosses threads: the save worker reads the
// editor's live frames (SaveRequest::pFrames) for its copy, and until
// IsSnapshotting() is false the frame thread changes none of them.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "audio_decode.h"
#include "document_format.h"
#include "glwaveedit.h"
#include "save_format.h"

// One thread that runs tasks in order until it is destroyed.
class Worker
{
public:
    Worker();
    ~Worker();  // lets the running task end, drops the waiting ones
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void Post(std::function<void()> Task);
    void DropWaiting();
    size_t Waiting() const;

private:
    mutable std::mutex Lock;
    std::condition_variable Wake;
    std::deque<std::function<void()>> Tasks;
    bool bStopping = false;
    std::thread Thread;

    void Run();
};

struct OpenResult
{
    std::string Path;
    bool bOk = false;
    bool bCancelled = false;
    std::string Error;
    DecodedAudio Audio;  // its frames moved into Prepared when asked for
    std::string Format;  // DescribeFormat of Audio, made before the frames moved
    SourceFormat Source;  // likewise
    bool bPrepared = false;
    GLWaveEdit::PreparedDocument Prepared;
};

struct SaveRequest
{
    uint64_t DocumentId = 0;
    uint64_t StateId = 0;  // the document's history position the snapshot shows
    std::string Path;
    const std::vector<float>* pFrames = nullptr;  // unchanged until IsSnapshotting() is false
    int SampleRate = kDocumentRateHz;
    int Channels = kDocumentChannels;
    int BitrateKbps = 192;
    std::map<std::string, std::string> Tags;
    std::vector<TimedMarker> Markers;  // as cue points or chapters
    // Written in this format, converted from the frames on the way; without
    // it, at the frames' own rate and channels in the container's default.
    bool bOwnFormat = false;
    SaveFormat Format;
    SourceFormat Source;
};

struct SaveResult
{
    uint64_t DocumentId = 0;
    uint64_t StateId = 0;
    std::string Path;
    bool bOk = false;
    std::string Error;
};

class Jobs
{
public:
    Jobs() = default;
    ~Jobs();  // cancels what runs; the workers end before the results go
    Jobs(const Jobs&) = delete;
    Jobs& operator=(const Jobs&) = delete;

    // --- Opening ---
    void QueueOpen(const std::string& Path);
    bool IsOpening() const { return OpensPending.load() > 0; }
    double OpenProgress() const { return OpenFraction.load(); }
    std::string OpeningPath() const;
    int OpensPendingCount() const { return OpensPending.load(); }
    void CancelOpens();
    // One finished open, oldest first; false when none has finished.
    bool TakeOpened(OpenResult& Out);
    // Path is queued, opening, or opened and not taken yet.
    bool IsOpeningOrQueued(const std::string& Path) const;

    // --- Saving ---
    // False when a save is running already.
    bool StartSave(SaveRequest Request);
    bool IsSaving() const { return bSaving.load(); }
    // The snapshot is being copied: its frames must not change meanwhile.
    bool IsSnapshotting() const { return bSnapshotting.load(); }
    double SaveProgress() const { return SaveFraction.load(); }
    std::string SavingPath() const;
    void CancelSave() { bCancelSave.store(true); }
    bool TakeSaved(SaveResult& Out);

    // A bound on decoded size for opening, settable (0 keeps the decoder's own).
    uint64_t MaxDecodedBytes = 0;
    // Make the tab's waveform summary on the worker too, so that taking the
    // document in only moves memory on the frame thread.
    bool bPrepareDocuments = false;
    // Called on a worker after a result is ready and the state says so; set
    // before the first job. The frame loop sleeps while nothing moves, so
    // without a wake-up a result could wait for the next unrelated event.
    std::function<void()> OnFinished;

private:
    mutable std::mutex ResultLock;
    std::deque<OpenResult> Opened;
    std::deque<SaveResult> Saved;
    std::string OpeningName;
    std::deque<std::string> OpensNotTaken;  // paths queued, in order, until their result is taken
    std::string SavingName;

    std::atomic<int> OpensPending{0};
    std::atomic<double> OpenFraction{0.0};
    std::shared_ptr<std::atomic<bool>> pCancelRunningOpen;  // under ResultLock
    std::atomic<bool> bSaving{false};
    std::atomic<bool> bSnapshotting{false};
    std::atomic<double> SaveFraction{0.0};
    std::atomic<bool> bCancelSave{false};

    // Declared last: they end first, while everything they touch still exists.
    Worker OpenWorker;
    Worker SaveWorker;

    void RunOpen(const std::string& Path);
    void RunSave(const SaveRequest& Request);
};

// "MP3, 192 kb/s, 44100 Hz, stereo, 3:25.412": the format a file had as opened.
std::string DescribeFormat(const DecodedAudio& Audio);
// Seconds as h:mm:ss.mmm / m:ss.mmm / s.mmm, rounded to the millisecond.
std::string DurationText(double Seconds);
