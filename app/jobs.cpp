#include "jobs.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "audio_codec_internal.h"
#include "large_buffer.h"

// --- Worker ---

Worker::Worker() : Thread([this] { Run(); }) {}

Worker::~Worker()
{
    {
        std::lock_guard<std::mutex> hold(Lock);
        bStopping = true;
        Tasks.clear();
    }
    Wake.notify_all();
    Thread.join();
}

void Worker::Post(std::function<void()> Task)
{
    {
        std::lock_guard<std::mutex> hold(Lock);
        Tasks.push_back(std::move(Task));
    }
    Wake.notify_one();
}

void Worker::DropWaiting()
{
    std::lock_guard<std::mutex> hold(Lock);
    Tasks.clear();
}

size_t Worker::Waiting() const
{
    std::lock_guard<std::mutex> hold(Lock);
    return Tasks.size();
}

void Worker::Run()
{
    for (;;)
    {
        std::function<void()> task;
        {
            std::unique_lock<std::mutex> hold(Lock);
            Wake.wait(hold, [this] { return bStopping || !Tasks.empty(); });
            if (bStopping)
                return;
            task = std::move(Tasks.front());
            Tasks.pop_front();
        }
        task();
    }
}

// --- Opening ---

Jobs::~Jobs()
{
    CancelOpens();
    CancelSave();
}

void Jobs::QueueOpen(const std::string& Path)
{
    {
        std::lock_guard<std::mutex> hold(ResultLock);
        OpensNotTaken.push_back(Path);
    }
    ++OpensPending;
    OpenWorker.Post([this, Path] { RunOpen(Path); });
}

std::string Jobs::OpeningPath() const
{
    std::lock_guard<std::mutex> hold(ResultLock);
    return OpeningName;
}

void Jobs::CancelOpens()
{
    const size_t dropped = OpenWorker.Waiting();
    OpenWorker.DropWaiting();
    OpensPending -= static_cast<int>(dropped);
    std::lock_guard<std::mutex> hold(ResultLock);
    // The dropped ones were the last queued.
    OpensNotTaken.resize(OpensNotTaken.size() - std::min(dropped, OpensNotTaken.size()));
    if (pCancelRunningOpen)
        pCancelRunningOpen->store(true);
}

void Jobs::RunOpen(const std::string& Path)
{
    auto cancel = std::make_shared<std::atomic<bool>>(false);
    {
        std::lock_guard<std::mutex> hold(ResultLock);
        OpeningName = Path;
        pCancelRunningOpen = cancel;
    }
    OpenFraction.store(0.0);
    OpenResult result;
    result.Path = Path;
    DecodeControl control;
    control.pCancel = cancel.get();
    control.pProgress = &OpenFraction;
    if (MaxDecodedBytes > 0)
        control.MaxDecodedBytes = MaxDecodedBytes;
    result.bOk = DecodeAudioFile(Path, control, result.Audio, &result.Error);
    result.bCancelled = !result.bOk && cancel->load();
    if (result.bOk)
    {
        // FFmpeg reads no cue points; a WAV file's markers are there.
        std::string cueError;
        if (result.Audio.SourceContainer == "wav")
            ReadWavCues(Path, result.Audio.Markers, cueError);
        result.Format = DescribeFormat(result.Audio);
        result.Source = SourceFormatOf(result.Audio);
    }
    if (result.bOk && bPrepareDocuments)
    {
        result.Prepared =
            GLWaveEdit::PrepareForAdoption(std::move(result.Audio.Frames), WaveSummary::kMostWorkers);
        result.bPrepared = true;
    }
    {
        std::lock_guard<std::mutex> hold(ResultLock);
        pCancelRunningOpen.reset();
        OpeningName.clear();
        Opened.push_back(std::move(result));
    }
    --OpensPending;
    if (OnFinished)
        OnFinished();
}

// The oldest finished result of a queue, taken under the lock.
template <typename Result>
static bool TakeFront(std::mutex& Lock, std::deque<Result>& Queue, Result& Out)
{
    std::lock_guard<std::mutex> hold(Lock);
    if (Queue.empty())
        return false;
    Out = std::move(Queue.front());
    Queue.pop_front();
    return true;
}

