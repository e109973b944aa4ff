#include "recovery.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>

#include <nlohmann/json.hpp>

#include "settings.h"

namespace fs = std::filesystem;

// --- Files ---

namespace
{
struct FileStamp
{
    uint64_t Size = 0;
    int64_t ModifiedNs = 0;
};

FileStamp StampOf(const std::string& Path)
{
    struct stat info = {};
    if (Path.empty() || stat(Path.c_str(), &info) != 0)
        return {};
    return {static_cast<uint64_t>(info.st_size),
            static_cast<int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec};
}

bool WriteAll(int Fd, const char* Data, size_t Bytes)
{
    size_t written = 0;
    while (written < Bytes)
    {
        const ssize_t n = write(Fd, Data + written, Bytes - written);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        written += static_cast<size_t>(n);
    }
    return true;
}

// Appends Head, then the samples an entry carries with the line that ends
// them, to Path, and puts them on the disk before returning. The samples are
// written from where they are: a pasted hour is not copied again.
void AppendDurably(const std::string& Path, const std::string& Head, const std::vector<float>& Samples)
{
    const int fd = open(Path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0)
        return;
    if (WriteAll(fd, Head.data(), Head.size()) && !Samples.empty() &&
        WriteAll(fd, reinterpret_cast<const char*>(Samples.data()), Samples.size() * sizeof(float)))
        WriteAll(fd, "\n", 1);
    fdatasync(fd);
    close(fd);
}

// An entry's line; its samples follow it (see AppendDurably).
std::string EntryLine(const JournalEntry& Entry)
{
    nlohmann::json line = {{"kind", Entry.Kind},
                           {"start", Entry.StartFrame},
                           {"end", Entry.EndFrame},
                           {"percent", Entry.Percent},
                           {"inserted", Entry.Inserted.size()}};
    return line.dump() + "\n";
}

// The pid a journal's name starts with: "<pid>-<document>.journal".
bool OwnerIsGone(const fs::path& File)
{
    const std::string name = File.filename().string();
    const long pid = std::strtol(name.c_str(), nullptr, 10);
    return pid <= 0 || (kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH);
}
}  // namespace

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
    Out = FoundJournal();
    Out.Path = Path;
    Out.BasePath = header.value("base", std::string());
    const FileStamp now = StampOf(Out.BasePath);
    Out.bBaseChanged = !Out.BasePath.empty() && (now.Size != header.value("size", uint64_t(0)) ||
                                                 now.ModifiedNs != header.value("mtime_ns", int64_t(0)));
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
        const size_t inserted = item.value("inserted", size_t(0));
        if (inserted > 0)
        {
            entry.Inserted.resize(inserted);
            in.read(reinterpret_cast<char*>(entry.Inserted.data()), static_cast<std::streamsize>(inserted * 4));
            if (static_cast<size_t>(in.gcount()) != inserted * 4 || in.get() != '\n')
                break;
        }
        Out.Entries.push_back(std::move(entry));
    }
    return true;
}

std::vector<FoundJournal> Journal::FindOrphans()
{
    std::vector<std::pair<fs::file_time_type, FoundJournal>> found;
    std::error_code error;
    for (const fs::directory_entry& file : fs::directory_iterator(Folder(), error))
    {
        FoundJournal journal;
        if (file.path().extension() == ".journal" && OwnerIsGone(file.path()) && Read(file.path().string(), journal))
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

void Journal::Record(uint64_t Id, const std::string& BasePath, JournalEntry Entry)
{
    std::string bytes;
    auto file = Files.find(Id);
    if (file == Files.end())
    {
        std::error_code error;
        fs::create_directories(Folder(), error);
        const std::string path = Folder() + "/" + std::to_string(getpid()) + "-" + std::to_string(Id) + ".journal";
        file = Files.emplace(Id, path).first;
        const FileStamp stamp = StampOf(BasePath);
        const nlohmann::json header = {{"glwaveedit_journal", 1},
                                       {"base", BasePath},
                                       {"size", stamp.Size},
                                       {"mtime_ns", stamp.ModifiedNs}};
        bytes = header.dump() + "\n";
    }
    bytes += EntryLine(Entry);
    auto samples = std::make_shared<std::vector<float>>(std::move(Entry.Inserted));
    Writer.Post([path = file->second, bytes = std::move(bytes), samples] { AppendDurably(path, bytes, *samples); });
}

void Journal::Forget(uint64_t Id)
{
    const auto file = Files.find(Id);
    if (file == Files.end())
        return;
    Writer.Post([path = file->second] {
        std::error_code error;
        fs::remove(path, error);
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
    const std::string path = Folder() + "/" + std::to_string(getpid()) + "-" + std::to_string(Id) + ".journal";
    std::error_code error;
    fs::rename(Found.Path, path, error);
    Files[Id] = error ? Found.Path : path;
}

void Journal::Flush()
{
    std::promise<void> done;
    std::future<void> written = done.get_future();
    Writer.Post([&done] { done.set_value(); });
    written.wait();
}
