// The program's decoder (see audio_decode.h): the two ways of one decoding
// and the entry point. Its parts:
//   audio_decode_core.h     the FFmpeg steps shared with the editor's import
//   audio_decode_session.h  the chosen file, FFmpeg's input, one decoding's
//                           FFmpeg objects, the packet loop
//   audio_decode_output.h   the output buffer, faulted in ahead, and the
//                           conversion of decoded frames into it
//   audio_decode_halves.h   a long file's two halves at once, joined exactly
//
// Index of this file:
//   Frame queue   decoded frames from the demux/decode thread to the resampler
//   Decoding      on one thread or as a two-stage pipeline
//   Entry point
//
// The frames must equal the editor's own import sample for sample, so both
// open the file, set up the resampler and convert each frame through the same
// steps (audio_decode_core.h), with the same output room; the resampler's
// tail, which the import never asks for, comes after them (TailFrames).

#include "audio_decode.h"

#include <algorithm>
#include <cctype>
#include <condition_variable>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
}

#include "audio_decode_halves.h"

namespace
{
using namespace AudioDecodeDetail;

// Decoded frames in flight between the two threads: a few hundred
// milliseconds of audio, a few MB at most.
constexpr size_t kQueueFrames = 64;

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

// Fails with the first failure in Failed; a cancel wins over any.
bool Decode(const std::string& Path, const DecodeControl& Control, DecodedAudio& Out, Failure& Failed)
{
    DecodeSession session;
    session.Input.pCancel = Control.pCancel;
    session.Input.pProgress = Control.pProgress;
    const bool bPipeline = Control.Threads >= 2;
    if (!OpenSession(session, Path, bPipeline ? kQueueFrames : 1, Failed))
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
    Failure failed;  // while decoding, until a cancel is known
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

    if (session.Input.Cancelled())
        Failed.Set(Step::OwnLimit, kCancelledMessage);
    else if (!failed.Get().empty())
        Failed.Set(failed.GetStep(), failed.Get());
    else if (seamFrame > 0 && !JoinHalves(frames, seamFrame, half, Failed))
        return false;
    if (!Failed.Get().empty())
        return false;
    if (seamFrame == 0)
    {
        frames.resize(convert.WrittenFloats());
        half.pFrames->clear();  // what the second half made before it was abandoned
    }
    if (frames.empty())
    {
        Failed.Set(Step::NothingDecoded, "No audio could be decoded from the file.");
        return false;
    }
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
    Failure failed;
    bool ok = false;
    try
    {
        ok = Decode(Path, Control, Out, failed);
    }
    catch (const std::bad_alloc&)
    {
        failed.Set(Step::OwnLimit, "Not enough memory to open the file.");
    }
    catch (const std::system_error&)
    {
        failed.Set(Step::OwnLimit, "Cannot start the decoding thread.");
    }
    if (!ok)
        Out = DecodedAudio();
    if (!ok && ErrorMessage)
        *ErrorMessage = failed.Get();
    if (Control.pFailedStep)
        *Control.pFailedStep = ok ? Step::None : failed.GetStep();
    return ok;
}
