// Per-sample loops over a whole document: gain and the channel mix's range.
// They run over hundreds of millions of samples, so on x86-64 they are written
// with SSE2 (part of every x86-64 CPU, so the binary runs anywhere); elsewhere
// a plain loop gives the same results.
#pragma once

#include <cstdint>

namespace SampleKernels
{
// Every sample of First..Last times Gain, held in -1.0..1.0; a sample that is
// or becomes NaN turns into silence (0.0).
void ApplyGainClamped(float* First, float* Last, float Gain);

// The same with a gain per channel: each of FrameCount interleaved frames of
// Channels samples has its sample of channel c times Gains[c].
void ApplyChannelGainsClamped(float* Frames, int64_t FrameCount, int Channels, const float* Gains);

// Folds the mix of each of FrameCount interleaved frames (the sum of its
// Channels samples divided by Channels) into InOutMin and InOutMax. A NaN mix
// changes neither.
void FoldMixRange(const float* Frames, int64_t FrameCount, int Channels, float& InOutMin, float& InOutMax);
}  // namespace SampleKernels
