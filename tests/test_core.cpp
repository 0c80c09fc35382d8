// The core API driven as a host drives it: slices of 1/60 s of virtual time,
// buttons tapped between slices, frames and console text taken back, and
// save states moved from one core to another.
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "core/core.h"
#include "core/state.h"
#include "tools/asm/asm.h"
#include "vm/machine.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

constexpr uint64_t kSlice = 1000000000ULL / 60;

// Each pass draws a dot at (pass, 10), waits 16 ms and takes a pending key:
// it prints the key and the pass and writes the key to keys.dat, which stays
// open. B (27) closes the file and ends the program with exit code 7.
constexpr const char* kProgram = R"(.tvx mode=8 width=160 height=80
.equ X, 0x2000
.equ F, 0x2004
.equ K, 0x2008
        push_int F
        push_string "keys.dat"
        push_string "w"
        c_fopen
        c_letx 4
        pop_val
loop:   push_vlong X
        push_char 10
        push_char 1
        c_point
        push_int X
        push_vlong X
        push_char 1
        cal_add
        c_letx 4
        pop_val
        push_char 16
        c_delay
        push_int K
        c_inkey
        c_letx 4
        pop_val
        c_jmpe loop
        push_string "key %d at %d\n"
        push_vlong K
        push_vlong X
        push_char 3
        c_printf
        push_vlong K
        push_vlong F
        c_putc
        pop_val
        push_vlong K
        cal_qequ 27
        pop_val
        c_jmpe loop
        push_vlong F
        c_fclose
        push_char 7
        c_exit
)";

std::string read_file(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// A core whose console text is collected, run in numbered slices.
struct Host {
    Core core;
    std::string out;
    uint64_t slice_no = 0;

    Host() {
        core.sinks.console = [this](std::string_view s) { out += s; };
        core.sinks.log = [](std::string_view) {};
    }
    RunResult slice() {
        const uint64_t until = ++slice_no * kSlice;
        RunResult r;
        do r = core_run(core, {until}); while (r.status == RunStatus::Frame);
        return r;
    }
    void tap(uint16_t b) { core_press(core, b), core_release(core, b); }
};

void expect_same_frame(const Core& a, const Core& b) {
    const auto fa = core_frame(a), fb = core_frame(b);
    ASSERT_TRUE(fa && fb);
    EXPECT_EQ(fa->number, fb->number);
    EXPECT_EQ(fa->width, fb->width);
    EXPECT_EQ(0, std::memcmp(fa->pixels, fb->pixels, sizeof fa->pixels));
    EXPECT_EQ(0, std::memcmp(fa->palette, fb->palette, sizeof fa->palette));
}

class CoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        // A name of fixed length: the saved states have the same layout on every run.
        dir = fs::temp_directory_path() / ("tvm2_core_" + std::to_string(1000000000 + ::getpid()));
        fs::remove_all(dir);
        fs::create_directories(dir);
        write_program(kProgram);
    }
    void write_program(const std::string& source) {
        const AsmResult r = assemble(source, "t.tvs");
        ASSERT_TRUE(r.errors.empty()) << r.errors[0].message;
        std::ofstream(dir / "t.tvx", std::ios::binary).write(reinterpret_cast<const char*>(r.bytes.data()), static_cast<std::streamsize>(r.bytes.size()));
    }
    void TearDown() override { fs::remove_all(dir); }

    void load(Host& h, bool virtual_clock = true) {
        LoadOptions o;
        o.program = (dir / "t.tvx").string();
        o.root = dir.string();
        o.virtual_clock = virtual_clock;
        ASSERT_EQ(core_load(h.core, o), "");
    }

    fs::path dir;
};

TEST_F(CoreTest, TapsAreSeenAndASavedCoreGoesOnLikeTheOriginal) {
    Host a;
    load(a);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(a.slice().status, RunStatus::Waiting);
    // A pass takes 5 ticks of 1/256 s (the delay and the reading before
    // it): 8 passes in 10 slices, one dot each. The 9th pass takes the tap.
    const auto f10 = core_frame(a.core);
    EXPECT_EQ(f10->pixels[10 * kFrameStride + 7], 255);
    EXPECT_EQ(f10->pixels[10 * kFrameStride + 9], 0);
    EXPECT_EQ(a.out, "");
    // Pressed and released between two slices: still one press.
    a.tap(BTN_A);
    a.slice();
    EXPECT_EQ(a.out, "key 13 at 9\n");
    for (int i = 0; i < 4; ++i) a.slice();

    // Saved with a tap queued and keys.dat open; continued from a copy of
    // the root, so the file written there shows which root was used.
    a.tap(BTN_A);
    const Bytes state = core_save_state(a.core);
    const size_t out_at_save = a.out.size();
    const fs::path copy = dir.string() + "_copy";
    fs::remove_all(copy);
    fs::copy(dir, copy);
    Host b;
    ASSERT_EQ(core_load_state_at(b.core, state, copy.string()), "");
    b.slice_no = a.slice_no;
    expect_same_frame(a.core, b.core);

    for (int i = 0; i < 30 && !core_ended(a.core); ++i) {
        if (i == 20) a.tap(BTN_B), b.tap(BTN_B);
        const RunResult ra = a.slice(), rb = b.slice();
        EXPECT_EQ(ra.status, rb.status);
        expect_same_frame(a.core, b.core);
    }
    EXPECT_TRUE(core_ended(a.core) && core_ended(b.core));
    EXPECT_EQ(core_exit_code(b.core), 7);
    EXPECT_EQ(a.out.substr(out_at_save), b.out);
    // Inkeys come at multiples of 19.5 ms: the second A is queued at 250 ms,
    // B in slice 36 (583-600 ms).
    EXPECT_EQ(b.out, "key 13 at 13\nkey 27 at 30\n");
    EXPECT_EQ(read_file(dir / "keys.dat"), "\r\r\x1b");
    EXPECT_EQ(read_file(copy / "keys.dat"), "\r\r\x1b");
    fs::remove_all(copy);
}

