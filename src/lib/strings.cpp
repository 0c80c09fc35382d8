// String and memory calls, abs, the random-number generator and the two
// calls that do nothing. Guest strings and areas wrap at the end of the
// 1 MiB block and are never followed further than the block's size, so a
// string without a terminator or a huge count stays inside guest memory.
#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "lib/syscalls.h"
#include "vm/machine.h"

namespace {

// Pops an address or count argument into a1, masked to the address width.
uint32_t pop_addr(Machine& m) {
    get_val(m);
    return m.a1 & m.addr_mask;
}

// Length of the string at guest address a, or kRamSize when the whole
// block holds no zero byte.
uint32_t guest_strlen(Machine& m, uint32_t a) {
    uint32_t room;
    const uint8_t* p = guest_ptr(m, a, &room);
    uint32_t n = kRamSize;
    if (const void* z = std::memchr(p, 0, room))
        n = static_cast<uint32_t>(static_cast<const uint8_t*>(z) - p);
    else if (const void* w = std::memchr(m.tovix_ram, 0, kRamSize - room))
        // The string runs over the end of the block and continues at its start.
        n = room + static_cast<uint32_t>(static_cast<const uint8_t*>(w) - m.tovix_ram);
    add_work(m, n);
    return n;
}

// The n bytes at guest address a as one view; areas that wrap are copied
// into buf first. n is at most kRamSize.
std::string_view guest_bytes(Machine& m, uint32_t a, uint32_t n, std::vector<char>& buf) {
    uint32_t room;
    const uint8_t* p = guest_ptr(m, a, &room);
    add_work(m, n);
    if (n <= room) return {reinterpret_cast<const char*>(p), n};
    buf.assign(p, p + room);
    buf.insert(buf.end(), m.tovix_ram, m.tovix_ram + (n - room));
    return {buf.data(), n};
}

// Position of sub in s, or npos. Long patterns are searched with
// Knuth-Morris-Pratt, so that a hostile pair of long strings cannot make
// the search quadratic.
size_t find_in(std::string_view s, std::string_view sub) {
    if (sub.size() <= 16) return s.find(sub);
    if (sub.size() > s.size()) return std::string_view::npos;
    // fail[i]: length of the longest proper border of sub[0..i].
    std::vector<uint32_t> fail(sub.size(), 0);
    for (size_t i = 1, k = 0; i < sub.size(); ++i) {
        while (k > 0 && sub[i] != sub[k]) k = fail[k - 1];
        if (sub[i] == sub[k]) ++k;
        fail[i] = static_cast<uint32_t>(k);
    }
    for (size_t i = 0, k = 0; i < s.size(); ++i) {
        while (k > 0 && s[i] != sub[k]) k = fail[k - 1];
        if (s[i] == sub[k] && ++k == sub.size()) return i + 1 - k;
    }
    return std::string_view::npos;
}

}  // namespace

void c_strcpy(Machine& m) {
    const uint32_t src = pop_addr(m);
    const uint32_t dst = pop_addr(m);
    const uint32_t n = guest_strlen(m, src);
    // The terminator goes with the bytes (unless the block holds none).
    lmemcpy(m, dst, src, std::min(n + 1, kRamSize));
}

void c_strlen(Machine& m) {
    const uint32_t s = pop_addr(m);
    m.a1 = guest_strlen(m, s);
    put_val(m);
}

void c_strcat(Machine& m) {
    const uint32_t src = pop_addr(m);
    const uint32_t base = pop_addr(m);
    const uint32_t dst = base + guest_strlen(m, base);
    // Byte by byte, so a source that overlaps the end of dst reads what was
    // just written, as a plain copy loop does; bounded by the block's size.
    uint32_t i = 0;
    for (; i < kRamSize; ++i) {
        const uint8_t ch = lRamRead(m, src + i);
        lRamWrite(m, dst + i, ch);
        if (ch == 0) break;
    }
    add_work(m, i * kWorkPerByteLooped);
}

