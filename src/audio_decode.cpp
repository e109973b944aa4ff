// The program's decoder (see audio_decode.h).
//
// Index:
//   Messages      what the user reads, from errno and FFmpeg codes
//   Local file    a regular file opened by us, before FFmpeg sees anything
//   Input         FFmpeg reads through our descriptor; nested opens refused
//   Session       the FFmpeg objects of one decoding, released in reverse
//   Output        the frame buffer (and a spare for its copy): reserved
//                 once, grown in small steps, pages faulted ahead by a thread
//   Conversion    one swr_convert per decoded frame, as the editor does
//   Frame queue   decoded frames from the demux/decode thread to the resampler
//   Decoding      the packet loop, on one thread or as a two-stage pipeline
//   Halves        a long file's two halves decoded at once, joined exactly
//   Entry point
//
// The frames must equal the editor's own import sample for sample, so the
// resampler is set up with the same arguments and fed the same frames in the
// same order with the same output room, and it is never drained at the end.

#include "audio_decode.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <mutex>
#include <new>
#include <numeric>
#include <thread>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/mathematics.h>
#include <libavutil/mem.h>
#include <libswresample/swresample.h>
}

#include "large_buffer.h"

namespace
{
constexpr int kOutRate = 48000;
constexpr int kOutChannels = 2;
// Larger than FFmpeg's 32 KiB default: fewer read calls on an hour of audio.
constexpr int kIoBufferBytes = 256 << 10;
// Decoded frames in flight between the two threads: a few hundred
// milliseconds of audio, a few MB at most.
constexpr size_t kQueueFrames = 64;
// The output grows by this much at a time: small enough that the zeroes the
// vector writes are still in cache when the resampler overwrites them.
constexpr size_t kGrowFloats = size_t(64) << 10;
// Fault-ahead steps, and how far ahead of the writer they may go (so that a
// header claiming three hours for one minute costs no real memory).
constexpr size_t kPrefaultStepBytes = size_t(2) << 20;
constexpr size_t kPrefaultAheadBytes = size_t(64) << 20;

// --- Messages ---

const char* const kCancelledMessage = "Opening cancelled.";
const char* const kNotAudioMessage = "Not an audio file.";

std::string FfmpegErrorText(int Code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(Code, text, sizeof text);
    return text;
}

std::string SystemErrorMessage(int Code)
{
    if (Code == ENOENT || Code == ENOTDIR)
        return "File not found.";
    return std::string("Cannot open the file: ") + std::strerror(Code) + ".";
}

std::string SizeText(uint64_t Bytes)
{
    char text[64];
    if (Bytes >= (uint64_t(1) << 30))
        std::snprintf(text, sizeof text, "%.1f GiB", static_cast<double>(Bytes) / double(uint64_t(1) << 30));
    else
        std::snprintf(text, sizeof text, "%.1f MiB", static_cast<double>(Bytes) / double(1 << 20));
    return text;
}

// The first failure of a decoding wins; later ones are its consequences.
// Either thread may report.
class Failure
{
public:
    void Set(const std::string& Message)
    {
        std::lock_guard<std::mutex> lock(Lock);
        if (Text.empty())
            Text = Message;
    }
    std::string Get() const
    {
        std::lock_guard<std::mutex> lock(Lock);
        return Text;
    }

private:
    mutable std::mutex Lock;
    std::string Text;
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
    bool Open(const std::string& Path, std::string& OutMessage)
    {
        struct stat info = {};
        if (Path.empty() || stat(Path.c_str(), &info) != 0)
        {
            OutMessage = SystemErrorMessage(Path.empty() ? ENOENT : errno);
            return false;
        }
        if (!CheckKind(info, OutMessage))
            return false;
        Fd = open(Path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
        if (Fd < 0)
        {
            OutMessage = SystemErrorMessage(errno);
            return false;
        }
        if (fstat(Fd, &info) != 0)
        {
            OutMessage = SystemErrorMessage(errno);
            return false;
        }
        SizeBytes = static_cast<int64_t>(info.st_size);
        return CheckKind(info, OutMessage);
    }

    void Close()
    {
        if (Fd >= 0)
            close(Fd);
        Fd = -1;
    }

    int Fd = -1;
    int64_t SizeBytes = 0;

private:
    static bool CheckKind(const struct stat& Info, std::string& OutMessage)
    {
        if (S_ISDIR(Info.st_mode))
            OutMessage = "That is a folder, not an audio file.";
        else if (!S_ISREG(Info.st_mode))
            OutMessage = "Not a regular file (a pipe or a device).";
        else
            return true;
        return false;
    }
};

// --- Input ---

// What FFmpeg's callbacks reach through their opaque pointer. The read side
// runs on the demux thread only.
// Bytes of the file that each of the two halves of a split decoding has
// decoded; progress is their sum.
struct ProgressTally
{
    std::atomic<int64_t> Bytes[2] = {};
};

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

    void ReportProgress()
    {
        if (!bReportProgress || !pProgress || File.SizeBytes <= 0)
            return;
        int64_t done = std::max<int64_t>(0, PositionBytes - CountedFromBytes);
        if (pTally)
        {
            pTally->Bytes[TallySlot].store(done, std::memory_order_relaxed);
            done = pTally->Bytes[0].load(std::memory_order_relaxed) + pTally->Bytes[1].load(std::memory_order_relaxed);
        }
        const double share = std::min(1.0, static_cast<double>(done) / File.SizeBytes);
        // Never backwards: a demuxer may seek back a little, and two halves
        // report in turn.
        double shown = pProgress->load(std::memory_order_relaxed);
        while (share > shown && !pProgress->compare_exchange_weak(shown, share, std::memory_order_relaxed))
        {
        }
    }
};

int ReadInput(void* Opaque, uint8_t* Buffer, int Size)
{
    auto* input = static_cast<InputState*>(Opaque);
    if (input->Cancelled())
        return AVERROR_EXIT;
    ssize_t got;
    do
        got = read(input->File.Fd, Buffer, static_cast<size_t>(Size));
    while (got < 0 && errno == EINTR);
    if (got < 0)
        return AVERROR(errno);
    if (got == 0)
        return AVERROR_EOF;
    input->PositionBytes += got;
    input->ReportProgress();
    return static_cast<int>(got);
}

int64_t SeekInput(void* Opaque, int64_t Offset, int Whence)
{
    auto* input = static_cast<InputState*>(Opaque);
    if (Whence & AVSEEK_SIZE)
        return input->File.SizeBytes;
    const off_t at = lseek(input->File.Fd, static_cast<off_t>(Offset), Whence & ~AVSEEK_FORCE);
    if (at < 0)
        return AVERROR(errno);
    input->PositionBytes = at;
    return at;
}

int InputInterrupted(void* Opaque)
{
    return static_cast<const InputState*>(Opaque)->Cancelled() ? 1 : 0;
}

// A playlist, a concat list or a reference inside the chosen file asks to
// open another one: nothing but the chosen file is ever read.
int RefuseNestedOpen(AVFormatContext* Format, AVIOContext** /*OutIo*/, const char* /*Url*/, int /*Flags*/,
                     AVDictionary** /*Options*/)
{
    if (auto* input = static_cast<InputState*>(Format->opaque))
        input->bNestedOpenRefused = true;
    return AVERROR(EPERM);
}

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

