// Opening, saving, closing and quitting, as the menus and keys do them.
//
// Saving never destroys a source: a document opened from a file has no save
// target until the user picks one with Save As, whose default is a new,
// lossless file beside the source. Writing over any existing file asks first,
// and writing over the document's own source says what it does to it.
//
// Sections: Helpers, Open, Save, Close and quit, Results of background work.

#include <cstdlib>
#include <filesystem>

#include "audio_codec_internal.h"
#include "batch.h"
#include "glwaveedit.h"
#include "markers.h"
#include "program.h"

namespace fs = std::filesystem;

// --- Helpers ---

namespace
{
std::string FileName(const std::string& Path)
{
    return fs::path(Path).filename().string();
}

std::string HomeFolder()
{
    const char* home = std::getenv("HOME");
    return home && *home ? home : fs::current_path().string();
}

// "<stem> (edited).wav" beside a WAV source, ".flac" beside any other (a
// lossy source comes back lossless), or in the home folder for an untitled
// document; a number is added until the name is free.
std::string DefaultSavePath(const GLWaveEdit& Editor, const DocumentInfo& Info)
{
    const fs::path source = Info.SourcePath.empty() ? fs::path(HomeFolder()) / fs::path(Editor.SourcePath()).filename()
                                                    : fs::path(Info.SourcePath);
    const std::string stem = source.stem().string().empty() ? "untitled" : source.stem().string();
    const std::string suffix = Info.SourcePath.empty() ? "" : " (edited";
    const std::string extension = ProposedExtension(Info.Source);
    for (int n = 1; n < 1000; ++n)
    {
        std::string name = stem + suffix;
        if (!suffix.empty())
            name += n == 1 ? ")" : " " + std::to_string(n) + ")";
        else if (n > 1)
            name += " " + std::to_string(n);
        const fs::path candidate = source.parent_path() / (name + extension);
        std::error_code error;
        if (!fs::exists(candidate, error))
            return candidate.string();
    }
    return (source.parent_path() / (stem + " (edited)" + extension)).string();
}

bool SameFile(const std::string& A, const std::string& B)
{
    std::error_code error;
    return !A.empty() && !B.empty() && fs::equivalent(A, B, error);
}

void StartSaveJob(Program& App, uint64_t Id, const std::string& Path, int BitrateKbps)
{
    GLWaveEdit& editor = *App.pEditor;
    SaveRequest request;
    request.DocumentId = Id;
    request.StateId = editor.EditStateIdOf(Id);
    request.Path = Path;
    request.pFrames = &editor.ActiveFrames();
    request.SampleRate = editor.ActiveSampleRate();
    request.Channels = editor.ActiveChannels();
    const DocumentInfo& info = App.Docs.Info(Id);
    request.Tags = info.Tags;
    request.Markers = TimedMarkersOf(editor);
    request.Source = info.Source;
    request.Format = info.Save;
    request.Format.BitrateKbps = BitrateKbps;
    request.BitrateKbps = BitrateKbps;
    request.bOwnFormat = true;
    if (!App.Work.StartSave(std::move(request)))
    {
        App.Complain("A save is running already; try again when it ends.");
        OnSaveFinished(App, Id, false);
        return;
    }
    App.Settings.LossyBitrateKbps = BitrateKbps;
    App.Say("Saving " + FileName(Path) + "...");
}

void ConfirmReplaceAndSave(Program& App, uint64_t Id, const std::string& Path, int BitrateKbps);

// The last look before writing: a usable name, the format, and a question
// before any existing file is replaced.
void ConfirmAndSave(Program& App, uint64_t Id, const std::string& Path, int BitrateKbps)
{
    if (Path.empty())
    {
        App.Say("Save cancelled.");
        OnSaveFinished(App, Id, false);
        return;
    }
    std::error_code error;
    if (!IsWritablePath(Path) || fs::is_directory(Path, error))
    {
        App.Complain("Cannot save as " + FileName(Path) + ": name the file with " +
                     WritableExtensionsText(WritableKind::Any) + ".");
        OnSaveFinished(App, Id, false);
        return;
    }
    if (IsWritablePath(Path, WritableKind::Lossy))
        App.Docs.Info(Id).Save.BitrateKbps = BitrateKbps;
    AskSaveFormat(
        App, Id, Path,
        [&App, Id](const std::string& Chosen, const SaveFormat& Format) {
            App.Docs.Info(Id).Save = Format;
            ConfirmReplaceAndSave(App, Id, Chosen, Format.BitrateKbps);
        },
        [&App, Id] {
            App.Say("Save cancelled.");
            OnSaveFinished(App, Id, false);
        });
}

// A question before an existing file is replaced, then the save.
void ConfirmReplaceAndSave(Program& App, uint64_t Id, const std::string& Path, int BitrateKbps)
{
    std::error_code error;
    if (!fs::exists(Path, error))
    {
        StartSaveJob(App, Id, Path, BitrateKbps);
        return;
    }
    Question question;
    if (SameFile(Path, App.Docs.Info(Id).SourcePath))
    {
        question.Title = "Overwrite the original?";
        question.Text = FileName(Path) + " is the file this document was opened from. Saving over it writes it as " +
                        DescribeSave(App.Docs.Info(Id).Save, Path) + "; the file as it is now cannot be recovered afterwards.";
        question.Buttons = {"Overwrite original", "Cancel"};
    }
    else
    {
        question.Title = "Replace file?";
        question.Text = FileName(Path) + " already exists in " + fs::path(Path).parent_path().string() +
                        ". Replace it with this document?";
        question.Buttons = {"Replace", "Cancel"};
    }
    question.OnAnswer = [&App, Id, Path, BitrateKbps](int Answer) {
        if (Answer == 0)
            StartSaveJob(App, Id, Path, BitrateKbps);
        else
        {
            App.Say("Save cancelled.");
            OnSaveFinished(App, Id, false);
        }
    };
    App.Prompts.Ask(std::move(question));
}

void AskSaveAs(Program& App, uint64_t Id)
{
    const std::string suggestion = DefaultSavePath(*App.pEditor, App.Docs.Info(Id));
    if (App.Chooser.BeginSave(suggestion))
    {
        App.ChooserOpenedFor = ChooserPurpose::Save;
        App.ChooserDocument = Id;
        return;
    }
    PathPrompt prompt;
    prompt.Title = "Save As";
    prompt.Text = "Save to (the format follows the extension):";
    prompt.Path = suggestion;
    prompt.bSave = true;
    prompt.BitrateKbps = App.Docs.Info(Id).Save.BitrateKbps;
    prompt.OnAnswer = [&App, Id](const std::vector<std::string>& Paths, int Kbps) {
        ConfirmAndSave(App, Id, Paths.empty() ? std::string() : Paths.front(), Kbps);
    };
    App.Prompts.Ask(std::move(prompt));
}
}  // namespace

