// The one format of every document the editor holds: interleaved 32-bit float
// at 48000 Hz, 2 channels. The import and the program's decoder convert to
// it, the clipboard, the history and the recovery journal keep it, and a save
// converts from it to whatever the file is to have.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr int kDocumentRateHz = 48000;
constexpr int kDocumentChannels = 2;

// Whole frames in Floats interleaved document floats.
constexpr int64_t DocumentFrames(size_t Floats)
{
    return static_cast<int64_t>(Floats / kDocumentChannels);
}

// Seconds of Frames document frames.
constexpr double DocumentSeconds(int64_t Frames)
{
    return static_cast<double>(Frames) / kDocumentRateHz;
}
