// Fuzz target: the disassembler on arbitrary files. A file it lists must
// assemble back from the listing to the same bytes.
#include <cstdio>
#include <cstdlib>

#include "tools/asm/asm.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<uint8_t> file(data, data + size);
    std::string error;
    const std::string text = disassemble(file, &error);
    if (!error.empty()) return 0;
    const AsmResult r = assemble(text, "listing.tvs");
    if (!r.errors.empty() || r.bytes != file) {
        std::fprintf(stderr, "the listing does not assemble back to the input: %s\n%s",
                     r.errors.empty() ? "other bytes" : r.errors[0].message.c_str(), text.c_str());
        std::abort();
    }
    return 0;
}
