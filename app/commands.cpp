// The program's commands in one table: the menu bar lists them with their
// shortcuts, and the same table answers the keys, so a menu and its key can
// never disagree.
//
// Sections: Edits (with playback kept in step), The table, Menus, Keys.

#include <imgui.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>

#include "glwaveedit.h"
#include "markers.h"
#include "options.h"
#include "program.h"
#include "work_progress.h"

// --- Edits ---

double PositionAfterEdit(double PositionSec, const GLWaveEdit::EditRecord& Edit)
{
    using Kind = GLWaveEdit::EditKind;
    if (Edit.Kind != Kind::Cut && Edit.Kind != Kind::Delete && Edit.Kind != Kind::Paste)
        return PositionSec;
    const double startSec = DocumentSeconds(Edit.StartFrame);
    if (PositionSec < startSec)
        return PositionSec;
    if (PositionSec < DocumentSeconds(Edit.StartFrame + Edit.RemovedFrames))
        return startSec;
    return PositionSec + DocumentSeconds(Edit.InsertedFrames - Edit.RemovedFrames);
}

namespace
{
// Runs one edit and journals it; when it changed the audio while it played,
// the player starts again at the same place in the edited audio.
void RunEditNow(Program& App, const std::function<void(GLWaveEdit&)>& Edit,
                const std::function<void()>& Journal = nullptr)
{
    GLWaveEdit& editor = *App.pEditor;
    const bool playing = editor.IsPlaybackActive() && !editor.IsPlaybackPaused();
    const double positionSec = editor.CurrentTimeSec;
    const int serial = App.LastEdit.Serial;
    Edit(editor);
    if (App.LastEdit.Serial == serial || App.LastEdit.Action == "copy")
        return;
    if (Journal)
        Journal();
    else
        JournalLastEdit(App);
    // The player plays its own copy of the old audio (and a gain stops it):
    // what was playing starts again from the edited frames.
    if (!playing)
        return;
    editor.CurrentTimeSec = PositionAfterEdit(positionSec, editor.LastEdit());
    std::string error;
    if (!editor.PlayFromCurrentPosition(&error))
        App.Complain("Playback stopped: " + error);
}

// Every edit runs off the frame thread, with its journal entry, the restart
// of playback and the waveform summary's update: on an hour each of them
// moves or reads gigabytes. What names it while it runs.
void RunEdit(Program& App, const std::string& What, std::function<void(GLWaveEdit&)> Edit,
             std::function<void()> Journal = nullptr, bool Stoppable = false)
{
    App.Edits.Queue(
        What,
        [&App, Edit = std::move(Edit), Journal = std::move(Journal)] {
            RunEditNow(App, Edit, Journal);
            App.pEditor->RefreshWaveSummary();
        },
        Stoppable);
}

// Starting playback copies the whole document for the player (155 ms for an
// hour the first time): the play commands run off the frame thread too.
void RunPlay(Program& App, std::function<void(GLWaveEdit&)> Command)
{
    App.Edits.Queue("Starting playback", [&App, Command = std::move(Command)] { Command(*App.pEditor); });
}

void Gain(Program& App, double Percent)
{
    RunEdit(App, "Applying gain", [&App, Percent](GLWaveEdit& Editor) {
        std::string error;
        if (Editor.ApplyGainPercent(Percent, &error))
            App.Say("Gain " + std::to_string(static_cast<int>(std::lround(Percent))) + "% applied" +
                    (Editor.HasSelection() ? " to the selection." : "."));
        else
            App.Complain("Gain: " + error);
    });
}

void AskGain(Program& App)
{
    NumberPrompt prompt;
    prompt.Title = "Gain";
    prompt.Text = "Gain in percent (100 keeps the level; samples are held at full scale):";
    prompt.Max = 10000.0;
    prompt.OnAnswer = [&App](bool bApply, double Percent) {
        if (bApply)
            Gain(App, Percent);
    };
    App.Prompts.Ask(std::move(prompt));
}

// The keys of the command table, a block per menu in the menus' order.
std::string KeysText()
{
    std::string text;
    std::string menu;
    for (const KeyHelp& key : KeyTable())
    {
        if (key.Menu != menu)
        {
            text += (text.empty() ? "" : "\n") + key.Menu + "\n";
            menu = key.Menu;
        }
        std::string keys = key.Keys;
        keys.resize(std::max<size_t>(keys.size(), 24), ' ');
        text += "  " + keys + "  " + key.Action + "\n";
    }
    return text;
}

void ShowKeys(Program& App)
{
    Question question;
    question.Title = "Keys";
    question.Text = KeysText();
    question.Buttons = {"Close"};
    App.Prompts.Ask(std::move(question));
}

}  // namespace

