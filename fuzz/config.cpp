// Fuzz target: configuration text. Whatever it says, every button keeps a
// guest key value in 1-127.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "fs/config.h"
#include "vm/machine.h"

namespace {

struct QuietHost : Host {
    void log(std::string_view) override {}
    void console_write(std::string_view) override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static QuietHost host;
    static const auto m = std::make_unique<Machine>();
    m->host = &host;
    std::memcpy(m->key_code, default_key_code, sizeof default_key_code);
    read_config_text(*m, reinterpret_cast<const char*>(data), size);
    for (int i = 1; i <= 12; ++i)
        if (m->key_code[i] < 1 || m->key_code[i] > 127) {
            std::fprintf(stderr, "button %d has key value %d\n", i, m->key_code[i]);
            std::abort();
        }
    return 0;
}
