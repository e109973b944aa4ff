// How long the frame loop was busy between two waits, for bench/frame_gaps.sh.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "sdl_compat.h"

// The longest stretch the loop was busy between two waits: how long the
// window could not draw. The first frame, which sets up the UI and the GL
// pipelines before anything shows, is told apart. Printed at exit when
// GLWE_FRAME_STATS is set, for bench/frame_gaps.sh.
struct FrameTimes
{
    const bool bShow = std::getenv("GLWE_FRAME_STATS") != nullptr;
    double FirstMs = 0.0;
    double LongestMs = 0.0;
    long Frames = 0;
    void Note(Uint64 BusyFrom)
    {
        const double ms = 1000.0 * static_cast<double>(SDL_GetPerformanceCounter() - BusyFrom) /
                          static_cast<double>(SDL_GetPerformanceFrequency());
        ++Frames;
        double& worst = Frames == 1 ? FirstMs : LongestMs;
        worst = std::max(worst, ms);
        if (bShow && ms > 50.0)
            std::fprintf(stderr, "glwaveedit: frame %ld busy %.1f ms\n", Frames, ms);
    }
    void Report() const
    {
        if (bShow)
            std::fprintf(stderr, "glwaveedit: %ld frames, first %.1f ms, longest busy stretch after it %.1f ms\n",
                         Frames, FirstMs, LongestMs);
    }
};
