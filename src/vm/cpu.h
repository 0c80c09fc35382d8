// Interpreter registers, the program image and guest memory.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "vm/wait.h"

inline constexpr uint32_t kRamSize = 0x100000;  // tovix_ram: 1 MiB
inline constexpr uint32_t kRamMask = kRamSize - 1;
inline constexpr uint32_t kCmdLine = 0x0700;
inline constexpr uint32_t kTextBuffer = 0x1400;
inline constexpr uint32_t kEvalStack = 0x1B00;
inline constexpr uint32_t kStringStack = 0x1C00;
inline constexpr uint32_t kStringRing = 768;
inline constexpr uint32_t kProgramData = 0x2000;
inline constexpr uint32_t kFuncStack = 1024;

// Bytes of 0xFF (an undefined opcode) after the image's terminating zero, so
// that fixed-size operands read near the end never leave the buffer and the
// next fetch past the end lands on the off-image handler.
inline constexpr uint32_t kImagePad = 8;

// The decoded form of an image that the fast engine runs (vm/fast.cpp):
// derived from the bytes on first use, never saved.
struct FastCode;
struct FastCodeFree {
    void operator()(FastCode* f) const;
};

// A loaded .tvx file: the file bytes, one zero byte, then kImagePad bytes.
struct TvxImage {
    std::vector<uint8_t> bytes;
    uint32_t file_size = 0;  // bytes of the file; index file_size holds 0
    uint32_t end() const { return file_size + 1; }  // first offset outside the image
    std::unique_ptr<FastCode, FastCodeFree> fast;
};

// The registers of the running program that a program keeps while it runs
// another: saved and restored as a whole.
struct TaskRegisters {
    uint32_t lPC = 0;  // program counter, an offset into the image
    // Guest memory: every guest address is an offset from lRam, reduced into
    // the 1 MiB block.
    uint32_t lRam = 0;
    uint32_t RamBits = 16;
    uint32_t addr_mask = 0xFFFF;  // 0xFFFF for 16-bit programs, else 0xFFFFFF
    uint8_t eval_top = 0;
    uint8_t secret = 0;
    uint32_t string_ptr = kStringStack;
    uint32_t local_bp = 0, local_sp = 0;
};

struct Cpu : TaskRegisters {
    // The running program's image.
    std::unique_ptr<TvxImage> pTOVI;
    const uint8_t* code = nullptr;  // pTOVI->bytes.data(), cached for the fetch loop
    uint32_t code_end = 0;          // pTOVI->end()

    uint32_t a1 = 0, a3 = 0, result = 0;
    uint32_t func_x = 0;
    uint32_t TextBuffer = kTextBuffer, eval_stack = kEvalStack, string_stack = kStringStack;
    int64_t d_line = -1;
    uint32_t ramuses = 0, ramusee = 0, ramarm = 0;
    int64_t seed = 0;
    uint32_t cur_funcid = 0, func_top = 0;
    uint32_t func_stack[kFuncStack] = {};
    int32_t delay = 0, wait_key = 0;
    uint64_t line_mode = 0;  // rows a console repaint skips
    int32_t have_pen = 0, have_keypad = 1;

    // Set by the host to leave the running program; consumed by jumps and
    // calls as a normal exit, and it ends a running delay.
    uint8_t force_exit_tvx = 0;
    // Set when the interpreter loop is to return to the host (a wait, a
    // present, the end of the program, the end of the slice's time).
    Stop stop = Stop::None;
    uint64_t work = 0;  // work done by calls since the run began (add_work)
    WaitState wait;
    bool wait_retry = false;  // the next instruction is a key call running again

    // Guest memory. No initialiser: a Machine is allocated as zero pages
    // (Machine::operator new), so that the pages a program never uses are
    // never touched and a new machine costs no 1 MiB clearing.
    uint8_t tovix_ram[kRamSize];
    bool ram_pristine = true;  // still all zero: the first program load need not clear it
    uint8_t negative_tbl[256] = {};
};

