// Runs a fuzz target's entry point once on every file in the folders named
// on the command line, without the fuzzing engine: the regression corpus as
// a test. Fails when a folder holds no file.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        std::vector<std::filesystem::path> files;
        for (const auto& e : std::filesystem::directory_iterator(argv[i]))
            if (e.is_regular_file()) files.push_back(e.path());
        std::sort(files.begin(), files.end());
        if (files.empty()) {
            std::fprintf(stderr, "%s: no inputs\n", argv[i]);
            return 1;
        }
        for (const auto& f : files) {
            std::fprintf(stderr, "%s\n", f.c_str());  // names the input that fails
            std::ifstream in(f, std::ios::binary);
            const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        }
        std::printf("%s: %zu inputs\n", argv[i], files.size());
    }
    return 0;
}
