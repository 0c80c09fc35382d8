// Integer sine and cosine, the floating-point functions behind c_math, the
// CRC-16 and the repeating-key XOR cipher.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "lib/syscalls.h"
#include "vm/machine.h"

namespace {

// round(sin(d degrees) * 1024) for d = 0 ... 90.
constexpr int16_t sin90[91] = {
    0,    18,   36,   54,   71,   89,   107,  125,  143,  160,  178,  195,  213,  230,  248,  265,
    282,  299,  316,  333,  350,  367,  384,  400,  416,  433,  449,  465,  481,  496,  512,  527,
    543,  558,  573,  587,  602,  616,  630,  644,  658,  672,  685,  698,  711,  724,  737,  749,
    761,  773,  784,  796,  807,  818,  828,  839,  849,  859,  868,  878,  887,  896,  904,  912,
    920,  928,  935,  943,  949,  956,  962,  968,  974,  979,  984,  989,  994,  998,  1002, 1005,
    1008, 1011, 1014, 1016, 1018, 1020, 1022, 1023, 1023, 1024, 1024,
};

// Sine of a whole number of degrees in 0 ... 359, times 1024.
int32_t sin_degrees(uint32_t a) {
    if (a < 90) return sin90[a];
    if (a < 180) return sin90[180 - a];
    if (a < 270) return -sin90[a - 180];
    return -sin90[360 - a];
}

// The angle argument is read as an unsigned 16-bit number, so -90 is 65446.
uint32_t pop_angle(Machine& m) {
    get_val(m);
    return (m.a1 & 0xFFFF) % 360;
}

// CRC-16 with polynomial 0x1021, not reflected: the table entry for each
// byte value, split into low bytes (crc1) and high bytes (crc2).
constexpr std::array<uint16_t, 256> crc_table() {
    std::array<uint16_t, 256> t{};
    for (unsigned i = 0; i < 256; ++i) {
        unsigned r = i << 8;
        for (int k = 0; k < 8; ++k) r = (r & 0x8000) ? (r << 1) ^ 0x1021 : r << 1;
        t[i] = static_cast<uint16_t>(r);
    }
    return t;
}

constexpr std::array<uint8_t, 256> crc_half(bool high) {
    std::array<uint8_t, 256> h{};
    const auto t = crc_table();
    for (unsigned i = 0; i < 256; ++i) h[i] = static_cast<uint8_t>(high ? t[i] >> 8 : t[i]);
    return h;
}

constexpr std::array<uint8_t, 256> crc1 = crc_half(false);
constexpr std::array<uint8_t, 256> crc2 = crc_half(true);

static_assert(crc2[1] == 0x10 && crc1[1] == 0x21 && crc2[255] == 0x1E && crc1[255] == 0xF0);

// Pushes a single as its bit pattern.
void push_float(Machine& m, float f) { push_cell(m, f2i(f)); }

}  // namespace

void c_sin(Machine& m) {
    m.a1 = static_cast<uint32_t>(sin_degrees(pop_angle(m)));
    put_val(m);
}

void c_cos(Machine& m) {
    const uint32_t a = pop_angle(m);
    m.a1 = static_cast<uint32_t>(sin_degrees(a < 270 ? a + 90 : a - 270));
    put_val(m);
}

void c_math(Machine& m) {
    get_val(m);
    const uint32_t fn = m.a1;
    if (fn == 0) {
        push_cell(m, 256);
        return;
    }
    if ((fn < 7 || fn > 15) && fn != 19) {
        push_cell(m, 0);
        return;
    }
    get_val(m);
    const float x = i2f(m.a1);
    const double d = x;
    switch (fn) {
        case 7: push_float(m, static_cast<float>(std::sin(d))); break;
        case 8: push_float(m, static_cast<float>(std::cos(d))); break;
        case 9: push_float(m, static_cast<float>(std::tan(d))); break;
        case 10: push_float(m, static_cast<float>(std::asin(d))); break;
        case 11: push_float(m, static_cast<float>(std::acos(d))); break;
        case 12: push_float(m, static_cast<float>(std::atan(d))); break;
        case 13: push_float(m, static_cast<float>(std::sqrt(d))); break;
        case 14: push_float(m, static_cast<float>(std::exp(d))); break;
        case 15: push_float(m, static_cast<float>(std::log(d))); break;
        default:
            // 19: absolute value by clearing the sign bit of a value below
            // zero; -0.0 and not-a-number keep their bits.
            push_cell(m, x < 0.0f ? m.a1 & 0x7FFFFFFFu : m.a1);
            break;
    }
}

// Like the memory calls, one call covers at most all of guest memory once,
// so that no single call costs more than a pass over it.
void c_crc16(Machine& m) {
    get_val(m);
    const uint32_t n = std::min(m.a1 & m.addr_mask, kRamSize);
    get_val(m);
    const uint32_t data = m.a1 & m.addr_mask;
    add_work(m, n * kWorkPerByteLooped);
    uint8_t h = 0, l = 0;
    for (uint32_t k = 0; k < n; ++k) {
        const uint8_t i = lRamRead(m, data + k) ^ h;
        h = crc2[i] ^ l;
        l = crc1[i];
    }
    m.a1 = static_cast<uint32_t>(h) << 8 | l;
    put_val(m);
}

// Repeating-key XOR. The key is used up to its zero byte and then from its
// start again; an empty key leaves the first byte and reads on behind the
// zero, as the rule does when key[0] is the terminator. At most all of
// guest memory once, as for c_crc16.
void c_jiami(Machine& m) {
    get_val(m);
    const uint32_t key = m.a1 & m.addr_mask;
    get_val(m);
    const uint32_t n = std::min(m.a1 & m.addr_mask, kRamSize);
    get_val(m);
    const uint32_t data = m.a1 & m.addr_mask;
    add_work(m, n * kWorkPerByteLooped);
    uint32_t k = 0;
    for (uint32_t j = 0; j < n; ++j) {
        uint8_t c = lRamRead(m, key + k);
        ++k;
        if (c == 0) {
            c = lRamRead(m, key);
            k = 1;
        }
        lRamWrite(m, data + j, lRamRead(m, data + j) ^ c);
    }
}
