// GLWaveEdit's render side: the window, tab bar, plot, waveform, selection,
// markers, time labels and tab menu, drawn with the fixed-function pipeline
// in normalised coordinates. Tabs, close boxes and the menu use the same
// geometry as the hit tests, so that what is seen is what is hit.
//
// Sections, in order:
//   Time axis     NiceTimeStep, FormatTimeLabel
//   Columns       the mix summary and the render cache of waveform columns
//   Drawing       Render and its parts

#include "glwaveedit.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "core.h"
#include "glgeometry.h"
#include "gltheme.h"

// Widest column count drawn; beyond it a column is narrower than a pixel on
// any real screen.
static constexpr int kMaxColumns = 8192;
// Frames per block of the fine summary level, and fine blocks per coarse one.
static constexpr int64_t kFramesPerFineBlock = 256;
static constexpr int64_t kFineBlocksPerCoarse = 64;
// Bounds of a time axis step: below a tenth of a millisecond labels would not
// differ, and above some thirty years the ladder's arithmetic gains nothing.
static constexpr double kMinTickStepSec = 1e-4;
static constexpr double kMaxTickStepSec = 1e9;
// Upper bound of the desired tick count, so a wild setting cannot flood a frame.
static constexpr int kMaxTicks = 64;
static constexpr int kFallbackTextPx = 13;
static const char* const kEllipsis = "\xE2\x80\xA6";

// --- Time axis ---

// Smallest of 1, 2, 5 times a power of ten that is at least X (X > 0).
static double LadderStep(double X)
{
    const double decade = std::pow(10.0, std::floor(std::log10(X)));
    for (const double mantissa : {1.0, 2.0, 5.0})
        if (mantissa * decade >= X)
            return mantissa * decade;
    return 10.0 * decade;
}

// Seconds on a 1-2-5 ladder up to 50 s; from there whole minutes on the same
// ladder, so that long views get labels such as 1:00, 2:00, 5:00.
double GLWaveEdit::NiceTimeStep(double RoughStepSec) const
{
    if (!(RoughStepSec > 0.0))
        return kMinTickStepSec;
    const double rough = std::clamp(RoughStepSec, kMinTickStepSec, kMaxTickStepSec);
    if (rough <= 50.0)
        return LadderStep(rough);
    return 60.0 * LadderStep(rough / 60.0);
}

// "0s", "0.25s", "12.5s" under a minute, "1:05" and "1:05.5" under an hour,
// "1:02:03" beyond; to a tenth of a millisecond, trailing zeros dropped.
std::string GLWaveEdit::FormatTimeLabel(double TimeSec) const
{
    if (!std::isfinite(TimeSec))
        return "--";
    constexpr long long kTicksPerSec = 10000;
    const double magnitude = std::min(std::fabs(TimeSec), 1e12);
    const long long ticks = std::llround(magnitude * kTicksPerSec);
    const long long wholeSec = ticks / kTicksPerSec;
    const long long fraction = ticks % kTicksPerSec;

    char fractionText[16] = "";
    if (fraction != 0)
    {
        std::snprintf(fractionText, sizeof(fractionText), ".%04lld", fraction);
        for (size_t end = std::char_traits<char>::length(fractionText); fractionText[end - 1] == '0'; --end)
            fractionText[end - 1] = '\0';
    }
    const char* sign = (TimeSec < 0.0 && ticks != 0) ? "-" : "";
    char text[64];
    if (wholeSec < 60)
        std::snprintf(text, sizeof(text), "%s%lld%ss", sign, wholeSec, fractionText);
    else if (wholeSec < 3600)
        std::snprintf(text, sizeof(text), "%s%lld:%02lld%s", sign, wholeSec / 60, wholeSec % 60, fractionText);
    else
        std::snprintf(text, sizeof(text), "%s%lld:%02lld:%02lld%s", sign, wholeSec / 3600, wholeSec / 60 % 60,
                      wholeSec % 60, fractionText);
    return text;
}

