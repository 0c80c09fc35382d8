#include "frontend/gui/vw.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "display/font.h"

namespace {

constexpr int kMaxSide = 32767;
constexpr int64_t kMaxRadius = 1 << 16;  // beyond any surface; keeps the loops short

// The part of the clip rectangle that lies on the pixel array.
struct Box {
    int64_t x0, y0, x1, y1;
    bool empty() const { return x0 > x1 || y0 > y1; }
    bool has(int64_t x, int64_t y) const { return x >= x0 && x <= x1 && y >= y0 && y <= y1; }
};

Box clip_box(const sGraph& g) {
    if (!g.mem || g.width <= 0 || g.height <= 0) return {0, 0, -1, -1};
    return {std::max<int64_t>(g.clip.x0, 0), std::max<int64_t>(g.clip.y0, 0),
            std::min<int64_t>(g.clip.x1, g.width - 1), std::min<int64_t>(g.clip.y1, g.height - 1)};
}

uint32_t& px(const sGraph& g, int64_t x, int64_t y) { return g.mem[y * g.width + x]; }

// One pixel in absolute coordinates with the plotting rule of the draw mode.
void plot(sGraph& g, const Box& b, int64_t x, int64_t y) {
    if (!b.has(x, y)) return;
    switch (g.draw_mode & 7) {
        case DRAW_BROKEN:
            if (((x + y) & 1) == 0) px(g, x, y) = g.fgcolor;
            break;
        case DRAW_XOR: px(g, x, y) ^= 0xFFFFFF; break;
        default: px(g, x, y) = g.fgcolor;
    }
}

// A horizontal run, ends in any order, absolute coordinates.
void run(sGraph& g, const Box& b, int64_t xa, int64_t xb, int64_t y) {
    if (y < b.y0 || y > b.y1) return;
    if (xa > xb) std::swap(xa, xb);
    xa = std::max(xa, b.x0);
    xb = std::min(xb, b.x1);
    for (int64_t x = xa; x <= xb; ++x) plot(g, b, x, y);
}

void column(sGraph& g, const Box& b, int64_t x, int64_t ya, int64_t yb) {
    if (x < b.x0 || x > b.x1) return;
    if (ya > yb) std::swap(ya, yb);
    ya = std::max(ya, b.y0);
    yb = std::min(yb, b.y1);
    for (int64_t y = ya; y <= yb; ++y) plot(g, b, x, y);
}

// Plots a set of symmetric points once each, so XOR drawing stays exact.
template <size_t N>
void plot_set(sGraph& g, const Box& b, const int64_t (&p)[N][2]) {
    for (size_t i = 0; i < N; ++i) {
        bool seen = false;
        for (size_t j = 0; j < i && !seen; ++j) seen = p[j][0] == p[i][0] && p[j][1] == p[i][1];
        if (!seen) plot(g, b, p[i][0], p[i][1]);
    }
}

void Draw8Point(sGraph& g, const Box& b, int64_t cx, int64_t cy, int64_t x, int64_t y) {
    const int64_t p[8][2] = {{cx + x, cy + y}, {cx - x, cy + y}, {cx + x, cy - y}, {cx - x, cy - y},
                             {cx + y, cy + x}, {cx - y, cy + x}, {cx + y, cy - x}, {cx - y, cy - x}};
    plot_set(g, b, p);
}

void vw_put_dot4(sGraph& g, const Box& b, int64_t cx, int64_t cy, int64_t x, int64_t y) {
    const int64_t p[4][2] = {{cx + x, cy + y}, {cx - x, cy + y}, {cx + x, cy - y}, {cx - x, cy - y}};
    plot_set(g, b, p);
}

// Half-width of an ellipse row dy rows from the centre: the largest x with
// (x/rx)^2 + (dy/ry)^2 <= 1.
int64_t ellipse_half_width(int64_t rx, int64_t ry, int64_t dy) {
    const int64_t lim = rx * rx * ry * ry - dy * dy * rx * rx;
    if (lim < 0) return -1;
    int64_t x = static_cast<int64_t>(std::sqrt(static_cast<double>(lim) / static_cast<double>(ry * ry)));
    while (x > 0 && x * x * ry * ry > lim) --x;
    while ((x + 1) * (x + 1) * ry * ry <= lim) ++x;
    return x;
}

// GB2312 glyph index in the font table: rows A1-A9 are font rows 0-8, B0-F7
// rows 9-80 (so the empty rows AA-AF fall on B0-B5). -1 outside the table.
int gb_index(uint32_t hi, uint32_t lo) {
    if (hi < 0xA1 || hi > 0xFE || lo < 0xA1 || lo > 0xFE) return -1;
    const int row = hi < 176 ? int(hi) - 161 : int(hi) - 167;
    const int index = row * 94 + int(lo) - 161;
    return index < 81 * 94 ? index : -1;
}

}  // namespace

