#include "display/console.h"

#include <algorithm>
#include <cstring>

#include "cjk/gbconv.h"
#include "display/text.h"
#include "lib/syscalls.h"
#include "vm/machine.h"

void setscreen(Machine& m, int mode) {
    Console& c = m;
    if (mode == 0) {
        c.scr_mode = 0;
        c.curr_CPR = m.ScreenWidth / 8;
        c.curr_RPS = m.ScreenHeight / 16;
    } else {
        c.scr_mode = 1;
        c.curr_CPR = ((m.ScreenWidth - 2) / 6) & ~1;
        c.curr_RPS = (m.ScreenHeight - 1) / 13;
        c.small_left = (m.ScreenWidth - 6 * c.curr_CPR) / 2;
        c.small_up = (m.ScreenHeight + 1 - 13 * c.curr_RPS) / 2;
        c.small_down = m.ScreenHeight - 13 * c.curr_RPS - c.small_up + 1;
    }
    c.scr_x = c.scr_y = c.scr_off = 0;
    for (int i = 0; i < c.curr_RPS * c.curr_CPR; ++i) lRamWrite(m, m.TextBuffer + static_cast<uint32_t>(i), 0);
}

void flush_verbose_buf(Machine& m) {
    if (m.verbose_buf_len <= 0) return;
    // Each GB2312 byte pair becomes at most 3 UTF-8 bytes, a single byte at most 3.
    char utf8[256 * 3 + 1];
    const size_t n = gb_to_utf8(m.verbose_buf, static_cast<size_t>(m.verbose_buf_len), utf8, sizeof utf8);
    m.host->console_write(std::string_view(utf8, n));
    // Only the bytes in use: the rest is zero already (a whole-buffer clear
    // for every character pair made long outputs crawl).
    std::memset(m.verbose_buf, 0, static_cast<size_t>(m.verbose_buf_len));
    m.verbose_buf_len = 0;
}

void scr_up(Machine& m) {
    const uint32_t cpr = static_cast<uint32_t>(m.curr_CPR), rps = static_cast<uint32_t>(m.curr_RPS);
    if (rps == 0) return;
    if (cpr * rps > cpr) lmemcpy(m, m.TextBuffer, m.TextBuffer + cpr, cpr * (rps - 1));
    for (uint32_t i = 0; i < cpr; ++i) lRamWrite(m, m.TextBuffer + cpr * (rps - 1) + i, ' ');
    m.scr_off = static_cast<int32_t>(cpr * (rps - 1));
    m.scr_x = 0;
    m.scr_y = static_cast<int32_t>(rps - 1);
}

void cout(Machine& m, uint8_t ch) {
    if (m.verbose_mode) {
        if (m.verbose_buf_len > 0) {
            m.verbose_buf[m.verbose_buf_len++] = ch;
            flush_verbose_buf(m);
            return;
        }
        if (ch >= 0x80) {
            m.verbose_buf[m.verbose_buf_len++] = ch;
            if (m.verbose_buf_len >= 255) flush_verbose_buf(m);
            return;
        }
        const char c = static_cast<char>(ch);
        m.host->console_write(std::string_view(&c, 1));
        return;
    }
    if (m.scr_y >= m.curr_RPS) scr_up(m);
    if (ch == 13) return;
    if (ch == 10) {
        m.scr_x = 0;
        ++m.scr_y;
        if (m.scr_y < m.curr_RPS)
            m.scr_off = m.curr_CPR * m.scr_y;
        else
            scr_up(m);
        return;
    }
    lRamWrite(m, m.TextBuffer + static_cast<uint16_t>(m.scr_off), ch == 9 ? 32 : ch);
    m.scr_off = static_cast<uint16_t>(m.scr_off + 1);
    if (++m.scr_x >= m.curr_CPR) {
        m.scr_x = 0;
        ++m.scr_y;
    }
}

