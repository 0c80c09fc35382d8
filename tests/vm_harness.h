// Builds small programs from bytes and runs them on a fresh machine.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "vm/fast.h"
#include "vm/interp.h"
#include "vm/loader.h"
#include "base/opcodes.h"

// A host that records the log and the console text. The machine runs on its
// virtual clock.
struct TestHost : Host {
    std::string logged, console;
    void log(std::string_view text) override { logged += text; }
    void console_write(std::string_view text) override { console += text; }
};

// Bytecode builder: ops by mnemonic, operands little-endian.
struct Code {
    std::vector<uint8_t> b;
    Code& op(std::string_view name) {
        const auto code = op_lookup(name);
        EXPECT_TRUE(code.has_value()) << name;
        b.push_back(code.value_or(0));
        return *this;
    }
    Code& u8(uint32_t v) { b.push_back(static_cast<uint8_t>(v)); return *this; }
    Code& u16(uint32_t v) { return u8(v).u8(v >> 8); }
    Code& u24(uint32_t v) { return u16(v).u8(v >> 16); }
    Code& u32(uint32_t v) { return u16(v).u16(v >> 16); }
    Code& raw(std::initializer_list<uint8_t> bytes) { b.insert(b.end(), bytes); return *this; }
};

inline std::vector<uint8_t> tvx_header(uint8_t flags = 0, uint8_t width = 0, uint8_t height = 0) {
    std::vector<uint8_t> h(16, 0);
    std::memcpy(h.data(), "TVX", 3);
    h[3] = 0x12;
    h[8] = flags;
    h[9] = width;
    h[10] = height;
    return h;
}

struct Vm {
    TestHost host;
    std::unique_ptr<Machine> m = std::make_unique<Machine>();
    bool fast = false;  // run with the fast engine instead of the reference loop

    explicit Vm(const Code& code, uint8_t flags = 0, uint8_t width = 0, uint8_t height = 0) {
        auto file = tvx_header(flags, width, height);
        file.insert(file.end(), code.b.begin(), code.b.end());
        m->host = &host;
        m->single_program_mode = 1;
        set_image(*m, image_from_bytes(file.data(), file.size()));
        tvxReset(*m);
    }
    // Runs until the program ends or waits (or the step budget runs out),
    // going on after presents.
    uint64_t run(uint64_t max_steps = 1000000) {
        uint64_t n = 0;
        do {
            if (m->stop == Stop::Frame) m->stop = Stop::None;
            n += fast ? vm_run_fast(*m, max_steps - n) : vm_run_steps(*m, max_steps - n);
        } while (n < max_steps && m->stop == Stop::Frame);
        return n;
    }
    // Cell i below the top of the evaluation stack (0 = top).
    uint32_t cell(int i = 0) const {
        return lRamRead4(*m, m->eval_stack + static_cast<uint8_t>(m->eval_top - 4 * (i + 1)));
    }
    int depth() const { return m->eval_top / 4; }
};

// A reset machine with an empty program whose handlers are called directly.
struct CallVm : Vm {
    explicit CallVm(uint8_t flags = 0, uint8_t width = 0, uint8_t height = 0) : Vm(Code{}, flags, width, height) {}
    // Pushes the arguments left to right and runs fn, which must pop them
    // all and push `results` cells.
    void call(void (*fn)(Machine&), std::initializer_list<int64_t> args, int results = 0) {
        for (int64_t a : args) push_cell(*m, static_cast<uint32_t>(a));
        const int before = depth();
        fn(*m);
        EXPECT_EQ(depth(), before - static_cast<int>(args.size()) + results) << "stack effect";
    }
    // The same for a call with one result, which is popped and returned.
    uint32_t result(void (*fn)(Machine&), std::initializer_list<int64_t> args) {
        call(fn, args, 1);
        get_val(*m);
        return m->a1;
    }
    // Writes s and a terminating zero at guest address a.
    void str(uint32_t a, std::string_view s) {
        for (size_t i = 0; i <= s.size(); ++i) lRamWrite(*m, a + static_cast<uint32_t>(i), i < s.size() ? static_cast<uint8_t>(s[i]) : 0);
    }
    // The string at guest address a, or its first n bytes whatever they hold.
    std::string read(uint32_t a, size_t n = 0) {
        std::string s;
        for (uint32_t i = 0; n ? i < n : i < kRamSize && lRamRead(*m, a + i) != 0; ++i) s += static_cast<char>(lRamRead(*m, a + i));
        return s;
    }
};
