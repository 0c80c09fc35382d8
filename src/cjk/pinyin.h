// Pinyin lookup: the GB2312 characters read with a toneless pinyin syllable.
//
// pinyin_data (generated into data/pinyin.bin by tools/gen/gen_pinyin.py)
// has three areas: the characters as two-byte GB2312 codes grouped by
// syllable; kPinyinSyllables + 1 little-endian 16-bit byte offsets into the
// first area (syllable s spans entries s and s + 1); and the syllables, six
// zero-padded bytes each, sorted in byte order.
#pragma once

#include <cstdint>

extern "C" const unsigned char pinyin_data[];
extern "C" const unsigned long pinyin_data_size;

inline constexpr uint32_t kPinyinSyllables = 410;
inline constexpr uint32_t kPinyinCodes = 7376;
inline constexpr uint32_t kPinyinOffsets = 2 * kPinyinCodes;                       // byte offset of the offsets area
inline constexpr uint32_t kPinyinNames = kPinyinOffsets + 2 * (kPinyinSyllables + 1);  // of the syllables
inline constexpr uint32_t kPinyinSize = kPinyinNames + 6 * kPinyinSyllables;
inline constexpr uint32_t kPinyinNotFound = 65535;
// At most this many characters are handed out per lookup.
inline constexpr uint32_t kPinyinPage = 9;

// Number of the syllable py (read up to its zero or its sixth byte, each
// byte ORed with 0x20), or kPinyinNotFound.
uint32_t get_seq_no(const char* py);

// Writes up to nine characters of syllable py, from its k-th on, and a zero
// to out (at least 19 bytes). Returns (characters of the syllable) * 65536 +
// (characters written), or 0xFFFFFFFF, leaving out alone, when py is empty or
// unknown or k is past its last character.
uint32_t GetGBCodeByPY(uint32_t k, const char* py, uint8_t* out);
