#include "display/bitmap.h"

#include <algorithm>
#include <cstring>

#include "lib/syscalls.h"
#include "vm/machine.h"

namespace {

constexpr uint8_t msktbl[8] = {128, 64, 32, 16, 8, 4, 2, 1};
constexpr uint32_t kStoreSize = 2 * kPlaneSize;

enum class Fmt { mono, grey, byte };

Fmt fmt_of(const Machine& m) {
    if (m.graph_mode == 8) return Fmt::byte;
    return m.graph_mode == 4 ? Fmt::grey : Fmt::mono;
}

uint32_t row_bytes(Fmt f, uint32_t w) {
    switch (f) {
        case Fmt::mono: return (w + 7) / 8;
        case Fmt::grey: return (w + 1) / 2;
        case Fmt::byte: return w;
    }
    return w;
}

uint8_t source_byte(Machine& m, const BitmapSource& s, uint32_t off) {
    if (s.host) return off < s.size ? s.host[off] : 0;
    return lRamRead(m, s.guest + off);
}

// Pixels in a source byte.
constexpr uint32_t pixels_per_byte(Fmt f) { return f == Fmt::mono ? 8 : f == Fmt::grey ? 2 : 1; }

// Pixel `col` of a row whose bytes start at `bytes` (0/1 in mode 1, 0-15 in
// mode 4, a byte in mode 8).
template <Fmt f>
uint8_t pixel_at(const uint8_t* bytes, uint32_t col) {
    switch (f) {
        case Fmt::mono: return (bytes[col / 8] & msktbl[col % 8]) ? 1 : 0;
        case Fmt::grey: return (col & 1) ? (bytes[col / 2] & 15) : (bytes[col / 2] >> 4);
        case Fmt::byte: return bytes[col];
    }
    return 0;
}

// Copies the source bytes that hold the n visible pixels of bitmap row
// `row` (from column c0 on, or from the far end when mirrored) into bytes,
// each read once; returns the first of those pixels' column in the copy.
template <Fmt f>
uint32_t source_row(Machine& m, const BitmapSource& s, uint32_t bpr, uint32_t w, uint32_t row, uint32_t c0,
                    uint32_t n, bool mirror, uint8_t* bytes) {
    constexpr uint32_t per = pixels_per_byte(f);
    const uint32_t lo = mirror ? w - c0 - n : c0;  // the first source column used
    const uint32_t b0 = lo / per, nb = (lo + n - 1) / per - b0 + 1;
    for (uint32_t b = 0; b < nb; ++b) bytes[b] = source_byte(m, s, row * bpr + b0 + b);
    return lo - b0 * per;
}

uint8_t inverted(Fmt f, uint8_t s) {
    switch (f) {
        case Fmt::mono: return static_cast<uint8_t>(1 - s);
        case Fmt::grey: return static_cast<uint8_t>(15 - s);
        case Fmt::byte: return static_cast<uint8_t>(~s);
    }
    return s;
}

// Draw mode lcmd applied to screen byte d with source pixel s. Bit 3 (and
// mode 2 on its own) inverts the source first; mono OR, AND and XOR act on
// the pixel as ink or paper.
uint8_t combine(Fmt f, uint8_t cmd, uint8_t d, uint8_t s) {
    const uint8_t op = cmd & 7;
    const bool inv = (cmd & 8) || op == 2;
    if (inv) s = inverted(f, s);
    switch (op) {
        case 3: return f == Fmt::mono ? (s ? 1 : d) : static_cast<uint8_t>(d | s);
        case 4: return f == Fmt::mono ? (s ? d : 0) : static_cast<uint8_t>(d & s);
        case 5: return f == Fmt::mono ? (s ? static_cast<uint8_t>(d ^ 1) : d) : static_cast<uint8_t>(d ^ s);
        case 6: return (f == Fmt::byte && !inv && s == 0) ? d : s;
        default: return s;
    }
}

// Mirroring reverses the pixels of each row. It applies only to rows that
// fill whole bytes: widths that are multiples of 8 in mode 1, even widths in
// mode 4, any width in mode 8; other bitmaps are drawn as they are. Pixels
// are read from the far end of the source row, so the guest's bitmap itself
// is never changed.
bool mirrors(Fmt f, uint32_t w) {
    switch (f) {
        case Fmt::mono: return w % 8 == 0;
        case Fmt::grey: return w % 2 == 0;
        case Fmt::byte: return true;
    }
    return false;
}

// Combines n source pixels, from column `first` of the source bytes on (or
// back from its far end when mirrored), into a screen row with draw mode
// cmd: one plain loop per mode. The pixels are unpacked in the same loop, so
// that no row of them is stored byte by byte and read back in wider pieces.
template <Fmt f>
void combine_row(uint8_t cmd, uint8_t* dst, const uint8_t* bytes, uint32_t first, uint32_t n, bool mirror) {
    auto ahead = [&](uint32_t i) { return pixel_at<f>(bytes, first + i); };
    auto back = [&](uint32_t i) { return pixel_at<f>(bytes, first + n - 1 - i); };
    switch (cmd & 15) {
#define TVM_ROW(c)                                                                         \
    case c:                                                                                \
        if (mirror) {                                                                      \
            for (uint32_t i = 0; i < n; ++i) dst[i] = combine(f, c, dst[i], back(i));      \
        } else {                                                                           \
            for (uint32_t i = 0; i < n; ++i) dst[i] = combine(f, c, dst[i], ahead(i));     \
        }                                                                                  \
        return;
        TVM_ROW(0) TVM_ROW(1) TVM_ROW(2) TVM_ROW(3) TVM_ROW(4) TVM_ROW(5) TVM_ROW(6) TVM_ROW(7)
        TVM_ROW(8) TVM_ROW(9) TVM_ROW(10) TVM_ROW(11) TVM_ROW(12) TVM_ROW(13) TVM_ROW(14) TVM_ROW(15)
#undef TVM_ROW
    }
}

// Clips the bitmap to the screen and draws each visible pixel with draw
// mode cmd. The format is a template argument so that unpacking the pixels
// is specialised for it.
template <Fmt f>
void blit(Machine& m, const Pen& pen, uint16_t x16, uint16_t y16, uint16_t w16, uint16_t h16, const BitmapSource& data, uint8_t cmd) {
    const int32_t sw = screen_w(m), sh = screen_h(m);
    const uint32_t w = w16, bpr = row_bytes(f, w);
    const bool mirror = pen.negative && mirrors(f, w);

    // Rows: a y at or below the bottom edge is a negative 16-bit value.
    int32_t y = y16, h = h16;
    uint32_t src_row = 0;
    if (y >= sh) {
        const int32_t skip = 65536 - y;
        if (skip >= h) return;
        h -= skip;
        src_row = static_cast<uint32_t>(skip);
        y = 0;
    }
    if (y + h > sh) h = sh - y;

    // Columns: likewise; a negative x starts inside the source row, at a
    // pixel that may lie in the middle of a source byte.
    int32_t x = x16, cols = static_cast<int32_t>(w);
    uint32_t src_col = 0;
    if (x < sw) {
        if (x + cols > sw) cols = sw - x;
    } else {
        const int32_t skip = 65536 - x;
        if (skip >= cols) return;
        src_col = static_cast<uint32_t>(skip);
        cols = std::min(cols - skip, sw);
        x = 0;
    }
    if (h <= 0 || cols <= 0) return;

    uint8_t bytes[322];  // one row's source bytes (cols is at most the screen width, 320)
    const uint32_t n = static_cast<uint32_t>(cols);
    for (int32_t r = 0; r < h; ++r) {
        uint8_t* dst = m.ScreenBuffer + ByteAddr(static_cast<uint16_t>(x), static_cast<uint16_t>(y + r), pen.no_buf);
        const uint32_t row = src_row + static_cast<uint32_t>(r);
        const uint32_t first = source_row<f>(m, data, bpr, w, row, src_col, n, mirror, bytes);
        combine_row<f>(cmd, dst, bytes, first, n, mirror);
    }
}

uint32_t guest_addr(const Machine& m, uint32_t v) { return v & m.addr_mask; }

// Writes n zero bytes to guest memory from addr on, wrapping in the block.
void guest_zero(Machine& m, uint32_t addr, uint32_t n) {
    while (n) {
        uint32_t room = 0;
        uint8_t* p = guest_ptr(m, addr, &room);
        const uint32_t k = std::min(n, room);
        std::memset(p, 0, k);
        addr += k;
        n -= k;
    }
}

}  // namespace