TEST_F(CoreTest, DamagedStatesAreRefusedAndChangeNothing) {
    Host a;
    load(a);
    for (int i = 0; i < 5; ++i) a.slice();
    a.tap(BTN_A);
    const Bytes state = core_save_state(a.core);
    // A loaded state saves as it was read.
    ASSERT_EQ(core_load_state(a.core, state), "");
    EXPECT_EQ(core_save_state(a.core), state);
    auto refused = [&](Bytes bad) {
        const auto frame = core_frame(a.core);
        const std::string err = core_load_state(a.core, bad);
        if (err.empty()) return false;
        EXPECT_EQ(core_save_state(a.core), state);
        EXPECT_EQ(core_frame(a.core), frame);
        return true;
    };
    // The payload's checksum (CRC-32) sits in bytes 20-23 of the header.
    auto with_crc = [](Bytes s) {
        const uLong c = crc32(0, s.data() + 24, static_cast<uInt>(s.size() - 24));
        for (int k = 0; k < 4; ++k) s[20 + k] = static_cast<uint8_t>(c >> (8 * k));
        return s;
    };
    for (const size_t n : {size_t{0}, size_t{7}, size_t{23}, state.size() / 2, state.size() - 1})
        EXPECT_TRUE(refused(Bytes(state.begin(), state.begin() + static_cast<std::ptrdiff_t>(n)))) << n;
    Bytes bad;
    for (const size_t i : {size_t{0}, size_t{8}, state.size() / 3}) {  // magic, format version, payload
        bad = state;
        bad[i] ^= 1;
        EXPECT_TRUE(refused(bad)) << i;
    }
    bad = state;
    bad.push_back(0);
    EXPECT_TRUE(refused(with_crc(bad)));
    // A section whose size takes in the next section's first byte.
    bad = state;
    const char clck[] = "CLCK";
    ++bad[static_cast<size_t>(std::search(bad.begin(), bad.end(), clck, clck + 4) - bad.begin()) + 4];
    EXPECT_NE(core_load_state(a.core, with_crc(bad)).find("CLCK has 1 bytes too many"), std::string::npos);
    // Damage that the checksum does not catch is the state fuzz target's work
    // (its regression inputs run as fuzz.state).

    // An open file that is gone: a clear reason, and no machine.
    fs::rename(dir / "keys.dat", dir / "moved.dat");
    Host c;
    EXPECT_NE(core_load_state(c.core, state).find("keys.dat"), std::string::npos);
    EXPECT_FALSE(c.core.loaded());
}

TEST_F(CoreTest, RealClockGoesOnFromTheSavedGuestTime) {
    Host a;
    load(a, false);
    core_run(a.core, {core_time(a.core) + 1000000});
    const uint64_t saved = core_time(a.core);
    Host b;
    ASSERT_EQ(core_load_state(b.core, core_save_state(a.core)), "");
    EXPECT_FALSE(core_machine(b.core).clock.virtual_time);
    EXPECT_GE(core_time(b.core), saved);
    EXPECT_LT(core_time(b.core), saved + 5000000000ULL);
}

// A loop of calls over large blocks returns to the host after a few of them,
// whatever its budget, and the next runs go on with it.
TEST_F(CoreTest, BulkWorkEndsARunEarly) {
    const char* const loops[] = {
        "push_long 0\n push_long 0x80000\n push_long 0x80000\n c_memcpy",
        "push_long 0\n push_long 0x100000\n c_crc16\n pop_val",
        "push_long 0x10000\n push_char 1\n c_printf",
    };
    for (const char* body : loops) {
        SCOPED_TRACE(body);
        write_program(std::string(".tvx bits=24 mode=1 width=160 height=80\n"
                                  " push_long 0x10000\n push_char 'A'\n push_long 0x10000\n c_memset\n"
                                  "loop: ") + body + "\n c_jmp loop\n");
        Host h;
        load(h);
        const uint64_t t0 = core_time(h.core);
        uint64_t steps = 0;
        for (int run = 0; run < 3; ++run) {
            const RunResult r = core_run(h.core, {UINT64_MAX, 1000});
            EXPECT_EQ(r.status, RunStatus::Budget);
            EXPECT_GT(r.steps, 0u);
            EXPECT_LT(r.steps, 100u);
            steps += r.steps;
        }
        EXPECT_EQ(core_time(h.core), t0);
        EXPECT_GT(steps, 6u);
    }
}

}  // namespace
