#include "core/core.h"
#include "core/core_internal.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "fs/config.h"
#include "fs/path.h"
#include "vm/fast.h"
#include "vm/interp.h"
#include "vm/loader.h"
#include "base/tvx_header.h"

Core::Core() : input(std::make_unique<CoreInput>()), host(std::make_unique<CoreHost>()) { host->core = this; }
Core::~Core() { host->flush_console(); }

namespace {

// Reasons a file is not a program the machine can load, or "".
std::string check_program(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return path + ": " + std::strerror(errno);
    uint8_t head[tvx_header::kSize];
    const size_t got = std::fread(head, 1, sizeof head, f);
    std::fclose(f);
    const std::string problem = tvx_header::problem(head, got);
    return problem.empty() ? "" : path + ": " + problem;
}

// Applies the queued button changes, one input pass each. A release of a
// button the guest has not yet run with stays queued, with everything after
// it, so that a short tap is still seen.
void apply_input(Machine& m, CoreInput& in) {
    // The pass for the time that went by since the last run, then one pass
    // for each change.
    input_pass(m);
    while (!in.queue.empty()) {
        const CoreInput::Change c = in.queue.front();
        if (!c.down && (c.buttons & in.unseen)) break;
        // The machine's button word has the same bits, active-low.
        m.vk = c.down ? static_cast<uint16_t>(m.vk & ~c.buttons) : static_cast<uint16_t>(m.vk | c.buttons);
        input_pass(m);
        if (c.down) in.unseen |= c.buttons;
        in.queue.pop_front();
    }
}

}  // namespace

std::string core_load(Core& core, const LoadOptions& o) {
    if (o.program.empty()) return "no program given";
    std::string program = o.program;
    struct stat sb{};
    if (stat(program.c_str(), &sb) != 0) return program + ": " + std::strerror(errno);
    if (S_ISDIR(sb.st_mode)) {
        std::string found;
        if (!findFirstTvxFile(found, program)) return program + ": no .tvx file in this directory";
        program = found;
    } else if (!S_ISREG(sb.st_mode)) {
        return program + ": not a regular file";
    } else if (auto err = tvx_name_error(program); !err.empty()) {
        return err;
    }
    if (auto err = check_program(program); !err.empty()) return err;
    // Guest paths are GB2312: the root must have a GB2312 form.
    std::string root_gb;
    if (!o.root.empty() && (!host_path_gb(o.root, &root_gb) || root_gb.size() >= kPathMax - 1))
        return o.root + ": not a usable guest root";

    auto m = std::make_unique<Machine>();
    m->host = core.host.get();
    m->tvxFilePath = program;
    m->tvxProgArgs = o.args;
    m->single_program_mode = o.single_program ? 1 : 0;
    m->use_grid = o.grid ? 1 : 0;
    m->disk_limit = o.disk_limit;
    start_clock(*m, o.virtual_clock);
    Color256Init(*m);
    m->s_year = 2022;
    m->s_month = 7;
    m->s_day = 15;
    m->s_hour = 9;
    ReadConfig(*m, o.root.empty() ? "TovixOS/System/Config.ini" : (root_gb + "/System/Config.ini").c_str());
    m->tvxRoot = root_gb;
    if (!vm_start(*m)) return program + ": the program could not be loaded";
    m->need_refresh = 1;  // the first run shows the screen
    core.machine = std::move(m);
    *core.input = CoreInput{};
    return "";
}

