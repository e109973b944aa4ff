// GLWaveEdit's render side: the window, tab bar, plot, channel lanes with
// their amplitude scales, selection, markers, time labels and tab menu, drawn
// with the fixed-function pipeline in normalised coordinates. Tabs, close
// boxes and the menu use the same geometry as the hit tests, so that what is
// seen is what is hit.
//
// It only draws: the columns it draws come from the waveform data
// (glwaveedit_wave_data.cpp).
//
// Sections, in order:
//   Time axis     NiceTimeStep, FormatTimeLabel, axis labels, PlayPositionText
//   Drawing       Render and its parts

#include "glwaveedit.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "core.h"
#include "glgeometry.h"
#include "gltheme.h"

// Bounds of a time axis step: below a tenth of a millisecond labels would not
// differ, and above some thirty years the ladder's arithmetic gains nothing.
static constexpr double kMinTickStepSec = 1e-4;
static constexpr double kMaxTickStepSec = 1e9;
// Upper bound of the desired tick count, so a wild setting cannot flood a frame.
static constexpr int kMaxTicks = 64;
static constexpr int kFallbackTextPx = 13;
static const char* const kEllipsis = "\xE2\x80\xA6";
static const char* const kMinusInfinity = "-\xE2\x88\x9E";

// --- Time axis ---

// Smallest of 1, 2, 5 times a power of ten that is at least X (X > 0).
static double DecadeStep(double X)
{
    const double decade = std::pow(10.0, std::floor(std::log10(X)));
    for (const double mantissa : {1.0, 2.0, 5.0})
        if (mantissa * decade >= X * (1.0 - 1e-12))
            return mantissa * decade;
    return 10.0 * decade;
}

// Below a second 1-2-5 decades; then 1, 2, 5, 10, 15, 30 seconds, the same
// minutes and the same hours; past 30 hours 1-2-5 decades of hours.
double GLWaveEdit::NiceTimeStep(double RoughStepSec) const
{
    if (!(RoughStepSec > 0.0))
        return kMinTickStepSec;
    const double rough = std::clamp(RoughStepSec, kMinTickStepSec, kMaxTickStepSec);
    if (rough < 1.0)
        return DecadeStep(rough);
    for (const double unitSec : {1.0, 60.0, 3600.0})
        for (const double count : {1.0, 2.0, 5.0, 10.0, 15.0, 30.0})
            if (count * unitSec >= rough)
                return count * unitSec;
    return 3600.0 * DecadeStep(rough / 3600.0);
}

// TimeSec rounded to Decimals, as seconds ("12.5s", Fields 1), m:ss (2) or
// h:mm:ss (3); Fields 0 picks by the rounded magnitude. LeadWidth pads the
// leading field with zeros; bTrimZeros drops trailing zeros of the fraction.
static std::string ClockText(double TimeSec, int Decimals, int Fields, int LeadWidth, bool bTrimZeros)
{
    if (!std::isfinite(TimeSec))
        return "--";
    long long scale = 1;
    for (int i = 0; i < Decimals; ++i)
        scale *= 10;
    const double magnitude = std::min(std::fabs(TimeSec), 1e12);
    const long long units = std::llround(magnitude * static_cast<double>(scale));
    const long long wholeSec = units / scale;
    const long long fraction = units % scale;

    std::string fractionText;
    if (Decimals > 0 && !(bTrimZeros && fraction == 0))
    {
        const std::string digits = std::to_string(fraction);
        fractionText = "." + std::string(static_cast<size_t>(Decimals) - digits.size(), '0') + digits;
        while (bTrimZeros && fractionText.back() == '0')
            fractionText.pop_back();
    }
    if (Fields == 0)
        Fields = wholeSec < 60 ? 1 : (wholeSec < 3600 ? 2 : 3);
    const char* sign = (TimeSec < 0.0 && units != 0) ? "-" : "";
    char text[80];
    if (Fields == 1)
        std::snprintf(text, sizeof(text), "%s%0*lld%ss", sign, LeadWidth, wholeSec, fractionText.c_str());
    else if (Fields == 2)
        std::snprintf(text, sizeof(text), "%s%0*lld:%02lld%s", sign, LeadWidth, wholeSec / 60, wholeSec % 60,
                      fractionText.c_str());
    else
        std::snprintf(text, sizeof(text), "%s%0*lld:%02lld:%02lld%s", sign, LeadWidth, wholeSec / 3600,
                      wholeSec / 60 % 60, wholeSec % 60, fractionText.c_str());
    return text;
}

// "0s", "0.25s", "12.5s" under a minute, "1:05" and "1:05.5" under an hour,
// "1:02:03" beyond; to a tenth of a millisecond, trailing zeros dropped.
std::string GLWaveEdit::FormatTimeLabel(double TimeSec) const
{
    return ClockText(TimeSec, 4, 0, 1, true);
}

// Decimals that tell ticks StepSec apart: none for whole seconds, one for
// tenths and halves, three for milliseconds.
static int DecimalsForStep(double StepSec)
{
    if (!(StepSec > 0.0) || StepSec >= 1.0 - 1e-9)
        return 0;
    return std::clamp(static_cast<int>(std::ceil(-std::log10(StepSec) - 1e-9)), 1, 4);
}

// Fields that the largest magnitude on display needs.
static int FieldsForMagnitude(double MaxSec)
{
    const double magnitude = std::fabs(MaxSec);
    return magnitude >= 3600.0 ? 3 : (magnitude >= 60.0 ? 2 : 1);
}

// A label of the time axis now in view: every label of one axis has the same
// fields and decimals, rounded to them, so 2:59.9996 at milliseconds is 3:00.000.
std::string GLWaveEdit::FormatAxisTime(double TimeSec, double StepSec) const
{
    if (TimeTextProvider)
    {
        std::string text = TimeTextProvider(TimeSec, StepSec);
        if (!text.empty())
            return text;
    }
    const double largestSec = std::max(std::fabs(ViewStartSec), std::fabs(ViewEndSec));
    return ClockText(TimeSec, DecimalsForStep(StepSec), FieldsForMagnitude(largestSec), 1, false);
}