    DecodeSession() = default;
    DecodeSession(const DecodeSession&) = delete;
    DecodeSession& operator=(const DecodeSession&) = delete;
    ~DecodeSession()
    {
        for (auto it = Slots.rbegin(); it != Slots.rend(); ++it)
            av_frame_free(&*it);
        av_packet_free(&Packet);
        swr_free(&Swr);
        avcodec_free_context(&Codec);
        avformat_close_input(&Format);  // leaves our own I/O context alone
        if (Io)
            av_freep(&Io->buffer);  // FFmpeg may have replaced the one we gave
        avio_context_free(&Io);
        // Input closes the descriptor as the last member to go.
    }

    // A message for a failed FFmpeg call, in the user's words where we have them.
    std::string Explain(int Code) const
    {
        if (Input.Cancelled())
            return kCancelledMessage;
        if (Input.bNestedOpenRefused)
            return "That file points to other files (a playlist or a list); only the chosen file is read.";
        // What a demuxer says when the bytes make no sense to it; a short
        // file's seek past its end ends as EINVAL.
        if (Code == AVERROR_INVALIDDATA || Code == AVERROR_STREAM_NOT_FOUND || Code == AVERROR_EOF ||
            Code == AVERROR(EINVAL) || Code == AVERROR_DEMUXER_NOT_FOUND)
            return kNotAudioMessage;
        return "Cannot read the audio: " + FfmpegErrorText(Code) + ".";
    }
};

// The demuxer on our descriptor. The URL is given with its protocol named, so
// nothing in it is read as one. The whitelist says what this reads: local
// files only. The chosen one comes through our own I/O context, so the file
// protocol is blacklisted as well: a demuxer that opens a nested format
// context past io_open (a concat list does) hands both lists on, and that
// nested open is refused.
bool OpenDemuxer(DecodeSession& Session, const std::string& Path, std::string& OutMessage)
{
    auto* buffer = static_cast<unsigned char*>(av_malloc(kIoBufferBytes));
    if (!buffer)
    {
        OutMessage = "Not enough memory to open the file.";
        return false;
    }
    Session.Io = avio_alloc_context(buffer, kIoBufferBytes, 0, &Session.Input, ReadInput, nullptr, SeekInput);
    if (!Session.Io)
    {
        av_free(buffer);
        OutMessage = "Not enough memory to open the file.";
        return false;
    }
    Session.Format = avformat_alloc_context();
    if (!Session.Format)
    {
        OutMessage = "Not enough memory to open the file.";
        return false;
    }
    Session.Format->pb = Session.Io;
    Session.Format->opaque = &Session.Input;
    Session.Format->io_open = RefuseNestedOpen;
    Session.Format->interrupt_callback = {InputInterrupted, &Session.Input};

    AVDictionary* options = nullptr;
    int rc = av_dict_set(&options, "protocol_whitelist", "file", 0);
    if (rc >= 0)
        rc = av_dict_set(&options, "protocol_blacklist", "file", 0);
    const std::string url = "file:" + Path;
    if (rc >= 0)
        rc = avformat_open_input(&Session.Format, url.c_str(), nullptr, &options);  // frees Format on failure
    av_dict_free(&options);
    if (rc >= 0)
        rc = avformat_find_stream_info(Session.Format, nullptr);
    if (rc < 0)
    {
        OutMessage = Session.Explain(rc);
        return false;
    }
    return true;
}

