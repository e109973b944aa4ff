// WaveSummary: per-channel and mixed min, max and sum of squares of
// interleaved float frames over fixed blocks, in levels that each fold the
// one below, so that a waveform column of an hour-long view reads a few dozen
// values instead of millions of frames.
//
// A summary follows edits instead of being rebuilt: Update recomputes only
// the blocks a change touched (from the change onward when frames were
// inserted or removed). Min and max start from 0.0 in every block, as the
// editor's span query does, so a fold over blocks equals a scan of the frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class WaveSummary
{
public:
    static constexpr int64_t kFramesPerFineBlock = 256;
    static constexpr int64_t kBlocksPerCoarse = 16;
    // Coarser levels stop once a level has no more blocks than this.
    static constexpr int64_t kTopLevelBlocks = 64;

    // Min, max and sum of squares of one trace over a run of frames; a trace
    // is one channel, or the mix (the channels summed, then divided by their
    // count, in float). NaN samples count for none of the three.
    struct Stats
    {
        float MinAmp = 0.0f;
        float MaxAmp = 0.0f;
        double SumSquares = 0.0;
    };

    // Threads a long Build or Update may share its blocks among, the calling
    // one included: 1 starts none, which the editor keeps unless its host
    // turned the render side's helper threads on.
    int MaxWorkers = 1;
    static constexpr int kMostWorkers = 4;  // more gain nothing against memory bandwidth

    // Everything from scratch.
    void Build(const float* Frames, int64_t FrameCount, int Channels);
    // Frames FirstFrame .. EndFrame (exclusive) changed in place; EndFrame < 0:
    // everything from FirstFrame on changed and the length may differ.
    void Update(const float* Frames, int64_t FrameCount, int Channels, int64_t FirstFrame, int64_t EndFrame);
    void Clear();

    int Channels() const { return ChannelCount; }
    int Traces() const { return ChannelCount + 1; }  // the channels, then the mix
    int MixTrace() const { return ChannelCount; }
    int64_t FrameCount() const { return Frames; }
    int LevelCount() const { return static_cast<int>(Levels.size()); }
    int64_t FramesPerBlock(int Level) const;
    int64_t BlockCount(int Level) const;
    // One block's stats for Trace.
    Stats BlockStats(int Level, int64_t Block, int Trace) const;

    // Stats of every trace over FirstFrame .. LastFrame (both included), into
    // Out (Traces() entries, each from 0.0); Frames is the data summarised.
    void FoldFrames(const float* Frames, int64_t FirstFrame, int64_t LastFrame, Stats* Out) const;

private:
    // Per block, per trace: min, max, sum of squares.
    struct Level
    {
        int64_t FramesPerBlock = 1;
        std::vector<float> Values;
    };

    int ChannelCount = 0;
    int64_t Frames = 0;
    std::vector<Level> Levels;  // finest first

    size_t Stride() const { return static_cast<size_t>(Traces()) * 3; }
    void ShapeLevels();
    void ComputeFineBlocks(const float* Frames, int64_t FirstBlock, int64_t EndBlock);
    void ComputeFineBlockRange(const float* Frames, int64_t FirstBlock, int64_t EndBlock);
    void FoldCoarseBlocks(int LevelIndex, int64_t FirstBlock, int64_t EndBlock);
    void FoldLevel(int LevelIndex, const float* FrameData, int64_t First, int64_t Last, Stats* Out) const;
    void FoldSingleFrames(const float* FrameData, int64_t First, int64_t Last, Stats* Out) const;
};
