// Mouse: the pointer as the shell last saw it.
#pragma once

class Mouse
{
public:
    static constexpr int kButtonCount = 7;

    double X3D = 0.0;  // pointer x, normalised screen coordinates
    double Y3D = 0.0;  // pointer y, normalised, growing upward
    bool pButton[kButtonCount] = {};      // held now; 0 left, 1 middle, 2 right
    bool pPrevButton[kButtonCount] = {};  // held one frame earlier

    // Called by the shell once per frame before it reads new events, so that
    // press and release edges last exactly one frame.
    void BeginFrame()
    {
        for (int i = 0; i < kButtonCount; ++i)
            pPrevButton[i] = pButton[i];
    }
};
