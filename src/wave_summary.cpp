// WaveSummary. Sections, in order:
//   Fine blocks    one vectorised read of the frames per block (SSE2 for mono
//                  and stereo, which is all the editor decodes; a plain loop
//                  for other channel counts)
//   Levels         shaping, building, updating and folding coarser levels
//   Queries        folding a run of frames from the levels

#include "wave_summary.h"

#include "large_buffer.h"

#include <emmintrin.h>

#include <algorithm>
#include <thread>

// --- Fine blocks ---

// Traces a ragged run scans on the stack; more go to the heap.
static constexpr int kMaxScanTraces = 9;
// Below this many fine blocks (about 20 s of 48 kHz audio) a thread costs
// more than it saves.
static constexpr int64_t kMinBlocksPerWorker = 4096;

namespace
{
// Running min, max and sum of squares of one trace; NaN changes none of them.
struct Accumulator
{
    float MinAmp = 0.0f;
    float MaxAmp = 0.0f;
    float SumSquares = 0.0f;

    void Add(float X)
    {
        if (X < MinAmp)
            MinAmp = X;
        if (X > MaxAmp)
            MaxAmp = X;
        if (X == X)
            SumSquares += X * X;
    }
};

// Four lanes of Accumulator.
struct VectorAccumulator
{
    __m128 MinAmp = _mm_setzero_ps();
    __m128 MaxAmp = _mm_setzero_ps();
    __m128 SumSquares = _mm_setzero_ps();

    void Add(__m128 X)
    {
        // MINPS and MAXPS return their second operand when either is NaN.
        MinAmp = _mm_min_ps(X, MinAmp);
        MaxAmp = _mm_max_ps(X, MaxAmp);
        const __m128 finite = _mm_and_ps(X, _mm_cmpord_ps(X, X));
        SumSquares = _mm_add_ps(SumSquares, _mm_mul_ps(finite, finite));
    }

    Accumulator Reduce() const
    {
        alignas(16) float mins[4];
        alignas(16) float maxs[4];
        alignas(16) float sums[4];
        _mm_store_ps(mins, MinAmp);
        _mm_store_ps(maxs, MaxAmp);
        _mm_store_ps(sums, SumSquares);
        return Accumulator{std::min({mins[0], mins[1], mins[2], mins[3]}),
                           std::max({maxs[0], maxs[1], maxs[2], maxs[3]}), (sums[0] + sums[1]) + (sums[2] + sums[3])};
    }
};

// Frames First .. End of a mono block; the mix of one channel is the channel.
void ScanMono(const float* Data, int64_t First, int64_t End, Accumulator* Out)
{
    VectorAccumulator lanes;
    int64_t f = First;
    for (; f + 4 <= End; f += 4)
        lanes.Add(_mm_loadu_ps(Data + f));
    Accumulator channel = lanes.Reduce();
    for (; f < End; ++f)
        channel.Add(Data[f]);
    Out[0] = channel;
    Out[1] = channel;
}

// Frames First .. End of a stereo block, four frames per step: the left and
// right samples are gathered into one register each, and their mix is
// (L + R) * 0.5, which is exactly the scalar (L + R) / 2.
void ScanStereo(const float* Data, int64_t First, int64_t End, Accumulator* Out)
{
    VectorAccumulator left;
    VectorAccumulator right;
    VectorAccumulator mix;
    const __m128 half = _mm_set1_ps(0.5f);
    int64_t f = First;
    for (; f + 4 <= End; f += 4)
    {
        const __m128 a = _mm_loadu_ps(Data + 2 * f);
        const __m128 b = _mm_loadu_ps(Data + 2 * f + 4);
        const __m128 l = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 r = _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
        left.Add(l);
        right.Add(r);
        mix.Add(_mm_mul_ps(_mm_add_ps(l, r), half));
    }
    Out[0] = left.Reduce();
    Out[1] = right.Reduce();
    Out[2] = mix.Reduce();
    for (; f < End; ++f)
    {
        Out[0].Add(Data[2 * f]);
        Out[1].Add(Data[2 * f + 1]);
        Out[2].Add((Data[2 * f] + Data[2 * f + 1]) / 2.0f);
    }
}

// Any channel count, one sample at a time; the mix as the span query makes it.
void ScanAny(const float* Data, int Channels, int64_t First, int64_t End, Accumulator* Out)
{
    for (int t = 0; t <= Channels; ++t)
        Out[t] = Accumulator{};
    for (int64_t f = First; f < End; ++f)
    {
        const float* frame = Data + f * Channels;
        float mixed = 0.0f;
        for (int c = 0; c < Channels; ++c)
        {
            Out[c].Add(frame[c]);
            mixed += frame[c];
        }
        Out[Channels].Add(mixed / static_cast<float>(Channels));
    }
}
}  // namespace

