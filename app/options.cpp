#include "options.h"

#include <cmath>
#include <cstdlib>
#include <string>

#include "audio_codec_internal.h"

namespace
{
bool ParseNumber(const char* Text, double& Out)
{
    char* end = nullptr;
    Out = std::strtod(Text, &end);
    return end != Text && *end == '\0' && std::isfinite(Out);
}

// Arguments of one option: how many, and what they become.
struct Cursor
{
    int Argc;
    char** Argv;
    int At;
    bool Has(int Count) const { return At + Count < Argc; }
    const char* Arg(int Offset) const { return Argv[At + Offset]; }
};
}  // namespace

const std::vector<OptionHelp>& OptionTable()
{
    // The extensions --save takes are the encoder's to say.
    static const std::string saveHelp = "save to OUT; the container follows the extension:\n" +
                                        WritableExtensionsText(WritableKind::Any, " ", " ") +
                                        "; the source's rate,\nchannels and bit depth are kept unless chosen below";
    static const std::vector<OptionHelp> table = {
        {"--info", "", "print format, duration and frame count of each FILE, and the format --save writes it in",
         OptionGroup::Batch},
        {"--select", "START END", "select START..END seconds", OptionGroup::Batch},
        {"--cut, --delete", "", "remove the selection (cut also copies it)", OptionGroup::Batch},
        {"--gain", "PERCENT", "gain on the selection, or on everything", OptionGroup::Batch},
        {"--fade-in, --fade-out", "SEC", "fade the first (last) SEC seconds in (out), linear", OptionGroup::Batch},
        {"--silence", "", "silence the selection", OptionGroup::Batch},
        {"--normalize", "DBFS", "peak to DBFS, channels linked (selection or everything)", OptionGroup::Batch},
        {"--loudness", "LUFS", "integrated loudness to LUFS with one gain; refused when\nthe true peak would pass the ceiling",
         OptionGroup::Batch},
        {"--true-peak", "DBTP", "the ceiling of the --loudness before it (default -1)", OptionGroup::Batch},
        {"--dc, --reverse", "", "remove the DC offset; reverse", OptionGroup::Batch},
        {"--highpass", "HZ", "high-pass filter at HZ (rumble: 80)", OptionGroup::Batch},
        {"--trim-silence", "DBFS", "remove what stays under DBFS at the start and end", OptionGroup::Batch},
        {"--markers", "FILE", "add the markers and regions of a label file\n(start<TAB>end<TAB>name in seconds)",
         OptionGroup::Batch},
        {"--add-marker", "SEC NAME", "add a marker named NAME at SEC seconds", OptionGroup::Batch},
        {"--export-markers", "FILE", "write the markers and regions as a label file", OptionGroup::Batch},
        {"--save", "OUT", saveHelp.c_str(), OptionGroup::Batch},
        {"--rate", "HZ", "sample rate of the saved file", OptionGroup::Batch},
        {"--channels", "1|2", "mono or stereo", OptionGroup::Batch},
        {"--bits", "16|24|32", "bit depth of .wav and .flac (32: float, .wav only)", OptionGroup::Batch},
        {"--dither", "", "triangular dither when reducing to 16 or 24 bits", OptionGroup::Batch},
        {"--bitrate", "KBPS", "bitrate of lossy formats (default: the source's, else 192)", OptionGroup::Batch},
        {"--overwrite", "", "let --save replace an existing file", OptionGroup::Batch},
        {"--seek", "SEC", "start with the play position at SEC", OptionGroup::Other},
        {"--screenshot", "PNG", "draw the window, write PNG and exit", OptionGroup::Other},
        {"--frames", "N", "frames to draw before the screenshot (default 3)", OptionGroup::Other},
        {"-h, --help", "", "print the options and keys, and exit", OptionGroup::Other},
    };
    return table;
}

