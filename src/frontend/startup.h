// Command line and start-up of tvm2 that needs no window: argument
// classification, the program search in a directory, the search for the
// guest file system's root, and the executable's own path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

struct Machine;

// What the command line settles besides the program file and its argument
// string (which live in the machine: tvxFilePath, tvxProgArgs,
// single_program_mode, verbose_mode).
struct StartupState {
    int unit_test_mode = 0;
    std::string unit_test_func;  // at most 255 characters
    std::string unit_test_dir;   // at most 259 characters
    uint32_t unit_test_start_tick = 0;
    std::string ExePath;  // root of the guest file system (holds TovixOS)
};

// Cuts of the command-line buffers, in characters.
inline constexpr size_t kProgArgsMax = 255;
inline constexpr size_t kUnitTestFuncMax = 255;
inline constexpr size_t kUnitTestDirMax = 259;
inline constexpr size_t kJoinedPathMax = 4351;  // current directory "/" argument
inline constexpr size_t kDirEntryPathMax = 4095;

// Prints the three lines shown when tvm2 is started with no argument.
void print_banner();
// Prints the help text; argv0 stands in for the program's name.
void print_help(const char* argv0);

// Walks the arguments (argv[1..]) and settles the program file, its argument
// string and the unit-test settings. Returns the exit status when start-up
// ends here (no argument, help, no program file), or nothing to go on.
// ticks gives the millisecond tick recorded when unit-test mode starts.
std::optional<int> parse_command_line(Machine& m, StartupState& st, int argc, char** argv,
                                      const std::function<uint32_t()>& ticks);

// Appends text to the program's argument string: a blank first when it is
// not empty, then as much of text as the 255-character limit leaves.
void append_prog_args(std::string& args, const std::string& text);


// Searches base and the directories below it (at most maxdepth levels) for
// one that holds a sub-directory called name. Returns 1 and writes that
// directory into out, else 0.
int findDir(std::string& out, const std::string& base, const std::string& name, int depth, int maxdepth);

// The fixed places where a guest file system is looked for, in order: the
// directory that must hold "TovixOS" and the root it gives.
struct RootCandidate {
    const char* dir;   // holds TovixOS
    const char* root;  // the value of ExePath
};
const std::vector<RootCandidate>& root_candidates();

// Fills ExePath with the first root that holds a TovixOS directory: the
// fixed places, then a search below /media (two levels) and below /
// (four levels); as a last resort "/media/QEMU VVFAT", unchecked.
// is_dir and find stand in for the file system in tests.
void GetExePath(StartupState& st, const std::function<bool(const std::string&)>& is_dir,
                const std::function<int(std::string&, const std::string&, const std::string&, int, int)>& find);
void GetExePath(StartupState& st);

// Changes the process's current directory; failures are ignored.
void SetCurrentDirectory(const std::string& path);

// GetExePath, "root = ..." on the log, then the root becomes the current
// directory.
void initWorkDir(Machine& m, StartupState& st);

// The path of the running executable (read from /proc/self/exe, cut to
// size - 1 bytes); null when buf is null, size is 0 or the link is unreadable.
char* GetModuleFileName(char* buf, size_t size);

bool is_directory(const std::string& path);
