// The recovery journal. While a document differs from the file it came from,
// each of its edits is appended to a journal under $XDG_STATE_HOME (else
// ~/.local/state)/glwaveedit/journals: the edit's kind, frames and percent,
// plus the frames a paste inserted, never the whole document. A writer thread
// appends each entry and puts it on the disk (fdatasync; for a new journal
// also an fsync of its folder) within moments of its edit.
//
// A running program holds an advisory lock (an open file description lock)
// on each of its journals for as long as it lives. The kernel drops the lock
// when the program ends, however it ends, so a journal nobody holds locked is
// an orphan whatever its name says: no PID test, no reuse after a reboot, no
// zombie, and two programs side by side never take each other's journals.
//
// A journal file: one JSON header line, then one JSON line per edit; a paste's
// line is followed by its frames as raw little-endian floats and a newline.
// An edit's line: "kind", its frames "start" .. "end", "percent", the floats
// that follow ("inserted"), the frames the edit put in their place
// ("inserted_frames", missing from older journals), and an effect's fields.
// An entry cut short by a crash ends the journal there.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "jobs.h"

struct JournalEntry
{
    std::string Kind;  // cut, delete, gain, paste, undo, redo, effect, marker-add, marker-set, marker-remove
    int64_t StartFrame = 0;
    int64_t EndFrame = 0;
    double Percent = 0.0;
    // Frames the edit put in place of StartFrame .. EndFrame; -1 where the
    // journal does not say (one written before it kept this).
    int64_t InsertedFrames = -1;
    std::vector<float> Inserted;  // a paste's frames, interleaved stereo
    // Kind "effect": which, its two values, and whether it took the whole
    // document (no selection); replayed by running it again on the frames.
    std::string Effect;
    double EffectA = 0.0;
    double EffectB = 0.0;
    bool bWhole = false;
    // Kinds "marker-...": which marker, and its name; its frames are
    // StartFrame and EndFrame (equal for a marker, a region's span otherwise).
    uint64_t MarkerId = 0;
    std::string MarkerName;
};

// An open journal file and the lock on it; closing releases the lock.
class LockedJournalFile
{
public:
    explicit LockedJournalFile(int Fd) : Fd(Fd) {}
    ~LockedJournalFile();
    LockedJournalFile(const LockedJournalFile&) = delete;
    LockedJournalFile& operator=(const LockedJournalFile&) = delete;
    int Get() const { return Fd; }

private:
    int Fd = -1;
};

struct FoundJournal
{
    std::string Path;      // the journal file
    std::string BasePath;  // the file the edits apply to; "" for an untitled document
    bool bBaseChanged = false;  // its size or time differ from when the edits began
    int64_t LastEditUnixSec = 0;  // when its last entry was written
    uint64_t ValidBytes = 0;      // up to the end of its last whole entry
    std::vector<JournalEntry> Entries;
    // Held while this program considers the journal (asks, restores), so that
    // no other program offers it meanwhile.
    std::shared_ptr<LockedJournalFile> Lock;
};

class Journal
{
public:
    // $XDG_STATE_HOME/glwaveedit/journals, else $HOME/.local/state/glwaveedit/journals.
    static std::string Folder();
    // Journals no running program holds, oldest first, each locked for this
    // program; those left empty by a crash are removed. Wanted, when given,
    // picks by the journal's path and its base file.
    using OrphanFilter = std::function<bool(const std::string& JournalPath, const std::string& BasePath)>;
    static std::vector<FoundJournal> FindOrphans(const OrphanFilter& Wanted = nullptr);
    static bool Read(const std::string& Path, FoundJournal& Out);

    Journal();
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // Appends one edit of document Id, whose edits apply to BasePath.
    void Record(uint64_t Id, const std::string& BasePath, JournalEntry Entry);
    // Document Id equals its base again (saved, or closed): its journal goes.
    void Forget(uint64_t Id);
    void ForgetAll();
    // Takes over a found journal, and its lock, for document Id, to go on
    // appending to it.
    void Adopt(uint64_t Id, const FoundJournal& Found);
    // Waits until everything recorded so far is on the disk, or has failed.
    void Flush();
    // Why the last entry of some document could not be put on the disk; ""
    // while every document's entries are there. Any thread.
    std::string Problem() const;

private:
    struct File;
    std::map<uint64_t, std::shared_ptr<File>> Files;  // document id -> its journal
    mutable std::mutex ProblemLock;
    std::map<uint64_t, std::string> Problems;  // document id -> why not written
    Worker Writer;                             // last: ends first

    void WriteOut(uint64_t Id, File& Target);
    void NoteProblem(uint64_t Id, const std::string& Why);
};
