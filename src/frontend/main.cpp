// tvm2: the command line, the root of the guest file system, the window, the
// program, and the loop until the window closes or the program ends.
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "frontend/frontend.h"

namespace {

constexpr int kStatusLoad = 126;  // the program could not be loaded

// SIGINT, SIGTERM or SIGHUP, once one has asked tvm2 to end; else 0.
volatile std::sig_atomic_t g_stop_signal = 0;

extern "C" void on_stop_signal(int sig) { g_stop_signal = sig; }

// The loop sees the flag at its next pass. The handler stays: senders such
// as timeout(1) may deliver the same signal twice.
void install_signal_handlers() {
    struct sigaction sa {};
    sa.sa_handler = on_stop_signal;
    sa.sa_flags = 0;
    sigemptyset(&sa.sa_mask);
    for (const int sig : {SIGINT, SIGTERM, SIGHUP}) {
        // A signal ignored from the start (nohup, a background job) stays ignored.
        struct sigaction old {};
        if (sigaction(sig, nullptr, &old) == 0 && old.sa_handler != SIG_IGN) sigaction(sig, &sa, nullptr);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Frontend fe;
    const LogSink log;  // standard output
    if (const auto status = parse_command_line(fe.start, argc, argv, SDL_GetTicks, log)) return *status;

    // Relative guest paths and the configuration are read from the root.
    const std::string root = GetExePath();
    fe_log(fe, "root = %s\n", root.c_str());
    if (chdir(root.c_str()) != 0) {
        // Ignored: the guest file system then reports its files as missing.
    }
    install_signal_handlers();
    fe.stop_signal = &g_stop_signal;
    initSDL(fe);

    LoadOptions opts;
    opts.program = fe.start.tvxFilePath;
    opts.args = fe.start.tvxProgArgs;
    opts.single_program = fe.start.single_program_mode;
    opts.virtual_clock = false;
    if (const std::string err = core_load(fe.core, opts); !err.empty()) {
        std::fprintf(stderr, "tvm2: %s\n", err.c_str());
        show_error(fe, "The program cannot be loaded:\n" + err);
        return g_stop_signal ? 128 + g_stop_signal : kStatusLoad;
    }
    sdlLoop(fe);
    // Whatever the guest wrote reaches the disk, also into files it left open.
    core_close_files(fe.core);
    std::fflush(nullptr);
    // Ended by a signal: 128 + its number, as a shell reports a process it ended.
    return g_stop_signal ? 128 + g_stop_signal : 0;
}
