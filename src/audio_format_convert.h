// Conversion of the editor's samples into a file's own format on the way to
// the encoder: another rate (libswresample with the SoX resampler), mono, and
// integer depth by rounding, with TPDF dither where asked. Streams: the input
// goes in slices, so that an hour's audio is never held twice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "document_format.h"

struct SwrContext;

struct FormatConversion
{
    int InputRateHz = kDocumentRateHz;
    int InputChannels = kDocumentChannels;
    int OutputRateHz = kDocumentRateHz;
    int OutputChannels = kDocumentChannels;  // 1: the mean of the input's channels, times MonoScale
    double MonoScale = 1.0;
    // 16 or 24: rounded to that many bits (the values stay float, on the
    // integer grid, so that the encoder's own conversion is exact). 0 leaves
    // the samples as they are.
    int QuantiseBits = 0;
    bool bDither = false;  // triangular dither of one step before the rounding
    // The exact length of the output, in frames: the resampler's last frames
    // are cut or zeros added to reach it. 0 keeps what the resampler gives.
    int64_t OutputFrames = 0;
};

// The level at which the editor's import (FFmpeg's default matrix) puts a
// mono source's one channel into each of its two: about 0.7071. A mono file
// saved back is scaled by its inverse, so it keeps its own level.
double ImportMonoSpreadGain();

class FormatConverter
{
public:
    FormatConverter() = default;
    ~FormatConverter();
    FormatConverter(const FormatConverter&) = delete;
    FormatConverter& operator=(const FormatConverter&) = delete;

    // False with a reason for a rate or channel count out of range, or when
    // the resampler cannot be made.
    bool Open(const FormatConversion& Settings, std::string& OutError);
    // Converts Count interleaved input frames, appending to Out.
    bool Convert(const float* Input, size_t Count, std::vector<float>& Out, std::string& OutError);
    // The resampler's last frames, and the length made exact; appended to Out.
    bool Finish(std::vector<float>& Out, std::string& OutError);

private:
    FormatConversion Settings;
    SwrContext* pResampler = nullptr;  // null when the rate stays
    std::vector<float> Mixed;          // the input in the output's channels
    std::vector<float> Resampled;      // one slice out of the resampler
    int64_t Emitted = 0;
    uint64_t DitherState = 0x9E3779B97F4A7C15ull;

    bool Resample(const float* Input, int Count, std::vector<float>& Out, std::string& OutError);
    // Appends Count frames to Out: held to OutputFrames, quantised.
    void Emit(const float* Frames, size_t Count, std::vector<float>& Out);
    float NextDither();
};
