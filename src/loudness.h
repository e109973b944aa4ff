// Loudness and levels of interleaved float frames: EBU R128 integrated
// loudness and loudness range, true peak, and per channel the sample peak,
// RMS and DC offset. The R128 figures are libebur128's.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct LoudnessFigures
{
    double IntegratedLufs = 0.0;  // -inf for silence
    double RangeLu = 0.0;
    double TruePeakDbtp = 0.0;    // the highest of the channels
    std::vector<double> TruePeakDbtpPerChannel;
    std::vector<double> SamplePeakDbfs;  // per channel
    std::vector<double> RmsDbfs;         // per channel
    std::vector<double> DcOffset;        // per channel, as a fraction of full scale
};

struct WorkProgress;

// Measures Count frames; two threads, each reads the frames once. "" on
// success, else what went wrong. With Progress, Count units are counted as
// done over the run, and a stop request ends it with WorkCancelledMessage().
std::string MeasureLoudness(const float* Frames, int64_t Count, int Channels, int SampleRate,
                            LoudnessFigures& Out, WorkProgress* Progress = nullptr);

// A figure as text with one decimal: "-16.0", "-inf".
std::string FormatLevel(double Value);

// The figures as lines of text, for a dialog and the batch mode's --info.
std::string DescribeLoudness(const LoudnessFigures& Figures);

// One gain that brings Figures to TargetLufs, and whether the true peak then
// stays at or under CeilingDbtp. ReachableLufs is the loudest target that
// does: no limiter is applied to make a louder one fit.
struct LoudnessPlan
{
    double GainDb = 0.0;
    double ReachableLufs = 0.0;
    bool bFits = false;
};
LoudnessPlan PlanLoudness(const LoudnessFigures& Figures, double TargetLufs, double CeilingDbtp);
