// Instruction handlers 0x00-0x74. Each reads its operands from the code and
// works on the registers and the evaluation stack. Defined inline so that the
// dispatch tables and any specialised loop share one definition.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include "vm/interp.h"

namespace ins {

TVM_INLINE uint32_t sx16(uint32_t v) { return static_cast<uint32_t>(static_cast<int32_t>(static_cast<int16_t>(v))); }
TVM_INLINE float int_as_float(uint32_t v) { return static_cast<float>(static_cast<int32_t>(v)); }
TVM_INLINE int wide(const Machine& m) { return m.RamBits > 16; }

// Reference cell: (address bits, type bits) packed for the program's width.
TVM_INLINE uint32_t make_ref(const Machine& m, uint32_t addr, uint32_t type) {
    return wide(m) ? (addr & 0xFFFFFF) | type << 24 : (addr & 0xFFFF) | (type & 0xFF) << 16;
}

// Reads the value of a char (1), int (2) or long (other) element.
TVM_INLINE uint32_t read_typed(const Machine& m, uint32_t addr, uint32_t type) {
    if (type == 1) return lRamRead(m, addr);
    if (type == 2) return static_cast<uint32_t>(lRamRead2(m, addr));
    return lRamRead4(m, addr);
}
TVM_INLINE void write_typed(Machine& m, uint32_t addr, uint32_t type, uint32_t v) {
    if (type == 1)
        lRamWrite(m, addr, v);
    else if (type == 2)
        lRamWrite2(m, addr, v);
    else
        lRamWrite4(m, addr, v);
}

// Decodes a reference cell: address (local flag applied) and type.
TVM_INLINE uint32_t ref_addr(const Machine& m, uint32_t ref, uint32_t* type) {
    if (wide(m)) {
        *type = (ref >> 24) & 0x7F;
        if (ref & 0x80000000u) ref += m.local_bp;
        return ref & 0xFFFFFF;
    }
    *type = (ref >> 16) & 0x7F;
    if (ref & 0x800000u) ref += m.local_bp;
    return ref & 0xFFFF;
}

TVM_INLINE void push(Machine& m, uint32_t v) { push_cell(m, v); }
TVM_INLINE uint32_t pop(Machine& m) { return pop_cell(m); }

// Transfers control to code offset t, ending the program if t is outside
// the image.
TVM_INLINE bool jump_to(Machine& m, uint32_t t) {
    if (t >= m.code_end) [[unlikely]] {
        off_image(m, t);
        return false;
    }
    m.lPC = t;
    return true;
}

// ---- loads and pushes ----
TVM_INLINE void sn_err(Machine&) {}
TVM_INLINE void push_char(Machine& m) { push(m, getcode(m)); }
TVM_INLINE void push_int(Machine& m) { push(m, sx16(get_code2(m))); }
TVM_INLINE void push_long(Machine& m) {
    const uint32_t v = get_code2(m);
    push(m, v | get_code2(m) << 16);
}
TVM_INLINE void push_vchar(Machine& m) { push(m, lRamRead(m, get_vaddr(m))); }
TVM_INLINE void push_vint(Machine& m) { push(m, static_cast<uint32_t>(lRamRead2(m, get_vaddr(m)))); }
TVM_INLINE void push_vlong(Machine& m) { push(m, lRamRead4(m, get_vaddr(m))); }
TVM_INLINE void push_gchar(Machine& m) { push(m, lRamRead(m, get_gaddr(m))); }
TVM_INLINE void push_gint(Machine& m) { push(m, static_cast<uint32_t>(lRamRead2(m, get_gaddr(m)))); }
TVM_INLINE void push_glong(Machine& m) { push(m, lRamRead4(m, get_gaddr(m))); }
TVM_INLINE void push_achar(Machine& m) { push(m, make_ref(m, get_gaddr(m), 1)); }
TVM_INLINE void push_aint(Machine& m) { push(m, make_ref(m, get_gaddr(m), 2)); }
TVM_INLINE void push_along(Machine& m) { push(m, make_ref(m, get_gaddr(m), 0)); }
TVM_INLINE void push_lvchar(Machine& m) { push(m, lRamRead(m, get_lvaddr(m))); }
TVM_INLINE void push_lvint(Machine& m) { push(m, static_cast<uint32_t>(lRamRead2(m, get_lvaddr(m)))); }
TVM_INLINE void push_lvlong(Machine& m) { push(m, lRamRead4(m, get_lvaddr(m))); }
TVM_INLINE void push_lgchar(Machine& m) { push(m, lRamRead(m, get_lgaddr(m))); }
TVM_INLINE void push_lgint(Machine& m) { push(m, static_cast<uint32_t>(lRamRead2(m, get_lgaddr(m)))); }
TVM_INLINE void push_lglong(Machine& m) { push(m, lRamRead4(m, get_lgaddr(m))); }
TVM_INLINE void push_lachar(Machine& m) { push(m, make_ref(m, get_lgaddr(m), 1)); }
TVM_INLINE void push_laint(Machine& m) { push(m, make_ref(m, get_lgaddr(m), 2)); }
TVM_INLINE void push_lalong(Machine& m) { push(m, make_ref(m, get_lgaddr(m), 0)); }
TVM_INLINE void push_llong(Machine& m) { push(m, make_ref(m, get_lvaddr(m), 0)); }
TVM_INLINE void push_ax(Machine& m) { push(m, get_gaddr(m)); }

TVM_INLINE void put_string(Machine& m) { push(m, m.string_ptr & m.addr_mask); }

TVM_INLINE void push_string(Machine& m) {
    put_string(m);
    // Copy the literal, decoding with the key; a literal cut off by the end
    // of the image stops there and the next fetch ends the program.
    while (m.lPC < m.code_end) {
        const uint8_t b = static_cast<uint8_t>(getcode(m) ^ m.secret);
        lRamWrite(m, m.string_ptr++, b);
        if (b == 0) break;
    }
    if (m.string_ptr >= m.string_stack + kStringRing) m.string_ptr = m.string_stack;
}

// Retired instructions: push 0 and end the program with -1.
TVM_INLINE void push_text(Machine& m) {
    push(m, 0);
    m.ramuses = 0;
    bad_exit(m);
}

// ---- arithmetic and logic ----
#define TVM_BINARY(name, expr)   \
    TVM_INLINE void name(Machine& m) { \
        get_vals(m);             \
        const uint32_t a = m.a1, b = m.a3; \
        (void)a; (void)b;        \
        m.a1 = (expr);           \
        put_val(m);              \
    }
#define TVM_IMMEDIATE(name, expr) \
    TVM_INLINE void name(Machine& m) { \
        get_val(m);              \
        getint(m);               \
        const uint32_t a = m.a1, b = m.a3; \
        m.a1 = (expr);           \
        put_val(m);              \
    }
#define TVM_TRUTH(c) ((c) ? 0xFFFFFFFFu : 0u)
#define TVM_S(x) static_cast<int32_t>(x)

// Binary operators on a (the cell below) and b (the top cell), and the same
// with b an immediate operand: listed once for every engine.
#define TVM_BINARY_OPS(X)                                 \
    X(cal_add, a + b)                                     \
    X(cal_sub, a - b)                                     \
    X(cal_and, a & b)                                     \
    X(cal_or, a | b)                                      \
    X(cal_xor, a ^ b)                                     \
    X(cal_land, TVM_TRUTH(a != 0 && b != 0))              \
    X(cal_lor, TVM_TRUTH(a != 0 || b != 0))               \
    X(cal_mul, a * b)                                     \
    X(cal_lshift, TVM_S(b) < 0 ? 0u : b == 0 ? a : a << (b & 31)) \
    X(cal_rshift, TVM_S(b) < 0 ? 0u : b == 0 ? a : a >> (b & 31)) \
    X(cal_equ, TVM_TRUTH(a == b))                         \
    X(cal_neq, TVM_TRUTH(a != b))                         \
    X(cal_le, TVM_TRUTH(TVM_S(a) <= TVM_S(b)))            \
    X(cal_ge, TVM_TRUTH(TVM_S(a) >= TVM_S(b)))            \
    X(cal_great, TVM_TRUTH(TVM_S(a) > TVM_S(b)))          \
    X(cal_less, TVM_TRUTH(TVM_S(a) < TVM_S(b)))
#define TVM_IMMEDIATE_OPS(X)                              \
    X(cal_qadd, a + b)                                    \
    X(cal_qsub, a - b)                                    \
    X(cal_qmul, a * b)                                    \
    X(cal_qlshift, a << (b & 31))                         \
    X(cal_qrshift, a >> (b & 31))                         \
    X(cal_qequ, TVM_TRUTH(a == b))                        \
    X(cal_qneq, TVM_TRUTH(a != b))                        \
    X(cal_qgreat, TVM_TRUTH(TVM_S(a) > TVM_S(b)))         \
    X(cal_qless, TVM_TRUTH(TVM_S(a) < TVM_S(b)))          \
    X(cal_qge, TVM_TRUTH(TVM_S(a) >= TVM_S(b)))           \
    X(cal_qle, TVM_TRUTH(TVM_S(a) <= TVM_S(b)))
TVM_BINARY_OPS(TVM_BINARY)
TVM_IMMEDIATE_OPS(TVM_IMMEDIATE)

// Truncating division; the one overflowing case wraps instead of trapping.
TVM_INLINE uint32_t quotient(uint32_t a, uint32_t b) {
    if (a == 0x80000000u && b == 0xFFFFFFFFu) return a;
    return static_cast<uint32_t>(TVM_S(a) / TVM_S(b));
}
TVM_INLINE uint32_t remainder(uint32_t a, uint32_t b) {
    if (b == 0xFFFFFFFFu) return 0;
    return static_cast<uint32_t>(TVM_S(a) % TVM_S(b));
}

// After a division by zero the error exit has run (and left the exit code in
// a1); the handler still pushes a1 onto whatever stack is now current.
TVM_INLINE void divide(Machine& m, uint32_t (*op)(uint32_t, uint32_t)) {
    if (m.a3 == 0) {
        div0_err(m);
    } else {
        m.a1 = op(m.a1, m.a3);
    }
    put_val(m);
}
TVM_INLINE void cal_div(Machine& m) {
    get_vals(m);
    divide(m, quotient);
}
TVM_INLINE void cal_mod(Machine& m) {
    get_vals(m);
    divide(m, remainder);
}
TVM_INLINE void cal_qdiv(Machine& m) {
    get_val(m);
    getint(m);
    divide(m, quotient);
}
TVM_INLINE void cal_qmod(Machine& m) {
    get_val(m);
    getint(m);
    divide(m, remainder);
}

TVM_INLINE void push_sub0(Machine& m) {
    get_val(m);
    m.a1 = 0u - m.a1;
    put_val(m);
}
TVM_INLINE void push_not(Machine& m) {
    get_val(m);
    m.a1 = ~m.a1;
    put_val(m);
}
TVM_INLINE void cal_lnot(Machine& m) {
    get_val(m);
    m.a1 = TVM_TRUTH(m.a1 == 0);
    put_val(m);
}

// ---- floats (cells hold single-precision bit patterns) ----
#define TVM_FLOAT(name, left, op, right)        \
    TVM_INLINE void name(Machine& m) {               \
        get_vals(m);                             \
        m.a1 = f2i(left(m.a1) op right(m.a3));   \
        put_val(m);                              \
    }
#define TVM_FCMP(name, op)                       \
    TVM_INLINE void name(Machine& m) {               \
        get_vals(m);                             \
        m.a1 = TVM_TRUTH(i2f(m.a1) op i2f(m.a3)); \
        put_val(m);                              \
    }

TVM_FLOAT(cal_addff, i2f, +, i2f)
TVM_FLOAT(cal_addf, i2f, +, int_as_float)
TVM_FLOAT(cal_add0f, int_as_float, +, i2f)
TVM_FLOAT(cal_subff, i2f, -, i2f)
TVM_FLOAT(cal_subf, i2f, -, int_as_float)
TVM_FLOAT(cal_sub0f, int_as_float, -, i2f)
TVM_FLOAT(cal_mulff, i2f, *, i2f)
TVM_FLOAT(cal_mulf, i2f, *, int_as_float)
TVM_FLOAT(cal_mul0f, int_as_float, *, i2f)
TVM_FCMP(cal_lessf, <)
TVM_FCMP(cal_greatf, >)
TVM_FCMP(cal_equf, ==)
TVM_FCMP(cal_neqf, !=)
TVM_FCMP(cal_lef, <=)
TVM_FCMP(cal_gef, >=)

// Only an all-zero divisor cell counts as zero (-0.0 divides to infinity);
// after the error exit the division is still done and pushed.
template <float (*Left)(uint32_t), float (*Right)(uint32_t)>
TVM_INLINE void float_divide(Machine& m) {
    get_vals(m);
    if (m.a3 == 0) div0_err(m);
    m.a1 = f2i(Left(m.a1) / Right(m.a3));
    put_val(m);
}
TVM_INLINE void cal_divff(Machine& m) { float_divide<i2f, i2f>(m); }
TVM_INLINE void cal_divf(Machine& m) { float_divide<i2f, int_as_float>(m); }
TVM_INLINE void cal_div0f(Machine& m) { float_divide<int_as_float, i2f>(m); }

TVM_INLINE void push_sub0f(Machine& m) {
    get_val(m);
    m.a1 = f2i(0.0f - i2f(m.a1));
    put_val(m);
}
TVM_INLINE void c_f0(Machine& m) {
    get_val(m);
    m.a1 &= 0x7FFFFFFFu;
    put_val(m);
}
TVM_INLINE void c_icf(Machine& m) {
    get_val(m);
    m.a1 = f2i(int_as_float(m.a1));
    put_val(m);
}
// NaN and values outside the 32-bit range give 0x80000000.
TVM_INLINE void c_fci(Machine& m) {
    get_val(m);
    const float f = i2f(m.a1);
    if (std::isnan(f) || f >= 2147483648.0f || f < -2147483648.0f)
        m.a1 = 0x80000000u;
    else
        m.a1 = static_cast<uint32_t>(static_cast<int32_t>(f));
    put_val(m);
}
TVM_INLINE void c_lcc(Machine& m) {
    get_val(m);
    m.a1 &= 0xFF;
    put_val(m);
}
TVM_INLINE void c_lci(Machine& m) {
    get_val(m);
    m.a1 = sx16(m.a1);
    put_val(m);
}

// ---- increment and decrement ----
// op: 0 pre-increment, 1 pre-decrement, 2 post-increment, 3 post-decrement.
TVM_INLINE void inc_save(Machine& m, uint32_t addr, uint32_t type, int op) {
    const uint32_t old = read_typed(m, addr, type);
    const uint32_t now = (op & 1) ? old - 1 : old + 1;
    push(m, op < 2 ? now : old);
    write_typed(m, addr, type, now);
}
TVM_INLINE void inc_dec_com(Machine& m, int op) {
    get_val2(m);
    uint32_t type;
    const uint32_t addr = ref_addr(m, m.a3, &type);
    inc_save(m, addr, type, op);
}
TVM_INLINE void cal_inc(Machine& m) { inc_dec_com(m, 0); }
TVM_INLINE void cal_dec(Machine& m) { inc_dec_com(m, 1); }
TVM_INLINE void cal_INC(Machine& m) { inc_dec_com(m, 2); }
TVM_INLINE void cal_DEC(Machine& m) { inc_dec_com(m, 3); }
TVM_INLINE void cal_idx(Machine& m) {
    get_val2(m);
    const uint8_t mode = getcode(m);
    uint32_t addr = m.a3;
    if (mode & 0x80) addr += m.local_bp;
    inc_save(m, addr, mode & 31u, (mode >> 5) & 3);
}

// ---- assignment, pointers ----
TVM_INLINE void c_let(Machine& m) {
    get_vals(m);  // a3 value, a1 reference
    uint32_t type;
    const uint32_t addr = ref_addr(m, m.a1, &type);
    write_typed(m, addr, type, m.a3);
    push(m, m.a3);
}
TVM_INLINE void c_letx(Machine& m) {
    get_vals(m);  // a3 value, a1 address
    const uint8_t t = getcode(m);
    uint32_t addr = m.a1;
    if (t & 0x80) addr += m.local_bp;
    write_typed(m, addr, t & 127u, m.a3);
    push(m, m.a3);
}
TVM_INLINE void c_ptr(Machine& m) { push(m, lRamRead(m, pop(m) & m.addr_mask)); }
TVM_INLINE void c_iptr(Machine& m) { push(m, static_cast<uint32_t>(lRamRead2(m, pop(m) & m.addr_mask))); }
TVM_INLINE void c_lptr(Machine& m) { push(m, lRamRead4(m, pop(m) & m.addr_mask)); }
TVM_INLINE void c_cptr(Machine& m) { push(m, make_ref(m, pop(m), 1)); }
TVM_INLINE void c_ciptr(Machine& m) { push(m, make_ref(m, pop(m), 2)); }
TVM_INLINE void c_clptr(Machine& m) { push(m, make_ref(m, pop(m), 4)); }
TVM_INLINE void pop_val(Machine& m) { m.result = pop(m); }

// ---- control flow ----
TVM_INLINE void c_jmp(Machine& m) {
    const uint32_t t = get_code3(m);
    if (!jump_to(m, t)) return;
    if (CheckExitKey(m)) good_exit(m);
}
TVM_INLINE void c_jmpe(Machine& m) {
    if (m.result == 0)
        c_jmp(m);
    else
        m.lPC += 3;
}
TVM_INLINE void c_jmpn(Machine& m) {
    if (m.result != 0)
        c_jmp(m);
    else
        m.lPC += 3;
}
TVM_INLINE void c_call(Machine& m) {
    const uint32_t ret = m.lPC + 3;
    lRamWrite(m, m.local_sp, ret);
    lRamWrite(m, m.local_sp + 1, ret >> 8);
    lRamWrite(m, m.local_sp + 2, ret >> 16);
    if (!jump_to(m, get_code3(m))) return;
    if (CheckExitKey(m)) good_exit(m);
}
// Makes a frame of `size` bytes at the call stack pointer, linked to the
// caller's, and moves `bytes` of arguments from the evaluation stack into it.
TVM_INLINE void enter_frame(Machine& m, uint32_t size, uint32_t bytes) {
    const uint32_t caller = m.local_bp;
    m.local_bp = m.local_sp;
    lRamWrite2(m, m.local_bp + 3, caller);
    if (wide(m)) lRamWrite(m, m.local_bp + 5, caller >> 16);
    m.local_sp = m.local_bp + size;
    const uint32_t k = bytes;
    if (k == 0) return;
    m.eval_top = static_cast<uint8_t>(m.eval_top - k);
    const uint32_t dst = m.local_bp + (m.RamBits == 32 ? 8u : m.RamBits == 16 ? 5u : 6u);
    const uint32_t from = ram_index(m, m.eval_stack + m.eval_top), to = ram_index(m, dst);
    if (m.eval_top + k <= 256 && from + k <= kRamSize && to + k <= kRamSize && (to + k <= from || from + k <= to)) {
        std::memcpy(m.tovix_ram + to, m.tovix_ram + from, k);  // the usual case: nothing wraps or overlaps
        return;
    }
    uint8_t src = m.eval_top;
    for (uint32_t i = 0; i < k; ++i) lRamWrite(m, dst + i, lRamRead(m, m.eval_stack + src++));
}
TVM_INLINE void add_bp(Machine& m) {
    const uint32_t size = get_vaddr(m);
    enter_frame(m, size, 4u * getcode(m));
}
TVM_INLINE void sub_bp(Machine& m) {
    m.local_sp = m.local_bp;
    const uint32_t ret = lRamRead(m, m.local_bp) | lRamRead(m, m.local_bp + 1) << 8 | lRamRead(m, m.local_bp + 2) << 16;
    uint32_t bp = static_cast<uint16_t>(lRamRead2(m, m.local_bp + 3));
    if (wide(m)) bp |= static_cast<uint32_t>(lRamRead(m, m.local_bp + 5)) << 16;
    m.local_bp = bp;
    if (m.func_top != 0) {
        --m.func_top;
        if (m.func_top < kFuncStack) m.cur_funcid = m.func_stack[m.func_top];
    }
    jump_to(m, ret);
}
TVM_INLINE void set_sp(Machine& m) { m.local_sp = get_vaddr(m); }
TVM_INLINE void c_preset(Machine& m) {
    const uint32_t addr = get_vaddr(m);
    uint32_t n = get_code2(m);
    // Data cut off by the end of the image is copied as far as it goes.
    if (m.lPC >= m.code_end)
        n = 0;
    else
        n = std::min(n, m.code_end - m.lPC);
    for (uint32_t i = 0; i < n; ++i) lRamWrite(m, addr + i, m.code[m.lPC + i]);
    m.lPC += n;
}
TVM_INLINE void c_secret(Machine& m) { m.secret = getcode(m); }
TVM_INLINE void c_loadall(Machine&) {}
TVM_INLINE void c_pass(Machine& m) { ++m.lPC; }
TVM_INLINE void c_void(Machine&) {}
TVM_INLINE void c_debug(Machine& m) { m.d_line = get_code3(m); }
TVM_INLINE void c_funcid(Machine& m) {
    const uint32_t id = get_code3(m);
    if (m.func_top < kFuncStack) m.func_stack[m.func_top] = m.cur_funcid;
    if (m.func_top < 0xFFFFFFFFu) ++m.func_top;
    m.cur_funcid = id;
}

#undef TVM_BINARY
#undef TVM_IMMEDIATE
#undef TVM_FLOAT
#undef TVM_FCMP

}  // namespace ins
