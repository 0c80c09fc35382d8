#include "vm/fast.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <type_traits>
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
// everything else runs through the reference handler (Fallback). The fused
// kinds stand for the sequences compiled programs run most, named by their
// parts: LV a frame load (push_lvlong), LVLV two of them, Loc the assignment
// `local = local op k`, PBe/PBn pop_val and a conditional jump (c_jmpe or
// c_jmpn), LetPop c_let and pop_val. Const1 is push_char, Const the wider
// constants; ConstARef a push_char index and an address reference,
// ConstARefV the same and a global load (the start of `g = g op ...`);
// CallEnter c_call into an add_bp; LVSubBp `return local`. Loc_op_TestE/N
// is the tail of a counted loop: `local = local op k` and a comparison of two
// frame cells deciding a c_jmpe/c_jmpn. GAdd_op/GSub_op is the statement
// `g = h + (x op y)` (or minus) on a long global and two frame cells.
#define TVM_FAST_KINDS(X)                                                                                      \
    X(Decode) X(Fallback) X(Nop) X(Const) X(Const1) X(VChar) X(VInt) X(VLong) X(LVChar) X(LVInt) X(LVLong)     \
    X(GChar) X(GInt) X(GLong) X(LGChar) X(LGInt) X(LGLong) X(ARef) X(LARef) X(LLong) X(Ax) X(Let) X(Letx)      \
    X(PopVal) X(Jmp) X(Jmpe) X(Jmpn) X(Call) X(AddBp) X(SubBp) X(SetSp) X(Debug) X(Funcid) X(Secret) X(LetPop) \
    X(PopJmpe) X(PopJmpn) X(ConstARef) X(ConstLARef) X(ConstARefV) X(CallEnter) X(LVSubBp)
// The kinds made for each operator, by a macro named P_IMM / P_BIN.
#define TVM_FAST_OPERATOR_KINDS(P) TVM_IMMEDIATE_OPS(P##_IMM) TVM_BINARY_OPS(P##_BIN)

enum Kind : uint16_t {
#define X(k) k_##k,
#define ENUM_IMM(n, expr) \
    k_##n, k_LV_##n, k_##n##_PBe, k_##n##_PBn, k_LV_##n##_PBe, k_LV_##n##_PBn, k_Loc_##n, k_Loc_##n##_TestE, k_Loc_##n##_TestN,
#define ENUM_BIN(n, expr)                                                                                          \
    k_##n, k_LV_##n, k_LVLV_##n, k_##n##_PBe, k_##n##_PBn, k_LVLV_##n##_PBe, k_LVLV_##n##_PBn, k_##n##_LetPop, k_GAdd_##n, \
        k_GSub_##n,
    TVM_FAST_KINDS(X) TVM_FAST_OPERATOR_KINDS(ENUM)
#undef X
    kKinds
};

// The fused kinds of each operator, for the decoder.
struct ImmKinds {
    uint16_t single, lv, pbe, pbn, lv_pbe, lv_pbn, loc, loc_teste, loc_testn;
};
struct BinKinds {
    uint16_t single, lv, lvlv, pbe, pbn, lvlv_pbe, lvlv_pbn, letpop, gadd, gsub;
};
#define TABLE_IMM(n, expr) {ENUM_IMM(n, expr)},
#define TABLE_BIN(n, expr) {ENUM_BIN(n, expr)},
constexpr ImmKinds kImmKinds[] = {TVM_IMMEDIATE_OPS(TABLE_IMM)};
constexpr BinKinds kBinKinds[] = {TVM_BINARY_OPS(TABLE_BIN)};
#undef TABLE_IMM
#undef TABLE_BIN

// The bytes an entry of kind k covers when the kind fixes them (0 when its
// instructions come in several lengths). Handlers step over such entries by
// a constant, so that finding the next entry does not wait for a load from
// this one: that chain of loads bounds how fast entries can follow.
constexpr uint32_t kind_len(uint16_t k, bool wide) {
    const uint32_t ad = wide ? 4 : 3;         // an instruction with an address operand
    constexpr uint32_t imm = 3, branch = 4;  // an immediate operator; c_jmpe, c_jmpn
    switch (k) {
        case k_VChar: case k_VInt: case k_VLong: case k_LVChar: case k_LVInt: case k_LVLong: case k_GChar:
        case k_GInt: case k_GLong: case k_LGChar: case k_LGInt: case k_LGLong: case k_ARef: case k_LARef:
        case k_LLong: case k_Ax: case k_SetSp:
            return ad;
        case k_AddBp: return ad + 1;
        case k_Let: case k_PopVal: return 1;
        case k_Const1: case k_Letx: case k_Secret: case k_LetPop: return 2;
        case k_ConstARef: case k_ConstLARef: return 2 + ad;
        case k_ConstARefV: return 2 + 2 * ad;
        case k_LVSubBp: return ad + 1;
        case k_Debug: case k_Funcid: case k_Jmpe: case k_Jmpn: return branch;
        case k_PopJmpe: case k_PopJmpn: return 1 + branch;
        default: break;
    }
    for (const ImmKinds& q : kImmKinds) {
        if (k == q.single) return imm;
        if (k == q.lv) return ad + imm;
        if (k == q.pbe || k == q.pbn) return imm + 1 + branch;
        if (k == q.lv_pbe || k == q.lv_pbn) return ad + imm + 1 + branch;
        if (k == q.loc) return 2 * ad + imm + 2;
        if (k == q.loc_teste || k == q.loc_testn) return (2 * ad + imm + 2) + (2 * ad + 2 + branch);
    }
    for (const BinKinds& o : kBinKinds) {
        if (k == o.single) return 1;
        if (k == o.lv) return ad + 1;
        if (k == o.lvlv) return 2 * ad + 1;
        if (k == o.pbe || k == o.pbn) return 2 + branch;
        if (k == o.lvlv_pbe || k == o.lvlv_pbn) return 2 * ad + 2 + branch;
        if (k == o.letpop) return 3;
        if (k == o.gadd || k == o.gsub) return 2 + 4 * ad + 4;
    }
    return 0;
}

