// Diagnostic overlays: the 8x8 font, text placement and colours of the frame
// counter, key-map and unit-test panels, darkening, and clipping.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <tuple>

#include "frontend/gui/overlay.h"
#include "surface_harness.h"

namespace {

// Checks that text sits at (x, y): set glyph bits in fg, clear ones in bg
// (the top `rows` rows of each glyph).
void expect_text(const TestSurface& t, int x, int y, std::string_view text, uint16_t fg, uint16_t bg, int rows = 8) {
    for (size_t i = 0; i < text.size(); ++i) {
        const int g = mes_glyph_index(text[i]);
        ASSERT_GE(g, 0) << text[i];
        for (int row = 0; row < rows; ++row)
            for (int col = 0; col < 8; ++col) {
                const bool set = mesCHAR[size_t(g)][size_t(row)] & (0x80 >> col);
                ASSERT_EQ(t.at(x + 8 * int(i) + col, y + row), set ? fg : bg)
                    << "\"" << text << "\" char " << i << " at +" << col << "," << row;
            }
    }
}

void fill(TestSurface& t, uint16_t c) {
    for (int y = 0; y < t.h; ++y)
        for (int x = 0; x < t.w; ++x) t.px[size_t(y * (t.w + t.pad) + x)] = c;
}

constexpr uint16_t kPanelWhite = 0x4A49;  // white under a panel, darkened twice: (9, 18, 9)

}  // namespace

TEST(Overlay, FontHasFortyFiveDistinctGlyphsAndTheSubstitutions) {
    std::set<std::array<uint8_t, 8>> distinct(mesCHAR.begin(), mesCHAR.end());
    EXPECT_EQ(distinct.size(), size_t(kMesGlyphs));
    EXPECT_EQ(mesCHAR[12], (std::array<uint8_t, 8>{}));  // space is blank
    for (const char c : std::string("0123456789:@ABCDEFGHIJKLMNOPQRSTUVWXYZ.-/!+_")) {
        const int g = mes_glyph_index(c);
        ASSERT_GE(g, 0) << c;
        EXPECT_NE(mesCHAR[size_t(g)], (std::array<uint8_t, 8>{})) << c;
    }
    for (const auto& [c, g] : {std::pair{'0', 0}, {'A', 17}, {'z', 42}, {' ', 12}, {'!', 15}, {'+', 43}, {'_', 44},
                               {'.', 11}, {'-', 13}, {'/', 14}})
        EXPECT_EQ(mes_glyph_index(c), g) << c;
    for (const char c : std::string("#~]{\x7f\x80\xff\t")) EXPECT_EQ(mes_glyph_index(c), -1) << int(c);
}

TEST(Overlay, DrawingOpaqueOrTransparentAndDarkening) {
    TestSurface t(40, 10);
    mesDrawString(t.s, 0, 1, "a#", kMesGreen, kMesBlack);  // '#' is skipped but takes its place
    expect_text(t, 0, 1, "A", kMesGreen, kMesBlack);
    EXPECT_EQ(t.at(8, 1), kUntouched);
    EXPECT_EQ(t.at(0, 0), kUntouched);
    t.reset();
    mesDrawString(t.s, 0, 0, "1", kMesWhite, kMesTransparent);
    EXPECT_EQ(t.at(3, 0), kMesWhite);
    EXPECT_EQ(t.at(0, 0), kUntouched);

    t.px[0] = 0x0000;  // black lifts to (1, 2, 1)
    t.px[1] = 0x07E0;
    mes_darken(t.s, 0, 0, 2, 1);
    EXPECT_EQ(t.at(0, 0), 0x0841);
    EXPECT_EQ(t.at(1, 0), (1 << 11) | (33 << 5) | 1);
}

TEST(Overlay, FrameCounterPositionFollowsTheGuestScreen) {
    TestSurface full(640, 480);  // a 160x80 screen goes to the window-sized surface
    draw_fps(full.s, 125, 200, 160, 80);
    expect_text(full, 640 - 56, 40, "125/200", kMesGreen, kMesBlack);
    EXPECT_EQ(full.at(640 - 57, 40), kUntouched);
    EXPECT_EQ(full.at(640 - 56, 39), kUntouched);

    TestSurface s(320, 240);
    draw_fps(s.s, 5, 7, 240, 160);
    expect_text(s, 320 - 40 - 40, 40, "05/07", kMesGreen, kMesBlack);
    s.reset();
    draw_fps(s.s, 60, 60, 320, 240);
    expect_text(s, 280, 0, "60/60", kMesGreen, kMesBlack);
    EXPECT_TRUE(s.margins_untouched());
}

