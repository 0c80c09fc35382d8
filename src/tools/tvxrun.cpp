// tvxrun: runs a .tvx program with no window. The program's exit code
// becomes the process's exit status.
#include <chrono>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include "core/state.h"
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
    "  --trace         print each instruction with its code offset (stderr)\n"
    "  --stats         print the instruction count and speed (stderr)\n"
    "  --log-stdout    write the machine log to standard output (default: stderr)\n"
    "  --root DIR      guest root directory, the guest's \"/\" (default: the\n"
    "                  directory holding the program); the configuration is read\n"
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
    "Exit status: the program's exit code; 122 a screenshot or dump could not\n"
    "be written; 123 the program waited for a key after the key script had\n"
    "ended; 124 step limit reached; 125 usage error; 126 the program or the\n"
    "state could not be loaded (a state file that is cut short, damaged or of\n"
    "another format version changes nothing).\n";

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
        case Operand::String: text += " \"...\""; break;
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
bool parse_size(const char* text, int* w, int* h) {
    char tail = 0;
    return std::sscanf(text, "%dx%d%c", w, h, &tail) == 2 && *w >= 1 && *w <= 4096 && *h >= 1 && *h <= 4096;
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
    bool trace = false, stats = false, log_stdout = false, virtual_clock = false;
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
            char* end = nullptr;
            max_steps = std::strtoull(argv[++i], &end, 10);
            if (!end || *end || max_steps == 0) {
                std::fprintf(stderr, "tvxrun: --max-steps needs a positive number\n");
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
        } else if (program.empty() && a == "--root" && i + 1 < argc) {
            root = argv[++i];
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
            std::fprintf(stderr, "tvxrun: unknown option %s\n%s", a.c_str(), kUsage);
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
        std::fputs(kUsage, stderr);
        return kStatusUsage;
    }
    if (outputs.frame_w && outputs.screenshot.empty()) {
        std::fprintf(stderr, "tvxrun: --screenshot-size needs --screenshot\n");
        return kStatusUsage;
    }

    std::vector<KeyEvent> events;
    std::string error;
    if (!parse_key_script(key_script, &events, &error)) {
        std::fprintf(stderr, "tvxrun: %s\n", error.c_str());
        return kStatusUsage;
    }
    KeyScript script{std::move(events)};

    Core core;
    FILE* log_to = log_stdout ? stdout : stderr;
    core.sinks.log = [log_to](std::string_view text) {
        std::fwrite(text.data(), 1, text.size(), log_to);
        std::fflush(log_to);
    };
    if (trace) core.sinks.trace = trace_line;
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
    } else {
        LoadOptions load;
        load.program = program;
        load.args = args;
        load.root = root;
        load.virtual_clock = virtual_clock;
        if (const std::string err = core_load(core, load); !err.empty()) {
            std::fprintf(stderr, "tvxrun: %s\n", err.c_str());
            return kStatusLoad;
        }
    }

    const auto t0 = std::chrono::steady_clock::now();
    uint64_t steps = 0;
    bool starved = false;
    while (steps < max_steps) {
        script.apply_due(core, core_time(core));
        const uint64_t next = script.next_ns();
        const RunResult r = core_run(core, {next, max_steps - steps});
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
            std::this_thread::sleep_for(std::chrono::nanoseconds(until - core_time(core)));
    }
    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (!state_out.empty()) {
        // Events due by now belong to the saved input; a run from the state
        // skips them.
        script.apply_due(core, core_time(core));
        const std::vector<uint8_t> bytes = core_save_state(core);
        std::ofstream out(state_out, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!out.flush()) {
            std::fprintf(stderr, "tvxrun: cannot write %s\n", state_out.c_str());
            core_close_files(core);
            return kStatusOutput;
        }
    }
    // Files the program left open are written out as the run ends.
    core_close_files(core);
    std::fflush(stdout);
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