// The original instructions an entry of kind k stands for, which the kind
// fixes: a handler counts them against the budget by a constant.
constexpr int64_t kind_parts(uint16_t k) {
    switch (k) {
        case k_Decode: return 0;
        case k_LetPop: case k_PopJmpe: case k_PopJmpn: case k_ConstARef: case k_ConstLARef: case k_CallEnter:
        case k_LVSubBp:
            return 2;
        case k_ConstARefV: return 3;
        default: break;
    }
    for (const ImmKinds& q : kImmKinds) {
        if (k == q.lv) return 2;
        if (k == q.pbe || k == q.pbn) return 3;
        if (k == q.lv_pbe || k == q.lv_pbn) return 4;
        if (k == q.loc) return 5;
        if (k == q.loc_teste || k == q.loc_testn) return 10;
    }
    for (const BinKinds& o : kBinKinds) {
        if (k == o.lv) return 2;
        if (k == o.lvlv || k == o.pbe || k == o.pbn || k == o.letpop) return 3;
        if (k == o.lvlv_pbe || k == o.lvlv_pbn) return 5;
        if (k == o.gadd || k == o.gsub) return 9;
    }
    return 1;
}

}  // namespace

struct FastOp {
    uint16_t kind;  // Kind; 0 until decoded
    uint8_t parts;  // instructions of the original code it stands for
    uint8_t len;    // bytes of the original code it covers
    uint32_t a, b, c;  // operands: addresses, immediates, frame size
    uint32_t d;        // jump or call target
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
constexpr uint64_t kMaxParts = 10;

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

// Decodes the one instruction at offset `at` (below code_end) of a padded
// image.
FastOp decode_one(const uint8_t* code, uint32_t at, bool wide) {
    FastOp op{k_Fallback, 1, 1, code[at], 0, 0, 0};
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
    auto jump = [&](Kind k) {
        op = with(k, 3);
        op.d = u24;
        return op;
    };
    switch (code[at]) {
        case 0x00: case 0x44: case 0x72: return with(k_Nop, 0);
        case 0x71: return with(k_Nop, 1);
        case 0x01: return with(k_Const1, 1, p[0]);
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
        case 0x39: return jump(k_Jmpe);
        case 0x3A: return jump(k_Jmpn);
        case 0x3B: return jump(k_Jmp);
        case 0x3C: return with(k_SetSp, alen, addr);
        case 0x3D: return jump(k_Call);
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

// A comparison as the outcomes it is true for: bit 0 less, bit 1 equal, bit
// 2 greater (signed); 0 for other kinds.
constexpr uint32_t compare_mask(uint16_t kind) {
    switch (kind) {
        case k_cal_less: return 1;
        case k_cal_equ: return 2;
        case k_cal_le: return 3;
        case k_cal_great: return 4;
        case k_cal_neq: return 5;
        case k_cal_ge: return 6;
        default: return 0;
    }
}

const ImmKinds* imm_kinds(uint16_t kind) {
    for (const ImmKinds& k : kImmKinds)
        if (k.single == kind) return &k;
    return nullptr;
}
const BinKinds* bin_kinds(uint16_t kind) {
    for (const BinKinds& k : kBinKinds)
        if (k.single == kind) return &k;
    return nullptr;
}

// Decodes the entry at offset `at` of a padded image of `code_end`
// meaningful bytes: the instruction there, fused with the ones after it
// when they form one of the common sequences. Fused jumps and calls only go
// to targets inside the image, so that running them never needs the
// reference handler for that.
FastOp decode_parts(const uint8_t* code, uint32_t code_end, uint32_t at, bool wide) {
    if (at >= code_end) return FastOp{k_Fallback, 1, 1, code[at], 0, 0, 0};  // the reference handler ends the program
    constexpr int kLook = 10;
    FastOp s[kLook] = {};
    int n = 0;
    for (uint32_t pos = at; n < kLook && pos < code_end; pos += s[n++].len) {
        s[n] = decode_one(code, pos, wide);
        if (s[n].kind == k_Fallback) break;
    }
    auto is = [&](int i, uint16_t kind) { return i < n && s[i].kind == kind; };
    auto branch = [&](int i) { return (is(i, k_Jmpe) || is(i, k_Jmpn)) && s[i].d < code_end; };
    auto fused = [&](uint16_t kind, int parts, uint32_t a = 0, uint32_t b = 0, uint32_t c = 0, uint32_t d = 0) {
        uint32_t len = 0;
        for (int i = 0; i < parts; ++i) len += s[i].len;
        return FastOp{kind, static_cast<uint8_t>(parts), static_cast<uint8_t>(len), a, b, c, d};
    };
    // The kind for a conditional jump at part i: pbe after c_jmpe, else pbn.
    auto pick = [&](int i, uint16_t pbe, uint16_t pbn) { return s[i].kind == k_Jmpe ? pbe : pbn; };
    if (n == 0) return decode_one(code, at, wide);
    const FastOp& f = s[0];
    if (f.kind == k_LLong && is(1, k_LVLong) && n > 4 && is(3, k_Let) && is(4, k_PopVal))
        if (const ImmKinds* q = imm_kinds(s[2].kind)) {
            // The loop's test after it, with the four frame offsets packed
            // two to a field.
            const uint32_t mask = n > 7 ? compare_mask(s[7].kind) : 0;
            if (mask && is(5, k_LVLong) && is(6, k_LVLong) && is(8, k_PopVal) && branch(9) &&
                (f.a | s[1].a | s[5].a | s[6].a) < 0x10000)
                return fused(pick(9, q->loc_teste, q->loc_testn), 10, f.a | s[1].a << 16, s[5].a | s[6].a << 16,
                             (s[2].b & 0xFFFF) | mask << 16, s[9].d);
            return fused(q->loc, 5, f.a, s[1].a, s[2].b);
        }
    if (f.kind == k_LVLong && is(1, k_SubBp)) return fused(k_LVSubBp, 2, f.a);
    if (f.kind == k_LVLong) {
        if (is(1, k_LVLong) && n > 2)
            if (const BinKinds* o = bin_kinds(s[2].kind)) {
                if (is(3, k_PopVal) && branch(4)) return fused(pick(4, o->lvlv_pbe, o->lvlv_pbn), 5, f.a, s[1].a, 0, s[4].d);
                return fused(o->lvlv, 3, f.a, s[1].a);
            }
        if (n > 1) {
            if (const ImmKinds* q = imm_kinds(s[1].kind)) {
                if (is(2, k_PopVal) && branch(3)) return fused(pick(3, q->lv_pbe, q->lv_pbn), 4, f.a, s[1].b, 0, s[3].d);
                return fused(q->lv, 2, f.a, s[1].b);
            }
            if (const BinKinds* o = bin_kinds(s[1].kind)) return fused(o->lv, 2, f.a);
        }
    }
    if (const ImmKinds* q = imm_kinds(f.kind); q && is(1, k_PopVal) && branch(2))
        return fused(pick(2, q->pbe, q->pbn), 3, 0, f.b, 0, s[2].d);
    if (const BinKinds* o = bin_kinds(f.kind)) {
        if (is(1, k_PopVal) && branch(2)) return fused(pick(2, o->pbe, o->pbn), 3, 0, 0, 0, s[2].d);
        if (is(1, k_Let) && is(2, k_PopVal)) return fused(o->letpop, 3);
    }
    if (f.kind == k_PopVal && branch(1)) return fused(pick(1, k_PopJmpe, k_PopJmpn), 2, 0, 0, 0, s[1].d);
    if (f.kind == k_Let && is(1, k_PopVal)) return fused(k_LetPop, 2);
    if (f.kind == k_Const1 && is(1, k_ARef) && is(2, k_VLong)) {
        // g = h + (x op y) or g = h - (x op y), g a long: the store's
        // address is known here; the two frame offsets packed in one field.
        if (is(3, k_LVLong) && is(4, k_LVLong) && n > 8 && s[1].b == 0 && (is(6, k_cal_add) || is(6, k_cal_sub)) &&
            is(7, k_Let) && is(8, k_PopVal) && (s[3].a | s[4].a) < 0x10000)
            if (const BinKinds* o = bin_kinds(s[5].kind))
                return fused(is(6, k_cal_add) ? o->gadd : o->gsub, 9, s[1].a | f.a << 24, s[2].a, s[3].a | s[4].a << 16);
        return fused(k_ConstARefV, 3, f.a, s[1].a, s[1].b, s[2].a);
    }
    if (f.kind == k_Const1 && (is(1, k_ARef) || is(1, k_LARef)))
        return fused(s[1].kind == k_ARef ? k_ConstARef : k_ConstLARef, 2, f.a, s[1].a, s[1].b);
    if (constexpr uint8_t kAddBp = op_code("add_bp"); f.kind == k_Call && f.d < code_end && code[f.d] == kAddBp) {
        const FastOp enter = decode_one(code, f.d, wide);
        FastOp op = fused(k_CallEnter, 1, enter.a, enter.b, f.d + enter.len, f.d);
        op.parts = 2;  // the add_bp at the target runs with the call
        return op;
    }
    return f;
}

// The entry at `at`. One whose length or count its handler would take
// wrongly would be a decoder fault: debug builds (the sanitizer suite) stop
// on it, others run it through the reference handler.
FastOp decode(const uint8_t* code, uint32_t code_end, uint32_t at, bool wide) {
    const FastOp op = decode_parts(code, code_end, at, wide);
    const uint32_t fixed = kind_len(op.kind, wide);
    const bool as_promised = (fixed == 0 || fixed == op.len) && op.parts == kind_parts(op.kind);
    assert(as_promised);
    if (!as_promised) return FastOp{k_Fallback, 1, 1, code[at], 0, 0, 0};
    return op;
}

// A stack cell in place.
TVM_INLINE uint32_t cell(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

// The evaluation stack's 256 bytes (and the 3 bytes a cell at its last
// offset reaches) lie in one piece of the memory block; the decoded code
// runs only then, so that a cell is a plain 4-byte access.
bool flat_stack(const Machine& m) { return ((m.lRam + m.eval_stack) & kRamMask) <= kRamSize - 259; }

// Runs decoded entries until the budget is nearly used, a call stops the
// loop, or a call changes the running image or its memory base. The
// registers the simple instructions use live in locals meanwhile and go
// back into the machine whenever a reference handler runs and on the way out.
template <bool wide>
uint64_t run_decoded(Machine& m, FastCode& fc, uint64_t max_steps) {
    const uint64_t budget = std::min<uint64_t>(max_steps, uint64_t{1} << 62);  // counted in a signed value
    FastOp* const ops = fc.ops;
    const TvxImage* const image = m.pTOVI.get();
    const uint8_t* const code = m.code;
    const uint32_t code_end = m.code_end;
    const uint32_t amask = m.addr_mask;
    uint8_t* const ram = m.tovix_ram;
    const uint32_t base = m.lRam, eval_stack = m.eval_stack;
    const uint32_t es = base + eval_stack;  // the evaluation stack, base added
    // The stack top as a byte: its wrap-around is the byte's own, so that
    // the compiler sees the slots a handler uses as offsets from one value
    // instead of a chain of masked updates.
    uint8_t top = m.eval_top;
    uint32_t bp = m.local_bp, sp = m.local_sp, a1 = m.a1, a3 = m.a3, result = m.result;
    uint32_t fb = base + bp;  // the frame, base added: what frame loads start from
    // Where add_bp puts the arguments in a new frame.
    const uint32_t args_at = m.RamBits == 32 ? 8u : m.RamBits == 16 ? 5u : 6u;
    FastOp* e = ops + m.lPC;
    // The budget left less kMaxParts: every handler counts its parts off and
    // goes on only while this stays non-negative, so an entry never starts
    // with fewer steps left than it stands for.
    int64_t spare = static_cast<int64_t>(budget - kMaxParts);
#define DONE() (budget - static_cast<uint64_t>(spare + static_cast<int64_t>(kMaxParts)))

    uint8_t* const stack = ram + (es & kRamMask);
#define PUSH(v)                                      \
    do {                                             \
        const uint32_t pushed_ = (v);                \
        std::memcpy(stack + top, &pushed_, 4);       \
        top = static_cast<uint8_t>(top + 4);         \
    } while (0)
#define POP() (top = static_cast<uint8_t>(top - 4), cell(stack + top))
#define SYNC_OUT(pc)                            \
    do {                                        \
        m.eval_top = top;                       \
        m.local_bp = bp;                        \
        m.local_sp = sp;                        \
        m.a1 = a1;                              \
        m.a3 = a3;                              \
        m.result = result;                      \
        m.lPC = (pc);                           \
    } while (0)
    // The parts of an entry of kind k counted; then on to entry e.
    // (A constant the compiler must fold: some would call kind_parts here.)
#define COUNT(k) (spare -= std::integral_constant<int64_t, kind_parts(k)>::value)
#define CONTINUE()              \
    do {                        \
        if (spare < 0) goto out; \
        DISPATCH();             \
    } while (0)
#define NEXT(k)         \
    do {                \
        e += e->len;    \
        COUNT(k);       \
        CONTINUE();     \
    } while (0)
    // The same for an entry of a kind of fixed length.
#define NEXT_FIXED(k)                                   \
    do {                                                \
        constexpr uint32_t fixed_ = kind_len(k, wide);  \
        static_assert(fixed_ != 0);                     \
        e += fixed_;                                    \
        COUNT(k);                                       \
        CONTINUE();                                     \
    } while (0)
    // Computed goto where the compiler has it; a switch otherwise, or when
    // TVM_FAST_SWITCH is defined (to build and test that form with GCC).
#if defined(__GNUC__) && !defined(TVM_FAST_SWITCH)
#define X(k) &&L_##k,
#define LABEL_IMM(n, expr)                                                                            \
    &&L_##n, &&L_LV_##n, &&L_##n##_PBe, &&L_##n##_PBn, &&L_LV_##n##_PBe, &&L_LV_##n##_PBn, &&L_Loc_##n, \
        &&L_Loc_##n##_TestE, &&L_Loc_##n##_TestN,
#define LABEL_BIN(n, expr)                                                                                       \
    &&L_##n, &&L_LV_##n, &&L_LVLV_##n, &&L_##n##_PBe, &&L_##n##_PBn, &&L_LVLV_##n##_PBe, &&L_LVLV_##n##_PBn, \
        &&L_##n##_LetPop, &&L_GAdd_##n, &&L_GSub_##n,
    static const void* const labels[kKinds] = {TVM_FAST_KINDS(X) TVM_FAST_OPERATOR_KINDS(LABEL)};
#undef X
#define DISPATCH() goto* labels[e->kind]
#else
#define DISPATCH() goto dispatch
#endif
#define HANDLER(k) L_##k:
    // A global address: the operand plus the index popped from the stack.
#define GLOBAL(x) ((x) + (POP() & amask))
#define REF(x, type) (wide ? ((x) & 0xFFFFFF) | (type) << 24 : ((x) & 0xFFFF) | ((type) & 0xFF) << 16)

    // One instruction's effect on the locals, for single and fused entries
    // alike: a fused entry runs the bodies of its parts in order.
#define B_LV(x) PUSH(ram_read4(ram, fb + (x)))
#define B_LLONG(x) PUSH(REF((x) + bp, 0u))
#define B_AREF(x, type)              \
    do {                             \
        const uint32_t g_ = GLOBAL(x); \
        PUSH(REF(g_, type));         \
    } while (0)
#define B_LAREF(x, type)                  \
    do {                                  \
        const uint32_t g_ = GLOBAL(x) + bp; \
        PUSH(REF(g_, type));              \
    } while (0)
    // An operator on a1 (the cell below) and a3 (the top cell or the
    // immediate); the result replaces them.
#define B_APPLY(expr)                  \
    do {                               \
        const uint32_t a = a1, b = a3; \
        (void)a;                       \
        (void)b;                       \
        a1 = (expr);                   \
        PUSH(a1);                      \
    } while (0)
#define B_IMM(k, expr)   \
    do {                 \
        a1 = POP();      \
        a3 = (k);        \
        B_APPLY(expr);   \
    } while (0)
#define B_BIN(expr)      \
    do {                 \
        a3 = POP();      \
        a1 = POP();      \
        B_APPLY(expr);   \
    } while (0)
#define B_POPVAL()      \
    do {                \
        a1 = POP();     \
        result = a1;    \
    } while (0)
    // c_let's store of a3 through the reference a1, and its push of a3.
#define B_STORE_REF()                                \
    do {                                             \
        uint32_t ref_ = a1, type_;                   \
        if (wide) {                                  \
            type_ = (ref_ >> 24) & 0x7F;             \
            if (ref_ & 0x80000000u) ref_ += bp;      \
            ref_ &= 0xFFFFFF;                        \
        } else {                                     \
            type_ = (ref_ >> 16) & 0x7F;             \
            if (ref_ & 0x800000u) ref_ += bp;        \
            ref_ &= 0xFFFF;                          \
        }                                            \
        if (type_ == 1)                              \
            ram_write1(ram, base + ref_, a3);        \
        else if (type_ == 2)                         \
            ram_write2(ram, base + ref_, a3);        \
        else                                         \
            ram_write4(ram, base + ref_, a3);        \
        PUSH(a3);                                    \
    } while (0)
#define B_LET()          \
    do {                 \
        a3 = POP();      \
        a1 = POP();      \
        B_STORE_REF();   \
    } while (0)
    // Inside a fused entry the cells a part pops are often ones an earlier
    // part pushed, whose values are still at hand: these forms take them
    // from there instead of reading them back (the cells are written all
    // the same).
#define LOAD_LV(x) ram_read4(ram, fb + (x))
    // (a3 is set first, so that y may name a1.)
#define B_IMM_KNOWN(v, k, expr)              \
    do {                                     \
        top = static_cast<uint8_t>(top - 4); \
        a3 = (k);                            \
        a1 = (v);                            \
        B_APPLY(expr);                       \
    } while (0)
#define B_BIN_KNOWN(x, y, expr)              \
    do {                                     \
        top = static_cast<uint8_t>(top - 4); \
        B_IMM_KNOWN(x, y, expr);             \
    } while (0)
#define B_BIN_TOP(y, expr)                   \
    do {                                     \
        top = static_cast<uint8_t>(top - 4); \
        a3 = (y);                            \
        a1 = POP();                          \
        B_APPLY(expr);                       \
    } while (0)
#define B_POPVAL_KNOWN(v)                    \
    do {                                     \
        top = static_cast<uint8_t>(top - 4); \
        a1 = (v);                            \
        result = a1;                         \
    } while (0)
#define B_LET_KNOWN(r, v)                    \
    do {                                     \
        top = static_cast<uint8_t>(top - 8); \
        a3 = (v);                            \
        a1 = (r);                            \
        B_STORE_REF();                       \
    } while (0)
#define B_LET_VALUE(v)                       \
    do {                                     \
        top = static_cast<uint8_t>(top - 4); \
        a3 = (v);                            \
        a1 = POP();                          \
        B_STORE_REF();                       \
    } while (0)
    // A new frame at the call stack pointer, as add_bp makes it.
#define B_ENTER(size, bytes)                                                                        \
    do {                                                                                            \
        const uint32_t caller_ = bp;                                                                \
        bp = sp;                                                                                    \
        fb = base + bp;                                                                             \
        ram_write2(ram, fb + 3, caller_);                                                           \
        if (wide) ram_write1(ram, fb + 5, caller_ >> 16);                                           \
        sp = bp + (size);                                                                           \
        const uint32_t k_ = (bytes);                                                                \
        if (k_ != 0) {                                                                              \
            top = static_cast<uint8_t>(top - k_);                                                   \
            const uint32_t dst_ = bp + args_at, from_ = (es + top) & kRamMask, to_ = (base + dst_) & kRamMask; \
            if (top + k_ <= 256 && from_ + k_ <= kRamSize && to_ + k_ <= kRamSize &&                \
                (to_ + k_ <= from_ || from_ + k_ <= to_)) {                                         \
                std::memcpy(ram + to_, ram + from_, k_);                                            \
            } else {                                                                                \
                uint8_t src_ = top;                                                                 \
                for (uint32_t i_ = 0; i_ < k_; ++i_)                                                \
                    ram_write1(ram, base + dst_ + i_, ram_read1(ram, es + src_++));                 \
            }                                                                                       \
        }                                                                                           \
    } while (0)
    // A conditional jump ending an entry; its target is inside the image. A
    // pending exit request is left to the reference handler.
#define B_BRANCH(k, taken)               \
    do {                                 \
        if (!(taken)) NEXT_FIXED(k);     \
        if (m.force_exit_tvx) {          \
            e += e->len - 4;             \
            COUNT(k);                    \
            ++spare; /* the jump: */     \
            goto L_Fallback; /* counts */\
        }                                \
        COUNT(k);                        \
        e = ops + e->d;                  \
        CONTINUE();                      \
    } while (0)

    DISPATCH();
#if !defined(__GNUC__) || defined(TVM_FAST_SWITCH)
dispatch:
    switch (e->kind) {
#define X(k) \
    case k_##k: goto L_##k;
#define CASE_IMM(n, expr)                         \
    case k_##n: goto L_##n;                       \
    case k_LV_##n: goto L_LV_##n;                 \
    case k_##n##_PBe: goto L_##n##_PBe;           \
    case k_##n##_PBn: goto L_##n##_PBn;           \
    case k_LV_##n##_PBe: goto L_LV_##n##_PBe;     \
    case k_LV_##n##_PBn: goto L_LV_##n##_PBn;     \
    case k_Loc_##n: goto L_Loc_##n;               \
    case k_Loc_##n##_TestE: goto L_Loc_##n##_TestE; \
    case k_Loc_##n##_TestN: goto L_Loc_##n##_TestN;
#define CASE_BIN(n, expr)                         \
    case k_##n: goto L_##n;                       \
    case k_LV_##n: goto L_LV_##n;                 \
    case k_LVLV_##n: goto L_LVLV_##n;             \
    case k_##n##_PBe: goto L_##n##_PBe;           \
    case k_##n##_PBn: goto L_##n##_PBn;           \
    case k_LVLV_##n##_PBe: goto L_LVLV_##n##_PBe; \
    case k_LVLV_##n##_PBn: goto L_LVLV_##n##_PBn; \
    case k_##n##_LetPop: goto L_##n##_LetPop;     \
    case k_GAdd_##n: goto L_GAdd_##n;             \
    case k_GSub_##n: goto L_GSub_##n;
        TVM_FAST_KINDS(X)
        TVM_FAST_OPERATOR_KINDS(CASE)
#undef X
        default: goto L_Fallback;
    }
#endif

    HANDLER(Decode) {
        *e = decode(code, code_end, static_cast<uint32_t>(e - ops), wide);
#if defined(__GNUC__) && !defined(TVM_FAST_SWITCH)
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
        COUNT(k_Fallback);
        (b < 0x80 ? codes[b] : codes2[b & 0x7F])(m);
        if (m.stop != Stop::None || m.pTOVI.get() != image || m.lRam != base || m.eval_stack != eval_stack ||
            m.lPC >= fc.size)
            return DONE();
        top = m.eval_top, bp = m.local_bp, sp = m.local_sp, a1 = m.a1, a3 = m.a3, result = m.result;
        fb = base + bp;
        e = ops + m.lPC;
        CONTINUE();
    }
    HANDLER(Nop) NEXT(k_Nop);
    HANDLER(Const) {
        PUSH(e->a);
        NEXT(k_Const);
    }
    HANDLER(Const1) {
        PUSH(e->a);
        NEXT_FIXED(k_Const1);
    }
    HANDLER(VChar) {
        PUSH(ram_read1(ram, base + e->a));
        NEXT_FIXED(k_VChar);
    }
    HANDLER(VInt) {
        PUSH(static_cast<uint32_t>(ram_read2(ram, base + e->a)));
        NEXT_FIXED(k_VInt);
    }
    HANDLER(VLong) {
        PUSH(ram_read4(ram, base + e->a));
        NEXT_FIXED(k_VLong);
    }
    HANDLER(LVChar) {
        PUSH(ram_read1(ram, fb + e->a));
        NEXT_FIXED(k_LVChar);
    }
    HANDLER(LVInt) {
        PUSH(static_cast<uint32_t>(ram_read2(ram, fb + e->a)));
        NEXT_FIXED(k_LVInt);
    }
    HANDLER(LVLong) {
        B_LV(e->a);
        NEXT_FIXED(k_LVLong);
    }
    HANDLER(GChar) {
        PUSH(ram_read1(ram, base + GLOBAL(e->a)));
        NEXT_FIXED(k_GChar);
    }
    HANDLER(GInt) {
        PUSH(static_cast<uint32_t>(ram_read2(ram, base + GLOBAL(e->a))));
        NEXT_FIXED(k_GInt);
    }
    HANDLER(GLong) {
        PUSH(ram_read4(ram, base + GLOBAL(e->a)));
        NEXT_FIXED(k_GLong);
    }
    HANDLER(LGChar) {
        PUSH(ram_read1(ram, fb + GLOBAL(e->a)));
        NEXT_FIXED(k_LGChar);
    }
    HANDLER(LGInt) {
        PUSH(static_cast<uint32_t>(ram_read2(ram, fb + GLOBAL(e->a))));
        NEXT_FIXED(k_LGInt);
    }
    HANDLER(LGLong) {
        PUSH(ram_read4(ram, fb + GLOBAL(e->a)));
        NEXT_FIXED(k_LGLong);
    }
    HANDLER(ARef) {
        B_AREF(e->a, e->b);
        NEXT_FIXED(k_ARef);
    }
    HANDLER(LARef) {
        B_LAREF(e->a, e->b);
        NEXT_FIXED(k_LARef);
    }
    // push_char index, then the reference that pops it (plus bp for a
    // frame array): the index cell is written and replaced by the reference.
#define B_INDEX_REF(k, ref)                  \
    do {                                     \
        PUSH(k);                             \
        top = static_cast<uint8_t>(top - 4); \
        PUSH(ref);                           \
    } while (0)
#define B_CONST_REF(frame) B_INDEX_REF(e->a, REF(e->b + (e->a & amask) + (frame), e->c))
    HANDLER(ConstARef) {
        B_CONST_REF(0);
        NEXT_FIXED(k_ConstARef);
    }
    HANDLER(ConstARefV) {
        B_CONST_REF(0);
        PUSH(ram_read4(ram, base + e->d));
        NEXT_FIXED(k_ConstARefV);
    }
    HANDLER(ConstLARef) {
        B_CONST_REF(bp);
        NEXT_FIXED(k_ConstLARef);
    }
    HANDLER(LLong) {
        B_LLONG(e->a);
        NEXT_FIXED(k_LLong);
    }
    HANDLER(Ax) {
        PUSH(GLOBAL(e->a));
        NEXT_FIXED(k_Ax);
    }
    HANDLER(Let) {
        B_LET();
        NEXT_FIXED(k_Let);
    }
    HANDLER(LetPop) {
        B_LET();
        B_POPVAL_KNOWN(a3);
        NEXT_FIXED(k_LetPop);
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
        NEXT_FIXED(k_Letx);
    }
    HANDLER(PopVal) {
        B_POPVAL();
        NEXT_FIXED(k_PopVal);
    }
    HANDLER(PopJmpe) {
        B_POPVAL();
        B_BRANCH(k_PopJmpe, result == 0);
    }
    HANDLER(PopJmpn) {
        B_POPVAL();
        B_BRANCH(k_PopJmpn, result != 0);
    }
    // Jumps and calls leave a target outside the image and a pending exit
    // request to the reference handler.
    HANDLER(Jmpe) {
        if (result != 0) NEXT_FIXED(k_Jmpe);
        goto L_Jmp;
    }
    HANDLER(Jmpn) {
        if (result == 0) NEXT_FIXED(k_Jmpn);
        goto L_Jmp;
    }
    HANDLER(Jmp) {
        if (e->d >= code_end || m.force_exit_tvx) goto L_Fallback;
        COUNT(k_Jmp);
        e = ops + e->d;
        CONTINUE();
    }
#define B_CALL()                                                  \
    do {                                                          \
        const uint32_t ret_ = static_cast<uint32_t>(e - ops) + 4; \
        ram_write1(ram, base + sp, ret_);                         \
        ram_write1(ram, base + sp + 1, ret_ >> 8);                \
        ram_write1(ram, base + sp + 2, ret_ >> 16);               \
    } while (0)
    HANDLER(Call) {
        if (e->d >= code_end || m.force_exit_tvx) goto L_Fallback;
        B_CALL();
        COUNT(k_Call);
        e = ops + e->d;
        CONTINUE();
    }
    HANDLER(CallEnter) {
        if (m.force_exit_tvx) goto L_Fallback;  // only the call runs, in the reference handler
        B_CALL();
        B_ENTER(e->a, e->b);
        COUNT(k_CallEnter);
        e = ops + e->c;
        CONTINUE();
    }
    HANDLER(AddBp) {
        B_ENTER(e->a, e->b);
        NEXT_FIXED(k_AddBp);
    }
    HANDLER(LVSubBp) {
        B_LV(e->a);
        constexpr uint32_t load_len = kind_len(k_LVLong, wide);
        e += load_len;  // at the sub_bp, which goes on as alone
        COUNT(k_LVLong);
        goto L_SubBp;
    }
    HANDLER(SubBp) {
        sp = bp;
        const uint32_t ret = ram_read1(ram, fb) | ram_read1(ram, fb + 1) << 8 | ram_read1(ram, fb + 2) << 16;
        uint32_t caller = static_cast<uint16_t>(ram_read2(ram, fb + 3));
        if (wide) caller |= ram_read1(ram, fb + 5) << 16;
        bp = caller;
        fb = base + bp;
        if (m.func_top != 0) {
            --m.func_top;
            if (m.func_top < kFuncStack) m.cur_funcid = m.func_stack[m.func_top];
        }
        COUNT(k_SubBp);
        if (ret >= code_end) [[unlikely]] {
            SYNC_OUT(static_cast<uint32_t>(e - ops) + 1);
            off_image(m, ret);
            return DONE();
        }
        e = ops + ret;
        CONTINUE();
    }
    HANDLER(SetSp) {
        sp = e->a;
        NEXT_FIXED(k_SetSp);
    }
    HANDLER(Debug) {
        m.d_line = e->a;
        NEXT_FIXED(k_Debug);
    }
    HANDLER(Funcid) {
        if (m.func_top < kFuncStack) m.func_stack[m.func_top] = m.cur_funcid;
        if (m.func_top < 0xFFFFFFFFu) ++m.func_top;
        m.cur_funcid = e->a;
        NEXT_FIXED(k_Funcid);
    }
    HANDLER(Secret) {
        m.secret = static_cast<uint8_t>(e->a);
        NEXT_FIXED(k_Secret);
    }
    // The operators, alone and in their fused sequences.
    // A fused entry ending in pop_val and c_jmpe (k_PBe) or c_jmpn (k_PBn).
#define BRANCHING(k, body)       \
    HANDLER(k##_PBe) {                    \
        body;                             \
        B_POPVAL_KNOWN(a1);               \
        B_BRANCH(k_##k##_PBe, result == 0); \
    }                                     \
    HANDLER(k##_PBn) {                    \
        body;                             \
        B_POPVAL_KNOWN(a1);               \
        B_BRANCH(k_##k##_PBn, result != 0); \
    }
    // Loads of one or two frame cells, pushed, their values kept.
#define PUSH_LV(x)                         \
    const uint32_t x_ = LOAD_LV(x);        \
    PUSH(x_)
#define PUSH_LV2(x, y)                     \
    PUSH_LV(x);                            \
    const uint32_t y_ = LOAD_LV(y);        \
    PUSH(y_)
    // local x = local y op k, the operands given.
#define B_LOC(x, y, k, expr)                                 \
    do {                                                     \
        const uint32_t r_ = REF((x) + bp, 0u);               \
        PUSH(r_);                                            \
        PUSH_LV(y);                                          \
        B_IMM_KNOWN(x_, k, expr);                            \
        B_LET_KNOWN(r_, a1);                                 \
        B_POPVAL_KNOWN(a3);                                  \
    } while (0)
    // The same, then the comparison of two frame cells by its outcome mask
    // and the conditional jump (c_jmpe or c_jmpn by which).
#define LOOP_TAIL(n, expr, which, taken)                                                       \
    HANDLER(Loc_##n##_Test##which) {                                                           \
        B_LOC(e->a & 0xFFFF, e->a >> 16, sx16(e->c & 0xFFFF), expr);                            \
        const uint32_t mask_ = e->c >> 16;                                                     \
        PUSH_LV2(e->b & 0xFFFF, e->b >> 16);                                                   \
        B_BIN_KNOWN(x_, y_, TVM_TRUTH(mask_ >> (2 * (TVM_S(a) > TVM_S(b)) + (a == b)) & 1));   \
        B_POPVAL_KNOWN(a1);                                                                    \
        B_BRANCH(k_Loc_##n##_Test##which, taken);                                              \
    }
    // g = h op2 (x op y): push_char k, push_along g, push_vlong h, two frame
    // loads, the two operators, c_let and pop_val.
#define ACCUMULATE_TO(n, expr, which, op2)                              \
    HANDLER(G##which##_##n) {                                           \
        const uint32_t k_ = e->a >> 24, r_ = REF((e->a & 0xFFFFFF) + k_, 0u); \
        B_INDEX_REF(k_, r_);                                            \
        const uint32_t v_ = ram_read4(ram, base + e->b);                \
        PUSH(v_);                                                       \
        PUSH_LV2(e->c & 0xFFFF, e->c >> 16);                            \
        B_BIN_KNOWN(x_, y_, expr);                                      \
        B_BIN_KNOWN(v_, a1, op2);                                       \
        B_LET_KNOWN(r_, a1);                                            \
        B_POPVAL_KNOWN(a3);                                             \
        NEXT_FIXED(k_G##which##_##n);                                   \
    }
#define ACCUMULATE(n, expr) ACCUMULATE_TO(n, expr, Add, a + b) ACCUMULATE_TO(n, expr, Sub, a - b)
#define HANDLERS_IMM(n, expr)                                \
    HANDLER(n) {                                             \
        B_IMM(e->b, expr);                                   \
        NEXT_FIXED(k_##n);                                   \
    }                                                        \
    HANDLER(LV_##n) {                                        \
        PUSH_LV(e->a);                                       \
        B_IMM_KNOWN(x_, e->b, expr);                         \
        NEXT_FIXED(k_LV_##n);                                \
    }                                                        \
    BRANCHING(n, B_IMM(e->b, expr))                          \
    BRANCHING(LV_##n, PUSH_LV(e->a); B_IMM_KNOWN(x_, e->b, expr)) \
    HANDLER(Loc_##n) {                                       \
        B_LOC(e->a, e->b, e->c, expr);                       \
        NEXT_FIXED(k_Loc_##n);                               \
    }                                                        \
    LOOP_TAIL(n, expr, E, result == 0)                       \
    LOOP_TAIL(n, expr, N, result != 0)
#define HANDLERS_BIN(n, expr)                                \
    HANDLER(n) {                                             \
        B_BIN(expr);                                         \
        NEXT_FIXED(k_##n);                                   \
    }                                                        \
    HANDLER(LV_##n) {                                        \
        PUSH_LV(e->a);                                       \
        B_BIN_TOP(x_, expr);                                 \
        NEXT_FIXED(k_LV_##n);                                \
    }                                                        \
    HANDLER(LVLV_##n) {                                      \
        PUSH_LV2(e->a, e->b);                                \
        B_BIN_KNOWN(x_, y_, expr);                           \
        NEXT_FIXED(k_LVLV_##n);                              \
    }                                                        \
    BRANCHING(n, B_BIN(expr))                                \
    BRANCHING(LVLV_##n, PUSH_LV2(e->a, e->b); B_BIN_KNOWN(x_, y_, expr)) \
    HANDLER(n##_LetPop) {                                    \
        B_BIN(expr);                                         \
        B_LET_VALUE(a1);                                     \
        B_POPVAL_KNOWN(a3);                                  \
        NEXT_FIXED(k_##n##_LetPop);                          \
    }
    TVM_FAST_OPERATOR_KINDS(HANDLERS)
    TVM_BINARY_OPS(ACCUMULATE)

out:
    SYNC_OUT(static_cast<uint32_t>(e - ops));
    return DONE();
}

}  // namespace

uint64_t vm_run_fast(Machine& m, uint64_t max_steps) {
    uint64_t done = 0;
    while (m.stop == Stop::None && max_steps - done >= kMaxParts) {
        FastCode* fc = m.pTOVI ? fast_code(m) : nullptr;
        if (!fc || m.lPC >= fc->size) break;
        if (!flat_stack(m)) break;
        const uint64_t n = m.RamBits > 16 ? run_decoded<true>(m, *fc, max_steps - done)
                                          : run_decoded<false>(m, *fc, max_steps - done);
        if (n == 0) break;
        done += n;
    }
    if (m.stop != Stop::None) return vm_retired(m, done);
    return done + vm_run_steps(m, max_steps - done);
}
