// Pixels, lines and shapes on the screen planes. All of them work on the
// drawing registers of Screen (xx, yy, x0, x1, Y0, Y1, lcmd, no_buf).
//
// Draw commands (lcmd): 0 stores the background (0 in mode 1), 1 the
// foreground (1 in mode 1), 2 inverts (XOR 1, XOR 15, NOT by mode), 3 and
// anything else leave the pixel alone.
#pragma once

#include <cstdint>

struct Machine;

// Applies lcmd to the pixel (xx, yy) when it lies on the screen.
void put_dot(Machine& m);
// The byte at (xx, yy) of the drawing plane, with no check against the
// screen size; 0 where that would lie outside ScreenBuffer.
uint8_t get_dot(Machine& m);
// put_dot at signed (x, y), dropped when off the screen.
void PutPixelx(Machine& m, int32_t x, int32_t y);
// Applies lcmd to x0..x1 (count modulo 65,536) of row Y0 as one run, not
// clipped to the screen (callers clip) but never past the end of the planes.
void hline(Machine& m);
// put_dot down column x0 from the smaller to the larger of Y0 and Y1.
void vline(Machine& m);
// Orders the corners and clamps them to the screen; 0 when nothing is left.
int block_check(Machine& m);
// Clips the run x0..x1 of row Y0 to the screen; 0 when nothing is left.
int hline_check(Machine& m);
// Filled rectangle x0,Y0 - x1,Y1.
void block_draw(Machine& m);
// Outlined rectangle; its corners are drawn twice.
void square_draw(Machine& m);
// Pops type, y1, x1, y0, x0 into the registers; no_buf = type & 0x40,
// lcmd = type & 3.
void block_comm(Machine& m);
// Four-way symmetric plot of a circle or ellipse point; with fill, records
// the half-width dx for rows cy - dy and cy + dy in circle_buf instead.
void put_dot4(Machine& m, int32_t cx, int32_t cy, int32_t dx, int32_t dy, int fill);
// Outlined or filled ellipse with radii rx, ry around (cx, cy).
void Ellipsex(Machine& m, int32_t cx, int32_t cy, int32_t rx, int32_t ry, int fill);
