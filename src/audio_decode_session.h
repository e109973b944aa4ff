// The program's decoder (audio_decode.h), its input side: the chosen file
// opened by us, FFmpeg reading through our descriptor and nothing else, the
// FFmpeg objects of one decoding, and the packet loop over them.
//
// Index: Failures, Local file, Input, Session, Decoding.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "audio_decode_core.h"
#include "document_format.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVIOContext;
struct AVPacket;
struct SwrContext;
struct stat;

namespace AudioDecodeDetail
{
using AudioDecodeCore::Step;

constexpr char kCancelledMessage[] = "Opening cancelled.";

// --- Failures ---

// The first failure of a decoding wins; later ones are its consequences.
// Either thread may report. Its step says where, in the import's terms.
class Failure
{
public:
    void Set(Step Where, const std::string& Message)
    {
        std::lock_guard<std::mutex> lock(Lock);
        if (Text.empty())
        {
            Text = Message;
            FailedStep = Where;
        }
    }
    std::string Get() const
    {
        std::lock_guard<std::mutex> lock(Lock);
        return Text;
    }
    Step GetStep() const
    {
        std::lock_guard<std::mutex> lock(Lock);
        return FailedStep;
    }

private:
    mutable std::mutex Lock;
    std::string Text;
    Step FailedStep = Step::None;
};

// --- Local file ---

// Owns the descriptor of the chosen file; closing twice is harmless.
class LocalFile
{
public:
    LocalFile() = default;
    LocalFile(const LocalFile&) = delete;
    LocalFile& operator=(const LocalFile&) = delete;
    ~LocalFile() { Close(); }

    // Opens Path as a local regular file. Folders, FIFOs and devices are
    // refused before they are opened, and once more on the descriptor in
    // case the path changed in between; O_NONBLOCK keeps a FIFO from waiting
    // for a writer even then.
    bool Open(const std::string& Path, Failure& Failed);

    void Close();

    int Fd = -1;
    int64_t SizeBytes = 0;

private:
    // Only regular files are read, where FFmpeg would open anything.
    static bool CheckKind(const struct stat& Info, Failure& Failed);
};

// --- Input ---

// Bytes of the file that each of the two halves of a split decoding has
// decoded; progress is their sum.
struct ProgressTally
{
    std::atomic<int64_t> Bytes[2] = {};
};

// What FFmpeg's callbacks reach through their opaque pointer. The read side
// runs on the demux thread only.
struct InputState
{
    LocalFile File;
    int64_t PositionBytes = 0;
    const std::atomic<bool>* pCancel = nullptr;
    // The second half of a split decoding also stops when the first no
    // longer wants it.
    const std::atomic<bool>* pAbandon = nullptr;
    std::atomic<double>* pProgress = nullptr;
    bool bReportProgress = false;  // from the first packet on: probing jumps about
    int64_t CountedFromBytes = 0;  // where the part this thread decodes starts
    ProgressTally* pTally = nullptr;
    int TallySlot = 0;
    bool bNestedOpenRefused = false;

    bool Cancelled() const
    {
        return (pCancel && pCancel->load(std::memory_order_relaxed)) ||
               (pAbandon && pAbandon->load(std::memory_order_relaxed));
    }

    void ReportProgress();
};

// --- Session ---

// The objects of one decoding in the order of their making; the destructor
// releases them in reverse, on every way out.
struct DecodeSession
{
    InputState Input;
    AVIOContext* Io = nullptr;
    AVFormatContext* Format = nullptr;
    AVCodecContext* Codec = nullptr;
    SwrContext* Swr = nullptr;
    AVPacket* Packet = nullptr;
    std::vector<AVFrame*> Slots;  // where decoded frames wait for the resampler
    int StreamIndex = -1;
    AudioDecodeCore::Conversion Conversion;  // set up on Swr

    DecodeSession() = default;
    DecodeSession(const DecodeSession&) = delete;
    DecodeSession& operator=(const DecodeSession&) = delete;
    ~DecodeSession();

    // A failed FFmpeg call at FailedStep, in the user's words where we have
    // them. A cancel and a refused nested open are this decoder's own limits.
    void Fail(Step FailedStep, int Code, Failure& Failed) const;
};

// Everything one decoding needs, from the file to SlotCount frame slots, as
// the editor's import opens it; false with the failure in Failed.
bool OpenSession(DecodeSession& Session, const std::string& Path, size_t SlotCount, Failure& Failed);

// --- Decoding ---

// Where decoded frames go: a slot to decode into (null: stop), and the news
// that it holds a frame (false: stop).
// Optionally also told of each packet of the stream before it goes in.
struct FrameSink
{
    std::function<AVFrame*()> FreeSlot;
    std::function<bool(int CodecRate)> Filled;
    std::function<void(const AVPacket& Packet)> Next;
};

// One packet through the decoder; a packet of another stream, or one the
// decoder refuses, is skipped. False: stop.
bool DecodePacket(DecodeSession& Session, const AVPacket& Packet, const FrameSink& Sink);

// The packet loop of the editor's import, from wherever the demuxer is.
void DecodePackets(DecodeSession& Session, const FrameSink& Sink);
}  // namespace AudioDecodeDetail
