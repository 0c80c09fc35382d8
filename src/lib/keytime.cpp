// Key reading, delays and the clock.
#include <cstring>

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
    std::memcpy(k.old_keyb, k.cur_keyb, sizeof k.old_keyb);
    for (int i = 1; i <= 12; ++i) k.cur_keyb[i] = (vk & kb[i]) ? 0 : 1;
    for (int i = 13; i <= 62; ++i) k.cur_keyb[i] = 0;
    if (k.tvx_key & 0x80) return;
    for (int i = 1; i <= 62; ++i) {
        if (k.cur_keyb[i] && !k.old_keyb[i]) {
            k.tvx_key = static_cast<uint8_t>(k.key_code[i] | 0x80);
            return;
        }
    }
}

bool any_key_held(const Keys& k) {
    for (const uint8_t held : k.cur_keyb)
        if (held) return true;
    return false;
}

namespace {

// No key is pending: the call is run again from its opcode once one is, so
// the guest sees exactly what a blocking call would have given it.
bool wait_for_key(Machine& m) {
    if (m.tvx_key & 0x80) return false;
    m.lPC -= 1;
    m.wait.kind = WaitKind::Key;
    m.stop = Stop::Wait;
    return true;
}

void take_key(Machine& m) {
    const uint8_t k = m.tvx_key;
    push_cell(m, k & 0x7Fu);
    m.tvx_key = k & 0x7F;
}

}  // namespace

void c_getchar(Machine& m) {
    if (!wait_for_key(m)) take_key(m);
}

void c_inkey(Machine& m) {
    if (m.tvx_key & 0x80)
        take_key(m);
    else
        push_cell(m, 0);
}

void c_getword(Machine& m) {
    if (wait_for_key(m)) return;  // the argument stays on the stack until then
    get_val(m);
    take_key(m);
}

void c_checkkey(Machine& m) {
    get_val(m);
    const uint8_t k = static_cast<uint8_t>(m.a1);
    if (k >= 128) {
        for (int i = 0; i < 128; ++i) {
            if (m.cur_keyb[i] && m.key_code[i] != 0) {
                push_cell(m, m.key_code[i]);
                return;
            }
        }
        push_cell(m, 0);
        return;
    }
    const int slot = c_keyid(m, k);
    push_cell(m, slot && m.cur_keyb[slot] ? 0xFFFFFFFFu : 0u);
}

void c_releasekey(Machine& m) {
    get_val(m);
    const uint8_t k = static_cast<uint8_t>(m.a1);
    if (k >= 128) {
        m.tvx_key = 0;
        std::memset(m.cur_keyb, 0, sizeof m.cur_keyb);
        return;
    }
    const int slot = c_keyid(m, k);
    if (!slot) return;
    m.cur_keyb[slot] = 0;
    if (m.tvx_key == (k | 0x80)) m.tvx_key = k;
}

// The wait counts 1/256-second ticks from the reading of the counter at the
// start; the host is given back control until the guest clock reaches the
// end (or the program is asked to leave).
void c_delay(Machine& m) {
    get_val(m);
    m.delay = static_cast<int32_t>(((m.a1 & 0x7FFF) * 256) / 1000);
    GetMillisecond_os(m);
    if (m.delay < 1 || m.force_exit_tvx) return;
    m.wait.kind = WaitKind::Time;
    m.wait.until_ns = guest_now(m) + static_cast<uint64_t>(m.delay) * kTickNs;
    m.stop = Stop::Wait;
}

void c_getms(Machine& m) {
    push_cell(m, static_cast<uint32_t>(GetMillisecond_os(m)) & 0xFF);
}

void c_gettime(Machine& m) {
    get_val(m);
    const uint32_t a = m.a1 & m.addr_mask;
    const LocalTime t = GetLocalTime_os(m);
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
    SetLocalTime_os(m, {m.s_year, m.s_month, m.s_day, m.s_hour, m.s_min, m.s_sec, m.s_week});
}
