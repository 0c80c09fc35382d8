// Guest paths: GB2312 strings with "/" as separator, resolved against the
// current directory and confined under the root directory of the host.
// Host file names are UTF-8; conversion happens just before each host call.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

#include "fs/files.h"

// InitVFS, then the root "TovixOS/".
void filesys_init(Files& f);
// Closes and empties every file slot and empties CD.
void InitVFS(Files& f);
// Makes path (GB2312) the root, with a "/" appended unless it ends in "/" or
// "\\"; empties CD. Returns 0 and changes nothing when path is null, empty
// or too long, else 1.
int SetRoot(Files& f, const char* path);
// When the host path of a program begins with "TovixOS/PROGRAM/", the
// directory holding it becomes the root.
void SetTvxRoot(Files& f, const char* host_path);

// Normalises a guest path into out (kPathMax bytes). The end of `in` counts
// as its terminator. Returns 0, or 1 when the path is rejected (out empty).
int my_pathformat(const Files& f, std::string_view in, char* out);
// Cuts path after its last "/"; without one the path becomes empty.
void my_cdup(char* path);
// out = root + path, "\\" turned into "/"; empty when it would not fit.
void true_name_0(const char* path, char* out, const char* root);
void true_name(const Files& f, const char* path, char* out);

// Changes CD to a guest directory. Returns 0 on success, 1 otherwise.
int my_chdir(Files& f, std::string_view guest_path);
// Makes a guest directory with permission bits 0. Returns 0 or 1.
int my_mkdir(Files& f, std::string_view guest_path);

// The UTF-8 form of a GB2312 host path. False for an empty path and for
// bytes that are not GB2312/GBK, which never reach the host.
bool gb_host_path(const char* gb, std::string* utf8);
// The GB2312 form of a UTF-8 host path; false when it has none that names
// the same host file (bytes that are not UTF-8, characters outside GBK).
bool host_path_gb(const std::string& utf8, std::string* gb);
// Opens a GB2312 host path with the host's buffered open; null when the
// name cannot be converted or the open fails.
FILE* fopen_gb(const char* gb_path, const char* mode);
