#include "vm/fast.h"

#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/opcode_list.h"
#include "vm/instructions.h"
#include "vm/interp.h"

// The decoded form holds one entry per byte offset of the image, filled when
// the program counter first reaches that offset: a jump anywhere, even into
// the middle of an instruction, finds the entry for exactly the bytes there,
// and a jump target is its own index. Entries are zero (undecoded) until then,
// so the array costs only the pages the program runs through.

namespace {

// Entry kinds. The simple instructions run on registers held in locals;
// everything else runs through the reference handler (Fallback).
#define TVM_FAST_KINDS(X)                                                                                       \
    X(Decode) X(Fallback) X(Nop) X(Const) X(VChar) X(VInt) X(VLong) X(LVChar) X(LVInt) X(LVLong) X(GChar) X(GInt) \
    X(GLong) X(LGChar) X(LGInt) X(LGLong) X(ARef) X(LARef) X(LLong) X(Ax) X(Let) X(Letx) X(PopVal) X(Jmp) X(Jmpe)  \
    X(Jmpn) X(Call) X(AddBp) X(SubBp) X(SetSp) X(Debug) X(Funcid) X(Secret)                                        \
    TVM_BINARY_OPS(TVM_FAST_OP_KIND) TVM_IMMEDIATE_OPS(TVM_FAST_OP_KIND)
#define TVM_FAST_OP_KIND(name, expr) X(name)

enum Kind : uint16_t {
#define X(k) k_##k,
    TVM_FAST_KINDS(X)
#undef X
    kKinds
};

}  // namespace

struct FastOp {
    uint16_t kind;  // Kind; 0 until decoded
    uint8_t parts;  // instructions of the original code it stands for
    uint8_t len;    // bytes of the original code it covers
    uint32_t a, b, c;
};

struct FastCode {
    FastOp* ops = nullptr;  // one per byte of the padded image
    uint32_t size = 0;
    uint32_t bits = 0;  // the address width the operands were decoded for
};

void FastCodeFree::operator()(FastCode* f) const {
    if (!f) return;
    std::free(f->ops);
    delete f;
}

