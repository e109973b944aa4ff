// GLTheme: the shell's colours and text scale. Windows copy what they need
// when they are made; a later change of theme does not reach them.
#pragma once

#include "glcolor.h"

class GLTheme
{
public:
    enum SemanticTone
    {
        ToneNeutral = 0,
        ToneInfo = 1,
        ToneSuccess = 2,
        ToneWarning = 3,
        ToneDanger = 4,
    };

    struct Palette
    {
        GLColor OverlaySurface{0.07f, 0.08f, 0.11f, 0.96f};
        GLColor PrimaryText{0.9f, 0.92f, 0.96f, 1.0f};
        GLColor MutedText{0.62f, 0.66f, 0.74f, 1.0f};
        GLColor OverlayBorder{0.25f, 0.28f, 0.36f, 1.0f};
        GLColor FocusBorder{0.38f, 0.62f, 0.98f, 1.0f};
        // Indexed by SemanticTone.
        GLColor Accent[5] = {{0.7f, 0.72f, 0.78f, 1.0f},
                             {0.33f, 0.7f, 0.98f, 0.9f},
                             {0.36f, 0.84f, 0.5f, 0.9f},
                             {0.98f, 0.74f, 0.26f, 0.9f},
                             {0.96f, 0.36f, 0.36f, 0.9f}};
        GLColor Fill[5] = {{0.1f, 0.11f, 0.14f, 1.0f},
                           {0.05f, 0.09f, 0.14f, 1.0f},
                           {0.05f, 0.12f, 0.08f, 1.0f},
                           {0.14f, 0.11f, 0.04f, 1.0f},
                           {0.15f, 0.06f, 0.06f, 1.0f}};
        double TextScale = 1.0;
    };

    // The theme in force; the shell may change it at any time on its thread.
    static Palette& Active();

    static const GLColor& OverlaySurfaceColor();
    static const GLColor& PrimaryTextColor();
    static const GLColor& MutedTextColor();
    static const GLColor& OverlayBorderColor();
    static const GLColor& FocusBorderColor();
    static GLColor SemanticAccent(SemanticTone Tone);
    static GLColor SemanticFill(SemanticTone Tone);

    // SizePx scaled by the theme's text scale, rounded and kept in MinPx..MaxPx.
    static int ScaleTextPx(int SizePx, int MinPx, int MaxPx);
};
