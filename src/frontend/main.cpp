// tvm2: the command line, the root of the guest file system, the window, the
// program, and the loop until the window closes or the program ends.
#include <unistd.h>

#include <cstdio>

#include "frontend/frontend.h"
#include "tools/common/stop_signal.h"

namespace {

constexpr int kStatusLoad = 126;  // the program could not be loaded

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
    install_stop_signals();
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