// --- Columns ---

// Column Index of Count evenly over StartSec .. StartSec + SpanSec.
static void ColumnSpan(double StartSec, double SpanSec, int Index, int Count, double& OutT0, double& OutT1)
{
    OutT0 = StartSec + (static_cast<double>(Index) / Count) * SpanSec;
    OutT1 = StartSec + (static_cast<double>(Index + 1) / Count) * SpanSec;
}

static double BoundedAmp(double Amp)
{
    return Amp == Amp ? std::clamp(Amp, -1.0, 1.0) : 0.0;
}

bool GLWaveEdit::IsPcmUsable() const
{
    return bUsePcmFrames && !PcmFrames.empty() && PcmChannels > 0 && PcmSampleRate > 0;
}

// The channel mix of one frame, summed and divided in float like the span query.
float GLWaveEdit::MixedFrame(int64_t Frame) const
{
    const float* frame = PcmFrames.data() + Frame * PcmChannels;
    float mixed = 0.0f;
    for (int c = 0; c < PcmChannels; ++c)
        mixed += frame[c];
    return mixed / static_cast<float>(PcmChannels);
}

void GLWaveEdit::RebuildMixSummary()
{
    MixSummary.clear();
    MixSummaryData = PcmFrames.data();
    MixSummarySize = PcmFrames.size();
    const int64_t frameCount = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;

    // Every block starts from 0.0, as the span query does.
    MixSummaryLevel fine;
    fine.FramesPerBlock = kFramesPerFineBlock;
    const int64_t fineCount = (frameCount + kFramesPerFineBlock - 1) / kFramesPerFineBlock;
    fine.MinAmp.assign(static_cast<size_t>(fineCount), 0.0f);
    fine.MaxAmp.assign(static_cast<size_t>(fineCount), 0.0f);
    for (int64_t b = 0; b < fineCount; ++b)
    {
        const int64_t last = std::min((b + 1) * kFramesPerFineBlock, frameCount) - 1;
        FoldMixRange(-1, b * kFramesPerFineBlock, last, fine.MinAmp[static_cast<size_t>(b)],
                     fine.MaxAmp[static_cast<size_t>(b)]);
    }

    MixSummaryLevel coarse;
    coarse.FramesPerBlock = kFramesPerFineBlock * kFineBlocksPerCoarse;
    const int64_t coarseCount = (fineCount + kFineBlocksPerCoarse - 1) / kFineBlocksPerCoarse;
    coarse.MinAmp.assign(static_cast<size_t>(coarseCount), 0.0f);
    coarse.MaxAmp.assign(static_cast<size_t>(coarseCount), 0.0f);
    for (int64_t b = 0; b < fineCount; ++b)
    {
        const size_t block = static_cast<size_t>(b / kFineBlocksPerCoarse);
        coarse.MinAmp[block] = std::min(coarse.MinAmp[block], fine.MinAmp[static_cast<size_t>(b)]);
        coarse.MaxAmp[block] = std::max(coarse.MaxAmp[block], fine.MaxAmp[static_cast<size_t>(b)]);
    }
    MixSummary.push_back(std::move(fine));
    MixSummary.push_back(std::move(coarse));
}

// Folds the mix over First..Last (both included) into OutMin and OutMax:
// whole blocks of Level, the ragged ends through the next finer level, and
// single frames below the finest.
void GLWaveEdit::FoldMixRange(int Level, int64_t First, int64_t Last, float& OutMin, float& OutMax) const
{
    if (First > Last)
        return;
    if (Level < 0)
    {
        for (int64_t f = First; f <= Last; ++f)
        {
            // A NaN compares false and changes neither.
            const float mixed = MixedFrame(f);
            if (mixed < OutMin)
                OutMin = mixed;
            if (mixed > OutMax)
                OutMax = mixed;
        }
        return;
    }
    const MixSummaryLevel& level = MixSummary[static_cast<size_t>(Level)];
    const int64_t size = level.FramesPerBlock;
    const int64_t firstBlock = (First + size - 1) / size;
    const int64_t endBlock = (Last + 1) / size;  // blocks before it end within the range
    if (firstBlock >= endBlock)
    {
        FoldMixRange(Level - 1, First, Last, OutMin, OutMax);
        return;
    }
    FoldMixRange(Level - 1, First, firstBlock * size - 1, OutMin, OutMax);
    for (int64_t b = firstBlock; b < endBlock; ++b)
    {
        OutMin = std::min(OutMin, level.MinAmp[static_cast<size_t>(b)]);
        OutMax = std::max(OutMax, level.MaxAmp[static_cast<size_t>(b)]);
    }
    FoldMixRange(Level - 1, endBlock * size, Last, OutMin, OutMax);
}

