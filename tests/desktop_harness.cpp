#include "desktop_harness.h"

#include "test_support.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

#ifndef GLWE_PROGRAM_PATH
#error "GLWE_PROGRAM_PATH names the program under test"
#endif

void SleepSeconds(double Sec)
{
    std::this_thread::sleep_for(std::chrono::duration<double>(Sec));
}

bool WaitUntil(const std::function<bool()>& Done, double TimeoutSec)
{
    for (double waited = 0.0; waited < TimeoutSec; waited += 0.05)
    {
        if (Done())
            return true;
        SleepSeconds(0.05);
    }
    return Done();
}

// --- VirtualDisplay ---

VirtualDisplay::VirtualDisplay(int WidthPx, int HeightPx)
{
    // A display number nobody else uses: the lock file tells.
    for (int number = 90; number < 140 && Pid < 0; ++number)
    {
        if (access(("/tmp/.X" + std::to_string(number) + "-lock").c_str(), F_OK) == 0)
            continue;
        DisplayName = ":" + std::to_string(number);
        const std::string screen = std::to_string(WidthPx) + "x" + std::to_string(HeightPx) + "x24";
        Pid = fork();
        if (Pid == 0)
        {
            setpgid(0, 0);
            std::freopen("/dev/null", "w", stderr);
            execlp("Xvfb", "Xvfb", DisplayName.c_str(), "-screen", "0", screen.c_str(), "-nolisten", "tcp",
                   static_cast<char*>(nullptr));
            _exit(127);
        }
        // Up when xdpyinfo answers, or gone when the number was taken meanwhile.
        for (int i = 0; i < 100; ++i)
        {
            SleepSeconds(0.05);
            if (RunShell("DISPLAY=" + DisplayName + " xdotool getdisplaygeometry >/dev/null 2>&1") == 0)
                return;
            int status = 0;
            if (waitpid(Pid, &status, WNOHANG) == Pid)
                break;
        }
        kill(Pid, SIGKILL);
        waitpid(Pid, nullptr, 0);
        Pid = -1;
    }
}

VirtualDisplay::~VirtualDisplay()
{
    if (Pid > 0)
    {
        kill(Pid, SIGTERM);
        waitpid(Pid, nullptr, 0);
    }
}

// --- Screenshot ---

bool Near(const Rgb& A, const Rgb& B, int Tolerance)
{
    return std::abs(A.R - B.R) <= Tolerance && std::abs(A.G - B.G) <= Tolerance && std::abs(A.B - B.B) <= Tolerance;
}

bool Screenshot::Take(const VirtualDisplay& Display)
{
    return ReadPpm("import -display " + Display.Name() + " -window root -depth 8 ppm:- 2>/dev/null");
}

bool Screenshot::Read(const std::string& ImagePath)
{
    return ReadPpm("convert '" + ImagePath + "' -depth 8 ppm:- 2>/dev/null");
}

// Binary PPM on the command's output: "P6 W H 255\n" then the RGB bytes.
bool Screenshot::ReadPpm(const std::string& Command)
{
    FILE* pipe = popen(Command.c_str(), "r");
    if (!pipe)
        return false;
    int maxValue = 0;
    const bool bHeader = std::fscanf(pipe, "P6 %d %d %d", &Width, &Height, &maxValue) == 3 && maxValue == 255 &&
                         std::fgetc(pipe) != EOF;
    if (bHeader)
    {
        Bytes.resize(static_cast<size_t>(Width) * Height * 3);
        Bytes.resize(std::fread(Bytes.data(), 1, Bytes.size(), pipe));
    }
    pclose(pipe);
    return bHeader && Bytes.size() == static_cast<size_t>(Width) * Height * 3;
}

Rgb Screenshot::At(int X, int Y) const
{
    const size_t at = (static_cast<size_t>(Y) * Width + X) * 3;
    return Rgb{Bytes[at], Bytes[at + 1], Bytes[at + 2]};
}

int Screenshot::Count(int X1, int Y1, int X2, int Y2, const std::function<bool(const Rgb&)>& Test) const
{
    int count = 0;
    for (int y = std::max(Y1, 0); y < std::min(Y2, Height); ++y)
        for (int x = std::max(X1, 0); x < std::min(X2, Width); ++x)
            count += Test(At(x, y)) ? 1 : 0;
    return count;
}

int Screenshot::Count(int X1, int Y1, int X2, int Y2, const Rgb& Colour, int Tolerance) const
{
    return Count(X1, Y1, X2, Y2, [&](const Rgb& C) { return Near(C, Colour, Tolerance); });
}

// --- RunningProgram ---

RunningProgram::RunningProgram(const VirtualDisplay& Display, const std::vector<std::string>& Arguments,
                               const std::string& HomeFolder)
    : Display(Display)
{
    mkdir(HomeFolder.c_str(), 0755);
    Pid = fork();
    if (Pid == 0)
    {
        setenv("DISPLAY", Display.Name().c_str(), 1);
        setenv("HOME", HomeFolder.c_str(), 1);
        setenv("XDG_CONFIG_HOME", (HomeFolder + "/config").c_str(), 1);
        setenv("XDG_STATE_HOME", (HomeFolder + "/state").c_str(), 1);
        setenv("GLWE_AUDIO_OUTPUT", "silent", 1);
        setenv("GLWE_FILE_CHOOSER", "prompt", 1);
        unsetenv("XDG_CURRENT_DESKTOP");
        unsetenv("DESKTOP_SESSION");
        std::vector<char*> argv;
        std::string program = GLWE_PROGRAM_PATH;
        argv.push_back(program.data());
        std::vector<std::string> copies = Arguments;
        for (std::string& argument : copies)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    const std::string found = ShellOutput("DISPLAY=" + Display.Name() + " timeout 20 xdotool search --sync --pid " +
                                          std::to_string(Pid) + " --name GLWaveEdit 2>/dev/null | head -1");
    WindowId = found.substr(0, found.find('\n'));
    if (WindowId.empty())
        return;
    // Keys go through XTEST to the focused window, as a keyboard's would.
    Xdotool("windowfocus --sync " + WindowId);
    SleepSeconds(0.3);  // the first frames
}

RunningProgram::~RunningProgram()
{
    if (Pid > 0 && IsRunning())
    {
        kill(Pid, SIGKILL);
        waitpid(Pid, nullptr, 0);
    }
}

bool RunningProgram::IsRunning()
{
    if (Pid <= 0 || ExitStatus >= 0)
        return false;
    int status = 0;
    if (waitpid(Pid, &status, WNOHANG) == Pid)
    {
        ExitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128;
        return false;
    }
    return true;
}

int RunningProgram::WaitForExit(double TimeoutSec)
{
    return WaitUntil([this] { return !IsRunning(); }, TimeoutSec) ? ExitStatus : -1;
}

std::string RunningProgram::Title()
{
    const std::string title = ShellOutput("DISPLAY=" + Display.Name() + " xdotool getwindowname " + WindowId +
                                          " 2>/dev/null");
    return title.substr(0, title.find('\n'));
}

bool RunningProgram::WaitForTitle(const std::string& Text, double TimeoutSec, bool bExact)
{
    return WaitUntil([&] { return bExact ? Title() == Text : Title().find(Text) != std::string::npos; }, TimeoutSec);
}

bool RunningProgram::Xdotool(const std::string& Arguments)
{
    return RunShell("DISPLAY=" + Display.Name() + " xdotool " + Arguments + " >/dev/null 2>&1") == 0;
}

void RunningProgram::Key(const std::string& Keys)
{
    Xdotool("key " + Keys);
    SleepSeconds(0.25);
}