bool Jobs::TakeOpened(OpenResult& Out)
{
    if (!TakeFront(ResultLock, Opened, Out))
        return false;
    std::lock_guard<std::mutex> hold(ResultLock);
    const auto queued = std::find(OpensNotTaken.begin(), OpensNotTaken.end(), Out.Path);
    if (queued != OpensNotTaken.end())
        OpensNotTaken.erase(queued);
    return true;
}

bool Jobs::IsOpeningOrQueued(const std::string& Path) const
{
    std::lock_guard<std::mutex> hold(ResultLock);
    return std::find(OpensNotTaken.begin(), OpensNotTaken.end(), Path) != OpensNotTaken.end();
}

// --- Saving ---

bool Jobs::StartSave(SaveRequest Request)
{
    if (bSaving.load() || !Request.pFrames)
        return false;
    bSaving.store(true);
    bSnapshotting.store(true);
    bCancelSave.store(false);
    SaveFraction.store(0.0);
    {
        std::lock_guard<std::mutex> hold(ResultLock);
        SavingName = Request.Path;
    }
    SaveWorker.Post([this, Request = std::move(Request)] { RunSave(Request); });
    return true;
}

std::string Jobs::SavingPath() const
{
    std::lock_guard<std::mutex> hold(ResultLock);
    return SavingName;
}

void Jobs::RunSave(const SaveRequest& Request)
{
    // The copy is what the frame thread waits for; the encoding is not.
    std::vector<float> snapshot;
    LargeBuffer::AssignFloats(snapshot, *Request.pFrames);
    bSnapshotting.store(false);

    SaveResult result;
    result.DocumentId = Request.DocumentId;
    result.StateId = Request.StateId;
    result.Path = Request.Path;
    EncodeOptions options;
    options.BitrateKbps = Request.BitrateKbps;
    options.Tags = Request.Tags;
    options.Markers = Request.Markers;
    options.pProgress = &SaveFraction;
    options.pCancel = &bCancelSave;
    if (Request.bOwnFormat)
        ApplySaveFormat(Request.Format, Request.Source, snapshot.size() / static_cast<size_t>(Request.Channels),
                        options);
    result.bOk = TarvikEncodeFloatAudioFileWith(Request.Path, snapshot.data(), snapshot.size(), Request.SampleRate,
                                                Request.Channels, options, &result.Error);
    {
        std::lock_guard<std::mutex> hold(ResultLock);
        Saved.push_back(std::move(result));
        SavingName.clear();
    }
    bSaving.store(false);
    if (OnFinished)
        OnFinished();
}

bool Jobs::TakeSaved(SaveResult& Out)
{
    return TakeFront(ResultLock, Saved, Out);
}

// --- Descriptions ---

std::string DurationText(double Seconds)
{
    const long long ms = std::llround(std::max(Seconds, 0.0) * 1000.0);
    const long long s = ms / 1000;
    char text[48];
    if (s >= 3600)
        std::snprintf(text, sizeof(text), "%lld:%02lld:%02lld.%03lld", s / 3600, s / 60 % 60, s % 60, ms % 1000);
    else if (s >= 60)
        std::snprintf(text, sizeof(text), "%lld:%02lld.%03lld", s / 60, s % 60, ms % 1000);
    else
        std::snprintf(text, sizeof(text), "%lld.%03lld s", s, ms % 1000);
    return text;
}

std::string DescribeFormat(const DecodedAudio& Audio)
{
    std::string channels = Audio.SourceChannels == 1   ? "mono"
                           : Audio.SourceChannels == 2 ? "stereo"
                                                       : std::to_string(Audio.SourceChannels) + " channels";
    if (!Audio.SourceChannelLayout.empty() && Audio.SourceChannels > 2)
        channels += " (" + Audio.SourceChannelLayout + ")";
    const double decodedSec = DocumentSeconds(DocumentFrames(Audio.Frames.size()));
    std::string depth;
    if (Audio.bSourceLossy && Audio.SourceBitrateKbps > 0)
        depth = std::to_string(Audio.SourceBitrateKbps) + " kb/s, ";
    else if (!Audio.bSourceLossy && Audio.SourceBits > 0 && Audio.CodecName.find("-bit") == std::string::npos)
        depth = std::to_string(Audio.SourceBits) + (Audio.bSourceFloat ? "-bit float, " : "-bit, ");
    return Audio.CodecName + ", " + depth + std::to_string(Audio.SourceSampleRate) + " Hz, " + channels + ", " +
           DurationText(decodedSec);
}
