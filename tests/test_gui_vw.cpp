// The vw_ drawing library: context set-up and clipping, plotting modes,
// lines, rectangles, circles and ellipses, block transfers and text.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <utility>
#include <vector>

#include "frontend/gui/vw.h"

namespace {

constexpr uint32_t kBack = 0x11111111, kGuard = 0xDEADBEEF, kInk = 0xFF00FF00;

// A w x h pixel array with guard words after it.
struct Canvas {
    int w, h;
    std::vector<uint32_t> mem;
    sGraph g;
    Canvas(int w_, int h_) : w(w_), h(h_), mem(size_t(w_ * h_ + 16), kGuard) {
        std::fill(mem.begin(), mem.begin() + w * h, kBack);
        vw_Init(g, mem.data(), w, h);
        vw_SetFgColor(g, kInk);
    }
    uint32_t at(int x, int y) const { return mem[size_t(y * w + x)]; }
    std::set<std::pair<int, int>> inked(uint32_t c = kInk) const {
        std::set<std::pair<int, int>> s;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                if (at(x, y) == c) s.insert({x, y});
        return s;
    }
    bool guards_intact() const {
        return std::all_of(mem.begin() + w * h, mem.end(), [](uint32_t v) { return v == kGuard; });
    }
};

// The set reflected through the centre lines (and swapped, for circles).
bool symmetric(const std::set<std::pair<int, int>>& s, int cx, int cy, bool diagonal) {
    for (const auto& [x, y] : s) {
        const int dx = x - cx, dy = y - cy;
        if (!s.count({cx - dx, y}) || !s.count({x, cy - dy})) return false;
        if (diagonal && !s.count({cx + dy, cy + dx})) return false;
    }
    return true;
}

}  // namespace

TEST(Vw, SettersAreaAndClipping) {
    Canvas c(20, 10);
    vw_SetKeyColor(c.g, 7);
    EXPECT_EQ(vw_SetKeyColor(c.g, 8), 7u);

    vw_SetArea(c.g, 15, 8, 5, -3);  // corners in any order, cut to the array
    EXPECT_EQ(std::make_pair(c.g.org_x, c.g.org_y), std::make_pair(5, -3));
    vw_FillRect(c.g, -100, -100, 100, 100);
    EXPECT_EQ(c.inked().size(), size_t(11 * 9));  // (5,0) to (15,8)
    EXPECT_EQ(c.at(5, 0), kInk);
    EXPECT_EQ(vw_GetPixel(c.g, 0, 3), kInk);  // relative to the origin (5, -3)
    EXPECT_EQ(vw_GetPixel(c.g, -1, 3), 0u);   // outside the clip

    vw_SetArea(c.g, 30, 30, 40, 40);  // wholly outside
    EXPECT_EQ(c.g.clip.x0 + c.g.clip.y0 + c.g.clip.x1 + c.g.clip.y1, 0);

    // A clip set by hand beyond the array is still held to the array.
    c.g.org_x = c.g.org_y = 0;
    c.g.clip = {-50, -50, 3000, 3000};
    vw_FillRect(c.g, -1000, -1000, 1000, 1000);
    vw_FillCircle(c.g, 10, 5, 5000);
    vw_DrawEllipse(c.g, 10, 5, 400, 300);
    vw_DrawLine(c.g, -500, -70, 900, 400);
    EXPECT_TRUE(c.guards_intact());
}

TEST(Vw, PlottingModes) {
    Canvas c(8, 8);
    vw_SetDrawMode(c.g, DRAW_BROKEN);
    vw_FillRect(c.g, 0, 0, 7, 7);
    EXPECT_EQ(c.inked().size(), 32u);
    EXPECT_EQ(c.at(1, 0), kBack);
    EXPECT_EQ(c.at(1, 1), kInk);

    vw_SetDrawMode(c.g, DRAW_XOR);
    vw_FillRect(c.g, 0, 0, 7, 0);
    EXPECT_EQ(c.at(0, 0), kInk ^ 0xFFFFFF);
    EXPECT_EQ(c.at(1, 0), kBack ^ 0xFFFFFF);
    // Every pixel of a rectangle outline is inverted exactly once.
    Canvas r(8, 8);
    vw_SetDrawMode(r.g, DRAW_XOR);
    vw_DrawRect(r.g, 6, 5, 1, 1);
    EXPECT_EQ(r.inked(kBack ^ 0xFFFFFF).size(), size_t(2 * 6 + 2 * 3));
    EXPECT_EQ(r.at(1, 1), kBack ^ 0xFFFFFF);
    EXPECT_EQ(r.at(3, 3), kBack);
}

