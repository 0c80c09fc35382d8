#include "frontend/gui/overlay.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

// The glyphs drawn as pictures, '#' for a set pixel; column 7 and row 7 stay
// clear (except for the underscore) so that characters keep apart.
constexpr const char* kGlyphArt[kMesGlyphs][8] = {
    {".#####..", "##...##.", "##..###.", "##.#.##.", "###..##.", "##...##.", ".#####..", "........"},  // 0
    {"...##...", "..###...", ".####...", "...##...", "...##...", "...##...", ".######.", "........"},  // 1
    {".#####..", "##...##.", ".....##.", "...###..", ".###....", "##......", "#######.", "........"},  // 2
    {".#####..", "##...##.", ".....##.", "..####..", ".....##.", "##...##.", ".#####..", "........"},  // 3
    {"....###.", "...####.", "..##.##.", ".##..##.", "#######.", ".....##.", ".....##.", "........"},  // 4
    {"#######.", "##......", "######..", ".....##.", ".....##.", "##...##.", ".#####..", "........"},  // 5
    {"..####..", ".##.....", "##......", "######..", "##...##.", "##...##.", ".#####..", "........"},  // 6
    {"#######.", ".....##.", "....##..", "...##...", "..##....", "..##....", "..##....", "........"},  // 7
    {".#####..", "##...##.", "##...##.", ".#####..", "##...##.", "##...##.", ".#####..", "........"},  // 8
    {".#####..", "##...##.", "##...##.", ".######.", ".....##.", "....##..", ".####...", "........"},  // 9
    {"........", "...##...", "...##...", "........", "...##...", "...##...", "........", "........"},  // :
    {"........", "........", "........", "........", "........", "...##...", "...##...", "........"},  // .
    {"........", "........", "........", "........", "........", "........", "........", "........"},  // space
    {"........", "........", "........", ".#####..", "........", "........", "........", "........"},  // -
    {"......#.", ".....##.", "....##..", "...##...", "..##....", ".##.....", ".#......", "........"},  // /
    {"...##...", "...##...", "...##...", "...##...", "...##...", "........", "...##...", "........"},  // !
    {".#####..", "##...##.", "##.####.", "##.#.##.", "##.####.", "##......", ".#####..", "........"},  // @
    {"..###...", ".##.##..", "##...##.", "##...##.", "#######.", "##...##.", "##...##.", "........"},  // A
    {"######..", "##...##.", "##...##.", "######..", "##...##.", "##...##.", "######..", "........"},  // B
    {".#####..", "##...##.", "##......", "##......", "##......", "##...##.", ".#####..", "........"},  // C
    {"#####...", "##..##..", "##...##.", "##...##.", "##...##.", "##..##..", "#####...", "........"},  // D
    {"#######.", "##......", "##......", "######..", "##......", "##......", "#######.", "........"},  // E
    {"#######.", "##......", "##......", "######..", "##......", "##......", "##......", "........"},  // F
    {".#####..", "##...##.", "##......", "##.####.", "##...##.", "##...##.", ".######.", "........"},  // G
    {"##...##.", "##...##.", "##...##.", "#######.", "##...##.", "##...##.", "##...##.", "........"},  // H
    {".######.", "...##...", "...##...", "...##...", "...##...", "...##...", ".######.", "........"},  // I
    {"...####.", ".....##.", ".....##.", ".....##.", "##...##.", "##...##.", ".#####..", "........"},  // J
    {"##...##.", "##..##..", "##.##...", "####....", "##.##...", "##..##..", "##...##.", "........"},  // K
    {"##......", "##......", "##......", "##......", "##......", "##......", "#######.", "........"},  // L
    {"##...##.", "###.###.", "#######.", "##.#.##.", "##...##.", "##...##.", "##...##.", "........"},  // M
    {"##...##.", "###..##.", "####.##.", "##.####.", "##..###.", "##...##.", "##...##.", "........"},  // N
    {".#####..", "##...##.", "##...##.", "##...##.", "##...##.", "##...##.", ".#####..", "........"},  // O
    {"######..", "##...##.", "##...##.", "######..", "##......", "##......", "##......", "........"},  // P
    {".#####..", "##...##.", "##...##.", "##...##.", "##.#.##.", "##..##..", ".###.##.", "........"},  // Q
    {"######..", "##...##.", "##...##.", "######..", "##.##...", "##..##..", "##...##.", "........"},  // R
    {".#####..", "##...##.", "##......", ".#####..", ".....##.", "##...##.", ".#####..", "........"},  // S
    {".######.", "...##...", "...##...", "...##...", "...##...", "...##...", "...##...", "........"},  // T
    {"##...##.", "##...##.", "##...##.", "##...##.", "##...##.", "##...##.", ".#####..", "........"},  // U
    {"##...##.", "##...##.", "##...##.", "##...##.", ".##.##..", "..###...", "...#....", "........"},  // V
    {"##...##.", "##...##.", "##...##.", "##.#.##.", "#######.", "###.###.", "##...##.", "........"},  // W
    {"##...##.", ".##.##..", "..###...", "..###...", "..###...", ".##.##..", "##...##.", "........"},  // X
    {"##...##.", "##...##.", ".##.##..", "..###...", "..###...", "..###...", "..###...", "........"},  // Y
    {"#######.", ".....##.", "....##..", "...##...", "..##....", ".##.....", "#######.", "........"},  // Z
    {"........", "...##...", "...##...", ".######.", "...##...", "...##...", "........", "........"},  // +
    {"........", "........", "........", "........", "........", "........", "........", "#######."},  // _
};