std::string GLWaveEdit::PlayPositionText() const
{
    const double duration = std::max(DurationSec, 0.0);
    const int fields = std::max(FieldsForMagnitude(duration), 2);
    // The leading field as wide as the duration's, so the text never changes width.
    const long long wholeSec = std::llround(duration * 1000.0) / 1000;
    const long long lead = fields == 3 ? wholeSec / 3600 : wholeSec / 60;
    const int leadWidth = lead >= 10 ? static_cast<int>(std::to_string(lead).size()) : 1;
    const double position = std::clamp(DisplayedTimeSec(), 0.0, duration);
    if (TimeTextProvider)
    {
        const std::string positionText = TimeTextProvider(position, 0.001);
        const std::string durationText = TimeTextProvider(duration, 0.001);
        if (!positionText.empty() && !durationText.empty())
            return positionText + " / " + durationText;
    }
    return ClockText(position, 3, fields, leadWidth, false) + " / " + ClockText(duration, 3, fields, leadWidth, false);
}

// --- Drawing ---

static double ScreenWidthPx()
{
    return (p && p->pCoreSDL) ? std::max(p->pCoreSDL->Width, 1) : 1.0;
}

static double ScreenHeightPx()
{
    return (p && p->pCoreSDL) ? std::max(p->pCoreSDL->Height, 1) : 1.0;
}

// One pixel in normalised units on each axis.
static double PixelX()
{
    return 2.0 / ScreenWidthPx();
}

static double PixelY()
{
    return 2.0 / ScreenHeightPx();
}

static TTF* TextRenderer()
{
    return (p && p->pRend && p->pRend->pTTF && p->pRend->pTTF->IsLoaded()) ? p->pRend->pTTF : nullptr;
}

static void UseColor(const GLColor& Color)
{
    glColor4f(Color.R, Color.G, Color.B, Color.A);
}

static void FillRect(double X1, double Y1, double X2, double Y2)
{
    glBegin(GL_QUADS);
    glVertex2d(X1, Y1);
    glVertex2d(X2, Y1);
    glVertex2d(X2, Y2);
    glVertex2d(X1, Y2);
    glEnd();
}

static void OutlineRect(double X1, double Y1, double X2, double Y2)
{
    glBegin(GL_LINE_LOOP);
    glVertex2d(X1, Y1);
    glVertex2d(X2, Y1);
    glVertex2d(X2, Y2);
    glVertex2d(X1, Y2);
    glEnd();
}

static void VerticalLine(double X, double Y1, double Y2)
{
    glBegin(GL_LINES);
    glVertex2d(X, Y1);
    glVertex2d(X, Y2);
    glEnd();
}

// A font that is not loaded still estimates, so layout holds without one.
static double TextWidth(const std::string& Text, int SizePx)
{
    TTF* ttf = (p && p->pRend) ? p->pRend->pTTF : nullptr;
    return (ttf ? ttf->MeasureTextPx(Text, SizePx) : 0.6 * SizePx * Text.size()) * PixelX();
}

static void DrawTextAt(const std::string& Text, double X, double BaselineY, int SizePx)
{
    if (TTF* ttf = TextRenderer())
        ttf->DrawText(Text, X, BaselineY, SizePx, static_cast<int>(ScreenWidthPx()),
                      static_cast<int>(ScreenHeightPx()));
}

// The baseline that centres a line of SizePx text between Top and Bottom.
static double CentredBaseline(double Top, double Bottom, int SizePx)
{
    return (Top + Bottom) * 0.5 - SizePx * 0.35 * PixelY();
}

// Text cut at the end, with an ellipsis, to fit MaxWidth; whole code points only.
static std::string FittedText(std::string Text, double MaxWidth, int SizePx)
{
    if (TextWidth(Text, SizePx) <= MaxWidth)
        return Text;
    while (!Text.empty() && TextWidth(Text + kEllipsis, SizePx) > MaxWidth)
    {
        while (!Text.empty() && (static_cast<unsigned char>(Text.back()) & 0xC0) == 0x80)
            Text.pop_back();
        if (!Text.empty())
            Text.pop_back();
    }
    return Text.empty() ? std::string() : Text + kEllipsis;
}

static bool ColoursMade(const GLWaveEdit& Editor)
{
    for (const GLColor* color :
         {Editor.pBackgroundColor, Editor.pPlotBackColor, Editor.pWaveColor, Editor.pWaveFillColor,
          Editor.pGridColor, Editor.pAxisColor, Editor.pSelectionFillColor, Editor.pSelectionBorderColor,
          Editor.pPlayheadColor, Editor.pHoverColor, Editor.pTabBackColor, Editor.pTabActiveColor,
          Editor.pTabBorderColor, Editor.pTextColor, Editor.pBorderColor, Editor.pBorderFocusColor})
        if (!color)
            return false;
    return true;
}

int GLWaveEdit::TextSizePx() const
{
    if (FontPx > 0)
        return GLTheme::ScaleTextPx(FontPx, 8, 96);
    return (p && p->pRend) ? p->pRend->FontSmallerPx : kFallbackTextPx;
}

void GLWaveEdit::RenderFrame() const
{
    UseColor(*pBackgroundColor);
    FillRect(X1, Y1, X2, Y2);
    UseColor(*pPlotBackColor);
    FillRect(PlotX1, PlotY1, PlotX2, PlotY2);
    UseColor(*pAxisColor);
    OutlineRect(PlotX1, PlotY1, PlotX2, PlotY2);
    UseColor(bFocused ? *pBorderFocusColor : *pBorderColor);
    glLineWidth(bFocused ? 2.0f : 1.0f);
    OutlineRect(X1 + 0.5 * PixelX(), Y1 - 0.5 * PixelY(), X2 - 0.5 * PixelX(), Y2 + 0.5 * PixelY());
    glLineWidth(1.0f);
}