void RunEffect(Program& App, const GLWaveEdit::Effect& What, const std::string& Title,
               std::function<void(const std::string&)> OnRefusal)
{
    auto span = std::make_shared<GLWaveEdit::EffectSpan>();
    RunEdit(
        App, Title,
        [&App, What, Title, span, OnRefusal = std::move(OnRefusal)](GLWaveEdit& Editor) {
            std::string error;
            const bool selected = Editor.HasSelection() && What.Name != "insert-silence";
            if (Editor.ApplyEffect(What, &error, span.get()))
                App.Say(Title + " done" + (selected ? " on the selection." : "."));
            else if (error == WorkCancelledMessage())
                App.Say(Title + " cancelled: the document is as it was.");
            else if (OnRefusal)
                OnRefusal(error);
            else
                App.Complain(Title + ": " + error);
        },
        [&App, What, span] { JournalEffect(App, What, *span); }, true);
}

namespace
{
// --- The table ---

using Check = std::function<bool(const Program&)>;
using Action = std::function<void(Program&)>;

struct Command
{
    const char* Menu;
    const char* Label;
    const char* Shortcut;  // as the menu shows it
    SDL_Keycode Key;       // 0: none of the program's own
    bool bCtrl;
    bool bShift;
    Check Enabled;
    Action Run;
};

bool HasPcm(const Program& App)
{
    return !App.pEditor->ActiveFrames().empty();
}

bool HasSelectionToEdit(const Program& App)
{
    return HasPcm(App) && App.pEditor->HasSelection();
}

const std::vector<Command>& Commands()
{
    static const std::vector<Command> table = {
        {"File", "Open...", "Ctrl+O", SDLK_o, true, false, nullptr, CommandOpen},
        {"File", "New tab", "Ctrl+N", SDLK_n, true, false, nullptr,
         [](Program& App) { App.pEditor->NewUntitledDocument(); }},
        {"File", "Save", "Ctrl+S", SDLK_s, true, false, HasPcm, [](Program& App) { CommandSave(App, false); }},
        {"File", "Save As...", "Ctrl+Shift+S", SDLK_s, true, true, HasPcm,
         [](Program& App) { CommandSave(App, true); }},
        {"File", "Close tab", "Ctrl+W", SDLK_w, true, false, nullptr, CommandCloseActive},
        {"File", "Quit", "Ctrl+Q", SDLK_q, true, false, nullptr, CommandQuit},
        {"Edit", "Undo", "Ctrl+Z", SDLK_z, true, false, [](const Program& App) { return App.pEditor->CanUndo(); },
         [](Program& App) { RunEdit(App, "Undoing", [](GLWaveEdit& E) { E.Undo(); }); }},
        {"Edit", "Redo", "Ctrl+Shift+Z", SDLK_z, true, true, [](const Program& App) { return App.pEditor->CanRedo(); },
         [](Program& App) { RunEdit(App, "Redoing", [](GLWaveEdit& E) { E.Redo(); }); }},
        {"Edit", "Redo", "Ctrl+Y", SDLK_y, true, false, [](const Program& App) { return App.pEditor->CanRedo(); },
         [](Program& App) { RunEdit(App, "Redoing", [](GLWaveEdit& E) { E.Redo(); }); }},
        {"Edit", "Cut", "Ctrl+X", SDLK_x, true, false, HasSelectionToEdit,
         [](Program& App) { RunEdit(App, "Cutting", [](GLWaveEdit& E) { E.RequestCutSelection(); }); }},
        {"Edit", "Copy", "Ctrl+C", SDLK_c, true, false, HasSelectionToEdit,
         [](Program& App) { RunEdit(App, "Copying", [](GLWaveEdit& E) { E.RequestCopySelection(); }); }},
        {"Edit", "Paste", "Ctrl+V", SDLK_v, true, false, nullptr,
         [](Program& App) { RunEdit(App, "Pasting", [](GLWaveEdit& E) { E.RequestPasteAtSelection(); }); }},
        {"Edit", "Delete", "Delete", SDLK_DELETE, false, false, HasSelectionToEdit,
         [](Program& App) { RunEdit(App, "Deleting", [](GLWaveEdit& E) { E.RequestDeleteSelection(); }); }},
        {"Edit", "Select all", "Ctrl+A", SDLK_a, true, false, HasPcm,
         [](Program& App) { App.pEditor->SetHostedSelection(0.0, App.pEditor->DurationSec); }},
        {"Edit", "Clear selection", "C", 0, false, false, nullptr,
         [](Program& App) { App.pEditor->ClearSelection(true); }},
        {"Edit", "Selection edge back", "Shift+Left", SDLK_LEFT, false, true, HasPcm,
         [](Program& App) { MoveSelectionEdge(App, -0.1); }},
        {"Edit", "Selection edge forward", "Shift+Right", SDLK_RIGHT, false, true, HasPcm,
         [](Program& App) { MoveSelectionEdge(App, 0.1); }},
        {"Edit", "Selection edge back a view", "Ctrl+Shift+Left", SDLK_LEFT, true, true, HasPcm,
         [](Program& App) { MoveSelectionEdge(App, -1.0); }},
        {"Edit", "Selection edge forward a view", "Ctrl+Shift+Right", SDLK_RIGHT, true, true, HasPcm,
         [](Program& App) { MoveSelectionEdge(App, 1.0); }},
        {"Edit", "Select to start", "Shift+Home", SDLK_HOME, false, true, HasPcm,
         [](Program& App) { SelectToEdge(App, false); }},
        {"Edit", "Select to end", "Shift+End", SDLK_END, false, true, HasPcm,
         [](Program& App) { SelectToEdge(App, true); }},
        {"Edit", "Gain +10%", "Ctrl+Up", SDLK_UP, true, false, HasPcm, [](Program& App) { Gain(App, 110.0); }},
        {"Edit", "Gain -10%", "Ctrl+Down", SDLK_DOWN, true, false, HasPcm, [](Program& App) { Gain(App, 90.0); }},
        {"Edit", "Gain...", "", 0, false, false, HasPcm, AskGain},
        {"Edit", "Add marker", "M", SDLK_m, false, false, HasPcm, AddMarkerAtPlayPosition},
        {"Edit", "Add region from selection", "Ctrl+B", SDLK_b, true, false, HasSelectionToEdit,
         AddRegionFromSelection},
        {"View", "Fit whole document", "F", 0, false, false, nullptr, ZoomFit},
        {"View", "Fit whole document", "Ctrl+F", SDLK_f, true, false, nullptr, ZoomFit},
        {"View", "Zoom in", "Ctrl+1", SDLK_1, true, false, HasPcm, ZoomIn},
        {"View", "Zoom out", "Ctrl+3", SDLK_3, true, false, HasPcm, ZoomOut},
        {"View", "Zoom to selection", "Ctrl+E", SDLK_e, true, false, HasSelectionToEdit, ZoomToSelection},
        {"View", "Zoom back", "Ctrl+2", SDLK_2, true, false, HasPcm, ZoomBack},
        {"View", "Scroll back a page", "Page Up", SDLK_PAGEUP, false, false, HasPcm,
         [](Program& App) { ScrollPage(App, -1.0); }},
        {"View", "Scroll forward a page", "Page Down", SDLK_PAGEDOWN, false, false, HasPcm,
         [](Program& App) { ScrollPage(App, 1.0); }},
        {"View", "Channel lanes (off: one mixed trace)", "", 0, false, false, nullptr,
         [](Program& App) { App.pEditor->bChannelLanes = !App.pEditor->bChannelLanes; }},
        {"View", "Amplitude in dB", "", 0, false, false, nullptr,
         [](Program& App) { App.pEditor->bAmplitudeDb = !App.pEditor->bAmplitudeDb; }},
        {"View", "Amplitude zoom in", "Ctrl+wheel up", 0, false, false, nullptr,
         [](Program& App) { App.pEditor->AmplitudeZoom = std::min(App.pEditor->AmplitudeZoom * 2.0, 1024.0); }},
        {"View", "Amplitude zoom out", "Ctrl+wheel down", 0, false, false, nullptr,
         [](Program& App) { App.pEditor->AmplitudeZoom = std::max(App.pEditor->AmplitudeZoom / 2.0, 1.0); }},
        {"View", "Full-scale amplitude", "", 0, false, false, nullptr,
         [](Program& App) { App.pEditor->AmplitudeZoom = 1.0; }},
        {"View", "Overview", "", 0, false, false, nullptr, ToggleOverview},
        {"View", "Time as h:mm:ss.mmm", "", 0, false, false, nullptr,
         [](Program& App) { App.Settings.Time = TimeFormat::Clock; }},
        {"View", "Time as seconds", "", 0, false, false, nullptr,
         [](Program& App) { App.Settings.Time = TimeFormat::Seconds; }},
        {"View", "Time as samples", "", 0, false, false, nullptr,
         [](Program& App) { App.Settings.Time = TimeFormat::Samples; }},
        {"Play", "Play / pause", "Space", SDLK_SPACE, false, false, HasPcm,
         [](Program& App) { RunPlay(App, [](GLWaveEdit& E) { E.TogglePlayback(); }); }},
        {"Play", "Play selection", "Shift+Space", SDLK_SPACE, false, true, HasPcm,
         [](Program& App) { RunPlay(App, [](GLWaveEdit& E) { E.PlaySelectionOrCurrent(); }); }},
        {"Play", "Stop", "", 0, false, false, nullptr, [](Program& App) { App.pEditor->StopPlayback(); }},
        {"Play", "Go to start", "Home", SDLK_HOME, false, false, HasPcm,
         [](Program& App) { RunPlay(App, [](GLWaveEdit& E) { E.SeekPlaybackTo(0.0); }); }},
        {"Play", "Go to end", "End", SDLK_END, false, false, HasPcm,
         [](Program& App) { RunPlay(App, [](GLWaveEdit& E) { E.SeekPlaybackTo(E.DurationSec); }); }},
        {"Play", "Loop", "L", SDLK_l, false, false, HasPcm, ToggleLoop},
        {"Play", "Speed 0.5x", "", 0, false, false, nullptr, [](Program& App) { SetPlaybackSpeed(App, 0.5); }},
        {"Play", "Speed 0.75x", "", 0, false, false, nullptr, [](Program& App) { SetPlaybackSpeed(App, 0.75); }},
        {"Play", "Speed 1x", "", 0, false, false, nullptr, [](Program& App) { SetPlaybackSpeed(App, 1.0); }},
        {"Play", "Speed 1.25x", "", 0, false, false, nullptr, [](Program& App) { SetPlaybackSpeed(App, 1.25); }},
        {"Play", "Speed 1.5x", "", 0, false, false, nullptr, [](Program& App) { SetPlaybackSpeed(App, 1.5); }},
        {"Play", "Speed 2x", "", 0, false, false, nullptr, [](Program& App) { SetPlaybackSpeed(App, 2.0); }},
        {"Play", "Previous marker", "[", SDLK_LEFTBRACKET, false, false, HasMarkers,
         [](Program& App) { GoToMarkerEdge(App, -1); }},
        {"Play", "Next marker", "]", SDLK_RIGHTBRACKET, false, false, HasMarkers,
         [](Program& App) { GoToMarkerEdge(App, 1); }},
        {"Play", "Step back", "Left", SDLK_LEFT, false, false, HasPcm,
         [](Program& App) { StepPlayPosition(App, -0.1); }},
        {"Play", "Step forward", "Right", SDLK_RIGHT, false, false, HasPcm,
         [](Program& App) { StepPlayPosition(App, 0.1); }},
        {"Play", "Back a view", "Ctrl+Left", SDLK_LEFT, true, false, HasPcm,
         [](Program& App) { StepPlayPosition(App, -1.0); }},
        {"Play", "Forward a view", "Ctrl+Right", SDLK_RIGHT, true, false, HasPcm,
         [](Program& App) { StepPlayPosition(App, 1.0); }},
        {"Help", "Keys", "F1", SDLK_F1, false, false, nullptr, ShowKeys},
    };
    return table;
}

bool IsEnabled(const Program& App, const Command& C)
{
    return !IsEditorFrozen(App) && (!C.Enabled || C.Enabled(App));
}

// --- Menus ---

// The View menu's switches show their state.
bool IsChecked(const Program& App, const Command& C)
{
    const std::string label = C.Label;
    if (label.rfind("Channel lanes", 0) == 0)
        return App.pEditor->bChannelLanes;
    if (label == "Amplitude in dB")
        return App.pEditor->bAmplitudeDb;
    if (label == "Loop")
        return App.Playback.bLoop;
    if (label == "Overview")
        return App.Overview.bShown;
    if (label.rfind("Time as ", 0) == 0)
        return label == (App.Settings.Time == TimeFormat::Clock     ? "Time as h:mm:ss.mmm"
                         : App.Settings.Time == TimeFormat::Seconds ? "Time as seconds"
                                                                    : "Time as samples");
    double speed = 0.0;
    if (std::sscanf(C.Label, "Speed %lfx", &speed) == 1)
        return speed == App.Playback.Speed;
    return false;
}

void DrawRecentFiles(Program& App)
{
    if (!ImGui::BeginMenu("Open recent", !App.Settings.RecentFiles.empty()))
        return;
    std::vector<std::string> chosen;
    for (const std::string& path : App.Settings.RecentFiles)
        if (ImGui::MenuItem(path.c_str()))
            chosen.push_back(path);
    ImGui::EndMenu();
    if (!chosen.empty())
        OpenPaths(App, chosen);
}

void DrawMenu(Program& App, const char* Menu)
{
    if (!ImGui::BeginMenu(Menu))
        return;
    const Command* chosen = nullptr;
    const char* lastLabel = "";
    for (const Command& command : Commands())
    {
        // A command with two keys shows once, with its first.
        if (std::string(command.Menu) != Menu || std::string(command.Label) == lastLabel)
            continue;
        lastLabel = command.Label;
        if (ImGui::MenuItem(command.Label, command.Shortcut, IsChecked(App, command), IsEnabled(App, command)))
            chosen = &command;
        if (std::string(command.Label) == "Open...")
            DrawRecentFiles(App);
    }
    if (std::string(Menu) == "Edit" && App.pEditor->HistoryDroppedSteps())
        ImGui::TextDisabled("The oldest undo steps of this tab were dropped\n(history holds at most %zu MiB).",
                            App.Settings.HistoryCapBytes >> 20);
    ImGui::EndMenu();
    if (chosen)
        chosen->Run(App);
}
}  // namespace

