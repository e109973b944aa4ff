// The recovery journal. While a document differs from the file it came from,
// each of its edits is appended to a journal under $XDG_STATE_HOME (else
// ~/.local/state)/glwaveedit/journals: the edit's kind, frames and percent,
// plus the frames a paste inserted, never the whole document. A writer thread
// appends and flushes each entry within moments of its edit. After a crash
// the next start finds the journals whose program is gone and offers to
// reopen each base file and replay its edits.
//
// A journal file: one JSON header line, then one JSON line per edit; a paste's
// line is followed by its frames as raw little-endian floats and a newline.
// An entry cut short by a crash ends the journal there.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "jobs.h"

struct JournalEntry
{
    std::string Kind;  // cut, delete, gain, paste, undo, redo
    int64_t StartFrame = 0;
    int64_t EndFrame = 0;
    double Percent = 0.0;
    std::vector<float> Inserted;  // a paste's frames, interleaved stereo
};

struct FoundJournal
{
    std::string Path;      // the journal file
    std::string BasePath;  // the file the edits apply to; "" for an untitled document
    bool bBaseChanged = false;  // its size or time differ from when the edits began
    std::vector<JournalEntry> Entries;
};

class Journal
{
public:
    // $XDG_STATE_HOME/glwaveedit/journals, else $HOME/.local/state/glwaveedit/journals.
    static std::string Folder();
    // Journals of programs that are no longer running, oldest first.
    static std::vector<FoundJournal> FindOrphans();
    static bool Read(const std::string& Path, FoundJournal& Out);

    // Appends one edit of document Id, whose edits apply to BasePath.
    void Record(uint64_t Id, const std::string& BasePath, JournalEntry Entry);
    // Document Id equals its base again (saved, or closed): its journal goes.
    void Forget(uint64_t Id);
    void ForgetAll();
    // Takes over a found journal for document Id, to go on appending to it.
    void Adopt(uint64_t Id, const FoundJournal& Found);
    // Waits until everything recorded so far is on the disk (for the tests).
    void Flush();

private:
    std::map<uint64_t, std::string> Files;  // document id -> journal file
    Worker Writer;                          // last: ends first
};