// Tabs, labels and close boxes on the rectangles that HitTestDocumentTab and
// HitTestDocumentTabClose test.
void GLWaveEdit::RenderTabBar() const
{
    if (Documents.empty())
        return;
    const TabBarRect bar = TabBar();
    const double barY1 = bar.Y1;
    const double barY2 = bar.Y2;
    const int count = static_cast<int>(Documents.size());
    const int textPx = TextSizePx();

    for (int i = 0; i < count; ++i)
    {
        double tx1 = 0.0;
        double tx2 = 0.0;
        TabSpan(i, tx1, tx2);
        UseColor(i == ActiveDocumentIndex ? *pTabActiveColor : *pTabBackColor);
        FillRect(tx1, barY1, tx2 - PixelX(), barY2);
        UseColor(*pTabBorderColor);
        OutlineRect(tx1, barY1, tx2 - PixelX(), barY2);

        double cx1 = 0.0;
        double cx2 = 0.0;
        CloseBoxSpan(i, cx1, cx2);
        const double crossHalf = 0.3 * std::min((cx2 - cx1) / PixelX(), (barY1 - barY2) / PixelY());
        const double centreX = (cx1 + cx2) * 0.5;
        const double centreY = (barY1 + barY2) * 0.5;
        glLineWidth(1.5f);
        glBegin(GL_LINES);
        glVertex2d(centreX - crossHalf * PixelX(), centreY - crossHalf * PixelY());
        glVertex2d(centreX + crossHalf * PixelX(), centreY + crossHalf * PixelY());
        glVertex2d(centreX - crossHalf * PixelX(), centreY + crossHalf * PixelY());
        glVertex2d(centreX + crossHalf * PixelX(), centreY - crossHalf * PixelY());
        glEnd();
        glLineWidth(1.0f);

        const std::string& path = i == ActiveDocumentIndex ? SourceFilePath : Documents[i].SourceFilePath;
        std::string name = TabLabelProvider ? TabLabelProvider(i) : std::string();
        if (name.empty())
            name = std::filesystem::path(path).filename().string();
        if (TabMarkProvider && TabMarkProvider(i))
            name = "\xE2\x80\xA2 " + name;  // a bullet: the host's mark, e.g. unsaved changes
        const double textX = tx1 + 8.0 * PixelX();
        UseColor(*pTextColor);
        DrawTextAt(FittedText(name, cx1 - textX - 4.0 * PixelX(), textPx), textX,
                   CentredBaseline(barY1, barY2, textPx), textPx);
    }
}

// The menu on the rectangle IsInsideTabMenu tests: 0.18 by 0.1, hanging down
// and right from its anchor, over everything else.
void GLWaveEdit::RenderTabMenu() const
{
    if (!bTabMenuOpen)
        return;
    const double menuX2 = TabMenuX + 0.18;
    const double menuY2 = TabMenuY - 0.1;
    UseColor(*pBackgroundColor);
    FillRect(TabMenuX, TabMenuY, menuX2, menuY2);
    const bool pointerOnItem = p && p->pMouse && HitTestTabMenuItem(p->pMouse->X3D, p->pMouse->Y3D) == 0;
    if (pointerOnItem)
    {
        UseColor(*pTabActiveColor);
        FillRect(TabMenuX, TabMenuY, menuX2, menuY2);
    }
    UseColor(*pTabBorderColor);
    OutlineRect(TabMenuX, TabMenuY, menuX2, menuY2);
    const int textPx = TextSizePx();
    UseColor(*pTextColor);
    DrawTextAt("Close", TabMenuX + 10.0 * PixelX(), CentredBaseline(TabMenuY, menuY2, textPx), textPx);
}

// The first tick at or after the view's start, and how many fit in the view;
// bounded, since a clamped step may be far below a huge span.
static int TickRange(double ViewStartSec, double ViewEndSec, double StepSec, double& OutFirstSec)
{
    OutFirstSec = std::ceil(ViewStartSec / StepSec - 1e-9) * StepSec;
    const double count = std::floor((ViewEndSec - OutFirstSec) / StepSec + 1e-9) + 1.0;
    return static_cast<int>(std::clamp(count, 0.0, static_cast<double>(kMaxTicks * 10)));
}

// About DesiredXTicks steps over the view, or finer ones while their labels
// still fit side by side with room between them.
double GLWaveEdit::AxisTimeStep() const
{
    const double spanSec = ViewEndSec - ViewStartSec;
    double step = NiceTimeStep(spanSec / std::clamp(DesiredXTicks, 1, kMaxTicks));
    if (!(spanSec > 0.0))
        return step;
    const int textPx = TextSizePx();
    const double widthPx = (PlotX2 - PlotX1) / PixelX();
    for (;;)
    {
        // The ladder value just below step: the ladder's ratios are at most 2.5.
        double finer = NiceTimeStep(step / 3.0);
        for (double next = NiceTimeStep(finer * 1.000001); next < step * (1.0 - 1e-9);
             next = NiceTimeStep(finer * 1.000001))
            finer = next;
        if (!(finer < step) || spanSec / finer > kMaxTicks)
            return step;
        const double labelPx = std::max(TextWidth(FormatAxisTime(ViewStartSec, finer), textPx),
                                        TextWidth(FormatAxisTime(ViewEndSec, finer), textPx)) /
                               PixelX();
        if (spanSec / finer * (labelPx + 3.0 * textPx) > widthPx)
            return step;
        step = finer;
    }
}

