// The crash-safe replacement of a file.
//
// Index:
//   --- Names ---         links followed, temporaries named after their owner
//   --- Stale files ---   what killed saves left behind
//   --- Replacement ---   unnamed or named temporary, commit, discard

#include "replacement_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

namespace {

namespace fs = std::filesystem;

// What the kernel allows too (ELOOP).
constexpr int kMaxLinkHops = 40;
constexpr int kNameAttempts = 16;

std::string SystemErrorText(int Code) { return std::strerror(Code); }

// --- Names ---

// The file at the end of Path's chain of symbolic links; Path itself when it
// is not a link or does not exist. A relative link is read from its folder.
bool FollowLinks(const fs::path& Path, fs::path& OutTarget, std::string& OutError)
{
    fs::path current = Path;
    for (int hop = 0; hop <= kMaxLinkHops; ++hop)
    {
        std::error_code error;
        if (!fs::is_symlink(fs::symlink_status(current, error)))
        {
            OutTarget = current;
            return true;
        }
        const fs::path next = fs::read_symlink(current, error);
        if (error)
        {
            OutError = "Cannot read the link \"" + current.string() + "\": " + error.message();
            return false;
        }
        current = next.is_absolute() ? next : current.parent_path() / next;
    }
    OutError = "Cannot save to \"" + Path.string() + "\": " + SystemErrorText(ELOOP);
    return false;
}

// Eight hex digits for this host (FNV-1a of its name), so that a save never
// takes a temporary of another machine sharing the folder for a dead one.
std::string HostTag()
{
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    uint32_t hash = 2166136261u;
    for (const char* pChar = name; *pChar; ++pChar)
        hash = (hash ^ static_cast<unsigned char>(*pChar)) * 16777619u;
    char text[9];
    std::snprintf(text, sizeof text, "%08x", hash);
    return text;
}

// ".<stem>.tmp-<host>-": hidden, and sorted beside nothing the user made.
std::string TemporaryPrefix(const fs::path& Target) { return "." + Target.stem().string() + ".tmp-" + HostTag() + "-"; }

// ".<stem>.tmp-<host>-<pid>-<random>.<ext>": the owner's process id lets a
// later save tell a dead save's file from a running one's. It ends in the
// target's extension, which some muxers check.
fs::path TemporaryName(const fs::path& Folder, const fs::path& Target)
{
    static thread_local std::mt19937 randomSource{std::random_device{}()};
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, "%ld-%08x", static_cast<long>(getpid()),
                  static_cast<unsigned>(randomSource()));
    return Folder / (TemporaryPrefix(Target) + suffix + Target.extension().string());
}

// The process id in a name made by TemporaryName for Target; 0 if the name is
// not one of them.
long OwnerOfTemporary(const std::string& Name, const std::string& Prefix, const std::string& Extension)
{
    if (Name.size() <= Prefix.size() + Extension.size() || Name.compare(0, Prefix.size(), Prefix) != 0 ||
        Name.compare(Name.size() - Extension.size(), Extension.size(), Extension) != 0)
        return 0;
    const std::string middle = Name.substr(Prefix.size(), Name.size() - Prefix.size() - Extension.size());
    char* pEnd = nullptr;
    const long pid = std::strtol(middle.c_str(), &pEnd, 10);
    const std::string rest = pEnd;
    const bool bRandomPart = rest.size() == 9 && rest[0] == '-' &&
                             rest.find_first_not_of("0123456789abcdef", 1) == std::string::npos;
    return pid > 0 && bRandomPart ? pid : 0;
}

}  // namespace

// --- Stale files ---

void RemoveStaleTemporaries(const fs::path& Target)
{
    const fs::path folder = Target.has_parent_path() ? Target.parent_path() : ".";
    const std::string prefix = TemporaryPrefix(Target);
    const std::string extension = Target.extension().string();
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
    {
        const long owner = OwnerOfTemporary(entry->path().filename().string(), prefix, extension);
        // Another thread of this process may be saving the same target.
        if (owner == 0 || owner == getpid())
            continue;
        if (kill(static_cast<pid_t>(owner), 0) != 0 && errno == ESRCH)
            unlink(entry->path().c_str());
    }
}

// --- Replacement ---

