// The whole document at a glance, for a host's overview strip: min and max
// of the mix per column, folded from the render side's summary, so that an
// hour costs a few thousand block reads, never a pass over its frames.

#include <algorithm>

#include "glwaveedit.h"

bool GLWaveEdit::OverviewColumns(int Columns, std::vector<float>& OutMinMax)
{
    OutMinMax.clear();
    const WaveSummary* summary = CurrentSummary();
    if (!summary || Columns <= 0 || summary->FrameCount() <= 0)
        return false;
    const int64_t frames = summary->FrameCount();
    OutMinMax.resize(static_cast<size_t>(Columns) * 2);
    std::vector<WaveSummary::Stats> stats(static_cast<size_t>(summary->Traces()));
    for (int column = 0; column < Columns; ++column)
    {
        const int64_t first = frames * column / Columns;
        const int64_t last = std::max(first, frames * (column + 1) / Columns - 1);
        std::fill(stats.begin(), stats.end(), WaveSummary::Stats{});
        summary->FoldFrames(PcmFrames.data(), first, last, stats.data());
        const WaveSummary::Stats& mix = stats[static_cast<size_t>(summary->MixTrace())];
        OutMinMax[2 * column] = mix.MinAmp;
        OutMinMax[2 * column + 1] = mix.MaxAmp;
    }
    return true;
}

void GLWaveEdit::PlotSpanX(double& OutX1, double& OutX2) const
{
    OutX1 = PlotX1;
    OutX2 = PlotX2;
}