// Bulk work that ends a run early: a call over a large block costs as much as
// thousands of instructions, and a loop of such calls must not keep the host
// from its clock, input and signals until the run's instructions are used.
// A unit is about a tenth of a nanosecond of host time: a byte copied or
// scanned in bulk.
inline constexpr uint64_t kWorkPerRun = 8 << 20;     // about a millisecond
inline constexpr uint64_t kWorkPerByteLooped = 16;   // a byte handled one at a time
inline constexpr uint64_t kWorkPerByteOutput = 128;  // a byte of formatted output
inline constexpr uint64_t kWorkPerEntry = 8192;      // a directory entry read

// Counts work done by a call (units as above).
inline void add_work(Cpu& c, uint64_t bytes) {
    c.work += bytes;
    if (c.work >= kWorkPerRun && c.stop == Stop::None) c.stop = Stop::Busy;
}

// Hot helpers are forced inline so the interpreter loop has no calls in them.
#define TVM_INLINE inline __attribute__((always_inline))

static_assert(std::endian::native == std::endian::little, "guest memory access assumes a little-endian host");

// A cell's bits as a float and back (memcpy: not every library has
// std::bit_cast yet).
TVM_INLINE float i2f(uint32_t v) {
    float f;
    std::memcpy(&f, &v, 4);
    return f;
}
TVM_INLINE uint32_t f2i(float f) {
    uint32_t v;
    std::memcpy(&v, &f, 4);
    return v;
}

TVM_INLINE uint32_t ram_index(const Cpu& c, uint32_t a) { return (c.lRam + a) & kRamMask; }

// Guest memory access on the block itself: x is an address with the RAM base
// added, reduced into the block here; multi-byte values wrap at its end.
TVM_INLINE uint32_t ram_read1(const uint8_t* ram, uint32_t x) { return ram[x & kRamMask]; }

TVM_INLINE int32_t ram_read2(const uint8_t* ram, uint32_t x) {
    const uint32_t i = x & kRamMask;
    uint16_t v;
    if (i <= kRamSize - 2) [[likely]] {
        std::memcpy(&v, ram + i, 2);
    } else {
        v = static_cast<uint16_t>(ram[i] | ram[(i + 1) & kRamMask] << 8);
    }
    return static_cast<int16_t>(v);
}

TVM_INLINE uint32_t ram_read4(const uint8_t* ram, uint32_t x) {
    const uint32_t i = x & kRamMask;
    uint32_t v;
    if (i <= kRamSize - 4) [[likely]] {
        std::memcpy(&v, ram + i, 4);
    } else {
        v = 0;
        for (uint32_t k = 0; k < 4; ++k) v |= static_cast<uint32_t>(ram[(i + k) & kRamMask]) << (8 * k);
    }
    return v;
}

TVM_INLINE void ram_write1(uint8_t* ram, uint32_t x, uint32_t v) { ram[x & kRamMask] = static_cast<uint8_t>(v); }

TVM_INLINE void ram_write2(uint8_t* ram, uint32_t x, uint32_t v) {
    const uint32_t i = x & kRamMask;
    if (i <= kRamSize - 2) [[likely]] {
        const uint16_t w = static_cast<uint16_t>(v);
        std::memcpy(ram + i, &w, 2);
    } else {
        ram[i] = static_cast<uint8_t>(v);
        ram[(i + 1) & kRamMask] = static_cast<uint8_t>(v >> 8);
    }
}

TVM_INLINE void ram_write4(uint8_t* ram, uint32_t x, uint32_t v) {
    const uint32_t i = x & kRamMask;
    if (i <= kRamSize - 4) [[likely]] {
        std::memcpy(ram + i, &v, 4);
    } else {
        for (uint32_t k = 0; k < 4; ++k) ram[(i + k) & kRamMask] = static_cast<uint8_t>(v >> (8 * k));
    }
}

TVM_INLINE uint8_t lRamRead(const Cpu& c, uint32_t a) { return static_cast<uint8_t>(ram_read1(c.tovix_ram, c.lRam + a)); }
TVM_INLINE int32_t lRamRead2(const Cpu& c, uint32_t a) { return ram_read2(c.tovix_ram, c.lRam + a); }
TVM_INLINE uint32_t lRamRead4(const Cpu& c, uint32_t a) { return ram_read4(c.tovix_ram, c.lRam + a); }
TVM_INLINE void lRamWrite(Cpu& c, uint32_t a, uint32_t v) { ram_write1(c.tovix_ram, c.lRam + a, v); }
TVM_INLINE void lRamWrite2(Cpu& c, uint32_t a, uint32_t v) { ram_write2(c.tovix_ram, c.lRam + a, v); }
TVM_INLINE void lRamWrite4(Cpu& c, uint32_t a, uint32_t v) { ram_write4(c.tovix_ram, c.lRam + a, v); }

