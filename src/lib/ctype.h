// Character classes of the ISO 8859-1 byte values, shared by the
// class-test calls, tolower/toupper and anything else that classifies
// guest characters.
#pragma once

#include <array>
#include <cstdint>

namespace ctype_bits {
inline constexpr uint8_t kUpper = 0x01;
inline constexpr uint8_t kLower = 0x02;
inline constexpr uint8_t kDigit = 0x04;
inline constexpr uint8_t kControl = 0x08;
inline constexpr uint8_t kPunct = 0x10;
inline constexpr uint8_t kSpace = 0x20;
inline constexpr uint8_t kHexLetter = 0x40;
inline constexpr uint8_t kBlank = 0x80;

// One entry per byte value; 0x80-0x9F have no class at all.
extern const std::array<uint8_t, 256> _ctype;
}  // namespace ctype_bits

using ctype_bits::_ctype;
