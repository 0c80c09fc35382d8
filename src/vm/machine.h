// The whole machine in one value: one struct per subsystem, aggregated so
// that the system's own register names read directly (m.lPC, m.graph_mode).
#pragma once

#include <cstdarg>
#include <cstddef>

#include "display/console.h"
#include "display/present.h"
#include "display/screen.h"
#include "fs/files.h"
#include "lib/keys.h"
#include "vm/clock.h"
#include "vm/cpu.h"
#include "vm/host.h"
#include "vm/task.h"

struct Machine : Cpu, Screen, Console, Keys, ClockState, Tasks, Presentation, Files {
    Host* host = &default_host();
    GuestClock clock;

    // Machines live on the heap, in memory that is zero when handed out;
    // the constructor sets what has initialisers and leaves the rest (the
    // guest memory above all) as those zero bytes.
    Machine();
    static void* operator new(std::size_t size);
    static void operator delete(void* p, std::size_t size);
};

// Formats into a 1,024-byte buffer (longer output is cut) and writes it to
// the host log.
void mylog(Machine& m, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

inline void ToviNeedRefresh(Machine& m) {
    m.need_refresh = 1;
    ++m.dirty_marks;
}
