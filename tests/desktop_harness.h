// What the end-to-end tests of the desktop program share: an X server of
// their own (Xvfb), the program started in it with a private home, real
// input through xdotool, and screenshots read back as pixels.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// An Xvfb display for the life of the object.
class VirtualDisplay
{
public:
    VirtualDisplay(int WidthPx = 1280, int HeightPx = 800);
    ~VirtualDisplay();
    VirtualDisplay(const VirtualDisplay&) = delete;
    VirtualDisplay& operator=(const VirtualDisplay&) = delete;
    bool IsUp() const { return Pid > 0; }
    const std::string& Name() const { return DisplayName; }

private:
    pid_t Pid = -1;
    std::string DisplayName;
};

// An RGB screenshot of the whole display.
struct Screenshot
{
    int Width = 0;
    int Height = 0;
    std::vector<unsigned char> Rgb;
    bool Take(const VirtualDisplay& Display);
    // The colour at X, Y as 0..255 each.
    void At(int X, int Y, int& R, int& G, int& B) const;
    // Pixels in the rectangle whose colour is within Tolerance of R, G, B.
    int Count(int X1, int Y1, int X2, int Y2, int R, int G, int B, int Tolerance) const;
};

// The program running on Display with a home folder of its own.
class RunningProgram
{
public:
    RunningProgram(const VirtualDisplay& Display, const std::vector<std::string>& Arguments,
                   const std::string& HomeFolder);
    ~RunningProgram();  // kills it if it still runs
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    bool IsRunning();
    // Waits for it to end by itself; its exit status, or -1 on a time-out.
    int WaitForExit(double TimeoutSec);
    // Waits until the window's title contains Text.
    bool WaitForTitle(const std::string& Text, double TimeoutSec);
    bool WaitForExactTitle(const std::string& Text, double TimeoutSec);
    std::string Title();
    // xdotool with these arguments on the program's display.
    bool Xdotool(const std::string& Arguments);
    void Key(const std::string& Keys);  // e.g. "ctrl+s"

    std::string WindowId;

private:
    const VirtualDisplay& Display;
    pid_t Pid = -1;
    int ExitStatus = -1;
};

// Runs a shell command; its exit status.
int RunShell(const std::string& Command);
// The standard output of a shell command.
std::string ShellOutput(const std::string& Command);
void SleepSeconds(double Sec);
