// Key reading, delays and the clock.
#include "lib/keys.h"
#include "lib/syscalls.h"
#include "vm/interp.h"

int c_keyid(const Keys& k, uint32_t code) {
    const uint8_t c = static_cast<uint8_t>(code);
    for (int i = 1; i <= 62; ++i)
        if (k.key_code[i] == c) return i;
    return 0;
}

void SetGamePad(Keys& k, uint16_t vk) {
    for (int i = 0; i < 128; ++i) k.old_keyb[i].store(k.cur_keyb[i].load(std::memory_order_relaxed), std::memory_order_relaxed);
    for (int i = 1; i <= 12; ++i) k.cur_keyb[i].store((vk & kb[i]) ? 0 : 1, std::memory_order_relaxed);
    for (int i = 13; i <= 62; ++i) k.cur_keyb[i].store(0, std::memory_order_relaxed);
    if (k.tvx_key.load(std::memory_order_relaxed) & 0x80) return;
    for (int i = 1; i <= 62; ++i) {
        if (k.cur_keyb[i].load(std::memory_order_relaxed) && !k.old_keyb[i].load(std::memory_order_relaxed)) {
            k.tvx_key.store(static_cast<uint8_t>(k.key_code[i] | 0x80), std::memory_order_relaxed);
            return;
        }
    }
}

namespace {

uint8_t key(const Machine& m) { return m.tvx_key.load(std::memory_order_relaxed); }

}  // namespace

void c_getchar(Machine& m) {
    refresh_if_due(m);
    while (!(key(m) & 0x80)) {
        // A host with no further input to offer (the headless runner) ends
        // the run instead of waiting for ever.
        if (!m.host->keep_waiting(m)) {
            m.force_exit_tvx.store(1, std::memory_order_relaxed);
            push_cell(m, 0);
            return;
        }
        refresh_if_due(m);
        m.host->Sleep_os(1);
    }
    const uint8_t k = key(m);
    push_cell(m, k & 0x7Fu);
    m.tvx_key.store(k & 0x7F, std::memory_order_relaxed);
}

void c_inkey(Machine& m) {
    const uint8_t k = key(m);
    if (k & 0x80) {
        push_cell(m, k & 0x7Fu);
        m.tvx_key.store(k & 0x7F, std::memory_order_relaxed);
    } else {
        push_cell(m, 0);
    }
}

void c_getword(Machine& m) {
    get_val(m);
    c_getchar(m);
}

void c_checkkey(Machine& m) {
    get_val(m);
    const uint8_t k = static_cast<uint8_t>(m.a1);
    if (k >= 128) {
        for (int i = 0; i < 128; ++i) {
            if (m.cur_keyb[i].load(std::memory_order_relaxed) && m.key_code[i] != 0) {
                push_cell(m, m.key_code[i]);
                return;
            }
        }
        push_cell(m, 0);
        return;
    }
    const int slot = c_keyid(m, k);
    push_cell(m, slot && m.cur_keyb[slot].load(std::memory_order_relaxed) ? 0xFFFFFFFFu : 0u);
}

void c_releasekey(Machine& m) {
    get_val(m);
    const uint8_t k = static_cast<uint8_t>(m.a1);
    if (k >= 128) {
        m.tvx_key.store(0, std::memory_order_relaxed);
        for (auto& held : m.cur_keyb) held.store(0, std::memory_order_relaxed);
        return;
    }
    const int slot = c_keyid(m, k);
    if (!slot) return;
    m.cur_keyb[slot].store(0, std::memory_order_relaxed);
    if (key(m) == (k | 0x80)) m.tvx_key.store(k, std::memory_order_relaxed);
}

// A busy wait on the 1/256-second counter, by design (no sleeping).
void c_delay(Machine& m) {
    get_val(m);
    m.delay = static_cast<int32_t>(((m.a1 & 0x7FFF) * 256) / 1000);
    uint8_t t = static_cast<uint8_t>(m.host->GetMillisecond_os());
    refresh_if_due(m);
    while (m.delay >= 1 && !m.force_exit_tvx.load(std::memory_order_relaxed)) {
        const uint8_t d = static_cast<uint8_t>(m.host->GetMillisecond_os() - t);
        if (d) {
            t = static_cast<uint8_t>(t + d);
            m.delay -= d;
        }
    }
}

void c_getms(Machine& m) {
    refresh_if_due(m);
    push_cell(m, static_cast<uint32_t>(m.host->GetMillisecond_os()) & 0xFF);
}

void c_gettime(Machine& m) {
    refresh_if_due(m);
    get_val(m);
    const uint32_t a = m.a1 & m.addr_mask;
    const LocalTime t = m.host->GetLocalTime_os();
    m.s_year = t.year;
    m.s_month = t.month;
    m.s_day = t.day;
    m.s_hour = t.hour;
    m.s_min = t.minute;
    m.s_sec = t.second;
    m.s_week = t.weekday;
    lRamWrite2(m, a, static_cast<uint32_t>(m.s_year));
    lRamWrite(m, a + 2, static_cast<uint32_t>(m.s_month));
    lRamWrite(m, a + 3, static_cast<uint32_t>(m.s_day));
    lRamWrite(m, a + 4, static_cast<uint32_t>(m.s_hour));
    lRamWrite(m, a + 5, static_cast<uint32_t>(m.s_min));
    lRamWrite(m, a + 6, static_cast<uint32_t>(m.s_sec));
    lRamWrite(m, a + 7, static_cast<uint32_t>(m.s_week));
}

void c_settime(Machine& m) {
    get_val(m);
    const uint32_t a = m.a1 & m.addr_mask;
    m.s_year = static_cast<uint16_t>(lRamRead2(m, a));
    m.s_month = lRamRead(m, a + 2);
    m.s_day = lRamRead(m, a + 3);
    m.s_hour = lRamRead(m, a + 4);
    m.s_min = lRamRead(m, a + 5);
    m.s_sec = lRamRead(m, a + 6);
    m.s_week = lRamRead(m, a + 7);
    m.host->SetLocalTime_os({m.s_year, m.s_month, m.s_day, m.s_hour, m.s_min, m.s_sec, m.s_week});
}
