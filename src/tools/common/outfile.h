// Reading the tools' input files, and writing their output files without
// harming what is already there.
#pragma once

#include <string>
#include <string_view>

// Writes data to path. A regular file (or a new one) is written to a
// temporary file in the same directory and renamed into place, so a failed
// write leaves the old file as it was; a symbolic link is followed, not
// replaced. A path that exists and is not a regular file (a device, a FIFO)
// is written directly, never created, truncated or removed. On failure
// returns false with the reason in *error.
bool write_output_file(const std::string& path, std::string_view data, std::string* error);

// Whether a and b name the same existing file (device and inode), however
// they are spelled: another path, a symbolic or a hard link.
bool same_file(const std::string& a, const std::string& b);

// Reads the whole regular file at path into *data; on failure false with the
// cause in *error ("is a directory", "not a regular file", or the system's
// reason: no such file, permission denied).
bool read_input_file(const std::string& path, std::string* data, std::string* error);
