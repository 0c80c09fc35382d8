// The embeddable machine: everything a host needs to load a Tovix program,
// drive it one slice at a time, hand it buttons and time, take its frames and
// console text, and save and restore it. The core never sleeps, spins, starts
// a thread or talks to a window system; a guest call that waits returns
// control to the host and resumes on a later core_run.
//
// A host's loop, in short:
//
//   Core core;
//   if (auto err = core_load(core, opts); !err.empty()) { report(err); }
//   for (;;) {
//       core_press(core, BTN_A) / core_release(...)   as input arrives
//       RunResult r = core_run(core, {.until_ns = t + 16'666'667});
//       if (r.new_frame) show(*core_frame(core));
//       if (r.status == RunStatus::Ended) break;
//       (real clock: sleep until r.wake_ns or the next input when waiting)
//   }
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "display/frame.h"
#include "fs/files.h"
#include "vm/wait.h"

struct Machine;

// The twelve buttons, as bits of a button word (1 = pressed).
enum Button : uint16_t {
    BTN_A = 0x001, BTN_B = 0x002, BTN_SELECT = 0x004, BTN_START = 0x008,
    BTN_RIGHT = 0x010, BTN_LEFT = 0x020, BTN_UP = 0x040, BTN_DOWN = 0x080,
    BTN_R1 = 0x100, BTN_L1 = 0x200, BTN_X = 0x400, BTN_Y = 0x800,
};
inline constexpr uint16_t kAllButtons = 0xFFF;

struct LoadOptions {
    // A .tvx file, or a directory whose first .tvx file (in the order the
    // directory lists them) is taken. Host path, UTF-8.
    std::string program;
    // The words after the program on its command line, joined by blanks.
    std::string args;
    // The guest root (the guest's "/"); empty: the directory holding the
    // program. The system configuration is read from ROOT/System/Config.ini,
    // or from TovixOS/System/Config.ini (relative to the current directory)
    // when no root is given.
    std::string root;
    // True: the program's exit ends the run (RunStatus::Ended). False: the
    // program is started again whenever it exits at the outermost level.
    bool single_program = true;
    // Virtual clock: guest time moves only when the host or a wait moves it,
    // and each reading of the 1/256-second counter is one tick later, so a
    // run is reproducible. Otherwise guest time is the host's real time.
    bool virtual_clock = true;
    bool grid = true;  // grid look for enlarged monochrome screens
    // Bytes the run may add to its guest root (file growth, and 4 KiB per
    // new file or directory, less what it frees); past it writes fail as on
    // a full disk.
    uint64_t disk_limit = kDefaultDiskLimit;
};

// Where the log and the guest's console text go (UTF-8). Unset: standard
// output. trace, when set, is called before each instruction (slow).
struct CoreSinks {
    std::function<void(std::string_view)> log;
    std::function<void(std::string_view)> console;
    std::function<void(const Machine&)> trace;
};

enum class RunStatus : uint8_t {
    Budget,   // the time horizon or the step budget was reached, or the guest's
              // calls did much bulk work (a long copy, print or file read):
              // the host may look at its clock and input and run again
    Waiting,  // the guest waits: for a key, for keys to be released, or for a time
    Frame,    // the guest presented a frame (and may go on at the next run)
    Ended,    // the program ended (single-program mode); see exit_code
};

struct RunBudget {
    // Guest clock time (ns since the load) at which the run stops. Under the
    // virtual clock time-waits up to this point are served inside the run by
    // moving the clock; a wait beyond it leaves the clock here.
    uint64_t until_ns = UINT64_MAX;
    uint64_t max_steps = UINT64_MAX;  // instructions
};

struct RunResult {
    RunStatus status = RunStatus::Budget;
    uint64_t steps = 0;      // instructions completed during this run
    bool new_frame = false;  // core_frame holds a frame presented during this run
    int32_t exit_code = 0;   // when Ended
    WaitKind wait = WaitKind::None;  // when Waiting
    uint64_t wake_ns = 0;    // when waiting on time: the guest clock time it wakes at
};

struct CoreInput;
struct CoreHost;

struct Core {
    Core();
    ~Core();
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    std::unique_ptr<Machine> machine;
    std::unique_ptr<CoreInput> input;
    std::unique_ptr<CoreHost> host;
    CoreSinks sinks;
    // Runs the program with the simple byte-at-a-time interpreter instead of
    // the fast engine (same results, slower; for comparison and checking).
    bool reference_engine = false;
    bool loaded() const { return machine != nullptr; }
};

