// Frames, marks, stop requests, exits and undefined code: what the
// calls_frames and frames32 programs leave unseen.
#include "vm_harness.h"

namespace {

TEST(Control, ArgumentsStartAtSixIn24BitAndEightIn32BitFrames) {
    for (uint8_t flags : {0x80, 0x10}) {
        Code c;
        c.op("set_sp").u24(0x23000).op("push_char").u8(1).op("push_char").u8(2).op("add_bp").u24(0x40).u8(2).op("sub_bp");
        Vm vm(c, flags);
        vm.m->local_bp = 0x0ABCDE;
        vm.run(4);
        Machine& m = *vm.m;
        const uint32_t first = flags == 0x10 ? 8 : 6;
        EXPECT_EQ(lRamRead4(m, 0x23000 + first), 1u) << int(flags);
        EXPECT_EQ(lRamRead4(m, 0x23000 + first + 4), 2u) << int(flags);
        EXPECT_EQ(lRamRead(m, 0x23005), 0x0A) << int(flags);  // caller's bits 16-23
        EXPECT_EQ(m.local_sp, 0x23040u);
        lRamWrite(m, 0x23000, 16);  // return to the first instruction
        lRamWrite2(m, 0x23001, 0);
        vm.run(1);
        EXPECT_EQ(m.local_bp, 0x0ABCDEu);
        EXPECT_EQ(m.lPC, 16u);
    }
}

TEST(Control, EmptyPresetAndMarks) {
    Code c;
    c.op("c_preset").u16(0x3010).u16(0).op("c_debug").u24(0x123456).op("c_funcid").u24(42).op("c_funcid").u24(43);
    Vm vm(c);
    lRamWrite(*vm.m, 0x3010, 0x55);
    vm.run(4);
    Machine& m = *vm.m;
    EXPECT_EQ(lRamRead(m, 0x3010), 0x55);
    EXPECT_EQ(m.d_line, 0x123456);
    EXPECT_EQ(m.cur_funcid, 43u);
    EXPECT_EQ(m.func_top, 2u);
    EXPECT_EQ(m.func_stack[1], 42u);
}

TEST(Control, StopRequestIsConsumedByAJumpAsExitZero) {
    for (const char* op : {"c_jmp", "c_call"}) {
        Code c;
        c.op(op).u24(16);
        Vm vm(c);
        vm.m->force_exit_tvx = 1;
        vm_step(*vm.m);
        EXPECT_TRUE(vm.m->exited) << op;
        EXPECT_EQ(vm.m->exit_code, 0) << op;
        EXPECT_EQ(vm.m->force_exit_tvx, 0) << op;
        EXPECT_EQ(vm.m->stop, Stop::Ended) << op;  // single-program mode: the loop ends
    }
    Code plain;
    plain.op("push_char").u8(1).op("push_char").u8(2);
    Vm vm(plain);
    vm.m->force_exit_tvx = 1;
    EXPECT_EQ(vm.run(2), 2u);  // other instructions leave the request pending
    EXPECT_FALSE(vm.m->exited);
    EXPECT_EQ(vm.m->force_exit_tvx, 1);
}

TEST(Exit, TopLevelExitRestartsUnlessSingleProgram) {
    Code c;
    c.op("push_char").u8(9).op("c_preset").u16(0x2000).u16(1).raw({1}).op("good_exit");
    Vm vm(c);
    vm.m->single_program_mode = 0;
    vm.run(3);
    EXPECT_EQ(vm.m->exit_code, 0);
    EXPECT_EQ(vm.m->lPC, 16u);
    EXPECT_EQ(vm.m->eval_top, 0);
    EXPECT_EQ(lRamRead(*vm.m, 0x2000), 0);  // data area cleared again
    EXPECT_EQ(vm.m->stop, Stop::None);

    Vm single(c);
    EXPECT_EQ(single.run(), 3u);
    EXPECT_EQ(single.m->exit_code, 0);
    EXPECT_EQ(single.m->stop, Stop::Ended);
}

TEST(Exit, ControlLeavingTheImageEndsTheProgram) {
    Code call, ret, cut_string, cut_preset, cut_operand;
    call.op("c_call").u24(0x20);
    ret.op("sub_bp");  // returns to whatever the frame holds
    cut_string.op("push_string").raw({'a', 'b'});
    cut_preset.op("c_preset").u16(0x3000).u16(0xFFFF).raw({1, 2});
    cut_operand.op("push_long").raw({1});
    for (const Code* c : {&call, &ret, &cut_string, &cut_preset, &cut_operand}) {
        Vm vm(*c);
        lRamWrite4(*vm.m, 0, 0xFFFFFF);
        vm.run(10);
        EXPECT_EQ(vm.m->exit_code, -1);
        EXPECT_NE(vm.host.logged.find("left the program image"), std::string::npos) << vm.host.logged;
    }
}

}  // namespace