constexpr std::array<std::array<uint8_t, 8>, kMesGlyphs> build_glyphs() {
    std::array<std::array<uint8_t, 8>, kMesGlyphs> out{};
    for (int g = 0; g < kMesGlyphs; ++g)
        for (int row = 0; row < 8; ++row) {
            uint8_t bits = 0;
            for (int col = 0; col < 8; ++col)
                if (kGlyphArt[g][row][col] == '#') bits = static_cast<uint8_t>(bits | 0x80 >> col);
            out[static_cast<size_t>(g)][static_cast<size_t>(row)] = bits;
        }
    return out;
}

// Clipped pixel access.
bool usable(const Surface16& s) {
    return s.pixels && s.pitch % 2 == 0 && int64_t{s.pitch} >= 2 * int64_t{s.w} &&
           reinterpret_cast<uintptr_t>(s.pixels) % 2 == 0;
}
bool inside(const Surface16& s, int x, int y) { return x >= 0 && y >= 0 && x < s.w && y < s.h && usable(s); }
uint16_t* pixel(Surface16& s, int x, int y) {
    return reinterpret_cast<uint16_t*>(s.pixels + int64_t{y} * s.pitch) + x;
}
void put(Surface16& s, int x, int y, uint16_t c) {
    if (inside(s, x, y)) *pixel(s, x, y) = c;
}

void hline(Surface16& s, int x0, int x1, int y, uint16_t c) {
    for (int x = x0; x <= x1; ++x) put(s, x, y, c);
}
void vline(Surface16& s, int x, int y0, int y1, uint16_t c) {
    for (int y = y0; y <= y1; ++y) put(s, x, y, c);
}

// Rectangle darkened to a quarter (text stays legible over a white picture)
// with a one-pixel white frame on its edges.
void panel(Surface16& s, int x, int y, int w, int h) {
    mes_darken(s, x, y, w, h);
    mes_darken(s, x, y, w, h);
    hline(s, x, x + w - 1, y, kMesWhite);
    hline(s, x, x + w - 1, y + h - 1, kMesWhite);
    vline(s, x, y, y + h - 1, kMesWhite);
    vline(s, x + w - 1, y, y + h - 1, kMesWhite);
}

int text_width(std::string_view t) { return 8 * static_cast<int>(t.size()); }

}  // namespace

const std::array<std::array<uint8_t, 8>, kMesGlyphs> mesCHAR = build_glyphs();

int mes_glyph_index(char ch) {
    switch (ch) {
        case ' ': ch = '<'; break;
        case '!': ch = '?'; break;
        case '+': ch = '['; break;
        case '-': ch = '='; break;
        case '.': ch = ';'; break;
        case '/': ch = '>'; break;
        case '_': ch = '\\'; break;
        default:
            if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
    }
    const int i = static_cast<unsigned char>(ch) - 0x30;
    return i >= 0 && i < kMesGlyphs ? i : -1;
}

void mesDrawChar(Surface16& s, int x, int y, char ch, uint16_t fg, int bg) {
    const int g = mes_glyph_index(ch);
    if (g < 0) return;
    for (int row = 0; row < 8; ++row) {
        const uint8_t bits = mesCHAR[static_cast<size_t>(g)][static_cast<size_t>(row)];
        for (int col = 0; col < 8; ++col) {
            if (bits & (0x80 >> col))
                put(s, x + col, y + row, fg);
            else if (bg >= 0)
                put(s, x + col, y + row, static_cast<uint16_t>(bg));
        }
    }
}

void mesDrawString(Surface16& s, int x, int y, std::string_view text, uint16_t fg, int bg) {
    for (const char ch : text) {
        mesDrawChar(s, x, y, ch, fg, bg);
        x += 8;
    }
}

void mes_darken(Surface16& s, int x, int y, int w, int h) {
    const int x0 = std::max(x, 0), y0 = std::max(y, 0);
    const int x1 = std::min(x + w, s.w), y1 = std::min(y + h, s.h);
    if (!inside(s, x0, y0)) return;
    for (int py = y0; py < y1; ++py) {
        uint16_t* p = pixel(s, x0, py);
        for (int px = x0; px < x1; ++px, ++p) {
            const unsigned c = *p;
            const unsigned r = ((c >> 11) + 2) >> 1, g = (((c >> 5) & 63) + 4) >> 1, b = ((c & 31) + 2) >> 1;
            *p = static_cast<uint16_t>(r << 11 | g << 5 | b);
        }
    }
}

