// Opens a file the way the editor does, then saves it Runs times to each
// target through the editor's encoder, printing the seconds of every save
// alone (the open is not counted): the editor's side of the save rows in
// bench/compare.sh.
// Usage: save_file [--rate HZ --bits N] INPUT RUNS OUTPUT...   (the format
// follows each extension; with --rate and --bits the frames go back to that
// rate, with the SoX resampler, and depth as the program saves a file in its
// source's format)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "audio_codec_internal.h"
#include "glwaveedit.h"

int main(int ArgumentCount, char** Arguments)
{
    EncodeOptions converted;
    if (ArgumentCount > 5 && std::string(Arguments[1]) == "--rate" && std::string(Arguments[3]) == "--bits")
    {
        converted.OutputRateHz = std::atoi(Arguments[2]);
        converted.SampleBits = std::atoi(Arguments[4]);
        Arguments += 4;
        ArgumentCount -= 4;
    }
    if (ArgumentCount < 4)
    {
        std::fprintf(stderr, "usage: %s [--rate HZ --bits N] INPUT RUNS OUTPUT...\n", Arguments[0]);
        return 2;
    }
    const int runs = std::atoi(Arguments[2]);
    if (runs < 1)
    {
        std::fprintf(stderr, "save_file: RUNS must be a positive number, not \"%s\"\n", Arguments[2]);
        return 2;
    }
    GLWaveEdit editor;
    editor.SetExternalPeakWaveform(Arguments[1], {}, 0.0);
    if (!(editor.DurationSec > 0.0))
    {
        std::fprintf(stderr, "save_file: cannot open %s\n", Arguments[1]);
        return 1;
    }
    for (int i = 3; i < ArgumentCount; ++i)
        for (int run = 0; run < runs; ++run)
        {
            const auto started = std::chrono::steady_clock::now();
            std::string error;
            const std::vector<float>& frames = editor.ActiveFrames();
            const bool ok = converted.OutputRateHz > 0
                                ? TarvikEncodeFloatAudioFileWith(Arguments[i], frames.data(), frames.size(),
                                                                 kDocumentRateHz, kDocumentChannels, converted, &error)
                                : editor.SaveToFile(Arguments[i], 192, &error);
            if (!ok)
            {
                std::fprintf(stderr, "save_file: %s: %s\n", Arguments[i], error.c_str());
                return 1;
            }
            const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - started;
            std::printf("%s %.3f\n", Arguments[i], elapsed.count());
        }
    return 0;
}
