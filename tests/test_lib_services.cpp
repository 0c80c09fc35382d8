// The maths calls' values, the output conversions and the console's
// two-byte rule, and output calls given text without a terminator anywhere:
// everything stays inside guest memory and every call ends.
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include "lib/syscalls.h"
#include "vm_harness.h"

// Sine and cosine (degrees read as unsigned 16-bit numbers, results scaled
// by 1024), the c_math functions (single -> double -> single), CRC-16/XMODEM
// with its length masked to 16 bits, and the cipher, which undoes itself.
TEST(LibMaths, TablesFunctionsChecksumAndCipher) {
    CallVm c(0x80);
    // The quarter table is round(sin(d degrees) * 1024).
    for (int d = 0; d <= 90; ++d)
        EXPECT_EQ(int32_t(c.result(c_sin, {d})), std::lround(std::sin(d * M_PI / 180) * 1024)) << d;
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

// Conversions through c_sprintf into 0x3000: %f texts and the exponent trim,
// flags after a width and a second width, the flag carried across
// conversions (one without width resets it), width ignored by %c and %s,
// unknown conversions, a number wider than its width, a closing lone "%".
// Argument strings are guest addresses: "x" at 0x2F00, "ab" at 0x2F10.
TEST(LibOutput, Conversions) {
    CallVm c;
    c.str(0x2F00, "x");
    c.str(0x2F10, "ab");
    c.str(0x2F20, "\xB0\xA1");
    const struct { const char* fmt; std::vector<int64_t> args; const char* want; } cases[] = {
        {"%f %f %f %f %f %f %f %f %f %f %f",
         {0x7FC00000, 0xFF800000, 0x49742400, 0x47F12000, 0x4996B438, 0x3727C5AC, 0x38D1B717, 0x80000000, 0x7F61B1E6,
          0x000116C2, 0xAF89705F},
         "error error 1e+6 123456 1.23457e+6 1e-5 0.0001 -0 3e+8 9.99995e-1 -2.5e-0"},
        {"%f %f %f %f %f %f", {0x3F800000, 0x3F000000, 0x60AD78EC, 0x7F800000, 0x34210FB0, 0xC0490FDB},
         "1 0.5 1e+0 error 1.5e-7 -3.14159"},
        {"[%d][%012d][%5-d][%3-6d][%-0d][%00005d][%-05d]", {0x80000000, -5, 42, 42, 42, 42, 42},
         "[-2147483648][0000000000-5][42   ][42    ][42][00042][42   ]"},
        {"[%-4d%s%4d][%04d%4d][%05d%0d%5d]", {1, 0x2F00, 2, 7, 7, 1, 2, 3}, "[1   x   2][00070007][000012    3]"},
        {"[%5c][%-3s][%c][%-5y][%07q][%5%]", {'A', 0x2F10, 0x141}, "[A][ab][A][y][q][%]"},
        {"%05d|%-3d|%s|%%|%y|%c|%f", {-42, 7, 0x2F20, 'Z', 0x60AD78EC}, "00-42|7  |\xB0\xA1|%|y|Z|1e+0"},
        {"%3d|", {123456}, "123456|"}, {"end%", {}, "end"},
    };
    for (const auto& k : cases) {
        c.str(0x2E00, k.fmt);
        for (int64_t a : std::initializer_list<int64_t>{0x3000, 0x2E00}) push_cell(*c.m, uint32_t(a));
        for (int64_t a : k.args) push_cell(*c.m, uint32_t(a));
        push_cell(*c.m, uint32_t(k.args.size() + 2));
        c_sprintf(*c.m);
        EXPECT_EQ(c.depth(), 0) << k.fmt;
        EXPECT_EQ(c.read(0x3000), k.want) << k.fmt;
    }
    c.str(0x3100, "zzzz");  // always terminated
    c.call(c_sprintf, {0x3100, 0x2F00 + 1, 2});
    EXPECT_EQ(c.read(0x3100, 2), std::string("\0z", 2));
}

// On the console (verbose: the text goes to the host): a space before a
// two-byte character that would start in the last column of the cursor's
// row, a lead byte at the end of a format completed by the next call, sprintf
// without that rule, putchar of the low byte, a format with no argument.
TEST(LibOutput, ConsoleTwoByteRule) {
    CallVm c;
    c.str(0x2F00, "[\xB0\xA1|%s]\n");
    c.str(0x2F20, "\xD6\xD0\xCE\xC4");
    c.str(0x2F30, "[\xB0\xA1]\n");
    c.str(0x2F40, "\xB0\xA1%s");
    c.str(0x2F50, "[%s|%d]\n");
    c.str(0x2F60, "abc\xB0");
    c.str(0x2F70, "\xA1\nmissing: %d\n%");
    c.call(c_locate, {0, 19});
    c.call(c_printf, {0x2F00, 0x2F20, 2});
    for (int64_t col : {200, 18}) {
        c.call(c_locate, {0, col});
        c.call(c_printf, {0x2F30, 1});
    }
    c.call(c_sprintf, {0x3000, 0x2F40, 0x2F20 + 2, 3});
    c.call(c_locate, {0, 19});
    c.call(c_printf, {0x2F50, 0x3000, 4, 3});
    c.call(c_locate, {0, 0});
    c.call(c_printf, {0x2F60, 1});
    c.call(c_printf, {0x2F70, 1});
    for (int64_t ch : {0x141, 0xB0, 0xA1, 10}) c.call(c_putchar, {ch});
    EXPECT_EQ(c.host.console, "[ \u554a| \u4e2d \u6587]\n[ \u554a]\n[\u554a]\n[ \u554a \u6587|4]\n"
                              "abc\u554a\nmissing: 1\nA\u554a\n");
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