namespace {

using namespace ins;

// The byte code of an instruction, by its mnemonic.
constexpr uint8_t op_code(std::string_view name) {
    constexpr std::pair<uint8_t, std::string_view> table[] = {
#define TVM_NAME(code, mnemonic, operand, fn) {code, #mnemonic},
        TVM_INSTRUCTION_OPCODES(TVM_NAME)
#undef TVM_NAME
    };
    for (const auto& [code, mnemonic] : table)
        if (mnemonic == name) return code;
    throw "no such instruction";
}

// Longest sequence one entry stands for: below this many steps left in the
// budget the reference loop finishes the run, so a limit never falls inside
// an entry.
constexpr uint64_t kMaxParts = 8;

// The decoded form of the running image for the machine's address width,
// made (or made again) on demand; nullptr if it cannot be allocated.
FastCode* fast_code(Machine& m) {
    TvxImage& img = *m.pTOVI;
    if (img.fast && img.fast->bits == m.RamBits) return img.fast.get();
    img.fast.reset();
    const size_t n = img.bytes.size();
    auto* ops = static_cast<FastOp*>(std::calloc(n, sizeof(FastOp)));  // zero pages come lazily
    if (!ops) return nullptr;
    img.fast.reset(new FastCode{ops, static_cast<uint32_t>(n), m.RamBits});
    return img.fast.get();
}

// Decodes the instruction at offset `at` of a padded image of `code_end`
// meaningful bytes.
FastOp decode(const uint8_t* code, uint32_t code_end, uint32_t at, bool wide) {
    FastOp op{k_Fallback, 1, 1, code[at], 0, 0};
    if (at >= code_end) return op;  // the reference handler ends the program
    const uint8_t* p = code + at + 1;
    const uint32_t u16 = p[0] | p[1] << 8, u24 = u16 | p[2] << 16;
    const uint32_t addr = wide ? u24 : u16, alen = wide ? 3 : 2;
    auto with = [&](Kind k, uint32_t operand_bytes, uint32_t a = 0, uint32_t b = 0) {
        op.kind = k;
        op.len = static_cast<uint8_t>(1 + operand_bytes);
        op.a = a;
        op.b = b;
        return op;
    };
    switch (code[at]) {
        case 0x00: case 0x44: case 0x72: return with(k_Nop, 0);
        case 0x71: return with(k_Nop, 1);
        case 0x01: return with(k_Const, 1, p[0]);
        case 0x02: return with(k_Const, 2, sx16(u16));
        case 0x03: return with(k_Const, 4, u16 | static_cast<uint32_t>(p[2] | p[3] << 8) << 16);
        case 0x04: return with(k_VChar, alen, addr);
        case 0x05: return with(k_VInt, alen, addr);
        case 0x06: return with(k_VLong, alen, addr);
        case 0x07: return with(k_GChar, alen, addr);
        case 0x08: return with(k_GInt, alen, addr);
        case 0x09: return with(k_GLong, alen, addr);
        case 0x0A: return with(k_ARef, alen, addr, 1);
        case 0x0B: return with(k_ARef, alen, addr, 2);
        case 0x0C: case 0x17: return with(k_ARef, alen, addr, 0);
        case 0x0E: return with(k_LVChar, alen, addr);
        case 0x0F: return with(k_LVInt, alen, addr);
        case 0x10: return with(k_LVLong, alen, addr);
        case 0x11: return with(k_LGChar, alen, addr);
        case 0x12: return with(k_LGInt, alen, addr);
        case 0x13: return with(k_LGLong, alen, addr);
        case 0x14: return with(k_LARef, alen, addr, 1);
        case 0x15: return with(k_LARef, alen, addr, 2);
        case 0x16: case 0x18: return with(k_LARef, alen, addr, 0);
        case 0x19: return with(k_LLong, alen, addr);
        case 0x35: return with(k_Let, 0);
        case 0x38: return with(k_PopVal, 0);
        case 0x39: return with(k_Jmpe, 3, u24);
        case 0x3A: return with(k_Jmpn, 3, u24);
        case 0x3B: return with(k_Jmp, 3, u24);
        case 0x3C: return with(k_SetSp, alen, addr);
        case 0x3D: return with(k_Call, 3, u24);
        case 0x3E: return with(k_AddBp, alen + 1, addr, 4u * code[at + 1 + alen]);
        case 0x3F: return with(k_SubBp, 0);
        case 0x43: return with(k_Secret, 1, p[0]);
        case 0x6E: return with(k_Letx, 1, p[0]);
        case 0x6F: return with(k_Ax, alen, addr);
        case 0x73: return with(k_Debug, 3, u24);
        case 0x74: return with(k_Funcid, 3, u24);
#define TVM_DECODE_BINARY(name, expr) \
    case op_code(#name): return with(k_##name, 0);
#define TVM_DECODE_IMMEDIATE(name, expr) \
    case op_code(#name): return with(k_##name, 2, 0, sx16(u16));
            TVM_BINARY_OPS(TVM_DECODE_BINARY)
            TVM_IMMEDIATE_OPS(TVM_DECODE_IMMEDIATE)
#undef TVM_DECODE_BINARY
#undef TVM_DECODE_IMMEDIATE
        default:
            break;
    }
    return op;
}

}  // namespace

namespace {

// Runs decoded entries until the budget is nearly used, a call stops the
// loop, or a call changes the running image or its memory base. The
// registers the simple instructions use live in locals meanwhile and go
// back into the machine whenever a reference handler runs and on the way out.
uint64_t run_decoded(Machine& m, FastCode& fc, uint64_t budget) {
    FastOp* const ops = fc.ops;
    const TvxImage* const image = m.pTOVI.get();
    const uint8_t* const code = m.code;
    const uint32_t code_end = m.code_end;
    const bool wide = m.RamBits > 16;
    const uint32_t amask = m.addr_mask;
    uint8_t* const ram = m.tovix_ram;
    const uint32_t base = m.lRam, eval_stack = m.eval_stack;
    const uint32_t es = base + eval_stack;  // the evaluation stack, base added
    uint32_t top = m.eval_top, bp = m.local_bp, sp = m.local_sp, a1 = m.a1, a3 = m.a3, result = m.result;
    FastOp* e = ops + m.lPC;
    uint64_t left = budget;

#define PUSH(v)                                 \
    do {                                        \
        const uint32_t pushed_ = (v);           \
        ram_write4(ram, es + top, pushed_);     \
        top = (top + 4) & 0xFF;                 \
    } while (0)
#define POP() (top = (top - 4) & 0xFF, ram_read4(ram, es + top))
#define SYNC_OUT(pc)                            \
    do {                                        \
        m.eval_top = static_cast<uint8_t>(top); \
        m.local_bp = bp;                        \
        m.local_sp = sp;                        \
        m.a1 = a1;                              \
        m.a3 = a3;                              \
        m.result = result;                      \
        m.lPC = (pc);                           \
    } while (0)
#define NEXT()        \
    do {              \
        e += e->len;  \
        DISPATCH();   \
    } while (0)
#if defined(__GNUC__)
    static const void* const labels[kKinds] = {
#define X(k) &&L_##k,
        TVM_FAST_KINDS(X)
#undef X
    };
#define DISPATCH()                  \
    do {                            \
        if (left < kMaxParts) goto out; \
        left -= e->parts;           \
        goto* labels[e->kind];      \
    } while (0)
#else
#define DISPATCH()                  \
    do {                            \
        if (left < kMaxParts) goto out; \
        left -= e->parts;           \
        goto dispatch;              \
    } while (0)
#endif
#define HANDLER(k) L_##k:
    // A global address: the operand plus the index popped from the stack.
#define GLOBAL() (top = (top - 4) & 0xFF, e->a + (ram_read4(ram, es + top) & amask))
#define REF(x, type) (wide ? ((x) & 0xFFFFFF) | (type) << 24 : ((x) & 0xFFFF) | ((type) & 0xFF) << 16)

    DISPATCH();
#if !defined(__GNUC__)
dispatch:
    switch (e->kind) {
#define X(k) \
    case k_##k: goto L_##k;
        TVM_FAST_KINDS(X)
#undef X
        default: goto L_Fallback;
    }
#endif

    HANDLER(Decode) {
        *e = decode(code, code_end, static_cast<uint32_t>(e - ops), wide);
        left -= e->parts;
#if defined(__GNUC__)
        goto* labels[e->kind];
#else
        goto dispatch;
#endif
    }
    HANDLER(Fallback) {
        // The reference handler, from just after the opcode as it expects.
        const uint32_t at = static_cast<uint32_t>(e - ops);
        const uint8_t b = code[at];
        SYNC_OUT(at + 1);
        (b < 0x80 ? codes[b] : codes2[b & 0x7F])(m);
        if (m.stop != Stop::None || m.pTOVI.get() != image || m.lRam != base || m.eval_stack != eval_stack ||
            m.lPC >= fc.size)
            return budget - left;
        top = m.eval_top, bp = m.local_bp, sp = m.local_sp, a1 = m.a1, a3 = m.a3, result = m.result;
        e = ops + m.lPC;
        DISPATCH();
    }
    HANDLER(Nop) NEXT();
    HANDLER(Const) {
        PUSH(e->a);
        NEXT();
    }
    HANDLER(VChar) {
        PUSH(ram_read1(ram, base + e->a));
        NEXT();
    }
    HANDLER(VInt) {
        PUSH(static_cast<uint32_t>(ram_read2(ram, base + e->a)));
        NEXT();
    }
    HANDLER(VLong) {
        PUSH(ram_read4(ram, base + e->a));
        NEXT();
    }
    HANDLER(LVChar) {
        PUSH(ram_read1(ram, base + e->a + bp));
        NEXT();
    }
    HANDLER(LVInt) {
        PUSH(static_cast<uint32_t>(ram_read2(ram, base + e->a + bp)));
        NEXT();
    }
    HANDLER(LVLong) {
        PUSH(ram_read4(ram, base + e->a + bp));
        NEXT();
    }
    HANDLER(GChar) {
        PUSH(ram_read1(ram, base + GLOBAL()));
        NEXT();
    }
    HANDLER(GInt) {
        PUSH(static_cast<uint32_t>(ram_read2(ram, base + GLOBAL())));
        NEXT();
    }
    HANDLER(GLong) {
        PUSH(ram_read4(ram, base + GLOBAL()));
        NEXT();
    }
    HANDLER(LGChar) {
        PUSH(ram_read1(ram, base + GLOBAL() + bp));
        NEXT();
    }
    HANDLER(LGInt) {
        PUSH(static_cast<uint32_t>(ram_read2(ram, base + GLOBAL() + bp)));
        NEXT();
    }
    HANDLER(LGLong) {
        PUSH(ram_read4(ram, base + GLOBAL() + bp));
        NEXT();
    }
    HANDLER(ARef) {
        const uint32_t g = GLOBAL();
        PUSH(REF(g, e->b));
        NEXT();
    }
    HANDLER(LARef) {
        const uint32_t g = GLOBAL() + bp;
        PUSH(REF(g, e->b));
        NEXT();
    }
    HANDLER(LLong) {
        PUSH(REF(e->a + bp, 0u));
        NEXT();
    }
    HANDLER(Ax) {
        PUSH(GLOBAL());
        NEXT();
    }
    HANDLER(Let) {
        a3 = POP();
        a1 = POP();
        uint32_t ref = a1, type;
        if (wide) {
            type = (ref >> 24) & 0x7F;
            if (ref & 0x80000000u) ref += bp;
            ref &= 0xFFFFFF;
        } else {
            type = (ref >> 16) & 0x7F;
            if (ref & 0x800000u) ref += bp;
            ref &= 0xFFFF;
        }
        if (type == 1)
            ram_write1(ram, base + ref, a3);
        else if (type == 2)
            ram_write2(ram, base + ref, a3);
        else
            ram_write4(ram, base + ref, a3);
        PUSH(a3);
        NEXT();
    }
    HANDLER(Letx) {
        a3 = POP();
        a1 = POP();
        const uint32_t t = e->a, addr = t & 0x80 ? a1 + bp : a1;
        if ((t & 127) == 1)
            ram_write1(ram, base + addr, a3);
        else if ((t & 127) == 2)
            ram_write2(ram, base + addr, a3);
        else
            ram_write4(ram, base + addr, a3);
        PUSH(a3);
        NEXT();
    }
    HANDLER(PopVal) {
        a1 = POP();
        result = a1;
        NEXT();
    }
    // Jumps and calls leave a target outside the image and a pending exit
    // request to the reference handler.
    HANDLER(Jmpe) {
        if (result != 0) NEXT();
        goto L_Jmp;
    }
    HANDLER(Jmpn) {
        if (result == 0) NEXT();
        goto L_Jmp;
    }
    HANDLER(Jmp) {
        if (e->a >= code_end || m.force_exit_tvx) goto L_Fallback;
        e = ops + e->a;
        DISPATCH();
    }
    HANDLER(Call) {
        if (e->a >= code_end || m.force_exit_tvx) goto L_Fallback;
        const uint32_t ret = static_cast<uint32_t>(e - ops) + 4;
        ram_write1(ram, base + sp, ret);
        ram_write1(ram, base + sp + 1, ret >> 8);
        ram_write1(ram, base + sp + 2, ret >> 16);
        e = ops + e->a;
        DISPATCH();
    }
    HANDLER(AddBp) {
        m.eval_top = static_cast<uint8_t>(top);
        m.local_bp = bp;
        m.local_sp = sp;
        enter_frame(m, e->a, e->b);
        top = m.eval_top, bp = m.local_bp, sp = m.local_sp;
        NEXT();
    }
    HANDLER(SubBp) {
        sp = bp;
        const uint32_t ret = ram_read1(ram, base + bp) | ram_read1(ram, base + bp + 1) << 8 |
                             ram_read1(ram, base + bp + 2) << 16;
        uint32_t caller = static_cast<uint16_t>(ram_read2(ram, base + bp + 3));
        if (wide) caller |= ram_read1(ram, base + bp + 5) << 16;
        bp = caller;
        if (m.func_top != 0) {
            --m.func_top;
            if (m.func_top < kFuncStack) m.cur_funcid = m.func_stack[m.func_top];
        }
        if (ret >= code_end) [[unlikely]] {
            SYNC_OUT(static_cast<uint32_t>(e - ops) + 1);
            off_image(m, ret);
            return budget - left;
        }
        e = ops + ret;
        DISPATCH();
    }
    HANDLER(SetSp) {
        sp = e->a;
        NEXT();
    }
    HANDLER(Debug) {
        m.d_line = e->a;
        NEXT();
    }
    HANDLER(Funcid) {
        if (m.func_top < kFuncStack) m.func_stack[m.func_top] = m.cur_funcid;
        if (m.func_top < 0xFFFFFFFFu) ++m.func_top;
        m.cur_funcid = e->a;
        NEXT();
    }
    HANDLER(Secret) {
        m.secret = static_cast<uint8_t>(e->a);
        NEXT();
    }
#define TVM_FAST_BINARY(name, expr)         \
    HANDLER(name) {                         \
        a3 = POP();                         \
        a1 = POP();                         \
        const uint32_t a = a1, b = a3;      \
        (void)a;                            \
        (void)b;                            \
        a1 = (expr);                        \
        PUSH(a1);                           \
        NEXT();                             \
    }
#define TVM_FAST_IMMEDIATE(name, expr)      \
    HANDLER(name) {                         \
        a1 = POP();                         \
        a3 = e->b;                          \
        const uint32_t a = a1, b = a3;      \
        a1 = (expr);                        \
        PUSH(a1);                           \
        NEXT();                             \
    }
    TVM_BINARY_OPS(TVM_FAST_BINARY)
    TVM_IMMEDIATE_OPS(TVM_FAST_IMMEDIATE)

out:
    SYNC_OUT(static_cast<uint32_t>(e - ops));
    return budget - left;
}

}  // namespace

uint64_t vm_run_fast(Machine& m, uint64_t max_steps) {
    uint64_t done = 0;
    while (m.stop == Stop::None && max_steps - done >= kMaxParts) {
        FastCode* fc = m.pTOVI ? fast_code(m) : nullptr;
        if (!fc || m.lPC >= fc->size) break;
        const uint64_t n = run_decoded(m, *fc, max_steps - done);
        if (n == 0) break;
        done += n;
    }
    if (m.stop != Stop::None) return vm_retired(m, done);
    return done + vm_run_steps(m, max_steps - done);
}
