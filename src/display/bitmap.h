// Bitmap transfer between packed guest bitmaps and the screen planes.
//
// A bitmap is stored row after row in the packed format of the graphics
// mode: 1 bit per pixel in mode 1 (bit 7 leftmost, (w + 7) / 8 bytes a row),
// 4 bits in mode 4 (high nibble leftmost, (w + 1) / 2 bytes a row) and one
// byte in mode 8 (w bytes a row).
#pragma once

#include <cstdint>

#include "display/screen.h"

struct Machine;

// Where write_comm reads a bitmap: a host buffer (a converted glyph) when
// `host` is set, otherwise guest memory from `guest` on, with every read
// reduced into the machine's memory block. Host reads past `size` give 0.
struct BitmapSource {
    const uint8_t* host = nullptr;
    uint32_t size = 0;
    uint32_t guest = 0;
};

inline BitmapSource guest_bitmap(uint32_t addr) { return BitmapSource{nullptr, 0, addr}; }
inline BitmapSource host_bitmap(const uint8_t* p, uint32_t n) { return BitmapSource{p, n, 0}; }

// Draws a w x h bitmap at (x, y) with the pen's draw mode, mirror flag and
// plane, clipped to the screen. A coordinate at or
// beyond the screen edge is read as a negative 16-bit value.
void write_comm(Machine& m, const Pen& pen, uint16_t x, uint16_t y, uint16_t w, uint16_t h, const BitmapSource& data);