void DrawMenuBar(Program& App)
{
    if (!ImGui::BeginMainMenuBar())
        return;
    for (const char* menu : {"File", "Edit", "View", "Play", "Help"})
    {
        DrawMenu(App, menu);
        if (std::string(menu) == "Edit")
            DrawEffectMenus(App);
    }
    App.MenuBarPx = ImGui::GetWindowSize().y;
    ImGui::EndMainMenuBar();
}

// --- Keys ---

bool HandleShortcut(Program& App, const SDL_Keysym& Key)
{
    const bool ctrl = (Key.mod & KMOD_CTRL) != 0;
    const bool shift = (Key.mod & KMOD_SHIFT) != 0;
    for (const Command& command : Commands())
        if (command.Key != 0 && command.Key == Key.sym && command.bCtrl == ctrl && command.bShift == shift)
        {
            if (IsEnabled(App, command))
                command.Run(App);
            return true;
        }
    return false;
}

// --- Listing, for --help and the manual page ---

std::vector<KeyHelp> KeyTable()
{
    std::vector<KeyHelp> keys;
    for (const Command& command : Commands())
    {
        if (!*command.Shortcut)
            continue;
        std::string action = command.Label;
        if (action.size() > 3 && action.compare(action.size() - 3, 3, "...") == 0)
            action.resize(action.size() - 3);
        // A command with two keys is one line: "Ctrl+Shift+Z or Ctrl+Y".
        if (!keys.empty() && keys.back().Menu == command.Menu && keys.back().Action == action)
            keys.back().Keys += std::string(" or ") + command.Shortcut;
        else
            keys.push_back({command.Menu, command.Shortcut, action});
    }
    // What no menu lists: the editor's own mouse gestures, and Esc, which
    // the window answers while files open.
    for (const KeyHelp& gesture : std::vector<KeyHelp>{
             {"Window", "Wheel", "zoom"},
             {"Window", "Middle drag", "pan"},
             {"Window", "Left press", "seek"},
             {"Window", "Shift+drag", "select (on a selection edge: move it)"},
             {"Window", "Double click", "fit the whole document"},
             {"Window", "Esc", "cancel opening"},
         })
        keys.push_back(gesture);
    return keys;
}