// Best audio stream, its decoder and the resampler, as the editor's import
// sets them up.
bool OpenDecoder(DecodeSession& Session, std::string& OutMessage)
{
    const int index = av_find_best_stream(Session.Format, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (index < 0)
    {
        OutMessage = Session.Explain(index);
        return false;
    }
    Session.StreamIndex = index;
    const AVCodecParameters* parameters = Session.Format->streams[index]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    if (!codec)
    {
        OutMessage = std::string("No decoder here for this audio (") + avcodec_get_name(parameters->codec_id) + ").";
        return false;
    }
    Session.Codec = avcodec_alloc_context3(codec);
    if (!Session.Codec)
    {
        OutMessage = "Not enough memory to open the decoder.";
        return false;
    }
    int rc = avcodec_parameters_to_context(Session.Codec, parameters);
    if (rc >= 0)
        rc = avcodec_open2(Session.Codec, codec, nullptr);
    if (rc < 0)
    {
        OutMessage = Session.Explain(rc);
        return false;
    }
    return true;
}

// Far above any recording (SDR I/Q at a few MHz, DSD at 1.4 to 2.8 MHz as
// FFmpeg reports it): a header that states more is damaged, and converting
// what it claims takes seconds a frame. Such a file is refused here, before
// it reaches the editor, which converts any rate the resampler accepts.
constexpr int kMostSourceRateHz = 100'000'000;

bool OpenResampler(DecodeSession& Session, std::string& OutMessage)
{
    if (Session.Codec->sample_rate > kMostSourceRateHz)
    {
        OutMessage = "The file states a sample rate of " + std::to_string(Session.Codec->sample_rate) +
                     " Hz, beyond any recording: its header is damaged.";
        return false;
    }
    AVChannelLayout outLayout;
    av_channel_layout_default(&outLayout, kOutChannels);
    AVChannelLayout inputLayout = {};
    int rc = 0;
    if (Session.Codec->ch_layout.nb_channels > 0)
        rc = av_channel_layout_copy(&inputLayout, &Session.Codec->ch_layout);
    else
        av_channel_layout_default(&inputLayout, kOutChannels);
    if (rc >= 0)
        rc = swr_alloc_set_opts2(&Session.Swr, &outLayout, AV_SAMPLE_FMT_FLT, kOutRate, &inputLayout,
                                 Session.Codec->sample_fmt, Session.Codec->sample_rate, 0, nullptr);
    av_channel_layout_uninit(&outLayout);
    av_channel_layout_uninit(&inputLayout);
    if (rc >= 0 && Session.Swr)
        rc = swr_init(Session.Swr);
    if (rc < 0 || !Session.Swr)
    {
        OutMessage = "Cannot convert this audio: " + FfmpegErrorText(rc < 0 ? rc : AVERROR(EINVAL)) + ".";
        return false;
    }
    return true;
}

bool AllocateBuffers(DecodeSession& Session, size_t SlotCount, std::string& OutMessage)
{
    Session.Packet = av_packet_alloc();
    bool ok = Session.Packet != nullptr;
    for (size_t i = 0; ok && i < SlotCount; ++i)
    {
        Session.Slots.push_back(av_frame_alloc());
        ok = Session.Slots.back() != nullptr;
    }
    if (!ok)
        OutMessage = "Not enough memory to decode.";
    return ok;
}

// Everything one decoding needs, from the file to the frame slots.
bool OpenSession(DecodeSession& Session, const std::string& Path, size_t SlotCount, std::string& OutMessage)
{
    return Session.Input.File.Open(Path, OutMessage) && OpenDemuxer(Session, Path, OutMessage) &&
           OpenDecoder(Session, OutMessage) && OpenResampler(Session, OutMessage) &&
           AllocateBuffers(Session, SlotCount, OutMessage);
}

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
    void AddRegion(void* Data, size_t Bytes, unsigned Writers = kAllWriters)
    {
        const uintptr_t begin = reinterpret_cast<uintptr_t>(Data);
        const uintptr_t aligned = (begin + kPageBytes - 1) & ~(kPageBytes - 1);
        if (Data && aligned < begin + Bytes)
            Regions.push_back({reinterpret_cast<char*>(aligned), begin + Bytes - aligned, 0, Writers});
    }

    // One thread per region, up to two: where the host backs fresh pages on
    // first touch, two threads fault them in at nearly twice the speed of one.
    void Start()
    {
        const size_t workers = std::min<size_t>(Regions.size(), kMaxWorkers);
        for (size_t worker = 0; worker < workers; ++worker)
            Workers.emplace_back([this, worker, workers] { Run(worker, workers); });
    }

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
    void EndWhen(bool& bFlag)
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

    // Steps through its regions in turn, each up to the same distance past
    // the writers, and naps while the writers catch up.
    void Run(size_t Worker, size_t Workers)
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

    // How far a region is to be faulted in: ahead of its writers while they
    // write, to the output's end once they are done.
    size_t LimitOf(const Region& R, bool bLast) const
    {
        if (bLast)
            return R.Writers == kAllWriters ? std::min(R.EndBytes, FinalBytes.load(std::memory_order_relaxed)) : 0;
        size_t written = 0;
        for (int writer = 0; writer < 2; ++writer)
            if (R.Writers & (1u << writer))
                written += WrittenBytes[writer].load(std::memory_order_relaxed);
        return std::min(R.EndBytes, written + kPrefaultAheadBytes);
    }

    bool StepInto(Region& R, bool bLast)
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
// as the editor's import reserves it, and no more than the bound allows.
// Returns the floats expected (0 when the container does not say): the
// reservation has headroom beyond.
size_t ReserveForDuration(std::vector<float>& Frames, const AVFormatContext* Format, int64_t FileBytes,
                          uint64_t MaxDecodedBytes)
{
    if (Format->duration <= 0)
        return 0;
    const double floats = LargeBuffer::FloatsToReserveForDecoding(
        static_cast<double>(Format->duration) / AV_TIME_BASE, FileBytes);
    const size_t bounded = std::min<uint64_t>(static_cast<size_t>(floats), MaxDecodedBytes / sizeof(float) + 1);
    LargeBuffer::ReserveFloats(Frames, bounded);
    return bounded;
}

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
        : Swr(Session.Swr),
          InputFormat(Session.Codec->sample_fmt),
          InputChannels(Session.Codec->ch_layout.nb_channels),
          Frames(Frames),
          Faults(Faults),
          MaxFloats(MaxDecodedBytes / sizeof(float)),
          MaxDecodedBytes(MaxDecodedBytes),
          Writer(Writer),
          FirstFloat(FirstFloat),
          Window(Window)
    {
    }

    // One decoded frame, from its sample FromSample on. CodecRate is the
    // decoder's rate when the frame came out, which the editor sizes the
    // output room by. False ends the decoding, with a message in Failed when
    // it is an error.
    bool Convert(const AVFrame* Frame, int CodecRate, Failure& Failed, int FromSample = 0)
    {
        // The editor's import would read planes the frame does not have; a
        // stream that changes its format midway ends there instead.
        if (Frame->format != InputFormat || (InputChannels > 0 && Frame->ch_layout.nb_channels != InputChannels))
            return false;
        const int samples = Frame->nb_samples - FromSample;
        const int rate = std::max(CodecRate, 1);
        const int64_t delay = swr_get_delay(Swr, rate);
        const int64_t wanted = std::max<int64_t>(1, av_rescale_rnd(delay + samples, kOutRate, rate, AV_ROUND_UP));
        // One frame of room beyond the bound tells "more than allowed" from "all
        // of it" without changing what the resampler does below the bound.
        const size_t whole = FirstFloat + Written;
        const int64_t allowed = static_cast<int64_t>((MaxFloats - std::min(MaxFloats, whole)) / kOutChannels) + 1;
        const int room = static_cast<int>(std::min({wanted, allowed, int64_t(INT32_MAX / kOutChannels)}));
        if (!EnsureRoom(Written + static_cast<size_t>(room) * kOutChannels, Failed))
            return false;
        uint8_t* outData[1] = {reinterpret_cast<uint8_t*>(Data() + Written)};
        const int made = swr_convert(Swr, outData, room, InputFrom(Frame, FromSample), samples);
        if (made < 0)
        {
            Failed.Set("Failed while resampling audio: " + FfmpegErrorText(made) + ".");
            return false;
        }
        Written += static_cast<size_t>(made) * kOutChannels;
        InputSamples += samples;
        Faults.SetWritten(Writer, Written * sizeof(float));
        return WithinBound(Failed);
    }

    bool WithinBound(Failure& Failed)
    {
        if (FirstFloat + Written <= MaxFloats)
            return true;
        Failed.Set("The audio is longer than the limit of " + SizeText(MaxDecodedBytes) +
                   " of decoded samples; opening stopped.");
        return false;
    }

    // The frames the resampler still holds at the end of the stream, after
    // the rest. The editor's import never asks for them.
    bool Flush(Failure& Failed)
    {
        const int room = swr_get_out_samples(Swr, 0);
        if (room <= 0)
            return room == 0;
        if (!EnsureRoom(Written + static_cast<size_t>(room) * kOutChannels, Failed))
            return false;
        uint8_t* outData[1] = {reinterpret_cast<uint8_t*>(Data() + Written)};
        const int made = swr_convert(Swr, outData, room, nullptr, 0);
        if (made < 0)
        {
            Failed.Set("Failed while resampling audio: " + FfmpegErrorText(made) + ".");
            return false;
        }
        Written += static_cast<size_t>(made) * kOutChannels;
        TailFrames = static_cast<size_t>(made);
        Faults.SetWritten(Writer, Written * sizeof(float));
        return WithinBound(Failed);
    }

    size_t WrittenFloats() const { return Written; }
    // The output so far: in the window while it lasts, else in Frames.
    const float* Data() const { return Window.Data ? Window.Data : Frames.data(); }
    float* Data() { return Window.Data ? Window.Data : Frames.data(); }
    bool IsInWindow() const { return Window.Data != nullptr; }
    int64_t InputSampleCount() const { return InputSamples; }
    size_t TailFrameCount() const { return TailFrames; }

private:
    // The frame's planes from sample FromSample on: the frame's own pointers
    // when that is the first.
    const uint8_t** InputFrom(const AVFrame* Frame, int FromSample)
    {
        auto** planes = const_cast<const uint8_t**>(Frame->extended_data);
        if (FromSample == 0)
            return planes;
        const bool bPlanar = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(Frame->format));
        const int channels = Frame->ch_layout.nb_channels;
        const size_t skipBytes =
            static_cast<size_t>(FromSample) * av_get_bytes_per_sample(static_cast<AVSampleFormat>(Frame->format)) *
            (bPlanar ? 1 : channels);
        Planes.assign(planes, planes + (bPlanar ? channels : 1));
        for (const uint8_t*& plane : Planes)
            plane += skipBytes;
        return Planes.data();
    }

    // Makes Frames at least Floats long: zeroed a little at a time, so the
    // zeroes are in cache when overwritten; moved to a larger reservation
    // only when the file is longer than its container said.
    bool EnsureRoom(size_t Floats, Failure& Failed)
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
            Failed.Set("Not enough memory to hold the audio.");
            return false;
        }
        return true;
    }

    SwrContext* Swr;
    const int InputFormat;
    const int InputChannels;
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
    std::vector<const uint8_t*> Planes;
};

