// A small software drawing library for 32-bit pixel arrays on the host side
// (the touch-button overlay draws with it). Colours are 32-bit words stored
// into the pixels as given (alpha in the top byte). Everything is clipped to
// the context's clip rectangle and to the pixel array itself.
#pragma once

#include <cstdint>

enum : int32_t {
    DRAW_COPY = 0,
    DRAW_BROKEN = 1,  // checkerboard: only where x + y is even
    DRAW_XOR = 2,     // inverts the low 24 bits
    DRAW_AND = 3,
    DRAW_OR = 4,
    DRAW_SPRITE = 5,  // block transfers skip the source's key colour
    DRAW_NOT = 8,     // flag for block transfers: invert the source first
};

enum : int32_t {
    FONT_MEDIUM = 0,
    FONT_SMALL = 1,  // 12-pixel fonts; the others use the 16-pixel ones
    FONT_LARGE = 2,
    FONT_BOLD = 4,
    FONT_ITALIC = 8,
    FONT_UNDERLINE = 16,
    FONT_BORDER = 32,
};

// A drawing context over a row-major pixel array of width x height.
struct sGraph {
    uint32_t* mem = nullptr;
    int32_t width = 0, height = 0;
    int32_t depth = 32;  // bits per pixel, informational
    int32_t font = FONT_MEDIUM;
    uint32_t fgcolor = 0xFFFFFFFF, bgcolor = 0, keycolor = 0, bordercolor = 0;
    int32_t org_x = 0, org_y = 0;  // added to the coordinates of the drawing calls
    struct {
        int16_t x0 = 0, y0 = 0, x1 = -1, y1 = -1;  // inclusive, absolute pixels
    } clip;
    int32_t draw_mode = DRAW_COPY;
};

// Sets up a context over mem (sides above 32767 are cut): origin 0,0, clip
// the whole array, copy mode, medium font.
void vw_Init(sGraph& g, uint32_t* mem, int width, int height);

uint32_t vw_SetFgColor(sGraph& g, uint32_t c);  // these three return the previous colour
uint32_t vw_SetBgColor(sGraph& g, uint32_t c);
uint32_t vw_SetKeyColor(sGraph& g, uint32_t c);
void vw_SetDrawMode(sGraph& g, int32_t mode);
void vw_SetFont(sGraph& g, int32_t font);
void vw_SetOrg(sGraph& g, int x, int y);
// Orders the corners, moves the origin to the upper-left one and clips to the
// rectangle cut to the array; a rectangle wholly outside gives (0,0,0,0).
void vw_SetArea(sGraph& g, int x0, int y0, int x1, int y1);

// Drawing calls take coordinates relative to the origin; corners are inclusive.
void vw_DrawPixel(sGraph& g, int x, int y);
uint32_t vw_GetPixel(const sGraph& g, int x, int y);  // 0 outside the clip
void vw_DrawLine(sGraph& g, int x0, int y0, int x1, int y1);
void vw_DrawRect(sGraph& g, int x0, int y0, int x1, int y1);
void vw_FillRect(sGraph& g, int x0, int y0, int x1, int y1);
void vw_DrawCircle(sGraph& g, int x, int y, int r);
void vw_FillCircle(sGraph& g, int x, int y, int r);
void vw_DrawEllipse(sGraph& g, int x, int y, int rx, int ry);
void vw_FillEllipse(sGraph& g, int x, int y, int rx, int ry);
void vw_ClearRect(sGraph& g, int x0, int y0, int x1, int y1);  // filled with bgcolor
void vw_ClearArea(sGraph& g);                                   // the whole clip in bgcolor

// Block transfer of w x h pixels from src at (sx, sy) to dst at (dx, dy) with
// a draw mode: copy, broken (checkerboard of the destination), xor, and, or,
// sprite (skips src.keycolor), each optionally with DRAW_NOT. vw_bitblt takes
// absolute pixels, vw_BitBlt coordinates relative to each context's origin.
// The source is clipped to its array, the destination to its clip.
void vw_bitblt(sGraph& dst, int dx, int dy, int w, int h, const sGraph& src, int sx, int sy, int32_t mode);
void vw_BitBlt(sGraph& dst, int dx, int dy, int w, int h, const sGraph& src, int sx, int sy, int32_t mode);

// Glyphs of the built-in font table: height 12 for FONT_SMALL, else 16.
// code below 0x80 is ASCII, otherwise (lead << 8 | trail) GB2312. Fills
// rows[0..height-1] with bit 15 as the leftmost pixel and returns the width
// (6/8 for ASCII, 12/16 for GB2312); codes the table lacks give a blank glyph.
int GetFontHeight_os(int32_t font);
int GetFontData_os(uint32_t code, int32_t font, uint16_t rows[16]);

// One character at (x, y) in fgcolor on bgcolor (transferred with the
// context's draw mode; DRAW_SPRITE leaves bgcolor pixels alone), with the
// style flags of g.font. Returns the advance in pixels.
int DispFont(sGraph& g, int x, int y, uint32_t code);
// A GB2312 string: a byte below 0x80 is one character, two bytes in
// 0xA1-0xFE one double-byte character, any other high byte a "?". length < 0
// means up to the terminating zero. Returns the total advance.
int vw_TextOut(sGraph& g, int x, int y, const char* text, int length);
