#include "display/frame.h"

#include <algorithm>
#include <cstring>

#include "display/screen.h"

namespace {

// The surface can be written as rows of 16-bit pixels.
bool usable(const Surface16& s) {
    return s.pixels && s.w > 0 && s.h > 0 && s.pitch % 2 == 0 && int64_t{s.pitch} >= 2 * int64_t{s.w} &&
           reinterpret_cast<uintptr_t>(s.pixels) % 2 == 0;
}

uint16_t* row_at(const Surface16& s, int y) { return reinterpret_cast<uint16_t*>(s.pixels + int64_t{y} * s.pitch); }

// Guest screen size as presented: never more than a plane holds.
int guest_w(const Frame& f) { return std::clamp(f.width, 0, kFrameStride); }
int guest_h(const Frame& f) { return std::clamp(f.height, 0, 240); }

const uint8_t* plane0(const Frame& f) { return f.pixels; }

// Top-left corner of a picture of pw x ph centred on the surface. False when
// the picture does not fit.
bool place(const Surface16& s, int64_t pw, int64_t ph, int* left, int* top) {
    const int64_t l = (s.w - pw) / 2;
    const int64_t t = (s.h - ph) / 2;
    if (pw <= 0 || ph <= 0 || l < 0 || t < 0 || l + pw > s.w || t + ph > s.h) return false;
    *left = static_cast<int>(l);
    *top = static_cast<int>(t);
    return true;
}

inline void store2(uint16_t* dst, uint16_t c) {
    const uint32_t pair = c | uint32_t{c} << 16;
    std::memcpy(dst, &pair, 4);  // two pixels in one store
}

// 1:1 copy, centred; a surface narrower (or lower) than the guest screen
// shows the middle of the picture.
void copy_1to1(const Frame& f, const Surface16& s) {
    int width = guest_w(f), height = guest_h(f);
    const uint8_t* src = plane0(f);
    if (width > s.w) {
        src += (width - s.w) / 2;
        width = s.w;
    }
    if (height > s.h) {
        src += (height - s.h) / 2 * kFrameStride;
        height = s.h;
    }
    const int left = (s.w - width) / 2, top = (s.h - height) / 2;
    for (int y = 0; y < height; ++y, src += kFrameStride) {
        uint16_t* dst = row_at(s, top + y) + left;
        for (int x = 0; x < width; ++x) dst[x] = f.pal[src[x]];
    }
}

// 4x4 blocks in mode 1 with the grid look: 3x3 of the pixel's colour, the
// right column and bottom row in palette entry 2 on ink, paper on paper.
void scale4_mono_grid(const Frame& f, uint16_t* row0, int pitch_points, int sw, int sh) {
    const uint8_t* src = plane0(f);
    for (int y = 0; y < sh; ++y, src += kFrameStride, row0 += 4 * pitch_points) {
        uint16_t* d = row0;
        for (int x = 0; x < sw; ++x, d += 4) {
            const int v = src[x] & 1;
            const uint16_t a = f.pal[v], g = f.pal[2 * v];
            for (int r = 0; r < 3; ++r) {
                uint16_t* p = d + r * pitch_points;
                store2(p, a);
                p[2] = a;
                p[3] = g;
            }
            store2(d + 3 * pitch_points, g);
            store2(d + 3 * pitch_points + 2, g);
        }
    }
}

// Fixed factor 2 or 4: each source byte becomes an f x f block, written in
// pairs of pixels.
template <int F>
void scale_fixed(const Frame& f, Surface16& s) {
    if (!usable(s)) return;
    const int sw = guest_w(f), sh = guest_h(f);
    int left = 0, top = 0;
    if (!place(s, int64_t{F} * sw, int64_t{F} * sh, &left, &top)) return;
    const int pitch_points = s.pitch / 2;
    uint16_t* row0 = row_at(s, top) + left;
    if (F == 4 && f.graph_mode == 1 && f.grid) {
        scale4_mono_grid(f, row0, pitch_points, sw, sh);
        return;
    }
    const uint8_t* src = plane0(f);
    for (int y = 0; y < sh; ++y, src += kFrameStride, row0 += F * pitch_points) {
        uint16_t* d = row0;
        for (int x = 0; x < sw; ++x, d += F) {
            const uint16_t c = f.pal[src[x]];
            for (int r = 0; r < F; ++r)
                for (int k = 0; k < F; k += 2) store2(d + r * pitch_points + k, c);
        }
    }
}

}  // namespace

void snapshot_frame(const Screen& s, Frame* f) {
    f->width = std::clamp(s.ScreenWidth, 0, kFrameStride);
    f->height = std::clamp(s.ScreenHeight, 0, 240);
    f->graph_mode = s.graph_mode;
    std::memcpy(f->pixels, s.ScreenBuffer, sizeof f->pixels);
    std::memcpy(f->palette, s.palette, sizeof f->palette);
    for (int i = 0; i < 256; ++i) {
        const uint8_t* e = s.palette + 3 * i;  // blue, green, red
        f->pal[i] = static_cast<uint16_t>((e[0] >> 3) | ((e[1] >> 2) << 5) | ((e[2] >> 3) << 11));
    }
}

