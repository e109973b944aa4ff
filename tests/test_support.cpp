#include "test_support.h"

#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "sdl_compat.h"

TestHost::TestHost(int WidthPx, int HeightPx)
{
    Host.CreateParts();
    Host.pCoreSDL->Width = WidthPx;
    Host.pCoreSDL->Height = HeightPx;
    p = &Host;
    SDL_SetModState(static_cast<decltype(SDL_GetModState())>(0));
}

TestHost::~TestHost()
{
    p = nullptr;
    SDL_SetModState(static_cast<decltype(SDL_GetModState())>(0));
}

void SetPointer(Mouse& Pointer, double X, double Y, bool bLeft, bool bMiddle)
{
    Pointer.BeginFrame();
    Pointer.X3D = X;
    Pointer.Y3D = Y;
    Pointer.pButton[0] = bLeft;
    Pointer.pButton[1] = bMiddle;
}

static std::string Fixed(double Value)
{
    char text[64];
    std::snprintf(text, sizeof(text), "%f", Value);
    return text;
}

SignalLog::SignalLog(GLWaveEdit& Editor)
{
    Editor.SignalSeekPreview.connect([this](double T) { Lines.push_back("preview " + Fixed(T)); });
    Editor.SignalSeekCommitted.connect([this](double T) { Lines.push_back("commit " + Fixed(T)); });
    Editor.SignalTogglePause.connect([this](bool B) { Lines.push_back(B ? "toggle true" : "toggle false"); });
    Editor.SignalSelectionChanged.connect(
        [this](double A, double B) { Lines.push_back("selection " + Fixed(A) + " " + Fixed(B)); });
    Editor.SignalEditActionRequested.connect([this](std::string Action, double A, double B) {
        Lines.push_back("edit " + Action + " " + Fixed(A) + " " + Fixed(B));
    });
    Editor.SignalActiveDocumentChanged.connect([this](std::string Path) { Lines.push_back("active " + Path); });
}

std::vector<float> ConstantFrames(size_t FrameCount, float Left, float Right)
{
    std::vector<float> frames(FrameCount * 2);
    for (size_t f = 0; f < FrameCount; ++f)
    {
        frames[2 * f] = Left;
        frames[2 * f + 1] = Right;
    }
    return frames;
}

std::vector<float> RampFrames(size_t FrameCount, float Scale)
{
    std::vector<float> frames(FrameCount * 2);
    for (size_t f = 0; f < FrameCount; ++f)
    {
        frames[2 * f] = static_cast<float>(f) * Scale;
        frames[2 * f + 1] = -static_cast<float>(f) * Scale;
    }
    return frames;
}

std::string ReadFileBytes(const std::string& Path)
{
    std::ifstream in(Path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void WriteFileBytes(const std::string& Path, const std::string& Bytes)
{
    std::ofstream(Path, std::ios::binary) << Bytes;
}

std::string ScratchPath(const std::string& FileName)
{
    const std::filesystem::path folder(GLWE_TEST_SCRATCH_DIR);
    std::filesystem::create_directories(folder);
    return (folder / FileName).string();
}

// The arguments a fixture was made with, and its size and time as made: a
// test that wrote over it makes it differ.
static std::string FixtureStamp(const std::string& Path, const std::string& Arguments)
{
    std::error_code error;
    const auto size = std::filesystem::file_size(Path, error);
    if (error)
        return "";
    const auto time = std::filesystem::last_write_time(Path, error).time_since_epoch().count();
    return Arguments + "\n" + std::to_string(size) + " " + std::to_string(time);
}

std::string MakeFfmpegFixture(const std::string& FileName, const std::string& Arguments)
{
    // A fixture made earlier from the same arguments, and untouched since, is
    // used again: the hour-long ones take seconds to encode.
    const std::string path = ScratchPath(FileName);
    const std::string made = path + ".made-with";
    std::ifstream madeIn(made);
    const std::string madeWith((std::istreambuf_iterator<char>(madeIn)), std::istreambuf_iterator<char>());
    if (!madeWith.empty() && madeWith == FixtureStamp(path, Arguments))
        return path;
    std::filesystem::remove(made);
    const std::string command = std::string("\"") + GLWE_FFMPEG_PATH + "\" -y -hide_banner -loglevel error " +
                                Arguments + " \"" + path + "\"";
    if (std::system(command.c_str()) != 0)
    {
        ADD_FAILURE() << "the fixture could not be made: " << command;
        return "";
    }
    std::ofstream(made) << FixtureStamp(path, Arguments);
    return path;
}

int RunShell(const std::string& Command)
{
    const int status = std::system(Command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string ShellOutput(const std::string& Command)
{
    std::string out;
    if (FILE* pipe = popen(Command.c_str(), "r"))
    {
        char buffer[4096];
        size_t got = 0;
        while ((got = fread(buffer, 1, sizeof(buffer), pipe)) > 0)
            out.append(buffer, got);
        pclose(pipe);
    }
    return out;
}
