// Drawing primitives on the screen planes: pixels, runs, rectangles,
// circles and ellipses.
#include "display/draw.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "lib/syscalls.h"
#include "vm/machine.h"

namespace {

constexpr uint32_t kBufferBytes = sizeof(Screen::ScreenBuffer);

// What lcmd 2 XORs a pixel with: the brightest value of the mode.
uint8_t invert_mask(const Screen& s) { return s.graph_mode == 1 ? 1 : s.graph_mode == 4 ? 15 : 0xFF; }

// Applies lcmd to n bytes at p.
void apply_run(Screen& s, uint8_t* p, uint32_t n) {
    switch (s.lcmd) {
        case 0: std::memset(p, s.graph_mode == 1 ? 0 : static_cast<uint8_t>(s.bgcolor), n); break;
        case 1: std::memset(p, s.graph_mode == 1 ? 1 : static_cast<uint8_t>(s.fgcolor), n); break;
        case 2: {
            const uint8_t k = invert_mask(s);
            for (uint32_t i = 0; i < n; ++i) p[i] ^= k;
            break;
        }
        default: break;
    }
}

// PutPixelx on coordinates that cannot overflow.
void plot(Machine& m, int64_t x, int64_t y) {
    if (x < 0 || y < 0 || x >= screen_w(m) || y >= screen_h(m)) return;
    m.xx = static_cast<uint16_t>(x);
    m.yy = static_cast<uint16_t>(y);
    put_dot(m);
}

// vline along column x from row y0 to row y1 (either order).
void column(Machine& m, uint16_t x, uint16_t y0, uint16_t y1) {
    if (screen_h(m) == 0) return;
    const uint32_t lo = std::min(y0, y1), hi = std::max(y0, y1);
    // Rows from the screen height on are dropped by put_dot anyway; stopping
    // there also keeps a run that ends at row 65,535 from wrapping round.
    const uint32_t end = std::min<uint32_t>(hi, static_cast<uint32_t>(screen_h(m)) - 1);
    m.xx = x;
    for (uint32_t y = lo; y <= end; ++y) {
        m.yy = static_cast<uint16_t>(y);
        put_dot(m);
    }
}

// hline on row y, leaving Y0 as it was.
void row(Machine& m, uint16_t y) {
    const uint16_t keep = m.Y0;
    m.Y0 = y;
    hline(m);
    m.Y0 = keep;
}

}  // namespace

void put_dot(Machine& m) {
    if (m.xx >= screen_w(m) || m.yy >= screen_h(m)) return;
    ByteAddr(m);
    apply_run(m, m.ScreenBuffer + m.m1l, 1);
}

uint8_t get_dot(Machine& m) {
    ByteAddr(m);
    return m.m1l < kBufferBytes ? m.ScreenBuffer[m.m1l] : 0;
}

void PutPixelx(Machine& m, int32_t x, int32_t y) { plot(m, x, y); }

void hline(Machine& m) {
    m.xx = m.x0;
    m.yy = m.Y0;
    ByteAddr(m);
    if (m.m1l >= kBufferBytes) return;
    const uint32_t n = static_cast<uint16_t>(m.x1 - m.x0 + 1);
    apply_run(m, m.ScreenBuffer + m.m1l, std::min(n, kBufferBytes - m.m1l));
}

void vline(Machine& m) { column(m, m.x0, m.Y0, m.Y1); }

int block_check(Machine& m) {
    if (m.Y0 > m.Y1) std::swap(m.Y0, m.Y1);
    if (m.x0 > m.x1) std::swap(m.x0, m.x1);
    if (m.x0 >= screen_w(m) || m.Y0 >= screen_h(m)) return 0;
    m.x1 = static_cast<uint16_t>(std::min<int>(m.x1, screen_w(m) - 1));
    m.Y1 = static_cast<uint16_t>(std::min<int>(m.Y1, screen_h(m) - 1));
    return 1;
}

int hline_check(Machine& m) {
    if (m.Y0 >= screen_h(m)) return 0;
    if (m.x0 > m.x1) std::swap(m.x0, m.x1);
    if (m.x0 >= screen_w(m)) return 0;
    m.x1 = static_cast<uint16_t>(std::min<int>(m.x1, screen_w(m) - 1));
    return 1;
}

void block_draw(Machine& m) {
    if (!block_check(m)) return;
    for (uint32_t y = m.Y0; y <= m.Y1; ++y) row(m, static_cast<uint16_t>(y));
}

void square_draw(Machine& m) {
    if (!block_check(m)) return;
    row(m, m.Y0);
    column(m, m.x0, m.Y0, m.Y1);
    column(m, m.x1, m.Y0, m.Y1);
    row(m, m.Y1);
}