bool IsEditorFrozen(const Program& App)
{
    return App.Work.IsSnapshotting();
}

std::string DocumentName(const Program& App, uint64_t Id, const std::string& SourcePath)
{
    const DocumentInfo* info = App.Docs.Find(Id);
    if (info && !info->SaveTarget.empty())
        return FileName(info->SaveTarget);
    return FileName(SourcePath);
}

// --- Open ---

void CommandOpen(Program& App)
{
    const std::string folder =
        App.Settings.RecentFiles.empty() ? HomeFolder() : fs::path(App.Settings.RecentFiles.front()).parent_path().string();
    if (App.Chooser.BeginOpen(folder))
    {
        App.ChooserOpenedFor = ChooserPurpose::Open;
        return;
    }
    PathPrompt prompt;
    prompt.Title = "Open";
    prompt.Text = "Audio file to open (several separated by ;):";
    prompt.Path = folder + "/";
    prompt.OnAnswer = [&App](const std::vector<std::string>& Paths, int) { OpenPaths(App, Paths); };
    App.Prompts.Ask(std::move(prompt));
}

// A file already open switches to its tab; the others open in the background.
void OpenPaths(Program& App, const std::vector<std::string>& Paths)
{
    GLWaveEdit& editor = *App.pEditor;
    for (const std::string& path : Paths)
    {
        std::error_code error;
        const std::string absolute = fs::absolute(path, error).lexically_normal().string();
        bool found = false;
        for (int i = 0; i < editor.DocumentCount() && !found; ++i)
            if (SameFile(App.Docs.Info(editor.DocumentIdAt(i)).SourcePath, absolute))
            {
                editor.ActivateDocument(i);
                App.Say(FileName(path) + " is open already: switched to its tab.");
                found = true;
            }
        if (!found)
            App.Work.QueueOpen(error ? path : absolute);
    }
}

