// Microbenchmarks of the interpreter: fib.tvs and loop.tvs from this
// directory, assembled in memory with a smaller problem size and run to
// their exit again and again on one machine, by the reference loop (second
// argument 0) and the fast engine (1). Reports guest instructions per
// second; every run's exit code is checked against the same computation done
// natively. BM_load times loading a 1 MiB program and running its first
// instructions, the fast engine's decoding included.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "tools/asm/asm.h"
#include "vm/fast.h"
#include "vm/interp.h"
#include "vm/loader.h"

namespace {

struct QuietHost : Host {
    void log(std::string_view) override {}
};

std::string read_source(const std::string& name) {
    std::ifstream in(std::string(TVM2_BENCH_DIR) + "/" + name + ".tvs");
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The source with the number after ".equ N," replaced by n; empty if the
// line is missing.
std::string with_size(std::string src, int64_t n) {
    const std::string key = ".equ N,";
    const size_t at = src.find(key);
    if (at == std::string::npos) return {};
    size_t from = at + key.size();
    while (from < src.size() && src[from] == ' ') ++from;
    size_t to = from;
    while (to < src.size() && (src[to] == '-' || (src[to] >= '0' && src[to] <= '9'))) ++to;
    return src.replace(from, to - from, std::to_string(n));
}

int32_t fib(int32_t n) { return n < 2 ? n : fib(n - 1) + fib(n - 2); }

int expected_fib(int64_t n) { return fib(static_cast<int32_t>(n)) % 251; }

int expected_loop(int64_t n) {
    uint32_t total = 0;
    for (uint32_t i = 0; i < static_cast<uint32_t>(n); ++i) total += i * 7u;  // STEP in loop.tvs
    return static_cast<int>((total & 0x7FFFFFFFu) % 251u);
}

void run_program(benchmark::State& state, const std::string& name, int (*expected)(int64_t)) {
    const int64_t n = state.range(0);
    const bool fast = state.range(1) != 0;
    const std::string src = with_size(read_source(name), n);
    if (src.empty()) {
        state.SkipWithError("benchmark source not found or has no '.equ N,' line");
        return;
    }
    const AsmResult code = assemble(src, name + ".tvs");
    if (!code.errors.empty()) {
        state.SkipWithError(("assembly failed: " + code.errors.front().message).c_str());
        return;
    }

    // Load through the ordinary stream loader from an anonymous file.
    QuietHost host;
    auto m = std::make_unique<Machine>();
    m->host = &host;
    m->single_program_mode = 1;
    Color256Init(*m);
    FILE* f = std::tmpfile();
    if (!f || std::fwrite(code.bytes.data(), 1, code.bytes.size(), f) != code.bytes.size()) {
        state.SkipWithError("cannot write the program to a temporary file");
        if (f) std::fclose(f);
        return;
    }
    std::rewind(f);
    set_image(*m, TvxOpen(f));
    if (!m->pTOVI) {
        state.SkipWithError("cannot load the program");
        return;
    }

    const int want = expected(n);
    uint64_t steps = 0;
    for (auto _ : state) {
        state.PauseTiming();
        m->stop = Stop::None;
        m->exited = false;
        tvxReset(*m);
        state.ResumeTiming();
        steps += fast ? vm_run_fast(*m, UINT64_MAX) : vm_run_steps(*m, UINT64_MAX);
        if (!m->exited || m->exit_code != want) {
            state.SkipWithError("wrong exit code");
            return;
        }
    }
    state.counters["instructions"] = benchmark::Counter(static_cast<double>(steps), benchmark::Counter::kAvgIterations);
    state.counters["instr/s"] = benchmark::Counter(static_cast<double>(steps), benchmark::Counter::kIsRate);
}

void BM_fib(benchmark::State& state) { run_program(state, "fib", expected_fib); }
void BM_loop(benchmark::State& state) { run_program(state, "loop", expected_loop); }

// A 1 MiB program: a million-byte block of one-byte instructions (c_void)
// that the program jumps over to its exit at the end, then a jump back
// into the block every 4 KiB, so that the run touches code all over the
// image. Loaded from memory, reset and run to its exit.
void BM_load(benchmark::State& state) {
    std::vector<uint8_t> file(16, 0);
    std::memcpy(file.data(), "TVX", 3);
    file[3] = 0x12;
    file[8] = 0x10;  // 32-bit addresses
    const uint32_t size = 1u << 20;
    file.resize(size, 0x72);  // c_void
    // Every 4 KiB: c_jmp to the next 4 KiB, so a run visits 256 places.
    for (uint32_t at = 16; at + 4 < size - 16; at += 4096) {
        const uint32_t next = std::min<uint32_t>(at + 4096, size - 16);
        file[at] = 0x3B;
        file[at + 1] = static_cast<uint8_t>(next), file[at + 2] = static_cast<uint8_t>(next >> 8),
        file[at + 3] = static_cast<uint8_t>(next >> 16);
    }
    const uint32_t end = size - 16;
    file[end] = 0x01, file[end + 1] = 7;  // push_char 7
    file[end + 2] = 0x8D;                  // c_exit
    QuietHost host;
    for (auto _ : state) {
        auto m = std::make_unique<Machine>();
        m->host = &host;
        m->single_program_mode = 1;
        set_image(*m, image_from_bytes(file.data(), file.size()));
        tvxReset(*m);
        const uint64_t steps = state.range(0) ? vm_run_fast(*m, UINT64_MAX) : vm_run_steps(*m, UINT64_MAX);
        if (!m->exited || m->exit_code != 7 || steps < 256) {
            state.SkipWithError("the 1 MiB program did not run to its exit");
            return;
        }
    }
}

BENCHMARK(BM_fib)->ArgsProduct({{20, 25}, {0, 1}})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_loop)->ArgsProduct({{100000, 1000000}, {0, 1}})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_load)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
