// The program's decoder (audio_decode.h), its output side: the frame buffer
// reserved once from what the container says, grown in small steps, its
// pages faulted in ahead by threads of their own, and the conversion of
// decoded frames into it through the import's own steps
// (audio_decode_core.h), within the size bound.
//
// Index: Output, Conversion.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "audio_decode_session.h"

namespace AudioDecodeDetail
{
// The output grows by this much at a time: small enough that the zeroes the
// vector writes are still in cache when the resampler overwrites them.
constexpr size_t kGrowFloats = size_t(64) << 10;

// --- Output ---

// Faults the pages of the output buffer, and of a spare buffer beside it, in
// ahead of the resamplers (one, or one per half) on a thread of its own. Where the first touch of
// fresh memory is slow (about a second per GB on some virtual machines), the
// kernel's clearing of pages is the largest cost of an open: here it runs
// beside the decoding instead of in its way. It never goes further than
// kPrefaultAheadBytes past what is written, so a header that claims three
// hours for one minute costs no real memory.
class Prefaulter
{
public:
    ~Prefaulter() { Stop(); }

    // Masks of the writers a region's pace follows: the first half (or a
    // whole decoding), the second half, or both.
    static constexpr unsigned kFirstWriter = 1, kSecondWriter = 2, kAllWriters = kFirstWriter | kSecondWriter;

    // Adds a reserved buffer to fault in, before Start, as far ahead of the
    // sum of what the Writers (a mask of the above) have written. An empty
    // region is left alone.
    void AddRegion(void* Data, size_t Bytes, unsigned Writers = kAllWriters);

    // One thread per region, up to two: where the host backs fresh pages on
    // first touch, two threads fault them in at nearly twice the speed of one.
    void Start();

    // The output moves (the file was longer than its header said): the old
    // regions are gone, and the rest is left to the writes themselves.
    void Forget() { Stop(); }

    // Bytes of output written so far by one resampler (0 or 1).
    void SetWritten(int Writer, size_t Bytes) { WrittenBytes[Writer].store(Bytes, std::memory_order_relaxed); }

    // The decoding is over and the output is Bytes long: the regions that
    // every writer fills (the output and the spare the record is copied into)
    // are faulted in up to there at once, on both threads, rather than by
    // the single thread that copies into them next. Then as Stop.
    void Finish(size_t Bytes)
    {
        FinalBytes.store(Bytes, std::memory_order_relaxed);
        EndWhen(bFinishing);
    }

    void Stop() { EndWhen(bStopping); }

private:
    struct Region
    {
        char* Begin;
        size_t EndBytes;
        size_t DoneBytes;
        unsigned Writers;
    };

    // Raises Flag (stopping, or finishing) and waits for the workers.
    void EndWhen(bool& bFlag);

    // Steps through its regions in turn, each up to the same distance past
    // the writers, and naps while the writers catch up.
    void Run(size_t Worker, size_t Workers);

    // How far a region is to be faulted in: ahead of its writers while they
    // write, to the output's end once they are done.
    size_t LimitOf(const Region& R, bool bLast) const;

    bool StepInto(Region& R, bool bLast);

    static constexpr uintptr_t kPageBytes = 4096;
    static constexpr std::chrono::milliseconds kNap{2};
    std::vector<Region> Regions;
    std::atomic<size_t> WrittenBytes[2] = {};
    std::mutex Lock;
    std::condition_variable Wake;
    bool bStopping = false;
    bool bFinishing = false;
    std::atomic<size_t> FinalBytes{0};
    std::vector<std::thread> Workers;
    static constexpr size_t kMaxWorkers = 2;
};

// Room for the whole file from the container's duration and the file's size,
// as the editor's import reserves it, and no more than the bound allows. Only
// a wish, as there: where the room cannot be had the output grows as it
// comes. Returns the floats expected (0 when the container does not say): a
// reservation has headroom beyond.
size_t ReserveForDuration(std::vector<float>& Frames, const AVFormatContext* Format, int64_t FileBytes,
                          uint64_t MaxDecodedBytes);

// --- Conversion ---

// Room outside a vector that a converter may write into: the second half of a
// long file writes into the first half's buffer, beyond what that vector
// holds, so that the two halves need no second buffer and no copy.
struct OutputWindow
{
    float* Data = nullptr;
    size_t Floats = 0;
};

// Turns decoded frames into output frames, on the resampler's thread.
class Converter
{
public:
    // Writer: which of the two halves this is (0 for a whole decoding).
    // FirstFloat: where the output's first float sits in the whole output,
    // which the size bound counts from. Window, when given, takes the output
    // until it is full; then what it holds moves into Frames and the rest
    // follows there.
    Converter(DecodeSession& Session, std::vector<float>& Frames, Prefaulter& Faults, uint64_t MaxDecodedBytes,
              int Writer = 0, size_t FirstFloat = 0, OutputWindow Window = {})
        : Conversion(Session.Conversion),
          Frames(Frames),
          Faults(Faults),
          MaxFloats(MaxDecodedBytes / sizeof(float)),
          MaxDecodedBytes(MaxDecodedBytes),
          Writer(Writer),
          FirstFloat(FirstFloat),
          Window(Window)
    {
    }

    // Whether Convert takes the frame: one in another shape than the
    // resampler's is passed over, as the editor's import passes it over.
    bool Takes(const AVFrame& Frame) const { return Conversion.Takes(Frame); }

    // One decoded frame, from its sample FromSample on (a frame Takes refuses
    // goes by unconverted). CodecRate is the decoder's rate when the frame
    // came out, which the editor sizes the output room by. False ends the
    // decoding, with a message in Failed when it is an error.
    bool Convert(const AVFrame* Frame, int CodecRate, Failure& Failed, int FromSample = 0);

    bool WithinBound(Failure& Failed);

    // The frames the resampler still holds at the end of the stream, after
    // the rest. The editor's import never asks for them.
    bool Flush(Failure& Failed);

    size_t WrittenFloats() const { return Written; }
    // The output so far: in the window while it lasts, else in Frames.
    const float* Data() const { return Window.Data ? Window.Data : Frames.data(); }
    float* Data() { return Window.Data ? Window.Data : Frames.data(); }
    bool IsInWindow() const { return Window.Data != nullptr; }
    int64_t InputSampleCount() const { return InputSamples; }
    size_t TailFrameCount() const { return TailFrames; }

private:
    // Makes Frames at least Floats long: zeroed a little at a time, so the
    // zeroes are in cache when overwritten; moved to a larger reservation
    // only when the file is longer than its container said.
    bool EnsureRoom(size_t Floats, Failure& Failed);

    AudioDecodeCore::Conversion Conversion;
    std::vector<float>& Frames;
    Prefaulter& Faults;
    const uint64_t MaxFloats;
    const uint64_t MaxDecodedBytes;
    const int Writer;
    const size_t FirstFloat;
    OutputWindow Window;
    size_t Written = 0;
    int64_t InputSamples = 0;
    size_t TailFrames = 0;
};
}  // namespace AudioDecodeDetail
