#include "file_chooser.h"

#include <gtk/gtk.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace
{
// Extensions FFmpeg reads that people keep audio in.
const char* const kAudioPatterns[] = {"*.wav", "*.flac", "*.mp3", "*.ogg", "*.oga", "*.opus", "*.m4a",
                                      "*.aac", "*.aif", "*.aiff", "*.wma", "*.mka", "*.webm", "*.mp4"};

bool DesktopSessionPresent()
{
    const char* forced = std::getenv("GLWE_FILE_CHOOSER");
    if (forced && std::strcmp(forced, "prompt") == 0)
        return false;
    const char* desktop = std::getenv("XDG_CURRENT_DESKTOP");
    const char* session = std::getenv("DESKTOP_SESSION");
    return (desktop && *desktop) || (session && *session);
}

void PumpGtk()
{
    while (gtk_events_pending())
        gtk_main_iteration_do(FALSE);
}
}  // namespace

FileChooser::~FileChooser()
{
    Close();
}

bool FileChooser::IsAvailable()
{
    if (Availability < 0)
        Availability = DesktopSessionPresent() && gtk_init_check(nullptr, nullptr) ? 1 : 0;
    return Availability == 1;
}

void FileChooser::OnResponse(void* pNative, int ResponseId, void* pSelf)
{
    auto* self = static_cast<FileChooser*>(pSelf);
    self->Answer.clear();
    if (ResponseId == GTK_RESPONSE_ACCEPT)
    {
        GSList* files = gtk_file_chooser_get_filenames(GTK_FILE_CHOOSER(pNative));
        for (GSList* item = files; item; item = item->next)
        {
            self->Answer.emplace_back(static_cast<const char*>(item->data));
            g_free(item->data);
        }
        g_slist_free(files);
    }
    self->bAnswered = true;
}

bool FileChooser::BeginOpen(const std::string& StartFolder)
{
    if (IsShowing() || !IsAvailable())
        return false;
    GtkFileChooserNative* native =
        gtk_file_chooser_native_new("Open audio files", nullptr, GTK_FILE_CHOOSER_ACTION_OPEN, "_Open", "_Cancel");
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(native);
    gtk_file_chooser_set_select_multiple(chooser, TRUE);
    if (!StartFolder.empty())
        gtk_file_chooser_set_current_folder(chooser, StartFolder.c_str());
    GtkFileFilter* audio = gtk_file_filter_new();
    gtk_file_filter_set_name(audio, "Audio files");
    for (const char* pattern : kAudioPatterns)
        gtk_file_filter_add_pattern(audio, pattern);
    gtk_file_filter_add_mime_type(audio, "audio/*");
    gtk_file_chooser_add_filter(chooser, audio);
    GtkFileFilter* all = gtk_file_filter_new();
    gtk_file_filter_set_name(all, "All files");
    gtk_file_filter_add_pattern(all, "*");
    gtk_file_chooser_add_filter(chooser, all);
    return Show(native);
}

bool FileChooser::BeginSave(const std::string& DefaultPath)
{
    if (IsShowing() || !IsAvailable())
        return false;
    GtkFileChooserNative* native =
        gtk_file_chooser_native_new("Save audio as", nullptr, GTK_FILE_CHOOSER_ACTION_SAVE, "_Save", "_Cancel");
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(native);
    // The program asks before replacing, in words that say what happens.
    gtk_file_chooser_set_do_overwrite_confirmation(chooser, FALSE);
    const std::filesystem::path path(DefaultPath);
    if (!path.parent_path().empty())
        gtk_file_chooser_set_current_folder(chooser, path.parent_path().c_str());
    gtk_file_chooser_set_current_name(chooser, path.filename().c_str());
    return Show(native);
}

bool FileChooser::Show(void* pNative)
{
    pDialog = pNative;
    bAnswered = false;
    g_signal_connect(pNative, "response", G_CALLBACK(OnResponse), this);
    gtk_native_dialog_show(GTK_NATIVE_DIALOG(pNative));
    return true;
}

bool FileChooser::Poll(std::vector<std::string>& OutPaths)
{
    if (!IsShowing())
        return false;
    PumpGtk();
    if (!bAnswered)
        return false;
    OutPaths = Answer;
    Close();
    return true;
}

void FileChooser::Close()
{
    if (!pDialog)
        return;
    GtkNativeDialog* native = GTK_NATIVE_DIALOG(pDialog);
    gtk_native_dialog_destroy(native);
    g_object_unref(native);
    pDialog = nullptr;
    PumpGtk();
}
