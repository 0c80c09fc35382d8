// Loads, arithmetic, assignment and conversions checked through the
// evaluation stack of a running program.
#include <algorithm>
#include <bit>
#include <cmath>
#include <optional>
#include <string>

#include "tools/asm/asm.h"
#include "vm_harness.h"

namespace {

uint32_t fbits(float f) { return std::bit_cast<uint32_t>(f); }

constexpr uint32_t T = 0xFFFFFFFF;

// One operator applied to a (and b: the second cell, or the immediate of
// the cal_q forms; none for the unary operators).
struct Case { const char* op; uint32_t a; std::optional<uint32_t> b; uint32_t want; };

uint32_t eval(const Case& k) {
    const bool imm = op_info[op_lookup(k.op).value_or(0)].operand == Operand::Imm16;
    Code c;
    c.op("push_long").u32(k.a);
    if (k.b && !imm) c.op("push_long").u32(*k.b);
    c.op(k.op);
    if (imm) c.u16(k.b.value_or(0));
    Vm vm(c);
    vm.run(k.b && !imm ? 3 : 2);
    EXPECT_FALSE(vm.m->exited);
    EXPECT_EQ(vm.depth(), 1);
    return vm.cell();
}

TEST(Arithmetic, EdgeCasesOfTheOperators) {
    const uint32_t nan = fbits(NAN);
    const uint32_t f2 = fbits(2.0f), f1_5 = fbits(1.5f), f0_5 = fbits(0.5f), f3 = fbits(3.0f);
    const Case cases[] = {
        {"cal_div", 7, -2u, -3u}, {"cal_mod", 7, -2u, 1}, {"cal_mod", -7u, 2, -1u}, {"cal_mul", 6, 7, 42},
        {"cal_sub", 42, 2, 40}, {"cal_rshift", -8u, 1, 0x7FFFFFFC}, {"cal_lshift", 1, 33, 2},
        {"cal_and", 0xF0F0, 0x0FF0, 0xF0}, {"cal_or", 0xF000, 0xF, 0xF00F}, {"cal_xor", 0xF00F, 0xFF, 0xF0F0},
        {"push_not", 0, {}, T}, {"push_sub0", 5, {}, -5u}, {"cal_lnot", 0, {}, T}, {"cal_lor", 0, 3, T},
        {"cal_less", T, 0, T}, {"cal_great", 1, T, T}, {"cal_le", 2, 2, T}, {"cal_ge", 2, 2, T}, {"cal_neq", 2, 3, T},
        {"cal_qadd", 10, 5, 15}, {"cal_qsub", 15, 3, 12}, {"cal_qmul", 12, -2u, -24u}, {"cal_qdiv", -24u, 5, -4u},
        {"cal_qmod", 17, 5, 2}, {"cal_qlshift", 1, 4, 16}, {"cal_qrshift", 16, 2, 4}, {"cal_qrshift", 0x80000000, -1u, 1},
        {"cal_qneq", 3, 4, T}, {"cal_qgreat", 3, 2, T}, {"cal_qless", 3, 4, T}, {"cal_qge", 3, 3, T}, {"cal_qle", 3, 3, T},
        // Float forms: ff both floats, f a float and an integer, 0f an integer and a float.
        {"cal_addff", f1_5, fbits(2.25f), fbits(3.75f)}, {"cal_mulf", f1_5, 2, f3}, {"cal_sub0f", 1, f0_5, f0_5},
        {"cal_mulff", f3, f0_5, f1_5}, {"cal_subff", f1_5, f0_5, fbits(1.0f)}, {"cal_addf", fbits(1.0f), 3, fbits(4.0f)},
        {"cal_add0f", 3, f0_5, fbits(3.5f)}, {"cal_subf", fbits(3.5f), 2, f1_5}, {"cal_mul0f", 4, f1_5, fbits(6.0f)},
        {"cal_divff", fbits(6.0f), f2, f3}, {"cal_divf", fbits(6.0f), 4, f1_5}, {"cal_div0f", 3, f2, f1_5},
        {"cal_equf", f2, f2, T}, {"cal_gef", f1_5, f1_5, T}, {"push_sub0f", f2, {}, fbits(-2.0f)},
        {"c_f0", fbits(-2.0f), {}, f2}, {"cal_lessf", fbits(-2.0f), f2, T}, {"cal_greatf", f2, fbits(-2.0f), T},
        {"cal_lef", f2, f2, T}, {"cal_neqf", f2, f3, T}, {"c_fci", fbits(-2.75f), {}, -2u}, {"c_icf", -3u, {}, fbits(-3.0f)},
        {"c_lci", 0x18000, {}, 0xFFFF8000}, {"c_lcc", T, {}, 255},
        // The one overflowing division wraps instead of trapping on the host.
        {"cal_div", 0x80000000, T, 0x80000000}, {"cal_mod", 0x80000000, T, 0},
        // Logical operators look at zero and non-zero, not at bits.
        {"cal_land", 2, 1, T}, {"cal_lor", 0, 0, 0},
        // Shifts by a stack cell: a negative count gives 0, zero the value,
        // others count mod 32; immediate counts are always taken mod 32.
        {"cal_lshift", 1, 32, 1}, {"cal_lshift", 1, T, 0}, {"cal_rshift", 8, T, 0}, {"cal_rshift", 8, 0, 8},
        {"cal_qlshift", 1, 0xFFFF, 0x80000000}, {"cal_qlshift", 3, 33, 6},
        // 0 - x: both zeros give +0.
        {"push_sub0f", fbits(-0.0f), {}, fbits(0.0f)}, {"push_sub0f", fbits(0.0f), {}, fbits(0.0f)},
        {"cal_equf", fbits(0.0f), fbits(-0.0f), T}, {"cal_neqf", fbits(0.0f), fbits(-0.0f), 0},
        // Not-a-number is unordered.
        {"cal_lessf", nan, fbits(1.0f), 0}, {"cal_greatf", nan, fbits(1.0f), 0}, {"cal_lef", nan, fbits(1.0f), 0},
        {"cal_gef", nan, fbits(1.0f), 0}, {"cal_equf", nan, fbits(1.0f), 0}, {"cal_neqf", nan, nan, T},
        // Conversions round to single; what has no 32-bit integer gives 0x80000000.
        {"cal_divff", fbits(1.0f), fbits(-0.0f), fbits(-INFINITY)},  // only a divisor of all zero bits ends
        {"c_icf", 16777217, {}, fbits(16777216.0f)}, {"c_fci", nan, {}, 0x80000000}, {"c_fci", fbits(3e9f), {}, 0x80000000},
        {"c_fci", fbits(-3e9f), {}, 0x80000000}, {"c_fci", fbits(INFINITY), {}, 0x80000000},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(testing::Message() << k.op << " " << std::hex << k.a);
        EXPECT_EQ(eval(k), k.want);
    }
}

TEST(Arithmetic, DivisionByZeroAndRetiredInstructionsEndTheProgram) {
    for (const char* op : {"cal_div", "cal_mod"}) {
        Code c;
        c.op("push_char").u8(7).op("push_char").u8(0).op(op).op("push_char").u8(1);
        Vm vm(c);
        vm.m->single_program_mode = 0;  // restarts, so the extra cell lands on the fresh stack
        vm.run(3);
        EXPECT_EQ(vm.m->exit_code, -1) << op;
        EXPECT_EQ(vm.m->ramuses, 0xF00000u) << op;  // reset again by the restart
        EXPECT_EQ(vm.m->lPC, 16u) << op;
        EXPECT_EQ(vm.depth(), 1) << op;
        EXPECT_EQ(vm.cell(), T) << op;
    }
    for (const char* op : {"cal_qdiv", "push_text", "push_graph", "push_gbuf"}) {  // retired instructions too
        Code c;
        c.op("push_char").u8(7).op(op);
        if (op[4] == 'q') c.u16(0);
        Vm vm(c);
        vm.run(5);
        EXPECT_TRUE(vm.m->exited) << op;
        EXPECT_EQ(vm.m->exit_code, -1) << op;
        EXPECT_EQ(vm.m->ramuses, 0u) << op;
    }

    // A float divisor of all zero bits (-0.0 divides to infinity, see above).
    Code z;
    z.op("push_long").u32(fbits(1.0f)).op("push_char").u8(0).op("cal_divf");
    Vm zero(z);
    zero.run(3);
    EXPECT_TRUE(zero.m->exited);
    // Divided anyway and pushed: a1 then holds the exit code -1, a NaN pattern.
    EXPECT_EQ(zero.depth(), 1);
    EXPECT_TRUE(std::isnan(std::bit_cast<float>(zero.cell())));
}

// The top cell after a program of the given width and frame base that
// starts with the globals at G (0x2010: 00 80 FF 7F) and runs src to its end.
uint32_t top(const std::string& src, int bits, uint32_t bp) {
    const std::string text = ".equ G, 0x2010\nc_preset G, 0x00, 0x80, 0xFF, 0x7F\n" + src + "\n";
    const AsmResult r = assemble(".tvx bits=" + std::to_string(bits) + "\n" + text, "t.tvs");
    EXPECT_TRUE(r.errors.empty()) << src;
    Code c;
    c.b.assign(r.bytes.begin() + 16, r.bytes.end());
    Vm vm(c, r.bytes[8]);
    vm.m->local_bp = bp;
    vm.run(static_cast<uint64_t>(std::count(text.begin(), text.end(), '\n') - 1));
    EXPECT_FALSE(vm.m->exited) << src;
    return vm.cell();
}

// Loads, stores, references and pointers in every form: sign and zero
// extension, index cells, reference cells (type in bits 16-22, or 24-30 in
// wide programs; the local flag 0x80 or bit 31), stores that narrow.
TEST(Memory, LoadsStoresReferencesAndPointers) {
    const struct { const char* src; uint32_t want; int bits = 16; uint32_t bp = 0x4000; } cases[] = {
        {"push_char 255\npush_int -1\ncal_add", 254}, {"push_long 0x12345678\npush_long 305419896\ncal_equ", T},
        {"push_vint G", 0xFFFF8000}, {"push_vchar G+1", 0x80}, {"push_vlong G", 0x7FFF8000},
        {"push_char 2\npush_gint G", 0x7FFF}, {"push_char 1\npush_gchar G", 0x80}, {"push_char 0\npush_glong G", 0x7FFF8000},
        {"c_preset 0x3000, 0x00, 0x80, 0x34, 0x12\npush_long 0x00010002\npush_glong 0x2FFE", 0x12348000},  // index: 16 bits
        {"c_preset 0x12345, 77\npush_long 0x01000005\npush_gchar 0x012340", 77, 24},  // 24 bits, 3-byte addresses
        {"c_preset 0x12345, 77\npush_vchar 0x012345", 77, 24},
        {"push_char 4\npush_aint G\npush_long 0x12345\nc_let", 0x12345},  // the value is pushed whole
        {"push_char 4\npush_aint G\npush_long 0x12345\nc_let\npush_vint G+4", 0x2345},
        {"push_char 8\npush_achar G\npush_int 300\nc_let\npush_vchar G+8", 44},
        {"push_char 0\npush_along G+12\npush_long -5\nc_let\npush_char 0\npush_along2 G+12\ncal_INC", -5u},
        {"push_char 0\npush_along G+12\npush_long -5\nc_let\npush_char 0\npush_along2 G+12\ncal_INC\npush_vlong G+12", -4u},
        {"c_preset G+4, 0x45, 0x23\npush_long 0x10000+G+4\nc_iptr", 0x2345}, {"c_preset G+4, 0x45\npush_int G+4\nc_ptr", 0x45},
        {"c_preset G+12, 0xFC, 0xFF, 0xFF, 0xFF\npush_int G+12\nc_lptr", -4u},
        {"push_int G+16\nc_cptr\npush_char 'x'\nc_let\npush_int G+18\nc_ciptr\npush_int -2\nc_let\npush_int G+20\nc_clptr\n"
         "push_long 0x01020304\nc_let\ncal_add\ncal_add\npush_vchar G+16\npush_vint G+18\npush_vlong G+20\ncal_add\ncal_add\ncal_sub",
         0},
        {"push_int G+16\npush_char 2\nc_letx 1\npush_vchar G+16", 2}, {"c_preset G+16, 2\npush_int G\npush_ax 16\nc_ptr", 2},
        {"c_preset G+16, 2\npush_char 16\npush_achar G\ncal_inc", 3}, {"c_preset G+16, 2\npush_char 16\npush_achar G\ncal_dec", 1},
        {"c_preset G+16, 2\npush_char 16\npush_achar G\ncal_DEC", 2},  // pushes the old value
        {"c_preset G+16, 2\npush_char 16\npush_achar G\ncal_DEC\npop_val\npush_vchar G+16", 1},
        {"c_preset G+16, 1\npush_int G+16\ncal_idx 0x01", 2},  // pre-increment char
        {"c_preset G+18, 0xFE, 0xFF\npush_int G+18\ncal_idx 0x62", -2u},  // post-decrement int
        {"c_preset G+18, 0xFE, 0xFF\npush_int G+18\ncal_idx 0x62\npop_val\npush_vint G+18", -3u},
        {"push_string \"AB\"\nc_ptr", 'A'}, {"c_secret 0x5A\npush_string \"He\"\ncal_qadd 1\nc_ptr", 'e'},
        // Reference cells.
        {"push_int 0x20\npush_achar 0xFFF0", 0x00010010},  // the carry out of 16 bits is lost
        {"push_char 4\npush_aint 0x3000", 0x00023004}, {"push_char 4\npush_along2 0x3000", 0x00003004},
        {"push_llong 0x8", 0x00004008}, {"push_int 0x20\npush_ax 0xFFF0", 0x00010010},  // a plain address keeps it
        {"push_long 0x00812345\nc_ciptr", 0x00022345}, {"push_long 0x00012345\nc_clptr", 0x00042345},
        {"push_char 1\npush_laint 0x10", 0x02123467, 24, 0x123456}, {"push_char 0\npush_lalong2 0x10", 0x00123466, 24, 0x123456},
        {"push_long 0x7F012345\nc_clptr", 0x04012345, 24},
        // Increments narrow on store: char 255 stores 0, int 32767 stores -32768, char 0 stores 255.
        {"c_preset 0x3000, 255\npush_long 0x00013000\ncal_INC", 255},
        {"c_preset 0x3000, 255\npush_long 0x00013000\ncal_INC\npush_vchar 0x3000", 0},
        {"c_preset 0x3002, 0xFF, 0x7F\npush_long 0x00023002\ncal_INC\npush_vint 0x3002", 0xFFFF8000},
        {"c_preset 0x5004, 41\npush_long 0x00800004\ncal_inc\npush_vlong 0x5004", 42, 16, 0x5000},
        {"push_long 0x00013008\ncal_DEC\npush_vchar 0x3008", 255},
        {"c_preset 0x3010, 0x00, 0x80\npush_int 0x3010\ncal_idx 0x22", -32769u},  // pushed before narrowing
        {"c_preset 0x3010, 0x00, 0x80\npush_int 0x3010\ncal_idx 0x22\npop_val\npush_vint 0x3010", 0x7FFF},
        {"c_preset 0x5014, 255, 255, 255, 255\npush_int 0x14\ncal_idx 0xC0", T, 16, 0x5000},  // post-increment local long
        {"c_preset 0x5014, 255, 255, 255, 255\npush_int 0x14\ncal_idx 0xC0\npop_val\npush_vlong 0x5014", 0, 16, 0x5000},
        {"push_long 0x00800004\npush_long 0xCAFEBABE\nc_let\npush_vlong 0x4004", 0xCAFEBABE},
        {"c_preset 0x2345, 0xF1, 0xF0\npush_long 0xFF012345\nc_iptr", 0xFFFFF0F1},  // address masked, value sign-extended
        {"push_long 0x81000010\npush_int 0x1FF\nc_let\npush_vint 0x20010", 0xFF, 24, 0x20000},  // wide local flag: bit 31
        {"push_long 0x10020\npush_int 0x1234\nc_letx 0x82\npush_vint 0x30020", 0x1234, 24, 0x20000},  // letx adds bp unmasked
    };
    for (const auto& k : cases) EXPECT_EQ(top(k.src, k.bits, k.bp), k.want) << k.src;
}

TEST(Push, StringLiteralStartedNearTheEndOfTheRingIsStoredWhole) {
    Code r;
    r.op("push_string").raw({'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 0}).op("push_string").raw({'z', 0});
    Vm ring(r);
    ring.m->string_ptr = kStringStack + 760;
    ring.run(2);
    EXPECT_EQ(ring.cell(1), kStringStack + 760);
    EXPECT_EQ(lRamRead(*ring.m, kStringStack + 769), 'j');
    EXPECT_EQ(ring.cell(0), kStringStack);  // the next starts over
    EXPECT_EQ(lRamRead(*ring.m, kStringStack), 'z');
    EXPECT_EQ(ring.m->string_ptr, kStringStack + 2);
}

}  // namespace