void vw_Init(sGraph& g, uint32_t* mem, int width, int height) {
    g = sGraph{};
    g.mem = mem;
    g.width = mem ? std::clamp(width, 0, kMaxSide) : 0;
    g.height = mem ? std::clamp(height, 0, kMaxSide) : 0;
    g.clip = {0, 0, static_cast<int16_t>(g.width - 1), static_cast<int16_t>(g.height - 1)};
}

uint32_t vw_SetFgColor(sGraph& g, uint32_t c) { return std::exchange(g.fgcolor, c); }
uint32_t vw_SetBgColor(sGraph& g, uint32_t c) { return std::exchange(g.bgcolor, c); }
uint32_t vw_SetKeyColor(sGraph& g, uint32_t c) { return std::exchange(g.keycolor, c); }
void vw_SetDrawMode(sGraph& g, int32_t mode) { g.draw_mode = mode; }
void vw_SetFont(sGraph& g, int32_t font) { g.font = font; }
void vw_SetOrg(sGraph& g, int x, int y) {
    g.org_x = x;
    g.org_y = y;
}

void vw_SetArea(sGraph& g, int x0, int y0, int x1, int y1) {
    if (x0 > x1) std::swap(x0, x1);
    if (y0 > y1) std::swap(y0, y1);
    vw_SetOrg(g, x0, y0);
    if (x1 < 0 || y1 < 0 || x0 >= g.width || y0 >= g.height) {
        g.clip = {0, 0, 0, 0};
        return;
    }
    g.clip = {static_cast<int16_t>(std::max(x0, 0)), static_cast<int16_t>(std::max(y0, 0)),
              static_cast<int16_t>(std::min(x1, g.width - 1)), static_cast<int16_t>(std::min(y1, g.height - 1))};
}

void vw_DrawPixel(sGraph& g, int x, int y) { plot(g, clip_box(g), int64_t{x} + g.org_x, int64_t{y} + g.org_y); }

uint32_t vw_GetPixel(const sGraph& g, int x, int y) {
    const int64_t ax = int64_t{x} + g.org_x, ay = int64_t{y} + g.org_y;
    return clip_box(g).has(ax, ay) ? px(g, ax, ay) : 0;
}

void vw_DrawLine(sGraph& g, int x0, int y0, int x1, int y1) {
    const Box b = clip_box(g);
    if (b.empty()) return;
    int64_t xa = int64_t{x0} + g.org_x, ya = int64_t{y0} + g.org_y;
    int64_t xb = int64_t{x1} + g.org_x, yb = int64_t{y1} + g.org_y;
    if (ya == yb) return run(g, b, xa, xb, ya);
    if (xa == xb) return column(g, b, xa, ya, yb);
    if (xa > xb) {  // step from the left end
        std::swap(xa, xb);
        std::swap(ya, yb);
    }
    const int64_t dx = xb - xa, dy = std::llabs(yb - ya), sy = yb > ya ? 1 : -1;
    const int64_t steps = std::max(dx, dy);
    int64_t ex = steps / 2, ey = steps / 2;  // error sums, centred so the line is symmetric
    int64_t x = xa, y = ya;
    for (int64_t i = 0; i <= steps; ++i) {
        plot(g, b, x, y);
        ex += dx;
        if (ex >= steps) ex -= steps, ++x;
        ey += dy;
        if (ey >= steps) ey -= steps, y += sy;
    }
}

void vw_FillRect(sGraph& g, int x0, int y0, int x1, int y1) {
    const Box b = clip_box(g);
    if (b.empty()) return;
    int64_t xa = int64_t{x0} + g.org_x, ya = int64_t{y0} + g.org_y;
    int64_t xb = int64_t{x1} + g.org_x, yb = int64_t{y1} + g.org_y;
    if (ya > yb) std::swap(ya, yb);
    for (int64_t y = std::max(ya, b.y0); y <= std::min(yb, b.y1); ++y) run(g, b, xa, xb, y);
}

