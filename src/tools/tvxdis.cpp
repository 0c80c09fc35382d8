// tvxdis: lists a .tvx program in assembler syntax.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tools/asm/asm.h"
#include "tools/asm/cli.h"

namespace {

void usage(std::FILE* to) {
    std::fputs("usage: tvxdis INPUT.tvx [-o OUTPUT.tvs]\n"
               "Disassembles INPUT (default output: standard output). tvxasm turns the\n"
               "listing back into the same bytes. Exit status: 0 success, 1 errors, 2 usage.\n",
               to);
}

}  // namespace

int main(int argc, char** argv) {
    std::string input, output;
    if (const int status = parse_in_out(argc, argv, "tvxdis", usage, &input, &output); status >= 0) return status;

    std::ifstream in(input, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "Can not open %s!\n", input.c_str());
        return 1;
    }
    const std::vector<uint8_t> file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string error;
    const std::string text = disassemble(file, &error);
    if (!error.empty()) {
        std::fprintf(stderr, "Not valid Tovix file %s!\n", input.c_str());
        return 1;
    }
    if (output.empty()) {
        std::fwrite(text.data(), 1, text.size(), stdout);
        return std::fflush(stdout) == 0 ? 0 : 1;
    }
    std::ofstream out(output, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) {
        std::fprintf(stderr, "tvxdis: cannot write %s\n", output.c_str());
        return 1;
    }
    return 0;
}
