// Frame conversion: colour table, 1:1 placement, the scalers and their
// choice, the grid colours, clearing and the guards against odd surfaces.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "surface_harness.h"
#include "tools/run/screenshot.h"
#include "vm/machine.h"

namespace {

// A machine whose colour table maps index i to 0x1000 + i, with the guest
// pixel at (x, y) holding (x + 2y) & 0xFF on a w x h screen.
std::unique_ptr<Machine> patterned(int w, int h) {
    auto m = std::make_unique<Machine>();
    m->ScreenWidth = w;
    m->ScreenHeight = h;
    for (int i = 0; i < 256; ++i) m->pal[i] = uint16_t(0x1000 + i);
    for (int y = 0; y < 240; ++y)
        for (int x = 0; x < 320; ++x) m->ScreenBuffer[y * 320 + x] = uint8_t(x + 2 * y);
    return m;
}

uint16_t colour_at(int x, int y) { return uint16_t(0x1000 + ((x + 2 * y) & 0xFF)); }

// A mono machine through the real mode-1 palette.
std::unique_ptr<Machine> mono(int w, int h) {
    auto m = std::make_unique<Machine>();
    m->graph_mode = 1;
    m->ScreenWidth = w;
    m->ScreenHeight = h;
    SetPalette(*m);
    SetSDLPalette(*m);
    return m;
}

// k eighths of a and the rest of b, per 5-6-5 field.
uint16_t blend(uint16_t a, uint16_t b, int k) {
    auto mix = [&](int shift, int mask) { return ((k * ((a >> shift) & mask) + (8 - k) * ((b >> shift) & mask)) >> 3) << shift; };
    return uint16_t(mix(11, 31) | mix(5, 63) | mix(0, 31));
}

// Checks that guest pixel (gx, gy) became an f x f block at (ox + f*gx, oy + f*gy).
void expect_block(const TestSurface& t, int ox, int oy, int f, int gx, int gy, uint16_t c) {
    for (int dy = 0; dy < f; ++dy)
        for (int dx = 0; dx < f; ++dx)
            ASSERT_EQ(t.at(ox + f * gx + dx, oy + f * gy + dy), c) << "guest " << gx << "," << gy << " +" << dx << "," << dy;
}

}  // namespace

TEST(Present, ColourTablePacksBlueLowRedHighAndWaitsForTheFlag) {
    auto m = std::make_unique<Machine>();
    m->palette[3 * 7] = 0xFF;      // blue
    m->palette[3 * 7 + 1] = 0x03;  // green below one step: dropped
    m->palette[3 * 7 + 2] = 0x0F;  // red 1 after dropping three bits
    m->palette_change = 1;
    SetSDLPalette(*m);
    EXPECT_EQ(m->pal[7], 0x001F | 1 << 11);
    EXPECT_EQ(m->palette_change, 0);

    // Without the flag a palette change is not seen, in the table or the frame.
    m->ScreenWidth = 320;
    m->ScreenHeight = 240;
    std::fill_n(m->ScreenBuffer, kPlaneSize, 7);
    m->palette[3 * 7] = 0;
    SetSDLPalette(*m);
    TestSurface t(320, 240);
    DmaRefresh(*m, &t.s);
    EXPECT_EQ(t.at(5, 5), 0x001F | 1 << 11);
    calcPalette(*m);
    SetSDLPalette(*m);
    DmaRefresh(*m, &t.s);
    EXPECT_EQ(t.at(5, 5), 1 << 11);
}

TEST(Present, OneToOneCentresOnTheFullSizeSurface) {
    auto m = patterned(160, 80);
    TestSurface t(320, 240);
    DmaRefresh(*m, &t.s);
    EXPECT_EQ(t.at(80, 80), colour_at(0, 0));
    EXPECT_EQ(t.at(239, 159), colour_at(159, 79));
    EXPECT_EQ(t.at(100, 90), colour_at(20, 10));
    EXPECT_EQ(t.at(79, 80), kUntouched);
    EXPECT_EQ(t.at(240, 80), kUntouched);  // plane columns beyond the width are not shown
    EXPECT_EQ(t.at(80, 79), kUntouched);
    EXPECT_EQ(t.at(80, 160), kUntouched);
    EXPECT_TRUE(t.margins_untouched());

    // A 240x160 screen is shown 1:1 on 320x240 too, never enlarged.
    m->ScreenWidth = 240;
    m->ScreenHeight = 160;
    DmaRefresh(*m, &t.s);
    EXPECT_EQ(t.at(40, 40), colour_at(0, 0));
    EXPECT_EQ(t.at(279, 199), colour_at(239, 159));
}