// Colours the render side derives from the ones Init made.
static GLColor Blend(const GLColor& From, const GLColor& To, float T, float Alpha)
{
    return GLColor(From.R + (To.R - From.R) * T, From.G + (To.G - From.G) * T, From.B + (To.B - From.B) * T, Alpha);
}

static const GLColor kWhite(1.0f, 1.0f, 1.0f, 1.0f);
static const GLColor kClipColor(1.0f, 0.18f, 0.16f, 1.0f);

// A lane per channel of PCM (unless mixed to one), one for everything else
// and for a mono source.
int GLWaveEdit::LaneCount() const
{
    return (bChannelLanes && CachedTraceCount > 2 && RenderLevelScale <= 0.0) ? CachedTraceCount - 1 : 1;
}

void GLWaveEdit::LaneBounds(int Lane, double& OutTop, double& OutBottom) const
{
    const double height = (PlotY1 - PlotY2) / LaneCount();
    OutTop = PlotY1 - Lane * height;
    OutBottom = OutTop - height;
}

// The trace a lane shows: its channel, or the mix in a single lane.
int GLWaveEdit::TraceOfLane(int Lane) const
{
    return LaneCount() > 1 ? Lane : CachedTraceCount - 1;
}

static double EffectiveZoom(double Zoom)
{
    return Zoom == Zoom ? std::clamp(Zoom, 1.0, 1e4) : 1.0;
}

// Amplitude to y in a lane, a few pixels inside its edges; what the zoom
// pushes beyond full height stays on the edge.
double GLWaveEdit::AmpY(double Amp, double Top, double Bottom) const
{
    const double half = std::max((Top - Bottom) * 0.5 - 3.0 * PixelY(), PixelY());
    const double level = RenderLevelScale > 0.0 ? RenderLevelScale : 1.0;
    return (Top + Bottom) * 0.5 + std::clamp(Amp * level * EffectiveZoom(AmplitudeZoom), -1.0, 1.0) * half;
}

void GLWaveEdit::RenderGrid(double StepSec) const
{
    double firstSec = 0.0;
    const int ticks = TickRange(ViewStartSec, ViewEndSec, StepSec, firstSec);
    UseColor(*pGridColor);
    glBegin(GL_LINES);
    for (int i = 0; i < ticks; ++i)
    {
        const double x = XForTime(firstSec + i * StepSec);
        glVertex2d(x, PlotY1);
        glVertex2d(x, PlotY2);
    }
    glEnd();
}

namespace
{
struct AmplitudeTick
{
    double Amp;  // positive; drawn above and below zero
    std::string Label;
};
}  // namespace

// The levels the scale of a lane names: full scale of the zoomed view, then
// half of it (linear) or every 6 dB down (dB), where there is room for a
// line of text between them; zero is named separately.
static std::vector<AmplitudeTick> AmplitudeTicks(bool bDb, double Zoom, double HalfHeightPx, int TextPx)
{
    const double fullAmp = 1.0 / Zoom;
    const double roomPx = TextPx * 1.3;
    std::vector<AmplitudeTick> ticks;
    char text[32];
    if (!bDb)
    {
        for (const double fraction : {1.0, 0.5})
        {
            if (fraction < 1.0 && HalfHeightPx * fraction < roomPx)
                break;
            std::snprintf(text, sizeof(text), "%.3g", fullAmp * fraction);
            ticks.push_back({fullAmp * fraction, text});
        }
        return ticks;
    }
    const double topDb = 20.0 * std::log10(fullAmp);
    std::snprintf(text, sizeof(text), "%.0f dB", topDb);
    ticks.push_back({fullAmp, text});
    double lastPx = HalfHeightPx;
    for (double db = 6.0 * std::floor((topDb - 3.0) / 6.0); db >= topDb - 60.0; db -= 6.0)
    {
        const double amp = std::pow(10.0, db / 20.0);
        const double yPx = amp * Zoom * HalfHeightPx;
        if (yPx < roomPx)
            break;
        if (lastPx - yPx < roomPx)
            continue;
        std::snprintf(text, sizeof(text), "%.0f", db);
        ticks.push_back({amp, text});
        lastPx = yPx;
    }
    return ticks;
}

// Faint lines at the scale's levels and a firmer one at zero.
static void RenderLevelLines(const GLWaveEdit& Editor, const std::vector<AmplitudeTick>& Ticks, double X1, double X2,
                             double Zero, double HalfHeight, double Zoom)
{
    UseColor(*Editor.pGridColor);
    glBegin(GL_LINES);
    for (const AmplitudeTick& tick : Ticks)
        for (const double sign : {1.0, -1.0})
        {
            const double y = Zero + sign * std::min(tick.Amp * Zoom, 1.0) * HalfHeight;
            glVertex2d(X1, y);
            glVertex2d(X2, y);
        }
    glEnd();
    UseColor(*Editor.pAxisColor);
    glBegin(GL_LINES);
    glVertex2d(X1, Zero);
    glVertex2d(X2, Zero);
    glEnd();
}

static std::string LaneName(int Lane, int Lanes, bool bMonoSource)
{
    if (bMonoSource)
        return "M";
    if (Lanes == 2)
        return Lane == 0 ? "L" : "R";
    return Lanes > 2 ? std::to_string(Lane + 1) : std::string();
}

