// The program's decoder (audio_decode.h): a long file's two halves decoded at
// once, one per core, and joined where the second half is shown to give the
// very frames a decoding from the start gives (see audio_decode_halves.cpp).
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "audio_decode.h"
#include "audio_decode_output.h"

namespace AudioDecodeDetail
{
// What the second half offers the first, once. The fields are written before
// the offer is made, and read only after it is seen.
struct SeamOffer
{
    int64_t PacketPts = 0;     // the time stamp of the middle packet
    int64_t PacketSample = 0;  // where that packet starts in the decoded stream, by the second half's count
    size_t SeamFrame = 0;      // the first output frame the second half gives
    std::vector<float> Head;   // kSeamCheckFrames frames from there

    void Offer()
    {
        bOffered.store(true, std::memory_order_release);
        Settle();
    }
    bool IsOffered() const { return bOffered.load(std::memory_order_acquire); }

    // The second half has offered, or never will.
    void Settle()
    {
        std::lock_guard<std::mutex> lock(Lock);
        bSettled = true;
        Settled.notify_all();
    }
    void WaitSettled()
    {
        std::unique_lock<std::mutex> lock(Lock);
        Settled.wait(lock, [this] { return bSettled; });
    }

private:
    std::atomic<bool> bOffered{false};
    std::mutex Lock;
    std::condition_variable Settled;
    bool bSettled = false;
};

struct SecondHalf
{
    std::vector<float>* pFrames = nullptr;  // its output where the shared room does not take it
    // The first half's buffer, whose room past where the first half can have
    // written before the seam check takes the output while it lasts (see
    // WindowFloat).
    float* pShared = nullptr;
    size_t SharedFloats = 0;
    size_t FirstFrame = 0;     // the frame of the whole that the output's first is
    size_t WrittenFloats = 0;  // set when its thread ends
    size_t WindowFloat = 0;    // set when its thread ends: where in pShared its output starts; 0: in *pFrames
    int64_t EndSample = 0;     // the source samples it read to, then
    size_t TailFrames = 0;     // of the resampler's tail, then
    SeamOffer Seam;
    std::atomic<bool> bAbandoned{false};  // set by the first half: stop, nothing is wanted
    Failure Failed;
};

// What the second half is told of the first.
struct HalfPlan
{
    std::string Path;
    const DecodeControl* pControl = nullptr;
    ProgressTally* pTally = nullptr;
    int StreamIndex = -1;
    int SampleRate = 0;
    int64_t MiddleSample = 0;
};

// Where a file says its samples are is trusted up to this (290 days at
// 44.1 kHz): the arithmetic on positions then stays far from overflow.
constexpr int64_t kMaxSamplePosition = int64_t(1) << 40;


// The first half on the calling thread through Convert, the second on a
// thread of its own into Half. Returns the seam's frame when the halves were
// joined there, 0 when the first half decoded everything.
size_t DecodeInHalves(const HalfPlan& Plan, DecodeSession& Session, Converter& Convert, Prefaulter& Faults,
                      SecondHalf& Half, Failure& Failed);

// The length of the joined output, in floats.
size_t JoinedFloats(size_t SeamFrame, const SecondHalf& Half);

// The first half's frames up to the seam, then the second half's; false with
// the second half's failure in Failed.
bool JoinHalves(std::vector<float>& Frames, size_t SeamFrame, const SecondHalf& Half, Failure& Failed);
}  // namespace AudioDecodeDetail
