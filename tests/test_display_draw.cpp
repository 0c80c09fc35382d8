// Screen modes, palettes and the drawing calls, checked on the plane bytes.
#include <array>
#include <cmath>
#include <random>
#include <set>
#include <utility>

#include "display/draw.h"
#include "display_harness.h"

namespace {

constexpr int kMono = 1, kGrey = 4, kColour = 8;  // graphics modes
constexpr int kVisible = 0, kBuffer = 1;

using Call = void (*)(Machine&);
using Scr = ScreenVm;

// Palette entry i as red, green, blue.
std::array<int, 3> rgb(const Machine& m, int i) { return {m.palette[3 * i + 2], m.palette[3 * i + 1], m.palette[3 * i]}; }

Pts span(int x0, int x1, int y0, int y1) {
    Pts p;
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x) p.insert({x, y});
    return p;
}

Pts operator+(Pts a, const Pts& b) {
    a.insert(b.begin(), b.end());
    return a;
}

// ---- Modes, colours and palettes ----

TEST(ScreenModes, SetGraphModeAnswersPresentsFirstAndClearsTheVisibleScreen) {
    Scr s(kGrey);
    Machine& m = *s.m;
    s.call(c_setfgcolor, {7});
    s.clear(9);
    m.need_refresh = 1;
    EXPECT_EQ(s.result(c_setgraphmode, {0}), 4u);  // query
    EXPECT_EQ(s.result(c_setgraphmode, {2}), 0u);  // invalid
    EXPECT_EQ(s.result(c_setgraphmode, {4}), 4u);  // already active
    EXPECT_TRUE(s.differ(kVisible, 9).empty());
    EXPECT_EQ(m.frame, nullptr);

    EXPECT_EQ(s.result(c_setgraphmode, {1}), 4u);
    ASSERT_NE(m.frame, nullptr);  // the pending frame, with the old mode
    EXPECT_EQ(m.frame->graph_mode, 4);
    EXPECT_EQ(m.frame->pixels[0], 9);
    EXPECT_EQ(m.stop, Stop::Frame);
    EXPECT_EQ(m.fgcolor, 7);                     // mode 1 keeps the colours
    EXPECT_EQ(s.differ(kVisible, 9), span(0, 159, 0, 79));
    EXPECT_EQ(s.px(kVisible, 159, 79), 0);
    EXPECT_TRUE(s.differ(kBuffer, 9).empty());

    m.need_refresh = 0;
    EXPECT_EQ(s.result(c_setgraphmode, {0x108}), 1u);  // low 8 bits: mode 8
    EXPECT_EQ(m.frame_number, 1u);
    EXPECT_EQ(m.fgcolor, 255);
    EXPECT_EQ(s.result(c_setgraphmode, {4}), 8u);
    EXPECT_EQ(m.fgcolor, 15);
    EXPECT_EQ(m.bgcolor, 0);
}

TEST(Palette, ModeChangesSetTheirEntriesAndLeaveTheRest) {
    Scr s(kMono);
    using C = std::array<int, 3>;
    s.result(c_setgraphmode, {8});
    EXPECT_EQ(rgb(*s.m, 0), (C{0, 0, 0}));
    EXPECT_EQ(rgb(*s.m, 1), (C{0, 0, 0}));     // mono ink survives
    EXPECT_EQ(rgb(*s.m, 2), (C{86, 96, 86}));  // and the grid colour
    EXPECT_EQ(rgb(*s.m, 23), (C{128, 0, 64}));  // 16 + 7: red lv5[2], green lv9[0], blue lv5[1]
    EXPECT_EQ(rgb(*s.m, 16 + 143), (C{192, 160, 192}));
    EXPECT_EQ(rgb(*s.m, 240), (C{255, 255, 255}));
    EXPECT_EQ(rgb(*s.m, 255), (C{255, 255, 255}));

    s.result(c_setgraphmode, {4});
    EXPECT_EQ(rgb(*s.m, 0), (C{255, 255, 255}));
    EXPECT_EQ(rgb(*s.m, 3), (C{204, 204, 204}));
    EXPECT_EQ(rgb(*s.m, 23), (C{128, 0, 64}));  // the colour cube entry survives
    EXPECT_EQ(rgb(*s.m, 255), (C{0, 0, 0}));
    s.result(c_setgraphmode, {8});
    s.result(c_setgraphmode, {1});
    EXPECT_EQ(rgb(*s.m, 3), (C{204, 204, 204}));  // the grey survives both changes
    EXPECT_EQ(rgb(*s.m, 0), (C{173, 193, 173}));
    s.m->GRAY = 1;
    SetPalette(*s.m);
    EXPECT_EQ(rgb(*s.m, 0), (C{255, 255, 255}));
    EXPECT_EQ(rgb(*s.m, 2), (C{86, 96, 86}));  // always half the green-grey paper
}