TEST(Vw, LinesReachBothEndsWithOnePointPerStep) {
    for (const auto& [x0, y0, x1, y1] : {std::array{1, 2, 30, 11}, {30, 11, 1, 2}, {3, 28, 9, 1}, {0, 0, 25, 25}}) {
        Canvas c(32, 32);
        vw_DrawLine(c.g, x0, y0, x1, y1);
        const auto s = c.inked();
        EXPECT_TRUE(s.count({x0, y0}) && s.count({x1, y1}));
        EXPECT_EQ(s.size(), size_t(std::max(std::abs(x1 - x0), std::abs(y1 - y0)) + 1));
        for (const auto& [x, y] : s) {  // close to the ideal line
            const double d = std::abs(double(y1 - y0) * (x - x0) - double(x1 - x0) * (y - y0)) /
                             std::hypot(x1 - x0, y1 - y0);
            EXPECT_LE(d, 0.75) << x << "," << y;
        }
        Canvas back(32, 32);  // the same pixels whichever end comes first
        vw_DrawLine(back.g, x1, y1, x0, y0);
        EXPECT_EQ(back.inked(), s);
    }
}

TEST(Vw, CirclesAndEllipsesAreSymmetricAndTouchTheirExtremes) {
    for (const int r : {0, 1, 2, 5, 13, 26}) {
        Canvas f(64, 64), o(64, 64);
        vw_FillCircle(f.g, 32, 32, r);
        vw_DrawCircle(o.g, 32, 32, r);
        const auto fill = f.inked(), ring = o.inked();
        EXPECT_TRUE(symmetric(fill, 32, 32, true)) << r;
        EXPECT_TRUE(symmetric(ring, 32, 32, true)) << r;
        EXPECT_TRUE(fill.count({32 + r, 32}) && fill.count({32, 32 - r})) << r;
        EXPECT_FALSE(fill.count({32 + r + 1, 32}));
        for (const auto& [x, y] : fill) EXPECT_LE(std::hypot(x - 32, y - 32), r + 0.5) << r;
        for (const auto& [x, y] : ring) EXPECT_LE(std::abs(std::hypot(x - 32, y - 32) - r), 0.75) << r;
        EXPECT_EQ(fill.size() == 1, r == 0);
        if (r > 4) {
            EXPECT_NEAR(double(fill.size()), M_PI * r * r, 2.5 * M_PI * r) << r;
        }
    }
    Canvas e(64, 64), fe(64, 64);  // rx 20, ry 7
    vw_DrawEllipse(e.g, 30, 32, 20, 7);
    vw_FillEllipse(fe.g, 30, 32, 20, 7);
    const auto ring = e.inked(), fill = fe.inked();
    EXPECT_TRUE(symmetric(ring, 30, 32, false));
    EXPECT_TRUE(symmetric(fill, 30, 32, false));
    for (const auto& p : {std::pair{10, 32}, {50, 32}, {30, 25}, {30, 39}}) EXPECT_TRUE(ring.count(p) && fill.count(p));
    std::set<int> rows, cols;  // no gaps: every row and column across it holds a point
    for (const auto& [x, y] : ring) rows.insert(y), cols.insert(x);
    EXPECT_EQ(rows.size(), 15u);
    EXPECT_EQ(cols.size(), 41u);
    EXPECT_NEAR(double(fill.size()), M_PI * 20 * 7, 60.0);
}

