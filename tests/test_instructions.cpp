// Loads, arithmetic, assignment and conversions, each checked through the
// evaluation stack of a running program.
#include <bit>
#include <cmath>

#include "vm_harness.h"

namespace {

uint32_t fbits(float f) { return std::bit_cast<uint32_t>(f); }

// Runs code (without an exit) for as many instructions as it has, returns the VM.
std::unique_ptr<Vm> exec(const Code& c, int steps, uint8_t flags = 0) {
    auto vm = std::make_unique<Vm>(c, flags);
    vm->run(static_cast<uint64_t>(steps));
    return vm;
}

uint32_t binary(const char* op, uint32_t a, uint32_t b) {
    Code c;
    c.op("push_long").u32(a).op("push_long").u32(b).op(op);
    auto vm = exec(c, 3);
    EXPECT_EQ(vm->depth(), 1) << op;
    return vm->cell();
}

uint32_t immediate(const char* op, uint32_t a, uint16_t imm) {
    Code c;
    c.op("push_long").u32(a).op(op).u16(imm);
    return exec(c, 2)->cell();
}

uint32_t unary(const char* op, uint32_t a) {
    Code c;
    c.op("push_long").u32(a).op(op);
    return exec(c, 2)->cell();
}

constexpr uint32_t T = 0xFFFFFFFF;

TEST(Push, ImmediatesExtendAsSpecifiedByWidth) {
    Code c;
    c.op("push_char").u8(0xFF).op("push_int").u16(0xFFFF).op("push_int").u16(0x7FFF).op("push_long").u32(0x89ABCDEF);
    auto vm = exec(c, 4);
    EXPECT_EQ(vm->cell(3), 255u);
    EXPECT_EQ(vm->cell(2), T);
    EXPECT_EQ(vm->cell(1), 0x7FFFu);
    EXPECT_EQ(vm->cell(0), 0x89ABCDEFu);
}

TEST(Push, VariablesGlobalLocalAndIndexed) {
    Code c;
    c.op("push_vchar").u16(0x3000).op("push_vint").u16(0x3000).op("push_vlong").u16(0x3000);
    c.op("push_lvint").u16(0x10);                                  // local_bp 0x2FF0 + 0x10
    c.op("push_char").u8(2).op("push_gint").u16(0x2FFE);           // 0x2FFE + 2
    c.op("push_char").u8(3).op("push_lgchar").u16(0x0D);           // 0x2FF0 + 0x0D + 3
    c.op("push_long").u32(0x00010002).op("push_glong").u16(0x2FFE);  // index keeps 16 bits: +2
    Vm vm(c);
    lRamWrite4(*vm.m, 0x3000, 0x12348000);
    vm.m->local_bp = 0x2FF0;
    vm.run(10);
    EXPECT_EQ(vm.cell(6), 0x00u);
    EXPECT_EQ(vm.cell(5), static_cast<uint32_t>(-32768));
    EXPECT_EQ(vm.cell(4), 0x12348000u);
    EXPECT_EQ(vm.cell(3), static_cast<uint32_t>(-32768));
    EXPECT_EQ(vm.cell(2), static_cast<uint32_t>(-32768));
    EXPECT_EQ(vm.cell(1), 0x00u);
    EXPECT_EQ(vm.cell(0), 0x12348000u);
}

TEST(Push, AddressOperandIsThreeBytesInWidePrograms) {
    Code c;
    c.op("push_vchar").u24(0x012345).op("push_long").u32(0x01000005).op("push_gchar").u24(0x012340);
    Vm vm(c, 0x80);
    lRamWrite(*vm.m, 0x12345, 77);
    vm.run(3);
    EXPECT_EQ(vm.cell(1), 77u);
    EXPECT_EQ(vm.cell(0), 77u);  // index keeps 24 bits: +5
    EXPECT_EQ(vm.m->lPC, 16u + 4 + 5 + 4);
}

TEST(Push, ReferencesAndAddresses) {
    Code c;
    c.op("push_int").u16(0x20).op("push_achar").u16(0xFFF0);  // carry out of 16 bits is lost
    c.op("push_char").u8(4).op("push_aint").u16(0x3000);
    c.op("push_char").u8(4).op("push_along2").u16(0x3000);
    c.op("push_llong").u16(0x8);
    c.op("push_int").u16(0x20).op("push_ax").u16(0xFFF0);  // plain address keeps the carry
    Vm vm(c);
    vm.m->local_bp = 0x4000;
    vm.run(9);
    EXPECT_EQ(vm.cell(4), 0x00010010u);
    EXPECT_EQ(vm.cell(3), 0x00023004u);
    EXPECT_EQ(vm.cell(2), 0x00003004u);
    EXPECT_EQ(vm.cell(1), 0x00004008u);
    EXPECT_EQ(vm.cell(0), 0x00010010u);

    Code w;
    w.op("push_char").u8(1).op("push_laint").u24(0x10).op("push_char").u8(0).op("push_lalong2").u24(0x10);
    Vm wide(w, 0x80);
    wide.m->local_bp = 0x123456;
    wide.run(4);
    EXPECT_EQ(wide.cell(1), 0x02123467u);
    EXPECT_EQ(wide.cell(0), 0x00123466u);
}

TEST(Push, StringLiteralsUseTheKeyAndTheRing) {
    Code c;
    c.op("c_secret").u8(0x5A).op("push_string").raw({0x12, 0x3F, 0x5A}).op("push_string").raw({0x5A});
    Vm vm(c);
    vm.run(3);
    EXPECT_EQ(vm.cell(1), kStringStack);
    EXPECT_EQ(lRamRead(*vm.m, kStringStack), 0x48);
    EXPECT_EQ(lRamRead(*vm.m, kStringStack + 1), 0x65);
    EXPECT_EQ(lRamRead(*vm.m, kStringStack + 2), 0);
    EXPECT_EQ(vm.cell(0), kStringStack + 3);

    // A literal started near the end of the ring is stored whole; the next starts over.
    Code r;
    r.op("push_string").raw({'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 0}).op("push_string").raw({'z', 0});
    Vm ring(r);
    ring.m->string_ptr = kStringStack + 760;
    ring.run(2);
    EXPECT_EQ(ring.cell(1), kStringStack + 760);
    EXPECT_EQ(lRamRead(*ring.m, kStringStack + 769), 'j');
    EXPECT_EQ(ring.cell(0), kStringStack);
    EXPECT_EQ(lRamRead(*ring.m, kStringStack), 'z');
    EXPECT_EQ(ring.m->string_ptr, kStringStack + 2);
}

TEST(Push, RetiredInstructionsEndTheProgram) {
    for (const char* op : {"push_text", "push_graph", "push_gbuf"}) {
        Code c;
        c.op(op);
        Vm vm(c);
        vm.run(5);
        EXPECT_TRUE(vm.m->exited) << op;
        EXPECT_EQ(vm.m->exit_code, -1) << op;
        EXPECT_EQ(vm.m->ramuses, 0u) << op;
    }
}

TEST(Arithmetic, IntegerOperations) {
    EXPECT_EQ(binary("cal_add", 0xFFFFFFFF, 2), 1u);
    EXPECT_EQ(binary("cal_sub", 1, 2), T);
    EXPECT_EQ(binary("cal_mul", 0x10000, 0x10001), 0x10000u);
    EXPECT_EQ(binary("cal_div", 7, static_cast<uint32_t>(-2)), static_cast<uint32_t>(-3));
    EXPECT_EQ(binary("cal_mod", 7, static_cast<uint32_t>(-2)), 1u);
    EXPECT_EQ(binary("cal_mod", static_cast<uint32_t>(-7), 2), static_cast<uint32_t>(-1));
    EXPECT_EQ(binary("cal_div", 0x80000000, T), 0x80000000u);  // no host trap
    EXPECT_EQ(binary("cal_mod", 0x80000000, T), 0u);
    EXPECT_EQ(binary("cal_and", 0xF0F0, 0xFF00), 0xF000u);
    EXPECT_EQ(binary("cal_or", 0xF0F0, 0x0F00), 0xFFF0u);
    EXPECT_EQ(binary("cal_xor", 0xFF, 0x0F), 0xF0u);
    EXPECT_EQ(binary("cal_land", 2, 3), T);
    EXPECT_EQ(binary("cal_land", 2, 0), 0u);
    EXPECT_EQ(binary("cal_lor", 0, 5), T);
    EXPECT_EQ(binary("cal_lor", 0, 0), 0u);
    EXPECT_EQ(unary("push_sub0", 5), static_cast<uint32_t>(-5));
    EXPECT_EQ(unary("push_not", 0x0F), 0xFFFFFFF0u);
    EXPECT_EQ(unary("cal_lnot", 0), T);
    EXPECT_EQ(unary("cal_lnot", 9), 0u);
}

TEST(Arithmetic, StackShiftsTestSignAndZeroButImmediateShiftsDoNot) {
    EXPECT_EQ(binary("cal_lshift", 1, 32), 1u);
    EXPECT_EQ(binary("cal_lshift", 1, 33), 2u);
    EXPECT_EQ(binary("cal_lshift", 1, T), 0u);
    EXPECT_EQ(binary("cal_rshift", static_cast<uint32_t>(-8), 1), 0x7FFFFFFCu);
    EXPECT_EQ(binary("cal_rshift", 8, static_cast<uint32_t>(-1)), 0u);
    EXPECT_EQ(binary("cal_rshift", 8, 0), 8u);
    EXPECT_EQ(immediate("cal_qrshift", 0x80000000, 0xFFFF), 1u);
    EXPECT_EQ(immediate("cal_qlshift", 1, 0xFFFF), 0x80000000u);
    EXPECT_EQ(immediate("cal_qlshift", 3, 33), 6u);
}

TEST(Arithmetic, ComparisonsAreSignedAndGiveMinusOne) {
    EXPECT_EQ(binary("cal_equ", 1, 1), T);
    EXPECT_EQ(binary("cal_neq", 1, 1), 0u);
    EXPECT_EQ(binary("cal_less", T, 0), T);
    EXPECT_EQ(binary("cal_great", T, 0), 0u);
    EXPECT_EQ(binary("cal_le", 3, 3), T);
    EXPECT_EQ(binary("cal_ge", 2, 3), 0u);
    EXPECT_EQ(immediate("cal_qless", T, 0), T);
    EXPECT_EQ(immediate("cal_qgreat", 5, 0xFFFF), T);  // immediate -1
    EXPECT_EQ(immediate("cal_qequ", T, 0xFFFF), T);
    EXPECT_EQ(immediate("cal_qneq", 1, 1), 0u);
    EXPECT_EQ(immediate("cal_qge", 1, 1), T);
    EXPECT_EQ(immediate("cal_qle", 2, 1), 0u);
    EXPECT_EQ(immediate("cal_qadd", 10, 0xFFFE), 8u);
    EXPECT_EQ(immediate("cal_qsub", 10, 0xFFFE), 12u);
    EXPECT_EQ(immediate("cal_qmul", 10, 0xFFFE), static_cast<uint32_t>(-20));
    EXPECT_EQ(immediate("cal_qdiv", 7, 0xFFFE), static_cast<uint32_t>(-3));
    EXPECT_EQ(immediate("cal_qmod", static_cast<uint32_t>(-7), 2), static_cast<uint32_t>(-1));
}

TEST(Arithmetic, DivisionByZeroEndsTheProgramAndPushesTheExitCode) {
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
    Code q;
    q.op("push_char").u8(7).op("cal_qdiv").u16(0);
    Vm vm(q);
    vm.run(2);
    EXPECT_TRUE(vm.m->exited);
    EXPECT_EQ(vm.m->exit_code, -1);
    EXPECT_EQ(vm.m->ramuses, 0u);
}

TEST(Arithmetic, FloatOperationsOnBitPatterns) {
    EXPECT_EQ(binary("cal_addff", fbits(1.5f), fbits(2.25f)), fbits(3.75f));
    EXPECT_EQ(binary("cal_addf", fbits(1.5f), 2), fbits(3.5f));
    EXPECT_EQ(binary("cal_add0f", 2, fbits(1.5f)), fbits(3.5f));
    EXPECT_EQ(binary("cal_subff", fbits(1.0f), fbits(2.5f)), fbits(-1.5f));
    EXPECT_EQ(binary("cal_subf", fbits(1.0f), static_cast<uint32_t>(-2)), fbits(3.0f));
    EXPECT_EQ(binary("cal_sub0f", 1, fbits(0.25f)), fbits(0.75f));
    EXPECT_EQ(binary("cal_mulff", fbits(1.5f), fbits(-2.0f)), fbits(-3.0f));
    EXPECT_EQ(binary("cal_mulf", fbits(1.5f), 4), fbits(6.0f));
    EXPECT_EQ(binary("cal_mul0f", 3, fbits(0.5f)), fbits(1.5f));
    EXPECT_EQ(binary("cal_divff", fbits(1.0f), fbits(4.0f)), fbits(0.25f));
    EXPECT_EQ(binary("cal_divf", fbits(1.0f), 4), fbits(0.25f));
    EXPECT_EQ(binary("cal_div0f", 1, fbits(0.5f)), fbits(2.0f));
    EXPECT_EQ(unary("push_sub0f", fbits(-0.0f)), fbits(0.0f));
    EXPECT_EQ(unary("push_sub0f", fbits(0.0f)), fbits(0.0f));
    EXPECT_EQ(unary("push_sub0f", fbits(2.0f)), fbits(-2.0f));
    EXPECT_EQ(unary("c_f0", fbits(-2.5f)), fbits(2.5f));
}

TEST(Arithmetic, FloatDivisorMinusZeroDoesNotEndTheProgram) {
    Code c;
    c.op("push_long").u32(fbits(1.0f)).op("push_long").u32(fbits(-0.0f)).op("cal_divff");
    auto vm = exec(c, 3);
    EXPECT_FALSE(vm->m->exited);
    EXPECT_EQ(vm->cell(), fbits(-INFINITY));

    Code z;
    z.op("push_long").u32(fbits(1.0f)).op("push_char").u8(0).op("cal_divf");
    auto zero = exec(z, 3);
    EXPECT_TRUE(zero->m->exited);
    // Divided anyway and pushed: a1 then holds the exit code -1, a NaN pattern.
    EXPECT_EQ(zero->depth(), 1);
    EXPECT_TRUE(std::isnan(std::bit_cast<float>(zero->cell())));
}

TEST(Arithmetic, FloatComparisonsAndNaN) {
    const uint32_t nan = fbits(NAN);
    EXPECT_EQ(binary("cal_lessf", fbits(-1.0f), fbits(0.5f)), T);
    EXPECT_EQ(binary("cal_greatf", fbits(-1.0f), fbits(0.5f)), 0u);
    EXPECT_EQ(binary("cal_lef", fbits(2.0f), fbits(2.0f)), T);
    EXPECT_EQ(binary("cal_gef", fbits(1.0f), fbits(2.0f)), 0u);
    EXPECT_EQ(binary("cal_equf", fbits(0.0f), fbits(-0.0f)), T);
    EXPECT_EQ(binary("cal_neqf", fbits(0.0f), fbits(-0.0f)), 0u);
    for (const char* op : {"cal_lessf", "cal_greatf", "cal_lef", "cal_gef", "cal_equf"})
        EXPECT_EQ(binary(op, nan, fbits(1.0f)), 0u) << op;
    EXPECT_EQ(binary("cal_neqf", nan, nan), T);
}

TEST(Arithmetic, IncrementThroughReferences) {
    // Post-increment of a char 255: pushes 255, stores 0.
    Code c;
    c.op("push_long").u32(0x00013000).op("cal_INC");
    c.op("push_long").u32(0x00023002).op("cal_INC");
    c.op("push_long").u32(0x00003004).op("cal_dec");
    c.op("push_long").u32(0x00800004).op("cal_inc");  // local flag: local_bp + 4
    c.op("push_long").u32(0x00013008).op("cal_DEC");
    Vm vm(c);
    lRamWrite(*vm.m, 0x3000, 255);
    lRamWrite2(*vm.m, 0x3002, 32767);
    lRamWrite4(*vm.m, 0x3004, 0);
    lRamWrite4(*vm.m, 0x5004, 41);
    vm.m->local_bp = 0x5000;
    vm.run(10);
    EXPECT_EQ(vm.cell(4), 255u);
    EXPECT_EQ(lRamRead(*vm.m, 0x3000), 0);
    EXPECT_EQ(vm.cell(3), 32767u);
    EXPECT_EQ(lRamRead2(*vm.m, 0x3002), -32768);
    EXPECT_EQ(vm.cell(2), T);
    EXPECT_EQ(vm.cell(1), 42u);
    EXPECT_EQ(lRamRead4(*vm.m, 0x5004), 42u);
    EXPECT_EQ(vm.cell(0), 0u);  // char 0, post-decrement
    EXPECT_EQ(lRamRead(*vm.m, 0x3008), 255);
}

TEST(Arithmetic, IncrementByModeByte) {
    Code c;
    c.op("push_int").u16(0x3000).op("cal_idx").u8(0x01);          // pre-inc char
    c.op("push_int").u16(0x3002).op("cal_idx").u8(0x22);          // pre-dec int
    c.op("push_int").u16(0x3004).op("cal_idx").u8(0x40);          // post-inc long
    c.op("push_int").u16(0x0004).op("cal_idx").u8(0x80 | 0x60 | 1);  // post-dec local char
    Vm vm(c);
    lRamWrite(*vm.m, 0x3000, 9);
    lRamWrite2(*vm.m, 0x3002, 0x8000);
    lRamWrite4(*vm.m, 0x3004, 0xFFFFFFFF);
    lRamWrite(*vm.m, 0x6004, 0);
    vm.m->local_bp = 0x6000;
    vm.run(8);
    EXPECT_EQ(vm.cell(3), 10u);
    EXPECT_EQ(vm.cell(2), static_cast<uint32_t>(-32769));  // pushed before narrowing
    EXPECT_EQ(lRamRead2(*vm.m, 0x3002), 0x7FFF);
    EXPECT_EQ(vm.cell(1), T);
    EXPECT_EQ(lRamRead4(*vm.m, 0x3004), 0u);
    EXPECT_EQ(vm.cell(0), 0u);
    EXPECT_EQ(lRamRead(*vm.m, 0x6004), 255);
}

TEST(Assignment, StoresThroughReferencesAndPushesTheValue) {
    Code c;
    c.op("push_long").u32(0x00023000).op("push_long").u32(0x12345).op("c_let");
    c.op("push_long").u32(0x00013004).op("push_int").u16(300).op("c_let");
    c.op("push_long").u32(0x00800004).op("push_long").u32(0xCAFEBABE).op("c_let");
    Vm vm(c);
    vm.m->local_bp = 0x4000;
    vm.run(9);
    EXPECT_EQ(lRamRead(*vm.m, 0x3000), 0x45);
    EXPECT_EQ(lRamRead(*vm.m, 0x3001), 0x23);
    EXPECT_EQ(lRamRead(*vm.m, 0x3002), 0x00);
    EXPECT_EQ(vm.cell(2), 0x12345u);
    EXPECT_EQ(lRamRead(*vm.m, 0x3004), 44);
    EXPECT_EQ(vm.cell(1), 300u);
    EXPECT_EQ(lRamRead4(*vm.m, 0x4004), 0xCAFEBABEu);

    Code w;  // wide program: type in bits 24-30, local flag bit 31
    w.op("push_long").u32(0x81000010).op("push_int").u16(0x1FF).op("c_let");
    w.op("push_long").u32(0x10020).op("push_int").u16(0x1234).op("c_letx").u8(0x82);
    Vm wide(w, 0x80);
    wide.m->local_bp = 0x20000;
    wide.run(6);
    EXPECT_EQ(lRamRead(*wide.m, 0x20010), 0xFF);
    EXPECT_EQ(lRamRead(*wide.m, 0x20011), 0);
    EXPECT_EQ(lRamRead2(*wide.m, 0x30020), 0x1234);  // letx adds local_bp unmasked
    EXPECT_EQ(wide.cell(), 0x1234u);
}

TEST(Assignment, DereferenceMasksAndPointerToReference) {
    Code c;
    c.op("push_long").u32(0x00012345).op("c_ptr");
    c.op("push_long").u32(0xFF012345).op("c_iptr");
    c.op("push_long").u32(0x00012345).op("c_lptr");
    c.op("push_long").u32(0x00012345).op("c_cptr");
    c.op("push_long").u32(0x00812345).op("c_ciptr");
    c.op("push_long").u32(0x00012345).op("c_clptr");
    Vm vm(c);
    lRamWrite4(*vm.m, 0x2345, 0x1234F0F1);
    vm.run(12);
    EXPECT_EQ(vm.cell(5), 0xF1u);
    EXPECT_EQ(vm.cell(4), 0xFFFFF0F1u);
    EXPECT_EQ(vm.cell(3), 0x1234F0F1u);
    EXPECT_EQ(vm.cell(2), 0x00012345u);
    EXPECT_EQ(vm.cell(1), 0x00022345u);
    EXPECT_EQ(vm.cell(0), 0x00042345u);

    Code w;
    w.op("push_long").u32(0x7F012345).op("c_clptr");
    Vm wide(w, 0x10);
    wide.run(2);
    EXPECT_EQ(wide.cell(), 0x04012345u);
}

TEST(Conversion, IntegerFloatAndNarrowing) {
    EXPECT_EQ(unary("c_fci", fbits(-2.75f)), static_cast<uint32_t>(-2));
    EXPECT_EQ(unary("c_icf", 16777217), fbits(16777216.0f));
    EXPECT_EQ(unary("c_icf", static_cast<uint32_t>(-3)), fbits(-3.0f));
    EXPECT_EQ(unary("c_fci", fbits(NAN)), 0x80000000u);
    EXPECT_EQ(unary("c_fci", fbits(3e9f)), 0x80000000u);
    EXPECT_EQ(unary("c_fci", fbits(-3e9f)), 0x80000000u);
    EXPECT_EQ(unary("c_fci", fbits(INFINITY)), 0x80000000u);
    EXPECT_EQ(unary("c_lci", 0x00018000), static_cast<uint32_t>(-32768));
    EXPECT_EQ(unary("c_lcc", T), 255u);
}

}  // namespace
