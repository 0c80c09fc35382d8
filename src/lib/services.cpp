// c_system: numbered services (most answer with a fixed value), frame
// decoding, the touch record and fine clocks; c_getcmdline.
#include "cjk/pinyin.h"
#include "lib/syscalls.h"
#include "vm/interp.h"

namespace {

// Pinyin lookup over guest memory: the syllable at guest address py, the
// characters to guest address buf.
uint32_t PY2GB(Machine& m, uint32_t py, uint32_t buf, uint32_t first) {
    char key[7] = {};
    for (uint32_t i = 0; i < 6; ++i)
        if ((key[i] = static_cast<char>(lRamRead(m, py + i))) == 0) break;
    uint8_t out[2 * kPinyinPage + 1];
    const uint32_t r = GetGBCodeByPY(first, key, out);
    if (r != 0xFFFFFFFFu)
        for (uint32_t i = 0; i <= 2 * (r & 0xFFFF); ++i) lRamWrite(m, buf + i, out[i]);
    return r;
}

// Decodes one frame: a plain copy, a run-length frame (method 1) or a
// difference against the frame already at dst (method 2). The end of the
// frame is tested only before each control byte.
void FlmDecode(Machine& m, uint32_t src, uint32_t dst) {
    const uint32_t w = static_cast<uint16_t>(lRamRead2(m, src));
    const uint32_t n = w & 0x1FFF;
    const uint32_t end = src + n;
    uint32_t in = src + 2;
    if (w <= 8191) {
        if (n > 2) lmemcpy(m, dst, in, n - 2);
        return;
    }
    const uint32_t method = w >> 13;
    if (method != 1 && method != 2) return;
    while (in < end) {
        const uint8_t c = lRamRead(m, in++);
        const uint32_t k = (c & 63) ? (c & 63) : 64;
        if (c < 64) {
            if (method == 1)
                for (uint32_t i = 0; i < k; ++i) lRamWrite(m, dst + i, 0);
            dst += k;
        } else if (c < 128) {
            for (uint32_t i = 0; i < k; ++i) lRamWrite(m, dst + i, method == 1 ? 0xFFu : lRamRead(m, dst + i) - 1u);
            dst += k;
        } else if (c >= 192) {
            const uint8_t v = lRamRead(m, in++);
            for (uint32_t i = 0; i < k; ++i) lRamWrite(m, dst + i, method == 1 ? v : lRamRead(m, dst + i) + v);
            dst += k;
        } else {
            for (uint32_t i = 0; i < k; ++i)
                lRamWrite(m, dst + i, method == 1 ? lRamRead(m, in + i) : lRamRead(m, dst + i) + lRamRead(m, in + i));
            in += k;
            dst += k;
        }
    }
}

}  // namespace

void c_system(Machine& m) {
    get_val(m);
    const uint32_t service = m.a1;
    uint32_t result = 0;
    switch (service) {
        case 1: case 6: case 8:
            get_val(m);
            result = m.a1;
            break;
        case 3: case 4: case 5: case 7: case 13: case 14: case 29: case 30: case 33:
            result = service;
            break;
        case 9: case 10: case 11:
            get_vals(m);
            result = m.a1;
            break;
        case 12:
            get_vals(m);
            get_val(m);
            result = m.a1;
            break;
        case 15: {
            get_vals(m);  // a1 source, a3 destination
            result = m.a1;
            FlmDecode(m, m.a1 & m.addr_mask, m.a3 & m.addr_mask);
            break;
        }
        case 20: {
            get_vals(m);  // a1 buffer, a3 index of the first character wanted
            const uint32_t buf = m.a1 & m.addr_mask, first = m.a3;
            get_val(m);  // the syllable
            result = PY2GB(m, m.a1 & m.addr_mask, buf, first);
            break;
        }
        case 31:
            result = GetTickCount_os(m);
            break;
        case 32: {
            get_vals(m);  // a1 record, a3 v
            const uint32_t rec = m.a1 & m.addr_mask;
            if (m.RamBits > 16 && lRamRead(m, rec) == 1) {
                // No pen on this machine: not pushed, every coordinate 0.
                for (uint32_t i = 1; i < 10; ++i) lRamWrite(m, rec + i, 0);
                result = 0xFFFFFFFFu;
            }
            break;
        }
        case 34:
            result = static_cast<uint32_t>(GetNanoSeconds_os(m));
            break;
        default:
            break;
    }
    push_cell(m, result);
}

void c_getcmdline(Machine& m) {
    get_val(m);
    const uint32_t buf = m.a1 & m.addr_mask;
    uint32_t i = 0;
    for (; i < kTextBuffer - kCmdLine && lRamRead(m, kCmdLine + i); ++i) lRamWrite(m, buf + i, lRamRead(m, kCmdLine + i));
    lRamWrite(m, buf + i, 0);
}
