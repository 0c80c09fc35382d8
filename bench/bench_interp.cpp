// Microbenchmarks of the interpreter loop: fib.tvs and loop.tvs from this
// directory, assembled in memory with a smaller problem size and run to
// their exit again and again on one machine. Reports guest instructions per
// second; every run's exit code is checked against the same computation done
// natively.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "tools/asm/asm.h"
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
        steps += vm_run_steps(*m, UINT64_MAX);
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

BENCHMARK(BM_fib)->Arg(20)->Arg(25)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_loop)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
