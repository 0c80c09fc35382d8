// Host keys and game-controller buttons as the core's button bits.
#pragma once

#include <SDL.h>

#include <cstdint>

#include "core/core.h"

// The button a host key stands for, or 0. Escape, F1, F5 and F9 are handled
// apart.
uint16_t host_key_button(SDL_Keycode key);

// Xbox-type controllers have their face buttons swapped, so that a button
// stays where it is on the device rather than under the same letter.
inline bool is_xbox_type(int controller_type) { return controller_type == 1 || controller_type == 2; }

// The button a controller button presses, or 0.
uint16_t pad_button(int button, int controller_type);
// The bits a released controller button sets: its button, and for the face
// buttons one more (so releasing A also releases Y).
uint16_t pad_release_bits(int button, int controller_type);