void vw_DrawRect(sGraph& g, int x0, int y0, int x1, int y1) {
    const Box b = clip_box(g);
    if (b.empty()) return;
    int64_t xa = int64_t{x0} + g.org_x, ya = int64_t{y0} + g.org_y;
    int64_t xb = int64_t{x1} + g.org_x, yb = int64_t{y1} + g.org_y;
    if (xa > xb) std::swap(xa, xb);
    if (ya > yb) std::swap(ya, yb);
    run(g, b, xa, xb, ya);
    if (yb != ya) run(g, b, xa, xb, yb);
    if (yb - ya > 1) {  // sides without the corners, so each pixel is drawn once
        column(g, b, xa, ya + 1, yb - 1);
        if (xb != xa) column(g, b, xb, ya + 1, yb - 1);
    }
}

void vw_DrawCircle(sGraph& g, int x, int y, int r) {
    const Box b = clip_box(g);
    if (b.empty() || r < 0 || r > kMaxRadius) return;
    const int64_t cx = int64_t{x} + g.org_x, cy = int64_t{y} + g.org_y;
    int64_t px_ = 0, py = r, d = 1 - r;
    while (px_ <= py) {
        Draw8Point(g, b, cx, cy, px_, py);
        ++px_;
        if (d < 0) {
            d += 2 * px_ + 1;
        } else {
            --py;
            d += 2 * (px_ - py) + 1;
        }
    }
}

void vw_FillCircle(sGraph& g, int x, int y, int r) {
    const Box b = clip_box(g);
    if (b.empty() || r < 0 || r > kMaxRadius) return;
    const int64_t cx = int64_t{x} + g.org_x, cy = int64_t{y} + g.org_y, rr = r;
    const int64_t m = rr * 707 / 1000;
    int64_t xp = rr;  // half-width of the rows near the centre
    run(g, b, cx - rr, cx + rr, cy);
    for (int64_t i = 1; i <= m + 1; ++i) {
        if (rr * rr + rr / 2 < xp * xp + i * i) {
            if (xp > m + 1) {  // the rows at +-xp, in the steep octants
                run(g, b, cx - i + 1, cx + i - 1, cy + xp);
                run(g, b, cx - i + 1, cx + i - 1, cy - xp);
            }
            --xp;
        }
        if (xp < 0) break;  // radius 0: the centre pixel only
        run(g, b, cx - xp, cx + xp, cy + i);
        run(g, b, cx - xp, cx + xp, cy - i);
    }
}

void vw_DrawEllipse(sGraph& g, int x, int y, int rx, int ry) {
    const Box b = clip_box(g);
    if (b.empty() || rx < 0 || ry < 0 || rx > kMaxRadius || ry > kMaxRadius) return;
    const int64_t cx = int64_t{x} + g.org_x, cy = int64_t{y} + g.org_y;
    if (rx == 0 || ry == 0) {
        if (rx == 0)
            column(g, b, cx, cy - ry, cy + ry);
        else
            run(g, b, cx - rx, cx + rx, cy);
        return;
    }
    // Midpoint stepping in two regions: along x while the curve is flatter
    // than 45 degrees (from the top), then along y (from the side).
    const int64_t a2 = int64_t{rx} * rx, b2 = int64_t{ry} * ry;
    int64_t ex = 0, ey = ry, sigma = 2 * b2 + a2 * (1 - 2 * int64_t{ry});
    for (; b2 * ex <= a2 * ey; ++ex) {
        vw_put_dot4(g, b, cx, cy, ex, ey);
        if (sigma >= 0) sigma += 4 * a2 * (1 - ey--);
        sigma += b2 * (4 * ex + 6);
    }
    const int64_t last_y = ey;  // rows above this were drawn by the first region
    ex = rx;
    ey = 0;
    sigma = 2 * a2 + b2 * (1 - 2 * int64_t{rx});
    for (; a2 * ey <= b2 * ex && ey <= last_y; ++ey) {
        vw_put_dot4(g, b, cx, cy, ex, ey);
        if (sigma >= 0) sigma += 4 * b2 * (1 - ex--);
        sigma += a2 * (4 * ey + 6);
    }
}

