// A presented frame: a copy of the visible guest screen and its colours,
// taken when the guest presents, and the conversion of such a copy into a
// 16-bit (RGB565) host surface (the 1:1 copy and the enlarging scalers) or
// into 32-bit pixels. A frame is never changed after it is made, so a host
// may keep it while the machine goes on drawing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "display/surface.h"

inline constexpr int kFrameStride = 320;

struct Frame {
    uint32_t number = 0;        // presents since the load, this one included
    int width = 0, height = 0;  // guest screen size, at most 320 x 240
    uint16_t graph_mode = 8;
    bool grid = false;          // grid look for enlarged monochrome screens
    // The screen size or mode changed before this frame: a host clears its
    // whole surface before drawing it.
    bool clean = false;
    uint32_t dirty_marks = 0;  // drawing calls that marked the screen, since the load
    uint8_t pixels[kFrameStride * 240] = {};  // palette indices, row stride 320
    uint8_t palette[768] = {};               // 256 entries of blue, green, red
    uint16_t pal[256] = {};                  // the same as RGB565
};

struct Screen;

// Copies the visible plane, the size, the mode and the palette of s.
void snapshot_frame(const Screen& s, Frame* f);

// 0x00RRGGBB per pixel, width x height, rows top to bottom.
void frame_to_xrgb8888(const Frame& f, uint32_t* out);
// n RGB565 pixels as 0x00RRGGBB, each field widened by repeating its top bits.
void rgb565_to_xrgb8888(const uint16_t* in, size_t n, uint32_t* out);

// Converts the frame into the surface. A 320x240 surface gets the picture
// 1:1, centred; any other size gets it enlarged by the largest whole factor
// that fits (factor 2 and 4 by the fixed scalers, 3 and above 4 by the
// general one, a monochrome screen with the grid and factor >= 3 with the
// grid look). With clean set the whole surface is cleared first. Nothing is
// written outside the surface: a null surface, one without pixel memory, with
// a pitch below 2*w or not 2-byte aligned is left alone, and a surface
// smaller than the guest screen gets the middle of the picture.
void DmaRefresh(const Frame& f, Surface16* surface);

// The scalers below centre the picture. They draw nothing when the enlarged
// picture does not fit the surface or the factor is out of range; DmaRefresh
// never asks for such a picture.

// Enlarges by multiple (>= 1) in both directions.
void ScaleX(const Frame& f, Surface16& s, int multiple);
// As ScaleX (multiple >= 2), the right column and bottom row of each
// enlarged pixel drawn in the grid colour of calc_grid. Any non-zero pixel
// value takes the ink grid colour.
void ScaleX_grid(const Frame& f, Surface16& s, int multiple);
// grid[0] = paper (pal[0]); grid[1] = a blend of min(multiple, 6) eighths
// paper and the rest ink (pal[1]).
void calc_grid(const Frame& f, uint16_t grid[2], int multiple);
// Enlarges by 4; in mode 1 with the grid, each pixel's right column and
// bottom row take palette entry 2 on ink and paper on paper.
void Scale4X(const Frame& f, Surface16& s);
// Enlarges by 2.
void Scale2X(const Frame& f, Surface16& s);
