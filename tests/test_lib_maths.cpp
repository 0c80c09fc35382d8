// The CRC-16 and the cipher given masked and hostile arguments; their
// results, the sine table and c_math are checked end to end by the
// lib_maths and lib_trig programs.
#include <string>

#include "lib/syscalls.h"
#include "vm_harness.h"

namespace {

TEST(LibMaths, SixteenBitProgramsMaskAddressesAndLengths) {
    CallVm c;
    c.str(0x3000, "123456789");
    EXPECT_EQ(c.result(c_crc16, {0x7FFF3000, 0x10009}), 0x31C3u);
    c.str(0x3100, "k");
    c.call(c_jiami, {0x10003000, 0x20002, 0xFFFF3100});
    EXPECT_EQ(c.read(0x3000, 3), (std::string{'1' ^ 'k', '2' ^ 'k', '3'}));
}

TEST(LibMaths, HugeLengthsAndWildPointersStayInGuestMemory) {
    CallVm c(0x80);  // 24-bit program
    // Data that runs over the end of the block continues at its start.
    c.m->tovix_ram[kRamMask - 1] = '1';
    c.m->tovix_ram[kRamMask] = '2';
    c.str(0, "3456789");
    EXPECT_EQ(c.result(c_crc16, {kRamMask - 1, 9}), 0x31C3u);
    c.result(c_crc16, {0xFFFFFF, 0xFFFFFF});
    // A key with no terminator in reach and a data area of 16 MiB.
    std::memset(c.m->tovix_ram + 0x10000, 0x5A, kRamSize - 0x10000);
    c.call(c_jiami, {0xFFFFF0, 0xFFFFFF, 0x10000});
    c.call(c_jiami, {0x123, 0xFFFFFF, 0xFFFFFF});
}

}  // namespace