bool ReplacementFile::Create(const std::string& Path, bool bNamedOnly, std::string& OutError)
{
    if (!FollowLinks(Path, TargetPath, OutError))
        return false;
    Folder = TargetPath.has_parent_path() ? TargetPath.parent_path() : ".";
    RemoveStaleTemporaries(TargetPath);
    // Naming an unnamed file goes through /proc/self/fd.
    if (!bNamedOnly && access("/proc/self/fd", X_OK) == 0)
    {
        Fd = open(Folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
        const int error = errno;
        // Old kernels read O_TMPFILE as O_DIRECTORY (EISDIR); some filesystems
        // lack it (EOPNOTSUPP, EINVAL). Anything else is a real refusal.
        if (Fd < 0 && error != EOPNOTSUPP && error != EISDIR && error != EINVAL)
            return Fail("Cannot create a file in \"" + Folder.string() + "\": ", error, OutError);
        bUnnamed = Fd >= 0;
    }
    if (Fd < 0 && !OpenNamed(OutError))
        return false;
    KeepModeOfTarget();
    return true;
}

bool ReplacementFile::OpenNamed(std::string& OutError)
{
    int lastError = 0;
    for (int attempt = 0; attempt < kNameAttempts && Fd < 0; ++attempt)
    {
        const fs::path candidate = TemporaryName(Folder, TargetPath);
        Fd = open(candidate.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        lastError = errno;
        if (Fd >= 0)
            TemporaryPath = candidate.string();
    }
    if (Fd < 0)
        return Fail("Cannot create a file in \"" + Folder.string() + "\": ", lastError, OutError);
    return true;
}

// Saving over a file keeps who may read it.
void ReplacementFile::KeepModeOfTarget()
{
    struct stat status = {};
    if (stat(TargetPath.c_str(), &status) == 0 && S_ISREG(status.st_mode))
        fchmod(Fd, status.st_mode & 07777);
}

// Flushed before any name exists, so that a crash right after the rename
// cannot leave an empty file in place of the old one.
bool ReplacementFile::Commit(std::string& OutError)
{
    if (fsync(Fd) != 0)
    {
        const int error = errno;
        return Fail("Cannot write \"" + TargetPath.string() + "\": ", error, OutError);
    }
    if (bUnnamed && !LinkUnnamed(OutError))
        return false;
    close(Fd);
    Fd = -1;
    // From here to the rename is the only moment a kill leaves a name behind;
    // the next save removes it.
    if (std::rename(TemporaryPath.c_str(), TargetPath.c_str()) != 0)
    {
        const int error = errno;
        return Fail("Cannot replace \"" + TargetPath.string() + "\": ", error, OutError);
    }
    TemporaryPath.clear();
    // The rename itself reaches the disk with the folder. The file is already
    // in place, so a folder that cannot be flushed (some filesystems refuse)
    // does not make the save a failure.
    const int folderFd = open(Folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folderFd >= 0)
    {
        fsync(folderFd);
        close(folderFd);
    }
    return true;
}

// Gives the unnamed file a unique temporary name in its folder. linkat with
// AT_EMPTY_PATH would need CAP_DAC_READ_SEARCH; the /proc link does not.
bool ReplacementFile::LinkUnnamed(std::string& OutError)
{
    const std::string self = "/proc/self/fd/" + std::to_string(Fd);
    int lastError = EEXIST;
    for (int attempt = 0; attempt < kNameAttempts && lastError == EEXIST; ++attempt)
    {
        const fs::path candidate = TemporaryName(Folder, TargetPath);
        if (linkat(AT_FDCWD, self.c_str(), AT_FDCWD, candidate.c_str(), AT_SYMLINK_FOLLOW) == 0)
        {
            TemporaryPath = candidate.string();
            return true;
        }
        lastError = errno;
    }
    return Fail("Cannot name the file in \"" + Folder.string() + "\": ", lastError, OutError);
}

bool ReplacementFile::Fail(const std::string& What, int Code, std::string& OutError)
{
    OutError = What + SystemErrorText(Code);
    Discard();
    return false;
}

void ReplacementFile::Discard()
{
    if (Fd >= 0)
        close(Fd);
    Fd = -1;
    if (!TemporaryPath.empty())
        unlink(TemporaryPath.c_str());
    TemporaryPath.clear();
}
