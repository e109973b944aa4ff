// The program's persisted state: the editor's window state, the program's own
// settings and the recent files, in one JSON file under $XDG_CONFIG_HOME
// (else ~/.config)/glwaveedit/state.json. Written at exit through a temporary
// and a rename; a damaged or foreign file is set aside, never trusted.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "time_format.h"

struct AppSettings
{
    // View
    bool bChannelLanes = true;  // one lane per channel; false: the mix as one trace
    bool bAmplitudeDb = false;  // amplitude scale in dB rather than linear
    TimeFormat Time = TimeFormat::Clock;
    // Saving
    int LossyBitrateKbps = 192;
    // Edit history cap, all documents together
    size_t HistoryCapBytes = size_t(1) << 30;
    // Window, in points
    int WindowWidth = 1280;
    int WindowHeight = 720;
    bool bMaximized = false;
    // The editor's own window state: its type and extra state
    std::string EditorStateType;
    nlohmann::json EditorState = nlohmann::json::object();
    std::vector<std::string> RecentFiles;  // newest first
    // The values each effect's dialog used last, by name ("normalize_dbfs").
    nlohmann::json EffectValues = nlohmann::json::object();
};

constexpr size_t kMaxRecentFiles = 10;

// The folder an XDG base directory variable names when it holds an absolute
// path, else $HOME/HomeFallback (".config", ".local/state").
std::string XdgBaseFolder(const char* Variable, const char* HomeFallback);

// $XDG_CONFIG_HOME/glwaveedit/state.json, else $HOME/.config/glwaveedit/state.json.
std::string SettingsFilePath();

// Reads Path into Out. A missing file gives the defaults and no message. A
// file that is not ours (bad JSON, wrong shape, wrong types) is renamed to
// "<Path>.damaged-<seconds since 1970>" and the defaults are used; OutMessage
// then says so for the status bar. Never throws.
void LoadSettings(const std::string& Path, AppSettings& Out, std::string& OutMessage);

// Writes In to Path (folders made as needed) through a temporary file in the
// same folder, renamed over Path when complete. False with a reason otherwise.
bool SaveSettings(const std::string& Path, const AppSettings& In, std::string& OutError);

// Puts Path first in the recent files, once, at most kMaxRecentFiles kept.
void AddRecentFile(AppSettings& Settings, const std::string& Path);
