// String and memory calls given hostile pointers and counts, which must
// stay inside guest memory; character classes.
#include <fstream>
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

// Classes and case of every byte against ctype_table.txt: BYTE:CLASSES:
// TOUPPER:TOLOWER, CLASSES the sum of 1 isalnum, 2 isalpha, 4 iscntrl,
// 8 isdigit, 16 isgraph, 32 islower, 64 isprint, 128 ispunct, 256 isspace,
// 512 isupper, 1024 isxdigit. Only the low byte of an argument counts.
TEST(LibCtype, ClassesAndCaseOfEveryByte) {
    void (*const classes[])(Machine&) = {c_isalnum, c_isalpha, c_iscntrl, c_isdigit, c_isgraph, c_islower,
                                         c_isprint, c_ispunct, c_isspace, c_isupper, c_isxdigit};
    std::ifstream in(TVM2_TEST_DATA "/ctype_table.txt");
    std::string want, got;
    for (std::string w; in >> w;) want += w + " ";
    CallVm c;
    for (uint32_t b = 0; b < 256; ++b) {
        const int64_t arg = 0x12345600 | b;
        uint32_t sum = 0;
        for (uint32_t i = 0; i < std::size(classes); ++i) sum += c.result(classes[i], {arg}) & (1u << i);
        got += std::to_string(b) + ":" + std::to_string(sum) + ":" + std::to_string(c.result(c_toupper, {arg})) + ":" +
               std::to_string(c.result(c_tolower, {arg})) + " ";
    }
    EXPECT_EQ(got, want);
}

}  // namespace
