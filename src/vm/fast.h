// The fast engine: runs a decoded form of the program image (operands
// decoded once, direct threading, common instruction sequences fused) with
// exactly the effects of the reference loop in vm/interp.h.
#pragma once

#include <cstdint>

#include "vm/machine.h"

// As vm_run_steps: at most max_steps instructions (a fused sequence counts
// as its parts), stopping where vm_run_steps stops; returns the instructions
// completed.
uint64_t vm_run_fast(Machine& m, uint64_t max_steps);
