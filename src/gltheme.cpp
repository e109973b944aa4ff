#include "gltheme.h"

#include <algorithm>
#include <cmath>

GLTheme::Palette& GLTheme::Active()
{
    static Palette palette;
    return palette;
}

const GLColor& GLTheme::OverlaySurfaceColor() { return Active().OverlaySurface; }
const GLColor& GLTheme::PrimaryTextColor() { return Active().PrimaryText; }
const GLColor& GLTheme::MutedTextColor() { return Active().MutedText; }
const GLColor& GLTheme::OverlayBorderColor() { return Active().OverlayBorder; }
const GLColor& GLTheme::FocusBorderColor() { return Active().FocusBorder; }

static int ToneIndex(GLTheme::SemanticTone Tone)
{
    return std::clamp(static_cast<int>(Tone), 0, 4);
}

GLColor GLTheme::SemanticAccent(SemanticTone Tone) { return Active().Accent[ToneIndex(Tone)]; }
GLColor GLTheme::SemanticFill(SemanticTone Tone) { return Active().Fill[ToneIndex(Tone)]; }

int GLTheme::ScaleTextPx(int SizePx, int MinPx, int MaxPx)
{
    const double scaled = std::round(SizePx * Active().TextScale);
    const double bounded = std::clamp(scaled, static_cast<double>(MinPx), static_cast<double>(std::max(MinPx, MaxPx)));
    return static_cast<int>(bounded);
}