// --- Save ---

void CommandSave(Program& App, bool bAlwaysAsk)
{
    GLWaveEdit& editor = *App.pEditor;
    const uint64_t id = editor.DocumentIdAt(editor.ActiveDocument());
    if (id == 0)
        return;
    if (App.Work.IsSaving())
    {
        App.Complain("A save is running already; try again when it ends.");
        OnSaveFinished(App, id, false);
        return;
    }
    if (editor.ActiveFrames().empty())
    {
        App.Complain("Nothing to save: the audio is empty.");
        OnSaveFinished(App, id, false);
        return;
    }
    const DocumentInfo& info = App.Docs.Info(id);
    if (bAlwaysAsk || info.SaveTarget.empty())
        AskSaveAs(App, id);
    else if (!ChangedOnDiskSince(App, id, info.SaveTarget))
        StartSaveJob(App, id, info.SaveTarget, info.Save.BitrateKbps);
    else
    {
        Question question;
        question.Title = "File changed on disk";
        question.Text = info.SaveTarget + " was changed by another program since this document was saved to it. " +
                        "Saving replaces those changes with this document.";
        question.Buttons = {"Save anyway", "Save As...", "Cancel"};
        question.OnAnswer = [&App, id, target = info.SaveTarget](int Answer) {
            if (Answer == 0)
                StartSaveJob(App, id, target, App.Docs.Info(id).Save.BitrateKbps);
            else if (Answer == 1)
                AskSaveAs(App, id);
            else
            {
                App.Say("Save cancelled.");
                OnSaveFinished(App, id, false);
            }
        };
        App.Prompts.Ask(std::move(question));
    }
}

// --- Close and quit ---

void CommandCloseActive(Program& App)
{
    const GLWaveEdit& editor = *App.pEditor;
    RequestClose(App, {editor.DocumentIdAt(editor.ActiveDocument())}, false);
}

void CommandQuit(Program& App)
{
    App.Work.CancelOpens();
    RequestClose(App, App.Docs.ModifiedIds(*App.pEditor), true);
}

// --- Results of background work ---

void PollChooser(Program& App)
{
    std::vector<std::string> paths;
    if (!App.Chooser.Poll(paths))
        return;
    const ChooserPurpose purpose = App.ChooserOpenedFor;
    App.ChooserOpenedFor = ChooserPurpose::None;
    if (purpose == ChooserPurpose::Open)
        OpenPaths(App, paths);
    else if (purpose == ChooserPurpose::Save)
        ConfirmAndSave(App, App.ChooserDocument, paths.empty() ? std::string() : paths.front(),
                       App.Docs.Info(App.ChooserDocument).Save.BitrateKbps);
}

void TakeFinishedJobs(Program& App)
{
    GLWaveEdit& editor = *App.pEditor;
    SaveResult saved;
    while (App.Work.TakeSaved(saved))
    {
        if (saved.bOk)
        {
            DocumentInfo& info = App.Docs.Info(saved.DocumentId);
            info.SaveTarget = saved.Path;
            info.SavedStateId = saved.StateId;
            info.bMarkersChanged = false;
            NoteDiskStamp(App, saved.DocumentId, saved.Path);
            // Edits made while it saved stay journalled against the old base.
            if (editor.EditStateIdOf(saved.DocumentId) == saved.StateId)
                App.Recovery.Forget(saved.DocumentId);
            AddRecentFile(App.Settings, saved.Path);
            App.Say("Saved " + saved.Path);
        }
        else
            App.Complain("Save failed: " + saved.Error);
        OnSaveFinished(App, saved.DocumentId, saved.bOk);
    }
    // A document comes in only while no save copies the active one.
    OpenResult opened;
    while (!IsEditorFrozen(App) && App.Work.TakeOpened(opened))
    {
        if (!opened.bOk)
        {
            if (opened.bCancelled)
                App.Say("Opening " + FileName(opened.Path) + " cancelled.");
            else
                App.Complain("Cannot open " + FileName(opened.Path) + ": " + opened.Error);
            continue;
        }
        AdoptOpened(editor, App.Docs, opened);
        AddRecentFile(App.Settings, opened.Path);
        App.Say("Opened " + opened.Path);
        if (!ReplayPendingRestore(App, opened.Path))
            OfferRestores(App, opened.Path);
    }
}
