// Cost of converting one full 320x240 guest screen into a host surface at
// each enlargement: 1:1, the fixed 2x and 4x scalers, and the general scaler
// at 3x with the monochrome grid.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "vm/machine.h"

namespace {

void frame(benchmark::State& state, int factor, int mode) {
    auto m = std::make_unique<Machine>();
    m->graph_mode = static_cast<uint16_t>(mode);
    m->ScreenWidth = 320;
    m->ScreenHeight = 240;
    SetPalette(*m);
    for (int i = 0; i < kPlaneSize; ++i) m->ScreenBuffer[i] = static_cast<uint8_t>(mode == 1 ? (i / 7) & 1 : i * 31);
    present_frame(*m);
    const Frame& f = *m->frame;
    std::vector<uint16_t> px(size_t(320 * factor) * size_t(240 * factor));
    Surface16 s{reinterpret_cast<uint8_t*>(px.data()), 320 * factor, 240 * factor, 640 * factor};
    for (auto _ : state) {
        DmaRefresh(f, &s);
        benchmark::DoNotOptimize(px.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * 320 * 240);
}

void BM_Frame1x(benchmark::State& s) { frame(s, 1, 8); }
void BM_Frame2x(benchmark::State& s) { frame(s, 2, 8); }
void BM_Frame3xGrid(benchmark::State& s) { frame(s, 3, 1); }
void BM_Frame4x(benchmark::State& s) { frame(s, 4, 8); }

}  // namespace

BENCHMARK(BM_Frame1x);
BENCHMARK(BM_Frame2x);
BENCHMARK(BM_Frame3xGrid);
BENCHMARK(BM_Frame4x);
BENCHMARK_MAIN();