void rgb565_to_xrgb8888(const uint16_t* in, size_t n, uint32_t* out) {
    for (size_t i = 0; i < n; ++i) {
        const uint32_t p = in[i], r = p >> 11, g = (p >> 5) & 63, b = p & 31;
        out[i] = (r << 3 | r >> 2) << 16 | (g << 2 | g >> 4) << 8 | (b << 3 | b >> 2);
    }
}

void frame_to_xrgb8888(const Frame& f, uint32_t* out) {
    const int w = guest_w(f), h = guest_h(f);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const uint8_t* e = f.palette + 3 * f.pixels[y * kFrameStride + x];
            *out++ = uint32_t{e[2]} << 16 | uint32_t{e[1]} << 8 | e[0];
        }
}

void DmaRefresh(const Frame& f, Surface16* surface) {
    if (!surface || !usable(*surface)) return;
    Surface16& s = *surface;
    if (f.clean) {
        std::memset(s.pixels, 0, static_cast<size_t>(s.h) * static_cast<size_t>(s.pitch));
    }
    const int sw = guest_w(f), sh = guest_h(f);
    if (sh < 32 || sw < 1) return;
    if (s.w != 320 || s.h != 240) {
        const int scale = std::min(s.w / sw, s.h / sh);
        if (f.graph_mode == 1 && f.grid && scale > 2) return ScaleX_grid(f, s, scale);
        if (scale > 4 || scale == 3) return ScaleX(f, s, scale);
        if (scale == 4) return Scale4X(f, s);
        if (scale == 2) return Scale2X(f, s);
    }
    copy_1to1(f, s);
}

void ScaleX(const Frame& f, Surface16& s, int multiple) {
    if (!usable(s) || multiple < 1) return;
    const int sw = guest_w(f), sh = guest_h(f);
    int left = 0, top = 0;
    if (!place(s, int64_t{multiple} * sw, int64_t{multiple} * sh, &left, &top)) return;
    const int pitch_points = s.pitch / 2;
    const size_t row_bytes = static_cast<size_t>(sw) * static_cast<size_t>(multiple) * 2;
    uint16_t* row0 = row_at(s, top) + left;
    const uint8_t* src = plane0(f);
    for (int y = 0; y < sh; ++y, src += kFrameStride) {
        uint16_t* d = row0;
        for (int x = 0; x < sw; ++x) {
            const uint16_t c = f.pal[src[x]];
            for (int k = 0; k < multiple; ++k) *d++ = c;
        }
        for (int r = 1; r < multiple; ++r) std::memcpy(row0 + r * pitch_points, row0, row_bytes);
        row0 += multiple * pitch_points;
    }
}

void calc_grid(const Frame& s, uint16_t grid[2], int multiple) {
    // Spread green into bits 21-26 so that one multiply blends all three fields.
    auto spread = [](uint32_t x) { return (x & 0xF81F) | ((x << 16) & 0x07E00000); };
    const uint32_t c0 = spread(s.pal[0]), c1 = spread(s.pal[1]);
    const uint32_t k = static_cast<uint32_t>(std::clamp(multiple, 0, 6));
    const uint32_t c2 = (k * c0 + (8 - k) * c1) >> 3;
    grid[0] = s.pal[0];
    grid[1] = static_cast<uint16_t>((c2 & 0xF81F) | ((c2 >> 16) & 0x07E0));
}

void ScaleX_grid(const Frame& f, Surface16& s, int multiple) {
    if (!usable(s) || multiple < 2) return;
    const int sw = guest_w(f), sh = guest_h(f);
    int left = 0, top = 0;
    if (!place(s, int64_t{multiple} * sw, int64_t{multiple} * sh, &left, &top)) return;
    uint16_t grid[2];
    calc_grid(f, grid, multiple);
    const int pitch_points = s.pitch / 2;
    const size_t row_bytes = static_cast<size_t>(sw) * static_cast<size_t>(multiple) * 2;
    uint16_t* row0 = row_at(s, top) + left;
    const uint8_t* src = plane0(f);
    for (int y = 0; y < sh; ++y, src += kFrameStride) {
        uint16_t* d = row0;
        uint16_t* bottom = row0 + (multiple - 1) * pitch_points;  // the band's last row
        for (int x = 0; x < sw; ++x) {
            const uint8_t v = src[x];
            const uint16_t c = f.pal[v], g = grid[v != 0];
            for (int k = 0; k < multiple - 1; ++k) *d++ = c;
            *d++ = g;
            for (int k = 0; k < multiple; ++k) *bottom++ = g;
        }
        for (int r = 1; r < multiple - 1; ++r) std::memcpy(row0 + r * pitch_points, row0, row_bytes);
        row0 += multiple * pitch_points;
    }
}

void Scale4X(const Frame& f, Surface16& s) { scale_fixed<4>(f, s); }
void Scale2X(const Frame& f, Surface16& s) { scale_fixed<2>(f, s); }
