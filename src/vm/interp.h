// The interpreter loop, the dispatch tables and the program exits.
#pragma once

#include <array>
#include <cstdint>
#include <functional>

#include "vm/machine.h"

using Handler = void (*)(Machine&);

// Instruction handlers for bytes 0x00-0x7F and system calls for 0x80-0xFF
// (entry b & 0x7F). Bytes that are not defined end the program.
extern const std::array<Handler, 128> codes;
extern const std::array<Handler, 128> codes2;

// Loads the first program, writes its command line and resets the machine
// for it. Returns false (after logging) on failure.
bool vm_start(Machine& m);
// Runs at most max_steps instructions or until something stops the loop
// (m.stop: a wait, a present, the end of the program, the end of the time
// slice). Returns the number of instructions completed: a waiting call that
// will run again is not counted.
uint64_t vm_run_steps(Machine& m, uint64_t max_steps);
// Instructions completed out of n executed: a call waiting for a key runs
// again when it resumes and is counted then.
inline uint64_t vm_retired(const Machine& m, uint64_t n) {
    return m.stop == Stop::Wait && m.wait.kind == WaitKind::Key && n > 0 ? n - 1 : n;
}
// As vm_run_steps, calling trace before each instruction.
uint64_t vm_run_traced(Machine& m, uint64_t max_steps, const std::function<void(const Machine&)>& trace);
// Ends a wait whose condition holds and finishes what the waiting call had
// left to do. Returns false while the guest still waits.
bool vm_resume(Machine& m);
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
    if (m.force_exit_tvx) {
        m.force_exit_tvx = 0;
        return 1;
    }
    return 0;
}

void c_exit(Machine& m);
void good_exit(Machine& m);
void bad_exit(Machine& m);
void div0_err(Machine& m);
// Ends the program after the program counter left the image at `offset`.
void off_image(Machine& m, uint32_t offset);
// Before a program ends or starts another, every key must be up: when one is
// held, the call waits (KeysUp) and finishes in vm_resume. Returns true when
// the caller goes on at once.
bool wait_no_key(Machine& m, AfterKeysUp then);
// What the exit call does once the keys are up.
void finish_exit(Machine& m, uint32_t code);
