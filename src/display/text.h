// Text drawing with the built-in fonts: glyphs converted to the bitmap
// format of the graphics mode and drawn through write_comm with the pen's
// draw mode, mirror flag and plane.
#pragma once

#include <cstdint>

#include "display/screen.h"

struct Machine;

// Glyph index of a GB2312 character in the 12x12 and 16x16 fonts, or -1
// when the bytes lie outside the table (lead A1-F7, trail A1-FE). Rows A1-A9
// are font rows 0-8, B0-F7 rows 9-80; rows AA-AF fall on B0-B5.
int32_t gb_glyph_index(uint8_t hi, uint8_t lo);

// Converts a glyph of w x h pixels whose rows are stored `row_bytes` bytes
// each, bit 7 leftmost (nullptr: a blank glyph), into the bitmap format of
// the graphics mode: the bytes as they are in mode 1, fgcolor and bgcolor
// nibbles in mode 4, fgcolor and bgcolor bytes in mode 8. Returns the bytes
// written to out, which must hold w * h bytes.
uint32_t convert_glyph(const Machine& m, const uint8_t* rows, int w, int h, int row_bytes, uint8_t* out);

void font_6x12(Machine& m, const Pen& pen, uint16_t x, uint16_t y, uint8_t ch);
void font_8x16(Machine& m, const Pen& pen, uint16_t x, uint16_t y, uint8_t ch);
void font_12x12(Machine& m, const Pen& pen, uint16_t x, uint16_t y, uint8_t hi, uint8_t lo);
void font_16x16(Machine& m, const Pen& pen, uint16_t x, uint16_t y, uint8_t hi, uint8_t lo);
