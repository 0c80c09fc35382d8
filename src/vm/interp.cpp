#include "vm/interp.h"

#include "lib/syscalls.h"
#include "vm/instructions.h"
#include "vm/loader.h"
#include "base/opcode_list.h"

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
    m.stop = Stop::None;
    m.wait = WaitState{};
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
    while (n < max_steps && m.stop == Stop::None) {
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
    return vm_retired(m, n);
}

uint64_t vm_run_traced(Machine& m, uint64_t max_steps, const std::function<void(const Machine&)>& trace) {
    uint64_t n = 0;
    while (n < max_steps && m.stop == Stop::None) {
        // A key call that waited and runs again was traced the first time.
        if (!m.wait_retry) trace(m);
        m.wait_retry = false;
        vm_step(m);
        ++n;
    }
    return vm_retired(m, n);
}

bool wait_no_key(Machine& m, AfterKeysUp then) {
    if (!any_key_held(m)) {
        m.tvx_key = 0;
        return true;
    }
    m.wait.kind = WaitKind::KeysUp;
    m.wait.then = then;
    m.stop = Stop::Wait;
    return false;
}

bool vm_resume(Machine& m) {
    switch (m.wait.kind) {
        case WaitKind::None: return true;
        case WaitKind::Key:
            // The waiting call runs again from its opcode.
            if (!(m.tvx_key & 0x80)) return false;
            m.wait_retry = true;
            break;
        case WaitKind::Time:
            if (!m.force_exit_tvx && guest_now(m) < m.wait.until_ns) return false;
            break;
        case WaitKind::KeysUp: {
            if (any_key_held(m)) return false;
            m.tvx_key = 0;
            WaitState w = std::move(m.wait);
            m.wait = WaitState{};
            if (w.then == AfterKeysUp::Exit)
                finish_exit(m, w.exit_code);
            else
                finish_exec(m, w.child);
            return true;
        }
    }
    m.wait = WaitState{};
    return true;
}

void c_exit(Machine& m) {
    if (m.need_refresh && m.task_lev > 0) HardwareRefresh(m);
    const uint32_t code = pop_cell(m);
    if (wait_no_key(m, AfterKeysUp::Exit))
        finish_exit(m, code);
    else
        m.wait.exit_code = code;
}

void finish_exit(Machine& m, uint32_t code) {
    // What the program's files hold so far reaches the disk, whichever level ends.
    flush_all_files(m);
    if (m.task_lev > 0) {
        exit_nested(m, code);
        return;
    }
    m.exit_code = static_cast<int32_t>(code);
    m.exited = true;
    if (m.single_program_mode)
        m.stop = Stop::Ended;
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
