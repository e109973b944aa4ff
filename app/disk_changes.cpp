// Files another program writes while they are open here. Each tab notes its
// file's size and time when it opens (AdoptOpened) or saves it; when the window comes back
// into focus, a file that differs is told of once, and a save over it asks
// first (see CommandSave).

#include <filesystem>

#include "glwaveedit.h"
#include "program.h"

void NoteDiskStamp(Program& App, uint64_t Id, const std::string& Path)
{
    DocumentInfo& info = App.Docs.Info(Id);
    info.DiskStamp = FileStamp::Of(Path);
    info.bToldChangedOnDisk = false;
}

bool ChangedOnDiskSince(Program& App, uint64_t Id, const std::string& Path)
{
    const DocumentInfo& info = App.Docs.Info(Id);
    const std::string& own = info.SaveTarget.empty() ? info.SourcePath : info.SaveTarget;
    // A stamp never taken (an untitled document) tells nothing.
    return !Path.empty() && Path == own && info.DiskStamp != FileStamp() && FileStamp::Of(Path) != info.DiskStamp;
}

void CheckDiskChanges(Program& App)
{
    const GLWaveEdit& editor = *App.pEditor;
    for (int i = 0; i < editor.DocumentCount(); ++i)
    {
        const uint64_t id = editor.DocumentIdAt(i);
        DocumentInfo& info = App.Docs.Info(id);
        const std::string& path = info.SaveTarget.empty() ? info.SourcePath : info.SaveTarget;
        if (info.bToldChangedOnDisk || !ChangedOnDiskSince(App, id, path))
            continue;
        info.bToldChangedOnDisk = true;
        const std::string name = std::filesystem::path(path).filename().string();
        App.Complain(name + " was changed on disk by another program; the tab still shows it as it was" +
                     (info.SaveTarget.empty() ? "." : ", and saving over it will ask first."));
    }
}