TEST(Palette, SetPaletteTakesRedFirstRecordsAndCutsAt255) {
    Scr s(kColour);
    Machine& m = *s.m;
    for (uint32_t k = 0; k < 20; ++k) lRamWrite4(m, 0x3000 + 4 * k, k | (100 + k) << 8 | (200 + k) << 16 | 0x99u << 24);
    const auto before = rgb(*s.m, 249);
    EXPECT_EQ(s.result(c_setpalette, {250, 20, 0x13000}), 6u);  // address reduced to 16 bits
    EXPECT_EQ(rgb(*s.m, 249), before);
    EXPECT_EQ(rgb(*s.m, 250), (std::array<int, 3>{0, 100, 200}));
    EXPECT_EQ(m.palette[3 * 255], 205);  // stored blue first
    EXPECT_EQ(m.palette[3 * 255 + 2], 5);
    const auto keep = rgb(*s.m, 15);
    EXPECT_EQ(s.result(c_setpalette, {0x10A, 0x8005, 0x3000}), 5u);  // from 10, count 5
    EXPECT_EQ(rgb(*s.m, 14), (std::array<int, 3>{4, 104, 204}));
    EXPECT_EQ(rgb(*s.m, 15), keep);
    EXPECT_EQ(s.result(c_setpalette, {255, 0x7FFF, 0xFFFF}), 1u);  // record wraps round the block
}

TEST(Screen, FadeRaisesTheBufferToAFloorOnTheVisiblePlane) {
    Scr s(kGrey);
    Machine& m = *s.m;
    for (int i = 0; i < kPlaneSize; ++i) {
        m.ScreenBuffer[i] = 0x77;
        m.ScreenBuffer[kPlaneSize + i] = static_cast<uint8_t>(i % 16);
    }
    const int shown = 80 * 320;  // screen rows, dead space included
    s.call(c_fade, {15});
    EXPECT_TRUE(s.refreshed());
    EXPECT_EQ(std::memcmp(m.ScreenBuffer, m.ScreenBuffer + kPlaneSize, shown), 0);
    EXPECT_EQ(m.ScreenBuffer[shown], 0x77);
    s.call(c_fade, {0x13});  // level 3: floor 12
    for (int i : {0, 5, 12, 13, 15, 175, shown - 1}) EXPECT_EQ(m.ScreenBuffer[i], std::max(i % 16, 12)) << i;
    s.call(c_fade, {0});
    EXPECT_EQ(m.ScreenBuffer[shown - 16], 15);

    s.result(c_setgraphmode, {1});
    s.refreshed();
    s.clear(3);
    s.call(c_fade, {0});  // mono: nothing
    EXPECT_TRUE(s.differ(kVisible, 3).empty());
    EXPECT_FALSE(s.refreshed());
}

TEST(Screen, ClearScreenFillsTheBufferAndScrollShowsIt) {
    Scr s(kColour);
    Machine& m = *s.m;
    s.clear(9);
    s.call(c_setbgcolor, {0x105});
    s.call(c_clearscreen, {});
    EXPECT_FALSE(s.refreshed());
    EXPECT_TRUE(s.differ(kVisible, 9).empty());
    EXPECT_EQ(s.differ(kBuffer, 9), span(0, 159, 0, 79));
    EXPECT_EQ(s.px(kBuffer, 159, 79), 5);
    s.px(kBuffer, 319, 239) = 44;  // outside the screen, still copied
    s.call(scroll_to_lcd, {});
    EXPECT_TRUE(s.refreshed());
    EXPECT_EQ(std::memcmp(m.ScreenBuffer, m.ScreenBuffer + kPlaneSize, kPlaneSize), 0);
    s.result(c_setgraphmode, {1});
    s.call(c_clearscreen, {});  // mono clears to paper whatever bgcolor holds
    EXPECT_EQ(s.px(kBuffer, 0, 0), 0);
}

