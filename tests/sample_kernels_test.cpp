// The per-sample loops behind gain and the span query: the same answer for
// every start and length, so the vector part, its tail and a span shorter
// than one vector all agree.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "sample_kernels.h"

namespace
{
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

TEST(SampleKernels, GainScalesClampsAndSilencesNaNOverEverySpanAndTouchesNothingElse)
{
    // Gain 2: 0.25 -> 0.5, 0.75 -> 1.5 held at 1, -0.6 -> -1.2 held at -1,
    // -0.1 -> -0.2, NaN -> 0, inf -> 1, -inf -> -1, 0.5 -> 1 exactly, 1e30 -> 1.
    const std::vector<float> input = {0.25f, 0.75f, -0.6f, -0.1f, kNaN, kInf, -kInf, 0.5f, 1e30f, 0.25f, -0.1f};
    const std::vector<float> twice = {0.5f, 1.0f, -1.0f, -0.2f, 0.0f, 1.0f, -1.0f, 1.0f, 1.0f, 0.5f, -0.2f};
    const float kUntouched = 7.0f;
    for (size_t first = 0; first <= input.size(); ++first)
        for (size_t last = first; last <= input.size(); ++last)
        {
            // A guard sample on each side, so that a write past either end shows.
            std::vector<float> samples(input.size() + 2, kUntouched);
            std::copy(input.begin() + first, input.begin() + last, samples.begin() + 1 + first);
            SampleKernels::ApplyGainClamped(samples.data() + 1 + first, samples.data() + 1 + last, 2.0f);
            for (size_t i = 0; i < samples.size(); ++i)
            {
                const bool inside = i >= 1 + first && i < 1 + last;
                EXPECT_EQ(samples[i], inside ? twice[i - 1] : kUntouched) << first << ".." << last << " at " << i;
            }
        }
}

TEST(SampleKernels, MixRangeOfEverySpanIsTheLowestAndHighestFrameMixNaNExcepted)
{
    // Stereo frames and their mixes, (L + R) / 2:
    //  (0.5, 1) 0.75 | (1, -1) 0 | (2, 1) 1.5 | (-0.5, -0.5) -0.5 | (0.3, 0.1) 0.2 |
    //  (NaN, 1) NaN | (0, 0) 0 | (-0.25, 0) -0.125 | (-3, 1) -1 | (0.5, 0.5) 0.5
    const std::vector<float> frames = {0.5f, 1.0f, 1.0f,  -1.0f, 2.0f,   1.0f, -0.5f, -0.5f, 0.3f,  0.1f,
                                       kNaN, 1.0f, 0.0f,  0.0f,  -0.25f, 0.0f, -3.0f, 1.0f,  0.5f,  0.5f};
    const float mixes[] = {0.75f, 0.0f, 1.5f, -0.5f, 0.2f, kNaN, 0.0f, -0.125f, -1.0f, 0.5f};
    const int64_t frameCount = 10;
    for (int64_t first = 0; first <= frameCount; ++first)
        for (int64_t last = first; last <= frameCount; ++last)
        {
            // Both start at 0.0, as the span query starts them.
            float expectedMin = 0.0f;
            float expectedMax = 0.0f;
            for (int64_t f = first; f < last; ++f)
                if (!std::isnan(mixes[f]))
                {
                    expectedMin = std::min(expectedMin, mixes[f]);
                    expectedMax = std::max(expectedMax, mixes[f]);
                }
            float lowest = 0.0f;
            float highest = 0.0f;
            SampleKernels::FoldMixRange(frames.data() + first * 2, last - first, 2, lowest, highest);
            EXPECT_EQ(lowest, expectedMin) << first << ".." << last;
            EXPECT_EQ(highest, expectedMax) << first << ".." << last;
        }

    // Three channels, no vector path: (3, 0, 0) mixes to 1, (-3, 0, -3) to -2.
    const std::vector<float> three = {3.0f, 0.0f, 0.0f, -3.0f, 0.0f, -3.0f};
    float lowest = 0.0f;
    float highest = 0.0f;
    SampleKernels::FoldMixRange(three.data(), 2, 3, lowest, highest);
    EXPECT_EQ(lowest, -2.0f);
    EXPECT_EQ(highest, 1.0f);
}
}  // namespace
