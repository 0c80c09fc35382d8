// Frame conversion: colour table, 1:1 placement, the scalers and their
// choice, the grid colours, clearing, odd surfaces; screenshots.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "surface_harness.h"
#include "tools/run/screenshot.h"
#include "vm/machine.h"

namespace {

// Colour table i -> 0x1000 + i; guest pixel (x, y) holds (x + 2y) & 0xFF.
std::unique_ptr<Frame> patterned(int w, int h) {
    auto f = std::make_unique<Frame>();
    f->width = w;
    f->height = h;
    for (int i = 0; i < 256; ++i) f->pal[i] = uint16_t(0x1000 + i);
    for (int y = 0; y < 240; ++y)
        for (int x = 0; x < 320; ++x) f->pixels[y * 320 + x] = uint8_t(x + 2 * y);
    return f;
}
uint16_t colour_at(int x, int y) { return uint16_t(0x1000 + ((x + 2 * y) & 0xFF)); }

// The patterned w x h picture enlarged f times at (ox, oy), source columns
// from sx on, and nothing written anywhere else.
void expect_picture(const TestSurface& t, int ox, int oy, int f, int w, int h, int sx = 0, int sy = 0) {
    for (int y = 0; y < t.h; ++y)
        for (int x = 0; x < t.w; ++x) {
            const bool in = x >= ox && y >= oy && x < ox + f * w && y < oy + f * h;
            const uint16_t want = in ? colour_at(sx + (x - ox) / f, sy + (y - oy) / f) : kUntouched;
            ASSERT_EQ(t.at(x, y), want) << "at " << x << "," << y;
        }
    ASSERT_TRUE(t.margins_untouched());
}

}  // namespace

TEST(Present, OneToOneCentresAndCropsTheMiddle) {
    auto m = patterned(160, 80);
    TestSurface full(320, 240);  // always 1:1, here at column 80, row 80
    DmaRefresh(*m, &full.s);
    expect_picture(full, 80, 80, 1, 160, 80);
    m->width = 240, m->height = 160;
    full.reset();
    DmaRefresh(*m, &full.s);
    expect_picture(full, 40, 40, 1, 240, 160);

    m->width = 160, m->height = 80;
    TestSurface narrow(100, 240);  // scale 0: cropped by 30 columns each side
    DmaRefresh(*m, &narrow.s);
    expect_picture(narrow, 0, 80, 1, 100, 80, 30);
    TestSurface low(150, 50);  // lower too: the middle rows
    DmaRefresh(*m, &low.s);
    expect_picture(low, 0, 0, 1, 150, 50, 5, 15);
}

TEST(Present, ScalerChoiceAndGeometryByFactor) {
    auto m = patterned(160, 80);  // mode 8
    TestSurface three(480, 400);  // min(3, 5): 480x240 at row 80
    DmaRefresh(*m, &three.s);
    expect_picture(three, 0, 80, 3, 160, 80);
    TestSurface two(330, 250);
    DmaRefresh(*m, &two.s);
    expect_picture(two, 5, 45, 2, 160, 80);
    TestSurface four(641, 330);
    DmaRefresh(*m, &four.s);
    expect_picture(four, 0, 5, 4, 160, 80);
    TestSurface five(805, 400);
    DmaRefresh(*m, &five.s);
    expect_picture(five, 2, 0, 5, 160, 80);

    // Mono with the grid off takes the plain scalers as well.
    m->graph_mode = 1;
    m->grid = false;
    three.reset();
    DmaRefresh(*m, &three.s);
    expect_picture(three, 0, 80, 3, 160, 80);
}

// The grid look at factors 3 and 4 through DmaRefresh is pinned by the
// screen_reset and mono_grid_frame pictures.
TEST(Present, GridShareStopsAtSixEighthsAndTheFixedFourTimesScalerDrawsLines) {
    auto m = std::make_unique<Machine>();
    m->graph_mode = 1;
    SetPalette(*m);
    m->palette[6] = 0xFF, m->palette[7] = m->palette[8] = 0;  // entry 2 blue
    m->ScreenBuffer[0] = 1;
    present_frame(*m);
    const Frame& f = *m->frame;
    const uint16_t paper = f.pal[0], ink = f.pal[1];
    uint16_t grid[2];
    calc_grid(f, grid, 9);
    EXPECT_EQ(grid[1], 0x7C8F);  // 6/8 of the paper (21, 48, 21), rounded down, and black

    // Called directly, the fixed scaler draws entry 2 on the last column and
    // row of every block.
    TestSurface f4(640, 320);
    Scale4X(f, f4.s);
    EXPECT_EQ(f4.at(2, 2), ink);
    EXPECT_EQ(f4.at(3, 1), 0x001F);
    EXPECT_EQ(f4.at(1, 3), 0x001F);
    EXPECT_EQ(f4.at(7, 3), paper);

    // A frame asking for a clean clears the whole surface first.
    auto c = patterned(160, 80);
    c->clean = true;
    TestSurface t(320, 240);
    DmaRefresh(*c, &t.s);
    EXPECT_EQ(t.at(0, 0), 0);
    EXPECT_EQ(t.at(320, 239), 0);  // row padding included
}

TEST(Present, OddSurfacesAndScreenSizesStayInBounds) {
    auto m = patterned(160, 80);
    DmaRefresh(*m, nullptr);
    Surface16 empty;
    DmaRefresh(*m, &empty);
    TestSurface t(40, 20);
    t.s.pitch = 60;  // under two bytes a pixel: left alone
    DmaRefresh(*m, &t.s);
    EXPECT_EQ(t.at(0, 0), kUntouched);
    t.s.pitch = 86;
    ScaleX(*m, t.s, 3);  // direct calls with a picture too large draw nothing
    ScaleX(*m, t.s, 1 << 28);
    ScaleX_grid(*m, t.s, 3);
    Scale2X(*m, t.s);
    Scale4X(*m, t.s);
    EXPECT_EQ(t.at(0, 0), kUntouched);
    EXPECT_TRUE(t.margins_untouched());

    m->width = m->height = 5000;  // read as the whole plane
    TestSurface full(320, 240);
    DmaRefresh(*m, &full.s);
    expect_picture(full, 0, 0, 1, 320, 240);
    m->width = -4;
    full.reset();
    DmaRefresh(*m, &full.s);
    EXPECT_EQ(full.at(0, 0), kUntouched);
}

// Pictures are written, read and compared by the program tests; a differing
// pixel and the failures are not.
TEST(Screenshot, ComparisonNamesTheFirstDifferingPixel) {
    const std::string dir = ::testing::TempDir();
    auto m = patterned(160, 80);
    for (int i = 0; i < 768; ++i) m->palette[i] = uint8_t(i * 7);
    const RgbImage img = guest_picture(*m);
    std::string error;
    ASSERT_TRUE(write_png(img, dir + "/shot.png", &error)) << error;
    RgbImage back;
    ASSERT_TRUE(read_png(dir + "/shot.png", &back, &error)) << error;
    EXPECT_TRUE(same_pixels(img, back, &error)) << error;
    back.rgb[3 * (5 * 160 + 7) + 1] ^= 1;
    EXPECT_FALSE(same_pixels(img, back, &error));
    EXPECT_NE(error.find("(7,5)"), std::string::npos) << error;
    EXPECT_FALSE(read_png(dir + "/missing.png", &back, &error));
    EXPECT_FALSE(write_png(img, dir + "/no/such/dir/x.png", &error));
    EXPECT_TRUE(presented_frame(*m, 0, 10).rgb.empty());
}
