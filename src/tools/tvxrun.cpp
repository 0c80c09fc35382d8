// tvxrun: runs a .tvx program with no window. The program's exit code
// becomes the process's exit status.
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <ctime>

#include "core/state.h"
#include "tools/asm/asm.h"
#include "tools/common/numbers.h"
#include "tools/common/outfile.h"
#include "tools/common/stop_signal.h"
#include "tools/run/screenshot.h"
#include "tools/run/key_script.h"
#include "vm/machine.h"
#include "base/opcodes.h"

namespace {

constexpr int kStatusOutput = 122;
constexpr int kStatusNoKeys = 123;
constexpr int kStatusStepLimit = 124;
constexpr int kStatusUsage = 125;
constexpr int kStatusLoad = 126;
// Instructions per run of the core at most, so that a signal or a broken
// standard output is seen while a program runs without pause.
constexpr uint64_t kSliceSteps = 1 << 20;
// Longest sleep between two looks at the signal flag.
constexpr uint64_t kLongestSleepNs = 100'000'000;


// Sleeps for ns of real time, at most kLongestSleepNs; a signal cuts it short.
void nap(uint64_t ns) {
    ns = std::min(ns, kLongestSleepNs);
    const timespec t{0, static_cast<long>(ns)};
    nanosleep(&t, nullptr);
}

// Standard output, written as the program prints. The first failure is kept
// and ends the run.
struct Stdout {
    int error = 0;
    void write(std::string_view text) {
        if (error || text.empty()) return;
        if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
            error = errno ? errno : EIO;
    }
    // Flushes what is left; true when everything reached standard output.
    bool finish() {
        if (!error && (std::fflush(stdout) != 0 || std::ferror(stdout))) error = errno ? errno : EIO;
        if (error) std::fprintf(stderr, "tvxrun: cannot write standard output: %s\n", std::strerror(error));
        return !error;
    }
};

const char* const kUsage =
    "Usage: tvxrun [options] PROGRAM.tvx [ARGUMENT...]\n"
    "       tvxrun [options] --state-in STATE\n"
    "Runs a Tovix program without a window; the exit status is the program's\n"
    "exit code (low 8 bits).\n"
    "\n"
    "Options:\n"
    "  --max-steps N   stop after N instructions (status 124)\n"
    "  --clock real|virtual\n"
    "                  real time (default), or a virtual clock that advances only\n"
    "                  while the program waits and starts at 2024-01-01 00:00:00\n"
    "  --keys SCRIPT   button presses: TIME:BUTTON+ (press), TIME:BUTTON- (release),\n"
    "                  TIME:BUTTON (press, release 100 ms later); TIME in ms from\n"
    "                  the start; BUTTON one of UP DOWN LEFT RIGHT A B SELECT START\n"
    "                  L1 R1 X Y; entries separated by blanks or commas\n"
    "  --keys-file F   the same script read from a file (# starts a comment)\n"
    "  --disk-limit N  bytes the run may add to the guest root (default 256M; K, M\n"
    "                  and G suffixes); past it writes fail as on a full disk\n"
    "  --trace         print each instruction with its code offset and operands,\n"
    "                  string literals as text (stderr)\n"
    "  --stats         print the instruction count and speed (stderr)\n"
    "  --engine fast|reference\n"
    "                  the interpreter: the fast engine (default) or the simple\n"
    "                  reference loop; both give the same results\n"
    "  --log-stdout    write the machine log to standard output (default: stderr)\n"
    "  --root DIR      guest root directory, the guest's \"/\" (default: the\n"
    "                  directory holding the program when PROGRAM has a \"/\" in\n"
    "                  it, else TovixOS/; so run ./game.tvx to make the current\n"
    "                  directory the root); the configuration is read\n"
    "                  from DIR/System/Config.ini (default: TovixOS/System/Config.ini)\n"
    "  --screenshot F.png\n"
    "                  when the run ends, write the visible screen at guest size\n"
    "                  as a PNG (colours from the guest palette's 8-bit entries)\n"
    "  --screenshot-size WxH\n"
    "                  write instead the frame a WxH window surface receives\n"
    "                  (centred 1:1 on 320x240, else enlarged as tvm2 does)\n"
    "  --dump-planes F when the run ends, write both raw screen planes\n"
    "                  (153,600 bytes, visible plane first)\n"
    "  --state-out F   when the run stops (the program ends, the step limit, the\n"
    "                  key script leaves it waiting), save the whole machine to F\n"
    "  --state-in F    go on from a saved machine instead of loading a program:\n"
    "                  the state holds the program, its arguments, its root (moved\n"
    "                  by --root), its clock and its open files; key script events\n"
    "                  at or before the saved guest time are skipped, so a run cut\n"
    "                  with --max-steps and --state-out goes on with the same options\n"
    "  -h, --help      show this help\n"
    "\n"
    "\n"
    "tvxrun --compare-png A.png B.png compares two pictures pixel by pixel:\n"
    "status 0 when they are the same, 1 when not, 125 when one is unreadable.\n"
    "\n"
    "SIGINT, SIGTERM and SIGHUP end the run: the program's open files are\n"
    "written out and closed, and the status is 128 + the signal's number.\n"
    "\n"
    "Exit status: the program's exit code; 122 standard output, a screenshot,\n"
    "dump or state could not be written; 123 the program waited for a key\n"
    "after the key script had ended; 124 step limit reached; 125 usage error\n"
    "(also a --root that is not a directory, a number out of range); 126 the\n"
    "program or the state could not be loaded (a state file that is cut short,\n"
    "damaged or of another format version changes nothing).\n";

// One line of the trace: offset, mnemonic and operands as encoded.
void trace_line(const Machine& m) {
    const uint32_t pc = m.lPC;
    if (pc >= m.code_end) {
        std::fprintf(stderr, "%06X  (outside the image)\n", pc);
        return;
    }
    const uint8_t op = m.code[pc];
    const OpInfo& info = op_info[op];
    if (!info.name) {
        std::fprintf(stderr, "%06X  .byte 0x%02X\n", pc, op);
        return;
    }
    const int n = operand_size(info.operand, static_cast<int>(m.RamBits));
    auto num = [&](uint32_t at, int bytes) {
        uint32_t v = 0;
        for (int i = 0; i < bytes; ++i) v |= static_cast<uint32_t>(m.code[at + static_cast<uint32_t>(i)]) << (8 * i);
        return v;
    };
    std::string text = std::string(op_mnemonic(op));
    char buf[64];
    switch (info.operand) {
        case Operand::None: break;
        case Operand::Byte:
            std::snprintf(buf, sizeof buf, " %u", num(pc + 1, 1));
            text += buf;
            break;
        case Operand::Imm16:
            std::snprintf(buf, sizeof buf, " %d", static_cast<int16_t>(num(pc + 1, 2)));
            text += buf;
            break;
        case Operand::Imm32:
            std::snprintf(buf, sizeof buf, " %d", static_cast<int32_t>(num(pc + 1, 4)));
            text += buf;
            break;
        case Operand::AddrByte: {
            const int a = n - 1;
            std::snprintf(buf, sizeof buf, " 0x%X, %u", num(pc + 1, a), num(pc + 1 + static_cast<uint32_t>(a), 1));
            text += buf;
            break;
        }
        case Operand::String: {
            // The literal as the machine reads it, up to its terminator (the
            // secret byte) or the end of the image, cut after 48 bytes.
            constexpr uint32_t kShown = 48;
            uint32_t end = pc + 1;
            while (end < m.code_end && m.code[end] != m.secret && end - pc - 1 <= kShown) ++end;
            const uint32_t len = end - pc - 1;
            text += ' ';
            append_literal(text, m.code + pc + 1, std::min(len, kShown), m.secret);
            if (len > kShown) text += "...";
            break;
        }
        case Operand::Preset:
            std::snprintf(buf, sizeof buf, " 0x%X, (%u bytes)", num(pc + 1, n < 0 ? (m.RamBits > 16 ? 3 : 2) : n),
                          num(pc + 1 + (m.RamBits > 16 ? 3u : 2u), 2));
            text += buf;
            break;
        default:
            std::snprintf(buf, sizeof buf, " 0x%X", num(pc + 1, n));
            text += buf;
            break;
    }
    std::fprintf(stderr, "%06X  %s\n", pc, text.c_str());
}

// tvxrun --compare-png A B
int compare_png(const char* a, const char* b) {
    RgbImage first, second;
    std::string error;
    if (!read_png(a, &first, &error) || !read_png(b, &second, &error)) {
        std::fprintf(stderr, "tvxrun: cannot read a picture: %s\n", error.c_str());
        return kStatusUsage;
    }
    if (!same_pixels(first, second, &error)) {
        std::fprintf(stderr, "tvxrun: %s and %s differ: %s\n", a, b, error.c_str());
        return 1;
    }
    return 0;
}

// WxH with both sides 1-4096.
bool parse_size(std::string_view text, int* w, int* h) {
    const size_t x = text.find('x');
    uint64_t a = 0, b = 0;
    if (x == std::string_view::npos || !parse_decimal(text.substr(0, x), 4096, &a) ||
        !parse_decimal(text.substr(x + 1), 4096, &b) || a == 0 || b == 0)
        return false;
    *w = static_cast<int>(a);
    *h = static_cast<int>(b);
    return true;
}

// BYTES, or a number of KiB, MiB or GiB with the suffix K, M or G.
bool parse_bytes(std::string_view text, uint64_t* out) {
    int shift = 0;
    if (!text.empty()) {
        const char unit = text.back();
        shift = unit == 'K' ? 10 : unit == 'M' ? 20 : unit == 'G' ? 30 : 0;
        if (shift) text.remove_suffix(1);
    }
    uint64_t n = 0;
    if (!parse_decimal(text, UINT64_MAX >> shift, &n)) return false;
    *out = n << shift;
    return true;
}

bool is_directory(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The pictures asked for on the command line, written when the run ends.
struct Outputs {
    std::string screenshot, planes;
    int frame_w = 0, frame_h = 0;  // 0: the guest-size picture

    bool write(Core& core) const {
        std::string error;
        if (!screenshot.empty()) {
            const auto frame = core_present_now(core);
            const RgbImage img = frame_w ? presented_frame(*frame, frame_w, frame_h) : guest_picture(*frame);
            if (!write_png(img, screenshot, &error)) {
                std::fprintf(stderr, "tvxrun: cannot write %s: %s\n", screenshot.c_str(), error.c_str());
                return false;
            }
        }
        if (!planes.empty() && !dump_planes(core_machine(core), planes, &error)) {
            std::fprintf(stderr, "tvxrun: cannot write %s: %s\n", planes.c_str(), error.c_str());
            return false;
        }
        return true;
    }
};

}  // namespace

int main(int argc, char** argv) {
    uint64_t max_steps = UINT64_MAX;
    uint64_t disk_limit = LoadOptions{}.disk_limit;
    bool trace = false, stats = false, reference_engine = false, log_stdout = false, virtual_clock = false;
    std::string key_script;
    std::string root;
    std::string program;
    std::string args;
    std::string state_in, state_out;
    bool clock_given = false;
    Outputs outputs;
    if (argc == 4 && std::strcmp(argv[1], "--compare-png") == 0) return compare_png(argv[2], argv[3]);
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (program.empty() && (a == "-h" || a == "--help")) {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (program.empty() && a == "--max-steps" && i + 1 < argc) {
            if (!parse_decimal(argv[++i], UINT64_MAX - 1, &max_steps) || max_steps == 0) {
                std::fprintf(stderr, "tvxrun: --max-steps takes a positive whole number, not %s\n", argv[i]);
                return kStatusUsage;
            }
        } else if (program.empty() && a == "--disk-limit" && i + 1 < argc) {
            if (!parse_bytes(argv[++i], &disk_limit)) {
                std::fprintf(stderr, "tvxrun: --disk-limit takes a number of bytes (K, M or G may follow), not %s\n",
                             argv[i]);
                return kStatusUsage;
            }
        } else if (program.empty() && a == "--clock" && i + 1 < argc) {
            const std::string c = argv[++i];
            if (c != "real" && c != "virtual") {
                std::fprintf(stderr, "tvxrun: --clock takes real or virtual\n");
                return kStatusUsage;
            }
            virtual_clock = c == "virtual";
            clock_given = true;
        } else if (program.empty() && a == "--keys" && i + 1 < argc) {
            key_script += std::string(argv[++i]) + "\n";
        } else if (program.empty() && a == "--keys-file" && i + 1 < argc) {
            std::ifstream in(argv[++i]);
            if (!in) {
                std::fprintf(stderr, "tvxrun: cannot read %s\n", argv[i]);
                return kStatusUsage;
            }
            key_script += std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()) + "\n";
        } else if (program.empty() && a == "--trace") {
            trace = true;
        } else if (program.empty() && a == "--stats") {
            stats = true;
        } else if (program.empty() && a == "--engine" && i + 1 < argc) {
            const std::string engine = argv[++i];
            if (engine != "fast" && engine != "reference") {
                std::fprintf(stderr, "tvxrun: --engine takes fast or reference\n");
                return kStatusUsage;
            }
            reference_engine = engine == "reference";
        } else if (program.empty() && a == "--root" && i + 1 < argc) {
            root = argv[++i];
            if (!is_directory(root)) {
                std::fprintf(stderr, "tvxrun: --root %s is not a directory\n", root.c_str());
                return kStatusUsage;
            }
        } else if (program.empty() && a == "--log-stdout") {
            log_stdout = true;
        } else if (program.empty() && a == "--screenshot" && i + 1 < argc) {
            outputs.screenshot = argv[++i];
        } else if (program.empty() && a == "--screenshot-size" && i + 1 < argc) {
            if (!parse_size(argv[++i], &outputs.frame_w, &outputs.frame_h)) {
                std::fprintf(stderr, "tvxrun: --screenshot-size takes WxH, each side 1-4096\n");
                return kStatusUsage;
            }
        } else if (program.empty() && a == "--dump-planes" && i + 1 < argc) {
            outputs.planes = argv[++i];
        } else if (program.empty() && a == "--state-in" && i + 1 < argc) {
            state_in = argv[++i];
        } else if (program.empty() && a == "--state-out" && i + 1 < argc) {
            state_out = argv[++i];
        } else if (program.empty() && a.size() > 1 && a[0] == '-') {
            const bool known = a == "--max-steps" || a == "--disk-limit" || a == "--clock" || a == "--keys" ||
                               a == "--keys-file" || a == "--root" || a == "--screenshot" ||
                               a == "--screenshot-size" || a == "--dump-planes" || a == "--state-in" ||
                               a == "--state-out";
            std::fprintf(stderr, "tvxrun: %s %s (tvxrun --help lists the options)\n", known ? "missing value after" : "unknown option", a.c_str());
            return kStatusUsage;
        } else if (program.empty()) {
            program = a;
        } else {
            if (!args.empty()) args += ' ';
            args += a;
        }
    }
    if (!state_in.empty() && !program.empty()) {
        std::fprintf(stderr, "tvxrun: --state-in takes no program: the state holds it and its arguments\n");
        return kStatusUsage;
    }
    if (program.empty() && state_in.empty()) {
        std::fputs("Usage: tvxrun [options] PROGRAM.tvx [ARGUMENT...]\n"
                   "       tvxrun [options] --state-in STATE\n"
                   "tvxrun --help lists the options\n", stderr);
        return kStatusUsage;
    }
    if (outputs.frame_w && outputs.screenshot.empty()) {
        std::fprintf(stderr, "tvxrun: --screenshot-size needs --screenshot\n");
        return kStatusUsage;
    }
    // An output never replaces the program or the state it runs from (a
    // state may be saved over the one it was loaded from).
    for (const std::string* out : {&outputs.screenshot, &outputs.planes, &state_out}) {
        for (const std::string* in : {&program, &state_in}) {
            if (out->empty() || in->empty() || (out == &state_out && in == &state_in) || !same_file(*out, *in)) continue;
            std::fprintf(stderr, "tvxrun: output %s is the input file %s: not overwritten\n", out->c_str(), in->c_str());
            return kStatusUsage;
        }
    }