// Frames First .. End of any run, through the widest scan the channel count has.
static void ScanFrames(const float* Data, int Channels, int64_t First, int64_t End, Accumulator* Out)
{
    if (Channels == 1)
        ScanMono(Data, First, End, Out);
    else if (Channels == 2)
        ScanStereo(Data, First, End, Out);
    else
        ScanAny(Data, Channels, First, End, Out);
}

void WaveSummary::ComputeFineBlocks(const float* FrameData, int64_t FirstBlock, int64_t EndBlock)
{
    // A long run is shared out between the cores: its blocks are independent
    // and written to disjoint places, and a whole hour is a tenth of a second
    // of one core's memory bandwidth, which a waiting user sees.
    const int64_t blocks = EndBlock - FirstBlock;
    const int workers =
        static_cast<int>(std::clamp<int64_t>(blocks / kMinBlocksPerWorker, 1,
                                             std::clamp<int>(std::min<int>(MaxWorkers, std::thread::hardware_concurrency()), 1, kMostWorkers)));
    std::vector<std::thread> helpers;
    for (int w = 1; w < workers; ++w)
        helpers.emplace_back([=] {
            ComputeFineBlockRange(FrameData, FirstBlock + blocks * w / workers, FirstBlock + blocks * (w + 1) / workers);
        });
    ComputeFineBlockRange(FrameData, FirstBlock, FirstBlock + blocks / workers);
    for (std::thread& helper : helpers)
        helper.join();
}

void WaveSummary::ComputeFineBlockRange(const float* FrameData, int64_t FirstBlock, int64_t EndBlock)
{
    Level& fine = Levels.front();
    std::vector<Accumulator> traces(static_cast<size_t>(Traces()));
    for (int64_t b = FirstBlock; b < EndBlock; ++b)
    {
        const int64_t first = b * kFramesPerFineBlock;
        ScanFrames(FrameData, ChannelCount, first, std::min(first + kFramesPerFineBlock, Frames), traces.data());
        float* out = fine.Values.data() + static_cast<size_t>(b) * Stride();
        for (const Accumulator& trace : traces)
        {
            *out++ = trace.MinAmp;
            *out++ = trace.MaxAmp;
            *out++ = trace.SumSquares;
        }
    }
}

// --- Levels ---

// Sizes every level for the current frame count, keeping what each holds.
void WaveSummary::ShapeLevels()
{
    int64_t blocks = (Frames + kFramesPerFineBlock - 1) / kFramesPerFineBlock;
    int64_t framesPerBlock = kFramesPerFineBlock;
    size_t level = 0;
    for (;; ++level)
    {
        if (Levels.size() <= level)
            Levels.emplace_back();
        Levels[level].FramesPerBlock = framesPerBlock;
        // The fine level of an hour is 24 MB read at scattered places by
        // every column of a long view: huge pages keep those reads off the TLB.
        LargeBuffer::ReserveFloats(Levels[level].Values, static_cast<size_t>(blocks) * Stride());
        Levels[level].Values.resize(static_cast<size_t>(blocks) * Stride());
        if (blocks <= kTopLevelBlocks)
            break;
        blocks = (blocks + kBlocksPerCoarse - 1) / kBlocksPerCoarse;
        framesPerBlock *= kBlocksPerCoarse;
    }
    Levels.resize(level + 1);
}

void WaveSummary::FoldCoarseBlocks(int LevelIndex, int64_t FirstBlock, int64_t EndBlock)
{
    const Level& finer = Levels[static_cast<size_t>(LevelIndex - 1)];
    Level& level = Levels[static_cast<size_t>(LevelIndex)];
    const int64_t finerCount = BlockCount(LevelIndex - 1);
    const size_t stride = Stride();
    for (int64_t b = FirstBlock; b < EndBlock; ++b)
    {
        float* out = level.Values.data() + static_cast<size_t>(b) * stride;
        const int64_t childEnd = std::min((b + 1) * kBlocksPerCoarse, finerCount);
        for (size_t t = 0; t < stride; t += 3)
        {
            float minAmp = 0.0f;
            float maxAmp = 0.0f;
            double sum = 0.0;
            for (int64_t child = b * kBlocksPerCoarse; child < childEnd; ++child)
            {
                const float* in = finer.Values.data() + static_cast<size_t>(child) * stride + t;
                minAmp = std::min(minAmp, in[0]);
                maxAmp = std::max(maxAmp, in[1]);
                sum += in[2];
            }
            out[t] = minAmp;
            out[t + 1] = maxAmp;
            out[t + 2] = static_cast<float>(sum);
        }
    }
}

void WaveSummary::Build(const float* FrameData, int64_t FrameCount, int ChannelsIn)
{
    Clear();
    ChannelCount = std::max(ChannelsIn, 1);
    Update(FrameData, FrameCount, ChannelCount, 0, -1);
}

