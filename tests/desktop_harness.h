// What the end-to-end tests of the desktop program share: an X server of
// their own (Xvfb), the program started in it with a private home, real
// input through xdotool, and screenshots (or the program's own) read back as
// pixels.
#pragma once

#include <sys/types.h>

#include <functional>
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

struct Rgb
{
    int R, G, B;
};
bool Near(const Rgb& A, const Rgb& B, int Tolerance);

// An RGB picture: a screenshot of the whole display, or an image file.
struct Screenshot
{
    int Width = 0;
    int Height = 0;
    std::vector<unsigned char> Bytes;  // RGB rows, top first
    bool Take(const VirtualDisplay& Display);
    bool Read(const std::string& ImagePath);  // any format ImageMagick reads
    Rgb At(int X, int Y) const;
    // Pixels in the rectangle that pass Test, or are within Tolerance of Colour.
    int Count(int X1, int Y1, int X2, int Y2, const std::function<bool(const Rgb&)>& Test) const;
    int Count(int X1, int Y1, int X2, int Y2, const Rgb& Colour, int Tolerance) const;

private:
    bool ReadPpm(const std::string& Command);
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
    // Waits until the window's title contains Text (with bExact: is Text).
    bool WaitForTitle(const std::string& Text, double TimeoutSec, bool bExact = false);
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

void SleepSeconds(double Sec);
// Polls Done every 50 ms until it holds (true) or TimeoutSec have passed.
bool WaitUntil(const std::function<bool()>& Done, double TimeoutSec);