void block_comm(Machine& m) {
    get_val(m);
    const uint32_t type = m.a1;
    get_val(m);
    m.Y1 = static_cast<uint16_t>(m.a1);
    get_val(m);
    m.x1 = static_cast<uint16_t>(m.a1);
    get_val(m);
    m.Y0 = static_cast<uint16_t>(m.a1);
    get_val(m);
    m.x0 = static_cast<uint16_t>(m.a1);
    m.no_buf = static_cast<uint8_t>(type & 0x40);
    m.lcmd = static_cast<uint8_t>(type & 3);
}

void put_dot4(Machine& m, int32_t cx, int32_t cy, int32_t dx, int32_t dy, int fill) {
    if (fill) {
        for (const int64_t r : {int64_t{cy} - dy, int64_t{cy} + dy})
            if (r >= 0 && r < screen_h(m) && dx >= m.circle_buf[r]) m.circle_buf[r] = dx;
        return;
    }
    const int64_t x = cx, y = cy;
    if (dx != 0 && dy != 0) {
        plot(m, x + dx, y + dy);
        plot(m, x - dx, y + dy);
        plot(m, x + dx, y - dy);
        plot(m, x - dx, y - dy);
    } else if (dx != 0) {
        plot(m, x + dx, y);
        plot(m, x - dx, y);
    } else {
        plot(m, x, y + dy);
        plot(m, x, y - dy);
    }
}

// Traces a circle of radius mm = max(rx, ry) by its error sum and steps x
// and y only when the accumulators ax, ay (16-bit) pass mm, which scales the
// circle to rx by ry.
void Ellipsex(Machine& m, int32_t cx, int32_t cy, int32_t rx, int32_t ry, int fill) {
    // The calls pass 16-bit radii; anything else is held to that range.
    rx = std::clamp(rx, 0, 0xFFFF);
    ry = std::clamp(ry, 0, 0xFFFF);
    const int h = screen_h(m);
    if (fill) std::fill(m.circle_buf, m.circle_buf + h, -1);
    if (rx == 0) {
        PutPixelx(m, cx, cy);
        return;
    }
    const int32_t mm = std::max(ry, rx);
    int32_t kx = 1 - 2 * mm, ky = 1, err = 0, x = rx, y = 0, xstep = -1, ystep = 1;
    uint16_t ax = 0, ay = 0;
    bool seen = false;
    put_dot4(m, cx, cy, rx, 0, fill);
    // The trace ends within 2 * mm steps while the 16-bit accumulators cannot
    // wrap. Radii beyond 32,768 can make them wrap so that x never reaches 0;
    // the limit ends such traces instead of looping for ever.
    for (int64_t steps = 8 * int64_t{mm} + 16; x != 0 && steps > 0; --steps) {
        if (err >= 0) {
            ax = static_cast<uint16_t>(ax + rx);
            if (ax >= mm) {
                x += xstep;
                ax = static_cast<uint16_t>(ax - mm);
                if (x + 1 != rx) put_dot4(m, cx, cy, x, y, fill);
            }
            err -= std::abs(kx);
            kx += 2;
            if (kx >= 0 && kx <= 2) {
                ystep = -ystep;
                ky = 2 - ky;
                err = -err;
            }
        } else {
            ay = static_cast<uint16_t>(ay + ry);
            if (ay >= mm) {
                ay = static_cast<uint16_t>(ay - mm);
                y += ystep;
                if ((y == 1 || y == 2) && !seen) {
                    put_dot4(m, cx, cy, rx, y, fill);
                } else {
                    seen = true;
                    put_dot4(m, cx, cy, x, y, fill);
                }
            }
            err += std::abs(ky);
            ky += 2;
            if (ky >= 0 && ky <= 2) {
                xstep = -xstep;
                kx = 2 - kx;
                err = -err;
            }
        }
    }
    if (!fill) return;
    // Each recorded row is one span; only its part on the screen is walked.
    const int64_t w = screen_w(m);
    for (int r = 0; r < h; ++r) {
        const int32_t half = m.circle_buf[r];
        if (half < 0) continue;
        const int64_t from = std::max<int64_t>(int64_t{cx} - half, 0);
        const int64_t to = std::min<int64_t>(int64_t{cx} + half, w - 1);
        for (int64_t px = from; px <= to; ++px) plot(m, px, r);
    }
}

// ---- System calls ----