// The lane's scale on a panel at its left edge: the channel's name, and the
// levels with ticks, right-aligned against the waveform.
void GLWaveEdit::RenderAmplitudeScale(int Lane, double Top, double Bottom) const
{
    const int textPx = TextSizePx();
    const double zoom = EffectiveZoom(AmplitudeZoom);
    const double zero = (Top + Bottom) * 0.5;
    // The scale names the source's levels: where its full scale is drawn.
    const double halfHeight = AmpY(1.0 / zoom / (RenderLevelScale > 0.0 ? RenderLevelScale : 1.0), Top, Bottom) - zero;
    if (halfHeight / PixelY() < textPx * 0.8)
        return;
    const std::vector<AmplitudeTick> ticks = AmplitudeTicks(bAmplitudeDb, zoom, halfHeight / PixelY(), textPx);
    const std::string zeroLabel = bAmplitudeDb ? kMinusInfinity : "0";
    const std::string name = LaneName(Lane, LaneCount(), RenderLevelScale > 0.0);
    double labelWidth = TextWidth(zeroLabel, textPx);
    for (const AmplitudeTick& tick : ticks)
        labelWidth = std::max(labelWidth, TextWidth("-" + tick.Label, textPx));
    const double nameWidth = name.empty() ? 0.0 : TextWidth(name, textPx) + 10.0 * PixelX();
    // Beside the plot in a gutter the host keeps, or over its first columns.
    const bool beside = ScaleGutterPx > 0.0;
    const double panelX1 = beside ? PlotX1 - ScaleGutterPx * PixelX() : PlotX1 + PixelX();
    const double panelX2 = beside ? PlotX1 - PixelX() : PlotX1 + nameWidth + labelWidth + 14.0 * PixelX();

    UseColor(Blend(*pPlotBackColor, *pPlotBackColor, 0.0f, 0.88f));
    FillRect(panelX1, Top - PixelY(), panelX2, Bottom + PixelY());
    UseColor(*pAxisColor);
    VerticalLine(panelX2, Top - PixelY(), Bottom + PixelY());

    const auto label = [&](const std::string& Text, double Y) {
        const double baseline = std::clamp(CentredBaseline(Y, Y, textPx), Bottom + 3.0 * PixelY(),
                                           Top - (textPx + 1.0) * PixelY());
        UseColor(*pAxisColor);
        glBegin(GL_LINES);
        glVertex2d(panelX2 - 4.0 * PixelX(), Y);
        glVertex2d(panelX2, Y);
        glEnd();
        UseColor(*pTextColor);
        DrawTextAt(Text, panelX2 - 6.0 * PixelX() - TextWidth(Text, textPx), baseline, textPx);
    };
    for (const AmplitudeTick& tick : ticks)
    {
        label(tick.Label, zero + halfHeight * std::min(tick.Amp * zoom, 1.0));
        label(bAmplitudeDb ? tick.Label : "-" + tick.Label, zero - halfHeight * std::min(tick.Amp * zoom, 1.0));
    }
    if (halfHeight / PixelY() >= textPx * 1.3)
        label(zeroLabel, zero);
    if (!name.empty())
    {
        UseColor(*pWaveColor);
        DrawTextAt(name, panelX1 + 6.0 * PixelX(), CentredBaseline(Top, Bottom, textPx), textPx);
    }
}

// The centre of each column on x, as the hit tests place its time.
std::vector<double> GLWaveEdit::ColumnXs() const
{
    std::vector<double> xs(CachedRenderSamples.size());
    for (size_t i = 0; i < xs.size(); ++i)
        xs[i] = XForTime(CachedRenderSamples[i].TimeSec);
    return xs;
}

// Min/max filled and a lighter RMS band inside it (where the trace has RMS),
// under a bright edge.
WaveColumnShader::Look GLWaveEdit::ColumnLook(int Trace) const
{
    const size_t count = CachedRenderSamples.size();
    const bool bRms = bWaveFill && count > 0 && CachedTraceColumns[static_cast<size_t>(Trace) * count].RmsAmp >= 0.0f;
    WaveColumnShader::Look look;
    look.Fill = Blend(*pWaveColor, *pPlotBackColor, 0.1f, bWaveFill ? 0.9f : 0.0f);
    look.Rms = Blend(*pWaveColor, kWhite, 0.5f, bRms ? 0.95f : 0.0f);
    look.Edge = Blend(*pWaveColor, kWhite, 0.8f, 1.0f);
    return look;
}

// Each column's extent in the lane's y: max, min and the RMS band inside them.
void GLWaveEdit::LaneExtents(int Lane, WaveColumnShader::Column* Out) const
{
    double top = 0.0;
    double bottom = 0.0;
    LaneBounds(Lane, top, bottom);
    const size_t count = CachedRenderSamples.size();
    const TraceColumn* columns = CachedTraceColumns.data() + static_cast<size_t>(TraceOfLane(Lane)) * count;
    for (size_t i = 0; i < count; ++i)
    {
        const TraceColumn& c = columns[i];
        WaveColumnShader::Column& extent = Out[i];
        extent = WaveColumnShader::Column{};
        extent.MaxY = static_cast<float>(AmpY(c.MaxAmp, top, bottom));
        extent.MinY = static_cast<float>(AmpY(c.MinAmp, top, bottom));
        if (c.RmsAmp >= 0.0f)
        {
            extent.RmsTopY = static_cast<float>(AmpY(std::min(c.RmsAmp, c.MaxAmp), top, bottom));
            extent.RmsBottomY = static_cast<float>(AmpY(std::max(-c.RmsAmp, c.MinAmp), top, bottom));
        }
    }
}

// Every lane's columns in one texture, then a quad per lane; the clip caps
// stay lines. False where the shader cannot be had, before anything is drawn.
bool GLWaveEdit::RenderColumnsByShader(int Lanes)
{
    if (!bColumnShader)
        return false;
    if (!ColumnShader)
        ColumnShader = std::make_unique<WaveColumnShader>();
    if (!ColumnShader->IsAvailable())
        return false;
    const size_t count = CachedRenderSamples.size();
    ShaderColumns.resize(count * static_cast<size_t>(Lanes));
    for (int lane = 0; lane < Lanes; ++lane)
        LaneExtents(lane, ShaderColumns.data() + static_cast<size_t>(lane) * count);
    if (!ColumnShader->SetColumns(ShaderColumns, static_cast<int>(count), Lanes))
        return false;
    const std::vector<double> xs = ColumnXs();
    const double spacing = count > 1 ? (xs.back() - xs.front()) / static_cast<double>(count - 1) : PlotX2 - PlotX1;
    for (int lane = 0; lane < Lanes; ++lane)
    {
        double top = 0.0;
        double bottom = 0.0;
        LaneBounds(lane, top, bottom);
        ColumnShader->DrawRow(lane, xs.front() - spacing * 0.5, xs.back() + spacing * 0.5, top, bottom, PixelY(),
                              ColumnLook(TraceOfLane(lane)));
        RenderClipCaps(TraceOfLane(lane), xs, top, bottom);
    }
    return true;
}

