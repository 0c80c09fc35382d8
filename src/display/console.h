// The text console: a character grid in guest memory at TextBuffer.
#pragma once

#include <cstdint>

struct Machine;

struct Console {
    int32_t scr_mode = 0;  // 0 large font, 1 small font
    int32_t curr_CPR = 20, curr_RPS = 5;  // columns per row, rows per screen
    int32_t small_left = 0, small_up = 0, small_down = 0;
    int32_t scr_x = 0, scr_y = 0, scr_off = 0;
    // While set, console text goes to standard output instead of the grid.
    int32_t verbose_mode = 1;
    uint8_t verbose_buf[256] = {};  // pending GB2312 bytes for the host output
    int32_t verbose_buf_len = 0;
};

// Sets the grid geometry for the font size, homes the cursor, clears the cells.
void setscreen(Machine& m, int mode);
// Puts one byte into the console: the grid, or the host output in verbose mode.
void cout(Machine& m, uint8_t ch);
// Scrolls the grid up by one row; the new last row holds spaces.
void scr_up(Machine& m);
// Writes the pending GB2312 bytes to the host output as UTF-8.
void flush_verbose_buf(Machine& m);
// Repaints the grid on the visible plane and requests a refresh.
void update_lcd_0(Machine& m);
// Repaint of the grid on the visible plane in the large font (8 x 16 cells,
// margins left alone) and the small font (6 x 12 glyphs on 13-pixel rows,
// paper margins and separator rows). Rows set in line_mode are skipped.
void update_lcd_large(Machine& m);
void update_lcd_small(Machine& m);
