// The one place that knows whether SDL3 or SDL2 is underneath. Everything else
// includes this header and uses the SDL3 spellings defined here for both.
#pragma once

#if GLWE_USE_SDL3
#include <SDL3/SDL.h>
#else
#include <SDL.h>
#ifndef SDL_KMOD_SHIFT
#define SDL_KMOD_SHIFT KMOD_SHIFT
#endif
#endif