// Loads the program named in opts into a fresh machine. Returns "" on
// success, else a one-line reason (the file is missing, is not a Tovix
// program, ...); the loader's log lines go to the log sink as well.
std::string core_load(Core& core, const LoadOptions& opts);

// Runs until the budget is used, the guest starts waiting, presents a frame
// or ends. A dirty screen is presented before the run returns.
RunResult core_run(Core& core, const RunBudget& budget);

// One frame of a host that shows a frame every 1/60 s (or any fixed step)
// and moves the guest clock by exactly that step, so that the same input
// gives the same frames on every machine: runs until until_ns or max_steps
// instructions (what a busy guest gets per frame), going on after frames
// presented inside the slice and, a few times, after runs cut short by bulk
// work; then moves the clock to until_ns unless the program ended. Returns
// the last run's result, with steps and new_frame counted over the frame.
RunResult core_run_frame(Core& core, uint64_t until_ns, uint64_t max_steps);

// Button changes, applied in order at the start of the next run. A press
// and release that both arrive between two runs are still seen by the guest
// as one press: the release waits until the guest has run with the button
// down.
void core_press(Core& core, uint16_t buttons);
void core_release(Core& core, uint16_t buttons);
// The whole button word at once (1 = pressed): presses and releases for the
// bits that changed since the last word or press/release.
void core_set_buttons(Core& core, uint16_t pressed);

// Asks the running program to leave (as the exit keys do): the next jump or
// call ends it with exit code 0, and a running delay ends at once.
void core_request_exit(Core& core);

// The guest clock in ns since the load. Under the virtual clock the host
// moves it forward with core_set_time (never backward); under the real
// clock it follows the host's monotonic clock.
uint64_t core_time(const Core& core);
void core_set_time(Core& core, uint64_t ns);

// The last presented frame; the core never writes it again (a later present
// makes a new one). Null before the first present.
std::shared_ptr<const Frame> core_frame(const Core& core);
// Presents the screen as it is now (even when not dirty) and returns it.
std::shared_ptr<const Frame> core_present_now(Core& core);

void core_set_grid(Core& core, bool on);
bool core_grid(const Core& core);

// Whether the program has ended (single-program mode) and its exit code.
bool core_ended(const Core& core);
int32_t core_exit_code(const Core& core);

// Changes the disk limit of the loaded machine (a loaded save state keeps
// the limit the machine had before it).
void core_set_disk_limit(Core& core, uint64_t bytes);

// Writes out what the guest's open files hold and closes them (for a host
// that stops the machine before the program ends).
void core_close_files(Core& core);
// Writes out what the guest's open files hold, leaving them open (for a host
// that copies the guest's files elsewhere while the program runs).
void core_flush_files(Core& core);

// Save states: the whole machine as a versioned binary, and back. Loading
// checks everything before changing anything; on failure the core is left
// as it was and the reason is returned ("" on success).
std::vector<uint8_t> core_save_state(const Core& core);
std::string core_load_state(Core& core, std::span<const uint8_t> state);

// "" when path names a program file by the one rule hosts share (its name
// ends in ".tvx", lower case), else why not, naming the path.
std::string tvx_name_error(const std::string& path);

// The first regular file named *.tvx (exact case, hidden names skipped) in
// dir, in the order the directory lists them; no descent into
// sub-directories. Returns 1 and writes dir "/" name into out, else 0.
int findFirstTvxFile(std::string& out, const std::string& dir);

// Searches base and the directories below it (at most maxdepth levels,
// hidden names, symbolic links, /proc, /sys, /dev and other kernel file
// systems skipped, at most kFindDirBudget directories opened) for one that
// holds a sub-directory called name. Returns 1 and writes that directory
// into out, else 0.
inline constexpr int kFindDirBudget = 4096;
int findDir(std::string& out, const std::string& base, const std::string& name, int depth, int maxdepth);
using FindDirFn = std::function<int(std::string&, const std::string&, const std::string&, int, int)>;

// The root of the guest file system, the first directory found that holds a
// TovixOS directory: ".", /mnt/SDCARD, /media/sdcard, /mnt,
// /storage/emulated/0, then a search below /media (two levels) and below /
// (four levels); as a last resort "/media/QEMU VVFAT", unchecked. The current
// directory is left as it is. is_dir and find_dir stand in for the file
// system in tests.
std::string GetExePath();
std::string GetExePath(const std::function<bool(const std::string&)>& is_dir, const FindDirFn& find_dir);

// The machine itself, for tools that look inside (tracer, plane dumps,
// tests). Hosts that only play programs do not need it.
Machine& core_machine(Core& core);
const Machine& core_machine(const Core& core);

