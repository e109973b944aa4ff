// Filters of FFmpeg's libavfilter run over frames held in memory: the edits
// that are signal processing (fades, the high-pass) are FFmpeg's own filters,
// not code of ours.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct WorkProgress;

namespace AudioEffects
{
// Runs Count interleaved float frames of Channels channels at SampleRate
// through Chain, a filter chain in FFmpeg's own syntax ("highpass=f=80"),
// built once for the run. Out gets what the chain gives back, interleaved
// float with the same channels. "" on success, else what went wrong. With
// Progress, each frame fed is counted, and a stop request ends the run with
// WorkCancelledMessage().
std::string RunFilterChain(const std::string& Chain, const float* Frames, int64_t Count, int Channels,
                           int SampleRate, std::vector<float>& Out, WorkProgress* Progress = nullptr);
}  // namespace AudioEffects