TEST(Overlay, UnitTestPanelShowsTimeAndCutsLongNamesToFit) {
    TestSurface t(320, 240);
    fill(t, 0xFFFF);
    const std::string func(40, 'F'), dir = std::string(28, 'D') + "XYZ";
    draw_unit_test_info(t.s, {0, 0, 320, 240}, 3725 * 1000 + 999, func, dir);
    const int x = 20, y = 80;
    EXPECT_EQ(t.at(x + 279, y + 79), kMesWhite);
    EXPECT_EQ(t.at(x + 280, y + 40), 0xFFFF);
    EXPECT_EQ(t.at(x + 2, y + 18), kMesGreen);
    expect_text(t, x + 104, y + 8, "UNIT TEST", kMesWhite, kPanelWhite);
    expect_text(t, x + 10, y + 26, "FUNC:", kMesYellow, kPanelWhite);
    // 27 characters of the function and 28 of the directory fit inside the frame.
    expect_text(t, x + 50, y + 26, func.substr(0, 27) + " ", kMesWhite, kPanelWhite);
    expect_text(t, x + 50, y + 42, "01:02:05", kMesLightBlue, kPanelWhite);
    expect_text(t, x + 10, y + 58, "DIR:", kMesYellow, kPanelWhite);
    expect_text(t, x + 48, y + 58, dir.substr(0, 28), kMesGrey, kPanelWhite);
    for (int row = 0; row < 8; ++row) EXPECT_EQ(t.at(x + 272, y + 58 + row), kPanelWhite);  // no 29th

    fill(t, 0xFFFF);
    draw_unit_test_info(t.s, {0, 0, 320, 240}, 59999, "", "");
    expect_text(t, x + 50, y + 42, "00:00:59", kMesLightBlue, kPanelWhite);
}

// The key map tells what each key and chord does, and both panels stay inside
// the part of the surface a 240x160 screen shows.
TEST(Overlay, KeyMapIsTruthfulAndPanelsStayInTheVisiblePart) {
    TestSurface t(320, 240);
    fill(t, 0xFFFF);
    const OverlayArea area{40, 40, 240, 160};
    draw_keymap_sdl(t.s, area, "a-rather-long-program-name-that-runs-past-the-panel");
    const int X = 44, Y = 46;
    EXPECT_EQ(t.at(X, Y), kMesWhite);
    EXPECT_EQ(t.at(X + 231, Y + 147), kMesWhite);
    for (const auto& [row, key, what] : {std::tuple{0, "SEL+START", "EXIT"}, {1, "ESC", "EXIT"}, {2, "L1+SEL", "GRID"},
                                          {3, "R1+SEL", "FPS"}, {4, "ALT+ENT", "FULL"}, {7, "F9", "LOAD"}}) {
        expect_text(t, X + 120, Y + 19 + 11 * row, key, kMesYellow, kPanelWhite);
        expect_text(t, X + 196, Y + 19 + 11 * row, what, kMesWhite, kPanelWhite);
    }
    expect_text(t, X + 4, Y + 19 + 11 * 5, "TAB/PGUP", kMesYellow, kPanelWhite);
    expect_text(t, X + 72, Y + 19 + 11 * 5, "L1", kMesWhite, kPanelWhite);
    draw_unit_test_info(t.s, area, 0, std::string(99, 'F'), std::string(99, 'D'));
    for (int y = 0; y < 240; ++y) {
        for (int x = 0; x < 320; ++x) {
            const bool outside = x < 40 || x >= 280 || y < 40 || y >= 200;
            ASSERT_TRUE(!outside || t.at(x, y) == 0xFFFF) << x << "," << y;
        }
    }
}

TEST(Overlay, SmallSurfacesAreNeverWrittenOutside) {
    for (const auto& [w, h] : {std::pair{20, 10}, {1, 1}, {300, 100}, {100, 300}}) {
        TestSurface t(w, h);
        draw_keymap_sdl(t.s, {0, 0, w, h}, "a-rather-long-program-name-that-runs-past-the-panel");
        draw_unit_test_info(t.s, {0, 0, w, h}, 1000, std::string(255, 'X'), std::string(259, 'Y'));
        draw_fps(t.s, 123456, 999999, 160, 80);
        mesDrawString(t.s, -5, -3, "CLIPPED", kMesWhite, kMesBlack);
        EXPECT_TRUE(t.margins_untouched()) << w << "x" << h;
    }
    TestSurface t(20, 10);
    mesDrawChar(t.s, -4, -4, '8', kMesWhite, kMesBlack);  // the lower-right quarter shows
    EXPECT_EQ(t.at(0, 0), (mesCHAR[8][4] & 0x08) ? kMesWhite : kMesBlack);
    Surface16 odd = t.s;
    odd.pitch = 21;  // unusable: nothing is written
    t.reset();
    draw_keymap_sdl(odd, {0, 0, 20, 10}, "x");
    EXPECT_EQ(t.at(0, 0), kUntouched);
}
