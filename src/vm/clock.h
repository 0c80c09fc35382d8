// The guest's clocks. Under the virtual clock guest time is a counter that
// moves only when the host sets it, when a wait is served, or by one
// 1/256-second tick at each reading of the tick counter (so that a guest
// polling the counter makes progress); the calendar starts at
// 2024-01-01 00:00:00. Under the real clock the times come from the host.
#pragma once

#include <cstdint>

#include "vm/host.h"

struct Machine;

inline constexpr uint64_t kTickNs = 1000000000ULL / 256;  // one 1/256-second tick

// The fixed date at which the virtual calendar starts (a Monday).
inline constexpr LocalTime kVirtualEpoch{2024, 1, 1, 0, 0, 0, 1};

struct GuestClock {
    bool virtual_time = true;
    uint64_t now_ns = 0;            // virtual: guest time since the load
    // What the guest's setting of the time moved its calendar by; the host's
    // clock is never changed.
    int64_t calendar_offset_s = 0;
    uint64_t real_start_ns = 0;     // real: the host's monotonic time at the load
    // The running slice ends when guest time reaches this.
    uint64_t horizon_ns = UINT64_MAX;
    uint64_t last_input_pass_ns = 0;
};

// The held keys are looked at again (an input pass: a key the guest marked
// released while it is still down counts as pressed anew) at most every
// 10 ms of guest time, as a host's loop would between its passes.
inline constexpr uint64_t kInputPassNs = 10000000;
// Makes an input pass now.
void input_pass(Machine& m);

// Guest time in ns since the load.
uint64_t guest_now(const Machine& m);
// Moves virtual time forward to ns (never back); nothing under the real clock.
void advance_clock(Machine& m, uint64_t ns);
// Starts the clock at the load.
void start_clock(Machine& m, bool virtual_time);

// Fraction of the current second in 256ths, 0-255.
int GetMillisecond_os(Machine& m);
// 1/256-second ticks since the load.
uint32_t GetTickCount_os(Machine& m);
// Monotonic time in 100-nanosecond units.
uint64_t GetNanoSeconds_os(Machine& m);
LocalTime GetLocalTime_os(Machine& m);
void SetLocalTime_os(Machine& m, const LocalTime& t);
