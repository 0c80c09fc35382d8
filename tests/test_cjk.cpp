// GB2312/GBK <-> UTF-8 converters and the embedded code page 936 tables.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "cjk/gbconv.h"

namespace {

struct Conv {
    std::string out;
    bool complete;
};

// Converts a whole std::string (its size is the source limit) into a roomy buffer.
Conv to_utf8(const std::string& gb) {
    char buf[1024];
    bool ok = false;
    const size_t n = gb_to_utf8(gb.data(), gb.size(), buf, sizeof buf, &ok);
    EXPECT_EQ(std::strlen(buf), n);
    return {std::string(buf, n), ok};
}

Conv to_gb(const std::string& utf8) {
    char buf[1024];
    bool ok = false;
    const size_t n = utf8_to_gb(utf8.data(), utf8.size(), buf, sizeof buf, &ok);
    return {std::string(buf, n), ok};
}

uint16_t gb_entry(int b1, int b2) { return mb_gb2uni_table[(b1 - 0x81) * 191 + (b2 - 0x40)]; }

}  // namespace

// The tables: sizes, placeholders, and every character converting both ways.
TEST(CjkTables, ShapeCountsAndEveryGb2312Character) {
    int unknown = 0;
    for (size_t i = 0; i < kGbTableEntries; ++i) {
        ASSERT_NE(mb_gb2uni_table[i], 0) << i;
        unknown += mb_gb2uni_table[i] == 0x3F;
    }
    EXPECT_EQ(unknown, 126 + 14);  // the 0x7F column and the padding
    int unmapped = 0;
    for (int c = 0x100; c < 0x10000; ++c) unmapped += utf16togb[c][0] == '?' && utf16togb[c][1] == '?';
    EXPECT_EQ(unmapped, 41358);
    // Every two-byte code from U+0100 on encodes back to itself.
    for (int b1 = 0x81; b1 <= 0xFE; ++b1)
        for (int b2 = 0x40; b2 <= 0xFE; ++b2) {
            const uint16_t u = gb_entry(b1, b2);
            if (b2 == 0x7F || u < 0x100) continue;
            ASSERT_EQ(utf16togb[u][0], b1) << std::hex << b1 << b2;
            ASSERT_EQ(utf16togb[u][1], b2) << std::hex << b1 << b2;
        }
    int converted = 0, single = 0;
    for (int b1 = 0xA1; b1 <= 0xF7; ++b1)
        for (int b2 = 0xA1; b2 <= 0xFE; ++b2) {
            const uint16_t u = gb_entry(b1, b2);
            if (u == 0x3F || (u >= 0xE000 && u <= 0xF8FF)) continue;
            const std::string gb{char(b1), char(b2)};
            const Conv utf8 = to_utf8(gb);
            ASSERT_TRUE(utf8.complete);
            ASSERT_EQ(utf8.out.size(), u < 0x800 ? 2u : 3u) << std::hex << b1 << b2;
            const Conv back = to_gb(utf8.out);
            ASSERT_TRUE(back.complete);
            if (u < 0x100) {  // Latin-1 letters and signs come back as their own byte
                ASSERT_EQ(back.out, std::string(1, char(u)));
                ++single;
            } else {
                ASSERT_EQ(back.out, gb) << std::hex << b1 << b2;
            }
            ++converted;
        }
    EXPECT_EQ(converted, 7478);  // GB2312's 7445 and 33 code page 936 additions
    EXPECT_EQ(single, 20);
}

