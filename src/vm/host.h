// The only way the core reaches the outside world: the log, the console
// text, and the host's real clocks (used under the real clock only). The
// core asks; it never waits.
#pragma once

#include <cstdint>
#include <string_view>

struct Machine;

// Calendar time as the guest sees it (year in full, month 1-12,
// weekday 0 = Sunday).
struct LocalTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, weekday = 0;
};

// The calendar fields as a struct tm (weekday left out, no daylight saving).
struct tm;
void to_tm(const LocalTime& t, struct tm* out);

struct Host {
    virtual ~Host() = default;

    // Sink of the machine log (mylog): standard output by default.
    virtual void log(std::string_view text);
    // Console text in verbose mode (UTF-8): standard output by default.
    virtual void console_write(std::string_view text);
    // Fraction of the current wall-clock second in 256ths, 0-255.
    virtual int GetMillisecond_os();
    // Monotonic clock in 100-nanosecond units.
    virtual uint64_t GetNanoSeconds_os();
    virtual LocalTime GetLocalTime_os();
};

// A stateless host on the real clocks and standard output.
Host& default_host();
