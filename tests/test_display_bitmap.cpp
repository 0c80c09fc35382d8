// Bitmap transfer: c_writeblock (mirroring, clipping, draw modes),
// c_getblock (row widths, packing) and c_xdraw.
#include <vector>

#include "display/bitmap.h"
#include "display_harness.h"

namespace {

constexpr uint32_t kBmp = 0x3000;

// Rows of the visible plane after one c_writeblock on a cleared screen:
// mirroring (only where rows fill whole bytes), negative coordinates that
// start inside the source, clipping at the edges (column 160 is dead space).
TEST(WriteBlock, MirroringAndClippingInEachMode) {
    struct Row { int y, x0; const char* px; };
    const std::vector<uint8_t> sevens(32, 7);
    const struct {
        int mode;
        std::vector<uint8_t> bmp;
        std::initializer_list<int64_t> args;  // x, y, width, height, type (the address follows)
        std::vector<Row> rows;
    } cases[] = {
        {1, {0xF0, 0x0F, 0xFF, 0x00}, {0, 0, 16, 2, 0x41}, {{0, 0, "11110000000011110"}, {1, 0, "11111111000000000"}}},
        {1, {0xF0, 0x0F, 0xFF, 0x00}, {0, 4, 16, 2, 0x61}, {{4, 0, "1111000000001111"}, {5, 0, "0000000011111111"}}},
        {1, {0xC0, 0x00}, {0, 8, 12, 1, 0x61}, {{8, 0, "110000000000"}}},
        {4, {0x12, 0x34, 0x50}, {0, 0, 4, 1, 0x61}, {{0, 0, "4321"}}},
        {4, {0x12, 0x34, 0x50}, {0, 1, 5, 1, 0x61}, {{1, 0, "12345"}}},
        {8, {1, 2, 3, 4, 5}, {0, 0, 5, 1, 0x61}, {{0, 0, "54321"}}},
        {1, {0x0A, 0x5C, 0xFF, 0xFF}, {65532, 0, 16, 2, 0x41}, {{0, 0, "1010010111000"}, {1, 0, "1111111111110"}}},
        {4, {0x12, 0x34, 0x56, 0x78}, {65533, 65535, 4, 2, 0x41}, {{0, 0, "80"}, {1, 0, "0"}}},
        {8, {1, 2, 3}, {65535, 0, 3, 1, 0x41}, {{0, 0, "230"}}},
        {1, {0xC0, 0x01}, {65532, 2, 16, 1, 0x61}, {{2, 0, "0000000000110"}}},  // mirrored, then cut on the left
        {8, {1, 2, 3, 4, 5}, {65534, 2, 5, 1, 0x61}, {{2, 0, "3210"}}},
        {8, {1, 2, 3}, {65533, 4, 3, 1, 0x41}, {{4, 0, "00000000"}}},
        {8, {1, 2, 3}, {4, 65535, 3, 1, 0x41}, {{0, 4, "0000"}}},
        {8, sevens, {156, 78, 8, 4, 0x41}, {{78, 154, "0077770"}, {79, 156, "7777"}, {80, 156, "0"}}},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(testing::Message() << "mode " << k.mode << " at " << *k.args.begin() << "," << k.args.begin()[1]);
        ScreenVm s(k.mode);
        for (size_t i = 0; i < k.bmp.size(); ++i) s.poke(kBmp + static_cast<uint32_t>(i), {k.bmp[i]});
        std::vector<int64_t> args(k.args);
        for (int64_t a : args) push_cell(*s.m, static_cast<uint32_t>(a));
        push_cell(*s.m, 0x10000 + kBmp);  // a 16-bit program reduces the address to 16 bits
        c_writeblock(*s.m);
        EXPECT_EQ(s.depth(), 0);
        for (const Row& r : k.rows) EXPECT_EQ(s.vis_row(r.y, r.x0, static_cast<int>(std::strlen(r.px))), r.px);
        EXPECT_EQ(s.peek(kBmp), k.bmp[0]);  // the guest's bitmap is left as it was
        EXPECT_EQ(s.refreshed(), true);
    }
    ScreenVm s(1);  // type bit 0x40 clear: the buffer plane, no refresh
    s.poke(kBmp, {0x80});
    s.call(c_writeblock, {0, 0, 8, 1, 0x01, kBmp});
    EXPECT_EQ(s.buf(0, 0), 1);
    EXPECT_EQ(s.vis(0, 0), 0);
    EXPECT_FALSE(s.refreshed());
}

// Screen byte d combined with source pixel s under each draw mode 0-15.
TEST(WriteBlock, DrawModesInEveryGraphicsMode) {
    {
        ScreenVm g(4);  // d = 10, s = 6, ~s = 9
        const uint8_t want[16] = {6, 6, 9, 14, 2, 12, 6, 6, 9, 9, 9, 11, 8, 3, 9, 9};
        g.poke(kBmp, {0x66});
        for (uint32_t cmd = 0; cmd < 16; ++cmd) {
            g.vis(0, 0) = 10;
            g.call(c_writeblock, {0, 0, 1, 1, 0x40 | cmd, kBmp});
            EXPECT_EQ(g.vis(0, 0), want[cmd]) << "mode 4, draw mode " << cmd;
        }
    }
    {
        ScreenVm c(8);  // d = 0x5A, s = 0x0F (and 0 for the transparent copy)
        const uint8_t want[16] = {0x0F, 0x0F, 0xF0, 0x5F, 0x0A, 0x55, 0x0F, 0x0F,
                                  0xF0, 0xF0, 0xF0, 0xFA, 0x50, 0xAA, 0xF0, 0xF0};
        const uint8_t want_zero[16] = {0x00, 0x00, 0xFF, 0x5A, 0x00, 0x5A, 0x5A, 0x00,
                                       0xFF, 0xFF, 0xFF, 0xFF, 0x5A, 0xA5, 0xFF, 0xFF};
        c.poke(kBmp, {0x0F, 0x00});
        for (uint32_t cmd = 0; cmd < 16; ++cmd) {
            c.vis(0, 0) = 0x5A;
            c.vis(1, 0) = 0x5A;
            c.call(c_writeblock, {0, 0, 2, 1, 0x40 | cmd, kBmp});
            EXPECT_EQ(c.vis(0, 0), want[cmd]) << "mode 8, draw mode " << cmd;
            EXPECT_EQ(c.vis(1, 0), want_zero[cmd]) << "mode 8, source 0, draw mode " << cmd;
        }
    }
    {
        ScreenVm s(1);  // source 1100 over screen 0101
        const char* want[16] = {"1100", "1100", "0011", "1101", "0100", "1001", "1100", "1100",
                                "0011", "0011", "0011", "0111", "0001", "0110", "0011", "0011"};
        s.poke(kBmp, {0xC0});
        for (uint32_t cmd = 0; cmd < 16; ++cmd) {
            for (int x = 0; x < 4; ++x) s.vis(x, 0) = static_cast<uint8_t>(x & 1);
            s.call(c_writeblock, {0, 0, 4, 1, 0x40 | cmd, kBmp});
            EXPECT_EQ(s.vis_row(0, 0, 4), want[cmd]) << "mode 1, draw mode " << cmd;
        }
    }
}

// Row widths rounded to whole bytes, negative y, areas past the store.
TEST(GetBlock, RowWidthsOffsetsAndAreasPastTheStore) {
    ScreenVm s(1);
    for (int x = 0; x < 16; ++x) s.vis(x, 0) = (x % 3 == 0) ? 1 : 0;  // 1001001001001001
    s.vis(2, 1) = 255;                                                 // any non-zero value is ink
    s.poke(kBmp, {0xEE, 0xEE, 0xEE, 0xEE});
    s.call(c_getblock, {5, 0, 12, 2, 0x40, kBmp});  // x rounds down to 0; 12 pixels give 1 byte
    const uint8_t mono[] = {0x92, 0x20, 0xEE};  // the third byte is left alone
    for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(s.peek(kBmp + i), mono[i]) << i;

    ScreenVm g(4);
    for (int x = 0; x < 12; ++x) g.buf(x, 0) = static_cast<uint8_t>(x + 1);
    g.buf(0, 1) = g.buf(1, 1) = 0x1F;  // only the low nibble of the second pixel and the low 4 bits of p * 16 count
    g.poke(kBmp, {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE});
    g.call(c_getblock, {0, 0, 12, 2, 0x00, kBmp});  // 12 pixels give 4 bytes (8 pixels)
    const uint8_t want[] = {0x12, 0x34, 0x56, 0x78, 0xFF, 0x00};
    for (uint32_t i = 0; i < 6; ++i) EXPECT_EQ(g.peek(kBmp + i), want[i]) << i;

    ScreenVm c(8);
    c.vis(3, 0) = 9;
    c.poke(kBmp + 12, {0xEE});
    c.call(c_getblock, {0, 0, 12, 1, 0x40, kBmp});
    EXPECT_EQ(c.peek(kBmp + 3), 9);
    EXPECT_EQ(c.peek(kBmp + 12), 0xEE);

    // A negative y skips destination rows.
    c.vis(0, 0) = 5, c.vis(0, 1) = 6;
    c.poke(kBmp, {0xEE, 0xEE, 0xEE, 0xEE});
    c.call(c_getblock, {0, 65535, 2, 3, 0x40, kBmp});  // y = -1: the first two bytes are skipped
    EXPECT_EQ(c.peek(kBmp), 0xEE);
    EXPECT_EQ(c.peek(kBmp + 2), 5);
    EXPECT_EQ(c.peek(kBmp + 4), 6);

    // Wholly above the screen: nothing is read and x is not taken off the stack.
    for (uint32_t a : {0u, 65534u, 2u, 2u, 0x40u, kBmp + 0x100}) push_cell(*c.m, a);
    c_getblock(*c.m);
    EXPECT_EQ(c.depth(), 1);
    EXPECT_EQ(c.peek(kBmp + 0x100), 0);

    // On a 320 x 240 screen, buffer plane, last row, 640 bytes a row: the
    // second half and row 2 lie past the store and read as zero.
    ScreenVm w(8, 20, 15);
    std::memset(w.m->ScreenBuffer, 3, sizeof w.m->ScreenBuffer);
    w.call(c_getblock, {0, 239, 640, 2, 0x00, kBmp});
    EXPECT_EQ(w.peek(kBmp + 319), 3);
    EXPECT_EQ(w.peek(kBmp + 320), 0);
    EXPECT_EQ(w.peek(kBmp + 1279), 0);
    // The largest area at the end of guest memory: writes wrap in the block.
    w.call(c_getblock, {0, 200, 65535, 3, 0x40, 0xFFFF});
    EXPECT_EQ(lRamRead(*w.m, 0xFFFF), 3);
}

// Buffer plane holding p(x, y) = x + 3y + 1 over a 160 x 80 screen.
uint8_t pattern(int x, int y) { return static_cast<uint8_t>(x + 3 * y + 1); }

void fill_pattern(ScreenVm& s) {
    for (int y = 0; y < 240; ++y)
        for (int x = 0; x < 320; ++x) s.buf(x, y) = pattern(x, y);
}

TEST(XDraw, ShiftsScrollsMirrorsAndFlipsTheBuffer) {
    ScreenVm c(8);
    c.m->bgcolor = 0x77;
    auto run = [&](uint32_t code) {
        fill_pattern(c);
        c.call(c_xdraw, {code});
    };
    run(0);
    EXPECT_EQ(c.buf(0, 5), pattern(1, 5));
    EXPECT_EQ(c.buf(158, 5), pattern(159, 5));
    EXPECT_EQ(c.buf(159, 5), 0x77);
    EXPECT_EQ(c.buf(160, 5), pattern(160, 5));
    run(1);
    EXPECT_EQ(c.buf(0, 5), 0x77);
    EXPECT_EQ(c.buf(159, 5), pattern(158, 5));
    run(4);
    EXPECT_EQ(c.buf(0, 7), pattern(159, 7));
    EXPECT_EQ(c.buf(159, 7), pattern(0, 7));
    EXPECT_EQ(c.buf(200, 7), pattern(200, 7));
    run(5);
    EXPECT_EQ(c.buf(3, 0), pattern(3, 79));
    EXPECT_EQ(c.buf(3, 79), pattern(3, 0));
    EXPECT_EQ(c.buf(3, 80), pattern(3, 80));

    // Scrolling up then down loses the top row and leaves paper there.
    fill_pattern(c);
    c.call(c_xdraw, {2});
    EXPECT_EQ(c.buf(10, 78), pattern(10, 79));
    EXPECT_EQ(c.buf(300, 79), 0x77);
    c.call(c_xdraw, {3});
    EXPECT_EQ(c.buf(300, 0), 0x77);
    for (int y = 1; y < 80; ++y) ASSERT_EQ(c.buf(10, y), pattern(10, y)) << y;

    // 6 copies the visible plane; 7 (and the 0x100 bits) do nothing.
    c.vis(319, 239) = 0x42;
    c.call(c_xdraw, {0x106});
    EXPECT_EQ(c.buf(319, 239), 0x42);
    fill_pattern(c);
    c.call(c_xdraw, {7});
    EXPECT_EQ(c.buf(159, 79), pattern(159, 79));
    EXPECT_EQ(c.buf(0, 0), pattern(0, 0));
    EXPECT_EQ(c.m->need_refresh, 0);

    ScreenVm s(1);  // mono paper is 0 whatever bgcolor holds
    s.m->bgcolor = 15;
    fill_pattern(s);
    s.call(c_xdraw, {0});
    EXPECT_EQ(s.buf(159, 0), 0);
}

}  // namespace
