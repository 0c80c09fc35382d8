// printf-style formatting into a string of whatever length the text needs.
#pragma once

#include <cstdarg>
#include <string>

// The whole formatted text (empty when the format cannot be applied), so a
// long log line keeps its end, line end included.
std::string vstrformat(const char* fmt, va_list ap) __attribute__((format(printf, 1, 0)));
