#include "frontend/gui/touch.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "vm/machine.h"

namespace {

constexpr uint32_t kRingColour = 0xFFC0C0C0;   // opaque light grey
constexpr uint32_t kInsideColour = 0x40000000;  // black, mostly transparent
constexpr int kMaxSide = 8192;

}  // namespace

bool gui_init(TouchButtons& t, int w, int h) {
    if (!t.pixels.empty()) return true;
    for (auto& f : t.fingers) f = {};
    if (w <= 0 || h <= 0 || w > kMaxSide || h > kMaxSide) {
        std::fprintf(stderr, "gui_init: Failed to create surface: %s\n", "invalid size");
        return false;
    }
    t.pixels.assign(static_cast<size_t>(w) * static_cast<size_t>(h), 0);
    t.width = w;
    t.height = h;
    vw_Init(t.ui, t.pixels.data(), w, h);
    vw_SetBgColor(t.ui, 0);
    vw_SetFgColor(t.ui, 0x80FFFFFF);
    vw_ClearArea(t.ui);
    init_buttons(t);
    draw_buttons(t);
    return true;
}

void init_buttons(TouchButtons& t) {
    const int W = t.width, H = t.height;
    const int u = H / 18;
    t.u = u;
    t.line_width = std::max(u / 16, 2);
    t.circle_buttons[0] = {W - 2 * u, H / 2, u};          // A
    t.circle_buttons[1] = {W - 4 * u, H / 2 + 2 * u, u};  // B
    t.circle_buttons[2] = {W - 4 * u, H / 2 - 2 * u, u};  // X
    t.circle_buttons[3] = {W - 6 * u, H / 2, u};          // Y
    auto square = [u](int x1, int y1) { return TouchButtons::Rect{x1, y1, x1 + 2 * u, y1 + 2 * u}; };
    t.rect_buttons[0] = square(3 * u, H / 2 - 3 * u);  // UP
    t.rect_buttons[1] = square(3 * u, H / 2 + u);      // DOWN
    t.rect_buttons[2] = square(u, H / 2 - u);          // LEFT
    t.rect_buttons[3] = square(5 * u, H / 2 - u);      // RIGHT
    const int bar = 5 * u / 2;
    t.rect_buttons[4] = {2 * u, u, 6 * u, bar};              // L1
    t.rect_buttons[5] = {W - 6 * u, u, W - 2 * u, bar};      // R1
    t.rect_buttons[6] = {2 * u, H - bar, 6 * u, H - u};      // SELECT
    t.rect_buttons[7] = {W - 6 * u, H - bar, W - 2 * u, H - u};  // START
}

void draw_buttons(TouchButtons& t) {
    if (t.pixels.empty()) return;
    sGraph& g = t.ui;
    const int lw = t.line_width;
    for (const auto& c : t.circle_buttons) {
        vw_SetFgColor(g, kRingColour);
        vw_FillCircle(g, c.cx, c.cy, c.r);
        vw_SetFgColor(g, kInsideColour);
        vw_FillCircle(g, c.cx, c.cy, c.r - lw);
    }
    for (const auto& r : t.rect_buttons) {
        vw_SetFgColor(g, kRingColour);
        vw_FillRect(g, r.x1, r.y1, r.x2, r.y2);
        vw_SetFgColor(g, kInsideColour);
        vw_FillRect(g, r.x1 + lw, r.y1 + lw, r.x2 - lw, r.y2 - lw);
    }
}

uint16_t get_button_key(const TouchButtons& t, int x, int y) {
    for (int i = 0; i < 4; ++i) {
        const auto& c = t.circle_buttons[i];
        if (std::abs(x - c.cx) < c.r && std::abs(y - c.cy) < c.r) return button_val[i];
    }
    for (int i = 0; i < 8; ++i) {
        const auto& r = t.rect_buttons[i];
        if (r.x1 < x && x < r.x2 && r.y1 < y && y < r.y2) return button_val[4 + i];
    }
    return 0;
}

uint16_t gui_finger(Machine& m, TouchButtons& t, const FingerEvent& e) {
    if (t.pixels.empty() || e.finger_id < 0 || e.finger_id > 9) return 0;
    auto to_pixels = [](int side, float f) {
        const double v = static_cast<double>(side) * static_cast<double>(f);
        return v > -1e9 && v < 1e9 ? static_cast<int>(v) : -1;  // NaN and wild values miss
    };
    const int x = to_pixels(t.width, e.x), y = to_pixels(t.height, e.y);
    const int id = static_cast<int>(e.finger_id);
    mylog(m, "FINGER: %d %d %d %d", id, x, y, e.down ? 1 : 0);
    auto& f = t.fingers[id];
    if (e.down) {
        const uint16_t b = get_button_key(t, x, y);
        if (b) f = {b, 1};
        return b;
    }
    const uint16_t b = f.pressed ? f.button : 0;
    f = {};
    return b;
}

void check_finger(Machine& m, TouchButtons& t, const FingerEvent& e) {
    const uint16_t b = gui_finger(m, t, e);
    if (!b) return;
    if (e.down) {
        if (b == 0x008 && (m.vk & 0x300) == 0)
            m.force_exit_tvx = 1;
        m.vk = static_cast<uint16_t>(m.vk & ~b);
    } else {
        m.vk = static_cast<uint16_t>(m.vk | b);
    }
}

void GetTouch(TOUCH& touch) {
    touch.pushed = 0;
    touch.rawX = touch.rawY = touch.x = touch.y = 0;
}
