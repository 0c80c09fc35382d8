#include "base/strformat.h"

#include <cstdio>

std::string vstrformat(const char* fmt, va_list ap) {
    char small[256];
    va_list again;
    va_copy(again, ap);
    const int n = std::vsnprintf(small, sizeof small, fmt, ap);
    std::string text;
    if (n >= 0 && static_cast<size_t>(n) < sizeof small) {
        text.assign(small, static_cast<size_t>(n));
    } else if (n > 0) {
        text.resize(static_cast<size_t>(n));
        std::vsnprintf(text.data(), text.size() + 1, fmt, again);
    }
    va_end(again);
    return text;
}