// Min and max of the mix over FirstFrame..LastFrame, both included, from 0.0
// like the span query. Min and max are associative, so reading whole blocks
// from the summary gives exactly what a scan of every frame gives.
void GLWaveEdit::MixedRangeForFrames(int64_t FirstFrame, int64_t LastFrame, double& OutMin, double& OutMax) const
{
    float minAmp = 0.0f;
    float maxAmp = 0.0f;
    FoldMixRange(static_cast<int>(MixSummary.size()) - 1, FirstFrame, LastFrame, minAmp, maxAmp);
    OutMin = std::clamp(static_cast<double>(minAmp), -1.0, 1.0);
    OutMax = std::clamp(static_cast<double>(maxAmp), -1.0, 1.0);
}

bool GLWaveEdit::PcmColumns(int ColumnCount)
{
    CachedRenderSamples.clear();
    if (!IsPcmUsable())
        return false;
    const int64_t frameCount = static_cast<int64_t>(PcmFrames.size()) / PcmChannels;
    if (frameCount == 0)
        return false;
    const double spanSec = std::max(ViewEndSec - ViewStartSec, 1e-9);
    CachedRenderSamples.reserve(static_cast<size_t>(ColumnCount));
    for (int i = 0; i < ColumnCount; ++i)
    {
        double t0 = 0.0;
        double t1 = 0.0;
        ColumnSpan(ViewStartSec, spanSec, i, ColumnCount, t0, t1);
        int64_t f0 = BoundedIndex(std::floor(t0 * PcmSampleRate), frameCount - 1);
        int64_t f1 = BoundedIndex(std::ceil(t1 * PcmSampleRate), frameCount - 1);
        if (f1 < f0)
            std::swap(f0, f1);
        WaveSample column;
        column.TimeSec = t0 + (t1 - t0) * 0.5;
        MixedRangeForFrames(f0, f1, column.MinAmp, column.MaxAmp);
        CachedRenderSamples.push_back(column);
    }
    return true;
}

bool GLWaveEdit::LodProviderColumns(int ColumnCount)
{
    CachedRenderSamples.clear();
    if (!WaveformLodProvider || !WaveformLodProvider(ViewStartSec, ViewEndSec, ColumnCount, CachedRenderSamples))
    {
        CachedRenderSamples.clear();
        return false;
    }
    // The host's columns are bounded like every other amplitude.
    for (WaveSample& column : CachedRenderSamples)
    {
        column.MinAmp = BoundedAmp(column.MinAmp);
        column.MaxAmp = BoundedAmp(column.MaxAmp);
    }
    return !CachedRenderSamples.empty();
}

bool GLWaveEdit::RangeColumns(int ColumnCount)
{
    CachedRenderSamples.clear();
    const double spanSec = std::max(ViewEndSec - ViewStartSec, 1e-9);
    for (int i = 0; i < ColumnCount; ++i)
    {
        double t0 = 0.0;
        double t1 = 0.0;
        ColumnSpan(ViewStartSec, spanSec, i, ColumnCount, t0, t1);
        WaveSample column;
        column.TimeSec = t0 + (t1 - t0) * 0.5;
        if (WaveformRangeForSpan(t0, t1, column.MinAmp, column.MaxAmp))
            CachedRenderSamples.push_back(column);
    }
    return !CachedRenderSamples.empty();
}

