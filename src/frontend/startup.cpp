#include "frontend/startup.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "vm/machine.h"

namespace {

// path "/" name, cut to max characters as a bounded buffer would.
std::string join(const std::string& path, const std::string& name, size_t max) {
    std::string out = path + "/" + name;
    if (out.size() > max) out.resize(max);
    return out;
}

std::string cut(const std::string& s, size_t max) { return s.size() > max ? s.substr(0, max) : s; }

// The text from the last "." on, or nothing when there is no ".".
std::string extension(const std::string& s) {
    const auto dot = s.rfind('.');
    return dot == std::string::npos ? std::string() : s.substr(dot);
}

void start_unit_test(Machine& m, StartupState& st, const std::string& func,
                     const std::function<uint32_t()>& ticks) {
    st.unit_test_mode = 1;
    st.unit_test_func = cut(func, kUnitTestFuncMax);
    append_prog_args(m.tvxProgArgs, func);
    st.unit_test_start_tick = ticks();
}

}  // namespace

void print_banner() {
    std::fputs("Tovix虚拟机 v2.0\n"
               "错误：没有指定输入文件\n"
               "使用 'tvm2 -h' 或 'tvm2 --help' 查看帮助信息\n",
               stdout);
}

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

void append_prog_args(std::string& args, const std::string& text) {
    if (!args.empty()) {
        if (args.size() >= kProgArgsMax) return;
        args += ' ';
    }
    args += text.substr(0, kProgArgsMax - args.size());
}

std::optional<int> parse_command_line(Machine& m, StartupState& st, int argc, char** argv,
                                      const std::function<uint32_t()>& ticks) {
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
            m.verbose_mode = 1;
            mylog(m, "Verbose mode enabled\n");
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
                start_unit_test(m, st, raw, ticks);
                mylog(m, "Unit test mode: func=%s\n", st.unit_test_func.c_str());
            } else if (m.tvxFilePath.empty()) {
                if (!test_dir_candidate.empty()) {
                    st.unit_test_dir = test_dir_candidate;
                    start_unit_test(m, st, raw, ticks);
                    mylog(m, "Unit test mode: dir=%s, func=%s\n", st.unit_test_dir.c_str(), st.unit_test_func.c_str());
                } else {
                    mylog(m, "Path not found: %s\n", path.c_str());
                }
            } else {
                // Words after the program arrive with the current directory
                // in front of them; only the first (the test function) is
                // passed as typed.
                append_prog_args(m.tvxProgArgs, path);
            }
        } else if (S_ISDIR(sb.st_mode)) {
            if (!findFirstTvxFile(m.tvxFilePath, path)) {
                test_dir_candidate = cut(path, kUnitTestDirMax);
                mylog(m, "No .tvx file found in directory, may be unit test dir: %s\n", path.c_str());
            }
        } else if (S_ISREG(sb.st_mode)) {
            if (extension(path) == ".tvx") {
                m.tvxFilePath = path;
                file_given = true;
                m.single_program_mode = 1;
            } else {
                mylog(m, "File is not a .tvx file: %s\n", path.c_str());
            }
        }
    }
    if (m.tvxFilePath.empty()) {
        std::fputs("Error: No .tvx file specified or file not found.\n", stderr);
        std::fprintf(stderr, "Usage: %s <file.tvx> [test_func]\n", argv[0]);
        return 1;
    }
    return std::nullopt;
}

bool is_directory(const std::string& path) {
    struct stat sb{};
    return stat(path.c_str(), &sb) == 0 && S_ISDIR(sb.st_mode);
}

int findDir(std::string& out, const std::string& base, const std::string& name, int depth, int maxdepth) {
    if (is_directory(join(base, name, kDirEntryPathMax))) {
        out = base;
        return 1;
    }
    if (depth >= maxdepth) return 0;
    DIR* d = opendir(base.c_str());
    if (!d) return 0;
    while (const dirent* e = readdir(d)) {
        if (e->d_name[0] == '.' || e->d_name[0] == '\0') continue;
        const std::string sub = join(base, e->d_name, kDirEntryPathMax);
        if (is_directory(sub) && findDir(out, sub, name, depth + 1, maxdepth)) {
            closedir(d);
            return 1;
        }
    }
    closedir(d);
    return 0;
}

const std::vector<RootCandidate>& root_candidates() {
    static const std::vector<RootCandidate> list = {
        {"./TovixOS", "."},
        {"/mnt/SDCARD/TovixOS", "/mnt/SDCARD"},
        {"/media/sdcard/TovixOS", "/media/sdcard"},
        {"/mnt/TovixOS", "/mnt"},
        {"/storage/emulated/0/TovixOS", "/storage/emulated/0"},
    };
    return list;
}

void GetExePath(StartupState& st, const std::function<bool(const std::string&)>& is_dir,
                const std::function<int(std::string&, const std::string&, const std::string&, int, int)>& find) {
    for (const auto& c : root_candidates()) {
        if (is_dir(c.dir)) {
            st.ExePath = c.root;
            return;
        }
    }
    if (find(st.ExePath, "/media", "TovixOS", 0, 2)) return;
    if (find(st.ExePath, "/", "TovixOS", 0, 4)) return;
    // A last resort that is not checked: the mount point of an emulated
    // disk on some handhelds.
    st.ExePath = "/media/QEMU VVFAT";
}

void GetExePath(StartupState& st) { GetExePath(st, is_directory, findDir); }

void SetCurrentDirectory(const std::string& path) {
    if (chdir(path.c_str()) != 0) {
        // Ignored: the guest file system then reports its files as missing.
    }
}

void initWorkDir(Machine& m, StartupState& st) {
    GetExePath(st);
    mylog(m, "root = %s\n", st.ExePath.c_str());
    SetCurrentDirectory(st.ExePath);
}

char* GetModuleFileName(char* buf, size_t size) {
    if (!buf || size == 0) return nullptr;
    const ssize_t n = readlink("/proc/self/exe", buf, size - 1);
    if (n < 0) return nullptr;
    buf[n] = '\0';
    return buf;
}
