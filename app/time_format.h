// How the program shows and reads times: as a clock (h:mm:ss.mmm), as
// seconds, or as samples at the source's own rate. One choice, in View, for
// the axis, the hover readout, the play position and the status bar; a typed
// time is read in any of the three.
#pragma once

#include <string>

enum class TimeFormat
{
    Clock,
    Seconds,
    Samples,
};

// "clock", "seconds", "samples": the settings file's words.
const char* TimeFormatName(TimeFormat Format);
bool TimeFormatFromName(const std::string& Name, TimeFormat& Out);

// Seconds as Format shows them: the clock as the status bar always has
// ("12.345 s", "1:05.500", "1:00:00.000"), "12.345 s", or "592200 smp" at
// SourceRate (the document's 48000 where the source's is not known).
std::string TimeText(double Seconds, TimeFormat Format, int SourceRate);
// An axis label: as few decimals as tell ticks StepSec apart. Empty for the
// clock, which the editor draws itself.
std::string AxisTimeText(double Seconds, double StepSec, TimeFormat Format, int SourceRate);

// Reads "1:02:03.5", "2:03.25", "12.5", "12.5 s", "592200 smp" (samples at
// SourceRate), or a bare whole number when Format is samples. False with a
// reason for anything else, or a negative time.
bool ParseTime(const std::string& Text, TimeFormat Format, int SourceRate, double& OutSeconds,
               std::string& OutError);
