// The guest screen: two 320x240 planes of one byte per pixel, graphics mode,
// colours and palette.
#pragma once

#include <atomic>
#include <cstdint>

inline constexpr int kPlaneStride = 320;
inline constexpr int kPlaneSize = 320 * 240;  // 76,800 bytes

struct Screen {
    // Plane 0 (visible) then plane 1 (buffer).
    alignas(4) uint8_t ScreenBuffer[2 * kPlaneSize] = {};
    int32_t ScreenWidth = 160, ScreenHeight = 80;
    uint16_t graph_mode = 8, bgcolor = 0, fgcolor = 255;
    uint8_t palette[768] = {};  // 256 entries stored blue, green, red
    uint8_t GRAY = 0;
    uint8_t need_clean = 0;

    // Drawing registers shared by all drawing code.
    uint16_t xx = 0, yy = 0;
    uint32_t m1l = 0;
    uint8_t lcmd = 0, no_buf = 0, negative = 0;
    uint16_t x0 = 0, x1 = 0, Y0 = 0, Y1 = 0;  // line and rectangle corners

    // Half-width of a filled circle or ellipse on each row, -1 = row untouched.
    int32_t circle_buf[320] = {};
};

// The screen size as drawing may use it: never more than a plane holds, so a
// size written anywhere cannot take drawing outside ScreenBuffer.
inline int screen_w(const Screen& s) { return s.ScreenWidth < 0 ? 0 : s.ScreenWidth > 320 ? 320 : s.ScreenWidth; }
inline int screen_h(const Screen& s) { return s.ScreenHeight < 0 ? 0 : s.ScreenHeight > 240 ? 240 : s.ScreenHeight; }

// m1l = byte index of (xx, yy) in the drawing plane: plane 0 when no_buf is
// set, plane 1 otherwise. No bounds check; callers check coordinates first.
inline void ByteAddr(Screen& s) { s.m1l = s.xx + s.yy * 320u + (s.no_buf ? 0u : uint32_t(kPlaneSize)); }

struct Machine;

void Palette2(Screen& s);
void Palette16(Screen& s);
void Palette256(Screen& s);
void SetPalette(Screen& s);
// Sets entries from .. from + num - 1 from the guest's 4-byte records at addr
// (red, green, blue, unused); entries past 255 are left out.
void tvx_setpalette(Machine& m, uint8_t from, int32_t num, uint32_t addr);
void Color256Init(Screen& s);
void ClearNdsScreen(Screen& s);
// Hook for a change of the guest screen size; nothing to do in the core.
void SetWindow(Screen& s);
void Adjust_Window(Screen& s, int width, int height, bool force);
