// Text drawing (c_textout, glyph conversion per graphics mode) and the
// rows a console repaint leaves alone.
#include <vector>

#include "display/font.h"
#include "display/text.h"
#include "display_harness.h"

namespace {

constexpr uint32_t kStr = 0x3000;

struct Font {
    uint32_t base;
    int w, h;
};
constexpr Font kSmall{kFontAscii12, 6, 12}, kLarge{kFontAscii16, 8, 16};
constexpr Font kGb12{kFontGb12, 12, 12}, kGb16{kFontGb16, 16, 16};

// Ink at pixel (c, r) of glyph `index`, straight from the table.
bool font_ink(const Font& f, uint32_t index, int c, int r) {
    const int per_row = (f.w + 7) / 8;
    const unsigned char* g = tvx_font + f.base + index * static_cast<uint32_t>(f.h * per_row);
    return (g[r * per_row + c / 8] >> (7 - c % 8)) & 1;
}

// Expects the glyph at (x, y) of a plane to show ink and paper as given;
// `mirror` reads the glyph's columns from the right.
void expect_glyph(ScreenVm& s, bool visible, const Font& f, uint32_t index, int x, int y, uint8_t ink, uint8_t paper,
                  bool mirror = false) {
    int wrong = 0;
    for (int r = 0; r < f.h; ++r)
        for (int c = 0; c < f.w; ++c) {
            const uint8_t px = visible ? s.vis(x + c, y + r) : s.buf(x + c, y + r);
            wrong += px != (font_ink(f, index, mirror ? f.w - 1 - c : c, r) ? ink : paper);
        }
    EXPECT_EQ(wrong, 0) << "glyph " << index << " at " << x << "," << y;
}

TEST(Glyphs, GbIndexFollowsTheRowMapping) {
    EXPECT_EQ(gb_glyph_index(0xA1, 0xA1), 0);
    EXPECT_EQ(gb_glyph_index(0xB0, 0xA1), 9 * 94);
    EXPECT_EQ(gb_glyph_index(0xAA, 0xA1), 9 * 94);  // rows AA-AF fall on B0-B5
    EXPECT_EQ(gb_glyph_index(0xF7, 0xFE), 81 * 94 - 1);
    for (auto [hi, lo] : {std::pair{0xA0, 0xA1}, {0xF8, 0xA1}, {0xB0, 0xA0}, {0xB0, 0xFF}, {0x80, 0x41}})
        EXPECT_EQ(gb_glyph_index(static_cast<uint8_t>(hi), static_cast<uint8_t>(lo)), -1) << hi << " " << lo;
}

TEST(TextOut, GlyphsBySizeModePlaneAndStyle) {
    struct Glyph { const Font* f; uint32_t index; int x, y; };
    const uint32_t gb = 9 * 94;  // 啊 (B0A1), also reached through row AA
    const struct {
        int mode, fg, bg, fill;
        const char* text;
        int64_t x, y, type;
        bool visible, mirror;
        uint8_t ink, paper;
        std::vector<Glyph> glyphs;
    } cases[] = {
        {1, 1, 0, 0, "AB", 10, 5, 0xC1, true, false, 1, 0, {{&kLarge, 'A', 10, 5}, {&kLarge, 'B', 18, 5}}},
        {1, 1, 0, 0, "AB", 3, 40, 0x01, false, false, 1, 0, {{&kSmall, 'A', 3, 40}, {&kSmall, 'B', 9, 40}}},
        {8, 0x33, 0x44, 0, "\xB0\xA1\xAA\xA1x", 1, 2, 0x41, true, false, 0x33, 0x44,
         {{&kGb12, gb, 1, 2}, {&kGb12, gb, 13, 2}, {&kSmall, 'x', 25, 2}}},
        {4, 15, 0, 0, "\xB0\xA1\xAA\xA1x", 2, 20, 0xC1, true, false, 15, 0, {{&kGb16, gb, 2, 20}, {&kLarge, 'x', 34, 20}}},
        {1, 1, 0, 0, "\xB0\xA1", 0, 0, 0x41, true, false, 1, 0, {{&kGb12, gb, 0, 0}}},
        {8, 255, 0, 0x99, "M", 0, 0, 0xC6, true, false, 255, 0x99, {{&kLarge, 'M', 0, 0}}},  // paper transparent
        {8, 255, 0, 0, "F", 0, 0, 0xE1, true, true, 255, 0, {{&kLarge, 'F', 0, 0}}},
        {1, 1, 0, 0, "F", 0, 0, 0x61, true, false, 1, 0, {{&kSmall, 'F', 0, 0}}},  // 6-pixel rows: never mirrored
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(testing::Message() << k.text << " mode " << k.mode << " type " << k.type);
        ScreenVm s(k.mode);
        s.m->fgcolor = static_cast<uint8_t>(k.fg);
        s.m->bgcolor = static_cast<uint8_t>(k.bg);
        std::memset(s.m->ScreenBuffer, k.fill, kPlaneSize);
        s.str(kStr, k.text);
        s.call(c_textout, {k.x, k.y, kStr, k.type});
        for (const Glyph& g : k.glyphs) expect_glyph(s, k.visible, *g.f, g.index, g.x, g.y, k.ink, k.paper, k.mirror);
        EXPECT_EQ(s.refreshed(), k.visible);
        if (!k.visible) { EXPECT_EQ(s.vis(3, 40) + s.vis(4, 41), 0); }
    }
}

TEST(TextOut, RightEdgeAndNegativeX) {
    ScreenVm c(8);  // 160 wide
    c.str(kStr, "WWW");
    c.call(c_textout, {150, 0, kStr, 0xC1});
    // 'W' at 150, the second at 158 cut after two columns, the third not drawn.
    int second = 0;
    for (int r = 0; r < 16; ++r) {
        for (int col = 0; col < 2; ++col)
            second += c.vis(158 + col, r) == (font_ink(kLarge, 'W', col, r) ? 255 : 0) ? 0 : 1;
        for (int x = 160; x < 176; ++x) ASSERT_EQ(c.vis(x, r), 0) << x;
    }
    EXPECT_EQ(second, 0);

    std::memset(c.m->ScreenBuffer, 0x99, kPlaneSize);
    c.call(c_textout, {65534, 30, kStr, 0xC1});  // x = -2 draws nothing at all
    for (int x = 0; x < 20; ++x) ASSERT_EQ(c.vis(x, 30), 0x99);
}

TEST(TextOut, CodesWithoutGlyphs) {
    ScreenVm c(8);
    c.m->bgcolor = 5;
    c.m->fgcolor = 7;
    std::memset(c.m->ScreenBuffer, 0x99, kPlaneSize);
    const Pen copy{1, 0x40, 0};
    // An ASCII code of 128 or more gives pixel value 0, not the background.
    font_6x12(*c.m, copy, 0, 0, 200);
    font_8x16(*c.m, copy, 10, 0, 128);
    EXPECT_EQ(c.vis(5, 11) + c.vis(10, 0) + c.vis(17, 15), 0);
    EXPECT_EQ(c.vis(6, 0), 0x99);
    EXPECT_EQ(c.vis(10, 16), 0x99);
    // GB2312 codes outside the table draw a blank glyph in the background colour.
    c.str(kStr, "\xF8\xA1\xB0\x41");
    c.call(c_textout, {0, 30, kStr, 0x41});
    for (int y = 30; y < 42; ++y)
        for (int x = 0; x < 24; ++x) ASSERT_EQ(c.vis(x, y), 5) << x << "," << y;
    EXPECT_EQ(c.vis(24, 30), 0x99);
    // A lead byte just before the terminator ends the string.
    c.str(kStr, "\xB0");
    c.call(c_textout, {0, 50, kStr, 0x41});
    EXPECT_EQ(c.vis(0, 50), 0x99);

    ScreenVm g(4);
    g.m->bgcolor = 3;
    std::memset(g.m->ScreenBuffer, 0x99, kPlaneSize);
    font_8x16(*g.m, copy, 0, 0, 255);
    EXPECT_EQ(g.vis(7, 15), 0);
    EXPECT_EQ(g.vis(8, 15), 0x99);
}

// Grid bytes at cell index `cell` on.
void set_cells(Machine& m, uint32_t cell, const std::string& bytes) {
    for (char b : bytes) lRamWrite(m, m.TextBuffer + cell++, static_cast<uint8_t>(b));
}

// Painting the whole grid is pinned by the text_console_small and
// mono_grid_frame pictures; the row mask of c_updatelcd is not.
TEST(ConsolePaint, RowMaskKeepsRowsAsTheyAreOnTheScreen) {
    ScreenVm s(1);
    Machine& m = *s.m;
    setscreen(m, 0);  // 20 x 5 cells
    std::memset(m.ScreenBuffer, 0xAA, sizeof m.ScreenBuffer);
    set_cells(m, 0, "A");
    update_lcd_0(m);
    EXPECT_TRUE(s.refreshed());
    expect_glyph(s, true, kLarge, 'A', 0, 0, 1, 0);

    // Mask 0x80 on a 5-row screen keeps row 0 as it is on the screen.
    set_cells(m, 0, "ZZ");
    set_cells(m, 20, "YY");
    s.call(c_updatelcd, {0x80});
    EXPECT_EQ(m.line_mode, 0u);
    expect_glyph(s, true, kLarge, 'A', 0, 0, 1, 0);
    expect_glyph(s, true, kLarge, 'Y', 8, 16, 1, 0);
}

TEST(ConsolePaint, RowMaskBitFollowsTheRowCount) {
    ScreenVm s(8, 20, 15);  // 320 x 240: 15 large rows, 18 small rows
    Machine& m = *s.m;
    m.bgcolor = 0;
    m.fgcolor = 1;
    setscreen(m, 0);
    ASSERT_EQ(m.curr_RPS, 15);
    std::memset(m.ScreenBuffer, 0xAA, kPlaneSize);
    set_cells(m, 0, "A");
    set_cells(m, 80, "A");
    s.call(c_updatelcd, {0x8000 | 0x80});  // rows 0 and 8
    EXPECT_EQ(s.vis(0, 0), 0xAA);
    EXPECT_EQ(s.vis(0, 8 * 16), 0xAA);
    expect_glyph(s, true, kLarge, 'A', 0, 32, 1, 0);

    setscreen(m, 1);
    ASSERT_EQ(m.curr_RPS, 18);
    std::memset(m.ScreenBuffer, 0xAA, kPlaneSize);
    set_cells(m, 0, "A");
    s.call(c_updatelcd, {0x800000});  // row 0 only
    EXPECT_EQ(s.vis(m.small_left + 1, m.small_up + 5), 0xAA);
    expect_glyph(s, true, kSmall, 0, m.small_left, m.small_up + 13, 1, 0);
}

}  // namespace