void draw_fps(Surface16& s, int fps_frames, int fps_need_frames, int screen_width, int screen_height) {
    char text[32];
    std::snprintf(text, sizeof text, "%02d/%02d", fps_frames, fps_need_frames);
    int x = s.w - text_width(text), y = 0;
    if (screen_width == 160 && screen_height == 80) {
        y += 40;
    } else if (screen_width == 240 && screen_height == 160) {
        y += 40;
        x -= 40;
    }
    mesDrawString(s, x, y, text, kMesGreen, kMesBlack);
}

void draw_keymap_sdl(Surface16& s, const OverlayArea& area, std::string_view program_name) {
    // Two columns of at most 9 + 5 and 9 + 4 characters, 4 pixels apart:
    // 232x148, so the panel fits the smallest picture shown in the 320x240
    // surface (a 240x160 screen) and is centred in what is visible.
    constexpr int W = 232, H = 148;
    const int X = area.x + (area.w - W) / 2, Y = area.y + (area.h - H) / 2;
    panel(s, X, Y, W, H);
    mesDrawString(s, X + (W - 88) / 2, Y + 5, "Key Mapping", kMesWhite, kMesTransparent);
    hline(s, X + 2, X + W - 3, Y + 15, kMesGreen);
    vline(s, X + 116, Y + 16, Y + 120, kMesGreen);
    // The buttons, then the host's own keys and chords, as they act.
    static constexpr const char* kButtons[][2] = {
        {"Arrows", "D-Pad"}, {"L/Space", "A"}, {"K/LCtrl", "B"},   {"P/LShift", "X"},    {"O/LAlt", "Y"},
        {"Tab/PgUp", "L1"},  {"BS/PgDn", "R1"}, {"5/RCtrl", "Sel"}, {"6/Enter", "Start"},
    };
    static constexpr const char* kHostKeys[][2] = {
        {"Sel+Start", "Exit"}, {"Esc", "Exit"}, {"L1+Sel", "Grid"}, {"R1+Sel", "FPS"},
        {"Alt+Ent", "Full"},   {"F1", "Keys"},  {"F5", "Save"},     {"F9", "Load"},
    };
    int y = Y + 19;
    for (const auto& [key, what] : kButtons) {
        mesDrawString(s, X + 4, y, key, kMesYellow, kMesTransparent);
        mesDrawString(s, X + 72, y, what, kMesWhite, kMesTransparent);
        y += 11;
    }
    y = Y + 19;
    for (const auto& [key, what] : kHostKeys) {
        mesDrawString(s, X + 120, y, key, kMesYellow, kMesTransparent);
        mesDrawString(s, X + 196, y, what, kMesWhite, kMesTransparent);
        y += 11;
    }
    hline(s, X + 2, X + W - 3, Y + 120, kMesGreen);
    mesDrawString(s, X + (W - 80) / 2, Y + 124, "F1 to hide", kMesLightBlue, kMesTransparent);
    // The program's name, cut to what fits.
    const std::string footer = (std::string(program_name) + " v0.1").substr(0, (W - 8) / 8);
    mesDrawString(s, X + (W - text_width(footer)) / 2, Y + 136, footer, kMesGrey, kMesTransparent);
}

void draw_unit_test_info(Surface16& s, const OverlayArea& area, uint32_t elapsed_ms, std::string_view func,
                         std::string_view dir) {
    // 280x80, narrower where less is visible; the names cut to what fits.
    const int W = std::min(280, area.w - 4), H = 80;
    const int x = area.x + (area.w - W) / 2, y = area.y + (area.h - H) / 2;
    const size_t func_room = static_cast<size_t>(std::max(0, (W - 58) / 8));
    const size_t dir_room = static_cast<size_t>(std::max(0, (W - 56) / 8));
    const unsigned sec = elapsed_ms / 1000;
    char clock[32];
    std::snprintf(clock, sizeof clock, "%02u:%02u:%02u", sec / 3600, sec % 3600 / 60, sec % 60);

    panel(s, x, y, W, H);
    mesDrawString(s, x + (W - 72) / 2, y + 8, "Unit Test", kMesWhite, kMesTransparent);
    hline(s, x + 2, x + W - 3, y + 18, kMesGreen);
    mesDrawString(s, x + 10, y + 26, "Func:", kMesYellow, kMesTransparent);
    mesDrawString(s, x + 50, y + 26, func.substr(0, func_room), kMesWhite, kMesTransparent);
    mesDrawString(s, x + 10, y + 42, "Time:", kMesYellow, kMesTransparent);
    mesDrawString(s, x + 50, y + 42, clock, kMesLightBlue, kMesTransparent);
    mesDrawString(s, x + 10, y + 58, "Dir:", kMesYellow, kMesTransparent);
    mesDrawString(s, x + 48, y + 58, dir.substr(0, dir_room), kMesGrey, kMesTransparent);
}