// ---- Pixels, runs and planes ----

TEST(Draw, CommandsStoreOrInvertWithColoursMaskedByMode) {
    struct Case {
        uint8_t mode;
        int64_t bg_arg, fg_arg;
        uint8_t start, bg, fg, inverted;
    };
    const Case cases[] = {{kMono, 5, 7, 1, 0, 1, 0}, {kGrey, 0x13, 0x1F9, 5, 3, 9, 10}, {kColour, 0x112, 0x1AB, 0x5A, 0x12, 0xAB, 0xA5}};
    for (const Case& c : cases) {
        Scr s(c.mode);
        s.call(c_setbgcolor, {c.bg_arg});
        s.call(c_setfgcolor, {c.fg_arg});
        const uint8_t want[4] = {c.bg, c.fg, c.inverted, c.start};
        for (int cmd = 0; cmd < 4; ++cmd) {
            SCOPED_TRACE(testing::Message() << "mode flags " << int(c.mode) << " command " << cmd);
            s.clear(c.start);
            s.call(c_point, {7, 6, cmd});
            s.call(c_block, {2, 3, 4, 4, 0x40 | cmd});  // runs
            const Pts drawn = span(2, 4, 3, 4) + Pts{{7, 6}};
            EXPECT_EQ(s.differ(kVisible, c.start), c.start == want[cmd] ? Pts{} : drawn);
            EXPECT_EQ(s.px(kVisible, 7, 6), want[cmd]);
            EXPECT_EQ(s.px(kVisible, 4, 4), want[cmd]);
        }
    }
}

TEST(Draw, PlaneBitHasOppositeSensesAcrossCalls) {
    struct Case {
        Call fn;
        std::initializer_list<int64_t> args;  // without the type
        int visible_when;                     // 0: bit 0x40 clear, 1: set, 2: always
    };
    const Case cases[] = {
        {c_point, {5, 5}, 0},           {c_line, {1, 1, 8, 4}, 0},    {c_circle, {20, 20, 5, 0}, 0},
        {c_ellipse, {20, 20, 6, 3, 1}, 0}, {c_block, {1, 1, 4, 4}, 1}, {c_rectangle, {1, 1, 4, 4}, 1},
        {c_box, {1, 1, 4, 4, 1}, 2},
    };
    for (const Case& c : cases) {
        for (const int64_t type : {0x01, 0x41}) {
            SCOPED_TRACE(testing::Message() << "case " << (&c - cases) << " type " << type);
            Scr s(kMono);
            for (int64_t a : c.args) push_cell(*s.m, static_cast<uint32_t>(a));
            push_cell(*s.m, static_cast<uint32_t>(type));
            c.fn(*s.m);
            EXPECT_EQ(s.depth(), 0);
            const bool visible = c.visible_when == 2 || (c.visible_when == 1) == ((type & 0x40) != 0);
            EXPECT_EQ(s.differ(kVisible, 0).empty(), !visible);
            EXPECT_EQ(s.differ(kBuffer, 0).empty(), visible);
            EXPECT_EQ(s.refreshed(), visible);
        }
    }
}

TEST(Draw, GetPointReadsTheVisiblePlaneAndNeverOutsideThePlanes) {
    Scr s(kColour);
    s.px(kVisible, 5, 5) = 7;
    s.px(kBuffer, 5, 5) = 9;
    s.call(c_point, {6, 6, 0x41});  // leaves the buffer plane selected
    EXPECT_EQ(s.result(c_getpoint, {5, 5}), 7u);
    s.px(kVisible, 300, 200) = 0x31;  // beyond the 160 x 80 screen: not checked
    EXPECT_EQ(s.result(c_getpoint, {300, 200}), 0x31u);
    s.m->ScreenBuffer[65535] = 0x77;  // x = -1 reads as 65,535
    EXPECT_EQ(s.result(c_getpoint, {-1, 0}), 0x77u);
    EXPECT_EQ(s.result(c_getpoint, {0xFFFF, 0xFFFF}), 0u);
    EXPECT_FALSE(s.refreshed());
}

// ---- Lines, rectangles, circles and ellipses ----

