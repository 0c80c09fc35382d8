#include "vm/clock.h"

#include <ctime>

#include "vm/machine.h"

namespace {

// After the clock moved: an input pass when one is due, and the end of the
// slice once guest time reaches the horizon.
void check_horizon(Machine& m) {
    const uint64_t now = guest_now(m);
    if (now - m.clock.last_input_pass_ns >= kInputPassNs) input_pass(m);
    if (now >= m.clock.horizon_ns && (m.stop == Stop::None || m.stop == Stop::Busy)) m.stop = Stop::Horizon;
}

time_t virtual_epoch() {
    tm t{};
    to_tm(kVirtualEpoch, &t);
    return timegm(&t);
}

}  // namespace

void input_pass(Machine& m) {
    SetGamePad(m, m.vk);
    m.clock.last_input_pass_ns = guest_now(m);
}

uint64_t guest_now(const Machine& m) {
    if (m.clock.virtual_time) return m.clock.now_ns;
    return m.host->GetNanoSeconds_os() * 100 - m.clock.real_start_ns;
}

void advance_clock(Machine& m, uint64_t ns) {
    if (m.clock.virtual_time && ns > m.clock.now_ns) m.clock.now_ns = ns;
}

void start_clock(Machine& m, bool virtual_time) {
    m.clock = GuestClock{};
    m.clock.virtual_time = virtual_time;
    if (!virtual_time) m.clock.real_start_ns = m.host->GetNanoSeconds_os() * 100;
}

int GetMillisecond_os(Machine& m) {
    if (!m.clock.virtual_time) {
        check_horizon(m);
        return m.host->GetMillisecond_os();
    }
    // Reading the counter is how a guest waits: each reading is one tick later.
    m.clock.now_ns += kTickNs;
    check_horizon(m);
    return static_cast<int>((m.clock.now_ns / kTickNs) & 0xFF);
}

uint32_t GetTickCount_os(Machine& m) {
    return static_cast<uint32_t>(static_cast<double>(guest_now(m) / 1000000) * 0.256);
}

uint64_t GetNanoSeconds_os(Machine& m) {
    if (!m.clock.virtual_time) return m.host->GetNanoSeconds_os();
    return m.clock.now_ns / 100;
}

LocalTime GetLocalTime_os(Machine& m) {
    time_t now = 0;
    if (m.clock.virtual_time) {
        now = virtual_epoch() + static_cast<time_t>(m.clock.now_ns / 1000000000ULL);
    } else {
        // The host's local time, taken as the calendar fields it shows.
        tm t{};
        to_tm(m.host->GetLocalTime_os(), &t);
        now = timegm(&t);
    }
    now += m.clock.calendar_offset_s;
    tm out{};
    gmtime_r(&now, &out);
    return {out.tm_year + 1900, out.tm_mon + 1, out.tm_mday, out.tm_hour, out.tm_min, out.tm_sec, out.tm_wday};
}

void SetLocalTime_os(Machine& m, const LocalTime& lt) {
    // The guest's calendar moves; the host's clock is never touched.
    tm t{}, n{};
    to_tm(lt, &t);
    to_tm(GetLocalTime_os(m), &n);
    m.clock.calendar_offset_s += static_cast<int64_t>(timegm(&t) - timegm(&n));
}
