// Fuzz target: assembler source. What assembles must list (tvxdis) as text
// that assembles back to the same bytes.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "tools/asm/asm.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const AsmResult r = assemble(std::string_view(reinterpret_cast<const char*>(data), size), "fuzz.tvs");
    if (!r.errors.empty()) return 0;
    std::string error;
    const std::string text = disassemble(r.bytes, &error);
    const AsmResult again = assemble(text, "listing.tvs");
    if (!error.empty() || !again.errors.empty() || again.bytes != r.bytes) {
        std::fprintf(stderr, "assembled output does not round-trip: %s\n%s",
                     error.empty() && !again.errors.empty() ? again.errors[0].message.c_str() : error.c_str(),
                     text.c_str());
        std::abort();
    }
    return 0;
}
