// Open and Save As through GTK 3's native file chooser, which goes through the
// desktop portal where one runs. It does not block: Begin* shows it, and Poll,
// called every frame, pumps GTK's events and tells when the user answered, so
// the program keeps drawing meanwhile. Where no desktop is there (Xvfb, the
// tests) it is not available and the program asks for a path in its own
// window instead; GLWE_FILE_CHOOSER=prompt forces that.
#pragma once

#include <string>
#include <vector>

// What the chooser was opened for, so that its answer goes to the right command.
enum class ChooserPurpose
{
    None,
    Open,
    Save,  // of the program's ChooserDocument
};

class FileChooser
{
public:
    FileChooser() = default;
    ~FileChooser();
    FileChooser(const FileChooser&) = delete;
    FileChooser& operator=(const FileChooser&) = delete;

    // True when a desktop session is there and GTK starts on it.
    bool IsAvailable();
    bool IsShowing() const { return pDialog != nullptr; }

    // Several files, filtered to audio with an "All files" choice.
    bool BeginOpen(const std::string& StartFolder);
    // One path; the program itself asks before writing over a file.
    bool BeginSave(const std::string& DefaultPath);

    // Once the chooser has closed: true, with the chosen paths (empty when
    // the user cancelled). False while it is still showing or was never shown.
    bool Poll(std::vector<std::string>& OutPaths);

private:
    void* pDialog = nullptr;  // GtkFileChooserNative*
    int Availability = -1;    // -1 not yet known, 0 no, 1 yes
    bool bAnswered = false;
    std::vector<std::string> Answer;

    static void OnResponse(void* pNative, int ResponseId, void* pSelf);
    bool Show(void* pNative);
    void Close();
};
