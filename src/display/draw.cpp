// Drawing primitives on the screen planes: pixels, runs, rectangles,
// circles and ellipses.
#include "display/draw.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "lib/syscalls.h"
#include "vm/machine.h"

namespace {

constexpr uint32_t kBufferBytes = sizeof(Screen::ScreenBuffer);

// What lcmd 2 XORs a pixel with: the brightest value of the mode.
uint8_t invert_mask(const Screen& s) { return s.graph_mode == 1 ? 1 : s.graph_mode == 4 ? 15 : 0xFF; }

// Applies lcmd to n bytes at p.
void apply_run(const Screen& s, uint8_t lcmd, uint8_t* p, uint32_t n) {
    switch (lcmd) {
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
void plot(Machine& m, const Pen& pen, int64_t x, int64_t y) {
    if (x < 0 || y < 0 || x >= screen_w(m) || y >= screen_h(m)) return;
    put_dot(m, pen, static_cast<uint16_t>(x), static_cast<uint16_t>(y));
}

// Orders the corners and clamps them to the screen; false when nothing is left.
bool block_check(const Machine& m, Corners& c) {
    if (c.Y0 > c.Y1) std::swap(c.Y0, c.Y1);
    if (c.x0 > c.x1) std::swap(c.x0, c.x1);
    if (c.x0 >= screen_w(m) || c.Y0 >= screen_h(m)) return false;
    c.x1 = static_cast<uint16_t>(std::min<int>(c.x1, screen_w(m) - 1));
    c.Y1 = static_cast<uint16_t>(std::min<int>(c.Y1, screen_h(m) - 1));
    return true;
}

// Clips the run x0..x1 of row Y0 to the screen; false when nothing is left.
bool hline_check(const Machine& m, Corners& c) {
    if (c.Y0 >= screen_h(m)) return false;
    if (c.x0 > c.x1) std::swap(c.x0, c.x1);
    if (c.x0 >= screen_w(m)) return false;
    c.x1 = static_cast<uint16_t>(std::min<int>(c.x1, screen_w(m) - 1));
    return true;
}

// Rows with a filled shape on them: the half-width of the shape on each
// row, -1 for a row it does not touch.
using CircleRows = std::array<int32_t, kPlaneSize / kPlaneStride>;

// Four-way symmetric plot of a circle or ellipse point; with rows, records
// the half-width dx for rows cy - dy and cy + dy there instead.
void put_dot4(Machine& m, const Pen& pen, int32_t cx, int32_t cy, int32_t dx, int32_t dy, CircleRows* rows) {
    if (rows) {
        for (const int64_t r : {int64_t{cy} - dy, int64_t{cy} + dy})
            if (r >= 0 && r < screen_h(m) && dx >= (*rows)[r]) (*rows)[r] = dx;
        return;
    }
    const int64_t x = cx, y = cy;
    if (dx != 0 && dy != 0) {
        plot(m, pen, x + dx, y + dy);
        plot(m, pen, x - dx, y + dy);
        plot(m, pen, x + dx, y - dy);
        plot(m, pen, x - dx, y - dy);
    } else if (dx != 0) {
        plot(m, pen, x + dx, y);
        plot(m, pen, x - dx, y);
    } else {
        plot(m, pen, x, y + dy);
        plot(m, pen, x, y - dy);
    }
}

}  // namespace

void put_dot(Machine& m, const Pen& pen, uint16_t xx, uint16_t yy) {
    if (xx >= screen_w(m) || yy >= screen_h(m)) return;
    apply_run(m, pen.lcmd, m.ScreenBuffer + ByteAddr(xx, yy, pen.no_buf), 1);
}

uint8_t get_dot(const Machine& m, uint8_t no_buf, uint16_t xx, uint16_t yy) {
    const uint32_t at = ByteAddr(xx, yy, no_buf);
    return at < kBufferBytes ? m.ScreenBuffer[at] : 0;
}

void PutPixelx(Machine& m, const Pen& pen, int32_t x, int32_t y) { plot(m, pen, x, y); }

void hline(Machine& m, const Pen& pen, uint16_t x0, uint16_t x1, uint16_t y) {
    const uint32_t at = ByteAddr(x0, y, pen.no_buf);
    if (at >= kBufferBytes) return;
    const uint32_t n = static_cast<uint16_t>(x1 - x0 + 1);
    apply_run(m, pen.lcmd, m.ScreenBuffer + at, std::min(n, kBufferBytes - at));
}

void vline(Machine& m, const Pen& pen, uint16_t x, uint16_t y0, uint16_t y1) {
    if (screen_h(m) == 0) return;
    const uint32_t lo = std::min(y0, y1), hi = std::max(y0, y1);
    // Rows from the screen height on are dropped by put_dot anyway; stopping
    // there also keeps a run that ends at row 65,535 from wrapping round.
    const uint32_t end = std::min<uint32_t>(hi, static_cast<uint32_t>(screen_h(m)) - 1);
    for (uint32_t y = lo; y <= end; ++y) put_dot(m, pen, x, static_cast<uint16_t>(y));
}

void block_draw(Machine& m, const Pen& pen, Corners c) {
    if (!block_check(m, c)) return;
    for (uint32_t y = c.Y0; y <= c.Y1; ++y) hline(m, pen, c.x0, c.x1, static_cast<uint16_t>(y));
}

void square_draw(Machine& m, const Pen& pen, Corners c) {
    if (!block_check(m, c)) return;
    hline(m, pen, c.x0, c.x1, c.Y0);
    vline(m, pen, c.x0, c.Y0, c.Y1);
    vline(m, pen, c.x1, c.Y0, c.Y1);
    hline(m, pen, c.x0, c.x1, c.Y1);
}

// Traces a circle of radius mm = max(rx, ry) by its error sum and steps x
// and y only when the accumulators ax, ay (16-bit) pass mm, which scales the
// circle to rx by ry.
void Ellipsex(Machine& m, const Pen& pen, int32_t cx, int32_t cy, int32_t rx, int32_t ry, int fill) {
    // The calls pass 16-bit radii; anything else is held to that range.
    rx = std::clamp(rx, 0, 0xFFFF);
    ry = std::clamp(ry, 0, 0xFFFF);
    const int h = screen_h(m);
    CircleRows circle_buf;
    circle_buf.fill(-1);
    CircleRows* const rows = fill ? &circle_buf : nullptr;
    if (rx == 0) {
        PutPixelx(m, pen, cx, cy);
        return;
    }
    const int32_t mm = std::max(ry, rx);
    int32_t kx = 1 - 2 * mm, ky = 1, err = 0, x = rx, y = 0, xstep = -1, ystep = 1;
    uint16_t ax = 0, ay = 0;
    bool seen = false;
    put_dot4(m, pen, cx, cy, rx, 0, rows);
    // The trace ends within 2 * mm steps while the 16-bit accumulators cannot
    // wrap. Radii beyond 32,768 can make them wrap so that x never reaches 0;
    // the limit ends such traces instead of looping for ever.
    for (int64_t steps = 8 * int64_t{mm} + 16; x != 0 && steps > 0; --steps) {
        if (err >= 0) {
            ax = static_cast<uint16_t>(ax + rx);
            if (ax >= mm) {
                x += xstep;
                ax = static_cast<uint16_t>(ax - mm);
                if (x + 1 != rx) put_dot4(m, pen, cx, cy, x, y, rows);
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
                    put_dot4(m, pen, cx, cy, rx, y, rows);
                } else {
                    seen = true;
                    put_dot4(m, pen, cx, cy, x, y, rows);
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
        const int32_t half = circle_buf[static_cast<size_t>(r)];
        if (half < 0) continue;
        const int64_t from = std::max<int64_t>(int64_t{cx} - half, 0);
        const int64_t to = std::min<int64_t>(int64_t{cx} + half, w - 1);
        for (int64_t px = from; px <= to; ++px) plot(m, pen, px, r);
    }
}

// ---- System calls ----

namespace {

// Points, lines, circles and ellipses draw on the visible plane when the
// type's bit 0x40 is clear (blocks and rectangles take the opposite sense).
Pen clear_is_visible(uint32_t type) {
    return Pen{static_cast<uint8_t>(type & 3), static_cast<uint8_t>((type & 0x40) ^ 0x40), 0};
}

void refresh_if_visible(Machine& m, const Pen& pen) {
    if (pen.no_buf) ToviNeedRefresh(m);
}

// Pops type, y1, x1, y0, x0 (the guest passes x0, y0, x1, y1, type); the
// pen draws with type & 3 on the plane that type & 0x40 selects.
Pen block_comm(Machine& m, Corners& c) {
    const uint32_t type = pop_cell(m);
    c.Y1 = static_cast<uint16_t>(pop_cell(m));
    c.x1 = static_cast<uint16_t>(pop_cell(m));
    c.Y0 = static_cast<uint16_t>(pop_cell(m));
    c.x0 = static_cast<uint16_t>(pop_cell(m));
    return Pen{static_cast<uint8_t>(type & 3), static_cast<uint8_t>(type & 0x40), 0};
}

// The line from (x0, Y0) to (x1, Y1), neither end on one axis with the
// other. The error sums start at 0, so each run's step falls at its end and
// the last point is exactly the far end.
void slanted_line(Machine& m, const Pen& pen, Corners c) {
    if (c.x1 < c.x0) {
        std::swap(c.x0, c.x1);
        std::swap(c.Y0, c.Y1);
    }
    const uint16_t dx = static_cast<uint16_t>(c.x1 - c.x0);
    const uint16_t dy = static_cast<uint16_t>(c.Y1 > c.Y0 ? c.Y1 - c.Y0 : c.Y0 - c.Y1);
    const int ystep = c.Y1 > c.Y0 ? 1 : -1;
    const uint16_t n = std::max(dx, dy);
    uint16_t ex = 0, ey = 0;
    uint16_t x = c.x0, y = c.Y0;
    for (uint32_t i = 0; i <= n; ++i) {
        put_dot(m, pen, x, y);
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
    const Pen pen = clear_is_visible(pop_cell(m));
    const auto y = static_cast<uint16_t>(pop_cell(m));
    const auto x = static_cast<uint16_t>(pop_cell(m));
    put_dot(m, pen, x, y);
    refresh_if_visible(m, pen);
}

void c_getpoint(Machine& m) {
    const auto y = static_cast<uint16_t>(pop_cell(m));
    const auto x = static_cast<uint16_t>(pop_cell(m));
    push_cell(m, get_dot(m, 0x40, x, y));
}

void c_line(Machine& m) {
    Corners c;
    Pen pen = block_comm(m, c);
    pen.no_buf ^= 0x40;
    if (c.x0 == c.x1) {
        vline(m, pen, c.x0, c.Y0, c.Y1);
    } else if (c.Y0 == c.Y1) {
        if (hline_check(m, c)) hline(m, pen, c.x0, c.x1, c.Y0);
    } else {
        slanted_line(m, pen, c);
    }
    refresh_if_visible(m, pen);
}

void c_block(Machine& m) {
    Corners c;
    const Pen pen = block_comm(m, c);
    block_draw(m, pen, c);
    refresh_if_visible(m, pen);
}

void c_rectangle(Machine& m) {
    Corners c;
    const Pen pen = block_comm(m, c);
    square_draw(m, pen, c);
    refresh_if_visible(m, pen);
}

void c_box(Machine& m) {
    const uint32_t type = pop_cell(m);
    const uint32_t fill = pop_cell(m) & 0xFF;
    Corners c;
    c.Y1 = static_cast<uint16_t>(pop_cell(m));
    c.x1 = static_cast<uint16_t>(pop_cell(m));
    c.Y0 = static_cast<uint16_t>(pop_cell(m));
    c.x0 = static_cast<uint16_t>(pop_cell(m));
    const Pen pen{static_cast<uint8_t>(type & 3), 0x40, 0};
    if (fill)
        block_draw(m, pen, c);
    else
        square_draw(m, pen, c);
    ToviNeedRefresh(m);
}

namespace {

// Circles and ellipses share their arguments but the second radius: x, y,
// rx, [ry,] fill, type.
void round_shape(Machine& m, bool one_radius) {
    const Pen pen = clear_is_visible(pop_cell(m));
    const uint16_t fill = static_cast<uint16_t>(pop_cell(m));
    const uint16_t ry = static_cast<uint16_t>(pop_cell(m));
    const uint16_t rx = one_radius ? ry : static_cast<uint16_t>(pop_cell(m));
    const int16_t cy = static_cast<int16_t>(pop_cell(m));
    const int16_t cx = static_cast<int16_t>(pop_cell(m));
    Ellipsex(m, pen, cx, cy, rx, ry, fill);
    refresh_if_visible(m, pen);
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
