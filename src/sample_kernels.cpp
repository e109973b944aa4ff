// The loops of sample_kernels.h. Each vector loop does, lane by lane, exactly
// what its scalar twin does to one sample, so that results do not depend on
// where a span starts or how long it is.
#include "sample_kernels.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace SampleKernels
{
// --- Gain ---

static float GainOne(float Sample, float Gain)
{
    float product = Sample * Gain;
    product = product == product ? product : 0.0f;
    product = product < -1.0f ? -1.0f : product;
    return product > 1.0f ? 1.0f : product;
}

void ApplyGainClamped(float* First, float* Last, float Gain)
{
    float* sample = First;
#if defined(__SSE2__)
    const __m128 gain = _mm_set1_ps(Gain);
    const __m128 low = _mm_set1_ps(-1.0f);
    const __m128 high = _mm_set1_ps(1.0f);
    for (; Last - sample >= 4; sample += 4)
    {
        __m128 product = _mm_mul_ps(_mm_loadu_ps(sample), gain);
        product = _mm_and_ps(product, _mm_cmpord_ps(product, product));  // NaN lanes to 0.0
        // maxps/minps answer their second operand when the first comparison
        // fails, which is GainOne's order: low > p ? low : p, high < p ? high : p.
        product = _mm_min_ps(high, _mm_max_ps(low, product));
        _mm_storeu_ps(sample, product);
    }
#endif
    for (; sample != Last; ++sample)
        *sample = GainOne(*sample, Gain);
}

void ApplyChannelGainsClamped(float* Frames, int64_t FrameCount, int Channels, const float* Gains)
{
    if (FrameCount <= 0 || Channels <= 0)
        return;
    bool bOneGain = true;
    for (int channel = 1; channel < Channels; ++channel)
        bOneGain = bOneGain && Gains[channel] == Gains[0];
    if (bOneGain)
        return ApplyGainClamped(Frames, Frames + FrameCount * Channels, Gains[0]);
    int64_t frame = 0;
#if defined(__SSE2__)
    // One, two or four channels repeat within four lanes: a vector of gains
    // in the frames' own order.
    if (Channels == 2 || Channels == 4)
    {
        const __m128 gain = Channels == 2 ? _mm_setr_ps(Gains[0], Gains[1], Gains[0], Gains[1])
                                          : _mm_setr_ps(Gains[0], Gains[1], Gains[2], Gains[3]);
        const __m128 low = _mm_set1_ps(-1.0f);
        const __m128 high = _mm_set1_ps(1.0f);
        const int64_t framesPerVector = 4 / Channels;
        for (; FrameCount - frame >= framesPerVector; frame += framesPerVector)
        {
            float* sample = Frames + frame * Channels;
            __m128 product = _mm_mul_ps(_mm_loadu_ps(sample), gain);
            product = _mm_and_ps(product, _mm_cmpord_ps(product, product));
            product = _mm_min_ps(high, _mm_max_ps(low, product));
            _mm_storeu_ps(sample, product);
        }
    }
#endif
    for (; frame < FrameCount; ++frame)
        for (int channel = 0; channel < Channels; ++channel)
            Frames[frame * Channels + channel] = GainOne(Frames[frame * Channels + channel], Gains[channel]);
}

// --- Channel mix ---

static void FoldMixScalar(const float* Frames, int64_t FrameCount, int Channels, float& InOutMin,
                          float& InOutMax)
{
    const float channels = static_cast<float>(Channels);
    for (int64_t f = 0; f < FrameCount; ++f)
    {
        const float* frame = Frames + f * Channels;
        float mixed = 0.0f;
        for (int c = 0; c < Channels; ++c)
            mixed += frame[c];
        mixed /= channels;
        // A NaN compares false and changes neither.
        InOutMin = mixed < InOutMin ? mixed : InOutMin;
        InOutMax = mixed > InOutMax ? mixed : InOutMax;
    }
}

#if defined(__SSE2__)
// Stereo, four frames a pass: the left and right samples are split into two
// vectors, summed and halved as the scalar loop does; minps(m, lo) is
// m < lo ? m : lo, so a NaN mix leaves the lane as it was.
static int64_t FoldStereoMixSse(const float* Frames, int64_t FrameCount, float& InOutMin, float& InOutMax)
{
    const __m128 zero = _mm_setzero_ps();
    const __m128 two = _mm_set1_ps(2.0f);
    __m128 low = _mm_set1_ps(InOutMin);
    __m128 high = _mm_set1_ps(InOutMax);
    int64_t f = 0;
    for (; FrameCount - f >= 4; f += 4)
    {
        const __m128 a = _mm_loadu_ps(Frames + f * 2);      // L0 R0 L1 R1
        const __m128 b = _mm_loadu_ps(Frames + f * 2 + 4);  // L2 R2 L3 R3
        const __m128 left = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 right = _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
        // 0.0 + L + R, in the scalar loop's order, so that even the sign of a zero agrees.
        const __m128 mixed = _mm_div_ps(_mm_add_ps(_mm_add_ps(zero, left), right), two);
        low = _mm_min_ps(mixed, low);
        high = _mm_max_ps(mixed, high);
    }
    alignas(16) float lows[4];
    alignas(16) float highs[4];
    _mm_store_ps(lows, low);
    _mm_store_ps(highs, high);
    for (int lane = 0; lane < 4; ++lane)
    {
        InOutMin = lows[lane] < InOutMin ? lows[lane] : InOutMin;
        InOutMax = highs[lane] > InOutMax ? highs[lane] : InOutMax;
    }
    return f;
}
#endif

void FoldMixRange(const float* Frames, int64_t FrameCount, int Channels, float& InOutMin, float& InOutMax)
{
    if (FrameCount <= 0 || Channels <= 0)
        return;
    int64_t done = 0;
#if defined(__SSE2__)
    if (Channels == 2)
        done = FoldStereoMixSse(Frames, FrameCount, InOutMin, InOutMax);
#endif
    FoldMixScalar(Frames + done * Channels, FrameCount - done, Channels, InOutMin, InOutMax);
}
}  // namespace SampleKernels