// --- Frame queue ---

// A ring over the session's frame slots. The decoder fills the slot at the
// tail, the resampler converts the one at the head. A side that has to wait
// sleeps until the other side is half way, so that two threads of about the
// same speed do not wake each other for every frame.
class FrameQueue
{
public:
    explicit FrameQueue(std::vector<AVFrame*>& Slots) : Slots(Slots), Rates(Slots.size()) {}

    // Decoder side: the slot to decode into next, or null once the resampler
    // has stopped.
    AVFrame* FreeSlot()
    {
        std::unique_lock<std::mutex> lock(Lock);
        if (Count == Slots.size())
            WaitIdle(lock, bDecoderWaiting, [this] { return bStopped || Count <= Slots.size() / 2; });
        return bStopped ? nullptr : Slots[(Head + Count) % Slots.size()];
    }

    // Decoder side: the free slot holds a frame decoded at CodecRate.
    void Publish(int CodecRate)
    {
        std::lock_guard<std::mutex> lock(Lock);
        Rates[(Head + Count) % Slots.size()] = CodecRate;
        ++Count;
        if (bResamplerWaiting && Count >= Slots.size() / 2)
            Changed.notify_all();
    }

    // Decoder side: nothing more will come.
    void Close()
    {
        std::lock_guard<std::mutex> lock(Lock);
        bClosed = true;
        Changed.notify_all();
    }

    // Resampler side: the oldest decoded frame, or null when the decoder has
    // closed and everything is converted.
    AVFrame* Oldest(int& OutCodecRate)
    {
        std::unique_lock<std::mutex> lock(Lock);
        if (Count == 0)
            WaitIdle(lock, bResamplerWaiting, [this] { return bClosed || Count >= Slots.size() / 2; });
        if (Count == 0)
            return nullptr;
        OutCodecRate = Rates[Head];
        return Slots[Head];
    }

    // Resampler side: the oldest frame is converted; its slot is free again.
    void Release()
    {
        av_frame_unref(Slots[Head]);
        std::lock_guard<std::mutex> lock(Lock);
        Head = (Head + 1) % Slots.size();
        --Count;
        if (bDecoderWaiting && Count <= Slots.size() / 2)
            Changed.notify_all();
    }

    // Resampler side: no more frames are wanted.
    void Stop()
    {
        std::lock_guard<std::mutex> lock(Lock);
        bStopped = true;
        Changed.notify_all();
    }

private:
    template <typename Ready>
    void WaitIdle(std::unique_lock<std::mutex>& Held, bool& bWaiting, Ready IsReady)
    {
        bWaiting = true;
        Changed.wait(Held, IsReady);
        bWaiting = false;
    }

    std::vector<AVFrame*>& Slots;
    std::vector<int> Rates;
    std::mutex Lock;
    std::condition_variable Changed;
    size_t Head = 0;
    size_t Count = 0;
    // Each side's own flag: one side may still be on its way out of a wait
    // when the other starts one.
    bool bDecoderWaiting = false;
    bool bResamplerWaiting = false;
    bool bClosed = false;
    bool bStopped = false;
};

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

// Every frame the decoder has for now, as the editor's import takes them:
// any result but a frame ends the round.
bool ReceiveFrames(DecodeSession& Session, const FrameSink& Sink)
{
    for (;;)
    {
        AVFrame* slot = Sink.FreeSlot();
        if (!slot)
            return false;
        if (avcodec_receive_frame(Session.Codec, slot) != 0)
            return true;
        if (!Sink.Filled(Session.Codec->sample_rate))
            return false;
    }
}

// One packet through the decoder; a packet of another stream, or one the
// decoder refuses, is skipped. False: stop.
bool DecodePacket(DecodeSession& Session, const AVPacket& Packet, const FrameSink& Sink)
{
    if (Packet.stream_index != Session.StreamIndex)
        return true;
    if (Sink.Next)
        Sink.Next(Packet);
    if (avcodec_send_packet(Session.Codec, &Packet) != 0)
        return true;
    return ReceiveFrames(Session, Sink);
}

