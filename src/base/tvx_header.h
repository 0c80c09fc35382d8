// The 16-byte .tvx header: magic, version and the flag bits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tvx_header {

inline constexpr int kSize = 16;
inline constexpr uint8_t kVersion = 0x12;

// Flag byte (header byte 8).
inline constexpr uint8_t kFlagBits32 = 0x10;
inline constexpr uint8_t kFlagBits24 = 0x80;
inline constexpr uint8_t kFlagMode4 = 0x40;
inline constexpr uint8_t kFlagMode8 = 0x60;
inline constexpr uint8_t kFlagPen = 0x01;

// Header bytes that the machine never reads, in the order `reserved=` lists them.
inline constexpr int kReservedOffsets[9] = {4, 5, 6, 7, 11, 12, 13, 14, 15};

// Address width as the loader derives it: bit 0x10 wins over bit 0x80.
inline int ram_bits(uint8_t flags) {
    if (flags & kFlagBits32) return 32;
    if (flags & kFlagBits24) return 24;
    return 16;
}

inline uint8_t bits_flag(int bits) {
    return bits == 32 ? kFlagBits32 : bits == 24 ? kFlagBits24 : 0;
}

inline uint8_t mode_flag(int mode) {
    return mode == 8 ? kFlagMode8 : mode == 4 ? kFlagMode4 : 0;
}

inline bool is_header(const uint8_t* p, std::size_t n) {
    return n >= kSize && p[0] == 'T' && p[1] == 'V' && p[2] == 'X' && p[3] == kVersion;
}

// What is wrong with a file that starts with the n bytes at p (all of it, or
// at least its first kSize bytes), for a message after its name; "" when it
// starts with a header.
inline std::string problem(const uint8_t* p, std::size_t n) {
    if (is_header(p, n)) return "";
    if (n == 0) return "empty file";
    if (n < kSize && n >= 3 && p[0] == 'T' && p[1] == 'V' && p[2] == 'X') {
        std::string text = "truncated Tovix program (";
        text.append(std::to_string(n)).append(" of the 16 header bytes)");
        return text;
    }
    return "not a Tovix program";
}

}  // namespace tvx_header