// Columns for the visible span, reused while the view, the column count and
// the data are unchanged. Frames are summarised once per change of the data,
// which is what keeps a view that follows playback cheap on long documents.
bool GLWaveEdit::RefreshRenderColumns(int ColumnCount, double WidthPx)
{
    const int columnCount = std::clamp(ColumnCount, 1, kMaxColumns);
    const bool pcmUsable = IsPcmUsable();
    const bool summaryCurrent = MixSummaryData == PcmFrames.data() && MixSummarySize == PcmFrames.size();
    // A host still loading changes its answers without telling the editor.
    const bool hostLoading = IsPreloadingProvider && IsPreloadingProvider();
    const bool keyUnchanged = CachedRenderStartSec == ViewStartSec && CachedRenderEndSec == ViewEndSec &&
                              CachedRenderSampleCount == columnCount && CachedRenderWidthPx == WidthPx;
    if (bRenderSamplesValid && summaryCurrent && keyUnchanged && !hostLoading)
        return !CachedRenderSamples.empty();

    if (!pcmUsable)
    {
        MixSummary.clear();
        MixSummaryData = nullptr;
        MixSummarySize = 0;
    }
    else if (!bRenderSamplesValid || !summaryCurrent)
    {
        RebuildMixSummary();
    }

    // Sources in the order of the span query's chain, the cheapest way to each.
    if (!PcmColumns(columnCount) &&
        !ExternalLodForSpan(ViewStartSec, ViewEndSec, columnCount, CachedRenderSamples) &&
        !LodProviderColumns(columnCount))
        RangeColumns(columnCount);
    CachedRenderStartSec = ViewStartSec;
    CachedRenderEndSec = ViewEndSec;
    CachedRenderSampleCount = columnCount;
    CachedRenderWidthPx = WidthPx;
    bRenderSamplesValid = true;
    return !CachedRenderSamples.empty();
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

static double TextWidth(const std::string& Text, int SizePx)
{
    TTF* ttf = TextRenderer();
    return ttf ? ttf->MeasureTextPx(Text, SizePx) * PixelX() : 0.0;
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
        const std::string name = std::filesystem::path(path).filename().string();
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
    OutFirstSec = std::ceil(ViewStartSec / StepSec) * StepSec;
    const double count = std::floor((ViewEndSec - OutFirstSec) / StepSec + 1e-9) + 1.0;
    return static_cast<int>(std::clamp(count, 0.0, static_cast<double>(kMaxTicks * 10)));
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
    // Half scale above and below the zero line.
    for (const double level : {-0.5, 0.5})
    {
        const double y = (PlotY1 + PlotY2) * 0.5 + level * (PlotY1 - PlotY2) * 0.5;
        glVertex2d(PlotX1, y);
        glVertex2d(PlotX2, y);
    }
    glEnd();
    UseColor(*pAxisColor);
    glBegin(GL_LINES);
    glVertex2d(PlotX1, (PlotY1 + PlotY2) * 0.5);
    glVertex2d(PlotX2, (PlotY1 + PlotY2) * 0.5);
    glEnd();
}

void GLWaveEdit::RenderWaveform()
{
    const double widthPx = (PlotX2 - PlotX1) * 0.5 * ScreenWidthPx();
    if (!(widthPx >= 1.0) || !(PlotY1 > PlotY2))
        return;
    if (!RefreshRenderColumns(static_cast<int>(std::lround(std::min(widthPx, double(kMaxColumns)))), widthPx))
        return;
    const double midY = (PlotY1 + PlotY2) * 0.5;
    const double halfH = (PlotY1 - PlotY2) * 0.5 * 0.95;
    if (bWaveFill)
    {
        UseColor(*pWaveFillColor);
        glBegin(GL_QUAD_STRIP);
        for (const WaveSample& column : CachedRenderSamples)
        {
            const double x = XForTime(column.TimeSec);
            glVertex2d(x, midY + column.MaxAmp * halfH);
            glVertex2d(x, midY + column.MinAmp * halfH);
        }
        glEnd();
    }
    UseColor(*pWaveColor);
    for (const bool bUpper : {true, false})
    {
        glBegin(GL_LINE_STRIP);
        for (const WaveSample& column : CachedRenderSamples)
            glVertex2d(XForTime(column.TimeSec), midY + (bUpper ? column.MaxAmp : column.MinAmp) * halfH);
        glEnd();
    }
}

static bool InsideView(double TimeSec, double ViewStartSec, double ViewEndSec)
{
    return TimeSec >= ViewStartSec && TimeSec <= ViewEndSec;
}

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

// Tick marks and their labels in the band under the plot; a label that would
// run into the previous one is left out.
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
        const std::string label = FormatTimeLabel(tickSec);
        const double width = TextWidth(label, textPx);
        const double left = std::clamp(x - width * 0.5, X1 + PixelX(), X2 - width - PixelX());
        if (left < lastRight + 6.0 * PixelX())
            continue;
        UseColor(*pTextColor);
        DrawTextAt(label, left, baseline, textPx);
        lastRight = left + width;
    }
}

