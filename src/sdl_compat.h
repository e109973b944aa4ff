// Whether SDL3 or SDL2 is underneath, for the spellings both share: code
// includes this header and uses the SDL3 spellings defined here for both.
// Where the two differ in more than a name (the player's audio stream) the
// code keeps its own GLWE_USE_SDL3 branches.
#pragma once

#if GLWE_USE_SDL3
#include <SDL3/SDL.h>
#else
#include <SDL.h>
#ifndef SDL_KMOD_SHIFT
#define SDL_KMOD_SHIFT KMOD_SHIFT
#endif
// SDL3 spells the letter keys in capitals; their codes are the same.
#ifndef SDLK_C
#define SDLK_C SDLK_c
#define SDLK_F SDLK_f
#endif
#endif
