// The embedded font table: layout, blank cells and coverage (the glyph
// shapes are pinned by the pictures of the program tests).
#include <gtest/gtest.h>

#include <string>

#include "display/font.h"
#include "display/text.h"

extern "C" const unsigned long tvx_font_size;

namespace {

struct FontDesc {
    uint32_t offset;
    int width, height;
};

constexpr FontDesc kA12{kFontAscii12, 6, 12};
constexpr FontDesc kA16{kFontAscii16, 8, 16};
constexpr FontDesc kG12{kFontGb12, 12, 12};
constexpr FontDesc kG16{kFontGb16, 16, 16};

int gb_index(int hi, int lo) { return gb_glyph_index(static_cast<uint8_t>(hi), static_cast<uint8_t>(lo)); }

// Any set bit in the glyph's bytes, including the unused low bits.
bool any_bits(const FontDesc& f, int index) {
    const int bytes = f.height * ((f.width + 7) / 8);
    const unsigned char* g = tvx_font + f.offset + size_t(index) * bytes;
    for (int i = 0; i < bytes; ++i)
        if (g[i]) return true;
    return false;
}

bool gb2312_hanzi(int hi, int lo) { return hi >= 0xB0 && hi <= 0xF7 && !(hi == 0xD7 && lo >= 0xFA); }

}  // namespace

TEST(FontTable, LayoutUnusedBitsAndCoverage) {
    EXPECT_EQ(tvx_font_size, font_size);
    EXPECT_EQ(kFontGb12 + 7614u * 24, kFontGb16);
    EXPECT_EQ(kFontGb16 + 7614u * 32, font_size);
    // 6-pixel rows use bits 7-2 only, 12-pixel rows bits 7-4 of their second byte.
    for (int c = 0; c < 128; ++c)
        for (int y = 0; y < 12; ++y) ASSERT_EQ(tvx_font[kFontAscii12 + c * 12 + y] & 0x03, 0) << c;
    for (int i = 0; i < 7614; ++i)
        for (int y = 0; y < 12; ++y) ASSERT_EQ(tvx_font[kFontGb12 + i * 24 + 2 * y + 1] & 0x0F, 0) << i;
    // Code 0 and the space are blank, every other printable ASCII code has ink.
    for (const FontDesc* f : {&kA12, &kA16}) {
        EXPECT_FALSE(any_bits(*f, 0));
        EXPECT_FALSE(any_bits(*f, ' '));
        for (int c = 33; c < 127; ++c) EXPECT_TRUE(any_bits(*f, c)) << c << " in " << f->width;
    }
    // Rows A1-A9 hold GB2312's 682 symbols (the ideographic space A1A1 is
    // blank), rows B0-F7 the hanzi; unassigned cells are blank.
    for (const FontDesc* f : {&kG12, &kG16}) {
        int symbols = 0;
        for (int hi = 0xA1; hi <= 0xF7; ++hi) {
            if (hi >= 0xAA && hi <= 0xAF) continue;
            for (int lo = 0xA1; lo <= 0xFE; ++lo) {
                const bool ink = any_bits(*f, gb_index(hi, lo));
                if (hi >= 0xB0)
                    ASSERT_EQ(ink, gb2312_hanzi(hi, lo)) << std::hex << hi << lo << " size " << std::dec << f->width;
                else
                    symbols += ink;
            }
        }
        EXPECT_EQ(symbols, 681) << f->width;
        EXPECT_FALSE(any_bits(*f, gb_index(0xA1, 0xA1)));
        EXPECT_FALSE(any_bits(*f, gb_index(0xA2, 0xA1)));  // unassigned in GB2312
    }
}
