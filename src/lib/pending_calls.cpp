// System calls that this build does not provide yet. Each ends the program
// with -1 after a log line naming the call; delete a line here when the call
// gets its real handler.
#include "lib/syscalls.h"
#include "vm/interp.h"

#define TVM_PENDING(fn) \
    void fn(Machine& m) { missing_call(m); }

