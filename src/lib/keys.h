// Key state shared between the front-end thread (writer) and the VM thread.
#pragma once

#include <atomic>
#include <cstdint>

struct Keys {
    std::atomic<uint16_t> vk{0xFFFF};  // active-low button word
    std::atomic<uint8_t> cur_keyb[128] = {};
    std::atomic<uint8_t> old_keyb[128] = {};
    std::atomic<uint8_t> tvx_key{0};  // bit 7: a key is waiting; low 7 bits: its value
};

// All twelve buttons released.
inline void clearAllKey(Keys& k) { k.vk.store(0xFFF, std::memory_order_relaxed); }
