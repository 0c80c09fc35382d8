#include "display/screen.h"

#include <algorithm>
#include <cstring>

#include "lib/syscalls.h"
#include "vm/machine.h"

namespace {

// Stores entry i from red, green, blue (kept blue-first in the table).
void set_entry(Screen& s, int i, uint8_t r, uint8_t g, uint8_t b) {
    s.palette[3 * i] = b;
    s.palette[3 * i + 1] = g;
    s.palette[3 * i + 2] = r;
}

constexpr uint8_t lv5[5] = {0, 64, 128, 192, 255};
constexpr uint8_t lv9[9] = {0, 32, 64, 96, 128, 160, 192, 224, 255};

}  // namespace


void Palette2(Screen& s) {
    if (s.GRAY)
        set_entry(s, 0, 255, 255, 255);
    else
        set_entry(s, 0, 173, 193, 173);
    set_entry(s, 1, 0, 0, 0);
    set_entry(s, 2, 173 / 2, 193 / 2, 173 / 2);  // grid line colour: half the green-grey paper
    set_entry(s, 254, 0, 0, 0);
    set_entry(s, 255, 0, 0, 0);
}

void Palette16(Screen& s) {
    for (int i = 0; i < 16; ++i) {
        const auto g = static_cast<uint8_t>((15 - i) * 17);
        set_entry(s, i, g, g, g);
    }
    set_entry(s, 254, 0, 0, 0);
    set_entry(s, 255, 0, 0, 0);
}

void Palette256(Screen& s) {
    set_entry(s, 0, 0, 0, 0);
    for (int i = 0; i < 225; ++i) set_entry(s, 16 + i, lv5[i % 5], lv9[i / 25], lv5[(i / 5) % 5]);
    set_entry(s, 254, 0, 0, 0);
    set_entry(s, 255, 255, 255, 255);
}

void SetPalette(Screen& s) {
    set_entry(s, 255, 0, 0, 0);
    if (s.graph_mode == 4)
        Palette16(s);
    else if (s.graph_mode == 8)
        Palette256(s);
    else
        Palette2(s);
}

void tvx_setpalette(Machine& m, uint8_t from, int32_t num, uint32_t addr) {
    num = std::min(num, 256 - from);
    for (int32_t k = 0; k < num; ++k) {
        const uint32_t rec = addr + 4 * static_cast<uint32_t>(k);
        set_entry(m, from + k, lRamRead(m, rec), lRamRead(m, rec + 1), lRamRead(m, rec + 2));
    }
}

void Color256Init(Screen& s) {
    s.graph_mode = 8;
    s.bgcolor = 0;
    s.fgcolor = 255;
    SetPalette(s);
}

void ClearNdsScreen(Screen& s) {
    std::memset(s.ScreenBuffer, s.graph_mode != 8 ? 255 : 0, sizeof s.ScreenBuffer);
    s.need_clean = 1;
}

void Adjust_Window(Screen& s, int width, int height) {
    s.ScreenWidth = width;
    s.ScreenHeight = height;
}

// ---- System calls ----

namespace {

// Sets the first ScreenWidth bytes of each screen row of a plane to v.
void fill_screen(Machine& m, uint8_t* plane, uint8_t v) {
    for (int y = 0; y < screen_h(m); ++y) std::memset(plane + y * kPlaneStride, v, static_cast<size_t>(screen_w(m)));
}

uint16_t colour_mask(const Screen& s) { return s.graph_mode == 8 ? 255 : 15; }

}  // namespace

void c_setgraphmode(Machine& m) {
    const uint16_t old = m.graph_mode;
    const uint8_t mode = static_cast<uint8_t>(pop_cell(m));
    if (mode != 1 && mode != 4 && mode != 8) {
        push_cell(m, mode == 0 ? old : 0);
        return;
    }
    if (mode != old) {
        // Show what is pending with the old palette before it changes.
        if (m.need_refresh) HardwareRefresh(m);
        if (mode == 4) {
            m.bgcolor = 0;
            m.fgcolor = 15;
        } else if (mode == 8) {
            m.bgcolor = 0;
            m.fgcolor = 255;
        }  // mode 1 keeps the colours: mono drawing does not use them
        fill_screen(m, m.ScreenBuffer, mode == 1 ? 0 : static_cast<uint8_t>(m.bgcolor));
        m.graph_mode = mode;
        SetPalette(m);
    }
    push_cell(m, old);
}

void c_setbgcolor(Machine& m) { m.bgcolor = static_cast<uint16_t>(pop_cell(m) & colour_mask(m)); }

void c_setfgcolor(Machine& m) { m.fgcolor = static_cast<uint16_t>(pop_cell(m) & colour_mask(m)); }

void c_setpalette(Machine& m) {
    const uint32_t addr = pop_cell(m) & m.addr_mask;
    int32_t count = static_cast<int32_t>(pop_cell(m) & 0x7FFF);
    const uint8_t from = static_cast<uint8_t>(pop_cell(m));
    if (from + count > 256) count = 256 - from;
    tvx_setpalette(m, from, count, addr);
    push_cell(m, static_cast<uint32_t>(count));
}

// Shows the buffer plane with every pixel lighter than the floor raised to
// it: level 15 shows it unchanged, level 0 all black (in palette indices in
// mode 8, whatever colours they stand for).
void c_fade(Machine& m) {
    const uint32_t level = pop_cell(m);
    if (m.graph_mode == 1) return;
    const uint8_t floor = static_cast<uint8_t>(~level & 15);
    const uint8_t* src = m.ScreenBuffer + kPlaneSize;
    uint8_t* dst = m.ScreenBuffer;
    const int n = screen_h(m) * kPlaneStride;
    for (int i = 0; i < n; ++i) dst[i] = std::max(src[i], floor);
    ToviNeedRefresh(m);
}

void c_clearscreen(Machine& m) {
    fill_screen(m, m.ScreenBuffer + kPlaneSize, m.graph_mode == 1 ? 0 : static_cast<uint8_t>(m.bgcolor));
}

void scroll_to_lcd(Machine& m) {
    std::memcpy(m.ScreenBuffer, m.ScreenBuffer + kPlaneSize, kPlaneSize);
    ToviNeedRefresh(m);
}
