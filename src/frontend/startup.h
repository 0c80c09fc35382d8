// Command line of tvm2, which needs no window: argument classification into
// the program file, its argument string and the unit-test settings.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

// Where log lines go; unset: standard output.
using LogSink = std::function<void(std::string_view)>;
// Formats the whole text and writes it to the sink.
void logf(const LogSink& sink, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void vlogf(const LogSink& sink, const char* fmt, va_list ap) __attribute__((format(printf, 2, 0)));

// What the command line settles.
struct StartupState {
    std::string tvxFilePath;  // absolute host path of the program; empty: none chosen
    std::string tvxProgArgs;  // the program's argument string, at most 255 characters
    // The program was named directly (not found in a directory): its exit
    // ends tvm2 instead of starting it again.
    bool single_program_mode = false;
    int unit_test_mode = 0;
    std::string unit_test_func;  // at most 255 characters
    std::string unit_test_dir;   // at most 259 characters
    uint32_t unit_test_start_tick = 0;
};

// Cuts of the command-line buffers, in characters.
inline constexpr size_t kProgArgsMax = 255;
inline constexpr size_t kUnitTestFuncMax = 255;
inline constexpr size_t kUnitTestDirMax = 259;
inline constexpr size_t kJoinedPathMax = 4351;  // current directory "/" argument

// Walks the arguments (argv[1..]) and settles the program file, its argument
// string and the unit-test settings. Returns the exit status when start-up
// ends here (no argument, help, no program file), or nothing to go on.
// ticks gives the millisecond tick recorded when unit-test mode starts.
std::optional<int> parse_command_line(StartupState& st, int argc, char** argv, const std::function<uint32_t()>& ticks,
                                      const LogSink& log);

// Appends text to the program's argument string: a blank first when it is
// not empty, then as much of text as the 255-character limit leaves.
void append_prog_args(std::string& args, const std::string& text);

// The path of the running executable (read from /proc/self/exe, cut to
// size - 1 bytes); null when buf is null, size is 0 or the link is unreadable.
char* GetModuleFileName(char* buf, size_t size);
