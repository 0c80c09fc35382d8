// Presentation state shared between the VM thread and the front-end, and the
// conversion of the visible guest plane into a 16-bit (RGB565) host surface:
// colour table, 1:1 copy and the enlarging scalers.
#pragma once

#include <atomic>
#include <cstdint>

#include "display/surface.h"

struct Machine;
struct Screen;

struct Presentation {
    std::atomic<uint8_t> need_refresh{0};
    std::atomic<uint8_t> can_refresh{1};
    int32_t refresh_mode = 0;
    // Dirty marks since the front-end's frame counter last read them.
    std::atomic<uint32_t> fps_need_frames_curr{0};

    // Frame conversion settings.
    uint8_t use_grid = 1;  // grid look for enlarged monochrome screens
    uint8_t ZOOM = 1;      // kept from the configuration; has no effect
    int32_t bg_x = 0, bg_y = 0, bg_scale = 0;  // fixed top-left placement when bg_scale != 0
};

inline void SetZoom(Presentation& p, uint8_t v) { p.ZOOM = v; }

// Rebuilds the RGB565 table pal from palette when palette_change is set
// (and clears the flag); otherwise does nothing. Call before DmaRefresh.
void SetSDLPalette(Screen& s);

// Converts plane 0 into the surface. A 320x240 surface gets the picture 1:1,
// centred; any other size gets it enlarged by the largest whole factor that
// fits (factor 2 and 4 by the fixed scalers, 3 and above 4 by the general
// one, a monochrome screen with use_grid and factor >= 3 with the grid look).
// When need_clean is set the whole surface is cleared first, once.
// Nothing is written outside the surface: a null surface, one without pixel
// memory, with a pitch below 2*w or not 2-byte aligned is left alone, and a
// surface smaller than the guest screen gets the middle of the picture.
void DmaRefresh(Machine& m, Surface16* surface);

// The scalers below centre the picture (or place it at bg_x, bg_y when
// bg_scale is set). They draw nothing when the enlarged picture does not
// fit the surface or the factor is out of range; DmaRefresh never asks for
// such a picture.

// Enlarges by multiple (>= 1) in both directions.
void ScaleX(const Machine& m, Surface16& s, int multiple);
// As ScaleX (multiple >= 2), the right column and bottom row of each
// enlarged pixel drawn in the grid colour of calc_grid. Any non-zero pixel
// value takes the ink grid colour.
void ScaleX_grid(const Machine& m, Surface16& s, int multiple);
// grid[0] = paper (pal[0]); grid[1] = a blend of min(multiple, 6) eighths
// paper and the rest ink (pal[1]).
void calc_grid(const Screen& s, uint16_t grid[2], int multiple);
// Enlarges by 4; in mode 1 with use_grid, each pixel's right column and
// bottom row take palette entry 2 on ink and paper on paper.
void Scale4X(const Machine& m, Surface16& s);
// Enlarges by 2.
void Scale2X(const Machine& m, Surface16& s);
