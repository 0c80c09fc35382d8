// The guest screen: two 320x240 planes of one byte per pixel, graphics mode,
// colours and palette.
#pragma once

#include <cstdint>

inline constexpr int kPlaneStride = 320;
inline constexpr int kPlaneSize = 320 * 240;  // 76,800 bytes

// The screen settings a program keeps while it runs another: saved and
// restored as a whole.
struct ScreenSettings {
    int32_t ScreenWidth = 160, ScreenHeight = 80;
    uint16_t graph_mode = 8, bgcolor = 0, fgcolor = 255;
    uint8_t palette[768] = {};  // 256 entries stored blue, green, red
};

struct Screen : ScreenSettings {
    // Plane 0 (visible) then plane 1 (buffer).
    alignas(4) uint8_t ScreenBuffer[2 * kPlaneSize] = {};
    uint8_t GRAY = 0;
    uint8_t need_clean = 0;
};

// How one drawing call draws, decoded from the guest's type argument.
struct Pen {
    uint8_t lcmd = 1;      // draw command
    uint8_t no_buf = 0;    // non-zero: the visible plane 0, else the buffer plane 1
    uint8_t negative = 0;  // non-zero: bitmaps are mirrored left to right
};

// The screen size as drawing may use it: never more than a plane holds, so a
// size written anywhere cannot take drawing outside ScreenBuffer.
inline int screen_w(const Screen& s) { return s.ScreenWidth < 0 ? 0 : s.ScreenWidth > 320 ? 320 : s.ScreenWidth; }
inline int screen_h(const Screen& s) { return s.ScreenHeight < 0 ? 0 : s.ScreenHeight > 240 ? 240 : s.ScreenHeight; }

// Byte index of (xx, yy) in ScreenBuffer: plane 0 when no_buf is set, plane
// 1 otherwise. No bounds check; callers check coordinates first.
inline uint32_t ByteAddr(uint16_t xx, uint16_t yy, uint8_t no_buf) {
    return xx + yy * 320u + (no_buf ? 0u : uint32_t(kPlaneSize));
}

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
void Adjust_Window(Screen& s, int width, int height);
