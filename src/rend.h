// Rend: the shell's renderer settings that child windows read.
#pragma once

#include "ttf.h"

class Rend
{
public:
    TTF* pTTF = nullptr;     // text renderer; may be null (no font)
    int FontSmallerPx = 13;  // default text size, pixels
};