void vw_FillEllipse(sGraph& g, int x, int y, int rx, int ry) {
    const Box b = clip_box(g);
    if (b.empty() || rx < 0 || ry < 0 || rx > kMaxRadius || ry > kMaxRadius) return;
    const int64_t cx = int64_t{x} + g.org_x, cy = int64_t{y} + g.org_y;
    if (ry == 0) return run(g, b, cx - rx, cx + rx, cy);
    for (int64_t dy = 0; dy <= ry; ++dy) {
        const int64_t hw = ellipse_half_width(rx, ry, dy);
        run(g, b, cx - hw, cx + hw, cy + dy);
        if (dy) run(g, b, cx - hw, cx + hw, cy - dy);
    }
}

void vw_ClearRect(sGraph& g, int x0, int y0, int x1, int y1) {
    const uint32_t fg = g.fgcolor;
    const int32_t mode = g.draw_mode;
    g.fgcolor = g.bgcolor;
    g.draw_mode = DRAW_COPY;
    vw_FillRect(g, x0, y0, x1, y1);
    g.fgcolor = fg;
    g.draw_mode = mode;
}

void vw_ClearArea(sGraph& g) {
    const Box b = clip_box(g);
    if (b.empty()) return;
    for (int64_t y = b.y0; y <= b.y1; ++y) std::fill(&px(g, b.x0, y), &px(g, b.x1, y) + 1, g.bgcolor);
}

void vw_bitblt(sGraph& dst, int dx, int dy, int w, int h, const sGraph& src, int sx, int sy, int32_t mode) {
    const Box db = clip_box(dst);
    if (db.empty() || !src.mem || w <= 0 || h <= 0) return;
    // Rows and columns that lie on the source array and in the destination clip.
    const int64_t i0 = std::max({int64_t{0}, -int64_t{sx}, db.x0 - dx});
    const int64_t i1 = std::min({int64_t{w}, int64_t{src.width} - sx, db.x1 + 1 - dx});
    const int64_t j0 = std::max({int64_t{0}, -int64_t{sy}, db.y0 - dy});
    const int64_t j1 = std::min({int64_t{h}, int64_t{src.height} - sy, db.y1 + 1 - dy});
    if (i0 >= i1 || j0 >= j1) return;
    // A transfer within one array reads from a copy, so overlaps cannot smear.
    std::vector<uint32_t> copy;
    const uint32_t* s = src.mem;
    int64_t s_width = src.width, s_x = sx, s_y = sy;
    if (src.mem == dst.mem) {
        copy.reserve(static_cast<size_t>((i1 - i0) * (j1 - j0)));
        for (int64_t j = j0; j < j1; ++j)
            for (int64_t i = i0; i < i1; ++i) copy.push_back(px(src, sx + i, sy + j));
        s = copy.data();
        s_width = i1 - i0;
        s_x = -i0;
        s_y = -j0;
    }
    const int op = mode & 7;
    const bool invert = mode & DRAW_NOT;
    for (int64_t j = j0; j < j1; ++j)
        for (int64_t i = i0; i < i1; ++i) {
            uint32_t c = s[(s_y + j) * s_width + s_x + i];
            if (op == DRAW_SPRITE && c == src.keycolor) continue;
            if (invert) c ^= 0xFFFFFF;
            const int64_t x = dx + i, y = dy + j;
            uint32_t& d = px(dst, x, y);
            switch (op) {
                case DRAW_BROKEN:
                    if (((x + y) & 1) == 0) d = c;
                    break;
                case DRAW_XOR: d ^= c & 0xFFFFFF; break;
                case DRAW_AND: d &= c; break;
                case DRAW_OR: d |= c; break;
                default: d = c;
            }
        }
}

void vw_BitBlt(sGraph& dst, int dx, int dy, int w, int h, const sGraph& src, int sx, int sy, int32_t mode) {
    vw_bitblt(dst, dx + dst.org_x, dy + dst.org_y, w, h, src, sx + src.org_x, sy + src.org_y, mode);
}

int GetFontHeight_os(int32_t font) { return (font & 3) == FONT_SMALL ? 12 : 16; }

