// A 16-bit (RGB565) host drawing surface as plain memory, so frame conversion
// and overlays stay free of SDL: the front-end hands in an SDL surface's
// pixels, size and pitch; tests hand in a vector.
#pragma once

#include <cstdint>

struct Surface16 {
    uint8_t* pixels = nullptr;
    int w = 0, h = 0;
    int pitch = 0;  // bytes per row
};
