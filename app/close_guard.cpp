// The guards that keep closing and quitting from losing work.
//
// Closing runs as a queue of tab ids, one question at a time: an unmodified
// tab closes at once, a modified one asks Save / Don't save / Cancel. Quitting
// closes nothing: it only asks about every modified tab, then ends.

#include <filesystem>

#include "glwaveedit.h"
#include "program.h"

namespace
{
std::string NameOf(const GLWaveEdit& Editor, int Index)
{
    const std::string name = std::filesystem::path(Editor.DocumentPathAt(Index)).filename().string();
    return name.empty() ? "this document" : name;
}

void CloseOrSkip(Program& App, uint64_t Id)
{
    Session::CloseQueue& queue = App.Docs.Closing;
    if (!queue.Ids.empty() && queue.Ids.front() == Id)
        queue.Ids.pop_front();
    const int index = App.Docs.IndexOf(*App.pEditor, Id);
    if (!queue.bQuitAfter && index >= 0)
    {
        App.Recovery.Forget(Id);
        App.pEditor->CloseDocumentAt(index);
        App.Docs.Prune(*App.pEditor);
    }
}

void Ask(Program& App, uint64_t Id, int Index)
{
    Session::CloseQueue& queue = App.Docs.Closing;
    queue.Asking = Id;
    App.pEditor->ActivateDocument(Index);
    Question question;
    question.Title = "Unsaved changes";
    question.Text = "Save the changes to " + NameOf(*App.pEditor, Index) + " before " +
                    (queue.bQuitAfter ? "quitting" : "closing it") + "?\nWithout saving, the changes are lost.";
    question.Buttons = {"Save", "Don't save", "Cancel"};
    question.OnAnswer = [&App, Id](int Answer) {
        Session::CloseQueue& q = App.Docs.Closing;
        q.Asking = 0;
        if (Answer == 0)
        {
            q.Saving = Id;
            CommandSave(App, false);  // ends in OnSaveFinished
        }
        else if (Answer == 1)
            CloseOrSkip(App, Id);
        else
        {
            const bool quitting = q.bQuitAfter;
            q = Session::CloseQueue();
            App.Say(quitting ? "Quit cancelled." : "Close cancelled.");
        }
    };
    App.Prompts.Ask(std::move(question));
}
}  // namespace

void RequestClose(Program& App, const std::vector<uint64_t>& Ids, bool bQuitAfter)
{
    Session::CloseQueue& queue = App.Docs.Closing;
    if (queue.Asking || queue.Saving)
        return;  // one closing at a time; the one under way asks first
    queue.Ids.assign(Ids.begin(), Ids.end());
    queue.bQuitAfter = bQuitAfter;
    AdvanceCloseQueue(App);
}

void AdvanceCloseQueue(Program& App)
{
    Session::CloseQueue& queue = App.Docs.Closing;
    if (queue.Asking || queue.Saving || IsEditorFrozen(App))
        return;
    while (!queue.Ids.empty())
    {
        const uint64_t id = queue.Ids.front();
        const int index = App.Docs.IndexOf(*App.pEditor, id);
        if (index < 0)
            queue.Ids.pop_front();
        else if (!App.Docs.IsModified(*App.pEditor, id))
            CloseOrSkip(App, id);
        else
        {
            Ask(App, id, index);
            return;
        }
    }
    if (queue.bQuitAfter)
    {
        if (App.Work.IsSaving())
            App.Say("Quitting when the save of " + App.Work.SavingPath() + " ends...");
        else
            App.bQuit = true;
    }
}

void OnSaveFinished(Program& App, uint64_t Id, bool bOk)
{
    Session::CloseQueue& queue = App.Docs.Closing;
    if (queue.Saving != Id)
        return;
    queue.Saving = 0;
    // A failed or cancelled save stops the closing: nothing may be lost.
    if (!bOk)
        queue = Session::CloseQueue();
    // Otherwise the next pass finds the tab saved (or edited meanwhile, and asks again).
}
