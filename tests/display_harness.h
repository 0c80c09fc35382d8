// Helpers for the display tests: a machine in a chosen graphics mode and
// screen size, system calls driven with pushed arguments, plane access.
#pragma once

#include <set>
#include <utility>

#include "display/font.h"
#include "lib/syscalls.h"
#include "vm_harness.h"

// A font of the embedded table: where its glyphs start, their size.
struct Font {
    uint32_t base;
    int w, h;
};
constexpr Font kSmall{kFontAscii12, 6, 12}, kLarge{kFontAscii16, 8, 16};
constexpr Font kGb12{kFontGb12, 12, 12}, kGb16{kFontGb16, 16, 16};

// Header flag byte for graphics mode 1, 4 or 8.
inline uint8_t mode_flags(int mode) { return mode == 4 ? 0x40 : mode == 8 ? 0x60 : 0x00; }

using Pts = std::set<std::pair<int, int>>;

// A machine reset for `mode` with a screen of width16 x height16 units of
// 16 pixels (0 x 0 gives 160 x 80), both planes cleared to 0.
struct ScreenVm : CallVm {
    explicit ScreenVm(int mode, uint8_t width16 = 0, uint8_t height16 = 0) : CallVm(mode_flags(mode), width16, height16) {
        clear(0);
        m->need_refresh = 0;
    }
    void clear(uint8_t v) { std::memset(m->ScreenBuffer, v, sizeof m->ScreenBuffer); }
    uint8_t& vis(int x, int y) { return m->ScreenBuffer[y * 320 + x]; }
    uint8_t& buf(int x, int y) { return m->ScreenBuffer[kPlaneSize + y * 320 + x]; }
    uint8_t& px(int plane, int x, int y) { return plane ? buf(x, y) : vis(x, y); }
    void poke(uint32_t addr, std::initializer_list<uint8_t> bytes) {
        for (uint8_t b : bytes) lRamWrite(*m, addr++, b);
    }
    uint8_t peek(uint32_t addr) { return lRamRead(*m, addr); }
    // Pixels x0 .. x0+n-1 of a visible-plane row as a string of hex digits.
    std::string vis_row(int y, int x0, int n) {
        static const char hex[] = "0123456789abcdef";
        std::string s;
        for (int i = 0; i < n; ++i) s += hex[vis(x0 + i, y) & 15];
        return s;
    }
    // Pixels of a whole plane (0 visible, 1 buffer) whose value is not v.
    Pts differ(int plane, uint8_t v) {
        Pts p;
        for (int y = 0; y < 240; ++y)
            for (int x = 0; x < 320; ++x)
                if (px(plane, x, y) != v) p.insert({x, y});
        return p;
    }
    // Whether a drawing call asked for a frame since the last look.
    bool refreshed() { return std::exchange(m->need_refresh, 0) != 0; }
};
