// tvxasm: assembles a .tvs source file into a .tvx program.
#include <cstdio>
#include <string>

#include "tools/asm/asm.h"
#include "tools/asm/cli.h"
#include "tools/common/outfile.h"

namespace {

void usage(std::FILE* to) {
    std::fputs("usage: tvxasm INPUT.tvs [-o OUTPUT.tvx]\n"
               "Assembles INPUT into a .tvx program (default output: INPUT with its\n"
               "extension replaced by .tvx). Exit status: 0 success, 1 errors, 2 usage.\n",
               to);
}

// INPUT with the extension of its last path component replaced by .tvx.
std::string default_output(const std::string& input) {
    const size_t slash = input.find_last_of('/');
    const size_t dot = input.find_last_of('.');
    const bool has_ext = dot != std::string::npos && (slash == std::string::npos || dot > slash + 1);
    return (has_ext ? input.substr(0, dot) : input) + ".tvx";
}

}  // namespace

int main(int argc, char** argv) {
    std::string input, output;
    if (const int status = parse_in_out(argc, argv, "tvxasm", usage, &input, &output); status >= 0) return status;
    if (output.empty()) output = default_output(input);
    if (output == input || same_file(input, output)) {
        std::fprintf(stderr, "tvxasm: output %s is the input file %s: not overwritten\n", output.c_str(), input.c_str());
        return 2;
    }

    std::string source, error;
    if (!read_input_file(input, &source, &error)) {
        std::fprintf(stderr, "tvxasm: %s: %s\n", input.c_str(), error.c_str());
        return 1;
    }
    const AsmResult r = assemble(source, input);
    if (!r.errors.empty()) {
        for (const AsmError& e : r.errors)
            std::fprintf(stderr, "%s:%d: %s\n", e.file.c_str(), e.line, e.message.c_str());
        return 1;
    }
    if (!write_output_file(output, std::string_view(reinterpret_cast<const char*>(r.bytes.data()), r.bytes.size()),
                           &error)) {
        std::fprintf(stderr, "tvxasm: cannot write %s: %s\n", output.c_str(), error.c_str());
        return 1;
    }
    return 0;
}
