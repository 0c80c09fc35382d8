#include "cjk/pinyin.h"

#include <cstring>


namespace {

uint32_t read16(uint32_t at) { return pinyin_data[at] | pinyin_data[at + 1] << 8; }

// A table whose size does not match the layout above is never read.
bool table_ok() { return pinyin_data_size == kPinyinSize; }

}  // namespace

uint32_t get_seq_no(const char* py) {
    if (!table_ok()) return kPinyinNotFound;
    // Only letters are meant to be lower-cased; other bytes change too.
    char key[7] = {};
    for (int i = 0; i < 6 && py[i]; ++i) key[i] = static_cast<char>(py[i] | 0x20);
    int lo = 0, hi = static_cast<int>(kPinyinSyllables) - 1;
    while (lo <= hi) {
        const int mid = (lo + hi) / 2;
        const char* name = reinterpret_cast<const char*>(pinyin_data + kPinyinNames + 6 * mid);
        const int r = std::strncmp(key, name, 6);
        if (r == 0) return static_cast<uint32_t>(mid);
        if (r < 0)
            hi = mid - 1;
        else
            lo = mid + 1;
    }
    return kPinyinNotFound;
}

uint32_t GetGBCodeByPY(uint32_t k, const char* py, uint8_t* out) {
    if (py[0] == 0) return 0xFFFFFFFFu;
    const uint32_t s = get_seq_no(py);
    if (s == kPinyinNotFound) return 0xFFFFFFFFu;
    const uint32_t b = read16(kPinyinOffsets + 2 * s), e = read16(kPinyinOffsets + 2 * s + 2);
    if (b > e || e > kPinyinOffsets) return 0xFFFFFFFFu;
    const uint32_t n = (e - b) / 2;
    if (k >= n) return 0xFFFFFFFFu;
    const uint32_t m = n - k < kPinyinPage ? n - k : kPinyinPage;
    std::memcpy(out, pinyin_data + b + 2 * k, 2 * m);
    out[2 * m] = 0;
    return n << 16 | m;
}
