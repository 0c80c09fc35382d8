#include "display/console.h"

#include <algorithm>
#include <cstring>

#include "cjk/gbconv.h"
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
    std::memset(m.verbose_buf, 0, sizeof m.verbose_buf);
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

// The grid is painted with the built-in fonts by the display code; here the
// console clears the mirror flag and asks for the picture to be presented.
void update_lcd_0(Machine& m) {
    m.negative = 0;
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