int GetFontData_os(uint32_t code, int32_t font, uint16_t rows[16]) {
    const bool small = GetFontHeight_os(font) == 12;
    std::fill(rows, rows + 16, 0);
    if (code < 0x100) {
        if (code >= 0x80) return small ? 6 : 8;
        const unsigned char* p = tvx_font + (small ? kFontAscii12 + code * 12 : kFontAscii16 + code * 16);
        for (int r = 0; r < (small ? 12 : 16); ++r) rows[r] = static_cast<uint16_t>(p[r] << 8);
        return small ? 6 : 8;
    }
    const int index = gb_index(code >> 8 & 0xFF, code & 0xFF);
    if (index < 0 || code > 0xFFFF) return small ? 12 : 16;
    const unsigned char* p = tvx_font + (small ? kFontGb12 + uint32_t(index) * 24 : kFontGb16 + uint32_t(index) * 32);
    for (int r = 0; r < (small ? 12 : 16); ++r)
        rows[r] = static_cast<uint16_t>(p[2 * r] << 8 | (small ? p[2 * r + 1] & 0xF0 : p[2 * r + 1]));
    return small ? 12 : 16;
}

int DispFont(sGraph& g, int x, int y, uint32_t code) {
    uint16_t rows[16];
    const int h = GetFontHeight_os(g.font);
    const int w = GetFontData_os(code, g.font, rows);
    const bool bold = g.font & FONT_BOLD, italic = g.font & FONT_ITALIC;
    const bool underline = g.font & FONT_UNDERLINE, border = g.font & FONT_BORDER;
    const int tilt = italic ? (h - 1) / 4 : 0;  // top row shifted most
    const int edge = border ? 1 : 0;
    const int cw = w + (bold ? 1 : 0) + tilt + 2 * edge, ch = h + 2 * edge;

    // The character is drawn into a private context, then transferred.
    uint32_t cell[(16 + 1 + 3 + 2) * (16 + 2)];
    sGraph c;
    vw_Init(c, cell, cw, ch);
    uint32_t back = g.bgcolor;
    if (border) {
        // Key: the first small value that is neither ink nor border.
        back = 0;
        while (back == g.fgcolor || back == g.bordercolor) ++back;
    }
    std::fill(cell, cell + cw * ch, back);
    auto ink = [&](int px_, int py) { cell[py * cw + px_] = g.fgcolor; };
    for (int r = 0; r < h; ++r) {
        const int shift = italic ? (h - 1 - r) / 4 : 0;
        for (int col = 0; col < w; ++col)
            if (rows[r] & (0x8000 >> col)) {
                ink(edge + col + shift, edge + r);
                if (bold) ink(edge + col + shift + 1, edge + r);
            }
    }
    if (underline)
        for (int col = 0; col < w + (bold ? 1 : 0); ++col) ink(edge + col, edge + h - 1);
    if (border) {
        std::vector<uint8_t> is_ink(size_t(cw * ch));
        for (int i = 0; i < cw * ch; ++i) is_ink[size_t(i)] = cell[i] == g.fgcolor;
        for (int py = 0; py < ch; ++py)
            for (int px_ = 0; px_ < cw; ++px_) {
                if (is_ink[size_t(py * cw + px_)]) continue;
                bool near = false;
                for (int j = -1; j <= 1 && !near; ++j)
                    for (int i = -1; i <= 1 && !near; ++i) {
                        const int nx = px_ + i, ny = py + j;
                        near = nx >= 0 && ny >= 0 && nx < cw && ny < ch && is_ink[size_t(ny * cw + nx)];
                    }
                if (near) cell[py * cw + px_] = g.bordercolor;
            }
        c.keycolor = back;
        vw_bitblt(g, x + g.org_x - 1, y + g.org_y - 1, cw, ch, c, 0, 0, DRAW_SPRITE);
    } else {
        c.keycolor = g.bgcolor;
        vw_bitblt(g, x + g.org_x, y + g.org_y, cw, ch, c, 0, 0, g.draw_mode);
    }
    return w + (bold ? 1 : 0);
}

int vw_TextOut(sGraph& g, int x, int y, const char* text, int length) {
    if (!text) return 0;
    const auto* p = reinterpret_cast<const unsigned char*>(text);
    const size_t n = length < 0 ? std::strlen(text) : static_cast<size_t>(length);
    int advance = 0;
    for (size_t i = 0; i < n; ++i) {
        uint32_t code = p[i];
        if (code >= 0x80) {
            if (code >= 0xA1 && code <= 0xFE && i + 1 < n && p[i + 1] >= 0xA1 && p[i + 1] <= 0xFE)
                code = code << 8 | p[++i];
            else
                code = '?';
        }
        advance += DispFont(g, x + advance, y, code);
    }
    return advance;
}
