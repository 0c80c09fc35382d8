// Guest memory, the evaluation stack, loading and reset.
#include <filesystem>
#include <fstream>
#include <utility>

#include "vm_harness.h"

namespace {

TEST(GuestMemory, LittleEndianAndWrappingInsideTheBlock) {
    auto m = std::make_unique<Machine>();
    lRamWrite4(*m, 0x3000, 0x80FF1234);
    EXPECT_EQ(lRamRead(*m, 0x3003), 0x80);
    EXPECT_EQ(lRamRead2(*m, 0x3002), static_cast<int16_t>(0x80FF));
    lRamWrite2(*m, 0x3000, 0xABCDEF);  // only the low 16 bits
    EXPECT_EQ(lRamRead4(*m, 0x3000), 0x80FFCDEFu);

    m->lRam = 0xFFFF0;  // a task based near the top of the block
    lRamWrite4(*m, 0xE, 0x44332211);  // straddles the end: wraps to offset 0
    EXPECT_EQ(m->tovix_ram[kRamSize - 2], 0x11);
    EXPECT_EQ(m->tovix_ram[1], 0x44);
    EXPECT_EQ(lRamRead4(*m, 0xE), 0x44332211u);
    EXPECT_EQ(lRamRead2(*m, 0xF), 0x3322);
    // Wild 32-bit addresses land somewhere in the block, never outside it.
    for (uint32_t a : {0xFFFFFFFFu, 0x80000000u, 0x12345678u}) {
        lRamWrite4(*m, a, 0xA5A5A5A5);
        EXPECT_EQ(lRamRead4(*m, a), 0xA5A5A5A5u);
    }

    m->lRam = 0;
    for (uint32_t i = 0; i < 8; ++i) lRamWrite(*m, 0x5000 + i, i + 1);
    lmemcpy(*m, kRamSize - 3, 0x5000, 8);  // runs over the end of the block
    EXPECT_EQ(m->tovix_ram[kRamSize - 3], 1);
    EXPECT_EQ(m->tovix_ram[4], 8);
}

// 64 cells: the 65th push lands on the first, a pop of the empty stack
// takes the top cell.
TEST(EvalStack, PushAndPopWrapAroundSixtyFourCells) {
    Vm vm(Code{});
    for (uint32_t i = 1; i <= 65; ++i) push_cell(*vm.m, i);
    EXPECT_EQ(vm.m->eval_top, 4);
    EXPECT_EQ(vm.cell(), 65u);
    get_val(*vm.m);
    get_val(*vm.m);
    EXPECT_EQ(vm.m->eval_top, 252);
    EXPECT_EQ(vm.m->a1, 64u);
}

// Header byte 8 selects the address width, graphics mode and pen; bytes 9
// and 10 the screen size (in units of 16, defaults and clamps), which the
// console follows with the large font.
TEST(Reset, HeaderSelectsWidthModePenAndScreenSize) {
    struct Case { uint8_t flags, w, h; uint32_t bits; uint16_t mode, fg; int pen, width, height; };
    for (const Case& k : {Case{0x00, 0, 0, 16, 1, 15, 0, 160, 80}, Case{0x80, 1, 15, 24, 1, 15, 0, 32, 240},
                          Case{0x10, 30, 20, 32, 1, 15, 0, 320, 240}, Case{0x90, 10, 1, 32, 1, 15, 0, 160, 32},
                          Case{0x40, 20, 2, 16, 4, 15, 0, 320, 32}, Case{0x60, 0, 0, 16, 8, 255, 0, 160, 80},
                          Case{0x21, 0, 0, 16, 1, 15, 1, 160, 80}, Case{0xE1, 0, 0, 24, 8, 255, 1, 160, 80}}) {
        SCOPED_TRACE(testing::Message() << "flags " << int(k.flags) << " size " << int(k.w) << "x" << int(k.h));
        Vm vm(Code{}, k.flags, k.w, k.h);
        EXPECT_EQ(vm.m->RamBits, k.bits);
        EXPECT_EQ(vm.m->graph_mode, k.mode);
        EXPECT_EQ(vm.m->fgcolor, k.fg);
        EXPECT_EQ(vm.m->bgcolor, 0);
        EXPECT_EQ(vm.m->have_pen, k.pen);
        EXPECT_EQ(vm.m->have_keypad, 1 - k.pen);
        EXPECT_EQ(vm.m->ScreenWidth, k.width);
        EXPECT_EQ(vm.m->ScreenHeight, k.height);
        EXPECT_EQ(vm.m->curr_CPR, k.width / 8);
        EXPECT_EQ(vm.m->curr_RPS, k.height / 16);
    }
}

TEST(Reset, ClearsProgramDataButNotTheCommandLine) {
    Vm vm(Code{});
    Machine& m = *vm.m;
    lRamWrite(m, kCmdLine, 'X');
    lRamWrite(m, 0x2000, 1);
    lRamWrite(m, 0xFFFF, 2);
    lRamWrite(m, 0x10000, 3);  // beyond a 16-bit program's data
    tvxReset(m);
    EXPECT_EQ(lRamRead(m, kCmdLine), 'X');
    EXPECT_EQ(lRamRead(m, 0x2000), 0);
    EXPECT_EQ(lRamRead(m, 0xFFFF), 0);
    EXPECT_EQ(lRamRead(m, 0x10000), 3);
    EXPECT_EQ(m.lPC, 16u);
    EXPECT_EQ(m.string_ptr, kStringStack);
    EXPECT_EQ(m.d_line, -1);

    Vm wide(Code{}, 0x80);
    lRamWrite(*wide.m, 0xFFFFF, 9);
    tvxReset(*wide.m);
    EXPECT_EQ(lRamRead(*wide.m, 0xFFFFF), 0);
}

TEST(Reset, SeedIsAlwaysOddAndAdvancesByTheClockAndMirrorTable) {
    Vm vm(Code{});
    for (auto [ms, seed] : {std::pair{0, 101}, {7, 107}, {200, 301}, {255, 355}}) {
        vm.m->clock.now_ns = (static_cast<uint64_t>(ms) + 255) * kTickNs;  // the reading is one tick later
        vm.m->seed = 100;
        tvxReset(*vm.m);
        EXPECT_EQ(vm.m->seed, seed);
    }
    EXPECT_EQ(vm.m->negative_tbl[0x01], 0x80);  // bits reversed
    EXPECT_EQ(vm.m->negative_tbl[0x12], 0x48);
}

TEST(Reset, ScreenClearedOnModeChangeOrShortHeight) {
    Vm vm(Code{}, 0x00, 0, 15);  // mode 1 from the start-up mode 8: cleared
    Machine& m = *vm.m;
    EXPECT_EQ(m.ScreenBuffer[0], 255);
    EXPECT_EQ(m.need_clean, 1);
    m.ScreenBuffer[5] = 1;
    m.need_clean = 0;
    tvxReset(m);  // same mode, height byte 15: the picture survives
    EXPECT_EQ(m.ScreenBuffer[5], 1);
    EXPECT_EQ(m.need_clean, 0);

    Vm low(Code{}, 0x00, 0, 14);
    low.m->ScreenBuffer[5] = 1;
    tvxReset(*low.m);  // same mode, height byte 14: cleared
    EXPECT_EQ(low.m->ScreenBuffer[5], 255);
}

class LoaderFiles : public ::testing::Test {
protected:
    std::filesystem::path dir = std::filesystem::temp_directory_path() /
                                ("tvm2-loader-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                                 "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    TestHost host;
    std::unique_ptr<Machine> m = std::make_unique<Machine>();
    void SetUp() override {
        std::filesystem::create_directories(dir);
        m->host = &host;
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    std::string write(const std::string& name, const std::vector<uint8_t>& bytes) {
        const auto p = dir / name;
        std::ofstream(p, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                 static_cast<std::streamsize>(bytes.size()));
        return p.string();
    }
};

TEST_F(LoaderFiles, RejectsWithTheLoaderMessages) {
    const std::string missing = (dir / "none.tvx").string();
    EXPECT_EQ(TaskOpenUtf8(*m, missing), nullptr);
    EXPECT_EQ(host.logged, "Can not open " + missing + "!\n");
    m->tvxFilePath = missing;
    EXPECT_FALSE(vm_start(*m));
    EXPECT_NE(host.logged.find("Error: Failed to load Tovix program, exiting.\n"), std::string::npos);

    auto bad_version = tvx_header();
    bad_version[3] = 0x11;
    for (const auto& bytes : {std::vector<uint8_t>{'T', 'V', 'X', 0x12, 0, 0}, bad_version, std::vector<uint8_t>(16, 0)}) {
        host.logged.clear();
        const std::string p = write("bad.tvx", bytes);
        EXPECT_EQ(TaskOpenUtf8(*m, p), nullptr);
        EXPECT_EQ(host.logged, "Not valid Tovix file " + p + "!\n");
    }
    // Code offsets are 24-bit: a larger file is refused before it is read.
    const std::string big = write("big.tvx", tvx_header());
    std::filesystem::resize_file(big, 0x1000001);
    EXPECT_EQ(TaskOpenUtf8(*m, big), nullptr);
}

}  // namespace
