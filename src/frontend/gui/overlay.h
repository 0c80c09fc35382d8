// Diagnostic overlays painted into a 16-bit (RGB565) frame surface after the
// guest screen has been converted and before it is presented: the frame
// counter, the key-map panel and the unit-test panel, in a built-in 8x8 font.
// Every write is clipped to the surface, so any surface size is safe.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "display/surface.h"

// Overlay colours (RGB565).
inline constexpr uint16_t kMesWhite = 0xFFFF, kMesYellow = 0xFFE0, kMesGreen = 0x07E0, kMesLightBlue = 0x7FFF,
                          kMesGrey = 0x7BEF, kMesBlack = 0x0000;
// bg value that leaves the pixels under clear glyph bits untouched.
inline constexpr int kMesTransparent = -1;

// The 45 glyphs, one byte per row from the top, bit 7 leftmost: "0"-"9", ":",
// then full stop, space, minus, slash and exclamation mark in the places of
// ";" "<" "=" ">" "?", then "@", "A"-"Z", plus and underscore.
inline constexpr int kMesGlyphs = 45;
extern const std::array<std::array<uint8_t, 8>, kMesGlyphs> mesCHAR;

// Glyph index of a character (lower case as upper case), or -1 for a
// character the font lacks.
int mes_glyph_index(char ch);

// One glyph with its top-left corner at (x, y): set bits in fg, clear bits in
// bg (0-0xFFFF) or left alone when bg is kMesTransparent. Characters the font
// lacks draw nothing.
void mesDrawChar(Surface16& s, int x, int y, char ch, uint16_t fg, int bg);
// Characters left to right, 8 pixels apart, no wrapping.
void mesDrawString(Surface16& s, int x, int y, std::string_view text, uint16_t fg, int bg);

// Halves the brightness of every pixel of the rectangle: each 5-6-5 field
// becomes (r+2)>>1, (g+4)>>1, (b+2)>>1.
void mes_darken(Surface16& s, int x, int y, int w, int h);

// "fps/dirty" (each at least two digits) at the top right in green on black;
// 40 rows lower for a 160x80 guest screen, 40 rows lower and 40 pixels to
// the left for a 240x160 one.
void draw_fps(Surface16& s, int fps_frames, int fps_need_frames, int screen_width, int screen_height);

// The part of a surface the window shows.
struct OverlayArea {
    int x = 0, y = 0, w = 0, h = 0;
};

// The key-map panel, 232x148, centred in area: the buttons and the host's
// keys and chords as they act; the footer names the program (program_name
// followed by " v0.1", cut to fit).
void draw_keymap_sdl(Surface16& s, const OverlayArea& area, std::string_view program_name);

// The unit-test panel, 280x80 (narrower when area is), centred in area: the
// test function, the time since the test started as hh:mm:ss and the
// directory, each name cut to what fits.
void draw_unit_test_info(Surface16& s, const OverlayArea& area, uint32_t elapsed_ms, std::string_view func,
                         std::string_view dir);
