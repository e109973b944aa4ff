// SDL's pointer events to the editor. The editor sees its buttons by polling,
// one state per pass, so a press and a release that arrive within one frame
// (an `xdotool click`, a touchpad tap) would never be seen. Button changes
// are queued here and handed over one per button per frame: the press on one
// pass, the release on the next.
#pragma once

#include <SDL.h>

#include <deque>

struct Program;
class Tarvik;

// The pointer's shapes, made once: the arrow, the sizing arrow over a
// selection's edge, the text beam.
struct Cursors
{
    SDL_Cursor* pArrow = SDL_CreateSystemCursor(SDL_SYSTEM_CURSOR_ARROW);
    SDL_Cursor* pSizeWE = SDL_CreateSystemCursor(SDL_SYSTEM_CURSOR_SIZEWE);
    SDL_Cursor* pIBeam = SDL_CreateSystemCursor(SDL_SYSTEM_CURSOR_IBEAM);
    SDL_Cursor* pShown = nullptr;

    ~Cursors()
    {
        SDL_FreeCursor(pIBeam);
        SDL_FreeCursor(pSizeWE);
        SDL_FreeCursor(pArrow);
    }
};

// The shape a child window asked for this frame, or the arrow.
void ApplyCursor(const Tarvik& Root, Cursors& Shapes);

class PointerInput
{
public:
    // Takes a pointer event; false when it is not one.
    bool Take(const SDL_Event& Event);
    // Moves the queued changes into the host's mouse and the editor's events,
    // at most one per button. bEditorMayTake: the pointer is over the editor
    // and no dialog or menu wants it. True when changes are still waiting, so
    // another frame must follow.
    bool Deliver(Program& App, bool bEditorMayTake);
    void ForgetPresses();

private:
    struct Change
    {
        int Button = 0;  // 0 left, 1 middle, 2 right
        bool bDown = false;
        int Clicks = 1;
        int X = 0;
        int Y = 0;
    };
    std::deque<Change> Waiting;
    int PointerX = 0;
    int PointerY = 0;
    bool bEditorHolds[3] = {};  // the editor saw this button go down
};

// Window coordinates (points, y down) to the shell's normalised ones (y up).
void PointerToNormalised(SDL_Window* pWindow, int X, int Y, double& OutX, double& OutY);

// Dear ImGui of this version reads keys as states once per frame, so a key
// pressed and released within one frame (`xdotool key`, a fast typist) would
// never be seen by a dialog. A key's release waits for the next frame when
// its press came in this one, and so does a second press of a key, with
// what comes after it.
class KeyLatch
{
public:
    // True when Event is kept for the next frame instead.
    bool Defer(const SDL_Event& Event);
    // Starts a frame: the events kept from the last one, in order.
    std::deque<SDL_Event> NextFrame();
    bool HasDeferred() const { return !Deferred.empty(); }

private:
    std::deque<SDL_Keycode> PressedThisFrame;
    std::deque<SDL_Event> Deferred;
};
