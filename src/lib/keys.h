// Key state (written by the host's input between runs, read and cleared by
// the key calls), the guest key-code table, and the clock state of the time
// calls.
#pragma once

#include <cstdint>

struct Machine;

// Guest key codes by key index: 1-12 the buttons, 13-62 a virtual keyboard
// that is never held; the rest zero so that scans of 128 slots stay inside.
inline constexpr uint8_t default_key_code[64] = {
    0,
    0x14, 0x15, 0x17, 0x16, 0x0D, 0x1B, 0x1C, 0x1D, 0x13, 0x0E, 0x1F, 0x19,  // UP .. Y
    0, 0, 0, 0, 0, 0,
    0x1C, 0x1D, 0x1E, 0x1F,
    'q', 'w', 'e', 'r', 't', 'y', 'u', 'i', 'o', 'p',
    'a', 's', 'd', 'f', 'g', 'h', 'j', 'k', 'l', 0x0D,
    'z', 'x', 'c', 'v', 'b', 'n', 'm',
    0x13, 0x14, 0x0E, 0x19, 0x1A, 0x12, 0x1B,
    0x30, 0x2E, 0x20,
    0x17, 0x15, 0x16,
    0,
};

// Bit of each button (index 1-12) in the active-low button word vk.
inline constexpr uint16_t kb[13] = {0, 0x40, 0x80, 0x20, 0x10, 0x01, 0x02, 0x04, 0x08, 0x200, 0x100, 0x400, 0x800};

struct Keys {
    uint16_t vk = 0xFFFF;  // active-low button word
    uint8_t cur_keyb[128] = {};
    uint8_t old_keyb[128] = {};
    uint8_t tvx_key = 0;  // bit 7: a key is waiting; low 7 bits: its value
    uint8_t key_code[128] = {};

    Keys() {
        for (int i = 0; i < 64; ++i) key_code[i] = default_key_code[i];
    }
};

// The local time as last read or to be set by the guest.
struct ClockState {
    int32_t s_year = 0, s_month = 0, s_day = 0, s_hour = 0, s_min = 0, s_sec = 0, s_week = 0;
};

// All twelve buttons released.
inline void clearAllKey(Keys& k) { k.vk = 0xFFF; }

// First key index 1-62 whose guest code is the low byte of code, else 0.
int c_keyid(const Keys& k, uint32_t code);
inline uint8_t c_keyval(const Keys& k, uint32_t index) { return k.key_code[index & 0xFF & 127]; }

// Once per input pass: turns the button word into held flags and makes the
// lowest newly pressed key pending, unless one is pending already.
void SetGamePad(Keys& k, uint16_t vk);
// Whether any key slot is held.
bool any_key_held(const Keys& k);
