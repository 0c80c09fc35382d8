#include "display/text.h"

#include <cstring>

#include "display/bitmap.h"
#include "display/font.h"
#include "lib/syscalls.h"
#include "vm/machine.h"

namespace {

constexpr int kGbGlyphs = 81 * 94;
constexpr uint32_t kPatBuf = 1024;  // largest converted glyph: 16 x 16 bytes in mode 8

bool ink(const uint8_t* rows, int row_bytes, int row, int col) {
    return rows && (rows[row * row_bytes + col / 8] & (0x80 >> (col % 8)));
}

// Draws a w x h glyph from the font (nullptr: blank) through patbuf.
void draw_glyph(Machine& m, const Pen& pen, uint16_t x, uint16_t y, const uint8_t* rows, int w, int h, int row_bytes) {
    uint8_t patbuf[kPatBuf];
    const uint32_t n = convert_glyph(m, rows, w, h, row_bytes, patbuf);
    write_comm(m, pen, x, y, static_cast<uint16_t>(w), static_cast<uint16_t>(h), host_bitmap(patbuf, n));
}

// An ASCII code of 128 or more has no glyph: its converted bitmap is all
// zero bytes, which draws pixel value 0 whatever the colours are.
void draw_no_glyph(Machine& m, const Pen& pen, uint16_t x, uint16_t y, int w, int h) {
    const uint8_t patbuf[kPatBuf] = {};
    const auto px = static_cast<uint32_t>(w * h);
    const uint32_t n = m.graph_mode == 8 ? px : m.graph_mode == 4 ? px / 2 : static_cast<uint32_t>(h);
    write_comm(m, pen, x, y, static_cast<uint16_t>(w), static_cast<uint16_t>(h), host_bitmap(patbuf, n));
}

void draw_ascii(Machine& m, const Pen& pen, uint16_t x, uint16_t y, uint8_t ch, bool large) {
    const int w = large ? 8 : 6, h = large ? 16 : 12;
    if (ch >= 128) {
        draw_no_glyph(m, pen, x, y, w, h);
        return;
    }
    const uint32_t base = large ? kFontAscii16 : kFontAscii12;
    draw_glyph(m, pen, x, y, tvx_font + base + ch * static_cast<uint32_t>(h), w, h, 1);
}

void draw_gb(Machine& m, const Pen& pen, uint16_t x, uint16_t y, uint8_t hi, uint8_t lo, bool large) {
    const int size = large ? 16 : 12;
    const uint32_t glyph_bytes = large ? 32 : 24;
    const int32_t index = gb_glyph_index(hi, lo);
    const uint8_t* rows = nullptr;  // codes outside the table draw a blank glyph
    if (index >= 0) rows = tvx_font + (large ? kFontGb16 : kFontGb12) + static_cast<uint32_t>(index) * glyph_bytes;
    draw_glyph(m, pen, x, y, rows, size, size, 2);
}

}  // namespace

int32_t gb_glyph_index(uint8_t hi, uint8_t lo) {
    if (hi < 0xA1 || hi > 0xF7 || lo < 0xA1 || lo > 0xFE) return -1;
    const int32_t row = hi < 176 ? hi - 161 : hi - 167;
    const int32_t index = row * 94 + (lo - 161);
    return index < kGbGlyphs ? index : -1;
}

uint32_t convert_glyph(const Machine& m, const uint8_t* rows, int w, int h, int row_bytes, uint8_t* out) {
    uint32_t n = 0;
    if (m.graph_mode == 8) {
        const auto fg = static_cast<uint8_t>(m.fgcolor), bg = static_cast<uint8_t>(m.bgcolor);
        for (int r = 0; r < h; ++r)
            for (int c = 0; c < w; ++c) out[n++] = ink(rows, row_bytes, r, c) ? fg : bg;
    } else if (m.graph_mode == 4) {
        const auto fg = static_cast<uint8_t>(m.fgcolor & 15), bg = static_cast<uint8_t>(m.bgcolor & 15);
        for (int r = 0; r < h; ++r)
            for (int c = 0; c < w; c += 2) {
                const uint8_t left = ink(rows, row_bytes, r, c) ? fg : bg;
                const uint8_t right = ink(rows, row_bytes, r, c + 1) ? fg : bg;
                out[n++] = static_cast<uint8_t>(left << 4 | right);
            }
    } else {
        const uint32_t bytes = static_cast<uint32_t>(h * row_bytes);
        if (rows)
            std::memcpy(out, rows, bytes);
        else
            std::memset(out, 0, bytes);
        n = bytes;
    }
    return n;
}

void font_6x12(Machine& m, const Pen& pen, uint16_t x, uint16_t y, uint8_t ch) { draw_ascii(m, pen, x, y, ch, false); }
void font_8x16(Machine& m, const Pen& pen, uint16_t x, uint16_t y, uint8_t ch) { draw_ascii(m, pen, x, y, ch, true); }
void font_12x12(Machine& m, const Pen& pen, uint16_t x, uint16_t y, uint8_t hi, uint8_t lo) { draw_gb(m, pen, x, y, hi, lo, false); }
void font_16x16(Machine& m, const Pen& pen, uint16_t x, uint16_t y, uint8_t hi, uint8_t lo) { draw_gb(m, pen, x, y, hi, lo, true); }

// Draws a zero-terminated string from x on, with no line wrapping: characters
// that would start at or right of the screen edge are not drawn. A negative
// x (a large 16-bit value) draws nothing.
void c_textout(Machine& m) {
    get_val(m);
    const uint32_t type = m.a1;
    const Pen pen{static_cast<uint8_t>(type & 15), static_cast<uint8_t>(type & 0x40), static_cast<uint8_t>(type & 0x20)};
    const bool large = type & 0x80;
    get_val(m);
    uint32_t addr = m.a1 & m.addr_mask;
    get_val(m);
    const auto y = static_cast<uint16_t>(m.a1);
    get_val(m);
    auto x = static_cast<uint16_t>(m.a1);

    while (static_cast<int32_t>(x) < m.ScreenWidth) {
        const uint8_t ch = lRamRead(m, addr++);
        if (ch == 0) break;
        if (ch >= 0x80) {
            const uint8_t lo = lRamRead(m, addr++);
            if (lo == 0) break;  // a lead byte at the end of the string is dropped
            if (large)
                font_16x16(m, pen, x, y, ch, lo);
            else
                font_12x12(m, pen, x, y, ch, lo);
            x = static_cast<uint16_t>(x + (large ? 16 : 12));
        } else {
            if (large)
                font_8x16(m, pen, x, y, ch);
            else
                font_6x12(m, pen, x, y, ch);
            x = static_cast<uint16_t>(x + (large ? 8 : 6));
        }
    }
    if (pen.no_buf) ToviNeedRefresh(m);
}
