// CoreSDL: the drawing surface of the shell.
#pragma once

class CoreSDL
{
public:
    int Width = 1;   // drawing surface width, pixels
    int Height = 1;  // drawing surface height, pixels
};
