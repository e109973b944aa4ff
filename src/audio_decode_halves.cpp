// The program's decoder: a long file's two halves (see audio_decode_halves.h).
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

#include "audio_decode_halves.h"

#include <cmath>
#include <iterator>
#include <new>
#include <numeric>
#include <system_error>
#include <thread>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

namespace AudioDecodeDetail
{
namespace
{
constexpr int kWarmupPackets = 16;
// The last of the warm-up packets also go through the resampler.
constexpr int kResamplerLeadPackets = 4;
constexpr size_t kSeamCheckFrames = 4800;  // 100 ms
constexpr float kSeamTolerance = 1e-6f;
// A rate whose cycle is longer than this many samples is decoded whole.
constexpr int64_t kMaxInputCycle = 4096;
// A stream that decodes to nothing for this many packets is decoded whole.
constexpr int kOriginPackets = 64;

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
    return static_cast<size_t>(av_rescale(Plan.MiddleSample, kDocumentRateHz, Plan.SampleRate)) * kDocumentChannels;
}

// Where the second half's output starts in the first half's buffer.
size_t WindowStartFloat(const HalfPlan& Plan, size_t SeamFrame)
{
    return std::max((SeamFrame + kSeamCheckFrames) * kDocumentChannels, MiddleFloat(Plan)) + kWindowGapFloats;
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
    Failure ignored;
    if (Plan.SampleRate <= 0 || !OpenSession(session, Plan.Path, 1, ignored) ||
        session.StreamIndex != Plan.StreamIndex || session.Codec->sample_rate != Plan.SampleRate)
        return;
    const int64_t divisor = std::gcd<int64_t>(Plan.SampleRate, kDocumentRateHz);
    const int64_t inputCycle = Plan.SampleRate / divisor, outputCycle = kDocumentRateHz / divisor;
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
    const size_t seamFloat = (Half.Seam.SeamFrame - Half.FirstFrame) * kDocumentChannels;
    OutputWindow window;
    const size_t windowFloat = WindowStartFloat(Plan, Half.Seam.SeamFrame);
    if (Half.pShared && windowFloat < Half.SharedFloats)
        window = {Half.pShared + windowFloat, Half.SharedFloats - windowFloat};

    Converter convert(session, *Half.pFrames, Faults, Plan.pControl->MaxDecodedBytes, 1,
                      Half.FirstFrame * kDocumentChannels, window);
    AVFrame* slot = session.Slots.front();
    bool bFeeding = false;
    int64_t toSkip = firstInput - lead, fed = 0;
    FrameSink sink;
    sink.FreeSlot = [slot] { return slot; };
    sink.Filled = [&](int CodecRate) {
        bool ok = true;
        // A frame the resampler does not take counts for nothing: where one
        // is among those before the middle, the count below gives up.
        if (bFeeding && convert.Takes(*slot))
        {
            const int skip = static_cast<int>(std::min<int64_t>(toSkip, slot->nb_samples));
            toSkip -= skip;
            fed += slot->nb_samples;
            if (skip < slot->nb_samples)
                ok = !session.Input.Cancelled() && convert.Convert(slot, CodecRate, Half.Failed, skip);
        }
        av_frame_unref(slot);
        const size_t headEnd = seamFloat + kSeamCheckFrames * kDocumentChannels;
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
        Half.Failed.Set(Step::OwnLimit, "Not enough memory to hold the audio.");
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

// The second half's frames from the seam on start here in its output.
size_t SeamFloatInHalf(size_t SeamFrame, const SecondHalf& Half)
{
    return (SeamFrame - Half.FirstFrame) * kDocumentChannels;
}
}  // namespace

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
        // Only what goes into the resampler counts, as in the second half.
        if (Convert.Takes(*slot))
            decoded += slot->nb_samples;
        if (Half.pShared && !bDecided)
        {
            // A frame that could reach the second half's window decides: no join.
            const size_t most = Convert.WrittenFloats() + kGrowFloats +
                                static_cast<size_t>(av_rescale(slot->nb_samples + 4096, kDocumentRateHz, std::max(CodecRate, 1)) +
                                                    1) * kDocumentChannels;
            if (most > MiddleFloat(Plan) + kWindowGapFloats)
            {
                bDecided = true;
                endSecond();
            }
        }
        const bool ok = !Session.Input.Cancelled() && Convert.Convert(slot, CodecRate, Failed);
        av_frame_unref(slot);
        if (!ok || bDecided || !seam.IsOffered() ||
            Convert.WrittenFloats() < seam.SeamFrame * kDocumentChannels + seam.Head.size())
            return ok;
        bDecided = true;
        bJoined = bPositionRight && SameWithin(Convert.Data() + seam.SeamFrame * kDocumentChannels, seam.Head);
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

size_t JoinedFloats(size_t SeamFrame, const SecondHalf& Half)
{
    return SeamFrame * kDocumentChannels + Half.WrittenFloats - SeamFloatInHalf(SeamFrame, Half);
}

// The first half's frames up to the seam, then the second half's: moved down
// within the buffer where the second half wrote into its room, else copied.
bool JoinHalves(std::vector<float>& Frames, size_t SeamFrame, const SecondHalf& Half, Failure& Failed)
{
    const std::string halfMessage = Half.Failed.Get();
    if (!halfMessage.empty())
    {
        Failed.Set(Half.Failed.GetStep(), halfMessage);
        return false;
    }
    Frames.resize(SeamFrame * kDocumentChannels);
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

}  // namespace AudioDecodeDetail
