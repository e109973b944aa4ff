// The recovery journal's side of the program: what each edit writes, the
// offer to restore after a crash, and the replay once the base file is open.

#include <algorithm>
#include <cmath>
#include <ctime>
#include <filesystem>

#include "glwaveedit.h"
#include "large_buffer.h"
#include "program.h"

namespace
{
// The file a document's journal builds on: what it was opened from or last
// saved to; "" for an untitled one.
std::string JournalBase(const DocumentInfo& Info)
{
    return Info.SaveTarget.empty() ? Info.SourcePath : Info.SaveTarget;
}

std::string NameOf(const std::string& Path)
{
    return Path.empty() ? "an untitled document" : std::filesystem::path(Path).filename().string();
}

bool SameFile(const std::string& A, const std::string& B)
{
    std::error_code error;
    return !A.empty() && !B.empty() && std::filesystem::equivalent(A, B, error);
}

std::string AbsolutePath(const std::string& Path)
{
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(Path, error);
    return error ? Path : absolute.lexically_normal().string();
}

// "14:05 on 2026-11-24", local time.
std::string WhenText(int64_t UnixSec)
{
    const std::time_t when = static_cast<std::time_t>(UnixSec);
    std::tm local = {};
    localtime_r(&when, &local);
    char text[64];
    std::strftime(text, sizeof(text), "%H:%M on %Y-%m-%d", &local);
    return text;
}

// Replays Found's edits onto the active document, which holds its base file
// as it is on the disk, and goes on journalling into it.
void ReplayOntoActive(Program& App, const FoundJournal& Found, const std::string& Where)
{
    GLWaveEdit& editor = *App.pEditor;
    size_t replayed = 0;
    for (const JournalEntry& entry : Found.Entries)
        if (ReplayJournalEntry(editor, entry))
            ++replayed;
    App.Recovery.Adopt(editor.DocumentIdAt(editor.ActiveDocument()), Found);
    if (replayed == Found.Entries.size())
        App.Say("Restored " + std::to_string(replayed) + " edits of " + NameOf(Found.BasePath) + Where + ".");
    else
        App.Complain("Restored " + std::to_string(replayed) + " of " + std::to_string(Found.Entries.size()) +
                     " edits of " + NameOf(Found.BasePath) + Where + "; the others did not apply.");
}

// The tab holding Path as this program last read or wrote it; -1 if none.
int TabOfFile(Program& App, const std::string& Path)
{
    GLWaveEdit& editor = *App.pEditor;
    for (int i = 0; i < editor.DocumentCount(); ++i)
        if (SameFile(JournalBase(App.Docs.Info(editor.DocumentIdAt(i))), Path))
            return i;
    return -1;
}

void Restore(Program& App, const FoundJournal& Found)
{
    GLWaveEdit& editor = *App.pEditor;
    if (Found.BasePath.empty())
    {
        editor.NewUntitledDocument();
        ReplayOntoActive(App, Found, "");
        return;
    }
    const std::string path = AbsolutePath(Found.BasePath);
    const int tab = TabOfFile(App, path);
    if (tab >= 0 && !App.Docs.IsModified(editor, editor.DocumentIdAt(tab)))
    {
        // The usual road back: the file was given again on the command line.
        editor.ActivateDocument(tab);
        ReplayOntoActive(App, Found, "");
        return;
    }
    // A modified tab keeps its own edits: the restored document gets a tab of its own.
    const bool ownTab = tab >= 0;
    App.PendingRestores[path] = {Found, ownTab};
    if (ownTab || !App.Work.IsOpeningOrQueued(path))
        App.Work.QueueOpen(path);
}

void Ask(Program& App, const FoundJournal& Found)
{
    Question question;
    question.Title = "Restore unsaved edits?";
    question.Text = "GLWaveEdit did not end properly. " + std::to_string(Found.Entries.size()) +
                    " unsaved edits of " + (Found.BasePath.empty() ? NameOf("") : Found.BasePath) +
                    " can be restored (the last made at " + WhenText(Found.LastEditUnixSec) + ").";
    if (Found.bBaseChanged)
        question.Text += "\nCareful: " + Found.BasePath +
                         " has changed since (its size or time differ). Replaying the edits on the changed "
                         "file may not give what you had.";
    question.Buttons = {Found.bBaseChanged ? "Restore anyway" : "Restore", "Discard", "Decide later"};
    question.EscapeButton = 2;
    // The question holds the journal's lock: no other program offers it meanwhile.
    question.OnAnswer = [&App, Found](int Answer) {
        if (Answer == 0)
            Restore(App, Found);
        else if (Answer == 1)
        {
            std::error_code error;
            std::filesystem::remove(Found.Path, error);
            App.Say("Discarded the unsaved edits of " + NameOf(Found.BasePath) + ".");
        }
        else
        {
            App.DeferredJournals.insert(Found.Path);
            App.Say("The unsaved edits of " + NameOf(Found.BasePath) + " are kept; GLWaveEdit asks again at its next start.");
        }
    };
    App.Prompts.Ask(std::move(question));
}

// Appends Entry to the journal of the document on screen.
void RecordForActiveDocument(Program& App, JournalEntry&& Entry)
{
    const uint64_t id = App.pEditor->DocumentIdAt(App.pEditor->ActiveDocument());
    App.Recovery.Record(id, JournalBase(App.Docs.Info(id)), std::move(Entry));
}
}  // namespace

