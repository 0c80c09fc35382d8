// tvxdis: lists a .tvx program in assembler syntax.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/asm/asm.h"
#include "tools/asm/cli.h"
#include "tools/common/outfile.h"

namespace {

void usage(std::FILE* to) {
    std::fputs("usage: tvxdis INPUT.tvx [-o OUTPUT.tvs]\n"
               "Disassembles INPUT (default output: standard output). tvxasm turns the\n"
               "listing back into the same bytes. Exit status: 0 success, 1 errors, 2 usage.\n",
               to);
}

}  // namespace

int main(int argc, char** argv) {
    // A closed pipe is reported as a write error, not a silent end.
    std::signal(SIGPIPE, SIG_IGN);
    std::string input, output;
    if (const int status = parse_in_out(argc, argv, "tvxdis", usage, &input, &output); status >= 0) return status;

    std::string data, error;
    if (!read_input_file(input, &data, &error)) {
        std::fprintf(stderr, "tvxdis: %s: %s\n", input.c_str(), error.c_str());
        return 1;
    }
    const std::string text = disassemble(std::vector<uint8_t>(data.begin(), data.end()), &error);
    if (!error.empty()) {
        std::fprintf(stderr, "tvxdis: %s: %s\n", input.c_str(), error.c_str());
        return 1;
    }
    if (output.empty()) {
        std::fwrite(text.data(), 1, text.size(), stdout);
        if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return 0;
        std::fprintf(stderr, "tvxdis: cannot write standard output: %s\n", std::strerror(errno));
        return 1;
    }
    if (same_file(input, output)) {
        std::fprintf(stderr, "tvxdis: output %s is the input file %s: not overwritten\n", output.c_str(), input.c_str());
        return 2;
    }
    if (!write_output_file(output, text, &error)) {
        std::fprintf(stderr, "tvxdis: cannot write %s: %s\n", output.c_str(), error.c_str());
        return 1;
    }
    return 0;
}