// Single mappings: code page 936 specials, the user-defined areas (first
// and last code of each, U+E000 to U+E864) and codes without a mapping.
TEST(CjkSpecial, KnownMappings) {
    const struct { std::string gb, utf8; int way; } cases[] = {  // way: 1 to UTF-8, 2 back, 3 both
        {"\xA1\xA1", "\xE3\x80\x80", 1}, {"\xA1\xA4", "\xC2\xB7", 1}, {"\x80", "\xE2\x82\xAC", 2},
        {"\xFF", "\xEF\xA3\xB5", 2}, {"\xE9", "\xC3\xA9", 2}, {"\xB7", "\xC2\xB7", 2}, {"??", "\xC4\x80", 2},
        {"??", "\xED\xA0\x80", 2}, {"A\x80z", "A\x80z", 1}, {"\x81\x7F", "?", 1},
        {"\xAA\xA1", "\xEE\x80\x80", 3}, {"\xAF\xFE", "\xEE\x88\xB3", 3}, {"\xF8\xA1", "\xEE\x88\xB4", 3},
        {"\xFE\xFE", "\xEE\x93\x85", 3}, {"\xA1\x40", "\xEE\x93\x86", 3}, {"\xA7\xA0", "\xEE\x9D\xA5", 3},
        {"\xA2\xAB", "\xEE\x9D\xA6", 3}, {"\xA2\xE3", "\xEE\x9D\xAC", 3}, {"\xFE\x50", "\xEE\xA0\x95", 3},
        {"\xFE\xA0", "\xEE\xA1\xA4", 3}, {"A", "\xC1\x81", 2}, {"A", "\xE0\x81\x81", 2},  // overlong forms are read
    };
    for (const auto& c : cases) {
        if (c.way & 1) {
            EXPECT_EQ(to_utf8(c.gb).out, c.utf8) << c.gb;
        }
        if (c.way & 2) {
            EXPECT_EQ(to_gb(c.utf8).out, c.gb) << c.utf8;
        }
    }
}

// Conversion stops before a bad pair or sequence; a terminator inside the
// limit ends the string.
TEST(CjkInvalid, InputStopsAtTheFirstBadCode) {
    const struct { bool from_gb; std::string in, out; } cases[] = {
        {true, "ab\xB0", "ab"}, {true, "ab\xB0\x3F" "cd", "ab"}, {true, "a\xB0\xFF", "a"}, {true, "a\xFF\xA1", "a"},
        {true, std::string("\xB0\0\xA1", 3), ""}, {false, "a\x80", "a"}, {false, "a\xF0\x9F\x98\x80z", "a"},
        {false, "a\xC3", "a"}, {false, "a\xC3z", "a"}, {false, "a\xE5\x95", "a"}, {false, "a\xE5z\x8A", "a"},
        {false, "a\xF8\x80\x80\x80\x80", "a"},
    };
    for (const auto& c : cases) {
        const Conv r = c.from_gb ? to_utf8(c.in) : to_gb(c.in);
        EXPECT_FALSE(r.complete) << c.in;
        EXPECT_EQ(r.out, c.out) << c.in;
    }
    EXPECT_TRUE(to_utf8("").complete);
    EXPECT_TRUE(to_gb("").complete);
    EXPECT_EQ(to_utf8(std::string("x\0\xB0", 3)).out, "x");
}

TEST(CjkLimits, NeverWritesPastTheBuffer) {
    // A destination just too small cuts before the character that does not fit.
    char buf[16];
    for (size_t size = 0; size <= 8; ++size) {
        std::memset(buf, 0x55, sizeof buf);
        bool ok = true;
        const size_t n = gb_to_utf8("\xB0\xA1\xB0\xA1x", 5, buf, size, &ok);
        const size_t expect = size >= 8 ? 7 : size >= 7 ? 6 : size >= 4 ? 3 : 0;
        EXPECT_EQ(n, expect) << size;
        EXPECT_EQ(ok, size >= 8) << size;
        if (size > 0) {
            EXPECT_EQ(buf[n], 0);
        }
        for (size_t i = size; i < sizeof buf; ++i) ASSERT_EQ(buf[i], 0x55) << size;

        std::memset(buf, 0x55, sizeof buf);
        const size_t m = utf8_to_gb("\xE5\x95\x8A" "a\xE5\x95\x8A", 7, buf, size, &ok);
        EXPECT_EQ(m, size >= 6 ? 5 : size >= 4 ? 3 : size >= 3 ? 2 : 0) << size;
        EXPECT_EQ(ok, size >= 6) << size;
        for (size_t i = size; i < sizeof buf; ++i) ASSERT_EQ(buf[i], 0x55) << size;
    }
}
