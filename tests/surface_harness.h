// A 16-bit test surface with guard pixels around the drawable area.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "display/surface.h"

inline constexpr uint16_t kUntouched = 0xBEEF;

// A w x h surface with `pad` spare pixels at the end of each row (pitch
// larger than the width) and one spare row, all preset to kUntouched so that
// stray writes show.
struct TestSurface {
    int w, h, pad;
    std::vector<uint16_t> px;
    Surface16 s;
    TestSurface(int w_, int h_, int pad_ = 3) : w(w_), h(h_), pad(pad_), px(size_t((w_ + pad_) * (h_ + 1)), kUntouched) {
        s.pixels = reinterpret_cast<uint8_t*>(px.data());
        s.w = w;
        s.h = h;
        s.pitch = (w + pad) * 2;
    }
    uint16_t at(int x, int y) const { return px[size_t(y * (w + pad) + x)]; }
    void reset() { std::fill(px.begin(), px.end(), kUntouched); }
    // Nothing written in the row padding or the spare row.
    bool margins_untouched() const {
        for (int y = 0; y <= h; ++y)
            for (int x = (y == h ? 0 : w); x < w + pad; ++x)
                if (at(x, y) != kUntouched) return false;
        return true;
    }
};
