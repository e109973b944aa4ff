// The program's decoder, its input side (see audio_decode_session.h).

#include "audio_decode_session.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
#include <libswresample/swresample.h>
}

#include "audio_codec_internal.h"

namespace AudioDecodeDetail
{
namespace
{
// Larger than FFmpeg's 32 KiB default: fewer read calls on an hour of audio.
constexpr int kIoBufferBytes = 256 << 10;

const char* const kNotAudioMessage = "Not an audio file.";

std::string SystemErrorMessage(int Code)
{
    if (Code == ENOENT || Code == ENOTDIR)
        return "File not found.";
    return std::string("Cannot open the file: ") + std::strerror(Code) + ".";
}

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
}  // namespace

// --- Local file ---

bool LocalFile::Open(const std::string& Path, Failure& Failed)
{
    struct stat info = {};
    if (Path.empty() || stat(Path.c_str(), &info) != 0)
    {
        Failed.Set(Step::OpenInput, SystemErrorMessage(Path.empty() ? ENOENT : errno));
        return false;
    }
    if (!CheckKind(info, Failed))
        return false;
    Fd = open(Path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (Fd < 0 || fstat(Fd, &info) != 0)
    {
        Failed.Set(Step::OpenInput, SystemErrorMessage(errno));
        return false;
    }
    SizeBytes = static_cast<int64_t>(info.st_size);
    return CheckKind(info, Failed);
}

void LocalFile::Close()
{
    if (Fd >= 0)
        close(Fd);
    Fd = -1;
}

bool LocalFile::CheckKind(const struct stat& Info, Failure& Failed)
{
    if (S_ISDIR(Info.st_mode))
        Failed.Set(Step::OwnLimit, "That is a folder, not an audio file.");
    else if (!S_ISREG(Info.st_mode))
        Failed.Set(Step::OwnLimit, "Not a regular file (a pipe or a device).");
    else
        return true;
    return false;
}

// --- Input ---

void InputState::ReportProgress()
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

// --- Session ---

DecodeSession::~DecodeSession()
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

void DecodeSession::Fail(Step FailedStep, int Code, Failure& Failed) const
{
    if (Input.Cancelled())
        Failed.Set(Step::OwnLimit, kCancelledMessage);
    else if (Input.bNestedOpenRefused)
        Failed.Set(Step::OwnLimit,
                   "That file points to other files (a playlist or a list); only the chosen file is read.");
    // What a demuxer says when the bytes make no sense to it; a short
    // file's seek past its end ends as EINVAL.
    else if (Code == AVERROR_INVALIDDATA || Code == AVERROR_STREAM_NOT_FOUND || Code == AVERROR_EOF ||
             Code == AVERROR(EINVAL) || Code == AVERROR_DEMUXER_NOT_FOUND)
        Failed.Set(FailedStep, kNotAudioMessage);
    else
        Failed.Set(FailedStep, "Cannot read the audio: " + FfmpegErrorText(Code) + ".");
}

namespace
{
// The demuxer on our descriptor, the best audio stream and its decoder, by
// the steps of the editor's import. The URL is given with its protocol named,
// so nothing in it is read as one. The whitelist says what this reads: local
// files only. The chosen one comes through our own I/O context, so the file
// protocol is blacklisted as well: a demuxer that opens a nested format
// context past io_open (a concat list does) hands both lists on, and that
// nested open is refused.
bool OpenStream(DecodeSession& Session, const std::string& Path, Failure& Failed)
{
    const char* const kNoMemory = "Not enough memory to open the file.";
    auto* buffer = static_cast<unsigned char*>(av_malloc(kIoBufferBytes));
    if (!buffer)
    {
        Failed.Set(Step::OpenInput, kNoMemory);
        return false;
    }
    Session.Io = avio_alloc_context(buffer, kIoBufferBytes, 0, &Session.Input, ReadInput, nullptr, SeekInput);
    if (!Session.Io)
    {
        av_free(buffer);
        Failed.Set(Step::OpenInput, kNoMemory);
        return false;
    }
    Session.Format = avformat_alloc_context();
    if (!Session.Format)
    {
        Failed.Set(Step::OpenInput, kNoMemory);
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
    Step failedStep = Step::OpenInput;
    if (rc >= 0)
    {
        const std::string url = "file:" + Path;
        failedStep = AudioDecodeCore::OpenStream(&Session.Format, url.c_str(), &options, &Session.Codec,
                                                 Session.StreamIndex, rc);  // frees Format if the open fails
    }
    av_dict_free(&options);
    if (failedStep == Step::None)
        return true;
    if (failedStep == Step::FindDecoder)
    {
        const AVCodecID codecId = Session.Format->streams[Session.StreamIndex]->codecpar->codec_id;
        Failed.Set(failedStep, std::string("No decoder here for this audio (") + avcodec_get_name(codecId) + ").");
    }
    else if (failedStep == Step::AllocateDecoder)
        Failed.Set(failedStep, "Not enough memory to open the decoder.");
    else
        Session.Fail(failedStep, rc, Failed);
    return false;
}

// Far above any recording (SDR I/Q at a few MHz, DSD at 1.4 to 2.8 MHz as
// FFmpeg reports it): a header that states more is damaged, and converting
// what it claims takes seconds a frame. Such a file is refused here, before
// it reaches the editor, which converts any rate the resampler accepts.
constexpr int kMostSourceRateHz = 100'000'000;

bool OpenResampler(DecodeSession& Session, Failure& Failed)
{
    if (Session.Codec->sample_rate > kMostSourceRateHz)
    {
        Failed.Set(Step::OwnLimit, "The file states a sample rate of " + std::to_string(Session.Codec->sample_rate) +
                                       " Hz, beyond any recording: its header is damaged.");
        return false;
    }
    const int rc = AudioDecodeCore::SetUpConversion(&Session.Swr, *Session.Codec, kDocumentRateHz, kDocumentChannels,
                                                    Session.Conversion);
    if (rc < 0)
        Failed.Set(Step::SetUpResampler, "Cannot convert this audio: " + FfmpegErrorText(rc) + ".");
    return rc >= 0;
}

bool AllocateBuffers(DecodeSession& Session, size_t SlotCount, Failure& Failed)
{
    Session.Packet = av_packet_alloc();
    bool ok = Session.Packet != nullptr;
    for (size_t i = 0; ok && i < SlotCount; ++i)
    {
        Session.Slots.push_back(av_frame_alloc());
        ok = Session.Slots.back() != nullptr;
    }
    if (!ok)
        Failed.Set(Step::AllocateBuffers, "Not enough memory to decode.");
    return ok;
}
}  // namespace

// Everything one decoding needs, from the file to the frame slots.
bool OpenSession(DecodeSession& Session, const std::string& Path, size_t SlotCount, Failure& Failed)
{
    return Session.Input.File.Open(Path, Failed) && OpenStream(Session, Path, Failed) &&
           OpenResampler(Session, Failed) && AllocateBuffers(Session, SlotCount, Failed);
}

// --- Decoding ---

namespace
{
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
}  // namespace

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
    if (!ok || Session.Input.Cancelled())
        return;
    // As in the import: what the flush itself says is not looked at.
    avcodec_send_packet(Session.Codec, nullptr);
    ReceiveFrames(Session, Sink);
}
}  // namespace AudioDecodeDetail
