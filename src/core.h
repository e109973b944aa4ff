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

    // Puts every part in place with its defaults, as a host does before its
    // first frame.
    void CreateParts()
    {
        pCoreSDL = std::make_unique<CoreSDL>();
        pRend = std::make_unique<Rend>();
        pMouse = std::make_unique<Mouse>();
        pTarvik = std::make_unique<Tarvik>();
    }
};

// Set by the shell for its working life; child windows read it on their thread.
extern Core* p;
