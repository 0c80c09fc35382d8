#include "display/console.h"

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
