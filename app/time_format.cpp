#include "time_format.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <algorithm>

#include "document_format.h"
#include "jobs.h"

namespace
{
// Where the source's rate is not known (a new tab), the document's own.
int RateOr48k(int SourceRate) { return SourceRate > 0 ? SourceRate : kDocumentRateHz; }

long long SampleAt(double Seconds, int SourceRate)
{
    return std::llround(std::max(Seconds, 0.0) * RateOr48k(SourceRate));
}

std::string Trimmed(const std::string& Text)
{
    size_t begin = 0, end = Text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(Text[begin])))
        ++begin;
    while (end > begin && std::isspace(static_cast<unsigned char>(Text[end - 1])))
        --end;
    return Text.substr(begin, end - begin);
}

// A non-negative decimal number filling all of Text.
bool ReadNumber(const std::string& Text, double& Out)
{
    if (Text.empty() || !(std::isdigit(static_cast<unsigned char>(Text[0])) || Text[0] == '.'))
        return false;
    char* end = nullptr;
    Out = std::strtod(Text.c_str(), &end);
    return end && *end == '\0' && std::isfinite(Out);
}

bool EndsWith(std::string& Text, const char* Suffix)
{
    const std::string suffix = Suffix;
    if (Text.size() < suffix.size() || Text.compare(Text.size() - suffix.size(), suffix.size(), suffix) != 0)
        return false;
    Text = Trimmed(Text.substr(0, Text.size() - suffix.size()));
    return true;
}
}  // namespace

const char* TimeFormatName(TimeFormat Format)
{
    switch (Format)
    {
    case TimeFormat::Seconds: return "seconds";
    case TimeFormat::Samples: return "samples";
    case TimeFormat::Clock: break;
    }
    return "clock";
}

bool TimeFormatFromName(const std::string& Name, TimeFormat& Out)
{
    for (TimeFormat format : {TimeFormat::Clock, TimeFormat::Seconds, TimeFormat::Samples})
        if (Name == TimeFormatName(format))
        {
            Out = format;
            return true;
        }
    return false;
}

std::string TimeText(double Seconds, TimeFormat Format, int SourceRate)
{
    char text[48];
    switch (Format)
    {
    case TimeFormat::Seconds:
        std::snprintf(text, sizeof text, "%.3f s", std::max(Seconds, 0.0));
        return text;
    case TimeFormat::Samples:
        std::snprintf(text, sizeof text, "%lld smp", SampleAt(Seconds, SourceRate));
        return text;
    case TimeFormat::Clock: break;
    }
    return DurationText(Seconds);
}

std::string AxisTimeText(double Seconds, double StepSec, TimeFormat Format, int SourceRate)
{
    char text[48];
    if (Format == TimeFormat::Samples)
    {
        std::snprintf(text, sizeof text, "%lld", SampleAt(Seconds, SourceRate));
        return text;
    }
    if (Format == TimeFormat::Seconds)
    {
        // As few decimals as put every tick on a whole number of them.
        int decimals = 0;
        while (decimals < 6 && StepSec > 0.0 &&
               std::fabs(StepSec * std::pow(10.0, decimals) - std::round(StepSec * std::pow(10.0, decimals))) > 1e-6)
            ++decimals;
        std::snprintf(text, sizeof text, "%.*f", decimals, Seconds);
        return text;
    }
    return "";
}

bool ParseTime(const std::string& Text, TimeFormat Format, int SourceRate, double& OutSeconds, std::string& OutError)
{
    std::string text = Trimmed(Text);
    double value = 0.0;
    const bool bSamples = EndsWith(text, "smp") || EndsWith(text, "samples");
    if (bSamples || (Format == TimeFormat::Samples && text.find_first_not_of("0123456789") == std::string::npos))
    {
        if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos && ReadNumber(text, value))
        {
            OutSeconds = value / RateOr48k(SourceRate);
            return true;
        }
        OutError = "\"" + Trimmed(Text) + "\" is not a whole number of samples.";
        return false;
    }
    EndsWith(text, "s");
    // h:mm:ss.mmm or m:ss.mmm: each field but the first below 60.
    double seconds = 0.0;
    size_t begin = 0;
    int fields = 0;
    bool bValid = !text.empty();
    while (bValid)
    {
        const size_t colon = text.find(':', begin);
        const std::string field = text.substr(begin, colon == std::string::npos ? std::string::npos : colon - begin);
        bValid = ReadNumber(field, value) && (fields == 0 || value < 60.0) && fields < 3 &&
                 (colon == std::string::npos || field.find('.') == std::string::npos);
        seconds = seconds * 60.0 + value;
        ++fields;
        if (colon == std::string::npos)
            break;
        begin = colon + 1;
    }
    if (!bValid)
    {
        OutError = "\"" + Trimmed(Text) + "\" is not a time: type 1:02:03.5, 12.5 or 592200 smp.";
        return false;
    }
    OutSeconds = seconds;
    return true;
}
