// Shared pieces of the fuzz targets: a scratch guest root, the path guard
// (guard.cpp) and a host loop that drives a loaded core for a bounded run.
#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/core.h"

// While one exists, any file the process opens, creates, removes, renames or
// lists must lie under root; anything else aborts (see guard.cpp).
struct PathGuard {
    explicit PathGuard(const std::string& root);
    ~PathGuard();
    PathGuard(const PathGuard&) = delete;
    PathGuard& operator=(const PathGuard&) = delete;
};

// Ends the run as a finding: the guard is lifted (so the engine can write
// the input out), the reason printed, and the process aborted.
[[noreturn]] void fail(const char* what, const std::string& detail = "");

// A temporary directory, made once per process and emptied before each run.
class ScratchRoot {
public:
    ScratchRoot() {
        const char* tmp = std::getenv("TMPDIR");
        std::string t = std::string(tmp && *tmp ? tmp : "/tmp") + "/tvm2-fuzz-XXXXXX";
        if (!mkdtemp(t.data())) std::abort();
        path = t;
    }
    ~ScratchRoot() {
        clear(path);
        rmdir(path.c_str());
    }
    ScratchRoot(const ScratchRoot&) = delete;
    ScratchRoot& operator=(const ScratchRoot&) = delete;

    // Empties the root, then puts in the given file (making its directory).
    void reset() { clear(path); }
    void put(const std::string& name, const void* data, size_t size) const {
        const std::string full = path + "/" + name;
        const size_t slash = full.find_last_of('/');
        mkdir(full.substr(0, slash).c_str(), 0755);
        FILE* f = std::fopen(full.c_str(), "wb");
        if (!f || std::fwrite(data, 1, size, f) != size || std::fclose(f) != 0) std::abort();
    }

    std::string path;

private:
    // Removes everything below dir (the guest may have made directories
    // without permission bits: they are opened up first).
    static void clear(const std::string& dir) {
        DIR* d = opendir(dir.c_str());
        if (!d) return;
        while (const dirent* e = readdir(d)) {
            const std::string name = e->d_name;
            if (name == "." || name == "..") continue;
            const std::string full = dir + "/" + name;
            struct stat st{};
            if (lstat(full.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
                chmod(full.c_str(), 0755);
                clear(full);
                rmdir(full.c_str());
            } else {
                unlink(full.c_str());
            }
        }
        closedir(d);
    }
};

inline void quiet(Core& core) {
    core.sinks.log = [](std::string_view) {};
    core.sinks.console = [](std::string_view) {};
}

// Runs a loaded core on the virtual clock as a host would, for at most
// max_steps instructions and about a second of host time (a call can cost
// as much as a pass over guest memory): time jumps to the end of each wait,
// a wait for a key gets a tap of the next button of a fixed cycle (up to 24
// taps), a wait for released keys gets them released. Returns the steps
// run; *late is set when the host time ran out.
inline uint64_t drive(Core& core, uint64_t max_steps, bool* late = nullptr) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    static constexpr uint16_t kCycle[] = {BTN_A, BTN_DOWN, BTN_RIGHT, BTN_B, BTN_UP, BTN_LEFT,
                                          BTN_START, BTN_SELECT, BTN_X, BTN_Y, BTN_L1, BTN_R1};
    uint64_t steps = 0;
    int taps = 0;
    if (late) *late = false;
    for (int slice = 0; slice < 50000 && steps < max_steps; ++slice) {
        if (std::chrono::steady_clock::now() >= deadline) {
            if (late) *late = true;
            break;
        }
        const uint64_t until = core_time(core) + 16'666'667;
        const RunResult r = core_run(core, {until, std::min<uint64_t>(max_steps - steps, 100)});
        steps += r.steps;
        if (r.status == RunStatus::Ended) break;
        if (r.status != RunStatus::Waiting) {
            core_set_time(core, until);
        } else if (r.wait == WaitKind::Time) {
            core_set_time(core, r.wake_ns);
        } else if (r.wait == WaitKind::KeysUp) {
            core_release(core, kAllButtons);
        } else {
            if (taps == 24) break;
            const uint16_t b = kCycle[taps++ % 12];
            core_press(core, b);
            core_release(core, b);
        }
    }
    return steps;
}
