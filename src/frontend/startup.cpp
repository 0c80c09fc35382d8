#include "frontend/startup.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "base/strformat.h"
#include "core/core.h"

namespace {

// path "/" name, cut to max characters as a bounded buffer would.
std::string join(const std::string& path, const std::string& name, size_t max) {
    std::string out = path + "/" + name;
    if (out.size() > max) out.resize(max);
    return out;
}

std::string cut(const std::string& s, size_t max) { return s.size() > max ? s.substr(0, max) : s; }

void start_unit_test(StartupState& st, const std::string& func, const std::function<uint32_t()>& ticks) {
    st.unit_test_mode = 1;
    st.unit_test_func = cut(func, kUnitTestFuncMax);
    append_prog_args(st.tvxProgArgs, func);
    st.unit_test_start_tick = ticks();
}

// The three lines shown when tvm2 is started with no argument.
void print_banner() {
    std::fputs("Tovix虚拟机 v2.0\n"
               "错误：没有指定输入文件\n"
               "使用 'tvm2 -h' 或 'tvm2 --help' 查看帮助信息\n",
               stdout);
}

// The help text; argv0 stands in for the program's name.
void print_help(const char* argv0) {
    std::printf("Usage: %s [-v] <path>\n", argv0);
    std::puts("  -v         Enable IO debug output");
    std::puts("  path       Path to a .tvx file or a directory containing .tvx files.");
    std::puts("\nUnit Test Mode:");
    std::printf("  %s <test_dir> <test_func>  # Run unit test\n", argv0);
    std::printf("  %s <file.tvx> <test_func>  # Run unit test with .tvx file\n", argv0);
    std::puts("\nExamples:");
    std::printf("  %s game.tvx          # Open specific .tvx file\n", argv0);
    std::printf("  %s -v game.tvx       # Open with IO debug\n", argv0);
    std::printf("  %s /path/to/games/   # Open first .tvx file in directory\n", argv0);
    std::printf("  %s /path/to/test testFunc  # Run unit test\n", argv0);
    std::printf("  %s test.tvx testFunc  # Run unit test with .tvx file\n", argv0);
}

}  // namespace

void logf(const LogSink& sink, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    vlogf(sink, fmt, ap);
    va_end(ap);
}

void vlogf(const LogSink& sink, const char* fmt, va_list ap) {
    const std::string text = vstrformat(fmt, ap);
    if (text.empty()) return;
    if (sink)
        sink(text);
    else
        std::fwrite(text.data(), 1, text.size(), stdout);
}

void append_prog_args(std::string& args, const std::string& text) {
    if (!args.empty()) {
        if (args.size() >= kProgArgsMax) return;
        args += ' ';
    }
    args += text.substr(0, kProgArgsMax - args.size());
}

std::optional<int> parse_command_line(StartupState& st, int argc, char** argv, const std::function<uint32_t()>& ticks,
                                      const LogSink& log) {
    if (argc <= 1) {
        print_banner();
        return 1;
    }
    bool file_given = false;
    std::string test_dir_candidate;
    for (int i = 1; i < argc; ++i) {
        const std::string raw = argv[i];
        if (raw == "-h" || raw == "--help") {
            print_help(argv[0]);
            return 0;
        }
        if (raw == "-v" || raw == "--verbose") {
            // The machine's I/O debug output is on from the start: this only
            // confirms it.
            logf(log, "Verbose mode enabled\n");
            continue;
        }
        // Relative paths are taken from the current directory, before the
        // root of the guest file system becomes the current directory.
        std::string path = raw;
        char cwd[4096];
        if (raw.empty() || raw[0] != '/') {
            if (getcwd(cwd, sizeof cwd)) path = join(cwd, raw, kJoinedPathMax);
        }
        struct stat sb{};
        if (stat(path.c_str(), &sb) != 0) {
            if (file_given && st.unit_test_func.empty()) {
                start_unit_test(st, raw, ticks);
                logf(log, "Unit test mode: func=%s\n", st.unit_test_func.c_str());
            } else if (st.tvxFilePath.empty()) {
                if (!test_dir_candidate.empty()) {
                    st.unit_test_dir = test_dir_candidate;
                    start_unit_test(st, raw, ticks);
                    logf(log, "Unit test mode: dir=%s, func=%s\n", st.unit_test_dir.c_str(), st.unit_test_func.c_str());
                } else {
                    logf(log, "Path not found: %s\n", path.c_str());
                }
            } else {
                // Words after the program arrive with the current directory
                // in front of them; only the first (the test function) is
                // passed as typed.
                append_prog_args(st.tvxProgArgs, path);
            }
        } else if (S_ISDIR(sb.st_mode)) {
            if (!findFirstTvxFile(st.tvxFilePath, path)) {
                test_dir_candidate = cut(path, kUnitTestDirMax);
                logf(log, "No .tvx file found in directory, may be unit test dir: %s\n", path.c_str());
            }
        } else if (S_ISREG(sb.st_mode)) {
            if (const std::string err = tvx_name_error(path); err.empty()) {
                st.tvxFilePath = path;
                file_given = true;
                st.single_program_mode = true;
            } else {
                logf(log, "File is not a .tvx file: %s\n", path.c_str());
                std::fprintf(stderr, "tvm2: %s\n", err.c_str());
            }
        }
    }
    if (st.tvxFilePath.empty()) {
        std::fputs("Error: No .tvx file specified or file not found.\n", stderr);
        std::fprintf(stderr, "Usage: %s <file.tvx> [test_func]\n", argv[0]);
        return 1;
    }
    return std::nullopt;
}

char* GetModuleFileName(char* buf, size_t size) {
    if (!buf || size == 0) return nullptr;
    const ssize_t n = readlink("/proc/self/exe", buf, size - 1);
    if (n < 0) return nullptr;
    buf[n] = '\0';
    return buf;
}