namespace {

// Bit of grid row r in the repaint mask: rows count down from bit 7, 15 or
// 23 depending on how many rows the screen has.
bool row_masked(const Machine& m, int32_t r) {
    const uint64_t top = m.curr_RPS <= 8 ? 0x80 : m.curr_RPS <= 16 ? 0x8000 : 0x800000;
    return r < 64 && (m.line_mode & (top >> r));
}

// The grid is copied onto the visible plane, never mirrored.
constexpr Pen kGridPen{1, 0x40, 0};

// Draws grid row r with its cells `pitch` pixels apart from (left, top). A
// byte of 0x80 or more takes the next cell as its trail byte, even when that
// cell starts the next row.
void paint_row(Machine& m, int32_t r, int32_t left, int32_t top, int32_t pitch, bool large) {
    const uint32_t row = m.TextBuffer + static_cast<uint32_t>(r * m.curr_CPR);
    const auto y = static_cast<uint16_t>(top);
    for (int32_t c = 0; c < m.curr_CPR;) {
        const auto x = static_cast<uint16_t>(left + pitch * c);
        const uint8_t ch = lRamRead(m, row + static_cast<uint32_t>(c));
        if (ch >= 0x80) {
            const uint8_t lo = lRamRead(m, row + static_cast<uint32_t>(c + 1));
            if (large)
                font_16x16(m, kGridPen, x, y, ch, lo);
            else
                font_12x12(m, kGridPen, x, y, ch, lo);
            c += 2;
        } else {
            if (large)
                font_8x16(m, kGridPen, x, y, ch);
            else
                font_6x12(m, kGridPen, x, y, ch);
            ++c;
        }
    }
}

// Sets a whole 320-byte row of the visible plane to v.
void fill_row(Machine& m, int32_t y, uint8_t v) {
    if (y < 0 || y >= std::min(m.ScreenHeight, kPlaneSize / kPlaneStride)) return;
    std::memset(m.ScreenBuffer + y * kPlaneStride, v, kPlaneStride);
}

}  // namespace

void update_lcd_large(Machine& m) {
    for (int32_t r = 0; r < m.curr_RPS; ++r)
        if (!row_masked(m, r)) paint_row(m, r, 0, 16 * r, 8, true);
}

// Small-font cells sit on 13-pixel rows inside paper margins: rows above and
// below the grid, one separator row between grid rows, and small_left
// columns at each side.
void update_lcd_small(Machine& m) {
    const auto paper = static_cast<uint8_t>(m.graph_mode == 1 ? 0 : m.bgcolor);
    const int32_t sw = std::min(m.ScreenWidth, kPlaneStride);
    const int32_t sh = std::min(m.ScreenHeight, kPlaneSize / kPlaneStride);
    for (int32_t y = 0; y < m.small_up; ++y) fill_row(m, y, paper);
    for (int32_t y = m.ScreenHeight - m.small_down; y < m.ScreenHeight; ++y) fill_row(m, y, paper);
    for (int32_t r = 1; r < m.curr_RPS; ++r) fill_row(m, m.small_up + 13 * r - 1, paper);
    for (int32_t i = 0; i < m.small_left; ++i)
        for (int32_t y = 0; y < sh; ++y)
            for (int32_t x : {i, sw - 1 - i})
                if (x >= 0 && x < sw) m.ScreenBuffer[y * kPlaneStride + x] = paper;

    for (int32_t r = 0; r < m.curr_RPS; ++r)
        if (!row_masked(m, r)) paint_row(m, r, m.small_left, m.small_up + 13 * r, 6, false);
}

void update_lcd_0(Machine& m) {
    if (m.scr_mode)
        update_lcd_small(m);
    else
        update_lcd_large(m);
    ToviNeedRefresh(m);
}

void c_setscreen(Machine& m) {
    get_val(m);
    setscreen(m, static_cast<uint8_t>(m.a1));
}

void c_locate(Machine& m) {
    get_vals(m);  // a1 row, a3 column
    const int col = static_cast<uint8_t>(m.a3), row = static_cast<uint8_t>(m.a1);
    m.scr_x = std::min(col, m.curr_CPR - 1);
    m.scr_y = std::min(row, m.curr_RPS - 1);
    m.scr_off = m.scr_x + m.scr_y * m.curr_CPR;
}

void c_updatelcd(Machine& m) {
    get_val(m);
    m.line_mode = m.a1;
    update_lcd_0(m);
    m.line_mode = 0;
}
