// The embedded font table: layout, blank cells, coverage, and shapes
// checked by eye against the generator's output.
#include <gtest/gtest.h>

#include <string>
#include <vector>

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

// One glyph as text, '#' for ink, one string per pixel row.
std::vector<std::string> art(const FontDesc& f, int index) {
    const int per_row = (f.width + 7) / 8;
    const unsigned char* g = tvx_font + f.offset + size_t(index) * f.height * per_row;
    std::vector<std::string> rows;
    for (int y = 0; y < f.height; ++y) {
        std::string row;
        for (int x = 0; x < f.width; ++x) row += ((g[y * per_row + x / 8] >> (7 - x % 8)) & 1) ? '#' : '.';
        rows.push_back(row);
    }
    return rows;
}

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

TEST(FontTable, LayoutUnusedBitsAndAsciiCoverage) {
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
}

TEST(FontTable, Gb2312Coverage) {
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
        // GB2312 has 682 symbols in rows A1-A9; the ideographic space A1A1 is blank.
        EXPECT_EQ(symbols, 681) << f->width;
        EXPECT_FALSE(any_bits(*f, gb_index(0xA1, 0xA1)));
        EXPECT_FALSE(any_bits(*f, gb_index(0xA2, 0xA1)));  // unassigned in GB2312
    }
}

TEST(FontTable, BoxDrawingJoinsUp) {
    // Lines leave the cell at the middle of each edge, so tables drawn with
    // box characters join from cell to cell in both sizes.
    for (const FontDesc* f : {&kG12, &kG16}) {
        const auto horiz = art(*f, gb_index(0xA9, 0xA4));  // ─
        const auto vert = art(*f, gb_index(0xA9, 0xA6));   // │
        const auto cross = art(*f, gb_index(0xA9, 0xE0));  // ┼
        const std::string full(f->width, '#');
        int row = -1;
        for (int y = 0; y < f->height; ++y)
            if (horiz[y] == full) row = y;
        ASSERT_GE(row, 0) << f->width;
        EXPECT_EQ(cross[row], full) << f->width;
        const size_t col = vert[0].find('#');
        ASSERT_NE(col, std::string::npos) << f->width;
        for (int y = 0; y < f->height; ++y) {
            EXPECT_EQ(vert[y][col], '#') << f->width << " row " << y;
            EXPECT_EQ(cross[y][col], '#') << f->width << " row " << y;
        }
    }
}
