// The recovery journal's side of the program: what each edit writes, the
// offer to restore after a crash, and the replay once the base file is open.

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "glwaveedit.h"
#include "large_buffer.h"
#include "program.h"

namespace
{
constexpr double kRate = 48000.0;

int64_t FrameAt(double Sec)
{
    return std::llround(Sec * kRate);
}

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

void Restore(Program& App, const FoundJournal& Found)
{
    if (!Found.BasePath.empty())
    {
        App.PendingRestores[std::filesystem::absolute(Found.BasePath).lexically_normal().string()] = Found;
        OpenPaths(App, {Found.BasePath});
        return;
    }
    App.pEditor->NewUntitledDocument();
    App.PendingRestores[""] = Found;
    ReplayPendingRestore(App, "");
}
}  // namespace

void JournalLastEdit(Program& App, size_t FramesBefore, double GainPercent)
{
    GLWaveEdit& editor = *App.pEditor;
    const Program::EditReport& edit = App.LastEdit;
    JournalEntry entry;
    entry.Kind = edit.Action.rfind("gain", 0) == 0 ? "gain" : edit.Action;
    entry.StartFrame = FrameAt(edit.StartSec);
    entry.EndFrame = FrameAt(edit.EndSec);
    entry.Percent = GainPercent;
    if (entry.Kind == "cut" || entry.Kind == "delete")
        entry.EndFrame = std::min<int64_t>(entry.EndFrame, static_cast<int64_t>(FramesBefore / 2));
    if (entry.Kind == "paste")
    {
        // The span is what went in; what it replaced is the change in length short of that.
        const std::vector<float>& frames = editor.ActiveFrames();
        const int64_t inserted = entry.EndFrame - entry.StartFrame;
        const int64_t grownBy = static_cast<int64_t>(frames.size() / 2) - static_cast<int64_t>(FramesBefore / 2);
        LargeBuffer::AssignFloats(entry.Inserted, frames.data() + entry.StartFrame * 2, frames.data() + entry.EndFrame * 2);
        entry.EndFrame = entry.StartFrame + (inserted - grownBy);
    }
    else if (entry.Kind != "cut" && entry.Kind != "delete" && entry.Kind != "gain" && entry.Kind != "undo" &&
             entry.Kind != "redo")
        return;
    const uint64_t id = editor.DocumentIdAt(editor.ActiveDocument());
    App.Recovery.Record(id, JournalBase(App.Docs.Info(id)), std::move(entry));
}

void OfferRestores(Program& App)
{
    for (const FoundJournal& found : Journal::FindOrphans())
    {
        Question question;
        question.Title = "Restore unsaved edits?";
        question.Text = "GLWaveEdit did not end properly. " + std::to_string(found.Entries.size()) +
                        " unsaved edits of " + NameOf(found.BasePath) + " can be restored.";
        if (found.bBaseChanged)
            question.Text += "\nCareful: " + found.BasePath +
                             " has changed since (its size or time differ). Replaying the edits on the changed "
                             "file may not give what you had.";
        question.Buttons = {found.bBaseChanged ? "Restore anyway" : "Restore", "Discard", "Decide later"};
        question.EscapeButton = 2;
        question.OnAnswer = [&App, found](int Answer) {
            if (Answer == 0)
                Restore(App, found);
            else if (Answer == 1)
            {
                std::error_code error;
                std::filesystem::remove(found.Path, error);
                App.Say("Discarded the unsaved edits of " + NameOf(found.BasePath) + ".");
            }
        };
        App.Prompts.Ask(std::move(question));
    }
}

void ReplayPendingRestore(Program& App, const std::string& Path)
{
    const auto pending = App.PendingRestores.find(Path);
    if (pending == App.PendingRestores.end())
        return;
    const FoundJournal found = pending->second;
    App.PendingRestores.erase(pending);
    GLWaveEdit& editor = *App.pEditor;
    size_t replayed = 0;
    for (const JournalEntry& entry : found.Entries)
        if (editor.ReplayEdit(entry.Kind, entry.StartFrame, entry.EndFrame, entry.Percent, entry.Inserted))
            ++replayed;
    // The journal goes on, now for this run's tab.
    App.Recovery.Adopt(editor.DocumentIdAt(editor.ActiveDocument()), found);
    if (replayed == found.Entries.size())
        App.Say("Restored " + std::to_string(replayed) + " edits of " + NameOf(found.BasePath) + ".");
    else
        App.Complain("Restored " + std::to_string(replayed) + " of " + std::to_string(found.Entries.size()) +
                     " edits of " + NameOf(found.BasePath) + "; the others did not apply.");
}