void WaveSummary::Update(const float* FrameData, int64_t FrameCount, int ChannelsIn, int64_t FirstFrame,
                         int64_t EndFrame)
{
    if (ChannelsIn != ChannelCount || Levels.empty())
    {
        // A new shape invalidates everything kept.
        Levels.clear();
        ChannelCount = std::max(ChannelsIn, 1);
        FirstFrame = 0;
        EndFrame = -1;
    }
    const bool bResized = EndFrame < 0 || FrameCount != Frames;
    Frames = std::max<int64_t>(FrameCount, 0);
    const int oldLevelCount = static_cast<int>(Levels.size());
    if (bResized)
        ShapeLevels();
    const int64_t first = std::clamp<int64_t>(FirstFrame, 0, Frames);
    const int64_t end = bResized ? Frames : std::clamp<int64_t>(EndFrame, first, Frames);
    if (first >= end && !bResized)
        return;

    int64_t firstBlock = first / kFramesPerFineBlock;
    int64_t endBlock = bResized ? BlockCount(0) : (end + kFramesPerFineBlock - 1) / kFramesPerFineBlock;
    ComputeFineBlocks(FrameData, firstBlock, endBlock);
    for (int level = 1; level < LevelCount(); ++level)
    {
        // A level the summary did not have before is folded whole.
        firstBlock = level >= oldLevelCount ? 0 : firstBlock / kBlocksPerCoarse;
        endBlock = bResized ? BlockCount(level) : (endBlock + kBlocksPerCoarse - 1) / kBlocksPerCoarse;
        FoldCoarseBlocks(level, firstBlock, endBlock);
    }
}

void WaveSummary::Clear()
{
    Levels.clear();
    Frames = 0;
    ChannelCount = 0;
}

int64_t WaveSummary::FramesPerBlock(int LevelIndex) const
{
    return Levels[static_cast<size_t>(LevelIndex)].FramesPerBlock;
}

int64_t WaveSummary::BlockCount(int LevelIndex) const
{
    return static_cast<int64_t>(Levels[static_cast<size_t>(LevelIndex)].Values.size() / Stride());
}

WaveSummary::Stats WaveSummary::BlockStats(int LevelIndex, int64_t Block, int Trace) const
{
    const float* in =
        Levels[static_cast<size_t>(LevelIndex)].Values.data() + static_cast<size_t>(Block) * Stride() + Trace * 3;
    return Stats{in[0], in[1], in[2]};
}

// --- Queries ---

void WaveSummary::FoldFrames(const float* FrameData, int64_t FirstFrame, int64_t LastFrame, Stats* Out) const
{
    for (int t = 0; t < Traces(); ++t)
        Out[t] = Stats{};
    if (Levels.empty())
        return;
    FoldLevel(LevelCount() - 1, FrameData, std::max<int64_t>(FirstFrame, 0), std::min(LastFrame, Frames - 1), Out);
}

// Whole blocks of LevelIndex, the ragged ends through the next finer level,
// and single frames below the finest.
void WaveSummary::FoldLevel(int LevelIndex, const float* FrameData, int64_t First, int64_t Last, Stats* Out) const
{
    if (First > Last)
        return;
    if (LevelIndex < 0)
    {
        FoldSingleFrames(FrameData, First, Last, Out);
        return;
    }
    const Level& level = Levels[static_cast<size_t>(LevelIndex)];
    const int64_t size = level.FramesPerBlock;
    const int64_t firstBlock = (First + size - 1) / size;
    const int64_t endBlock = (Last + 1) / size;  // blocks before it end within the run
    if (firstBlock >= endBlock)
    {
        FoldLevel(LevelIndex - 1, FrameData, First, Last, Out);
        return;
    }
    FoldLevel(LevelIndex - 1, FrameData, First, firstBlock * size - 1, Out);
    const size_t stride = Stride();
    for (int64_t b = firstBlock; b < endBlock; ++b)
    {
        const float* in = level.Values.data() + static_cast<size_t>(b) * stride;
        for (int t = 0; t < Traces(); ++t, in += 3)
        {
            Out[t].MinAmp = std::min(Out[t].MinAmp, in[0]);
            Out[t].MaxAmp = std::max(Out[t].MaxAmp, in[1]);
            Out[t].SumSquares += in[2];
        }
    }
    FoldLevel(LevelIndex - 1, FrameData, endBlock * size, Last, Out);
}

// The ragged ends of a run, at most a block's worth, with the same scan as a block.
void WaveSummary::FoldSingleFrames(const float* FrameData, int64_t First, int64_t Last, Stats* Out) const
{
    Accumulator traces[kMaxScanTraces];
    std::vector<Accumulator> manyTraces;
    Accumulator* scanned = traces;
    if (Traces() > kMaxScanTraces)
    {
        manyTraces.resize(static_cast<size_t>(Traces()));
        scanned = manyTraces.data();
    }
    ScanFrames(FrameData, ChannelCount, First, Last + 1, scanned);
    for (int t = 0; t < Traces(); ++t)
    {
        Out[t].MinAmp = std::min(Out[t].MinAmp, scanned[t].MinAmp);
        Out[t].MaxAmp = std::max(Out[t].MaxAmp, scanned[t].MaxAmp);
        Out[t].SumSquares += scanned[t].SumSquares;
    }
}