TEST(Present, NarrowSurfaceCropsBothSidesEqually) {
    auto m = patterned(160, 80);
    TestSurface t(100, 240);  // scale min(0, 3) = 0: the 1:1 path
    DmaRefresh(*m, &t.s);
    EXPECT_EQ(t.at(0, 80), colour_at(30, 0));
    EXPECT_EQ(t.at(99, 159), colour_at(129, 79));
    EXPECT_EQ(t.at(0, 79), kUntouched);
    EXPECT_TRUE(t.margins_untouched());

    // Lower than the screen as well: the middle rows, nothing written outside.
    TestSurface low(150, 50);
    DmaRefresh(*m, &low.s);
    EXPECT_EQ(low.at(0, 0), colour_at(5, 15));
    EXPECT_EQ(low.at(149, 49), colour_at(154, 64));
    EXPECT_TRUE(low.margins_untouched());
}

TEST(Present, FactorThreeWithoutGridIsCentredBlocks) {
    auto m = patterned(160, 80);  // mode 8
    TestSurface t(480, 400);      // scale min(3, 5) = 3, picture 480x240 at row 80
    DmaRefresh(*m, &t.s);
    expect_block(t, 0, 80, 3, 0, 0, colour_at(0, 0));
    expect_block(t, 0, 80, 3, 1, 0, colour_at(1, 0));
    expect_block(t, 0, 80, 3, 57, 33, colour_at(57, 33));
    expect_block(t, 0, 80, 3, 159, 79, colour_at(159, 79));
    EXPECT_EQ(t.at(0, 79), kUntouched);
    EXPECT_EQ(t.at(0, 320), kUntouched);
    EXPECT_TRUE(t.margins_untouched());

    // Mode 1 with the grid switched off also takes the plain scaler.
    auto g = mono(160, 80);
    g->use_grid = 0;
    g->ScreenBuffer[0] = 1;
    DmaRefresh(*g, &t.s);
    expect_block(t, 0, 80, 3, 0, 0, g->pal[1]);
    expect_block(t, 0, 80, 3, 1, 0, g->pal[0]);
}

TEST(Present, MonoGridBlendsInkEdgesAndLeavesPaperPlain) {
    auto m = mono(160, 80);
    m->ScreenBuffer[0] = 1;          // ink
    m->ScreenBuffer[320 + 1] = 255;  // a cleared mono plane: shown as ink
    TestSurface t(480, 400);
    DmaRefresh(*m, &t.s);
    const uint16_t paper = m->pal[0], ink = m->pal[1];
    const uint16_t edge = blend(paper, ink, 3);
    EXPECT_EQ(edge, 0x3A47);  // 3/8 of (173,193,173) in 5-6-5
    for (int gy = 0; gy < 2; ++gy) {
        const int gx = gy;  // (0,0) holds 1, (1,1) holds 255
        for (int dy = 0; dy < 3; ++dy)
            for (int dx = 0; dx < 3; ++dx)
                EXPECT_EQ(t.at(3 * gx + dx, 80 + 3 * gy + dy), dx == 2 || dy == 2 ? edge : ink) << gx << " " << dx << "," << dy;
    }
    expect_block(t, 0, 80, 3, 1, 0, paper);
    expect_block(t, 0, 80, 3, 159, 79, paper);
    EXPECT_TRUE(t.margins_untouched());

    // The paper share stops at 6/8 from factor 6 on.
    uint16_t grid[2];
    calc_grid(*m, grid, 5);
    EXPECT_EQ(grid[1], blend(paper, ink, 5));
    calc_grid(*m, grid, 9);
    EXPECT_EQ(grid[0], paper);
    EXPECT_EQ(grid[1], blend(paper, ink, 6));
}

TEST(Present, FactorFourInMonoWithGridTakesTheGeneralGridScaler) {
    auto m = mono(160, 80);
    m->ScreenBuffer[0] = 1;
    // Make palette entry 2 (the fixed 4x scaler's line colour) tell the two apart.
    m->palette[6] = 0xFF, m->palette[7] = 0, m->palette[8] = 0;
    calcPalette(*m);
    SetSDLPalette(*m);
    TestSurface t(640, 320);  // scale 4
    DmaRefresh(*m, &t.s);
    EXPECT_EQ(t.at(0, 0), m->pal[1]);
    EXPECT_EQ(t.at(3, 0), blend(m->pal[0], m->pal[1], 4));
    EXPECT_EQ(t.at(0, 3), blend(m->pal[0], m->pal[1], 4));

    // Called directly, the fixed scaler draws its own grid from entry 2.
    t.reset();
    Scale4X(*m, t.s);
    EXPECT_EQ(t.at(2, 2), m->pal[1]);
    EXPECT_EQ(t.at(3, 1), 0x001F);
    EXPECT_EQ(t.at(1, 3), 0x001F);
    EXPECT_EQ(t.at(7, 3), m->pal[0]);  // paper keeps paper lines
    EXPECT_TRUE(t.margins_untouched());
}