// The packet loop of the editor's import, from wherever the demuxer is: a
// read error or a damaged packet ends or skips as it does there. Progress
// starts with the first packet.
void DecodePackets(DecodeSession& Session, const FrameSink& Sink)
{
    Session.Input.bReportProgress = true;
    bool ok = true;
    while (ok && !Session.Input.Cancelled() && av_read_frame(Session.Format, Session.Packet) >= 0)
    {
        ok = DecodePacket(Session, *Session.Packet, Sink);
        av_packet_unref(Session.Packet);
    }
    if (ok && !Session.Input.Cancelled() && avcodec_send_packet(Session.Codec, nullptr) == 0)
        ReceiveFrames(Session, Sink);
}

void DecodeOnOneThread(DecodeSession& Session, Converter& Convert, Failure& Failed)
{
    AVFrame* slot = Session.Slots.front();
    FrameSink sink;
    sink.FreeSlot = [slot] { return slot; };
    sink.Filled = [&](int CodecRate) {
        const bool ok = !Session.Input.Cancelled() && Convert.Convert(slot, CodecRate, Failed);
        av_frame_unref(slot);
        return ok;
    };
    DecodePackets(Session, sink);
}

// Demuxing and decoding on the calling thread, resampling on a second one.
void DecodeAsPipeline(DecodeSession& Session, Converter& Convert, Failure& Failed)
{
    FrameQueue queue(Session.Slots);
    std::thread resampler([&] {
        int codecRate = 0;
        while (const AVFrame* frame = queue.Oldest(codecRate))
        {
            const bool ok = !Session.Input.Cancelled() && Convert.Convert(frame, codecRate, Failed);
            queue.Release();
            if (!ok)
                break;
        }
        queue.Stop();
    });
    FrameSink sink;
    sink.FreeSlot = [&] { return queue.FreeSlot(); };
    sink.Filled = [&](int CodecRate) {
        queue.Publish(CodecRate);
        return true;
    };
    DecodePackets(Session, sink);
    queue.Close();
    resampler.join();
    // Frames the resampler did not get to go back to the decoder's pool here,
    // before the decoder is freed.
    for (AVFrame* slot : Session.Slots)
        av_frame_unref(slot);
}

// --- Halves ---
//
// A long file decodes as two halves at once, one per core: the calling
// thread from the start, a second thread from the middle on. The second half
// must give the very frames a decoding from the start gives there:
// - its place in the decoded stream comes from the packets' time stamps,
//   counted from where the first decoded sample sits (FindOrigin);
// - it decodes kWarmupPackets packets before the middle and throws their
//   output away, so that an MP3's bit reservoir, a transform's overlap and
//   the like are what they would be;
// - its resampler starts a few packets before the middle, on an input sample
//   at the start of the resampler's cycle (InputCycle samples in, OutputCycle
//   frames out), so that every output frame has the phase it has in the whole;
// - its output is kept from the end of a cycle on: the seam.
// The first half decodes a little past the seam and checks it: the second
// half's place for the middle packet must be the count of samples the first
// decoded before that packet, and the frames after the seam must agree. A
// file without time stamps, a check that fails, or a second half that fails
// to start leaves the rest to the first thread, as without halves.

constexpr int kWarmupPackets = 16;
// The last of the warm-up packets also go through the resampler.
constexpr int kResamplerLeadPackets = 4;
constexpr size_t kSeamCheckFrames = 4800;  // 100 ms
constexpr float kSeamTolerance = 1e-6f;
// A rate whose cycle is longer than this many samples is decoded whole.
constexpr int64_t kMaxInputCycle = 4096;
// A stream that decodes to nothing for this many packets is decoded whole.
constexpr int kOriginPackets = 64;

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

// A time or a length of the stream in samples of the decoder's rate; false
// when the file gives none, or one beyond any real file.
bool InSamples(const DecodeSession& Session, int64_t StreamTime, int64_t& OutSamples)
{
    if (StreamTime == AV_NOPTS_VALUE)
        return false;
    OutSamples = av_rescale_q(StreamTime, Session.Format->streams[Session.StreamIndex]->time_base,
                              AVRational{1, Session.Codec->sample_rate});
    return OutSamples > -kMaxSamplePosition && OutSamples < kMaxSamplePosition;
}

// The sample that time stamps count from: the first packet that decodes to
// anything starts at its time stamp plus what the decoder trimmed off its
// front (an MP3's encoder delay, an AAC's priming). Leaves the decoder
// flushed, the demuxer after that packet.
bool FindOrigin(DecodeSession& Session, int64_t& OutOrigin)
{
    AVFrame* frame = Session.Slots.front();
    bool bFound = false, bStamped = true;
    for (int packets = 0; !bFound && bStamped && packets < kOriginPackets &&
                          av_read_frame(Session.Format, Session.Packet) >= 0;)
    {
        const AVPacket& packet = *Session.Packet;
        int64_t start = 0, length = 0;
        if (packet.stream_index == Session.StreamIndex &&
            (bStamped = InSamples(Session, packet.pts, start) && InSamples(Session, packet.duration, length)))
        {
            ++packets;
            int64_t decoded = 0;
            if (avcodec_send_packet(Session.Codec, &packet) == 0)
                while (avcodec_receive_frame(Session.Codec, frame) == 0)
                {
                    decoded += frame->nb_samples;
                    av_frame_unref(frame);
                }
            bFound = decoded > 0;
            OutOrigin = start + length - decoded;
        }
        av_packet_unref(Session.Packet);
    }
    avcodec_flush_buffers(Session.Codec);
    return bFound;
}

// The last kWarmupPackets packets read, oldest first.
class PacketRing
{
public:
    PacketRing()
    {
        for (AVPacket*& packet : Packets)
            if (!(packet = av_packet_alloc()))
                throw std::bad_alloc();
    }
    PacketRing(const PacketRing&) = delete;
    PacketRing& operator=(const PacketRing&) = delete;
    ~PacketRing()
    {
        for (auto it = std::rbegin(Packets); it != std::rend(Packets); ++it)
            av_packet_free(&*it);
    }

    bool IsFull() const { return Count == kWarmupPackets; }

    // Takes Packet's reference; the oldest goes when full.
    void Push(AVPacket* Packet)
    {
        AVPacket* slot = Packets[(First + Count) % kWarmupPackets];
        av_packet_unref(slot);
        av_packet_move_ref(slot, Packet);
        if (IsFull())
            First = (First + 1) % kWarmupPackets;
        else
            ++Count;
    }

    const AVPacket& operator[](int Index) const { return *Packets[(First + Index) % kWarmupPackets]; }

private:
    AVPacket* Packets[kWarmupPackets] = {};
    int First = 0;
    int Count = 0;
};

