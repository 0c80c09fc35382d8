// Integer sine and cosine, the c_math functions, the CRC-16 and the cipher.
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>
#include <string>

#include "lib/syscalls.h"
#include "vm_harness.h"

namespace {

uint32_t fbits(float f) { return std::bit_cast<uint32_t>(f); }
float fval(uint32_t b) { return std::bit_cast<float>(b); }

struct Calls {
    Vm vm;
    Machine& m;
    explicit Calls(uint8_t flags = 0) : vm(Code{}, flags), m(*vm.m) {}
    uint32_t call(void (*fn)(Machine&), std::initializer_list<uint32_t> args) {
        for (uint32_t v : args) push_cell(m, v);
        fn(m);
        get_val(m);
        return m.a1;
    }
    int32_t angle(void (*fn)(Machine&), int32_t deg) { return static_cast<int32_t>(call(fn, {static_cast<uint32_t>(deg)})); }
    void bytes(uint32_t a, const std::string& s) {
        for (size_t i = 0; i < s.size(); ++i) lRamWrite(m, a + static_cast<uint32_t>(i), static_cast<uint8_t>(s[i]));
    }
    std::string read(uint32_t a, size_t n) {
        std::string s;
        for (size_t i = 0; i < n; ++i) s += static_cast<char>(lRamRead(m, a + static_cast<uint32_t>(i)));
        return s;
    }
};

TEST(LibMaths, SineAndCosineOverTheWholeCircle) {
    Calls c;
    // Every whole degree is the rounded value times 1024, by the table and
    // its reflections into the other quadrants.
    for (int a = 0; a < 360; ++a) {
        const double r = a * std::numbers::pi / 180;
        EXPECT_EQ(c.angle(c_sin, a), std::lround(std::sin(r) * 1024)) << a;
        EXPECT_EQ(c.angle(c_cos, a), std::lround(std::cos(r) * 1024)) << a;
    }
    EXPECT_EQ(c.angle(c_sin, 30), 512);
    EXPECT_EQ(c.angle(c_sin, 88), 1023);
    EXPECT_EQ(c.angle(c_sin, 89), 1024);
    EXPECT_EQ(c.angle(c_sin, 90), 1024);
    EXPECT_EQ(c.angle(c_sin, 180), 0);
    EXPECT_EQ(c.angle(c_sin, 270), -1024);
    EXPECT_EQ(c.angle(c_sin, 450), 1024);
    EXPECT_EQ(c.angle(c_cos, 0), 1024);
    EXPECT_EQ(c.angle(c_cos, 180), -1024);
    EXPECT_EQ(c.angle(c_cos, 270), 0);
    EXPECT_EQ(c.angle(c_cos, 359), 1024);
}

TEST(LibMaths, AnglesAreReadAsUnsigned16Bit) {
    Calls c;
    EXPECT_EQ(c.angle(c_sin, -90), -984);  // 65446 mod 360 = 286 degrees
    EXPECT_EQ(c.angle(c_sin, -1), c.angle(c_sin, 65535 % 360));
    EXPECT_EQ(c.angle(c_sin, 65536 + 30), 512);
    EXPECT_EQ(c.angle(c_sin, 0x7FFF0000 + 90), 1024);
    EXPECT_EQ(c.angle(c_cos, -90), c.angle(c_cos, 286));
    EXPECT_EQ(c.angle(c_cos, 65535), c.angle(c_cos, 15));  // 65535 mod 360 = 15
    EXPECT_EQ(c.angle(c_cos, 720 + 60), 512);
}

TEST(LibMaths, MathSubFunctionsWidenToDoubleAndRoundBack) {
    Calls c;
    const float pi = std::numbers::pi_v<float>;
    auto f = [&](uint32_t fn, float x) { return fval(c.call(c_math, {fbits(x), fn})); };
    EXPECT_FLOAT_EQ(f(7, pi / 2), 1.0f);
    EXPECT_FLOAT_EQ(f(8, 0.0f), 1.0f);
    EXPECT_FLOAT_EQ(f(9, pi / 4), 1.0f);
    EXPECT_EQ(f(10, 1.0f), pi / 2);
    EXPECT_EQ(f(11, -1.0f), pi);
    EXPECT_EQ(f(12, 1.0f), pi / 4);
    EXPECT_EQ(f(13, 2.0f), 1.41421356f);
    EXPECT_EQ(f(14, 1.0f), std::numbers::e_v<float>);
    EXPECT_FLOAT_EQ(f(15, std::numbers::e_v<float>), 1.0f);
    // Each result is the double result rounded once to single.
    for (float x : {0.1f, -0.7f, 0.5f, 3.0f, 100.25f}) {
        const double d = x;
        EXPECT_EQ(f(7, x), static_cast<float>(std::sin(d))) << x;
        EXPECT_EQ(f(8, x), static_cast<float>(std::cos(d))) << x;
        EXPECT_EQ(f(9, x), static_cast<float>(std::tan(d))) << x;
        EXPECT_EQ(f(12, x), static_cast<float>(std::atan(d))) << x;
        EXPECT_EQ(f(14, x), static_cast<float>(std::exp(d))) << x;
    }
    // Domain errors give not-a-number or infinity, nothing else.
    EXPECT_TRUE(std::isnan(f(13, -1.0f)));
    EXPECT_TRUE(std::isnan(f(10, 2.0f)));
    EXPECT_EQ(f(15, 0.0f), -std::numeric_limits<float>::infinity());
    EXPECT_EQ(f(14, 1000.0f), std::numeric_limits<float>::infinity());
}

TEST(LibMaths, MathAbsoluteValueClearsOnlyNegativeSigns) {
    Calls c;
    auto abs19 = [&](uint32_t bits) { return c.call(c_math, {bits, 19}); };
    EXPECT_EQ(abs19(fbits(-2.5f)), fbits(2.5f));
    EXPECT_EQ(abs19(fbits(3.0f)), fbits(3.0f));
    EXPECT_EQ(abs19(fbits(-std::numeric_limits<float>::infinity())), fbits(std::numeric_limits<float>::infinity()));
    EXPECT_EQ(abs19(0x80000000u), 0x80000000u);  // -0.0 is not below 0.0
    EXPECT_EQ(abs19(0xFFC00001u), 0xFFC00001u);  // a negative not-a-number keeps its bits
}

TEST(LibMaths, MathConstantAndUnusedNumbersPopNoOperand) {
    for (uint32_t fn : {0u, 1u, 6u, 16u, 18u, 20u, 255u, 0xFFFFFFFFu}) {
        Calls c;
        push_cell(c.m, 0xCAFEF00D);  // whatever lies below must stay
        push_cell(c.m, fn);
        c_math(c.m);
        ASSERT_EQ(c.vm.depth(), 2) << fn;
        EXPECT_EQ(c.vm.cell(0), fn == 0 ? 256u : 0u) << fn;
        EXPECT_EQ(c.vm.cell(1), 0xCAFEF00Du) << fn;
    }
    // The functions with an operand take exactly one more slot.
    Calls c;
    push_cell(c.m, 0xCAFEF00D);
    push_cell(c.m, fbits(4.0f));
    push_cell(c.m, 13);
    c_math(c.m);
    ASSERT_EQ(c.vm.depth(), 2);
    EXPECT_EQ(c.vm.cell(0), fbits(2.0f));
    EXPECT_EQ(c.vm.cell(1), 0xCAFEF00Du);
}

TEST(LibMaths, Crc16Xmodem) {
    Calls c;
    c.bytes(0x3000, "123456789");
    EXPECT_EQ(c.call(c_crc16, {0x3000, 9}), 0x31C3u);
    EXPECT_EQ(c.call(c_crc16, {0x3000, 0}), 0u);
    EXPECT_EQ(c.call(c_crc16, {0x3000, 0x10009}), 0x31C3u);  // length masked to 16 bits
    EXPECT_EQ(c.call(c_crc16, {0x7FFF3000, 9}), 0x31C3u);    // address masked
    c.bytes(0x3100, "A");
    EXPECT_EQ(c.call(c_crc16, {0x3100, 1}), 0x58E5u);
    c.bytes(0x3100, "\x01");
    EXPECT_EQ(c.call(c_crc16, {0x3100, 1}), 0x1021u);
    c.bytes(0x3100, std::string("\xFF\xFF", 2));
    EXPECT_EQ(c.call(c_crc16, {0x3100, 2}), 0x1D0Fu);
}

TEST(LibMaths, CipherIsRepeatingKeyXorAndItsOwnInverse) {
    Calls c;
    c.bytes(0x3000, "abcde");
    c.bytes(0x3100, std::string("\x01\x02\x00", 3));
    push_cell(c.m, 0x3000);
    push_cell(c.m, 5);
    push_cell(c.m, 0x3100);
    c_jiami(c.m);
    EXPECT_EQ(c.vm.depth(), 0);
    EXPECT_EQ(c.read(0x3000, 6), std::string("``bfd\0", 6));

    const std::string text = "The quick brown fox jumps over the lazy dog";
    c.bytes(0x4000, text);
    c.bytes(0x4100, std::string("k3y\0", 4));
    for (int round = 0; round < 2; ++round) {
        for (uint32_t v : {0x4000u, static_cast<uint32_t>(text.size()), 0x4100u}) push_cell(c.m, v);
        c_jiami(c.m);
        if (round == 0) {
            EXPECT_EQ(lRamRead(c.m, 0x4000), 'T' ^ 'k');
            EXPECT_EQ(lRamRead(c.m, 0x4003), ' ' ^ 'k');
        }
    }
    EXPECT_EQ(c.read(0x4000, text.size()), text);
}

TEST(LibMaths, CipherWithEmptyKeyReadsBehindTheTerminator) {
    Calls c;
    c.bytes(0x3000, "ABCDE");
    c.bytes(0x3100, std::string("\x00\x20\x00", 3));
    for (uint32_t v : {0x3000u, 5u, 0x3100u}) push_cell(c.m, v);
    c_jiami(c.m);
    // key[0] is 0: byte 0 unchanged, k = 1; byte 1 uses key[1]; byte 2
    // meets key[2] = 0 and starts again at key[0] = 0.
    EXPECT_EQ(c.read(0x3000, 5), "AbCdE");
}

TEST(LibMaths, CallsThroughTheirOpcodes) {
    Code code;
    code.op("push_int").u16(static_cast<uint16_t>(-90)).op("c_sin");
    code.op("push_char").u8(180).op("c_cos");
    code.op("push_char").u8(0).op("c_math");
    code.op("push_string").raw({'1', '2', '3', '4', '5', '6', '7', '8', '9', 0}).op("push_char").u8(9).op("c_crc16");
    Vm vm(code);
    vm.run(9);
    ASSERT_EQ(vm.depth(), 4);
    EXPECT_EQ(vm.cell(3), static_cast<uint32_t>(-984));
    EXPECT_EQ(vm.cell(2), static_cast<uint32_t>(-1024));
    EXPECT_EQ(vm.cell(1), 256u);
    EXPECT_EQ(vm.cell(0), 0x31C3u);
}

TEST(LibMaths, HugeLengthsAndWildPointersStayInGuestMemory) {
    Calls c(0x80);  // 24-bit program
    // Data that runs over the end of the block continues at its start.
    c.m.tovix_ram[kRamMask - 1] = '1';
    c.m.tovix_ram[kRamMask] = '2';
    c.bytes(0, "3456789");
    EXPECT_EQ(c.call(c_crc16, {kRamMask - 1, 9}), 0x31C3u);
    c.call(c_crc16, {0xFFFFFF, 0xFFFFFF});
    // A key with no terminator in reach and a data area of 16 MiB.
    std::memset(c.m.tovix_ram + 0x10000, 0x5A, kRamSize - 0x10000);
    for (uint32_t v : {0xFFFFF0u, 0xFFFFFFu, 0x10000u}) push_cell(c.m, v);
    c_jiami(c.m);
    for (uint32_t v : {0x123u, 0xFFFFFFu, 0xFFFFFFu}) push_cell(c.m, v);
    c_jiami(c.m);
    EXPECT_EQ(c.vm.depth(), 0);
}

}  // namespace