// The same layers as lines: a column is a pixel wide, so each is one vertical
// line, far fewer pixels to set up than a strip of tall quads.
void GLWaveEdit::RenderLaneColumns(int Lane) const
{
    const size_t count = CachedRenderSamples.size();
    std::vector<WaveColumnShader::Column> extents(count);
    LaneExtents(Lane, extents.data());
    const std::vector<double> xs = ColumnXs();
    const WaveColumnShader::Look look = ColumnLook(TraceOfLane(Lane));
    if (look.Fill.A > 0.0f)
    {
        UseColor(look.Fill);
        glBegin(GL_LINES);
        for (size_t i = 0; i < count; ++i)
        {
            glVertex2d(xs[i], extents[i].MaxY + 0.5 * PixelY());
            glVertex2d(xs[i], extents[i].MinY - 0.5 * PixelY());
        }
        glEnd();
    }
    if (look.Rms.A > 0.0f)
    {
        UseColor(look.Rms);
        glBegin(GL_LINES);
        for (size_t i = 0; i < count; ++i)
        {
            glVertex2d(xs[i], extents[i].RmsTopY);
            glVertex2d(xs[i], extents[i].RmsBottomY);
        }
        glEnd();
    }
    UseColor(look.Edge);
    for (const bool bUpper : {true, false})
    {
        glBegin(GL_LINE_STRIP);
        for (size_t i = 0; i < count; ++i)
            glVertex2d(xs[i], bUpper ? extents[i].MaxY : extents[i].MinY);
        glEnd();
    }
    double top = 0.0;
    double bottom = 0.0;
    LaneBounds(Lane, top, bottom);
    RenderClipCaps(TraceOfLane(Lane), xs, top, bottom);
}

// Red caps over columns that reach full scale.
void GLWaveEdit::RenderClipCaps(int Trace, const std::vector<double>& Xs, double Top, double Bottom) const
{
    const size_t count = CachedRenderSamples.size();
    const TraceColumn* columns = CachedTraceColumns.data() + static_cast<size_t>(Trace) * count;
    const double halfColumn = std::max((PlotX2 - PlotX1) / std::max<double>(count, 1.0) * 0.5, PixelX());
    UseColor(kClipColor);
    glBegin(GL_QUADS);
    // A mono source clips at its own full scale, below the document's.
    const float level = static_cast<float>(RenderLevelScale);
    const auto clips = [&](const TraceColumn& Column, bool bHigh) {
        if (level <= 0.0f)
            return bHigh ? Column.bClipHigh : Column.bClipLow;
        return bHigh ? Column.MaxAmp * level >= 1.0f - 1e-6f : Column.MinAmp * level <= -1.0f + 1e-6f;
    };
    for (size_t i = 0; i < count; ++i)
        for (const bool bHigh : {true, false})
        {
            if (!clips(columns[i], bHigh))
                continue;
            const double edge = bHigh ? Top - PixelY() : Bottom + PixelY();
            const double inner = edge + (bHigh ? -4.0 : 4.0) * PixelY();
            glVertex2d(Xs[i] - halfColumn, edge);
            glVertex2d(Xs[i] + halfColumn, edge);
            glVertex2d(Xs[i] + halfColumn, inner);
            glVertex2d(Xs[i] - halfColumn, inner);
        }
    glEnd();
}

// Zoomed in past one frame per column: each sample a point, joined by lines,
// on a stem from zero.
void GLWaveEdit::RenderLaneSamples(int Trace, double Top, double Bottom) const
{
    const int64_t frameCount = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    const int64_t first = std::max<int64_t>(static_cast<int64_t>(std::ceil(ViewStartSec * PcmSampleRate)), 0);
    const int64_t last = std::min(static_cast<int64_t>(std::floor(ViewEndSec * PcmSampleRate)), frameCount - 1);
    if (first > last)
        return;
    std::vector<double> xs;
    std::vector<double> ys;
    for (int64_t f = first; f <= last; ++f)
    {
        const float* frame = PcmFrames.data() + f * PcmChannels;
        float value = 0.0f;
        if (Trace < PcmChannels)
            value = frame[Trace];
        else
        {
            for (int c = 0; c < PcmChannels; ++c)
                value += frame[c];
            value /= static_cast<float>(PcmChannels);
        }
        xs.push_back(XForTime(static_cast<double>(f) / PcmSampleRate));
        ys.push_back(AmpY(value == value ? value : 0.0, Top, Bottom));
    }
    const double zero = (Top + Bottom) * 0.5;
    const double spacingPx = (xs.size() > 1 ? (xs.back() - xs.front()) / (xs.size() - 1) : 10.0) / PixelX();
    UseColor(Blend(*pWaveColor, *pPlotBackColor, 0.25f, 0.6f));
    glBegin(GL_LINES);
    for (size_t i = 0; i < xs.size(); ++i)
    {
        glVertex2d(xs[i], zero);
        glVertex2d(xs[i], ys[i]);
    }
    glEnd();
    UseColor(Blend(*pWaveColor, kWhite, 0.2f, 1.0f));
    glBegin(GL_LINE_STRIP);
    for (size_t i = 0; i < xs.size(); ++i)
        glVertex2d(xs[i], ys[i]);
    glEnd();
    glPointSize(spacingPx >= 8.0 ? 5.0f : 3.0f);
    glBegin(GL_POINTS);
    for (size_t i = 0; i < xs.size(); ++i)
        glVertex2d(xs[i], ys[i]);
    glEnd();
    glPointSize(1.0f);
}

