// The program's decoder, its output side (see audio_decode_output.h).

#include "audio_decode_output.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <string>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
}

#include "audio_codec_internal.h"
#include "large_buffer.h"

namespace AudioDecodeDetail
{
namespace
{
// Fault-ahead steps, and how far ahead of the writer they may go (so that a
// header claiming three hours for one minute costs no real memory).
constexpr size_t kPrefaultStepBytes = size_t(2) << 20;
constexpr size_t kPrefaultAheadBytes = size_t(64) << 20;

std::string SizeText(uint64_t Bytes)
{
    char text[64];
    if (Bytes >= (uint64_t(1) << 30))
        std::snprintf(text, sizeof text, "%.1f GiB", static_cast<double>(Bytes) / double(uint64_t(1) << 30));
    else
        std::snprintf(text, sizeof text, "%.1f MiB", static_cast<double>(Bytes) / double(1 << 20));
    return text;
}
}  // namespace

// --- Output ---

void Prefaulter::AddRegion(void* Data, size_t Bytes, unsigned Writers)
{
    const uintptr_t begin = reinterpret_cast<uintptr_t>(Data);
    const uintptr_t aligned = (begin + kPageBytes - 1) & ~(kPageBytes - 1);
    if (Data && aligned < begin + Bytes)
        Regions.push_back({reinterpret_cast<char*>(aligned), begin + Bytes - aligned, 0, Writers});
}

void Prefaulter::Start()
{
    const size_t workers = std::min<size_t>(Regions.size(), kMaxWorkers);
    for (size_t worker = 0; worker < workers; ++worker)
        Workers.emplace_back([this, worker, workers] { Run(worker, workers); });
}

void Prefaulter::EndWhen(bool& bFlag)
{
    {
        std::lock_guard<std::mutex> lock(Lock);
        bFlag = true;
    }
    Wake.notify_all();
    for (std::thread& worker : Workers)
        worker.join();
    Workers.clear();
}

void Prefaulter::Run(size_t Worker, size_t Workers)
{
    std::unique_lock<std::mutex> lock(Lock);
    while (!bStopping)
    {
        const bool bLast = bFinishing;
        lock.unlock();
        bool bFaulted = false;
        for (size_t i = Worker; i < Regions.size(); i += Workers)
            bFaulted = StepInto(Regions[i], bLast) || bFaulted;
        lock.lock();
        if (!bFaulted && bLast)
            break;
        if (!bFaulted)
            Wake.wait_for(lock, kNap, [this] { return bStopping || bFinishing; });
    }
}

size_t Prefaulter::LimitOf(const Region& R, bool bLast) const
{
    if (bLast)
        return R.Writers == kAllWriters ? std::min(R.EndBytes, FinalBytes.load(std::memory_order_relaxed)) : 0;
    size_t written = 0;
    for (int writer = 0; writer < 2; ++writer)
        if (R.Writers & (1u << writer))
            written += WrittenBytes[writer].load(std::memory_order_relaxed);
    return std::min(R.EndBytes, written + kPrefaultAheadBytes);
}

bool Prefaulter::StepInto(Region& R, bool bLast)
{
    // Whole pages only: madvise refuses a start that is not on a page.
    const size_t limit = LimitOf(R, bLast) & ~(kPageBytes - 1);
    if (R.DoneBytes >= limit)
        return false;
    const size_t bytes = std::min(kPrefaultStepBytes, limit - R.DoneBytes);
    if (madvise(R.Begin + R.DoneBytes, bytes, MADV_POPULATE_WRITE) != 0)
    {
        R.EndBytes = 0;  // not supported here: the writes fault as they go
        return false;
    }
    R.DoneBytes += bytes;
    return true;
}

size_t ReserveForDuration(std::vector<float>& Frames, const AVFormatContext* Format, int64_t FileBytes,
                          uint64_t MaxDecodedBytes)
{
    if (Format->duration <= 0)
        return 0;
    const double floats = LargeBuffer::FloatsToReserveForDecoding(
        static_cast<double>(Format->duration) / AV_TIME_BASE, FileBytes);
    const size_t bounded = std::min<uint64_t>(static_cast<size_t>(floats), MaxDecodedBytes / sizeof(float) + 1);
    LargeBuffer::TryReserveFloats(Frames, bounded);
    return bounded;
}

// --- Conversion ---

bool Converter::Convert(const AVFrame* Frame, int CodecRate, Failure& Failed, int FromSample)
{
    if (!Takes(*Frame))
        return true;
    const int samples = Frame->nb_samples - FromSample;
    const int64_t wanted = Conversion.RoomFor(CodecRate, samples);
    // One frame of room beyond the bound tells "more than allowed" from "all
    // of it" without changing what the resampler does below the bound.
    const size_t whole = FirstFloat + Written;
    const int64_t allowed = static_cast<int64_t>((MaxFloats - std::min(MaxFloats, whole)) / kDocumentChannels) + 1;
    const int room = static_cast<int>(std::min({wanted, allowed, int64_t(INT32_MAX / kDocumentChannels)}));
    if (!EnsureRoom(Written + static_cast<size_t>(room) * kDocumentChannels, Failed))
        return false;
    const int made = Conversion.Convert(*Frame, FromSample, Data() + Written, room);
    if (made < 0)
    {
        Failed.Set(Step::Resample, "Failed while resampling audio: " + FfmpegErrorText(made) + ".");
        return false;
    }
    Written += static_cast<size_t>(made) * kDocumentChannels;
    InputSamples += samples;
    Faults.SetWritten(Writer, Written * sizeof(float));
    return WithinBound(Failed);
}

bool Converter::WithinBound(Failure& Failed)
{
    if (FirstFloat + Written <= MaxFloats)
        return true;
    Failed.Set(Step::OwnLimit, "The audio is longer than the limit of " + SizeText(MaxDecodedBytes) +
               " of decoded samples; opening stopped.");
    return false;
}

bool Converter::Flush(Failure& Failed)
{
    const int room = Conversion.TailRoom();
    if (room <= 0)
        return room == 0;
    if (!EnsureRoom(Written + static_cast<size_t>(room) * kDocumentChannels, Failed))
        return false;
    const int made = Conversion.Drain(Data() + Written, room);
    if (made < 0)
    {
        Failed.Set(Step::Resample, "Failed while resampling audio: " + FfmpegErrorText(made) + ".");
        return false;
    }
    Written += static_cast<size_t>(made) * kDocumentChannels;
    TailFrames = static_cast<size_t>(made);
    Faults.SetWritten(Writer, Written * sizeof(float));
    return WithinBound(Failed);
}

bool Converter::EnsureRoom(size_t Floats, Failure& Failed)
{
    if (Window.Data ? Floats <= Window.Floats : Frames.size() >= Floats)
        return true;
    try
    {
        if (Window.Data)
        {
            // Out of the window: a buffer of its own, which nothing faults ahead.
            LargeBuffer::ReserveFloats(Frames, std::max(Floats, Written + Written / 2));
            Frames.assign(Window.Data, Window.Data + Written);
            Window = {};
        }
        else if (Floats > Frames.capacity())
        {
            // The regions are the first writer's to give up; the second
            // half's own buffer was never one of them.
            if (Writer == 0)
                Faults.Forget();
            LargeBuffer::ReserveFloats(Frames, std::max(Floats, Frames.capacity() + Frames.capacity() / 2));
        }
        Frames.resize(std::min(Frames.capacity(), std::max(Floats, Frames.size() + kGrowFloats)));
    }
    catch (const std::bad_alloc&)
    {
        Failed.Set(Step::OwnLimit, "Not enough memory to hold the audio.");
        return false;
    }
    return true;
}
}  // namespace AudioDecodeDetail