TEST(Present, FixedFactorsTwoAndFour) {
    auto m = patterned(160, 80);
    TestSurface two(330, 250);  // scale 2: picture 320x160 at (5, 45)
    DmaRefresh(*m, &two.s);
    expect_block(two, 5, 45, 2, 0, 0, colour_at(0, 0));
    expect_block(two, 5, 45, 2, 77, 41, colour_at(77, 41));
    expect_block(two, 5, 45, 2, 159, 79, colour_at(159, 79));
    EXPECT_EQ(two.at(4, 45), kUntouched);
    EXPECT_EQ(two.at(325, 45), kUntouched);
    EXPECT_TRUE(two.margins_untouched());

    TestSurface four(641, 330);  // scale 4: picture 640x320 at (0, 5)
    DmaRefresh(*m, &four.s);
    expect_block(four, 0, 5, 4, 0, 0, colour_at(0, 0));
    expect_block(four, 0, 5, 4, 100, 50, colour_at(100, 50));
    expect_block(four, 0, 5, 4, 159, 79, colour_at(159, 79));
    EXPECT_EQ(four.at(640, 5), kUntouched);
    EXPECT_TRUE(four.margins_untouched());

    // Factor 5 goes to the general scaler.
    TestSurface five(800, 400);
    DmaRefresh(*m, &five.s);
    expect_block(five, 0, 0, 5, 3, 2, colour_at(3, 2));
    expect_block(five, 0, 0, 5, 159, 79, colour_at(159, 79));
}

TEST(Present, NeedCleanClearsTheWholeSurfaceOnce) {
    auto m = patterned(160, 80);
    ClearNdsScreen(*m);
    EXPECT_EQ(m->need_clean, 1);
    TestSurface t(320, 240);
    DmaRefresh(*m, &t.s);
    EXPECT_EQ(t.at(0, 0), 0);
    EXPECT_EQ(t.at(319, 239), 0);
    EXPECT_EQ(t.at(320, 5), 0);  // the row padding too
    EXPECT_EQ(m->need_clean, 0);
    t.reset();
    DmaRefresh(*m, &t.s);
    EXPECT_EQ(t.at(0, 0), kUntouched);
}

TEST(Present, OddSurfacesAndScreenSizesStayInBounds) {
    auto m = patterned(160, 80);
    DmaRefresh(*m, nullptr);
    Surface16 empty;
    DmaRefresh(*m, &empty);

    TestSurface bad_pitch(64, 64);
    bad_pitch.s.pitch = 100;  // less than two bytes per pixel
    DmaRefresh(*m, &bad_pitch.s);
    EXPECT_EQ(bad_pitch.at(0, 0), kUntouched);

    // Scalers called directly with a picture too large draw nothing.
    TestSurface small(40, 20);
    ScaleX(*m, small.s, 3);
    ScaleX(*m, small.s, 1 << 28);
    ScaleX_grid(*m, small.s, 3);
    Scale2X(*m, small.s);
    Scale4X(*m, small.s);
    DmaRefresh(*m, &small.s);  // 1:1, cropped both ways
    EXPECT_EQ(small.at(0, 0), colour_at(60, 30));
    EXPECT_TRUE(small.margins_untouched());

    // Sizes beyond a plane read as the whole plane.
    m->ScreenWidth = 5000;
    m->ScreenHeight = 5000;
    TestSurface full(320, 240);
    DmaRefresh(*m, &full.s);
    EXPECT_EQ(full.at(319, 239), colour_at(319, 239));
    m->ScreenWidth = -4;
    full.reset();
    DmaRefresh(*m, &full.s);
    EXPECT_TRUE(full.margins_untouched());
    EXPECT_EQ(full.at(0, 0), kUntouched);
}

