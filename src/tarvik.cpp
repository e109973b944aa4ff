#include "tarvik.h"

#include "glchildwindow.h"

void Tarvik::ClearWindowFocus()
{
    for (GLChildWindow* window : Windows)
        if (window)
            window->bFocused = false;
}

void Tarvik::SetCursor(int Code, bool bFromChild)
{
    CursorCode = Code;
    bCursorFromChild = bFromChild;
}