namespace {

// Points, lines, circles and ellipses draw on the visible plane when the
// type's bit 0x40 is clear (blocks and rectangles take the opposite sense).
void take_type_clear_is_visible(Machine& m, uint32_t type) {
    m.lcmd = static_cast<uint8_t>(type & 3);
    m.no_buf = static_cast<uint8_t>((type & 0x40) ^ 0x40);
}

void refresh_if_visible(Machine& m) {
    if (m.no_buf) ToviNeedRefresh(m);
}

// The line from (x0, Y0) to (x1, Y1), neither end on one axis with the
// other. The error sums start at 0, so each run's step falls at its end and
// the last point is exactly the far end.
void slanted_line(Machine& m) {
    if (m.x1 < m.x0) {
        std::swap(m.x0, m.x1);
        std::swap(m.Y0, m.Y1);
    }
    const uint16_t dx = static_cast<uint16_t>(m.x1 - m.x0);
    const uint16_t dy = static_cast<uint16_t>(m.Y1 > m.Y0 ? m.Y1 - m.Y0 : m.Y0 - m.Y1);
    const int ystep = m.Y1 > m.Y0 ? 1 : -1;
    const uint16_t n = std::max(dx, dy);
    uint16_t ex = 0, ey = 0;
    uint16_t x = m.x0, y = m.Y0;
    for (uint32_t i = 0; i <= n; ++i) {
        m.xx = x;
        m.yy = y;
        put_dot(m);
        ex = static_cast<uint16_t>(ex + dx);
        ey = static_cast<uint16_t>(ey + dy);
        if (ex >= n) {
            ex = static_cast<uint16_t>(ex - n);
            ++x;
        }
        if (ey >= n) {
            ey = static_cast<uint16_t>(ey - n);
            y = static_cast<uint16_t>(y + ystep);
        }
    }
}

}  // namespace

void c_point(Machine& m) {
    const uint32_t type = pop_cell(m);
    m.yy = static_cast<uint16_t>(pop_cell(m));
    m.xx = static_cast<uint16_t>(pop_cell(m));
    take_type_clear_is_visible(m, type);
    put_dot(m);
    refresh_if_visible(m);
}

void c_getpoint(Machine& m) {
    m.yy = static_cast<uint16_t>(pop_cell(m));
    m.xx = static_cast<uint16_t>(pop_cell(m));
    m.no_buf = 0x40;
    push_cell(m, get_dot(m));
}

void c_line(Machine& m) {
    block_comm(m);
    m.no_buf ^= 0x40;
    if (m.x0 == m.x1) {
        vline(m);
    } else if (m.Y0 == m.Y1) {
        if (hline_check(m)) hline(m);
    } else {
        slanted_line(m);
    }
    refresh_if_visible(m);
}

void c_block(Machine& m) {
    block_comm(m);
    block_draw(m);
    refresh_if_visible(m);
}

void c_rectangle(Machine& m) {
    block_comm(m);
    square_draw(m);
    refresh_if_visible(m);
}

void c_box(Machine& m) {
    const uint32_t type = pop_cell(m);
    const uint32_t fill = pop_cell(m) & 0xFF;
    m.Y1 = static_cast<uint16_t>(pop_cell(m));
    m.x1 = static_cast<uint16_t>(pop_cell(m));
    m.Y0 = static_cast<uint16_t>(pop_cell(m));
    m.x0 = static_cast<uint16_t>(pop_cell(m));
    m.lcmd = static_cast<uint8_t>(type & 3);
    m.no_buf = 0x40;
    if (fill)
        block_draw(m);
    else
        square_draw(m);
    ToviNeedRefresh(m);
}

namespace {

// Circles and ellipses share their arguments but the second radius: x, y,
// rx, [ry,] fill, type.
void round_shape(Machine& m, bool one_radius) {
    const uint32_t type = pop_cell(m);
    const uint16_t fill = static_cast<uint16_t>(pop_cell(m));
    const uint16_t ry = static_cast<uint16_t>(pop_cell(m));
    const uint16_t rx = one_radius ? ry : static_cast<uint16_t>(pop_cell(m));
    const int16_t cy = static_cast<int16_t>(pop_cell(m));
    const int16_t cx = static_cast<int16_t>(pop_cell(m));
    take_type_clear_is_visible(m, type);
    Ellipsex(m, cx, cy, rx, ry, fill);
    refresh_if_visible(m);
}

}  // namespace

void c_circle(Machine& m) { round_shape(m, true); }
void c_ellipse(Machine& m) { round_shape(m, false); }

// Flood fill is not offered; the call only takes its three arguments so
// that programs using it run on.
void c_fill(Machine& m) {
    pop_cell(m);
    pop_cell(m);
    pop_cell(m);
}
