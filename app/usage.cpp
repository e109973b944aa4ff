// --help and the manual page, both written from the option table and the key
// table, so that neither can leave out what the other names.

#include <string>

#include "options.h"

namespace
{
constexpr const char* kIntro = "Opens each FILE in a tab (a generated demo clip when there is none).";
constexpr int kHelpColumn = 25;  // where the help of an option starts
constexpr size_t kLineWidth = 78;

const char* GroupHeading(OptionGroup Group)
{
    switch (Group)
    {
    case OptionGroup::Batch:
        return "Batch mode, without a window; steps run in the order given";
    case OptionGroup::Other:
        return "Other options";
    }
    return "";
}

std::string Spelled(const OptionHelp& Option)
{
    return std::string(Option.Spelling) + (*Option.Argument ? std::string(" ") + Option.Argument : "");
}

// The keys of one menu as one paragraph, wrapped and indented by two.
std::string WrappedKeys(const std::vector<KeyHelp>& Keys, const std::string& Menu)
{
    std::string text;
    std::string line = "  " + Menu + ":";
    bool bFirst = true;
    for (const KeyHelp& key : Keys)
    {
        if (key.Menu != Menu)
            continue;
        const std::string item = (bFirst ? " " : ", ") + key.Keys + " " + key.Action;
        bFirst = false;
        if (line.size() + item.size() > kLineWidth)
        {
            text += line + (item[0] == ',' ? ",\n" : "\n");
            line = "    " + item.substr(2);
        }
        else
            line += item;
    }
    return text + line + "\n";
}

std::vector<std::string> Menus(const std::vector<KeyHelp>& Keys)
{
    std::vector<std::string> menus;
    for (const KeyHelp& key : Keys)
        if (menus.empty() || menus.back() != key.Menu)
            menus.push_back(key.Menu);
    return menus;
}

// Roff: a backslash and a minus escaped, and no line taken for a request.
std::string Roff(const std::string& Text)
{
    std::string out;
    for (char c : Text)
        out += c == '\\' ? std::string("\\e") : c == '-' ? std::string("\\-") : std::string(1, c);
    return !out.empty() && (out[0] == '.' || out[0] == '\'') ? "\\&" + out : out;
}

std::string RoffLines(const std::string& Text)
{
    std::string out;
    size_t start = 0;
    for (size_t end; (end = Text.find('\n', start)) != std::string::npos; start = end + 1)
        out += Roff(Text.substr(start, end - start)) + "\n.br\n";
    return out + Roff(Text.substr(start)) + "\n";
}
}  // namespace

const char* UsageText()
{
    static const std::string text = [] {
        std::string out = "usage: glwaveedit [OPTION...] [FILE...]\n\n" + std::string(kIntro) + "\n";
        const OptionHelp* previous = nullptr;
        for (const OptionHelp& option : OptionTable())
        {
            if (!previous || previous->Group != option.Group)
                out += "\n" + std::string(GroupHeading(option.Group)) + ":\n";
            previous = &option;
            std::string line = "  " + Spelled(option);
            line += line.size() + 1 < kHelpColumn ? std::string(kHelpColumn - line.size(), ' ')
                                                  : "\n" + std::string(kHelpColumn, ' ');
            for (char c : std::string(option.Help))
                line += c == '\n' ? "\n" + std::string(kHelpColumn, ' ') : std::string(1, c);
            out += line + "\n";
        }
        const std::vector<KeyHelp> keys = KeyTable();
        out += "\nKeys (the menus list them too):\n";
        for (const std::string& menu : Menus(keys))
            out += WrappedKeys(keys, menu);
        return out;
    }();
    return text.c_str();
}

std::string ManPageText(const std::string& Version, const std::string& Date)
{
    std::string out = ".TH GLWAVEEDIT 1 \"" + Date + "\" \"GLWaveEdit " + Version + "\" \"User Commands\"\n";
    out += ".nh\n.SH NAME\nglwaveedit \\- audio wave editor with tabs, and its batch mode\n";
    out += ".SH SYNOPSIS\n.B glwaveedit\n[\\fIOPTION\\fR...] [\\fIFILE\\fR...]\n";
    out += ".SH DESCRIPTION\n"
           "A multi\\-document audio wave editor: it opens any audio file FFmpeg can read, draws its\n"
           "waveform, plays it, cuts, copies, pastes, deletes, applies gain, and saves.\n"
           ".PP\n" +
           Roff(kIntro) + "\nWith a batch option it works without a window and exits.\n";
    out += ".SH OPTIONS\n";
    const OptionHelp* previous = nullptr;
    for (const OptionHelp& option : OptionTable())
    {
        if (!previous || previous->Group != option.Group)
            out += ".SS \"" + Roff(GroupHeading(option.Group)) + "\"\n";
        previous = &option;
        out += ".TP\n\\fB" + Roff(option.Spelling) + "\\fR" +
               (*option.Argument ? " \\fI" + Roff(option.Argument) + "\\fR" : "") + "\n" + RoffLines(option.Help);
    }
    const std::vector<KeyHelp> keys = KeyTable();
    out += ".SH KEYS\nThe menus of the window list these keys beside their commands.\n";
    for (const std::string& menu : Menus(keys))
    {
        out += ".SS " + Roff(menu) + "\n";
        for (const KeyHelp& key : keys)
            if (key.Menu == menu)
                out += ".TP\n.B " + Roff(key.Keys) + "\n" + Roff(key.Action) + "\n";
    }
    out += ".SH FILES\n"
           ".TP\n.I $XDG_CONFIG_HOME/glwaveedit/state.json\n"
           "settings, recent files and the state of the window (default $HOME/.config)\n"
           ".TP\n.I $XDG_STATE_HOME/glwaveedit/journals\n"
           "the edits of unsaved documents, offered back after a crash (default $HOME/.local/state)\n";
    out += ".SH SEE ALSO\n.BR ffmpeg (1)\n";
    return out;
}