// The pixels each call sets on a cleared monochrome 160 x 80 screen.
TEST(Draw, ShapesPixelByPixel) {
    Pts diag, ring = span(2, 4, 2, 4);
    for (int i = 0; i < 10; ++i) diag.insert({150 + i, i});
    ring.erase({3, 3});
    const Pts r2 = span(18, 18, 18, 22) + span(22, 22, 18, 22) + Pts{{20, 18}, {20, 22}};
    const struct {
        Call fn;
        std::initializer_list<int64_t> args;
        Pts want;
    } cases[] = {
        {c_line, {0, 0, 3, 1, 1}, {{0, 0}, {1, 0}, {2, 0}, {3, 1}}},
        {c_line, {3, 1, 0, 0, 1}, {{0, 0}, {1, 0}, {2, 0}, {3, 1}}},
        {c_line, {0, 0, 7, 2, 1}, {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 1}, {5, 1}, {6, 1}, {7, 2}}},
        {c_line, {0, 0, 1, 3, 1}, {{0, 0}, {0, 1}, {0, 2}, {1, 3}}},
        {c_line, {10, 10, 13, 7, 1}, {{10, 10}, {11, 9}, {12, 8}, {13, 7}}},
        {c_line, {12, 5, 10, 10, 1}, {{10, 10}, {10, 9}, {10, 8}, {11, 7}, {11, 6}, {12, 5}}},
        {c_line, {20, 5, 15, 7, 1}, {{15, 7}, {16, 7}, {17, 7}, {18, 6}, {19, 6}, {20, 5}}},
        {c_line, {5, 5, 5, 5, 1}, {{5, 5}}},
        {c_line, {7, 2, 7, 0, 1}, span(7, 7, 0, 2)},
        {c_line, {9, 4, 6, 4, 1}, span(6, 9, 4, 4)},
        {c_line, {150, 3, 400, 3, 1}, span(150, 159, 3, 3)},
        {c_line, {-5, 3, 3, 3, 1}, span(3, 159, 3, 3)},  // x0 = 65,531: the run goes right from 3
        {c_line, {200, 3, 300, 3, 1}, {}},
        {c_line, {5, 200, 9, 200, 1}, {}},
        {c_line, {150, 0, 170, 20, 1}, diag},
        {c_line, {5, 0, 5, 0xFFFF, 1}, span(5, 5, 0, 79)},  // ends at row 65,535
        {c_line, {-2, 0, 2, 4, 1}, span(2, 159, 4, 4)},     // to (65,534, 0): flat for 16,383 steps
        // Right and bottom sides on the last column and row.
        {c_rectangle, {150, 70, 200, 100, 0x41}, span(150, 159, 70, 70) + span(150, 159, 79, 79) + span(150, 150, 70, 79) + span(159, 159, 70, 79)},
        {c_rectangle, {200, 10, 300, 20, 0x41}, {}},
        {c_block, {5, 90, 10, 100, 0x41}, {}},
        {c_block, {-1, 0, 5, 5, 0x41}, span(5, 159, 0, 5)},  // x0 = 65,535 orders after 5
        {c_box, {4, 4, 2, 2, 1, 1}, span(2, 4, 2, 4)},
        {c_box, {4, 4, 2, 2, 0x100, 0x41}, ring},
        {c_box, {2, 2, 4, 4, 0x201, 1}, span(2, 4, 2, 4)},
        {c_circle, {20, 20, 0, 0, 1}, {{20, 20}}},
        {c_circle, {20, 20, 0, 1, 1}, {{20, 20}}},
        {c_ellipse, {20, 20, 0, 10, 0, 1}, {{20, 20}}},
        {c_circle, {20, 20, 1, 0, 1}, {{19, 20}, {21, 20}}},
        {c_circle, {20, 20, 1, 1, 1}, span(19, 21, 20, 20)},
        {c_circle, {20, 20, 2, 0, 1}, r2},
        {c_circle, {20, 20, 2, 1, 1}, span(18, 22, 18, 22)},
        {c_ellipse, {20, 20, 2, 1, 0, 1}, span(18, 18, 19, 21) + span(22, 22, 19, 21) + Pts{{20, 19}, {20, 21}}},
        {c_ellipse, {20, 20, 2, 1, 1, 1}, span(18, 22, 19, 21)},
        // Flat: the first step inwards is not plotted and no row step makes up for it.
        {c_ellipse, {20, 20, 3, 0, 0, 1}, {{17, 20}, {19, 20}, {20, 20}, {21, 20}, {23, 20}}},
    };
    for (const auto& c : cases) {
        Scr s(kMono);
        s.call(c.fn, c.args);
        EXPECT_EQ(s.differ(kVisible, 0), c.want) << "case " << (&c - cases);
    }
    // An inverting rectangle inverts its corners twice: they keep their colour.
    Scr s(kColour);
    for (const std::array<int64_t, 4> r : {std::array<int64_t, 4>{2, 2, 6, 5}, {6, 5, 2, 2}}) {
        s.clear(0x0F);
        s.call(c_rectangle, {r[0], r[1], r[2], r[3], 0x42});
        EXPECT_EQ(s.differ(kVisible, 0x0F), span(3, 5, 2, 2) + span(3, 5, 5, 5) + span(2, 2, 3, 4) + span(6, 6, 3, 4));
        EXPECT_EQ(s.px(kVisible, 3, 2), 0xF0);
    }
}