RunResult core_run(Core& core, const RunBudget& budget) {
    RunResult r;
    if (!core.loaded()) {
        r.status = RunStatus::Ended;
        r.exit_code = -1;
        return r;
    }
    Machine& m = *core.machine;
    const uint32_t frames_before = m.frame_number;
    if (m.exited && m.single_program_mode) {
        r.status = RunStatus::Ended;
        r.exit_code = m.exit_code;
        return r;
    }
    if (!continue_cut_run(core)) apply_input(m, *core.input);
    m.clock.horizon_ns = budget.until_ns;
    m.stop = Stop::None;
    m.work = 0;
    // Under the real clock the time is looked at between short stretches.
    const uint64_t stretch = m.clock.virtual_time ? UINT64_MAX : 1 << 14;
    for (;;) {
        if (m.wait.kind != WaitKind::None && !vm_resume(m)) {
            // Under the virtual clock a delay inside the slice passes at once.
            if (m.wait.kind == WaitKind::Time && m.clock.virtual_time) {
                if (m.wait.until_ns <= budget.until_ns) {
                    advance_clock(m, m.wait.until_ns);
                    continue;
                }
                advance_clock(m, budget.until_ns);
            }
            r.status = RunStatus::Waiting;
            r.wait = m.wait.kind;
            r.wake_ns = m.wait.kind == WaitKind::Time ? m.wait.until_ns : 0;
            break;
        }
        if (m.stop == Stop::Ended) {
            r.status = RunStatus::Ended;
            r.exit_code = m.exit_code;
            break;
        }
        if (m.stop == Stop::Frame) {
            r.status = RunStatus::Frame;
            break;
        }
        // Much bulk work: the host looks at its clock, input and signals
        // before the guest goes on (the next run continues this one).
        if (m.stop == Stop::Horizon || m.stop == Stop::Busy || r.steps >= budget.max_steps || guest_now(m) >= budget.until_ns) {
            r.status = RunStatus::Budget;
            break;
        }
        m.stop = Stop::None;
        if (!m.clock.virtual_time && guest_now(m) - m.clock.last_input_pass_ns >= kInputPassNs) input_pass(m);
        const uint64_t n = std::min(budget.max_steps - r.steps, stretch);
        if (core.sinks.trace)
            r.steps += vm_run_traced(m, n, core.sinks.trace);
        else
            r.steps += core.reference_engine ? vm_run_steps(m, n) : vm_run_fast(m, n);
    }
    m.stop = Stop::None;
    core.host->flush_console();
    if (r.steps > 0 || m.wait.kind != WaitKind::Time) core.input->unseen = 0;
    note_run_end(core, budget, r);
    if (m.need_refresh) present_frame(m);
    r.new_frame = m.frame_number != frames_before;
    return r;
}

RunResult core_run_frame(Core& core, uint64_t until_ns, uint64_t max_steps) {
    constexpr int kBusyRuns = 8;  // runs cut short by bulk work, at most, per frame
    RunResult last;
    uint64_t steps = 0;
    bool new_frame = false;
    for (int busy_runs = 0;;) {
        last = core_run(core, {.until_ns = until_ns, .max_steps = max_steps - steps});
        steps += last.steps;
        new_frame = new_frame || last.new_frame;
        if (last.status == RunStatus::Ended || steps >= max_steps) break;
        // Frames presented inside the slice only replace each other.
        if (last.status == RunStatus::Frame && last.steps > 0) continue;
        const bool busy = last.status == RunStatus::Budget && core_time(core) < until_ns;
        if (!busy || ++busy_runs >= kBusyRuns) break;
    }
    if (last.status != RunStatus::Ended && core_time(core) < until_ns) core_set_time(core, until_ns);
    last.steps = steps;
    last.new_frame = new_frame;
    return last;
}

void core_press(Core& core, uint16_t buttons) {
    buttons &= kAllButtons;
    if (!buttons) return;
    core.input->queue.push_back({buttons, true});
    core.input->word |= buttons;
}

void core_release(Core& core, uint16_t buttons) {
    buttons &= kAllButtons;
    if (!buttons) return;
    core.input->queue.push_back({buttons, false});
    core.input->word &= static_cast<uint16_t>(~buttons);
}

void core_set_buttons(Core& core, uint16_t pressed) {
    pressed &= kAllButtons;
    const uint16_t changed = pressed ^ core.input->word;
    core_press(core, changed & pressed);
    core_release(core, changed & static_cast<uint16_t>(~pressed));
}

void core_request_exit(Core& core) {
    if (core.loaded()) core.machine->force_exit_tvx = 1;
}

uint64_t core_time(const Core& core) { return core.loaded() ? guest_now(*core.machine) : 0; }

void core_set_time(Core& core, uint64_t ns) {
    if (core.loaded()) advance_clock(*core.machine, ns);
}

std::shared_ptr<const Frame> core_frame(const Core& core) { return core.loaded() ? core.machine->frame : nullptr; }

std::shared_ptr<const Frame> core_present_now(Core& core) {
    if (!core.loaded()) return nullptr;
    present_frame(*core.machine);
    return core.machine->frame;
}

void core_set_grid(Core& core, bool on) {
    if (core.loaded()) core.machine->use_grid = on ? 1 : 0;
}

bool core_grid(const Core& core) { return core.loaded() && core.machine->use_grid; }

bool core_ended(const Core& core) { return core.loaded() && core.machine->exited && core.machine->single_program_mode; }

int32_t core_exit_code(const Core& core) { return core.loaded() ? core.machine->exit_code : -1; }

void core_set_disk_limit(Core& core, uint64_t bytes) {
    if (core.loaded()) core.machine->disk_limit = bytes;
}

void core_close_files(Core& core) {
    core.host->flush_console();
    if (core.loaded()) close_all_files(*core.machine);
}

void core_flush_files(Core& core) {
    if (core.loaded()) flush_all_files(*core.machine);
}

Machine& core_machine(Core& core) { return *core.machine; }
const Machine& core_machine(const Core& core) { return *core.machine; }