    std::vector<KeyEvent> events;
    std::string error;
    if (!parse_key_script(key_script, &events, &error)) {
        std::fprintf(stderr, "tvxrun: %s\n", error.c_str());
        return kStatusUsage;
    }
    KeyScript script{std::move(events)};

    // The signals end the run between two slices; a closed pipe on standard
    // output is a write error.
    install_stop_signals();
    std::signal(SIGPIPE, SIG_IGN);
    Stdout out;
    Core core;
    core.sinks.console = [&out](std::string_view text) { out.write(text); };
    if (log_stdout) {
        core.sinks.log = [&out](std::string_view text) { out.write(text); };
    } else {
        core.sinks.log = [](std::string_view text) {
            std::fwrite(text.data(), 1, text.size(), stderr);
            std::fflush(stderr);
        };
    }
    if (trace) core.sinks.trace = trace_line;
    core.reference_engine = reference_engine;
    if (!state_in.empty()) {
        std::ifstream in(state_in, std::ios::binary);
        const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        const std::string err = in ? core_load_state_at(core, bytes, root) : std::strerror(errno);
        if (!err.empty()) {
            std::fprintf(stderr, "tvxrun: %s: %s\n", state_in.c_str(), err.c_str());
            return kStatusLoad;
        }
        const bool saved_virtual = core_machine(core).clock.virtual_time;
        if (clock_given && saved_virtual != virtual_clock) {
            std::fprintf(stderr, "tvxrun: %s was saved with the %s clock\n", state_in.c_str(), saved_virtual ? "virtual" : "real");
            return kStatusUsage;
        }
        virtual_clock = saved_virtual;
        script.skip_until(core_time(core));
        core_set_disk_limit(core, disk_limit);
    } else {
        LoadOptions load;
        load.program = program;
        load.args = args;
        load.root = root;
        load.virtual_clock = virtual_clock;
        load.disk_limit = disk_limit;
        if (const std::string err = core_load(core, load); !err.empty()) {
            std::fprintf(stderr, "tvxrun: %s\n", err.c_str());
            return kStatusLoad;
        }
    }

