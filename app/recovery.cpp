#include "recovery.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <future>

#include <nlohmann/json.hpp>

#include "session.h"
#include "settings.h"

namespace fs = std::filesystem;

// --- Files ---

namespace
{
bool WriteAll(int Fd, const char* Data, size_t Bytes)
{
    size_t written = 0;
    while (written < Bytes)
    {
        const ssize_t n = write(Fd, Data + written, Bytes - written);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
        {
            if (n == 0)
                errno = ENOSPC;
            return false;
        }
        written += static_cast<size_t>(n);
    }
    return true;
}

// A write lock on the whole file, owned by the open file description: the
// kernel drops it when the last descriptor closes, also when the program is
// killed. Other descriptions conflict with it, even in the same process.
bool TryLock(int Fd)
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return fcntl(Fd, F_OFD_SETLK, &lock) == 0;
}

// The journal opened and locked for this program; null when another running
// program holds it (or it cannot be opened).
std::shared_ptr<LockedJournalFile> OpenLocked(const std::string& Path)
{
    const int fd = open(Path.c_str(), O_RDWR | O_APPEND | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    auto file = std::make_shared<LockedJournalFile>(fd);
    return TryLock(fd) ? file : nullptr;
}

void SyncFolder(const std::string& Folder)
{
    const int fd = open(Folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0)
    {
        fsync(fd);
        close(fd);
    }
}

// An entry's line; its samples follow it.
std::string EntryLine(const JournalEntry& Entry)
{
    nlohmann::json line = {{"kind", Entry.Kind},
                           {"start", Entry.StartFrame},
                           {"end", Entry.EndFrame},
                           {"percent", Entry.Percent},
                           {"inserted", Entry.Inserted.size()}};
    if (Entry.InsertedFrames >= 0)
        line["inserted_frames"] = Entry.InsertedFrames;
    if (Entry.Kind == "effect")
    {
        line["effect"] = Entry.Effect;
        line["a"] = Entry.EffectA;
        line["b"] = Entry.EffectB;
        line["whole"] = Entry.bWhole;
    }
    if (Entry.Kind.rfind("marker-", 0) == 0)
    {
        line["marker"] = Entry.MarkerId;
        line["name"] = Entry.MarkerName;
    }
    return line.dump() + "\n";
}

// Unique across runs and reboots: the name carries no ownership, the lock does.
std::string NewJournalName(uint64_t Id)
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::to_string(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count()) + "-" +
           std::to_string(getpid()) + "-" + std::to_string(Id) + ".journal";
}

std::string BaseName(const std::string& Path)
{
    return Path.empty() ? "an untitled document" : fs::path(Path).filename().string();
}
}  // namespace

LockedJournalFile::~LockedJournalFile()
{
    if (Fd >= 0)
        close(Fd);
}

std::string Journal::Folder()
{
    return (fs::path(XdgBaseFolder("XDG_STATE_HOME", ".local/state")) / "glwaveedit" / "journals").string();
}

// --- Reading ---

bool Journal::Read(const std::string& Path, FoundJournal& Out)
{
    std::ifstream in(Path, std::ios::binary);
    std::string line;
    if (!std::getline(in, line))
        return false;
    const nlohmann::json header = nlohmann::json::parse(line, nullptr, false);
    if (!header.is_object() || !header.contains("glwaveedit_journal"))
        return false;
    std::shared_ptr<LockedJournalFile> lock = std::move(Out.Lock);
    Out = FoundJournal();
    Out.Lock = std::move(lock);
    Out.Path = Path;
    Out.BasePath = header.value("base", std::string());
    const FileStamp now = FileStamp::Of(Out.BasePath);
    Out.bBaseChanged = !Out.BasePath.empty() && (now.Size != header.value("size", uint64_t(0)) ||
                                                 now.ModifiedNs != header.value("mtime_ns", int64_t(0)));
    struct stat info = {};
    if (stat(Path.c_str(), &info) == 0)
        Out.LastEditUnixSec = info.st_mtim.tv_sec;
    Out.ValidBytes = static_cast<uint64_t>(in.tellg());
    while (std::getline(in, line))
    {
        const nlohmann::json item = nlohmann::json::parse(line, nullptr, false);
        if (!item.is_object())
            break;  // cut short by the crash
        JournalEntry entry;
        entry.Kind = item.value("kind", std::string());
        entry.StartFrame = item.value("start", int64_t(0));
        entry.EndFrame = item.value("end", int64_t(0));
        entry.Percent = item.value("percent", 0.0);
        entry.InsertedFrames = item.value("inserted_frames", int64_t(-1));
        entry.Effect = item.value("effect", std::string());
        entry.EffectA = item.value("a", 0.0);
        entry.EffectB = item.value("b", 0.0);
        entry.bWhole = item.value("whole", false);
        entry.MarkerId = item.value("marker", uint64_t(0));
        entry.MarkerName = item.value("name", std::string());
        const size_t inserted = item.value("inserted", size_t(0));
        if (inserted > 0)
        {
            entry.Inserted.resize(inserted);
            in.read(reinterpret_cast<char*>(entry.Inserted.data()), static_cast<std::streamsize>(inserted * 4));
            if (static_cast<size_t>(in.gcount()) != inserted * 4 || in.get() != '\n')
                break;
        }
        Out.Entries.push_back(std::move(entry));
        Out.ValidBytes = static_cast<uint64_t>(in.tellg());
    }
    return true;
}

