// The state of the desktop program that its parts share: the window, the
// host objects, the editor, the session's bookkeeping, background jobs,
// dialogs, the status line and the settings. The frame thread owns all of it
// but for two hand-overs: an edit runs on LongEdits' worker, which then uses
// the editor, the journal, LastEdit and the status line while the frame
// thread only shows the kept picture (long_edits.h); and a save's worker
// copies the editor's live frames while the frame thread holds off every
// change to them (IsEditorFrozen). The jobs' other work and the journal's
// writer keep to their own state.
#pragma once

#include <SDL.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "dialogs.h"
#include "file_chooser.h"
#include "jobs.h"
#include "long_edits.h"
#include "navigation.h"
#include "overview.h"
#include "playback_options.h"
#include "recovery.h"
#include "session.h"
#include "settings.h"

#include "glwaveedit.h"
struct Core;

// The last thing the program has to say, under the editor. An error stays
// until the next action.
struct StatusLine
{
    std::string Text;
    bool bError = false;
};

struct Program
{
    SDL_Window* pWindow = nullptr;
    Core* pHost = nullptr;
    GLWaveEdit* pEditor = nullptr;
    AppSettings Settings;
    Session Docs;
    Jobs Work;
    FileChooser Chooser;
    Dialogs Prompts;
    StatusLine Status;
    ChooserPurpose ChooserOpenedFor = ChooserPurpose::None;  // the native chooser's
    uint64_t ChooserDocument = 0;
    // The last edit action the editor announced (copy included), counted so
    // that a command can tell whether it edited; its frames are the editor's
    // LastEdit().
    struct EditReport
    {
        std::string Action;
        int Serial = 0;
    } LastEdit;
    Journal Recovery;
    Navigation Nav;  // zoom back and the keys' selection (navigation.cpp)
    PlaybackOptions Playback;  // loop and speed (playback_options.cpp)
    OverviewStrip Overview;    // the whole document above the editor (overview.cpp)
    // Journals waiting for their base file to open, by the base's path.
    struct PendingRestore
    {
        FoundJournal Found;
        bool bOwnTab = false;  // the file's tab had edits of its own: a second tab
    };
    std::map<std::string, PendingRestore> PendingRestores;
    // Journals the user chose to decide on later: not asked again in this run.
    std::set<std::string> DeferredJournals;
    bool bQuit = false;
    int FramesToDraw = 3;  // draw this many more frames even when idle
    // Heights of the bars around the editor, in pixels, from the last frame.
    float MenuBarPx = 0.0f;
    float StatusBarPx = 0.0f;

    // Edits run here, off the frame thread. Last: it goes first, so that a
    // running edit ends before the state it works on.
    LongEdits Edits;

    void Say(const std::string& Text) { Status = {Text, false}; }
    void Complain(const std::string& Text) { Status = {Text, true}; }
};

// --- commands.cpp: the command table, menus and shortcuts ---
void DrawMenuBar(Program& App);
// Where a play position lands after Edit, so that what is heard follows what
// is seen: inside the frames a cut, delete or paste removed it moves to where
// they were, after them by the change in length; other edits leave it.
double PositionAfterEdit(double PositionSec, const GLWaveEdit::EditRecord& Edit);
// Runs an effect as an edit (worker, journal, playback kept in step); Title
// names it to the user. A refusal goes to OnRefusal (any thread) when given,
// else to the status bar.
void RunEffect(Program& App, const GLWaveEdit::Effect& What, const std::string& Title,
               std::function<void(const std::string&)> OnRefusal = nullptr);

// --- effects_menu.cpp: the Effect and Analyze menus and their dialogs ---
void DrawEffectMenus(Program& App);
// True when Key was one of the program's shortcuts.
bool HandleShortcut(Program& App, const SDL_Keysym& Key);
// Opening, saving and closing as the menus and keys do them.
void CommandOpen(Program& App);
void CommandSave(Program& App, bool bAlwaysAsk);
void CommandCloseActive(Program& App);
void CommandQuit(Program& App);
void OpenPaths(Program& App, const std::vector<std::string>& Paths);

// --- file_commands.cpp: open, save, save as, close, quit ---
void PollChooser(Program& App);
void TakeFinishedJobs(Program& App);
// The editor's frames must not change: a save is copying them.
bool IsEditorFrozen(const Program& App);
// The file name a document goes by: the file it now saves to after a Save
// As, else its source's (SourcePath, when given, for one never saved).
std::string DocumentName(const Program& App, uint64_t Id, const std::string& SourcePath);

// --- restore.cpp: the recovery journal's side of the program ---
// The journal's entry for the editor's last edit, frames as its record has
// them (a paste's inserted frames copied); Kind "" for an effect, which
// JournalEffect journals with what its replay needs.
JournalEntry JournalEntryOfLastEdit(const GLWaveEdit& Editor);
// Journals the editor's last edit, of the active document (called after each edit).
void JournalLastEdit(Program& App);
// Entry replayed onto the active document: true when it applied and, where
// the entry says how many frames its edit put in (journals written before
// that was kept do not), the replay changed the very frames the edit did.
bool ReplayJournalEntry(GLWaveEdit& Editor, const JournalEntry& Entry);
// Journals an effect just applied to the active document, over Span.
void JournalEffect(Program& App, const GLWaveEdit::Effect& What, const GLWaveEdit::EffectSpan& Span);
// Journals a change of one of the active document's markers (Kind as
// GLWaveEdit::SignalMarkerChanged gives it).
void JournalMarkerChange(Program& App, const std::string& Kind, const GLWaveEdit::Marker& What);
// Asks, for each journal a crashed run left (only those of OpenedPath when
// given), whether to restore it.
void OfferRestores(Program& App, const std::string& OpenedPath = "");
// A file just opened: replays the journal that waited for it; false if none did.
bool ReplayPendingRestore(Program& App, const std::string& Path);

// --- disk_changes.cpp: files another program wrote while they were open ---
// Notes the file document Id was opened from or saved to, as it is now.
void NoteDiskStamp(Program& App, uint64_t Id, const std::string& Path);
// Tells, once per change, of each open file another program wrote since.
void CheckDiskChanges(Program& App);
// Path is document Id's own file and another program wrote it since.
bool ChangedOnDiskSince(Program& App, uint64_t Id, const std::string& Path);

// --- save_dialog.cpp: the saved file's format, after its name ---
using SaveFormatAnswer = std::function<void(const std::string& Path, const SaveFormat& Format)>;
// Shows the format a save of document Id to Path writes, from the one the
// document remembers; OnSave gets the path (its extension follows the chosen
// format) and the format, OnCancel runs when the user cancels.
void AskSaveFormat(Program& App, uint64_t Id, const std::string& Path, SaveFormatAnswer OnSave,
                   std::function<void()> OnCancel);

// --- status_bar.cpp ---
void DrawStatusBar(Program& App);

// --- close_guard.cpp: guards around closing and quitting ---
// Closes the documents with these ids, asking Save / Don't save / Cancel for
// each modified one; quits after the last when bQuitAfter.
void RequestClose(Program& App, const std::vector<uint64_t>& Ids, bool bQuitAfter);
// Moves the queue on: called every frame.
void AdvanceCloseQueue(Program& App);
// A save of document Id ended (bOk: written).
void OnSaveFinished(Program& App, uint64_t Id, bool bOk);
