// Task records of nested programs.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

inline constexpr int kTaskLevels = 8;

struct Tasks {
    int32_t task_lev = 0;
    // 1 when the program file was named on the command line: the exit call at
    // level 0 ends the machine instead of restarting the program.
    int32_t single_program_mode = 0;
    // Exit code of the last program that ended at level 0, for the host.
    int32_t exit_code = 0;
    bool exited = false;

    std::string tvxFilePath;  // host path (UTF-8) of the first program
    std::string tvxProgArgs;  // its argument string
};
