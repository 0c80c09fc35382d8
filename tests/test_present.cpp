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

// Where the picture lands and how far it is enlarged: 1:1 on 320 x 240
// (centred, cropped to the middle where the surface is smaller), else the
// largest whole factor that fits, centred.
TEST(Present, PlacementAndScaleByScreenAndSurfaceSize) {
    const struct { int w, h, mode, sw, sh, ox, oy, f, pw, ph, sx, sy; } cases[] = {
        {160, 80, 8, 320, 240, 80, 80, 1, 160, 80, 0, 0}, {240, 160, 8, 320, 240, 40, 40, 1, 240, 160, 0, 0},
        {160, 80, 8, 100, 240, 0, 80, 1, 100, 80, 30, 0}, {160, 80, 8, 150, 50, 0, 0, 1, 150, 50, 5, 15},
        {160, 80, 8, 480, 400, 0, 80, 3, 160, 80, 0, 0},  {160, 80, 8, 330, 250, 5, 45, 2, 160, 80, 0, 0},
        {160, 80, 8, 641, 330, 0, 5, 4, 160, 80, 0, 0},   {160, 80, 8, 805, 400, 2, 0, 5, 160, 80, 0, 0},
        {160, 80, 1, 480, 400, 0, 80, 3, 160, 80, 0, 0},  // mono with the grid off: the plain scaler
        {5000, 5000, 8, 320, 240, 0, 0, 1, 320, 240, 0, 0},  // read as the whole plane
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " on " << c.sw << "x" << c.sh);
        auto m = patterned(c.w, c.h);
        m->graph_mode = static_cast<uint8_t>(c.mode);
        m->grid = false;
        TestSurface t(c.sw, c.sh);
        DmaRefresh(*m, &t.s);
        expect_picture(t, c.ox, c.oy, c.f, c.pw, c.ph, c.sx, c.sy);
    }
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

    m->width = -4;
    TestSurface full(320, 240);
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