    const auto t0 = std::chrono::steady_clock::now();
    uint64_t steps = 0;
    bool starved = false;
    while (steps < max_steps && !g_stop_signal && !out.error) {
        script.apply_due(core, core_time(core));
        const uint64_t next = script.next_ns();
        const RunResult r = core_run(core, {next, std::min(max_steps - steps, kSliceSteps)});
        steps += r.steps;
        if (r.status == RunStatus::Ended) break;
        if (r.status != RunStatus::Waiting) continue;
        if (script.ended() && r.wait != WaitKind::Time) {
            // A script that has ended holds nothing: keys held then are let go,
            // and a program waiting for a new key waits in vain.
            if (r.wait == WaitKind::KeysUp) {
                core_release(core, kAllButtons);
                continue;
            }
            starved = true;
            break;
        }
        const uint64_t until = r.wait == WaitKind::Time ? std::min(r.wake_ns, next) : next;
        if (virtual_clock)
            core_set_time(core, until);
        else if (until > core_time(core))
            nap(until - core_time(core));
    }
    if (g_stop_signal || out.error) {
        // Asked to end, or nothing more can be shown: what the program wrote
        // to its files is kept, nothing else is written.
        core_close_files(core);
        if (!out.finish()) return kStatusOutput;
        std::fprintf(stderr, "tvxrun: ended by signal %d (%s)\n", static_cast<int>(g_stop_signal),
                     strsignal(g_stop_signal));
        return 128 + g_stop_signal;
    }
    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (!state_out.empty()) {
        // Events due by now belong to the saved input; a run from the state
        // skips them.
        script.apply_due(core, core_time(core));
        const std::vector<uint8_t> bytes = core_save_state(core);
        std::string why;
        if (!write_output_file(state_out, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()),
                               &why)) {
            std::fprintf(stderr, "tvxrun: cannot write %s: %s\n", state_out.c_str(), why.c_str());
            core_close_files(core);
            return kStatusOutput;
        }
    }
    // Files the program left open are written out as the run ends.
    core_close_files(core);
    if (!out.finish()) return kStatusOutput;
    if (stats)
        std::fprintf(stderr, "tvxrun: %" PRIu64 " instructions in %.3f s (%.1f million/s)\n", steps, secs,
                     secs > 0 ? static_cast<double>(steps) / secs / 1e6 : 0.0);
    if (!outputs.write(core)) return kStatusOutput;
    if (core_ended(core)) return core_exit_code(core) & 0xFF;
    if (starved) {
        std::fprintf(stderr, "tvxrun: the program waits for a key and the key script has ended\n");
        return kStatusNoKeys;
    }
    std::fprintf(stderr, "tvxrun: stopped after %" PRIu64 " instructions (step limit)\n", steps);
    return kStatusStepLimit;
}