// Reads on to the first packet of the stream that starts at or after
// MiddleSample, keeping the ones before it in Ring. The packet stays in
// Session.Packet; OutSample is where it starts.
bool ReadToMiddle(DecodeSession& Session, int64_t Origin, int64_t MiddleSample, PacketRing& Ring, int64_t& OutSample)
{
    while (!Session.Input.Cancelled() && av_read_frame(Session.Format, Session.Packet) >= 0)
    {
        int64_t sample = 0;
        if (Session.Packet->stream_index != Session.StreamIndex)
            av_packet_unref(Session.Packet);
        else if (!InSamples(Session, Session.Packet->pts, sample))
            break;
        else if (sample - Origin >= MiddleSample && Ring.IsFull())
        {
            OutSample = sample - Origin;
            return true;
        }
        else
            Ring.Push(Session.Packet);
    }
    av_packet_unref(Session.Packet);
    return false;
}

int64_t RoundUpTo(int64_t Value, int64_t Step)
{
    return (Value + Step - 1) / Step * Step;
}

// Between what the first half can have written when it checks the seam and
// where the second half's output starts in a shared buffer: more than any
// one decoded frame adds, with the room the converter clears ahead.
constexpr size_t kWindowGapFloats = size_t(1) << 20;

// The middle of the file in output floats: both halves know it before the seam.
size_t MiddleFloat(const HalfPlan& Plan)
{
    return static_cast<size_t>(av_rescale(Plan.MiddleSample, kOutRate, Plan.SampleRate)) * kOutChannels;
}

// Where the second half's output starts in the first half's buffer.
size_t WindowStartFloat(const HalfPlan& Plan, size_t SeamFrame)
{
    return std::max((SeamFrame + kSeamCheckFrames) * kOutChannels, MiddleFloat(Plan)) + kWindowGapFloats;
}

// The second half, on its own thread with its own file, demuxer, decoder and
// resampler. Gives up quietly where it cannot be exact: the first half then
// decodes on to the end.
void DecodeSecondHalfOrGiveUp(const HalfPlan& Plan, Prefaulter& Faults, SecondHalf& Half)
{
    DecodeSession session;
    session.Input.pCancel = Plan.pControl->pCancel;
    session.Input.pAbandon = &Half.bAbandoned;
    session.Input.pProgress = Plan.pControl->pProgress;
    session.Input.pTally = Plan.pTally;
    session.Input.TallySlot = 1;
    std::string ignored;
    if (Plan.SampleRate <= 0 || !OpenSession(session, Plan.Path, 1, ignored) ||
        session.StreamIndex != Plan.StreamIndex || session.Codec->sample_rate != Plan.SampleRate)
        return;
    const int64_t divisor = std::gcd<int64_t>(Plan.SampleRate, kOutRate);
    const int64_t inputCycle = Plan.SampleRate / divisor, outputCycle = kOutRate / divisor;
    int64_t origin = 0, middle = 0, lead = 0;
    PacketRing ring;
    if (inputCycle > kMaxInputCycle || !FindOrigin(session, origin) ||
        !ReadToMiddle(session, origin, Plan.MiddleSample, ring, middle) ||
        !InSamples(session, ring[kWarmupPackets - kResamplerLeadPackets].pts, lead))
        return;
    lead -= origin;
    const int64_t firstInput = RoundUpTo(lead, inputCycle);
    if (lead < 0 || firstInput >= middle)
        return;
    Half.FirstFrame = static_cast<size_t>(firstInput / inputCycle * outputCycle);
    Half.Seam.PacketPts = session.Packet->pts;
    Half.Seam.PacketSample = middle;
    Half.Seam.SeamFrame = static_cast<size_t>(RoundUpTo(middle, inputCycle) / inputCycle * outputCycle);
    const size_t seamFloat = (Half.Seam.SeamFrame - Half.FirstFrame) * kOutChannels;
    OutputWindow window;
    const size_t windowFloat = WindowStartFloat(Plan, Half.Seam.SeamFrame);
    if (Half.pShared && windowFloat < Half.SharedFloats)
        window = {Half.pShared + windowFloat, Half.SharedFloats - windowFloat};

    Converter convert(session, *Half.pFrames, Faults, Plan.pControl->MaxDecodedBytes, 1,
                      Half.FirstFrame * kOutChannels, window);
    AVFrame* slot = session.Slots.front();
    bool bFeeding = false;
    int64_t toSkip = firstInput - lead, fed = 0;
    FrameSink sink;
    sink.FreeSlot = [slot] { return slot; };
    sink.Filled = [&](int CodecRate) {
        bool ok = true;
        if (bFeeding)
        {
            const int skip = static_cast<int>(std::min<int64_t>(toSkip, slot->nb_samples));
            toSkip -= skip;
            fed += slot->nb_samples;
            if (skip < slot->nb_samples)
                ok = !session.Input.Cancelled() && convert.Convert(slot, CodecRate, Half.Failed, skip);
        }
        av_frame_unref(slot);
        const size_t headEnd = seamFloat + kSeamCheckFrames * kOutChannels;
        if (ok && !Half.Seam.IsOffered() && convert.WrittenFloats() >= headEnd)
        {
            Half.Seam.Head.assign(convert.Data() + seamFloat, convert.Data() + headEnd);
            Half.Seam.Offer();
        }
        return ok;
    };
    bool ok = true;
    for (int i = 0; ok && i < kWarmupPackets; ++i)
    {
        bFeeding = bFeeding || i == kWarmupPackets - kResamplerLeadPackets;
        ok = DecodePacket(session, ring[i], sink);
    }
    // The packets before the middle must have decoded to as many samples as
    // their time stamps say, or the resampler's phase would be off.
    ok = ok && fed == middle - lead && DecodePacket(session, *session.Packet, sink);
    av_packet_unref(session.Packet);
    if (ok)
    {
        session.Input.CountedFromBytes = session.Input.PositionBytes;
        DecodePackets(session, sink);
        if (!session.Input.Cancelled())
            convert.Flush(Half.Failed);
    }
    Half.WrittenFloats = convert.WrittenFloats();
    Half.WindowFloat = convert.IsInWindow() ? windowFloat : 0;
    Half.EndSample = firstInput + convert.InputSampleCount();
    Half.TailFrames = convert.TailFrameCount();
}

void DecodeSecondHalf(const HalfPlan& Plan, Prefaulter& Faults, SecondHalf& Half)
{
    try
    {
        DecodeSecondHalfOrGiveUp(Plan, Faults, Half);
    }
    catch (const std::bad_alloc&)
    {
        Half.Failed.Set("Not enough memory to hold the audio.");
    }
    Half.Seam.Settle();
}