void write_comm(Machine& m, const Pen& pen, uint16_t x, uint16_t y, uint16_t w, uint16_t h, const BitmapSource& data) {
    switch (fmt_of(m)) {
        case Fmt::byte: return blit<Fmt::byte>(m, pen, x, y, w, h, data, pen.lcmd);
        case Fmt::grey: return blit<Fmt::grey>(m, pen, x, y, w, h, data, pen.lcmd);
        case Fmt::mono: return blit<Fmt::mono>(m, pen, x, y, w, h, data, pen.lcmd);
    }
}

void c_writeblock(Machine& m) {
    get_val(m);
    const uint32_t addr = guest_addr(m, m.a1);
    get_val(m);
    const uint32_t type = m.a1;
    get_val(m);
    const auto h = static_cast<uint16_t>(m.a1);
    get_val(m);
    const auto w = static_cast<uint16_t>(m.a1);
    get_val(m);
    const auto y = static_cast<uint16_t>(m.a1);
    get_val(m);
    const auto x = static_cast<uint16_t>(m.a1);
    const Pen pen{static_cast<uint8_t>(type & 15), static_cast<uint8_t>(type & 0x40), static_cast<uint8_t>(type & 0x20)};
    write_comm(m, pen, x, y, w, h, guest_bitmap(addr));
    if (pen.no_buf) ToviNeedRefresh(m);
}

