#include "settings.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

std::string XdgBaseFolder(const char* Variable, const char* HomeFallback)
{
    const char* value = std::getenv(Variable);
    if (value && *value && fs::path(value).is_absolute())
        return value;
    const char* home = std::getenv("HOME");
    return (fs::path(home && *home ? home : ".") / HomeFallback).string();
}

std::string SettingsFilePath()
{
    return (fs::path(XdgBaseFolder("XDG_CONFIG_HOME", ".config")) / "glwaveedit" / "state.json").string();
}

// --- Reading ---

namespace
{
// Each reader takes the value when it has the right type and throws
// otherwise, so that a foreign file is told apart from ours.
template <typename T>
void ReadIfPresent(const nlohmann::json& Object, const char* Key, T& Out)
{
    const auto found = Object.find(Key);
    if (found != Object.end())
        Out = found->get<T>();
}

void ReadSettings(const nlohmann::json& Root, AppSettings& Out)
{
    if (!Root.is_object() || Root.value("program", std::string()) != "glwaveedit")
        throw std::runtime_error("not a glwaveedit state file");
    AppSettings read;
    if (const auto view = Root.find("view"); view != Root.end())
    {
        ReadIfPresent(*view, "channel_lanes", read.bChannelLanes);
        ReadIfPresent(*view, "amplitude_db", read.bAmplitudeDb);
        std::string time = TimeFormatName(read.Time);
        ReadIfPresent(*view, "time_format", time);
        if (!TimeFormatFromName(time, read.Time))
            throw std::runtime_error("unknown time format");
    }
    if (const auto saving = Root.find("saving"); saving != Root.end())
        ReadIfPresent(*saving, "lossy_bitrate_kbps", read.LossyBitrateKbps);
    ReadIfPresent(Root, "history_cap_bytes", read.HistoryCapBytes);
    if (const auto window = Root.find("window"); window != Root.end())
    {
        ReadIfPresent(*window, "width", read.WindowWidth);
        ReadIfPresent(*window, "height", read.WindowHeight);
        ReadIfPresent(*window, "maximized", read.bMaximized);
    }
    if (const auto editor = Root.find("editor"); editor != Root.end())
    {
        ReadIfPresent(*editor, "type", read.EditorStateType);
        if (const auto state = editor->find("state"); state != editor->end() && state->is_object())
            read.EditorState = *state;
    }
    ReadIfPresent(Root, "recent_files", read.RecentFiles);
    if (const auto effects = Root.find("effects"); effects != Root.end() && effects->is_object())
        read.EffectValues = *effects;
    // Values a damaged file could hold that would make the program unusable.
    read.LossyBitrateKbps = std::clamp(read.LossyBitrateKbps, 32, 320);
    read.WindowWidth = std::clamp(read.WindowWidth, 320, 16384);
    read.WindowHeight = std::clamp(read.WindowHeight, 240, 16384);
    read.HistoryCapBytes = std::clamp<size_t>(read.HistoryCapBytes, size_t(16) << 20, size_t(64) << 30);
    if (read.RecentFiles.size() > kMaxRecentFiles)
        read.RecentFiles.resize(kMaxRecentFiles);
    Out = std::move(read);
}
}  // namespace

void LoadSettings(const std::string& Path, AppSettings& Out, std::string& OutMessage)
{
    Out = AppSettings();
    std::error_code error;
    if (!fs::exists(Path, error))
        return;
    try
    {
        std::ifstream in(Path, std::ios::binary);
        ReadSettings(nlohmann::json::parse(in), Out);
        return;
    }
    catch (const std::exception&)
    {
        Out = AppSettings();
    }
    const std::string aside = Path + ".damaged-" + std::to_string(static_cast<long long>(std::time(nullptr)));
    fs::rename(Path, aside, error);
    OutMessage = error ? "Settings file " + Path + " could not be read; defaults are used."
                       : "Settings file was damaged; set aside as " + aside + ", defaults are used.";
}

// --- Writing ---

bool SaveSettings(const std::string& Path, const AppSettings& In, std::string& OutError)
{
    nlohmann::json root;
    root["program"] = "glwaveedit";
    root["view"] = {{"channel_lanes", In.bChannelLanes},
                    {"amplitude_db", In.bAmplitudeDb},
                    {"time_format", TimeFormatName(In.Time)}};
    root["saving"] = {{"lossy_bitrate_kbps", In.LossyBitrateKbps}};
    root["history_cap_bytes"] = In.HistoryCapBytes;
    root["window"] = {{"width", In.WindowWidth}, {"height", In.WindowHeight}, {"maximized", In.bMaximized}};
    root["editor"] = {{"type", In.EditorStateType}, {"state", In.EditorState}};
    root["recent_files"] = In.RecentFiles;
    root["effects"] = In.EffectValues;

    std::error_code error;
    const fs::path target(Path);
    fs::create_directories(target.parent_path(), error);
    const fs::path temporary = target.parent_path() / (target.filename().string() + ".tmp-" + std::to_string(getpid()));
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << root.dump(2) << '\n';
        out.flush();
        if (!out)
        {
            fs::remove(temporary, error);
            OutError = "cannot write " + temporary.string();
            return false;
        }
    }
    fs::rename(temporary, target, error);
    if (error)
    {
        fs::remove(temporary, error);
        OutError = "cannot replace " + Path;
        return false;
    }
    return true;
}

void AddRecentFile(AppSettings& Settings, const std::string& Path)
{
    auto& recent = Settings.RecentFiles;
    recent.erase(std::remove(recent.begin(), recent.end(), Path), recent.end());
    recent.insert(recent.begin(), Path);
    if (recent.size() > kMaxRecentFiles)
        recent.resize(kMaxRecentFiles);
}
