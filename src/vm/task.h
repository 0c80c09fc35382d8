// Task records of nested programs: what a program had when it started
// another, restored when that one ends.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "display/screen.h"
#include "fs/files.h"
#include "vm/cpu.h"

inline constexpr int kTaskLevels = 8;

struct TaskRecord {
    // Written by the parent for this level; bit 7 of the low byte forbids
    // this level to start programs.
    uint32_t mode = 0;
    // What the level's program had when it started another.
    TaskRegisters regs;
    ScreenSettings screen;
    GuestDirs dirs{{}, {}};
    uint8_t key_code[13] = {};
    std::unique_ptr<TvxImage> image;
};

struct Tasks {
    int32_t task_lev = 0;
    TaskRecord task[kTaskLevels];
    // 1 when the program file was named on the command line: the exit call at
    // level 0 ends the machine instead of restarting the program.
    int32_t single_program_mode = 0;
    // Exit code of the last program that ended at level 0, for the host.
    int32_t exit_code = 0;
    bool exited = false;

    std::string tvxFilePath;  // host path (UTF-8) of the first program
    std::string tvxRoot;      // guest root (GB2312) the host chose; empty: the program's folder
    std::string tvxProgArgs;  // its argument string
};

struct Machine;

// Ends a nested program with exit code `code`: the parent resumes with the
// code as the result of its start call.
void exit_nested(Machine& m, uint32_t code);
// The second half of starting a nested program, once every key is up: the
// child becomes the running task. path: its host path (GB2312).
void finish_exec(Machine& m, const std::string& path);
