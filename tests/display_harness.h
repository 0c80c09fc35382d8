// Helpers for the display tests: a machine in a chosen graphics mode and
// screen size, system calls driven with pushed arguments, plane access.
#pragma once

#include <initializer_list>

#include "lib/syscalls.h"
#include "vm_harness.h"

// Header flag byte for graphics mode 1, 4 or 8.
inline uint8_t mode_flags(int mode) { return mode == 4 ? 0x40 : mode == 8 ? 0x60 : 0x00; }

// A machine reset for `mode` with a screen of width16 x height16 units of
// 16 pixels (0 x 0 gives 160 x 80), both planes cleared to 0.
struct ScreenVm : Vm {
    explicit ScreenVm(int mode, uint8_t width16 = 0, uint8_t height16 = 0) : Vm(Code{}, mode_flags(mode), width16, height16) {
        std::memset(m->ScreenBuffer, 0, sizeof m->ScreenBuffer);
        m->need_refresh = 0;
    }
    Machine& mach() { return *m; }
    // Pushes the arguments left to right and runs the call.
    void call(void (*fn)(Machine&), std::initializer_list<uint32_t> args) {
        for (uint32_t a : args) push_cell(*m, a);
        fn(*m);
    }
    uint8_t& vis(int x, int y) { return m->ScreenBuffer[y * 320 + x]; }
    uint8_t& buf(int x, int y) { return m->ScreenBuffer[kPlaneSize + y * 320 + x]; }
    void poke(uint32_t addr, std::initializer_list<uint8_t> bytes) {
        for (uint8_t b : bytes) lRamWrite(*m, addr++, b);
    }
    uint8_t peek(uint32_t addr) { return lRamRead(*m, addr); }
    // Pixels x0 .. x0+n-1 of a visible-plane row as a string of hex digits.
    std::string vis_row(int y, int x0, int n) {
        static const char hex[] = "0123456789abcdef";
        std::string s;
        for (int i = 0; i < n; ++i) s += hex[vis(x0 + i, y) & 15];
        return s;
    }
};