TEST(Vw, BlockTransferModesAndClipping) {
    Canvas src(4, 2);
    for (int i = 0; i < 8; ++i) src.mem[size_t(i)] = 0xFF000000u | uint32_t(i);
    src.g.keycolor = 0xFF000002;
    Canvas s2(6, 4);
    vw_bitblt(s2.g, 0, 0, 4, 2, src.g, 0, 0, DRAW_SPRITE);
    EXPECT_EQ(s2.at(2, 0), kBack);  // the key colour is skipped
    EXPECT_EQ(s2.at(3, 0), 0xFF000003u);
    vw_bitblt(s2.g, 0, 2, 1, 1, src.g, 1, 0, DRAW_COPY | DRAW_NOT);
    EXPECT_EQ(s2.at(0, 2), 0xFFFFFFFEu);
    vw_bitblt(s2.g, 0, 2, 1, 1, src.g, 3, 0, DRAW_AND);
    EXPECT_EQ(s2.at(0, 2), 0xFF000002u);
    vw_bitblt(s2.g, 0, 2, 1, 1, src.g, 0, 1, DRAW_OR);  // src (0,1) = 4
    EXPECT_EQ(s2.at(0, 2), 0xFF000006u);
    vw_bitblt(s2.g, 0, 2, 1, 1, src.g, 3, 1, DRAW_XOR);  // 6 ^ 7, alpha kept
    EXPECT_EQ(s2.at(0, 2), 0xFF000001u);

    // Off both arrays and the clip: only the overlap is written.
    Canvas clipped(6, 4);
    vw_SetArea(clipped.g, 0, 0, 2, 3);
    vw_bitblt(clipped.g, -2, -1, 100, 100, src.g, 0, 0, DRAW_COPY);
    EXPECT_EQ(clipped.at(0, 0), 0xFF000006u);
    EXPECT_EQ(clipped.at(1, 0), 0xFF000007u);
    EXPECT_EQ(clipped.at(2, 0), kBack);
    EXPECT_TRUE(clipped.guards_intact());

    // Overlapping transfer within one array reads the pixels as they were.
    Canvas self(8, 1);
    for (int i = 0; i < 8; ++i) self.mem[size_t(i)] = uint32_t(i);
    vw_bitblt(self.g, 1, 0, 7, 1, self.g, 0, 0, DRAW_COPY);
    for (int i = 1; i < 8; ++i) EXPECT_EQ(self.at(i, 0), uint32_t(i - 1));
}

TEST(Vw, TextGlyphsStylesAndGb2312Walk) {
    uint16_t rows[16], other[16];
    EXPECT_EQ(GetFontData_os(0xB0A1, FONT_SMALL, rows), 12);
    EXPECT_TRUE(std::all_of(rows, rows + 12, [](uint16_t r) { return (r & 0x000F) == 0; }));  // twelve pixels
    // Rows AA-AF are not stored and show the glyphs of B0-B5.
    GetFontData_os(0xB0A1, FONT_MEDIUM, rows);
    GetFontData_os(0xAAA1, FONT_MEDIUM, other);
    EXPECT_TRUE(std::equal(rows, rows + 16, other));
    EXPECT_EQ(GetFontData_os(0xF8A1, FONT_MEDIUM, rows), 16);  // past the table: blank
    EXPECT_TRUE(std::all_of(rows, rows + 16, [](uint16_t r) { return r == 0; }));

    // Advances; a lone lead byte draws what "?" draws.
    Canvas c(80, 20), q1(16, 16), q2(16, 16);
    EXPECT_EQ(vw_TextOut(c.g, 0, 0, "A\xB0\xA1", -1), 8 + 16);
    vw_SetFont(c.g, FONT_SMALL | FONT_BOLD);
    EXPECT_EQ(vw_TextOut(c.g, 0, 0, "A\xB0\xA1", 2), 7 + 7);
    vw_TextOut(q1.g, 0, 0, "\xC1", -1);
    vw_TextOut(q2.g, 0, 0, "?", -1);
    EXPECT_EQ(q1.inked(), q2.inked());
    EXPECT_FALSE(q1.inked().empty());

    // Copy mode fills the cell with bgcolor; underline fills the last row;
    // the border rings the ink.
    Canvas u(16, 16);
    vw_SetBgColor(u.g, 0x22);
    vw_SetFont(u.g, FONT_UNDERLINE);
    vw_TextOut(u.g, 0, 0, " ", -1);
    for (int x = 0; x < 8; ++x) EXPECT_EQ(u.at(x, 15), kInk);
    EXPECT_EQ(u.at(3, 3), 0x22u);
    EXPECT_EQ(u.at(8, 3), kBack);

    Canvas b(20, 20);
    vw_SetFont(b.g, FONT_BORDER);
    b.g.bordercolor = 0xFFFF0000;
    vw_TextOut(b.g, 2, 2, "I", -1);
    const auto ink = b.inked(), ring = b.inked(0xFFFF0000);
    EXPECT_FALSE(ring.empty());
    for (const auto& [x, y] : ring) {
        bool near = false;
        for (int j = -1; j <= 1; ++j)
            for (int i = -1; i <= 1; ++i) near |= ink.count({x + i, y + j}) > 0;
        EXPECT_TRUE(near) << x << "," << y;
    }
    EXPECT_EQ(b.at(0, 0), kBack);  // the cell background stays transparent
}
