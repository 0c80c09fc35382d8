// Key scripts of the headless runner: scripted button presses and releases
// at times from the start.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/core.h"

// Latest event time, in ms (some 31 years): far from where the implied
// release or the time in ns wraps around.
inline constexpr uint64_t kMaxKeyTimeMs = 1'000'000'000'000;

// One scripted change of a button at a time in milliseconds from the start.
struct KeyEvent {
    uint64_t at_ms = 0;
    int button = 0;  // key index 1-12 (UP, DOWN, LEFT, RIGHT, A, B, SELECT, START, L1, R1, X, Y)
    bool down = false;
};

// Parses "TIME:NAME+" (press), "TIME:NAME-" (release) and "TIME:NAME" (press,
// released 100 ms later), separated by blanks, commas or new lines; "#"
// starts a comment; TIME is digits only, at most kMaxKeyTimeMs. Returns
// false and sets *error on a bad entry.
bool parse_key_script(const std::string& text, std::vector<KeyEvent>* events, std::string* error);

// Feeds a key script to a core as guest time passes.
struct KeyScript {
    std::vector<KeyEvent> events;  // sorted by time
    size_t next = 0;

    // Presses and releases the buttons of every event due at guest time now_ns.
    void apply_due(Core& core, uint64_t now_ns);
    // Leaves out the events at or before guest time now_ns (already in a
    // saved state's input).
    void skip_until(uint64_t now_ns);
    // Guest time of the next event, UINT64_MAX when the script has ended.
    uint64_t next_ns() const;
    bool ended() const { return next >= events.size(); }
};
