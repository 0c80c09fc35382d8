// String and memory calls given hostile pointers and counts, which must
// stay inside guest memory.
#include <string>

#include "lib/syscalls.h"
#include "vm_harness.h"

namespace {

// Hostile arguments: strings without a terminator anywhere, areas that run
// over the end of the block, counts far beyond it. Nothing may leave guest
// memory (the sanitizer build checks) and nothing may hang.
TEST(LibStrings, WildPointersAndHugeCountsStayInGuestMemory) {
    CallVm c(0x80);  // 24-bit addresses reach the whole block and beyond
    uint8_t* ram = c.m->tovix_ram;
    // A string that runs over the end of the block continues at its start.
    ram[kRamMask - 1] = 'a';
    ram[kRamMask] = 'b';
    ram[0] = 'c';
    ram[1] = 0;
    EXPECT_EQ(c.result(c_strlen, {kRamMask - 1}), 3u);
    EXPECT_EQ(c.result(c_strchr, {kRamMask - 1, 'c'}), kRamMask + 1);
    c.str(0x3000, "bc");
    EXPECT_EQ(c.result(c_strstr, {kRamMask - 1, 0x3000}), kRamMask);

    // No zero byte in the whole block. The arguments' stack cells are part
    // of the block too, so they are made of 'a' bytes as well.
    const uint32_t A = 0x61616161;  // guest 0x616161
    const auto all_a = [&] { std::memset(ram, 'a', kRamSize); };
    all_a();
    EXPECT_EQ(c.result(c_strlen, {A}), kRamSize);
    all_a();
    EXPECT_EQ(c.result(c_strcmp, {A, A}), 0u);
    all_a();
    EXPECT_EQ(c.result(c_strstr, {A, A}), A & 0xFFFFFF);
    all_a();
    c.call(c_strcpy, {A, A});
    all_a();
    c.call(c_strcat, {A, A});
    // A long pattern that almost matches everywhere must not take quadratic time.
    all_a();
    ram[0x72000] = 'b';
    ram[0x72001] = 0;
    ram[0xFFFFE] = 'c';
    ram[0xFFFFF] = 0;
    EXPECT_EQ(c.result(c_strstr, {0x2000, 0xC0000}), 0u);
    ram[0xFFFFE] = 'b';
    EXPECT_EQ(c.result(c_strstr, {0x2000, 0xF0000}), 0x72000u - 0xFFFE);

    // strcat of a string onto itself reads what it writes; it must still end.
    std::memset(ram, 0, kRamSize);
    c.str(0x3000, "ab");
    c.call(c_strcat, {0x3000, 0x3000});
    EXPECT_EQ(lRamRead(*c.m, 0x3002), 'a');

    // Counts up to 16 MiB and areas that wrap.
    c.call(c_memset, {0xFFFFFF, 0x11, 0xFFFFFF});
    EXPECT_EQ(ram[0], 0x11);
    EXPECT_EQ(ram[kRamMask], 0x11);
    ram[kRamMask - 1] = 1;
    ram[kRamMask] = 2;
    ram[0] = 3;
    c.call(c_memmove, {0x10, kRamMask - 1, 3});
    EXPECT_EQ(c.read(0x10, 3), "\x01\x02\x03");
    c.call(c_memmove, {kRamMask, 0x10, 3});
    EXPECT_EQ(ram[kRamMask], 1);
    EXPECT_EQ(ram[1], 3);
    c.call(c_memmove, {0x800000, 0x123456, 0xFFFFFF});
    c.call(c_memcpy, {0xFFFF00, 0x400, 0xFFFFFF});
    c.call(c_memcpy, {0x401, 0x400, 0xFFFFFF});
    c.call(c_memset, {0x12345, 0, 0x3000});
}

}  // namespace