void c_strchr(Machine& m) {
    get_val(m);
    const uint8_t ch = static_cast<uint8_t>(m.a1);
    const uint32_t s = pop_addr(m);
    const uint32_t n = guest_strlen(m, s);
    uint32_t found = 0;
    if (ch == 0) {
        if (n < kRamSize) found = s + n;
    } else {
        for (uint32_t i = 0; i < n; ++i) {
            if (lRamRead(m, s + i) == ch) {
                found = s + i;
                break;
            }
        }
    }
    m.a1 = found;
    put_val(m);
}

void c_strcmp(Machine& m) {
    const uint32_t b = pop_addr(m);
    const uint32_t a = pop_addr(m);
    int r = 0;
    uint32_t i = 0;
    for (; i < kRamSize; ++i) {
        const uint8_t x = lRamRead(m, a + i), y = lRamRead(m, b + i);
        if (x != y) {
            r = x < y ? -1 : 1;
            break;
        }
        if (x == 0) break;
    }
    add_work(m, i);
    m.a1 = static_cast<uint32_t>(r);
    put_val(m);
}

void c_strstr(Machine& m) {
    const uint32_t sub = pop_addr(m);
    const uint32_t s = pop_addr(m);
    std::vector<char> sbuf, subbuf;
    const std::string_view hay = guest_bytes(m, s, guest_strlen(m, s), sbuf);
    const std::string_view needle = guest_bytes(m, sub, guest_strlen(m, sub), subbuf);
    const size_t at = find_in(hay, needle);
    m.a1 = at == std::string_view::npos ? 0 : s + static_cast<uint32_t>(at);
    put_val(m);
}

// Counts larger than the block are cut to the block: a fill or copy of the
// whole block is the most a valid program can ask for.
void c_memset(Machine& m) {
    const uint32_t n = std::min(pop_addr(m), kRamSize);
    get_val2(m);
    const uint32_t dst = pop_addr(m);
    uint32_t room;
    uint8_t* p = guest_ptr(m, dst, &room);
    const uint8_t v = static_cast<uint8_t>(m.a3);
    add_work(m, n);
    std::memset(p, v, std::min(n, room));
    if (n > room) std::memset(m.tovix_ram, v, n - room);
}

void c_memcpy(Machine& m) {
    const uint32_t n = std::min(pop_addr(m), kRamSize);
    const uint32_t src = pop_addr(m);
    const uint32_t dst = pop_addr(m);
    lmemcpy(m, dst, src, n);
}

void c_memmove(Machine& m) {
    const uint32_t n = std::min(pop_addr(m), kRamSize);
    const uint32_t src = pop_addr(m);
    const uint32_t dst = pop_addr(m);
    if (n == 0) return;
    uint32_t droom, sroom;
    uint8_t* d = guest_ptr(m, dst, &droom);
    const uint8_t* s = guest_ptr(m, src, &sroom);
    if (n <= droom && n <= sroom) {
        std::memmove(d, s, n);
        return;
    }
    // An area that wraps: take a copy of the source first.
    std::vector<char> buf;
    const std::string_view from = guest_bytes(m, src, n, buf);
    if (from.data() != buf.data()) buf.assign(from.begin(), from.end());
    std::memcpy(d, buf.data(), std::min(n, droom));
    if (n > droom) std::memcpy(m.tovix_ram, buf.data() + droom, n - droom);
}

void c_abs(Machine& m) {
    get_val(m);
    // Unsigned negation keeps -2147483648 as it is.
    if (static_cast<int32_t>(m.a1) < 0) m.a1 = 0u - m.a1;
    put_val(m);
}

void c_rand(Machine& m) {
    const uint32_t s = static_cast<uint32_t>(m.seed) * 22695477u + 1u;
    m.seed = static_cast<int32_t>(s);
    m.a1 = (s >> 16) & 0x7FFF;
    put_val(m);
}

void c_srand(Machine& m) {
    get_val(m);
    m.seed = static_cast<int32_t>(m.a1);
}

// No sound and no list device: both calls leave the stack as it is.
void c_beep(Machine&) {}
void c_setlist(Machine&) {}
