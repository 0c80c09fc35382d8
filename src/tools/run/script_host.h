// The host of the headless runner: real or virtual clock, scripted button
// presses, and the machine log on a chosen stream.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "vm/machine.h"

// One scripted change of a button at a time in milliseconds from the start.
struct KeyEvent {
    uint64_t at_ms = 0;
    int button = 0;  // key index 1-12 (UP, DOWN, LEFT, RIGHT, A, B, SELECT, START, L1, R1, X, Y)
    bool down = false;
};

// Parses "TIME:NAME+" (press), "TIME:NAME-" (release) and "TIME:NAME" (press,
// released 100 ms later), separated by blanks, commas or new lines; "#"
// starts a comment. Returns false and sets *error on a bad entry.
bool parse_key_script(const std::string& text, std::vector<KeyEvent>* events, std::string* error);

// The fixed date at which the virtual calendar starts: 2024-01-01 00:00:00,
// a Monday.
inline constexpr LocalTime kVirtualEpoch{2024, 1, 1, 0, 0, 0, 1};

struct ScriptHost : Host {
    Machine* machine = nullptr;
    FILE* log_to = stderr;
    bool virtual_clock = false;
    std::vector<KeyEvent> events;  // sorted by time
    size_t next_event = 0;
    bool starved = false;  // a key was awaited after the script ran out

    void log(std::string_view text) override;
    int GetMillisecond_os() override;
    uint32_t GetTickCount_os() override;
    void Sleep_os(uint32_t ms) override;
    uint64_t GetNanoSeconds_os() override;
    LocalTime GetLocalTime_os() override;
    void SetLocalTime_os(const LocalTime& t) override;
    bool keep_waiting(Machine& m) override;

    // Applies the key events that are due, as the front-end's pass would.
    void pump();
    // Time since the start in nanoseconds (virtual or real).
    uint64_t now_ns();

private:
    uint64_t virtual_ns_ = 0;
    int64_t calendar_offset_s_ = 0;  // shift set by SetLocalTime_os
    uint64_t real_start_ns_ = 0;
    uint16_t vk_ = 0xFFFF;
};
