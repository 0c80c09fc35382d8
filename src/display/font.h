// The built-in font table: ASCII 6x12 and 8x16, GB2312 12x12 and 16x16, one
// after the other, rows most significant bit first.
#pragma once

#include <cstdint>

inline constexpr uint32_t font_size = 429968;
inline constexpr uint32_t kFontAscii12 = 0;       // 128 glyphs of 12 bytes
inline constexpr uint32_t kFontAscii16 = 1536;    // 128 glyphs of 16 bytes
inline constexpr uint32_t kFontGb12 = 3584;       // 7614 glyphs of 24 bytes
inline constexpr uint32_t kFontGb16 = 186320;     // 7614 glyphs of 32 bytes

// Embedded from data/font.bin (font_size bytes).
extern "C" const unsigned char tvx_font[];
