// Configuration files: lines of NAME = VALUE that set the screen zoom and
// the guest key value of each button.
#pragma once

#include <cstddef>

struct Machine;

// Only this many bytes of a configuration file are read.
inline constexpr size_t kConfigMax = 4095;

// Reads the file at a GB2312 host path; a missing file changes nothing.
void ReadConfig(Machine& m, const char* gb_path);
// Parses configuration text (at most kConfigMax bytes of it are looked at).
void read_config_text(Machine& m, const char* text, size_t size);
void set_config(Machine& m, const char* name, const char* value);
// Puts the buttons back to their default values, then reads the file.
void SetKeyCode(Machine& m, const char* gb_path);
// Gives button `name` the guest key value `value`. Returns 1 when it changed
// the mapping, else 0; an accepted value prints "SET KEY name=0x.." on
// standard output.
int ConfigKey(Machine& m, const char* name, const char* value);
// Copy the button values into / back from the current level's task record.
void SaveKeyCode(Machine& m);
void LoadKeyCode(Machine& m);

// Scanner steps over a zero-terminated text.
bool is_space(char c);
bool is_stringchar(char c);
const char* skip_space(const char* p);
// Reads a run of name characters, keeping at most max bytes in out (which
// has room for max + 1); returns the position after the whole run.
const char* get_string(const char* p, char* out, size_t max);
// Moves past the next line feed and any line feeds that follow it.
const char* to_next_line(const char* p);
