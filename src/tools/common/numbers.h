// Strict number parsing for command lines.
#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>

// A decimal number of digits only (no sign, blank or trailing text) that is
// at most max.
inline bool parse_decimal(std::string_view text, uint64_t max, uint64_t* out) {
    uint64_t v = 0;
    const char* end = text.data() + text.size();
    const auto [at, ec] = std::from_chars(text.data(), end, v);
    if (text.empty() || ec != std::errc() || at != end || v > max) return false;
    *out = v;
    return true;
}
