// GB2312/GBK <-> UTF-8 converters and the embedded code page 936 tables.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
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

TEST(CjkTables, ShapeAndCounts) {
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
}

TEST(CjkRoundTrip, AllGb2312Characters) {
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

TEST(CjkSpecial, KnownMappings) {
    EXPECT_EQ(to_utf8("\xA1\xA1").out, "\xE3\x80\x80");  // U+3000
    EXPECT_EQ(to_utf8("\xA1\xA4").out, "\xC2\xB7");      // U+00B7 in code page 936
    EXPECT_EQ(to_gb("\xE2\x82\xAC").out, "\x80");        // the euro sign
    EXPECT_EQ(to_gb("\xEF\xA3\xB5").out, "\xFF");        // U+F8F5
    EXPECT_EQ(to_gb("\xC3\xA9").out, "\xE9");            // U+00E9 stays one byte
    EXPECT_EQ(to_gb("\xC2\xB7").out, "\xB7");            // not its GBK pair
    EXPECT_EQ(to_gb("\xC4\x80").out, "??");              // U+0100 has no code
    EXPECT_EQ(to_gb("\xED\xA0\x80").out, "??");          // a surrogate has none either
    EXPECT_EQ(to_utf8("A\x80z").out, "A\x80z");          // 0x80 passes unchanged
    EXPECT_EQ(to_utf8("\x81\x7F").out, "?");             // undefined second byte 0x7F
}

TEST(CjkSpecial, UserDefinedAreas) {
    // Each area's first and last code, and the codes after GBK's end.
    const struct { int b1, b2; const char* utf8; } cases[] = {
        {0xAA, 0xA1, "\xEE\x80\x80"}, {0xAF, 0xFE, "\xEE\x88\xB3"},  // U+E000, U+E233
        {0xF8, 0xA1, "\xEE\x88\xB4"}, {0xFE, 0xFE, "\xEE\x93\x85"},  // U+E234, U+E4C5
        {0xA1, 0x40, "\xEE\x93\x86"}, {0xA7, 0xA0, "\xEE\x9D\xA5"},  // U+E4C6, U+E765
        {0xA2, 0xAB, "\xEE\x9D\xA6"}, {0xA2, 0xE3, "\xEE\x9D\xAC"},  // U+E766, U+E76C
        {0xFE, 0x50, "\xEE\xA0\x95"}, {0xFE, 0xA0, "\xEE\xA1\xA4"},  // U+E815, U+E864
    };
    for (const auto& c : cases) {
        const std::string gb{char(c.b1), char(c.b2)};
        EXPECT_EQ(to_utf8(gb).out, c.utf8) << std::hex << c.b1 << c.b2;
        EXPECT_EQ(to_gb(c.utf8).out, gb) << std::hex << c.b1 << c.b2;
    }
}

TEST(CjkInvalid, GbInputStopsAtBadPair) {
    const struct { std::string in, out; } cases[] = {
        {"ab\xB0", "ab"},          // lone first byte before the end
        {"ab\xB0\x3F" "cd", "ab"}, // second byte below 0x40
        {"a\xB0\xFF", "a"},        // second byte 0xFF
        {"a\xFF\xA1", "a"},        // first byte 0xFF
    };
    for (const auto& c : cases) {
        const Conv r = to_utf8(c.in);
        EXPECT_FALSE(r.complete) << c.in;
        EXPECT_EQ(r.out, c.out);
    }
    const Conv empty = to_utf8("");
    EXPECT_TRUE(empty.complete);
    EXPECT_EQ(empty.out, "");
    // A terminator inside the limit ends the string; a lead byte before it pairs with it.
    EXPECT_EQ(to_utf8(std::string("x\0\xB0", 3)).out, "x");
    EXPECT_FALSE(to_utf8(std::string("\xB0\0\xA1", 3)).complete);
}

TEST(CjkInvalid, Utf8InputStopsAtBadSequence) {
    const struct { std::string in, out; } cases[] = {
        {"a\x80", "a"},                     // stray continuation byte
        {"a\xF0\x9F\x98\x80z", "a"},        // four-byte sequence (emoji)
        {"a\xC3", "a"}, {"a\xC3z", "a"},    // missing continuation
        {"a\xE5\x95", "a"}, {"a\xE5z\x8A", "a"},
        {"a\xF8\x80\x80\x80\x80", "a"},
    };
    for (const auto& c : cases) {
        const Conv r = to_gb(c.in);
        EXPECT_FALSE(r.complete) << c.in;
        EXPECT_EQ(r.out, c.out);
    }
    // Overlong forms are read, not rejected.
    EXPECT_EQ(to_gb("\xC1\x81").out, "A");
    EXPECT_EQ(to_gb("\xE0\x81\x81").out, "A");
    EXPECT_TRUE(to_gb("").complete);
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

TEST(CjkLimits, RandomBytesStayInBounds) {
    // Hostile input of any shape: the output stays terminated inside the
    // buffer, sized as the callers size it, and never needs truncation.
    std::mt19937 rng(936);
    std::string src;
    char out[3 * 64 / 2 + 1];
    for (int round = 0; round < 20000; ++round) {
        src.resize(rng() % 65);
        for (char& ch : src) ch = static_cast<char>(rng() % 4 ? 0x80 | rng() : rng());
        bool ok = false;
        size_t n = gb_to_utf8(src.data(), src.size(), out, sizeof out, &ok);
        ASSERT_LT(n, sizeof out);
        ASSERT_EQ(out[n], 0);
        ASSERT_LE(n, src.size() * 3 / 2);
        n = utf8_to_gb(src.data(), src.size(), out, src.size() + 1, &ok);
        ASSERT_LE(n, src.size());
        ASSERT_EQ(out[n], 0);
    }
}
