// Hostile arguments to the output calls and the services: pointers anywhere
// in the 32-bit range, areas across the end of the block, text without a
// terminator. Everything must stay inside guest memory (the sanitizer build
// checks) and every call must end.
#include <cstring>

#include "lib/syscalls.h"
#include "vm_harness.h"

TEST(LibOutput, WildPointersWrapIntoTheBlock) {
    CallVm c(0x10);  // 32-bit program: pointers keep their low 24 bits
    // A format across the end of the block, from a pointer with high bits set.
    c.str(0xFFFFC, "%s|%d");
    c.str(0x3000, "xy");
    c.call(c_sprintf, {0xFFFFFFF0, 0xABFFFFFC, 0x7F003000, 0xFFFFFFFF, 4});
    EXPECT_EQ(c.read(0xFFFF0), "xy|-1");
    // A destination across the end.
    c.str(0x3100, "ab%s");
    c.call(c_sprintf, {0xFFFFFFFE, 0x3100, 0x3000, 3});
    EXPECT_EQ(c.m->tovix_ram[kRamMask], 'b');
    EXPECT_EQ(c.read(0xFFFFFE), "abxy");
    // printf, putchar and sprintf with "%s" of pointers everywhere.
    for (uint32_t p : {0u, 0xFFFFFFFFu, 0x80000000u, 0x00FFFFFFu, 0x12345678u}) {
        c.str(0x3000, "%s%c%5d%f");
        c.call(c_printf, {0x3000, p, p, p, p, 5});
        c.call(c_sprintf, {0x4000, 0x3000, p, p, p, p, 6});
        c.call(c_putchar, {p});
    }
}

// Formats without a terminator anywhere in the block: the scan reads the
// block once; a block full of "%s" over strings without terminators stops at
// the output limit. Both calls end with the stack cleared of their arguments.
TEST(LibOutput, UnterminatedFormatsEnd) {
    CallVm c(0x80);
    std::memset(c.m->tovix_ram, 'x', kRamSize);
    c.call(c_sprintf, {0x5000, 0x2000, 2});
    // One pass over the block: every byte is overwritten with 'x', the
    // terminator lands on the destination itself.
    int zeros = 0;
    for (uint32_t i = 0; i < kRamSize; ++i) zeros += c.m->tovix_ram[i] == 0;
    EXPECT_EQ(zeros, 1);
    EXPECT_EQ(lRamRead(*c.m, 0x5000), 0);

    for (uint32_t i = 0; i < kRamSize; i += 2) std::memcpy(c.m->tovix_ram + i, "%s", 2);
    c.call(c_sprintf, {0x61616161, 0x41414141, 2});
    for (uint32_t i = 0; i < kRamSize; i += 2) std::memcpy(c.m->tovix_ram + i, "%s", 2);
    c.call(c_printf, {0x2000, 1});
}
