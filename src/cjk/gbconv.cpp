#include "cjk/gbconv.h"

namespace {

// Reads src[i], or the terminating zero when i is past the source.
inline uint8_t byte_at(const char* src, size_t src_size, size_t i) {
    return i < src_size ? static_cast<uint8_t>(src[i]) : 0;
}

// Ends a conversion: terminates dst after n bytes and reports the outcome.
inline size_t finish(char* dst, size_t n, bool ok, bool* complete) {
    dst[n] = 0;
    if (complete) *complete = ok;
    return n;
}

}  // namespace

size_t gb_to_utf8(const char* src, size_t src_size, char* dst, size_t dst_size, bool* complete) {
    if (dst_size == 0) {
        if (complete) *complete = false;
        return 0;
    }
    size_t i = 0, n = 0;
    for (;;) {
        const uint8_t b1 = byte_at(src, src_size, i);
        if (b1 == 0) return finish(dst, n, true, complete);
        if (b1 < 0x81) {
            if (n + 1 >= dst_size) return finish(dst, n, false, complete);
            dst[n++] = static_cast<char>(b1);
            ++i;
            continue;
        }
        const uint8_t b2 = byte_at(src, src_size, i + 1);
        if (b1 == 0xFF || b2 < 0x40 || b2 == 0xFF) return finish(dst, n, false, complete);
        const uint16_t u = mb_gb2uni_table[(b1 - 0x81) * 191 + (b2 - 0x40)];
        const size_t len = u < 0x80 ? 1 : u < 0x800 ? 2 : 3;
        if (n + len >= dst_size) return finish(dst, n, false, complete);
        if (len == 1) {
            dst[n++] = static_cast<char>(u);
        } else if (len == 2) {
            dst[n++] = static_cast<char>(0xC0 | u >> 6);
            dst[n++] = static_cast<char>(0x80 | (u & 0x3F));
        } else {
            dst[n++] = static_cast<char>(0xE0 | u >> 12);
            dst[n++] = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
            dst[n++] = static_cast<char>(0x80 | (u & 0x3F));
        }
        i += 2;
    }
}

size_t utf8_to_gb(const char* src, size_t src_size, char* dst, size_t dst_size, bool* complete) {
    if (dst_size == 0) {
        if (complete) *complete = false;
        return 0;
    }
    auto is_cont = [](uint8_t b) { return (b & 0xC0) == 0x80; };
    size_t i = 0, n = 0;
    for (;;) {
        const uint8_t lead = byte_at(src, src_size, i);
        if (lead == 0) return finish(dst, n, true, complete);
        uint16_t c;
        if (lead < 0x80) {
            c = lead;
            i += 1;
        } else if (lead >= 0xC0 && lead <= 0xDF) {
            const uint8_t c1 = byte_at(src, src_size, i + 1);
            if (!is_cont(c1)) return finish(dst, n, false, complete);
            c = static_cast<uint16_t>((lead & 0x1F) << 6 | (c1 & 0x3F));
            i += 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            const uint8_t c1 = byte_at(src, src_size, i + 1);
            if (!is_cont(c1)) return finish(dst, n, false, complete);
            const uint8_t c2 = byte_at(src, src_size, i + 2);
            if (!is_cont(c2)) return finish(dst, n, false, complete);
            c = static_cast<uint16_t>(lead << 12 | (c1 & 0x3F) << 6 | (c2 & 0x3F));
            i += 3;
        } else {
            return finish(dst, n, false, complete);
        }
        // Code points below 256 pass as their own byte (U+00B7 stays 0xB7).
        if (c < 0x100) {
            if (n + 1 >= dst_size) return finish(dst, n, false, complete);
            dst[n++] = static_cast<char>(c);
            continue;
        }
        const uint8_t* code = utf16togb[c];
        const size_t len = code[1] ? 2 : 1;
        if (n + len >= dst_size) return finish(dst, n, false, complete);
        dst[n++] = static_cast<char>(code[0]);
        if (len == 2) dst[n++] = static_cast<char>(code[1]);
    }
}