TEST(Screenshot, GuestPictureUsesThePaletteTripletsAtGuestSize) {
    auto m = mono(160, 80);
    m->ScreenBuffer[0] = 0;
    m->ScreenBuffer[1] = 1;
    m->ScreenBuffer[320 + 2] = 255;  // a cleared mono plane reads as ink
    m->ScreenBuffer[160] = 1;        // dead space beyond the width: not shown
    const RgbImage img = guest_picture(*m);
    ASSERT_EQ(img.w, 160);
    ASSERT_EQ(img.h, 80);
    ASSERT_EQ(img.rgb.size(), 160u * 80 * 3);
    const std::vector<uint8_t> paper{173, 193, 173}, ink{0, 0, 0};
    auto px = [&](int x, int y) { return std::vector<uint8_t>(&img.rgb[size_t(3 * (y * 160 + x))], &img.rgb[size_t(3 * (y * 160 + x) + 3)]); };
    EXPECT_EQ(px(0, 0), paper);
    EXPECT_EQ(px(1, 0), ink);
    EXPECT_EQ(px(2, 1), ink);
    EXPECT_EQ(px(159, 0), paper);
    EXPECT_EQ(px(0, 1), paper);

    // Red-first guest record: red lands first in the picture.
    m->graph_mode = 8;
    m->palette[3 * 9] = 10, m->palette[3 * 9 + 1] = 20, m->palette[3 * 9 + 2] = 30;
    m->ScreenBuffer[0] = 9;
    EXPECT_EQ(guest_picture(*m).rgb[0], 30);
    EXPECT_EQ(guest_picture(*m).rgb[2], 10);
}

TEST(Screenshot, PresentedFrameWidensFiveSixFiveAndKeepsNeedClean) {
    auto m = mono(160, 80);
    m->ScreenBuffer[0] = 1;
    m->need_clean = 1;
    const RgbImage img = presented_frame(*m, 480, 400);
    EXPECT_EQ(m->need_clean, 1);
    ASSERT_EQ(img.w, 480);
    ASSERT_EQ(img.h, 400);
    auto px = [&](int x, int y) { return std::vector<uint8_t>(&img.rgb[size_t(3 * (y * 480 + x))], &img.rgb[size_t(3 * (y * 480 + x) + 3)]); };
    EXPECT_EQ(px(0, 80), (std::vector<uint8_t>{0, 0, 0}));
    EXPECT_EQ(px(2, 80), (std::vector<uint8_t>{57, 73, 57}));     // 0x3A47: top bits repeated
    EXPECT_EQ(px(3, 80), (std::vector<uint8_t>{173, 195, 173}));  // paper after 5-6-5
    EXPECT_EQ(px(0, 0), (std::vector<uint8_t>{0, 0, 0}));         // outside the picture
    m->palette[0] = m->palette[1] = m->palette[2] = 255;
    calcPalette(*m);
    EXPECT_EQ(presented_frame(*m, 480, 400).rgb[3 * (80 * 480 + 3)], 255);  // white widens to 255
    EXPECT_TRUE(presented_frame(*m, 0, 10).rgb.empty());
}

TEST(Screenshot, PngRoundTripComparisonAndPlaneDump) {
    const std::string dir = ::testing::TempDir();
    auto m = patterned(160, 80);
    m->graph_mode = 8;
    SetPalette(*m);
    const RgbImage img = guest_picture(*m);
    std::string error;
    ASSERT_TRUE(write_png(img, dir + "/shot.png", &error)) << error;
    RgbImage back;
    ASSERT_TRUE(read_png(dir + "/shot.png", &back, &error)) << error;
    EXPECT_TRUE(same_pixels(img, back, &error)) << error;

    RgbImage other = back;
    other.rgb[3 * (5 * 160 + 7) + 1] ^= 1;
    EXPECT_FALSE(same_pixels(back, other, &error));
    EXPECT_NE(error.find("(7,5)"), std::string::npos) << error;
    other.h = 79;
    EXPECT_FALSE(same_pixels(back, other, &error));
    EXPECT_FALSE(read_png(dir + "/missing.png", &back, &error));
    EXPECT_FALSE(write_png(img, dir + "/no/such/dir/x.png", &error));

    m->ScreenBuffer[2 * kPlaneSize - 1] = 0x5A;
    ASSERT_TRUE(dump_planes(*m, dir + "/planes.bin", &error)) << error;
    FILE* f = std::fopen((dir + "/planes.bin").c_str(), "rb");
    ASSERT_NE(f, nullptr);
    std::vector<uint8_t> bytes(2 * kPlaneSize + 1);
    EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), f), size_t(2 * kPlaneSize));
    std::fclose(f);
    EXPECT_EQ(bytes[321], m->ScreenBuffer[321]);
    EXPECT_EQ(bytes[2 * kPlaneSize - 1], 0x5A);
}
