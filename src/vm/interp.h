// The interpreter loop, the dispatch tables and the program exits.
#pragma once

#include <array>
#include <cstdint>

#include "vm/machine.h"

using Handler = void (*)(Machine&);

// Instruction handlers for bytes 0x00-0x7F and system calls for 0x80-0xFF
// (entry b & 0x7F). Bytes that are not defined end the program.
extern const std::array<Handler, 128> codes;
extern const std::array<Handler, 128> codes2;

// main_loop: load the first program, write its command line, reset and run
// until force_exit_tvx is set.
void main_loop(Machine& m);
// The loading half of main_loop. Returns false (after logging) on failure.
bool vm_start(Machine& m);
// Runs at most max_steps instructions or until force_exit_tvx is set.
// Returns the number of instructions executed.
uint64_t vm_run_steps(Machine& m, uint64_t max_steps);
// Executes one instruction.
inline void vm_step(Machine& m) {
    const uint8_t b = getcode(m);
    if (b < 0x80)
        codes[b](m);
    else
        codes2[b & 0x7F](m);
}

// If a stop request is pending, clears it and returns 1.
inline int CheckExitKey(Machine& m) {
    if (m.force_exit_tvx.load(std::memory_order_relaxed)) {
        m.force_exit_tvx.store(0, std::memory_order_relaxed);
        return 1;
    }
    return 0;
}

// Waiting calls present from the VM thread when that is the refresh policy.
inline void refresh_if_due(Machine& m) {
    if (m.need_refresh.load(std::memory_order_relaxed) && m.refresh_mode == 2) m.host->HardwareRefresh(m);
}

void c_exit(Machine& m);
void good_exit(Machine& m);
void bad_exit(Machine& m);
void div0_err(Machine& m);
// Ends the program after the program counter left the image at `offset`.
void off_image(Machine& m, uint32_t offset);
void wait_no_key(Machine& m);
