// The only way the core reaches the outside world: presenting a frame,
// clocks, sleeping, setting the wall clock, and the log. tvm2 implements it
// with SDL; tvxrun and the tests with real or virtual clocks.
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

    // Presents the guest screen now (called from the VM thread when due).
    virtual void HardwareRefresh(Machine&) {}

    // Sink of the machine log (mylog): standard output by default.
    virtual void log(std::string_view text);
    // Console text in verbose mode (UTF-8): standard output by default.
    virtual void console_write(std::string_view text);
    // Asked by calls that wait for a key: false ends the program instead
    // (a host that knows no key will ever come, such as a scripted run).
    virtual bool keep_waiting(Machine&) { return true; }

    // Fraction of the current wall-clock second in 256ths, 0-255.
    virtual int GetMillisecond_os();
    // 1/256-second ticks since the host started.
    virtual uint32_t GetTickCount_os();
    virtual void Sleep_os(uint32_t ms);
    // Monotonic clock in 100-nanosecond units.
    virtual uint64_t GetNanoSeconds_os();
    virtual LocalTime GetLocalTime_os();
    virtual void SetLocalTime_os(const LocalTime& t);
};

// A stateless host on the real clocks and standard output.
Host& default_host();
