// Command line shared by tvxasm and tvxdis: INPUT [-o OUTPUT] [-h].
#pragma once

#include <cstdio>
#include <string>

// Parses the arguments. Returns -1 to go on, else the exit status to end
// with (0 after --help, 2 on a usage error, the usage already printed).
inline int parse_in_out(int argc, char** argv, const char* tool, void (*usage)(std::FILE*), std::string* input,
                        std::string* output) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "-h" || arg == "--help") {
            usage(stdout);
            return 0;
        }
        if (arg == "-o") {
            if (i + 1 >= argc || !output->empty()) {
                usage(stderr);
                return 2;
            }
            *output = argv[++i];
        } else if (!arg.empty() && arg[0] == '-') {
            std::fprintf(stderr, "%s: unknown option %s\n", tool, arg.c_str());
            usage(stderr);
            return 2;
        } else if (input->empty()) {
            *input = arg;
        } else {
            usage(stderr);
            return 2;
        }
    }
    if (input->empty()) {
        usage(stderr);
        return 2;
    }
    return -1;
}
