// The maths calls' values, and output calls given text without a terminator
// anywhere: everything stays inside guest memory and every call ends.
#include <array>
#include <cstring>

#include "lib/syscalls.h"
#include "vm_harness.h"

// Sine and cosine (degrees read as unsigned 16-bit numbers, results scaled
// by 1024), the c_math functions (single -> double -> single), CRC-16/XMODEM
// with its length masked to 16 bits, and the cipher, which undoes itself.
TEST(LibMaths, TablesFunctionsChecksumAndCipher) {
    CallVm c(0x80);
    const int32_t sin90[] = {
        0, 18, 36, 54, 71, 89, 107, 125, 143, 160, 178, 195, 213, 230, 248, 265,
        282, 299, 316, 333, 350, 367, 384, 400, 416, 433, 449, 465, 481, 496, 512, 527,
        543, 558, 573, 587, 602, 616, 630, 644, 658, 672, 685, 698, 711, 724, 737, 749,
        761, 773, 784, 796, 807, 818, 828, 839, 849, 859, 868, 878, 887, 896, 904, 912,
        920, 928, 935, 943, 949, 956, 962, 968, 974, 979, 984, 989, 994, 998, 1002, 1005,
        1008, 1011, 1014, 1016, 1018, 1020, 1022, 1023, 1023, 1024, 1024,
    };
    for (int d = 0; d <= 90; ++d) EXPECT_EQ(int32_t(c.result(c_sin, {d})), sin90[d]) << d;
    const struct { int64_t deg; int32_t sin, cos; } around[] = {
        {0, 0, 1024}, {30, 512, 887}, {45, 724, 724}, {60, 887, 512}, {90, 1024, 0},
        {91, 1024, -18}, {135, 724, -724}, {180, 0, -1024}, {181, -18, -1024}, {225, -724, -724},
        {269, -1024, -18}, {270, -1024, 0}, {271, -1024, 18}, {315, -724, 724}, {359, -18, 1024},
        {360, 0, 1024}, {450, 1024, 0}, {720, 0, 1024}, {-1u, 265, 989}, {-90u, -984, 282},
        {-180u, -282, -984}, {65566, 512, 887}, {65535, 265, 989}, {0x7FFFFFFF, 265, 989},
    };
    for (const auto& a : around) {
        EXPECT_EQ(int32_t(c.result(c_sin, {a.deg})), a.sin) << a.deg;
        EXPECT_EQ(int32_t(c.result(c_cos, {a.deg})), a.cos) << a.deg;
    }
    const struct { int fn; uint32_t arg, want; } maths[] = {
        {7, 0x3F000000, 0x3EF57744}, {8, 0x3F000000, 0x3F60A940}, {9, 0x3F000000, 0x3F0BDA7B},
        {10, 0x3F000000, 0x3F060A92}, {11, 0x3F000000, 0x3F860A92}, {12, 0x3F800000, 0x3F490FDB},
        {13, 0x40000000, 0x3FB504F3}, {14, 0x3F800000, 0x402DF854}, {15, 0x41200000, 0x40135D8E},
        {7, 0x42C80000, 0xBF01A12E}, {14, 0x42C80000, 0x7F800000}, {13, 0xBF800000, 0xFFC00000},
        {15, 0x00000000, 0xFF800000}, {10, 0x40000000, 0x7FC00000}, {19, 0xC0200000, 0x40200000},
        {19, 0x40200000, 0x40200000}, {19, 0x80000000, 0x80000000}, {19, 0xFFC00001, 0xFFC00001},
        {19, 0xFF800000, 0x7F800000},
    };
    for (const auto& k : maths) EXPECT_EQ(c.result(c_math, {k.arg, k.fn}), k.want) << k.fn << " " << std::hex << k.arg;
    for (int64_t fn : {0, 1, 6, 16, 18, 20, 21, 255, 256, -1}) {  // no argument: the cell below stays
        c.call(c_math, {7777, fn}, 2);
        EXPECT_EQ(c.cell(0), fn == 0 ? 256u : 0u) << fn;
        EXPECT_EQ(c.cell(1), 7777u);
        c.m->eval_top = 0;
    }
    c.str(0x3000, "123456789");
    c.str(0x3010, "A");
    for (const auto& [at, len, crc] : {std::array<uint32_t, 3>{0x3000, 9, 12739}, {0x3000, 0, 0}, {0x3010, 1, 22757}, {0x3000, 0x1000009, 12739}})
        EXPECT_EQ(c.result(c_crc16, {at, len}), crc) << len;
    c.str(0x3100, "Tovix data 123");
    c.str(0x3200, "k3y");
    c.call(c_jiami, {0x3100, 14, 0x3200});
    EXPECT_EQ(c.read(0x3100, 6), "\x3F\x5C\x0F\x02\x4B\x59");
    c.call(c_jiami, {0x3100, 14, 0x3200});
    EXPECT_EQ(c.read(0x3100), "Tovix data 123");
}

// Formats without a terminator anywhere in the block: the scan reads the
// block once; a block full of "%s" over strings without terminators stops at
// the output limit. Both calls end with the stack cleared of their arguments.
TEST(LibOutput, UnterminatedFormatsEnd) {
    CallVm c(0x80);
    std::memset(c.m->tovix_ram, 'x', kRamSize);
    c.call(c_sprintf, {0x5000, 0x2000, 2});
    // One pass over the block: every byte is overwritten with 'x', the
    // terminator lands on the destination itself.
    int zeros = 0;
    for (uint32_t i = 0; i < kRamSize; ++i) zeros += c.m->tovix_ram[i] == 0;
    EXPECT_EQ(zeros, 1);
    EXPECT_EQ(lRamRead(*c.m, 0x5000), 0);

    for (uint32_t i = 0; i < kRamSize; i += 2) std::memcpy(c.m->tovix_ram + i, "%s", 2);
    c.call(c_sprintf, {0x61616161, 0x41414141, 2});
    for (uint32_t i = 0; i < kRamSize; i += 2) std::memcpy(c.m->tovix_ram + i, "%s", 2);
    c.call(c_printf, {0x2000, 1});
}
