// The command line: files to open, the batch operations (run in the order
// given, without a window), and the screenshot option the checks use.
#pragma once

#include <string>
#include <vector>

// One batch operation, in command-line order.
struct BatchStep
{
    enum Kind
    {
        Select,  // A .. B seconds
        Cut,
        Delete,
        Gain,    // A percent
        Save,    // Path
        Effect,  // the effect Path names, with A and B as the editor takes them
        FadeIn,  // the first A seconds
        FadeOut, // the last A seconds
        ImportMarkers,  // the label file Path
        AddMarker,      // at A seconds, named Path
        ExportMarkers,  // to the label file Path
    };
    Kind What = Select;
    double A = 0.0;
    double B = 0.0;
    std::string Path;
};

struct Options
{
    std::vector<std::string> Files;
    std::vector<BatchStep> Steps;
    bool bInfo = false;        // print the format of each file, and the one --save keeps, and exit
    bool bOverwrite = false;   // --save may replace an existing file
    int BitrateKbps = 0;       // lossy formats in --save; 0: the source's, else 192
    // --save writes the source's format; these choose otherwise (0: keep).
    int RateHz = 0;
    int Channels = 0;
    int Bits = 0;              // 16, 24, or 32 for float
    bool bDither = false;
    std::string ScreenshotPath;  // draw, write this PNG, exit
    int ScreenshotFrames = 3;
    bool bSeek = false;        // --seek SEC
    double SeekSec = 0.0;
    bool bHelp = false;

    // Batch mode: something to do without a window.
    bool IsBatch() const { return bInfo || !Steps.empty(); }
};

// False with a reason for an unknown option or a missing or bad value.
bool ParseOptions(int Argc, char** Argv, Options& Out, std::string& OutError);

// One row of --help and of the manual page. Spelling may name two
// spellings ("-h, --help"); a '\n' in Help starts a continuation line.
enum class OptionGroup
{
    Batch,  // run without a window, in the order given
    Other,
};
struct OptionHelp
{
    const char* Spelling;
    const char* Argument;  // "" when the option takes none
    const char* Help;
    OptionGroup Group;
};
const std::vector<OptionHelp>& OptionTable();

// One key or gesture of the window and what it does, grouped by the menu
// that lists it ("Mouse" for the gestures no menu lists).
struct KeyHelp
{
    std::string Menu;
    std::string Keys;  // "Ctrl+Shift+Z or Ctrl+Y"
    std::string Action;
};
// From the command table; needs no window.
std::vector<KeyHelp> KeyTable();

// Options and keys, for --help.
const char* UsageText();
// The same, as the roff source of the manual page glwaveedit(1).
std::string ManPageText(const std::string& Version, const std::string& Date);
