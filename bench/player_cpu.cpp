// CPU time the audio player takes while idle, playing, paused and stopped, on
// the silent output (or on the sound device with --device). Each state is
// measured over 3 s of wall time as process CPU time, all threads together.
#include <time.h>

#include <chrono>
#include <cstdio>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "gldeck_audio_player.h"

namespace {

double ProcessCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + now.tv_nsec * 1e-9;
}

void Measure(const char* State)
{
    constexpr double kWallSec = 3.0;
    const double cpuBefore = ProcessCpuSeconds();
    std::this_thread::sleep_for(std::chrono::duration<double>(kWallSec));
    const double cpuSec = ProcessCpuSeconds() - cpuBefore;
    std::printf("%-8s %8.3f ms CPU in %.0f s  (%.4f %% of one core)\n", State, cpuSec * 1e3, kWallSec,
                100.0 * cpuSec / kWallSec);
}

}  // namespace

int main(int ArgumentCount, char** Arguments)
{
    const bool bDevice = ArgumentCount > 1 && std::strcmp(Arguments[1], "--device") == 0;
    if (!bDevice)
        setenv("GLWE_AUDIO_OUTPUT", "silent", 1);

    GLDeckAudioPlayer player;
    Measure("idle");
    // A minute of a 440 Hz stereo tone at 44100 Hz, so the resampler runs too.
    std::vector<float> frames(44100 * 60 * 2);
    for (size_t i = 0; i < frames.size(); ++i)
        frames[i] = 0.2f * static_cast<float>(std::sin(2.0 * M_PI * 440.0 * static_cast<double>(i / 2) / 44100.0));
    std::string error;
    if (!player.PlayPcm(std::move(frames), 44100, 2, 0.0, &error))
    {
        std::fprintf(stderr, "PlayPcm failed: %s\n", error.c_str());
        return 1;
    }
    std::printf("output: %s\n", player.HasAudioDevice() ? "sound device" : "silent");
    Measure("playing");
    player.SetPaused(true);
    Measure("paused");
    player.Stop();
    Measure("stopped");
    return 0;
}
