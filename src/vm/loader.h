// Loading a program image and resetting the machine for it.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "vm/machine.h"

// Opens a host path (UTF-8). Logs and returns null when the file cannot be
// opened or is not a Tovix program.
std::unique_ptr<TvxImage> TaskOpenUtf8(Machine& m, const std::string& path);
// The same for a guest path (GB2312).
std::unique_ptr<TvxImage> TaskOpen(Machine& m, const std::string& path);
// Reads the whole open stream into a new image and closes the stream.
std::unique_ptr<TvxImage> TvxOpen(FILE* stream);

// An image holding a copy of the given file bytes (no header check).
std::unique_ptr<TvxImage> image_from_bytes(const uint8_t* data, size_t size);

// Prepares the file system and opens the first program.
std::unique_ptr<TvxImage> shell_init(Machine& m);

void set_sys_ram(Machine& m);
void make_negative(Machine& m);
void tvxReset(Machine& m);

// Writes the command line of the first program at guest offset 0x0700.
void write_cmdline(Machine& m);
