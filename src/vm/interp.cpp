#include "vm/interp.h"

#include "lib/syscalls.h"
#include "vm/instructions.h"
#include "vm/loader.h"
#include "vm/opcode_list.h"

namespace {

// Bytes that are not instructions, and a program counter that ran past the
// end of the image (the padding after it holds 0xFF), end the program.
void undefined_op(Machine& m) {
    const uint32_t at = m.lPC - 1;
    if (at >= m.code_end) {
        off_image(m, at);
        return;
    }
    mylog(m, "Undefined opcode 0x%02X at offset 0x%06X, program ended\n", m.code[at], at);
    bad_exit(m);
}

}  // namespace

void off_image(Machine& m, uint32_t offset) {
    mylog(m, "Program counter left the program image at offset 0x%06X, program ended\n", offset);
    // Park the counter on the padding so nothing runs until the exit resets it.
    m.lPC = m.code_end;
    bad_exit(m);
}

using namespace ins;

// Handlers of the byte codes with the given top bit (0: instructions, 0x80:
// system calls), indexed by the low seven bits; undefined codes end the program.
constexpr std::array<Handler, 128> handlers(int top) {
    std::array<Handler, 128> t{};
    t.fill(undefined_op);
#define TVM_HANDLER(code, mnemonic, operand, fn) \
    if (((code) & 0x80) == top) t[(code) & 0x7F] = fn;
    TVM_OPCODES(TVM_HANDLER)
#undef TVM_HANDLER
    return t;
}

const std::array<Handler, 128> codes = handlers(0);
const std::array<Handler, 128> codes2 = handlers(0x80);

bool vm_start(Machine& m) {
    set_image(m, shell_init(m));
    if (!m.pTOVI) {
        mylog(m, "Error: Failed to load Tovix program, exiting.\n");
        return false;
    }
    write_cmdline(m);
    tvxReset(m);
    return true;
}

// The instructions are dispatched through a switch so that their handlers
// are inlined into the loop; system calls go through their table.
uint64_t vm_run_steps(Machine& m, uint64_t max_steps) {
    uint64_t n = 0;
    while (n < max_steps && !m.force_exit_tvx.load(std::memory_order_relaxed)) {
        const uint8_t b = getcode(m);
        switch (b) {
#define TVM_CASE(code, mnemonic, operand, fn) \
    case code:                               \
        fn(m);                               \
        break;
            TVM_INSTRUCTION_OPCODES(TVM_CASE)
#undef TVM_CASE
            default:
                if (b < 0x80)
                    undefined_op(m);
                else
                    codes2[b & 0x7F](m);
                break;
        }
        ++n;
    }
    return n;
}

void main_loop(Machine& m) {
    if (vm_start(m)) vm_run_steps(m, UINT64_MAX);
}

void wait_no_key(Machine& m) {
    for (;;) {
        bool held = false;
        for (const auto& k : m.cur_keyb) held |= k.load(std::memory_order_relaxed) != 0;
        // A host that will never release the keys (a finished key script)
        // does not keep the machine here.
        if (!held || !m.host->keep_waiting(m)) break;
        m.host->Sleep_os(1);
    }
    m.tvx_key.store(0, std::memory_order_relaxed);
}

void c_exit(Machine& m) {
    if (m.need_refresh.load(std::memory_order_relaxed) && m.task_lev > 0) m.host->HardwareRefresh(m);
    get_val(m);
    const uint32_t code = m.a1;
    wait_no_key(m);
    // What the program's files hold so far reaches the disk, whichever level ends.
    flush_all_files(m);
    if (m.task_lev > 0) {
        exit_nested(m, code);
        return;
    }
    m.exit_code = static_cast<int32_t>(code);
    m.exited = true;
    if (m.single_program_mode)
        m.force_exit_tvx.store(1, std::memory_order_relaxed);
    else
        tvxReset(m);
}

void good_exit(Machine& m) {
    push_cell(m, 0);
    c_exit(m);
}

void bad_exit(Machine& m) {
    push_cell(m, 0xFFFFFFFFu);
    c_exit(m);
}

void div0_err(Machine& m) {
    m.ramuses = 0;
    bad_exit(m);
}