JournalEntry JournalEntryOfLastEdit(const GLWaveEdit& Editor)
{
    using Kind = GLWaveEdit::EditKind;
    const GLWaveEdit::EditRecord& edit = Editor.LastEdit();
    JournalEntry entry;
    switch (edit.Kind)
    {
    case Kind::Cut: entry.Kind = "cut"; break;
    case Kind::Delete: entry.Kind = "delete"; break;
    case Kind::Paste: entry.Kind = "paste"; break;
    case Kind::Gain: entry.Kind = "gain"; break;
    case Kind::Undo: entry.Kind = "undo"; break;
    case Kind::Redo: entry.Kind = "redo"; break;
    case Kind::Effect: return entry;  // JournalEffect's, with what a replay needs
    }
    entry.StartFrame = edit.StartFrame;
    entry.EndFrame = edit.StartFrame + edit.RemovedFrames;
    entry.InsertedFrames = edit.InsertedFrames;
    entry.Percent = edit.Percent;
    if (edit.Kind == Kind::Paste)
    {
        const float* const first = Editor.ActiveFrames().data() + edit.StartFrame * kDocumentChannels;
        LargeBuffer::AssignFloats(entry.Inserted, first, first + edit.InsertedFrames * kDocumentChannels);
    }
    return entry;
}

void JournalLastEdit(Program& App)
{
    GLWaveEdit& editor = *App.pEditor;
    JournalEntry entry = JournalEntryOfLastEdit(editor);
    if (entry.Kind.empty())
        return;
    RecordForActiveDocument(App, std::move(entry));
}

bool ReplayJournalEntry(GLWaveEdit& Editor, const JournalEntry& Entry)
{
    if (Entry.Kind.rfind("marker-", 0) == 0)
        return Editor.ReplayMarkerChange(Entry.Kind, {Entry.MarkerId, Entry.StartFrame, Entry.EndFrame, Entry.MarkerName});
    const bool applied =
        Entry.Kind == "effect"
            ? Editor.ApplyEffectToFrames({Entry.Effect, Entry.EffectA, Entry.EffectB},
                                         {Entry.StartFrame, Entry.EndFrame, Entry.bWhole})
            : Editor.ReplayEdit(Entry.Kind, Entry.StartFrame, Entry.EndFrame, Entry.Percent, Entry.Inserted);
    if (!applied || Entry.InsertedFrames < 0)
        return applied;
    const GLWaveEdit::EditRecord& made = Editor.LastEdit();
    return made.StartFrame == Entry.StartFrame && made.StartFrame + made.RemovedFrames == Entry.EndFrame &&
           made.InsertedFrames == Entry.InsertedFrames;
}

void JournalEffect(Program& App, const GLWaveEdit::Effect& What, const GLWaveEdit::EffectSpan& Span)
{
    GLWaveEdit& editor = *App.pEditor;
    JournalEntry entry;
    entry.Kind = "effect";
    entry.StartFrame = Span.StartFrame;
    entry.EndFrame = Span.EndFrame;
    entry.InsertedFrames = editor.LastEdit().InsertedFrames;
    entry.Effect = What.Name;
    entry.EffectA = What.A;
    entry.EffectB = What.B;
    entry.bWhole = Span.bWhole;
    RecordForActiveDocument(App, std::move(entry));
}

void JournalMarkerChange(Program& App, const std::string& Kind, const GLWaveEdit::Marker& What)
{
    JournalEntry entry;
    entry.Kind = Kind;
    entry.StartFrame = What.StartFrame;
    entry.EndFrame = What.EndFrame;
    entry.MarkerId = What.Id;
    entry.MarkerName = What.Name;
    RecordForActiveDocument(App, std::move(entry));
}

void OfferRestores(Program& App, const std::string& OpenedPath)
{
    const auto wanted = [&App, &OpenedPath](const std::string& JournalPath, const std::string& BasePath) {
        return !App.DeferredJournals.count(JournalPath) && (OpenedPath.empty() || SameFile(BasePath, OpenedPath));
    };
    for (const FoundJournal& found : Journal::FindOrphans(wanted))
        Ask(App, found);
}

bool ReplayPendingRestore(Program& App, const std::string& Path)
{
    auto pending = App.PendingRestores.begin();
    while (pending != App.PendingRestores.end() && pending->first != Path && !SameFile(pending->first, Path))
        ++pending;
    if (pending == App.PendingRestores.end())
        return false;
    const Program::PendingRestore restore = pending->second;
    App.PendingRestores.erase(pending);
    ReplayOntoActive(App, restore.Found,
                     restore.bOwnTab ? " into a tab of its own (the tab already open had edits of its own)" : "");
    return true;
}
