// Decodes audio files with the program's decoder and prints what came out,
// for timing the decoder alone beside the ffmpeg program.
// Usage: decode_file [--threads N] [--no-halves] [--play SEC] FILE...
// --play adopts each file into an editor as a tab's open does and plays it
// for SEC seconds on SDL's output (silent under SDL_AUDIODRIVER=dummy), for
// the peak memory of an open document that is playing.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "audio_decode.h"
#include "document_format.h"
#include "glwaveedit.h"

int main(int ArgumentCount, char** Arguments)
{
    DecodeControl control;
    double playSec = 0.0;
    int status = 0;
    for (int i = 1; i < ArgumentCount; ++i)
    {
        if (std::strcmp(Arguments[i], "--threads") == 0 && i + 1 < ArgumentCount)
        {
            control.Threads = std::atoi(Arguments[++i]);
            continue;
        }
        if (std::strcmp(Arguments[i], "--play") == 0 && i + 1 < ArgumentCount)
        {
            playSec = std::atof(Arguments[++i]);
            continue;
        }
        if (std::strcmp(Arguments[i], "--no-halves") == 0)
        {
            control.HalvesFromSec = 1e300;
            continue;
        }
        DecodedAudio audio;
        std::string error;
        const auto started = std::chrono::steady_clock::now();
        const bool ok = DecodeAudioFile(Arguments[i], control, audio, &error);
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - started;
        if (!ok)
        {
            std::fprintf(stderr, "%s: %s\n", Arguments[i], error.c_str());
            status = 1;
            continue;
        }
        std::printf("%s: %s, %.3f s of audio in %.3f s", Arguments[i], audio.CodecName.c_str(),
                    DocumentSeconds(DocumentFrames(audio.Frames.size())), elapsed.count());
        if (audio.SecondHalfFromFrame > 0)
            std::printf(", halves joined at %.3f s", DocumentSeconds(static_cast<int64_t>(audio.SecondHalfFromFrame)));
        std::printf("\n");
        if (playSec > 0.0)
        {
            GLWaveEdit editor;
            editor.AdoptDecodedDocument(Arguments[i], std::move(audio.Frames));
            std::string playError;
            if (!editor.PlayFromCurrentPosition(&playError))
            {
                std::fprintf(stderr, "%s: %s\n", Arguments[i], playError.c_str());
                status = 1;
                continue;
            }
            std::this_thread::sleep_for(std::chrono::duration<double>(playSec));
            editor.StopPlayback();
        }
    }
    return status;
}