std::vector<FoundJournal> Journal::FindOrphans(const OrphanFilter& Wanted)
{
    std::vector<std::pair<fs::file_time_type, FoundJournal>> found;
    std::error_code error;
    for (const fs::directory_entry& file : fs::directory_iterator(Folder(), error))
    {
        const std::string path = file.path().string();
        const bool bHalfMade = file.path().extension() == ".new";
        if (file.path().extension() != ".journal" && !bHalfMade)
            continue;
        if (Wanted && !bHalfMade)
        {
            // Only the header is read for the question: a journal may hold pasted hours.
            std::ifstream in(path, std::ios::binary);
            std::string line;
            std::getline(in, line);
            const nlohmann::json header = nlohmann::json::parse(line, nullptr, false);
            if (!header.is_object() || !Wanted(path, header.value("base", std::string())))
                continue;
        }
        FoundJournal journal;
        journal.Lock = OpenLocked(path);
        if (!journal.Lock)
            continue;  // a running program's
        if (bHalfMade)
            fs::remove(file.path(), error);  // its maker died before its first entry
        else if (Read(path, journal))
            found.emplace_back(file.last_write_time(error), std::move(journal));
    }
    std::sort(found.begin(), found.end(), [](const auto& A, const auto& B) { return A.first < B.first; });
    std::vector<FoundJournal> journals;
    for (auto& entry : found)
        if (!entry.second.Entries.empty())
            journals.push_back(std::move(entry.second));
        else
            fs::remove(entry.second.Path, error);  // nothing to give back
    return journals;
}

// --- Writing ---

// One document's journal, touched only by the writer thread once made.
struct Journal::File
{
    struct Waiting
    {
        std::string Head;
        std::shared_ptr<const std::vector<float>> Samples;
    };
    std::string Path;
    std::string Header;  // written when the file is made
    std::string BaseName;
    std::shared_ptr<LockedJournalFile> Lock;  // null until made
    uint64_t Bytes = 0;                       // whole entries on the disk
    bool bTruncate = false;                   // adopted: drop a cut-short tail first
    std::deque<Waiting> Queue;                // entries not on the disk yet, in order
};

Journal::Journal() = default;
Journal::~Journal() = default;

void Journal::Record(uint64_t Id, const std::string& BasePath, JournalEntry Entry)
{
    std::shared_ptr<File>& file = Files[Id];
    if (!file)
    {
        file = std::make_shared<File>();
        file->Path = Folder() + "/" + NewJournalName(Id);
        file->BaseName = BaseName(BasePath);
        const FileStamp stamp = FileStamp::Of(BasePath);
        const nlohmann::json header = {{"glwaveedit_journal", 1},
                                       {"base", BasePath},
                                       {"size", stamp.Size},
                                       {"mtime_ns", stamp.ModifiedNs}};
        file->Header = header.dump() + "\n";
    }
    std::string head = EntryLine(Entry);
    auto samples = std::make_shared<const std::vector<float>>(std::move(Entry.Inserted));
    Writer.Post([this, Id, file, head = std::move(head), samples]() mutable {
        file->Queue.push_back({std::move(head), std::move(samples)});
        WriteOut(Id, *file);
    });
}