void GLWaveEdit::RenderWaveform()
{
    const double widthPx = (PlotX2 - PlotX1) * 0.5 * ScreenWidthPx();
    if (!(widthPx >= 1.0) || !(PlotY1 > PlotY2))
        return;
    const int columns = static_cast<int>(std::lround(std::min(widthPx, double(kMaxRenderColumns))));
    if (!RefreshRenderColumns(columns, widthPx) || CachedTraceCount < 1)
        return;
    const bool bSamples = IsPcmUsable() && CachedTraceCount == PcmChannels + 1 &&
                          (ViewEndSec - ViewStartSec) * PcmSampleRate < CachedRenderSamples.size();
    const int lanes = LaneCount();
    const double zoom = EffectiveZoom(AmplitudeZoom);
    for (int lane = 0; lane < lanes; ++lane)
    {
        double top = 0.0;
        double bottom = 0.0;
        LaneBounds(lane, top, bottom);
        const double zero = (top + bottom) * 0.5;
        const double halfHeight = AmpY(1.0 / zoom / (RenderLevelScale > 0.0 ? RenderLevelScale : 1.0), top, bottom) - zero;
        RenderLevelLines(*this, AmplitudeTicks(bAmplitudeDb, zoom, halfHeight / PixelY(), TextSizePx()), PlotX1,
                         PlotX2, zero, halfHeight, zoom);
    }
    const bool bShaded = !bSamples && RenderColumnsByShader(lanes);
    for (int lane = 0; lane < lanes; ++lane)
    {
        double top = 0.0;
        double bottom = 0.0;
        LaneBounds(lane, top, bottom);
        if (bSamples)
            RenderLaneSamples(TraceOfLane(lane), top, bottom);
        else if (!bShaded)
            RenderLaneColumns(lane);
        if (lane > 0)
        {
            UseColor(*pAxisColor);
            glBegin(GL_LINES);
            glVertex2d(PlotX1, top);
            glVertex2d(PlotX2, top);
            glEnd();
        }
    }
}

static bool InsideView(double TimeSec, double ViewStartSec, double ViewEndSec)
{
    return TimeSec >= ViewStartSec && TimeSec <= ViewEndSec;
}

// One tint over every lane, edges as lines.
void GLWaveEdit::RenderSelection() const
{
    if (!bShowSelection || !HasSelection())
        return;
    const double startSec = SelectionStartSec();
    const double endSec = SelectionEndSec();
    if (endSec < ViewStartSec || startSec > ViewEndSec)
        return;
    UseColor(*pSelectionFillColor);
    FillRect(XForTime(startSec), PlotY1, XForTime(endSec), PlotY2);
    UseColor(*pSelectionBorderColor);
    for (const double edgeSec : {startSec, endSec})
        if (InsideView(edgeSec, ViewStartSec, ViewEndSec))
            VerticalLine(XForTime(edgeSec), PlotY1, PlotY2);
}

void GLWaveEdit::RenderMarkers() const
{
    if (bHover && InsideView(HoverTimeSec, ViewStartSec, ViewEndSec))
    {
        UseColor(*pHoverColor);
        VerticalLine(XForTime(HoverTimeSec), PlotY1, PlotY2);
    }
    const double playSec = DisplayedTimeSec();
    if (!HasWaveform() || !InsideView(playSec, ViewStartSec, ViewEndSec))
        return;
    const double x = XForTime(playSec);
    UseColor(*pPlayheadColor);
    glLineWidth(2.0f);
    VerticalLine(x, PlotY1, PlotY2);
    glLineWidth(1.0f);
    // A small flag at the top tells the playhead from the hover line.
    glBegin(GL_TRIANGLES);
    glVertex2d(x - 5.0 * PixelX(), PlotY1);
    glVertex2d(x + 5.0 * PixelX(), PlotY1);
    glVertex2d(x, PlotY1 - 7.0 * PixelY());
    glEnd();
}

// Time and peak under the pointer on a small panel beside the hover line,
// on its left where the right would run out of the plot.
void GLWaveEdit::RenderHoverReadout(double StepSec) const
{
    if (!bHover || !HasWaveform() || !InsideView(HoverTimeSec, ViewStartSec, ViewEndSec))
        return;
    std::string text = FormatAxisTime(HoverTimeSec, std::min(StepSec / 10.0, 0.001));
    char level[64];
    const double peak = HoverPeak * (RenderLevelScale > 0.0 ? RenderLevelScale : 1.0);
    if (HoverPeak > 0.0)
        std::snprintf(level, sizeof(level), "   %.1f dBFS   %.3f", 20.0 * std::log10(peak), peak);
    else if (HoverPeak == 0.0)
        std::snprintf(level, sizeof(level), "   %s dBFS   0.000", kMinusInfinity);
    else
        level[0] = '\0';
    text += level;
    const int textPx = TextSizePx();
    const double width = TextWidth(text, textPx) + 12.0 * PixelX();
    const double x = XForTime(HoverTimeSec);
    const double left = x + 6.0 * PixelX() + width <= PlotX2 ? x + 6.0 * PixelX() : x - 6.0 * PixelX() - width;
    const double top = PlotY1 - 10.0 * PixelY();
    const double bottom = top - (textPx + 8.0) * PixelY();
    UseColor(Blend(*pBackgroundColor, *pBackgroundColor, 0.0f, 0.9f));
    FillRect(left, top, left + width, bottom);
    UseColor(*pHoverColor);
    OutlineRect(left, top, left + width, bottom);
    UseColor(*pTextColor);
    DrawTextAt(text, left + 6.0 * PixelX(), CentredBaseline(top, bottom, textPx), textPx);
}

