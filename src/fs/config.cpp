#include "fs/config.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "fs/path.h"
#include "vm/machine.h"

namespace {

// Button names by key index 1-12.
constexpr const char* kButtonNames[13] = {"",  "UP", "DOWN", "LEFT", "RIGHT", "A", "B",
                                          "SELECT", "START", "L1", "R1", "X", "Y"};

struct NamedKey {
    const char* name;
    uint8_t code;
};
// The guest's named key values.
constexpr NamedKey kNamedKeys[] = {
    {"F1", 0x1C},   {"F2", 0x1D},   {"F3", 0x1E},   {"F4", 0x1F},   {"HELP", 0x19},   {"SHIFT", 0x1A},
    {"CAPS", 0x12}, {"ESC", 0x1B},  {"ENTER", 0x0D}, {"UP", 0x14},  {"DOWN", 0x15},   {"LEFT", 0x17},
    {"RIGHT", 0x16}, {"PAGEUP", 0x13}, {"PAGEDOWN", 0x0E}, {"SPACE", 0x20}, {"POINT", 0x2E},
};

constexpr size_t kNameMax = 63;
constexpr size_t kValueMax = 259;

// The key value a configuration value stands for; 0 when none.
long key_value(const char* value) {
    for (const NamedKey& k : kNamedKeys)
        if (!std::strcmp(value, k.name)) return k.code;
    if (value[0] && !value[1]) {
        if (value[0] >= 'A' && value[0] <= 'Z') return value[0] - 'A' + 'a';
        if (value[0] >= '0' && value[0] <= '9') return value[0];
        return 0;
    }
    // A longer run is a decimal number after one leading "0" is dropped;
    // a "0x" prefix reads as 0 and is refused. Long runs cannot overflow:
    // anything above 127 is refused anyway.
    const char* p = value[0] == '0' ? value + 1 : value;
    long v = 0;
    for (; *p >= '0' && *p <= '9' && v <= 127; ++p) v = v * 10 + (*p - '0');
    return v;
}

}  // namespace

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\r'; }

bool is_stringchar(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '\'';
}

const char* skip_space(const char* p) {
    while (is_space(*p)) ++p;
    return p;
}

const char* get_string(const char* p, char* out, size_t max) {
    size_t n = 0;
    for (; is_stringchar(*p); ++p)
        if (n < max) out[n++] = *p;
    out[n] = 0;
    return p;
}

const char* to_next_line(const char* p) {
    while (*p && *p != '\n') ++p;
    while (*p == '\n') ++p;
    return p;
}

int ConfigKey(Machine& m, const char* name, const char* value) {
    int index = 1;
    while (index <= 12 && std::strcmp(name, kButtonNames[index]) != 0) ++index;
    if (index > 12) return 0;
    const long code = key_value(value);
    if (code < 1 || code > 127) return 0;
    m.key_code[index] = static_cast<uint8_t>(code);
    mylog(m, "SET KEY %s=0x%x\n", name, static_cast<unsigned>(code));
    return 1;
}

void set_config(Machine& m, const char* name, const char* value) {
    if (!std::strcmp(name, "ZOOM_SCREEN"))
        SetZoom(m, std::strcmp(value, "1") == 0 ? 1 : 0);
    else
        ConfigKey(m, name, value);
}

void read_config_text(Machine& m, const char* text, size_t size) {
    // A zero byte ends the text, as does the size limit.
    const std::string buf(text, strnlen(text, std::min(size, kConfigMax)));
    char name[kNameMax + 1], value[kValueMax + 1];
    for (const char* p = buf.c_str(); *p; p = to_next_line(p)) {
        p = get_string(skip_space(p), name, kNameMax);
        if (!name[0]) continue;
        p = skip_space(p);
        if (*p != '=') continue;
        p = get_string(skip_space(p + 1), value, kValueMax);
        if (value[0]) set_config(m, name, value);
    }
}

void ReadConfig(Machine& m, const char* gb_path) {
    FILE* f = fopen_gb(gb_path, "rb");
    if (!f) return;
    char buf[kConfigMax];
    const size_t n = std::fread(buf, 1, sizeof buf, f);
    std::fclose(f);
    read_config_text(m, buf, n);
}

void SetKeyCode(Machine& m, const char* gb_path) {
    std::memcpy(m.key_code, default_key_code, 13);
    ReadConfig(m, gb_path);
}

void SaveKeyCode(Machine& m) { std::memcpy(m.task[m.task_lev].key_code, m.key_code, 13); }

void LoadKeyCode(Machine& m) { std::memcpy(m.key_code, m.task[m.task_lev].key_code, 13); }