// Packs a screen area into guest memory. Rows are read 320 bytes apart with
// no clipping at the right or bottom: a long row runs on into the next
// plane row. Bytes beyond the end of the screen store read as 0.
void c_getblock(Machine& m) {
    get_val(m);
    uint32_t addr = guest_addr(m, m.a1);
    get_val(m);
    const bool visible = m.a1 & 0x40;
    get_val(m);
    uint32_t height = static_cast<uint16_t>(m.a1);
    get_val(m);
    const uint32_t width = static_cast<uint16_t>(m.a1);
    const Fmt f = fmt_of(m);
    // Whole bytes only, and in mode 4 whole groups of 8 pixels.
    const uint32_t bytes = f == Fmt::mono ? width / 8 : f == Fmt::grey ? (width / 2) & ~3u : width;

    get_val(m);
    uint32_t y = static_cast<uint16_t>(m.a1);
    if (static_cast<int32_t>(y) >= screen_h(m)) {
        const uint32_t skip = 65536 - y;
        // Nothing to read: the call ends here and leaves x on the stack.
        if (skip >= height) return;
        height -= skip;
        addr += skip * bytes;
        y = 0;
    }
    get_val(m);
    uint32_t x = static_cast<uint16_t>(m.a1);
    if (f != Fmt::byte) x &= ~7u;
    if (x >= 320 || bytes == 0 || height == 0) return;

    const uint8_t* store = m.ScreenBuffer;
    auto px = [store](uint32_t i) -> uint8_t { return i < kStoreSize ? store[i] : 0; };
    const uint32_t plane = visible ? 0 : kPlaneSize;
    for (uint32_t r = 0; r < height; ++r) {
        const uint32_t src = plane + (y + r) * 320 + x;
        if (src >= kStoreSize) {
            guest_zero(m, addr, bytes);
            addr = (addr + bytes) & m.addr_mask;
            continue;
        }
        for (uint32_t b = 0; b < bytes; ++b) {
            uint8_t v = 0;
            switch (f) {
                case Fmt::mono:
                    for (uint32_t bit = 0; bit < 8; ++bit)
                        if (px(src + 8 * b + bit)) v |= msktbl[bit];
                    break;
                case Fmt::grey: v = static_cast<uint8_t>(px(src + 2 * b) * 16 + (px(src + 2 * b + 1) & 15)); break;
                case Fmt::byte: v = px(src + b); break;
            }
            lRamWrite(m, addr++, v);
        }
        addr &= m.addr_mask;
    }
}

// Whole-buffer operations on plane 1 over the screen area.
void c_xdraw(Machine& m) {
    get_val(m);
    const int32_t sw = screen_w(m), sh = screen_h(m);
    if (sw == 0 || sh == 0) return;
    uint8_t* buf = m.ScreenBuffer + kPlaneSize;
    const auto paper = static_cast<uint8_t>(m.graph_mode == 1 ? 0 : m.bgcolor);
    auto row = [buf](int32_t y) { return buf + y * kPlaneStride; };
    switch (static_cast<uint8_t>(m.a1)) {
        case 0:  // shift left
            for (int32_t y = 0; y < sh; ++y) {
                std::memmove(row(y), row(y) + 1, static_cast<size_t>(sw - 1));
                row(y)[sw - 1] = paper;
            }
            break;
        case 1:  // shift right
            for (int32_t y = 0; y < sh; ++y) {
                std::memmove(row(y) + 1, row(y), static_cast<size_t>(sw - 1));
                row(y)[0] = paper;
            }
            break;
        case 2:  // scroll up
            std::memmove(row(0), row(1), static_cast<size_t>((sh - 1) * kPlaneStride));
            std::memset(row(sh - 1), paper, kPlaneStride);
            break;
        case 3:  // scroll down
            std::memmove(row(1), row(0), static_cast<size_t>((sh - 1) * kPlaneStride));
            std::memset(row(0), paper, kPlaneStride);
            break;
        case 4:  // mirror left to right
            for (int32_t y = 0; y < sh; ++y) std::reverse(row(y), row(y) + sw);
            break;
        case 5: {  // flip top to bottom
            uint8_t tmp[kPlaneStride];
            for (int32_t y = 0; y < sh / 2; ++y) {
                std::memcpy(tmp, row(y), kPlaneStride);
                std::memcpy(row(y), row(sh - 1 - y), kPlaneStride);
                std::memcpy(row(sh - 1 - y), tmp, kPlaneStride);
            }
            break;
        }
        case 6: std::memcpy(buf, m.ScreenBuffer, kPlaneSize); break;
        default: break;
    }
}
