#include "demo_clip.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "document_format.h"

// Each chord is struck and dies away; the voices spread a little between
// left and right.
std::vector<float> SynthesiseDemoChords(int SampleRate)
{
    constexpr double kPi = 3.14159265358979323846;
    constexpr double kChordSec = 2.0;
    const double chords[2][3] = {{220.0, 277.18, 329.63}, {293.66, 369.99, 440.0}};
    const int framesPerChord = static_cast<int>(kChordSec * SampleRate);
    std::vector<float> frames(static_cast<size_t>(framesPerChord) * 2 * kDocumentChannels);
    for (int chord = 0; chord < 2; ++chord)
        for (int f = 0; f < framesPerChord; ++f)
        {
            const double t = static_cast<double>(f) / SampleRate;
            const double envelope = std::min(t / 0.02, 1.0) * std::exp(-2.2 * t);
            double left = 0.0;
            double right = 0.0;
            for (int voice = 0; voice < 3; ++voice)
            {
                const double tone = std::sin(2.0 * kPi * chords[chord][voice] * t);
                left += tone * (1.2 - 0.3 * voice);
                right += tone * (0.6 + 0.3 * voice);
            }
            const size_t at = (static_cast<size_t>(chord) * framesPerChord + f) * kDocumentChannels;
            frames[at] = static_cast<float>(0.3 * envelope * left);
            frames[at + 1] = static_cast<float>(0.3 * envelope * right);
        }
    return frames;
}

