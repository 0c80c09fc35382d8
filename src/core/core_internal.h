// The parts of a Core that only the core's own files see: the pending
// button changes and the machine's host.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "core/core.h"
#include "vm/machine.h"

// Button changes waiting for the next run, in the order they came.
struct CoreInput {
    struct Change {
        uint16_t buttons;
        bool down;
    };
    std::deque<Change> queue;
    uint16_t word = 0;    // what the host last said is pressed
    uint16_t unseen = 0;  // pressed, but the guest has not run since

    // The last run stopped on its step budget before its time horizon. The
    // next run goes on as if it had not stopped (no input pass, the dirty
    // mark as it was before the present) unless input came in between.
    bool cut = false;
    bool cut_refresh = false;
    size_t cut_queued = 0;
};

// Notes how a run ended, before the dirty screen is presented.
inline void note_run_end(Core& core, const RunBudget& budget, const RunResult& r) {
    CoreInput& in = *core.input;
    in.cut = r.status == RunStatus::Budget && guest_now(*core.machine) < budget.until_ns;
    in.cut_refresh = core.machine->need_refresh != 0;
    in.cut_queued = in.queue.size();
}

// True when this run continues a run cut on its step budget; its input is
// then left for the run after it.
inline bool continue_cut_run(Core& core) {
    CoreInput& in = *core.input;
    if (!in.cut) return false;
    in.cut = false;
    if (in.queue.size() != in.cut_queued) return false;
    if (in.cut_refresh) core.machine->need_refresh = 1;
    return true;
}

// The machine's host inside the core: the sinks, and the real clocks.
// Console text is gathered and handed on by the line (and before a log line,
// and when a run returns), so that output byte by byte costs no system call
// per byte.
struct CoreHost : Host {
    Core* core = nullptr;
    std::string console_text;

    void flush_console() {
        if (console_text.empty()) return;
        if (core->sinks.console)
            core->sinks.console(console_text);
        else
            Host::console_write(console_text);
        console_text.clear();
    }
    void log(std::string_view text) override {
        flush_console();
        if (core->sinks.log)
            core->sinks.log(text);
        else
            Host::log(text);
    }
    void console_write(std::string_view text) override {
        console_text += text;
        if (text.find('\n') != std::string_view::npos || console_text.size() >= 65536) flush_console();
    }
};
