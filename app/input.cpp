#include "input.h"

#include <algorithm>

#include "core.h"
#include "glwaveedit.h"
#include "program.h"

void PointerToNormalised(SDL_Window* pWindow, int X, int Y, double& OutX, double& OutY)
{
    int width = 1;
    int height = 1;
    SDL_GetWindowSize(pWindow, &width, &height);
    OutX = 2.0 * (X + 0.5) / std::max(width, 1) - 1.0;
    OutY = 1.0 - 2.0 * (Y + 0.5) / std::max(height, 1);
}

namespace
{
int ButtonIndex(Uint8 SdlButton)
{
    switch (SdlButton)
    {
    case SDL_BUTTON_LEFT: return 0;
    case SDL_BUTTON_MIDDLE: return 1;
    case SDL_BUTTON_RIGHT: return 2;
    default: return -1;
    }
}
}  // namespace

bool PointerInput::Take(const SDL_Event& Event)
{
    switch (Event.type)
    {
    case SDL_MOUSEMOTION:
        PointerX = Event.motion.x;
        PointerY = Event.motion.y;
        return true;
    case SDL_MOUSEBUTTONDOWN:
    case SDL_MOUSEBUTTONUP:
    {
        const int button = ButtonIndex(Event.button.button);
        if (button >= 0)
            Waiting.push_back({button, Event.type == SDL_MOUSEBUTTONDOWN, Event.button.clicks, Event.button.x,
                               Event.button.y});
        return true;
    }
    default: return false;
    }
}

void PointerInput::ForgetPresses()
{
    Waiting.erase(std::remove_if(Waiting.begin(), Waiting.end(), [](const Change& C) { return C.bDown; }),
                  Waiting.end());
}

bool PointerInput::Deliver(Program& App, bool bEditorMayTake)
{
    Mouse& pointer = *App.pHost->pMouse;
    GLWaveEdit& editor = *App.pEditor;
    bool changed[3] = {};
    int x = PointerX;
    int y = PointerY;
    while (!Waiting.empty() && !changed[Waiting.front().Button])
    {
        const Change change = Waiting.front();
        Waiting.pop_front();
        x = change.X;
        y = change.Y;
        double nx = 0.0;
        double ny = 0.0;
        PointerToNormalised(App.pWindow, x, y, nx, ny);
        // A press belongs to the editor only where it may take it; its release always follows it.
        if (change.bDown ? !bEditorMayTake : !bEditorHolds[change.Button])
            continue;
        changed[change.Button] = true;
        bEditorHolds[change.Button] = change.bDown;
        pointer.pButton[change.Button] = change.bDown;
        // The middle button is polled only; left and right also come as events.
        if (change.Button == 1)
            continue;
        const int id = change.Button == 0 ? 0 : 2;
        if (!change.bDown)
            editor.EventMouseRelease(id, nx, ny);
        else if (change.Clicks == 2)
            editor.EventMouseDoubleClick(id);
        else
            editor.EventMouseClick(id, nx, ny);
    }
    // While changes wait, the pointer stays where the last one happened.
    if (Waiting.empty())
    {
        x = PointerX;
        y = PointerY;
    }
    PointerToNormalised(App.pWindow, x, y, pointer.X3D, pointer.Y3D);
    return !Waiting.empty();
}

// --- KeyLatch ---

bool KeyLatch::Defer(const SDL_Event& Event)
{
    const bool pressedNow = std::find(PressedThisFrame.begin(), PressedThisFrame.end(), Event.key.keysym.sym) !=
                            PressedThisFrame.end();
    // A second press of a key in one frame, or any press behind a kept
    // event, waits too: two Returns typed ahead answer two dialogs.
    if (Event.type == SDL_KEYDOWN && (pressedNow || !Deferred.empty()))
    {
        Deferred.push_back(Event);
        return true;
    }
    if (Event.type == SDL_KEYDOWN)
        PressedThisFrame.push_back(Event.key.keysym.sym);
    if (Event.type != SDL_KEYUP && !(Event.type == SDL_TEXTINPUT && !Deferred.empty()))
        return false;
    // Text after a kept release keeps its order behind it.
    if (Event.type == SDL_KEYUP && !pressedNow && Deferred.empty())
        return false;
    Deferred.push_back(Event);
    return true;
}

std::deque<SDL_Event> KeyLatch::NextFrame()
{
    PressedThisFrame.clear();
    std::deque<SDL_Event> kept;
    // In order, up to a second event of one key in this frame: the rest
    // waits for the next.
    while (!Deferred.empty())
    {
        const SDL_Event& event = Deferred.front();
        const bool bKey = event.type == SDL_KEYDOWN || event.type == SDL_KEYUP;
        if (bKey && std::find(PressedThisFrame.begin(), PressedThisFrame.end(), event.key.keysym.sym) !=
                        PressedThisFrame.end())
            break;
        if (bKey)
            PressedThisFrame.push_back(event.key.keysym.sym);  // a release too: a press after it must wait
        kept.push_back(event);
        Deferred.pop_front();
    }
    return kept;
}

// The shape a child window asked for this frame, or the arrow.
void ApplyCursor(const Tarvik& Root, Cursors& Shapes)
{
    SDL_Cursor* wanted = Shapes.pArrow;
    if (Root.bCursorFromChild && Root.CursorCode == kCursorSizeWE)
        wanted = Shapes.pSizeWE;
    else if (Root.bCursorFromChild && Root.CursorCode == kCursorIBeam)
        wanted = Shapes.pIBeam;
    if (wanted && wanted != Shapes.pShown)
    {
        SDL_SetCursor(wanted);
        Shapes.pShown = wanted;
    }
}