// ---- Hostile arguments ----

TEST(Draw, WildArgumentsStayInsideTheScreenAndKeepTheStack) {
    Scr s(kColour);
    Machine& m = *s.m;
    // Everything outside the 160 x 80 screen of the visible plane, and the
    // whole buffer plane, must keep this pattern.
    for (size_t i = 0; i < sizeof m.ScreenBuffer; ++i) m.ScreenBuffer[i] = static_cast<uint8_t>(i * 7 + 1);
    uint8_t palette[768];
    std::memcpy(palette, m.palette, sizeof palette);

    const int64_t edges[] = {0, 1, 79, 80, 159, 160, 239, 240, 319, 320, 32767, 32768, 65535, 65536, -1, -32768, 0x7FFFFFFF, 0xFFFFFFFF};
    std::mt19937 rng(7);
    auto arg = [&] { return rng() % 3 ? edges[rng() % std::size(edges)] : static_cast<int64_t>(rng()); };
    auto radius = [&] { return rng() % 8 ? int64_t(rng() % 400) : arg(); };
    for (int i = 0; i < 300; ++i) {
        const int type = static_cast<int>(rng() % 4);  // visible plane only
        switch (rng() % 9) {
            case 0: s.call(c_point, {arg(), arg(), type}); break;
            case 1: s.call(c_line, {arg(), arg(), arg(), arg(), type}); break;
            case 2: s.call(c_block, {arg(), arg(), arg(), arg(), 0x40 | type}); break;
            case 3: s.call(c_rectangle, {arg(), arg(), arg(), arg(), 0x40 | type}); break;
            case 4: s.call(c_box, {arg(), arg(), arg(), arg(), arg(), type}); break;
            case 5: s.call(c_circle, {arg(), arg(), radius(), arg(), type}); break;
            case 6: s.call(c_ellipse, {arg(), arg(), radius(), radius(), arg(), type}); break;
            case 7: s.call(c_fill, {arg(), arg(), arg()}); break;
            default: s.result(c_getpoint, {arg(), arg()}); break;
        }
        ASSERT_EQ(s.depth(), 0) << i;
    }
    // The largest shapes, outlined and filled, end.
    s.call(c_circle, {-32768, 32767, 65535, 0, 2});
    s.call(c_ellipse, {100, 50, 65535, 32768, 1, 2});
    s.call(c_ellipse, {0, 0, 32768, 65535, 0, 2});
    for (size_t i = 0; i < sizeof m.ScreenBuffer; ++i) {
        const bool off_screen = i >= 80 * 320 || i % 320 >= 160;
        ASSERT_TRUE(!off_screen || m.ScreenBuffer[i] == static_cast<uint8_t>(i * 7 + 1)) << i;
    }
    EXPECT_EQ(std::memcmp(palette, m.palette, sizeof palette), 0);

    // A screen size written out of range is still held to the planes.
    m.ScreenWidth = 5000;
    m.ScreenHeight = 5000;
    s.call(c_block, {0, 0, 65535, 65535, 0x41});
    s.call(c_clearscreen, {});
    EXPECT_TRUE(s.differ(kVisible, 255).empty());
    EXPECT_TRUE(s.differ(kBuffer, 0).empty());
}

}  // namespace
