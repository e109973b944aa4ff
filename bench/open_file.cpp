// Opens audio files the way the editor does and prints what came out, for
// timing the import beside the ffmpeg program (see compare.sh).
#include <chrono>
#include <cstdio>
#include <vector>

#include "glwaveedit.h"

int main(int ArgumentCount, char** Arguments)
{
    GLWaveEdit editor;
    for (int i = 1; i < ArgumentCount; ++i)
    {
        const auto started = std::chrono::steady_clock::now();
        editor.SetExternalPeakWaveform(Arguments[i], {}, 0.0);
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - started;
        std::printf("%s: %.3f s of audio in %.3f s\n", Arguments[i], editor.DurationSec, elapsed.count());
    }
    return 0;
}
