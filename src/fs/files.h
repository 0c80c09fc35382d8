// Guest file-system state: the root, the current directory, the last name
// taken from the guest and the table of open files.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

struct Machine;

inline constexpr int kMaxFiles = 16;     // handles 0x80-0x8F
inline constexpr size_t kPathMax = 256;  // path buffers, terminator included
// What a run may add to its guest root by default, and what a new file or
// directory counts for.
inline constexpr uint64_t kDefaultDiskLimit = uint64_t{256} << 20;
inline constexpr int64_t kNewEntryBytes = 4096;

// The directories a program keeps while it runs another: saved and restored
// as a whole.
struct GuestDirs {
    // Host directory that the guest sees as "/", ending in "/" (GB2312).
    char RootPath[kPathMax] = "TovixOS/";
    // Guest current directory relative to the root, no leading or trailing "/".
    char CD[kPathMax] = {};
};

struct Files : GuestDirs {
    // Host path (GB2312) of the last guest name, empty when it was rejected.
    char FileName[kPathMax] = {};
    // Full name of the running program: its host path at the outermost
    // level, its guest path ("/PROGRAM/x.tvx") for a nested program.
    std::string VirtualFullName;

    FILE* fhandle[kMaxFiles] = {};
    uint8_t ftask[kMaxFiles] = {};  // task level that opened each slot
    // Last transfer on each slot (0 none, 1 read, 2 write): a stream must be
    // repositioned between a write and a read.
    uint8_t last_io[kMaxFiles] = {};
    // What each open slot was opened as, so that a saved machine can open it
    // again: the normalised guest path (relative to the root of the level
    // in ftask) and the mode given to the host.
    std::string fpath[kMaxFiles];
    std::string fmode[kMaxFiles];
    // The size of each open file as its slot last knew it; -1: not yet looked at.
    int64_t fsize[kMaxFiles] = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1};

    // The bytes the run has added to the guest root: writes that extend a
    // file (rewriting bytes it has costs nothing), and kNewEntryBytes per new
    // file or directory, less what truncation and removal freed. A write or a
    // new entry beyond disk_limit fails as on a full disk.
    uint64_t disk_limit = kDefaultDiskLimit;
    int64_t disk_added = 0;

    Files() = default;
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;
    ~Files();
};

// Closes every open slot; what was written is on disk afterwards. The
// front-end calls it when the process ends.
void close_all_files(Files& f);
// Writes out what every open slot has buffered.
void flush_all_files(Files& f);
// Closes the slots opened at the current task level (a nested program ends).
void c_closeall(Machine& m);

// Opens an existing host file (GB2312 path) again as a slot that was opened
// with `mode` and stood at byte `pos`, at end of file when `eof`. Nothing is
// created or truncated. Null with a reason in *error when it fails.
FILE* reopen_file(const char* gb_path, const std::string& mode, int64_t pos, bool eof, std::string* error);
// Whether a mode string could have been given to the host by the open
// call: r, w or a first, no zero byte, no "," (no code-set form).
bool valid_open_mode(const std::string& mode);

// Room for a new file or directory under the disk limit; note_new_entry and
// note_freed keep the count when one is made or bytes are given back.
bool room_for_entry(const Files& f);
void note_new_entry(Files& f);
void note_freed(Files& f, int64_t bytes);

// Pops a guest path, normalises it and leaves its host path in FileName
// (empty when the path is rejected).
void get_name(Machine& m);
// The same for a program to start; also sets VirtualFullName to the
// normalised guest path with a leading "/".
void get_exe_name(Machine& m);