// Position / duration and the selection, at the plot's top right corner.
void GLWaveEdit::RenderStatusLine() const
{
    if (!HasWaveform())
        return;
    std::string status = FormatTimeLabel(DisplayedTimeSec()) + " / " + FormatTimeLabel(DurationSec);
    if (IsPlaybackActive())
        status += IsPlaybackPaused() ? "  paused" : "  playing";
    if (HasSelection())
        status += "   selection " + FormatTimeLabel(SelectionStartSec()) + " - " +
                  FormatTimeLabel(SelectionEndSec()) + " (" +
                  FormatTimeLabel(SelectionEndSec() - SelectionStartSec()) + ")";
    const int textPx = TextSizePx();
    const double width = TextWidth(status, textPx);
    UseColor(*pTextColor);
    DrawTextAt(status, PlotX2 - width - 8.0 * PixelX(), PlotY1 - (textPx + 6.0) * PixelY(), textPx);
}

// A progress bar while the host loads, or a hint when there is nothing to
// show, on a panel of the window's background so the waveform cannot hide it.
void GLWaveEdit::RenderCentredMessage() const
{
    const bool bLoading = IsPreloadingProvider && IsPreloadingProvider();
    if (!bLoading && HasWaveform())
        return;
    const double progress = (bLoading && PreloadProgressProvider) ? PreloadProgressProvider() : 0.0;
    const double fraction = progress == progress ? std::clamp(progress, 0.0, 1.0) : 0.0;
    const std::string message =
        bLoading ? "Loading " + std::to_string(static_cast<int>(std::lround(fraction * 100.0))) + "%"
                 : (Documents.empty() ? "Drop an audio file here" : "No audio yet: drop a file here or paste");

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
    const double widthPx = ScreenWidthPx();
    const double heightPx = ScreenHeightPx();

    glPushAttrib(GL_ENABLE_BIT | GL_SCISSOR_BIT | GL_COLOR_BUFFER_BIT | GL_CURRENT_BIT | GL_LINE_BIT);
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

    const int ticks = std::clamp(DesiredXTicks, 1, kMaxTicks);
    const double stepSec = NiceTimeStep((ViewEndSec - ViewStartSec) / ticks);
    RenderFrame();
    if (bShowGrid)
        RenderGrid(stepSec);
    RenderWaveform();
    RenderSelection();
    RenderMarkers();
    RenderTimeLabels(stepSec);
    RenderTabBar();
    RenderStatusLine();
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

// The summary is rebuilt whole after every invalidation for now, so a changed
// range needs no bookkeeping of its own yet.
void GLWaveEdit::NoteFramesChanged(int64_t FirstFrame, int64_t EndFrame)
{
    (void)FirstFrame;
    (void)EndFrame;
}
