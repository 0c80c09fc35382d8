#include "display/screen.h"

#include <cstring>

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

void calcPalette(Screen& s) { s.palette_change = 1; }

void Palette2(Screen& s) {
    if (s.GRAY)
        set_entry(s, 0, 255, 255, 255);
    else
        set_entry(s, 0, 173, 193, 173);
    set_entry(s, 1, 0, 0, 0);
    set_entry(s, 2, 173 / 2, 193 / 2, 173 / 2);  // grid line colour: half the green-grey paper
    set_entry(s, 254, 0, 0, 0);
    set_entry(s, 255, 0, 0, 0);
    calcPalette(s);
}

void Palette16(Screen& s) {
    for (int i = 0; i < 16; ++i) {
        const auto g = static_cast<uint8_t>((15 - i) * 17);
        set_entry(s, i, g, g, g);
    }
    set_entry(s, 254, 0, 0, 0);
    set_entry(s, 255, 0, 0, 0);
    calcPalette(s);
}

void Palette256(Screen& s) {
    set_entry(s, 0, 0, 0, 0);
    for (int i = 0; i < 225; ++i) set_entry(s, 16 + i, lv5[i % 5], lv9[i / 25], lv5[(i / 5) % 5]);
    set_entry(s, 254, 0, 0, 0);
    set_entry(s, 255, 255, 255, 255);
    calcPalette(s);
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

void SetWindow(Screen&) {}

void Adjust_Window(Screen& s, int width, int height, bool force) {
    if (width == s.ScreenWidth && height == s.ScreenHeight && !force) return;
    s.ScreenWidth = width;
    s.ScreenHeight = height;
    SetWindow(s);
}
