#include "desktop_harness.h"

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

bool Screenshot::Take(const VirtualDisplay& Display)
{
    const std::string file = "/tmp/glwe-e2e-" + std::to_string(getpid()) + ".rgb";
    const std::string size = ShellOutput("DISPLAY=" + Display.Name() + " xdotool getdisplaygeometry");
    if (std::sscanf(size.c_str(), "%d %d", &Width, &Height) != 2)
        return false;
    if (RunShell("import -display " + Display.Name() + " -window root -depth 8 rgb:" + file + " 2>/dev/null") != 0)
        return false;
    std::ifstream in(file, std::ios::binary);
    Rgb.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    std::remove(file.c_str());
    return Rgb.size() == static_cast<size_t>(Width) * Height * 3;
}

void Screenshot::At(int X, int Y, int& R, int& G, int& B) const
{
    const size_t at = (static_cast<size_t>(Y) * Width + X) * 3;
    R = Rgb[at];
    G = Rgb[at + 1];
    B = Rgb[at + 2];
}

int Screenshot::Count(int X1, int Y1, int X2, int Y2, int R, int G, int B, int Tolerance) const
{
    int count = 0;
    for (int y = std::max(Y1, 0); y < std::min(Y2, Height); ++y)
        for (int x = std::max(X1, 0); x < std::min(X2, Width); ++x)
        {
            int r = 0, g = 0, b = 0;
            At(x, y, r, g, b);
            if (std::abs(r - R) <= Tolerance && std::abs(g - G) <= Tolerance && std::abs(b - B) <= Tolerance)
                ++count;
        }
    return count;
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
    for (double waited = 0.0; waited < TimeoutSec; waited += 0.05)
    {
        if (!IsRunning())
            return ExitStatus;
        SleepSeconds(0.05);
    }
    return -1;
}

std::string RunningProgram::Title()
{
    const std::string title = ShellOutput("DISPLAY=" + Display.Name() + " xdotool getwindowname " + WindowId +
                                          " 2>/dev/null");
    return title.substr(0, title.find('\n'));
}

bool RunningProgram::WaitForTitle(const std::string& Text, double TimeoutSec)
{
    for (double waited = 0.0; waited < TimeoutSec; waited += 0.1)
    {
        if (Title().find(Text) != std::string::npos)
            return true;
        SleepSeconds(0.1);
    }
    return false;
}

bool RunningProgram::WaitForExactTitle(const std::string& Text, double TimeoutSec)
{
    for (double waited = 0.0; waited < TimeoutSec; waited += 0.1)
    {
        if (Title() == Text)
            return true;
        SleepSeconds(0.1);
    }
    return false;
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
