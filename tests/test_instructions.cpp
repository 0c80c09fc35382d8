// Loads, arithmetic, assignment and conversions checked through the
// evaluation stack of a running program: the edge cases and the encodings
// that the all_instructions program cannot see from inside the guest.
#include <bit>
#include <cmath>
#include <optional>

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

TEST(Push, IndexAndAddressOperandsFollowTheProgramWidth) {
    Code c;  // the index cell keeps 16 bits
    c.op("push_long").u32(0x00010002).op("push_glong").u16(0x2FFE);
    Vm vm(c);
    lRamWrite4(*vm.m, 0x3000, 0x12348000);
    vm.run(2);
    EXPECT_EQ(vm.cell(), 0x12348000u);

    Code w;  // three-byte addresses; the index keeps 24 bits
    w.op("push_vchar").u24(0x012345).op("push_long").u32(0x01000005).op("push_gchar").u24(0x012340);
    Vm wide(w, 0x80);
    lRamWrite(*wide.m, 0x12345, 77);
    wide.run(3);
    EXPECT_EQ(wide.cell(1), 77u);
    EXPECT_EQ(wide.cell(0), 77u);
    EXPECT_EQ(wide.m->lPC, 16u + 4 + 5 + 4);
}

TEST(Push, ReferenceCellLayout) {
    Code c;
    c.op("push_int").u16(0x20).op("push_achar").u16(0xFFF0);  // carry out of 16 bits is lost
    c.op("push_char").u8(4).op("push_aint").u16(0x3000);
    c.op("push_char").u8(4).op("push_along2").u16(0x3000);
    c.op("push_llong").u16(0x8);
    c.op("push_int").u16(0x20).op("push_ax").u16(0xFFF0);  // plain address keeps the carry
    c.op("push_long").u32(0x00812345).op("c_ciptr");            // the local flag is dropped
    c.op("push_long").u32(0x00012345).op("c_clptr");
    Vm vm(c);
    vm.m->local_bp = 0x4000;
    vm.run(13);
    const uint32_t want[] = {0x00010010, 0x00023004, 0x00003004, 0x00004008, 0x00010010, 0x00022345, 0x00042345};
    for (int i = 0; i < 7; ++i) EXPECT_EQ(vm.cell(6 - i), want[i]) << i;

    Code w;  // wide programs: type in bits 24-30
    w.op("push_char").u8(1).op("push_laint").u24(0x10).op("push_char").u8(0).op("push_lalong2").u24(0x10);
    w.op("push_long").u32(0x7F012345).op("c_clptr");
    Vm wide(w, 0x80);
    wide.m->local_bp = 0x123456;
    wide.run(6);
    EXPECT_EQ(wide.cell(2), 0x02123467u);
    EXPECT_EQ(wide.cell(1), 0x00123466u);
    EXPECT_EQ(wide.cell(0), 0x04012345u);
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

TEST(Assignment, IncrementsNarrowOnStore) {
    Code c;
    c.op("push_long").u32(0x00013000).op("cal_INC");  // char 255: pushes 255, stores 0
    c.op("push_long").u32(0x00023002).op("cal_INC");  // int 32767: stores -32768
    c.op("push_long").u32(0x00800004).op("cal_inc");  // local flag: local_bp + 4
    c.op("push_long").u32(0x00013008).op("cal_DEC");  // char 0: pushes 0, stores 255
    c.op("push_int").u16(0x3010).op("cal_idx").u8(0x22);            // pre-dec int
    c.op("push_int").u16(0x0014).op("cal_idx").u8(0x80 | 0x40 | 0);  // post-inc local long
    Vm vm(c);
    Machine& m = *vm.m;
    lRamWrite(m, 0x3000, 255);
    lRamWrite2(m, 0x3002, 32767);
    lRamWrite4(m, 0x5004, 41);
    lRamWrite2(m, 0x3010, 0x8000);
    lRamWrite4(m, 0x5014, T);
    m.local_bp = 0x5000;
    vm.run(12);
    EXPECT_EQ(vm.cell(5), 255u);
    EXPECT_EQ(lRamRead(m, 0x3000), 0);
    EXPECT_EQ(vm.cell(4), 32767u);
    EXPECT_EQ(lRamRead2(m, 0x3002), -32768);
    EXPECT_EQ(vm.cell(3), 42u);
    EXPECT_EQ(lRamRead4(m, 0x5004), 42u);
    EXPECT_EQ(vm.cell(2), 0u);
    EXPECT_EQ(lRamRead(m, 0x3008), 255);
    EXPECT_EQ(vm.cell(1), static_cast<uint32_t>(-32769));  // pushed before narrowing
    EXPECT_EQ(lRamRead2(m, 0x3010), 0x7FFF);
    EXPECT_EQ(vm.cell(0), T);
    EXPECT_EQ(lRamRead4(m, 0x5014), 0u);
}

TEST(Assignment, LocalFlagAndWideReferences) {
    Code c;
    c.op("push_long").u32(0x00800004).op("push_long").u32(0xCAFEBABE).op("c_let");
    c.op("push_long").u32(0xFF012345).op("c_iptr");  // address masked, value sign-extended
    Vm vm(c);
    vm.m->local_bp = 0x4000;
    lRamWrite2(*vm.m, 0x2345, 0xF0F1);
    vm.run(5);
    EXPECT_EQ(lRamRead4(*vm.m, 0x4004), 0xCAFEBABEu);
    EXPECT_EQ(vm.cell(), 0xFFFFF0F1u);

    Code w;  // wide program: local flag bit 31
    w.op("push_long").u32(0x81000010).op("push_int").u16(0x1FF).op("c_let");
    w.op("push_long").u32(0x10020).op("push_int").u16(0x1234).op("c_letx").u8(0x82);
    Vm wide(w, 0x80);
    wide.m->local_bp = 0x20000;
    wide.run(6);
    EXPECT_EQ(lRamRead2(*wide.m, 0x20010), 0xFF);
    EXPECT_EQ(lRamRead2(*wide.m, 0x30020), 0x1234);  // letx adds local_bp unmasked
    EXPECT_EQ(wide.cell(), 0x1234u);
}

}  // namespace
