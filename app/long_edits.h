// Edits off the frame thread. A cut, gain or undo of an hour moves gigabytes:
// on the frame thread it would stop the window for most of a second. An edit
// is queued here, and starts on a worker once the frame that asked for it is
// drawn. Until it ends the frame thread leaves the editor alone: it shows
// that frame again, and after a moment dims it and says what is being done.
// Input waits in SDL's queue meanwhile and is taken in order afterwards,
// but for Esc and a click on Cancel, which stop an edit that can be stopped:
// such an edit reports its progress through Progress() and looks between its
// blocks whether it was asked to stop.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "jobs.h"
#include "sdl_compat.h"
#include "work_progress.h"

struct Program;

class LongEdits
{
public:
    LongEdits() = default;
    LongEdits(const LongEdits&) = delete;
    LongEdits& operator=(const LongEdits&) = delete;

    // An edit to run after this frame; What names it for the user ("Cutting").
    // A Stoppable edit reports to Progress() and ends early when asked to.
    void Queue(const std::string& What, std::function<void()> Edit, bool Stoppable = false);
    // Where the running edit reports; reset as each edit starts.
    WorkProgress& Progress() { return Work; }
    // Queued or running: the editor is not the frame thread's now.
    bool IsBusy() const { return !Queued.empty() || IsRunning(); }
    bool IsRunning() const { return Running.load() > 0; }
    // End of the frame that queued edits, after drawing and before the swap:
    // keeps what was drawn (Width x Height pixels; GL context current).
    void KeepPicture(int Width, int Height);
    // Starts the queued edits, in the order they came.
    void StartQueued();
    // Waits up to Ms for the running edits to end; true once they have.
    bool WaitForEnd(int Ms);
    // A frame while edits run: the kept picture, and after a moment a dimmed
    // one with the name of the edit and the time it has taken.
    void DrawBusyFrame(int Width, int Height);
    // The kept picture goes (GL context current).
    void ReleasePicture();
    // Takes Esc and clicks on Cancel out of SDL's queue; either asks a
    // stoppable running edit to stop. Frame thread.
    void TakeStopRequests();

private:
    struct Job
    {
        std::string What;
        std::function<void()> Edit;
        bool bStoppable = false;
    };
    std::vector<Job> Queued;
    WorkProgress Work;
    std::atomic<bool> bCurrentStoppable{false};
    float CancelButton[4] = {0, 0, 0, 0};  // x0, y0, x1, y1 in window points, as last drawn; 0 wide: none
    bool bSwallowRelease = false;  // the press on Cancel was taken: its release goes too
    std::atomic<int> Running{0};
    mutable std::mutex Lock;
    std::condition_variable Ended;
    std::string Current;  // under Lock
    std::chrono::steady_clock::time_point StartedAt;
    unsigned PictureTexture = 0;
    // Declared last: destroyed first, so that a running edit ends before the
    // state it reports to goes.
    Worker Thread;
};

// A frame while edits run on their worker: the editor is not touched, and no
// event is taken, so that keys and clicks wait in SDL's queue in their order.
// Returns when the frame's work began, after its wait.
Uint64 RunBusyFrame(Program& App);
