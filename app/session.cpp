// The session's bookkeeping per tab: modified marks from the editor's
// history position.

#include "session.h"

#include <sys/stat.h>

#include <filesystem>

#include "glwaveedit.h"

// --- Bookkeeping ---

FileStamp FileStamp::Of(const std::string& Path)
{
    struct stat info = {};
    if (Path.empty() || stat(Path.c_str(), &info) != 0)
        return {};
    return {static_cast<uint64_t>(info.st_size),
            static_cast<int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec};
}

const DocumentInfo* Session::Find(uint64_t Id) const
{
    const auto found = Documents.find(Id);
    return found == Documents.end() ? nullptr : &found->second;
}

void Session::Prune(const GLWaveEdit& Editor)
{
    for (auto entry = Documents.begin(); entry != Documents.end();)
    {
        bool present = false;
        for (int i = 0; i < Editor.DocumentCount() && !present; ++i)
            present = Editor.DocumentIdAt(i) == entry->first;
        entry = present ? std::next(entry) : Documents.erase(entry);
    }
}

bool Session::IsModified(const GLWaveEdit& Editor, uint64_t Id) const
{
    const DocumentInfo* info = Find(Id);
    return Editor.EditStateIdOf(Id) != (info ? info->SavedStateId : 0) || (info && info->bMarkersChanged);
}

std::vector<uint64_t> Session::ModifiedIds(const GLWaveEdit& Editor) const
{
    std::vector<uint64_t> ids;
    for (int i = 0; i < Editor.DocumentCount(); ++i)
        if (IsModified(Editor, Editor.DocumentIdAt(i)))
            ids.push_back(Editor.DocumentIdAt(i));
    return ids;
}

int Session::IndexOf(const GLWaveEdit& Editor, uint64_t Id) const
{
    for (int i = 0; i < Editor.DocumentCount(); ++i)
        if (Editor.DocumentIdAt(i) == Id)
            return i;
    return -1;
}
