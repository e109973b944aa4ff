// A file that replaces its target whole or not at all, also when the process
// is killed half way: the data goes into an unnamed file in the target's folder
// (O_TMPFILE), which gets a name only once it is complete and on the disk, and
// that name is renamed over the target at once. Where the filesystem has no
// unnamed files, a hidden named temporary beside the target takes its place;
// one that a killed process left behind is removed by the next save to the
// same target. Saving to a symbolic link replaces the file at the end of its
// chain of links, and the links stay links.
#pragma once

#include <filesystem>
#include <string>

class ReplacementFile
{
public:
    ReplacementFile() = default;
    ReplacementFile(const ReplacementFile&) = delete;
    ReplacementFile& operator=(const ReplacementFile&) = delete;
    // A file that was not committed disappears, unnamed or named.
    ~ReplacementFile() { Discard(); }

    // Follows Path's links, removes what dead saves of that target left, and
    // opens the temporary for reading and writing. bNamedOnly skips the
    // unnamed file (for tests, and filesystems that misreport O_TMPFILE).
    bool Create(const std::string& Path, bool bNamedOnly, std::string& OutError);

    int Descriptor() const { return Fd; }
    // The file that Commit replaces: Path after its links.
    const std::filesystem::path& Target() const { return TargetPath; }
    bool IsUnnamed() const { return bUnnamed; }

    // Flushes the data to the disk, renames it over the target and flushes
    // the folder. On failure the target is as it was and the temporary gone.
    bool Commit(std::string& OutError);
    // Closes and removes the temporary; safe to call twice.
    void Discard();

private:
    bool OpenNamed(std::string& OutError);
    bool LinkUnnamed(std::string& OutError);
    void KeepModeOfTarget();
    bool Fail(const std::string& What, int Code, std::string& OutError);

    std::filesystem::path TargetPath;
    std::filesystem::path Folder;
    std::string TemporaryPath;  // empty while the file has no name
    int Fd = -1;
    bool bUnnamed = false;
};

// Removes the named temporaries of saves to Target whose process, on this
// host, no longer runs. A save calls it itself; a program may call it when it
// opens a file.
void RemoveStaleTemporaries(const std::filesystem::path& Target);