// Tick marks and their labels in the band under the plot, all in one format;
// a label that would run into the previous one is left out.
void GLWaveEdit::RenderTimeLabels(double StepSec) const
{
    double firstSec = 0.0;
    const int ticks = TickRange(ViewStartSec, ViewEndSec, StepSec, firstSec);
    const int textPx = TextSizePx();
    const double baseline = PlotY2 - (textPx + 3.0) * PixelY();
    double lastRight = -1e9;
    for (int i = 0; i < ticks; ++i)
    {
        const double tickSec = firstSec + i * StepSec;
        const double x = XForTime(tickSec);
        UseColor(*pAxisColor);
        VerticalLine(x, PlotY2, PlotY2 - 4.0 * PixelY());
        const std::string label = FormatAxisTime(tickSec, StepSec);
        const double width = TextWidth(label, textPx);
        const double left = std::clamp(x - width * 0.5, X1 + PixelX(), X2 - width - PixelX());
        if (left < lastRight + 6.0 * PixelX())
            continue;
        UseColor(*pTextColor);
        DrawTextAt(label, left, baseline, textPx);
        lastRight = left + width;
    }
}

// A progress bar while the host loads, or what to do when there is nothing to
// show, on a panel of the window's background so the waveform cannot hide it.
void GLWaveEdit::RenderCentredMessage() const
{
    const bool bLoading = IsPreloadingProvider && IsPreloadingProvider();
    if (!bLoading && HasWaveform())
        return;
    const double progress = (bLoading && PreloadProgressProvider) ? PreloadProgressProvider() : 0.0;
    const double fraction = progress == progress ? std::clamp(progress, 0.0, 1.0) : 0.0;
    const std::string message = bLoading
                                    ? "Loading " + std::to_string(static_cast<int>(std::lround(fraction * 100.0))) + "%"
                                    : "Open a file with Ctrl+O or drop one here";

    const int textPx = TextSizePx();
    const double midX = (PlotX1 + PlotX2) * 0.5;
    const double midY = (PlotY1 + PlotY2) * 0.5;
    const double barHalfW = (PlotX2 - PlotX1) * 0.3;
    const double panelHalfW = std::max(bLoading ? barHalfW : 0.0, TextWidth(message, textPx) * 0.5) + 12.0 * PixelX();
    UseColor(*pBackgroundColor);
    FillRect(midX - panelHalfW, midY + (textPx + 16.0) * PixelY(), midX + panelHalfW,
             midY - (bLoading ? 24.0 : 8.0) * PixelY());
    if (bLoading)
    {
        const double barY1 = midY - 6.0 * PixelY();
        const double barY2 = midY - 16.0 * PixelY();
        UseColor(*pWaveColor);
        FillRect(midX - barHalfW, barY1, midX - barHalfW + 2.0 * barHalfW * fraction, barY2);
        UseColor(*pAxisColor);
        OutlineRect(midX - barHalfW, barY1, midX + barHalfW, barY2);
    }
    UseColor(*pTextColor);
    DrawTextAt(message, midX - TextWidth(message, textPx) * 0.5, midY + 6.0 * PixelY(), textPx);
}

void GLWaveEdit::Render(GLdouble X1Clip, GLdouble Y1Clip, GLdouble X2Clip, GLdouble Y2Clip, GLdouble OffsetX,
                        GLdouble OffsetY)
{
    if (!bVisible || !ColoursMade(*this) || !GLGeometry::IsValidRect(X1Clip, Y1Clip, X2Clip, Y2Clip))
        return;
    UpdatePlotRect(false);
    RenderLevelScale = MonoSourceLevelProvider && bUsePcmFrames ? MonoSourceLevelProvider(ActiveDocumentIndex) : 0.0;
    const double widthPx = ScreenWidthPx();
    const double heightPx = ScreenHeightPx();

    glPushAttrib(GL_ENABLE_BIT | GL_SCISSOR_BIT | GL_COLOR_BUFFER_BIT | GL_CURRENT_BIT | GL_LINE_BIT |
                 GL_POINT_BIT);
    glPushMatrix();
    glTranslated(OffsetX, OffsetY, 0.0);
    glDisable(GL_TEXTURE_2D);
    glDisable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glEnable(GL_SCISSOR_TEST);
    const auto clipX = static_cast<GLint>(std::floor((X1Clip + 1.0) * 0.5 * widthPx));
    const auto clipY = static_cast<GLint>(std::floor((Y2Clip + 1.0) * 0.5 * heightPx));
    glScissor(clipX, clipY, static_cast<GLsizei>(std::ceil((X2Clip - X1Clip) * 0.5 * widthPx)),
              static_cast<GLsizei>(std::ceil((Y1Clip - Y2Clip) * 0.5 * heightPx)));

    RenderFrame();
    // Without audio a time grid would only measure the empty default view.
    if (HasWaveform())
    {
        const double stepSec = AxisTimeStep();
        if (bShowGrid)
            RenderGrid(stepSec);
        RenderWaveform();
        RenderSelection();
        for (int lane = 0; lane < LaneCount(); ++lane)
        {
            double top = 0.0;
            double bottom = 0.0;
            LaneBounds(lane, top, bottom);
            RenderAmplitudeScale(lane, top, bottom);
        }
        RenderMarkers();
        RenderHoverReadout(stepSec);
        RenderTimeLabels(stepSec);
    }
    RenderTabBar();
    RenderCentredMessage();
    // The menu is a popup: it may hang past the window's edge.
    glDisable(GL_SCISSOR_TEST);
    RenderTabMenu();

    glPopMatrix();
    glPopAttrib();
}

void GLWaveEdit::Render(GLdouble OffsetX, GLdouble OffsetY)
{
    Render(X1 + OffsetX, Y1 + OffsetY, X2 + OffsetX, Y2 + OffsetY, OffsetX, OffsetY);
}
