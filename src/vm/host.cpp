#include "vm/host.h"

#include <sys/time.h>

#include <cstdio>
#include <ctime>

void Host::log(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void Host::console_write(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

int Host::GetMillisecond_os() {
    timeval tv{};
    gettimeofday(&tv, nullptr);
    return static_cast<int>((static_cast<int64_t>(tv.tv_usec) * 32 / 125000) & 0xFF);
}

uint64_t Host::GetNanoSeconds_os() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_nsec) / 100 + static_cast<uint64_t>(ts.tv_sec) * 10000000ULL;
}

LocalTime Host::GetLocalTime_os() {
    const time_t now = time(nullptr);
    tm t{};
    localtime_r(&now, &t);
    return {t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday};
}

void to_tm(const LocalTime& lt, struct tm* out) {
    *out = tm{};
    out->tm_year = lt.year - 1900;
    out->tm_mon = lt.month - 1;
    out->tm_mday = lt.day;
    out->tm_hour = lt.hour;
    out->tm_min = lt.minute;
    out->tm_sec = lt.second;
    out->tm_isdst = 0;
}

Host& default_host() {
    static Host host;
    return host;
}