// Whether two runs of floats agree within kSeamTolerance.
bool SameWithin(const float* A, const std::vector<float>& B)
{
    for (size_t i = 0; i < B.size(); ++i)
        if (!(A[i] == B[i] || std::fabs(A[i] - B[i]) <= kSeamTolerance))  // equal infinities too; NaN never
            return false;
    return true;
}

// The first half on the calling thread, the second on a thread of its own.
// Returns the seam's frame when the halves were joined there, 0 when the
// first half decoded everything.
size_t DecodeInHalves(const HalfPlan& Plan, DecodeSession& Session, Converter& Convert, Prefaulter& Faults,
                      SecondHalf& Half, Failure& Failed)
{
    Session.Input.pTally = Plan.pTally;
    std::thread second([&] { DecodeSecondHalf(Plan, Faults, Half); });
    bool bSecondEnded = false;
    // Once the second half is not wanted, it must have stopped before the
    // first writes where it may be writing (a shared buffer).
    const auto endSecond = [&] {
        if (bSecondEnded)
            return;
        Half.bAbandoned.store(true);
        second.join();
        bSecondEnded = true;
    };
    const SeamOffer& seam = Half.Seam;
    AVFrame* slot = Session.Slots.front();
    int64_t decoded = 0;
    bool bWaited = false, bPositionRight = false, bDecided = false, bJoined = false;
    FrameSink sink;
    sink.FreeSlot = [slot] { return slot; };
    sink.Next = [&](const AVPacket& Packet) {
        // The second half's middle packet is not before this: its offer, if
        // one comes, must be here before that packet goes by.
        if (!bWaited && decoded >= Plan.MiddleSample)
        {
            Half.Seam.WaitSettled();
            bWaited = true;
        }
        if (seam.IsOffered() && Packet.pts == seam.PacketPts)
            bPositionRight = decoded == seam.PacketSample;
    };
    sink.Filled = [&](int CodecRate) {
        decoded += slot->nb_samples;
        if (Half.pShared && !bDecided)
        {
            // A frame that could reach the second half's window decides: no join.
            const size_t most = Convert.WrittenFloats() + kGrowFloats +
                                static_cast<size_t>(av_rescale(slot->nb_samples + 4096, kOutRate, std::max(CodecRate, 1)) +
                                                    1) * kOutChannels;
            if (most > MiddleFloat(Plan) + kWindowGapFloats)
            {
                bDecided = true;
                endSecond();
            }
        }
        const bool ok = !Session.Input.Cancelled() && Convert.Convert(slot, CodecRate, Failed);
        av_frame_unref(slot);
        if (!ok || bDecided || !seam.IsOffered() ||
            Convert.WrittenFloats() < seam.SeamFrame * kOutChannels + seam.Head.size())
            return ok;
        bDecided = true;
        bJoined = bPositionRight && SameWithin(Convert.Data() + seam.SeamFrame * kOutChannels, seam.Head);
        if (!bJoined)
            endSecond();
        return !bJoined;
    };
    DecodePackets(Session, sink);
    if (!bJoined)
        Half.bAbandoned.store(true);
    if (!bSecondEnded)
        second.join();
    return bJoined ? seam.SeamFrame : 0;
}

// The second half's frames from the seam on start here in its output.
size_t SeamFloatInHalf(size_t SeamFrame, const SecondHalf& Half)
{
    return (SeamFrame - Half.FirstFrame) * kOutChannels;
}

size_t JoinedFloats(size_t SeamFrame, const SecondHalf& Half)
{
    return SeamFrame * kOutChannels + Half.WrittenFloats - SeamFloatInHalf(SeamFrame, Half);
}

// The first half's frames up to the seam, then the second half's: moved down
// within the buffer where the second half wrote into its room, else copied.
bool JoinHalves(std::vector<float>& Frames, size_t SeamFrame, const SecondHalf& Half, std::string& OutMessage)
{
    OutMessage = Half.Failed.Get();
    if (!OutMessage.empty())
        return false;
    Frames.resize(SeamFrame * kOutChannels);
    if (Half.WindowFloat > 0)
    {
        // Beyond the vector's end but within its room: inserting from there
        // is one memmove, and nothing is cleared first.
        const float* from = Frames.data() + Half.WindowFloat + SeamFloatInHalf(SeamFrame, Half);
        const float* to = Frames.data() + Half.WindowFloat + Half.WrittenFloats;
        Frames.insert(Frames.end(), from, to);
        return true;
    }
    const auto from = Half.pFrames->begin() + static_cast<ptrdiff_t>(SeamFloatInHalf(SeamFrame, Half));
    Frames.insert(Frames.end(), from, Half.pFrames->begin() + static_cast<ptrdiff_t>(Half.WrittenFloats));
    Half.pFrames->clear();
    return true;
}

// --- Entry point ---

std::string Lowered(std::string Text)
{
    for (char& c : Text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return Text;
}

void AddTags(const AVDictionary* Metadata, std::map<std::string, std::string>& OutTags)
{
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(Metadata, "", entry, AV_DICT_IGNORE_SUFFIX)))
        OutTags.emplace(Lowered(entry->key), entry->value);
}

void AddChapters(const AVFormatContext* Format, std::vector<TimedMarker>& Out)
{
    for (unsigned int i = 0; i < Format->nb_chapters; ++i)
    {
        const AVChapter* chapter = Format->chapters[i];
        const AVDictionaryEntry* title = av_dict_get(chapter->metadata, "title", nullptr, 0);
        // What a chapter track needs before the first marker: no marker of its own.
        if (chapter->start == 0 && title && !*title->value)
            continue;
        TimedMarker m;
        m.StartSec = std::max(0.0, static_cast<double>(chapter->start) * av_q2d(chapter->time_base));
        m.EndSec = chapter->end == AV_NOPTS_VALUE
                       ? m.StartSec
                       : std::max(m.StartSec, static_cast<double>(chapter->end) * av_q2d(chapter->time_base));
        m.Name = title ? title->value : "Chapter " + std::to_string(i + 1);
        Out.push_back(std::move(m));
    }
}