bool ParseOptions(int Argc, char** Argv, Options& Out, std::string& OutError)
{
    bool bFilesOnly = false;  // after "--" every argument is a file
    for (Cursor c{Argc, Argv, 1}; c.At < Argc; ++c.At)
    {
        const std::string arg = c.Arg(0);
        double a = 0.0;
        double b = 0.0;
        if (bFilesOnly || arg.empty() || arg[0] != '-' || arg == "-")
        {
            Out.Files.push_back(arg);
            continue;
        }
        if (arg == "--")
            bFilesOnly = true;
        else if (arg == "-h" || arg == "--help")
            Out.bHelp = true;
        else if (arg == "--info")
            Out.bInfo = true;
        else if (arg == "--cut")
            Out.Steps.push_back({BatchStep::Cut, 0.0, 0.0, ""});
        else if (arg == "--delete")
            Out.Steps.push_back({BatchStep::Delete, 0.0, 0.0, ""});
        else if (arg == "--overwrite")
            Out.bOverwrite = true;
        else if (arg == "--select" && c.Has(2) && ParseNumber(c.Arg(1), a) && ParseNumber(c.Arg(2), b))
        {
            Out.Steps.push_back({BatchStep::Select, a, b, ""});
            c.At += 2;
        }
        else if (arg == "--gain" && c.Has(1) && ParseNumber(c.Arg(1), a) && a >= 0.0)
        {
            Out.Steps.push_back({BatchStep::Gain, a, 0.0, ""});
            c.At += 1;
        }
        else if (arg == "--silence" || arg == "--dc" || arg == "--reverse")
            Out.Steps.push_back({BatchStep::Effect, 0.0, 0.0, arg.substr(2)});
        else if ((arg == "--fade-in" || arg == "--fade-out") && c.Has(1) && ParseNumber(c.Arg(1), a) && a > 0.0)
        {
            Out.Steps.push_back({arg == "--fade-in" ? BatchStep::FadeIn : BatchStep::FadeOut, a, 0.0, ""});
            c.At += 1;
        }
        else if ((arg == "--normalize" || arg == "--loudness" || arg == "--highpass" || arg == "--trim-silence") &&
                 c.Has(1) && ParseNumber(c.Arg(1), a))
        {
            // normalize: channels linked; loudness: a -1 dBTP ceiling until --true-peak; trim: any length.
            Out.Steps.push_back({BatchStep::Effect, a, arg == "--normalize" ? 1.0 : arg == "--loudness" ? -1.0 : 0.0,
                                 arg.substr(2)});
            c.At += 1;
        }
        else if (arg == "--true-peak" && c.Has(1) && ParseNumber(c.Arg(1), a))
        {
            if (Out.Steps.empty() || Out.Steps.back().Path != "loudness")
            {
                OutError = "--true-peak goes right after the --loudness it bounds";
                return false;
            }
            Out.Steps.back().B = a;
            c.At += 1;
        }
        else if ((arg == "--markers" || arg == "--export-markers") && c.Has(1))
        {
            Out.Steps.push_back({arg == "--markers" ? BatchStep::ImportMarkers : BatchStep::ExportMarkers, 0.0, 0.0,
                                 c.Arg(1)});
            c.At += 1;
        }
        else if (arg == "--add-marker" && c.Has(2) && ParseNumber(c.Arg(1), a) && a >= 0.0)
        {
            Out.Steps.push_back({BatchStep::AddMarker, a, 0.0, c.Arg(2)});
            c.At += 2;
        }
        else if (arg == "--save" && c.Has(1))
        {
            Out.Steps.push_back({BatchStep::Save, 0.0, 0.0, c.Arg(1)});
            c.At += 1;
        }
        else if (arg == "--bitrate" && c.Has(1) && ParseNumber(c.Arg(1), a) && a >= 8 && a <= 512)
        {
            Out.BitrateKbps = static_cast<int>(a);
            c.At += 1;
        }
        else if (arg == "--rate" && c.Has(1) && ParseNumber(c.Arg(1), a) && a >= 8000 && a <= 384000 &&
                 a == std::floor(a))
        {
            Out.RateHz = static_cast<int>(a);
            c.At += 1;
        }
        else if (arg == "--channels" && c.Has(1) && ParseNumber(c.Arg(1), a) && (a == 1 || a == 2))
        {
            Out.Channels = static_cast<int>(a);
            c.At += 1;
        }
        else if (arg == "--bits" && c.Has(1) && ParseNumber(c.Arg(1), a) && (a == 16 || a == 24 || a == 32))
        {
            Out.Bits = static_cast<int>(a);
            c.At += 1;
        }
        else if (arg == "--dither")
            Out.bDither = true;
        else if (arg == "--seek" && c.Has(1) && ParseNumber(c.Arg(1), Out.SeekSec))
        {
            Out.bSeek = true;
            c.At += 1;
        }
        else if (arg == "--screenshot" && c.Has(1))
        {
            Out.ScreenshotPath = c.Arg(1);
            c.At += 1;
        }
        else if (arg == "--frames" && c.Has(1) && ParseNumber(c.Arg(1), a) && a >= 1 && a <= 1e6)
        {
            Out.ScreenshotFrames = static_cast<int>(a);
            c.At += 1;
        }
        else
        {
            OutError = "unknown option or missing value: " + arg;
            return false;
        }
    }
    return true;
}