// Makes the file if it is not there yet, then writes every waiting entry in
// order. An entry that fails is taken back off the file and waits, so that
// the journal never holds a later edit without an earlier one.
void Journal::WriteOut(uint64_t Id, File& Target)
{
    const auto fail = [&](const std::string& What) {
        NoteProblem(Id, "Unsaved edits of " + Target.BaseName + " are not protected against a crash: " + What +
                            " (" + std::strerror(errno) + ")");
    };
    if (!Target.Lock)
    {
        const std::string folder = fs::path(Target.Path).parent_path().string();
        std::error_code error;
        fs::create_directories(folder, error);
        const std::string halfMade = Target.Path + ".new";
        const int fd = open(halfMade.c_str(), O_RDWR | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600);
        if (fd < 0)
        {
            if (error)
                errno = error.value();
            return fail("cannot make the journal in " + folder);
        }
        auto lock = std::make_shared<LockedJournalFile>(fd);
        // The lock is taken before the file has its real name, so no other
        // program can ever see it unlocked.
        if (!TryLock(fd) || !WriteAll(fd, Target.Header.data(), Target.Header.size()) || fdatasync(fd) != 0 ||
            rename(halfMade.c_str(), Target.Path.c_str()) != 0)
        {
            fail("cannot write the journal in " + folder);
            unlink(halfMade.c_str());
            return;
        }
        SyncFolder(folder);
        Target.Lock = std::move(lock);
        Target.Bytes = Target.Header.size();
    }
    const int fd = Target.Lock->Get();
    if (Target.bTruncate && ftruncate(fd, static_cast<off_t>(Target.Bytes)) == 0)
        Target.bTruncate = false;
    while (!Target.Queue.empty())
    {
        const File::Waiting& entry = Target.Queue.front();
        const std::vector<float>& samples = *entry.Samples;
        bool ok = WriteAll(fd, entry.Head.data(), entry.Head.size());
        if (ok && !samples.empty())
            ok = WriteAll(fd, reinterpret_cast<const char*>(samples.data()), samples.size() * sizeof(float)) &&
                 WriteAll(fd, "\n", 1);
        if (!ok || fdatasync(fd) != 0)
        {
            const int why = errno;
            if (ftruncate(fd, static_cast<off_t>(Target.Bytes)) != 0)
                Target.bTruncate = true;
            errno = why;
            return fail("cannot write the journal");
        }
        Target.Bytes += entry.Head.size() + (samples.empty() ? 0 : samples.size() * sizeof(float) + 1);
        Target.Queue.pop_front();
    }
    NoteProblem(Id, "");
}

void Journal::NoteProblem(uint64_t Id, const std::string& Why)
{
    std::lock_guard<std::mutex> hold(ProblemLock);
    if (Why.empty())
        Problems.erase(Id);
    else
        Problems[Id] = Why;
}

std::string Journal::Problem() const
{
    std::lock_guard<std::mutex> hold(ProblemLock);
    return Problems.empty() ? std::string() : Problems.begin()->second;
}

void Journal::Forget(uint64_t Id)
{
    const auto file = Files.find(Id);
    if (file == Files.end())
        return;
    Writer.Post([this, Id, file = file->second] {
        std::error_code error;
        fs::remove(file->Path, error);
        file->Lock.reset();
        file->Queue.clear();
        NoteProblem(Id, "");
    });
    Files.erase(file);
}

void Journal::ForgetAll()
{
    while (!Files.empty())
        Forget(Files.begin()->first);
    Flush();
}

void Journal::Adopt(uint64_t Id, const FoundJournal& Found)
{
    Forget(Id);  // a journal of the tab's own (edits undone back to its file) gives way
    auto file = std::make_shared<File>();
    file->Path = Found.Path;
    file->BaseName = BaseName(Found.BasePath);
    file->Lock = Found.Lock ? Found.Lock : OpenLocked(Found.Path);
    file->Bytes = Found.ValidBytes;
    file->bTruncate = true;
    if (!file->Lock)
        return;  // another program took it meanwhile: it is theirs
    Files[Id] = file;
}

void Journal::Flush()
{
    std::promise<void> done;
    std::future<void> written = done.get_future();
    Writer.Post([&done] { done.set_value(); });
    written.wait();
}