// What the samples were: the decoder's sample format, the depth the file
// states (a 24-bit WAV or FLAC decodes to 32-bit samples), lossy or not.
void DescribeSampleFormat(const DecodeSession& Session, DecodedAudio& Out)
{
    const AVCodecParameters* parameters = Session.Format->streams[Session.StreamIndex]->codecpar;
    const auto format = static_cast<AVSampleFormat>(Session.Codec->sample_fmt);
    Out.SourceCodec = avcodec_get_name(parameters->codec_id);
    Out.SourceContainer = Session.Format->iformat->name;
    const char* formatName = av_get_sample_fmt_name(format);
    Out.SourceSampleFormat = formatName ? formatName : "";
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(parameters->codec_id);
    Out.bSourceLossy = descriptor && (descriptor->props & AV_CODEC_PROP_LOSSY);
    const AVSampleFormat packed = av_get_packed_sample_fmt(format);
    Out.bSourceFloat = packed == AV_SAMPLE_FMT_FLT || packed == AV_SAMPLE_FMT_DBL;
    if (!Out.bSourceLossy)
    {
        const int stated = parameters->bits_per_raw_sample > 0 ? parameters->bits_per_raw_sample
                                                               : parameters->bits_per_coded_sample;
        Out.SourceBits = stated > 0 ? stated : av_get_bytes_per_sample(format) * 8;
    }
    if (Out.bSourceLossy && parameters->bit_rate > 0)
        Out.SourceBitrateKbps = static_cast<int>((parameters->bit_rate + 500) / 1000);
    else if (Out.bSourceLossy && Session.Format->bit_rate > 0)
        Out.SourceBitrateKbps = static_cast<int>((Session.Format->bit_rate + 500) / 1000);
}

void DescribeSource(const DecodeSession& Session, DecodedAudio& Out)
{
    const AVStream* stream = Session.Format->streams[Session.StreamIndex];
    const AVCodec* codec = Session.Codec->codec;
    Out.CodecName = codec->long_name ? codec->long_name : codec->name;
    const AVInputFormat* container = Session.Format->iformat;
    Out.ContainerName = container->long_name ? container->long_name : container->name;
    Out.SourceSampleRate = stream->codecpar->sample_rate;
    Out.SourceChannels = stream->codecpar->ch_layout.nb_channels;
    char layout[128] = {};
    if (av_channel_layout_describe(&stream->codecpar->ch_layout, layout, sizeof layout) >= 0)
        Out.SourceChannelLayout = layout;
    if (Session.Format->duration > 0)
        Out.SourceDurationSec = static_cast<double>(Session.Format->duration) / AV_TIME_BASE;
    AddTags(Session.Format->metadata, Out.Tags);
    AddTags(stream->metadata, Out.Tags);
    AddChapters(Session.Format, Out.Markers);
    DescribeSampleFormat(Session, Out);
}

bool Decode(const std::string& Path, const DecodeControl& Control, DecodedAudio& Out, std::string& OutMessage)
{
    DecodeSession session;
    session.Input.pCancel = Control.pCancel;
    session.Input.pProgress = Control.pProgress;
    const bool bPipeline = Control.Threads >= 2;
    if (!OpenSession(session, Path, bPipeline ? kQueueFrames : 1, OutMessage))
        return false;

    std::vector<float> frames;
    const size_t expectedFloats = ReserveForDuration(frames, session.Format, session.Input.File.SizeBytes, Control.MaxDecodedBytes);
    const double durationSec = static_cast<double>(session.Format->duration) / AV_TIME_BASE;
    const bool bHalves = bPipeline && expectedFloats > 0 && durationSec >= Control.HalvesFromSec;
    // The second half writes into the room of the output itself, far enough
    // past the middle, and moves down at the join; a buffer of its own takes
    // what does not fit there.
    std::vector<float> ownHalf;
    SecondHalf half;
    half.pFrames = &ownHalf;
    half.pShared = frames.data();
    half.SharedFloats = frames.capacity();
    // The expected audio only: the headroom stays untouched, and costs no memory.
    Prefaulter faults;
    faults.AddRegion(frames.data(), std::min(frames.capacity(), expectedFloats) * sizeof(float));
    faults.Start();
    Converter convert(session, frames, faults, Control.MaxDecodedBytes);
    Failure failed;
    size_t seamFrame = 0;
    if (bHalves)
    {
        ProgressTally tally;
        HalfPlan plan;
        plan.Path = Path;
        plan.pControl = &Control;
        plan.pTally = &tally;
        plan.StreamIndex = session.StreamIndex;
        plan.SampleRate = session.Codec->sample_rate;
        plan.MiddleSample = static_cast<int64_t>(
            std::min(durationSec / 2 * plan.SampleRate, static_cast<double>(kMaxSamplePosition)));
        seamFrame = DecodeInHalves(plan, session, convert, faults, half, failed);
    }
    else if (bPipeline)
        DecodeAsPipeline(session, convert, failed);
    else
        DecodeOnOneThread(session, convert, failed);
    if (seamFrame == 0 && !session.Input.Cancelled() && failed.Get().empty())
        convert.Flush(failed);
    if (!session.Input.Cancelled() && failed.Get().empty())
        faults.Finish((seamFrame > 0 ? JoinedFloats(seamFrame, half) : convert.WrittenFloats()) * sizeof(float));
    else
        faults.Stop();

    OutMessage = session.Input.Cancelled() ? std::string(kCancelledMessage) : failed.Get();
    if (OutMessage.empty() && seamFrame > 0 && !JoinHalves(frames, seamFrame, half, OutMessage))
        return false;
    if (seamFrame == 0)
    {
        frames.resize(convert.WrittenFloats());
        half.pFrames->clear();  // what the second half made before it was abandoned
    }
    if (OutMessage.empty() && frames.empty())
        OutMessage = "No audio could be decoded from the file.";
    if (!OutMessage.empty())
        return false;
    Out.Frames = std::move(frames);
    Out.SecondHalfFromFrame = seamFrame;
    Out.SourceFrames = seamFrame > 0 ? half.EndSample : convert.InputSampleCount();
    Out.TailFrames = seamFrame > 0 ? half.TailFrames : convert.TailFrameCount();
    DescribeSource(session, Out);
    if (Control.pProgress)
        Control.pProgress->store(1.0, std::memory_order_relaxed);
    return true;
}
}  // namespace

void CapFfmpegAllocations()
{
    av_max_alloc(size_t(64) << 20);
}

bool DecodeAudioFile(const std::string& Path, const DecodeControl& Control, DecodedAudio& Out,
                     std::string* ErrorMessage)
{
    Out = DecodedAudio();
    std::string message;
    bool ok = false;
    try
    {
        ok = Decode(Path, Control, Out, message);
    }
    catch (const std::bad_alloc&)
    {
        message = "Not enough memory to open the file.";
    }
    catch (const std::system_error&)
    {
        message = "Cannot start the decoding thread.";
    }
    if (!ok)
        Out = DecodedAudio();
    if (!ok && ErrorMessage)
        *ErrorMessage = message;
    return ok;
}
