// Pixels, lines and shapes on the screen planes, drawn with a Pen (draw
// command and plane) at coordinates passed in.
//
// Draw commands (lcmd): 0 stores the background (0 in mode 1), 1 the
// foreground (1 in mode 1), 2 inverts (XOR 1, XOR 15, NOT by mode), 3 and
// anything else leave the pixel alone.
#pragma once

#include <cstdint>

#include "display/screen.h"

struct Machine;

// Corners of a line or rectangle, as the guest passes them.
struct Corners {
    uint16_t x0 = 0, Y0 = 0, x1 = 0, Y1 = 0;
};

// Applies lcmd to the pixel (xx, yy) when it lies on the screen.
void put_dot(Machine& m, const Pen& pen, uint16_t xx, uint16_t yy);
// The byte at (xx, yy) of the plane no_buf selects, with no check against
// the screen size; 0 where that would lie outside ScreenBuffer.
uint8_t get_dot(const Machine& m, uint8_t no_buf, uint16_t xx, uint16_t yy);
// put_dot at signed (x, y), dropped when off the screen.
void PutPixelx(Machine& m, const Pen& pen, int32_t x, int32_t y);
// Applies lcmd to x0..x1 (count modulo 65,536) of row y as one run, not
// clipped to the screen (callers clip) but never past the end of the planes.
void hline(Machine& m, const Pen& pen, uint16_t x0, uint16_t x1, uint16_t y);
// put_dot down column x from the smaller to the larger of y0 and y1.
void vline(Machine& m, const Pen& pen, uint16_t x, uint16_t y0, uint16_t y1);
// Filled rectangle; corners in any order, clipped to the screen.
void block_draw(Machine& m, const Pen& pen, Corners c);
// Outlined rectangle; its corners are drawn twice.
void square_draw(Machine& m, const Pen& pen, Corners c);
// Outlined or filled ellipse with radii rx, ry around (cx, cy).
void Ellipsex(Machine& m, const Pen& pen, int32_t cx, int32_t cy, int32_t rx, int32_t ry, int fill);
