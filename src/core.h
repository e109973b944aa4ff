// Core: the shell's application object, reached through the global p.
#pragma once

#include <memory>

#include "coresdl.h"
#include "mouse.h"
#include "rend.h"
#include "tarvik.h"

class Core
{
public:
    std::unique_ptr<CoreSDL> pCoreSDL;
    std::unique_ptr<Rend> pRend;
    std::unique_ptr<Mouse> pMouse;
    std::unique_ptr<Tarvik> pTarvik;
};

// Set by the shell for its working life; child windows read it on their thread.
extern Core* p;
