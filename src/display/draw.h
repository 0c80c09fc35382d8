// Pixels, lines and shapes on the screen planes. All of them work on the
// drawing registers of Screen (xx, yy, x0, x1, Y0, Y1, lcmd, no_buf).
#pragma once

#include <cstdint>

struct Machine;

// Applies lcmd to the pixel (xx, yy) when it lies on the screen.
void put_dot(Machine& m);
// The byte at (xx, yy) of the drawing plane; no bounds check.
uint8_t get_dot(Machine& m);
void PutPixelx(Machine& m, int32_t x, int32_t y);
void hline(Machine& m);
void vline(Machine& m);
int block_check(Machine& m);
int hline_check(Machine& m);
void block_draw(Machine& m);
void square_draw(Machine& m);
