// The program's bookkeeping per tab, which the editor does not keep: where a
// document came from, where Ctrl+S may write it, the history position it was
// last saved at (the modified mark), and the format it was opened in. Keyed
// by the editor's tab ids, so it follows tabs as others close.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "save_format.h"

class GLWaveEdit;

// What tells that a file changed: its size and modification time.
struct FileStamp
{
    uint64_t Size = 0;
    int64_t ModifiedNs = 0;
    // Zeros for a file that is not there.
    static FileStamp Of(const std::string& Path);
    bool operator==(const FileStamp& Other) const { return Size == Other.Size && ModifiedNs == Other.ModifiedNs; }
    bool operator!=(const FileStamp& Other) const { return !(*this == Other); }
};

struct DocumentInfo
{
    std::string SourcePath;     // the file it was opened from; "" for an untitled one
    std::string SaveTarget;     // where Ctrl+S writes without asking; "" asks (Save As)
    uint64_t SavedStateId = 0;  // the editor's EditStateId when last opened or saved
    std::string FormatSummary;  // "MP3, 192 kb/s, 44100 Hz, stereo, 3:25.412"
    std::map<std::string, std::string> Tags;  // carried over to saved files
    // The file it was opened from or last saved to, as this program left it:
    // another program writing it afterwards is told once, and a save over it asks.
    FileStamp DiskStamp;
    bool bToldChangedOnDisk = false;
    SourceFormat Source;        // what the file was, for saving it back so
    SaveFormat Save;            // what Ctrl+S writes: the source's format, or the last one chosen
    bool bMarkersChanged = false;  // markers added, moved, renamed or removed since opened or saved
};

class Session
{
public:
    // The info of tab Id, made on first use.
    DocumentInfo& Info(uint64_t Id) { return Documents[Id]; }
    const DocumentInfo* Find(uint64_t Id) const;
    // Forgets tabs the editor no longer has.
    void Prune(const GLWaveEdit& Editor);

    // The audio differs from what was last opened or saved.
    bool IsModified(const GLWaveEdit& Editor, uint64_t Id) const;
    std::vector<uint64_t> ModifiedIds(const GLWaveEdit& Editor) const;
    int IndexOf(const GLWaveEdit& Editor, uint64_t Id) const;

    // Closing in progress: the tabs still to close, one question at a time.
    struct CloseQueue
    {
        std::deque<uint64_t> Ids;
        bool bQuitAfter = false;
        uint64_t Asking = 0;   // the tab whose question is showing
        uint64_t Saving = 0;   // the tab whose save must end before it closes
    } Closing;

private:
    std::map<uint64_t, DocumentInfo> Documents;
};