// Copies n guest bytes forward, byte after byte where the areas overlap (so
// an overlapping copy repeats the pattern, as a plain forward copy does), and
// wraps at the end of the block.
void lmemcpy(Cpu& c, uint32_t dst, uint32_t src, uint32_t n);

// Host pointer to guest address a and the number of bytes that can be used
// there before the block ends (for bulk operations that clamp to the block).
TVM_INLINE uint8_t* guest_ptr(Cpu& c, uint32_t a, uint32_t* room = nullptr) {
    const uint32_t i = ram_index(c, a);
    if (room) *room = kRamSize - i;
    return c.tovix_ram + i;
}

// Evaluation stack: 64 cells of 4 bytes at eval_stack, 8-bit byte index.
TVM_INLINE uint32_t stack_cell(const Cpu& c) { return lRamRead4(c, c.eval_stack + c.eval_top); }

TVM_INLINE void get_val(Cpu& c) {
    c.eval_top = static_cast<uint8_t>(c.eval_top - 4);
    c.a1 = stack_cell(c);
}
TVM_INLINE void get_val2(Cpu& c) {
    c.eval_top = static_cast<uint8_t>(c.eval_top - 4);
    c.a3 = stack_cell(c);
}
TVM_INLINE void get_vals(Cpu& c) {
    get_val2(c);
    get_val(c);
}
// Pops one cell and returns it (also left in a1).
TVM_INLINE uint32_t pop_cell(Cpu& c) {
    get_val(c);
    return c.a1;
}
TVM_INLINE void push_cell(Cpu& c, uint32_t v) {
    lRamWrite4(c, c.eval_stack + c.eval_top, v);
    c.eval_top = static_cast<uint8_t>(c.eval_top + 4);
}
TVM_INLINE void put_val(Cpu& c) { push_cell(c, c.a1); }

// Bytecode fetch. The padding after the image keeps these inside the buffer.
TVM_INLINE uint8_t getcode(Cpu& c) { return c.code[c.lPC++]; }
TVM_INLINE uint32_t get_code2(Cpu& c) {
    const uint32_t v = c.code[c.lPC] | c.code[c.lPC + 1] << 8;
    c.lPC += 2;
    return v;
}
TVM_INLINE uint32_t get_code3(Cpu& c) {
    const uint32_t v = c.code[c.lPC] | c.code[c.lPC + 1] << 8 | c.code[c.lPC + 2] << 16;
    c.lPC += 3;
    return v;
}
TVM_INLINE void getint(Cpu& c) { c.a3 = static_cast<uint32_t>(static_cast<int32_t>(static_cast<int16_t>(get_code2(c)))); }
TVM_INLINE uint32_t get_vaddr(Cpu& c) { return c.RamBits > 16 ? get_code3(c) : get_code2(c); }
TVM_INLINE uint32_t get_lvaddr(Cpu& c) { return get_vaddr(c) + c.local_bp; }
TVM_INLINE uint32_t get_gaddr(Cpu& c) {
    const uint32_t a = get_vaddr(c);
    c.eval_top = static_cast<uint8_t>(c.eval_top - 4);
    return a + (stack_cell(c) & (c.RamBits > 16 ? 0xFFFFFFu : 0xFFFFu));
}
TVM_INLINE uint32_t get_lgaddr(Cpu& c) { return get_gaddr(c) + c.local_bp; }

// Address width set from the header flag byte.
TVM_INLINE void set_ram_bits(Cpu& c, uint32_t bits) {
    c.RamBits = bits;
    c.addr_mask = bits > 16 ? 0xFFFFFF : 0xFFFF;
}

// Makes img the running image (keeps the fetch cache in step).
void set_image(Cpu& c, std::unique_ptr<TvxImage> img);
