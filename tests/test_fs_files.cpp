// File calls on the host side: listings and counts, names the guest cannot
// see, records, refusals, the verbose switch, and transfers that wrap at the
// end of guest memory.
#include <set>

#include "fs_harness.h"

using namespace fs_test;

namespace {

std::string record(Machine& m, uint32_t at) {
    std::string s;
    for (uint8_t c; (c = lRamRead(m, at + static_cast<uint32_t>(s.size()))) != 0;) s += static_cast<char>(c);
    return s;
}

TEST(FsFiles, ListingsAndCounts) {
    FsVm vm;
    Machine& m = *vm.m;
    vm.dir.write("d/one.txt", "1");
    vm.dir.write("d/\xE4\xB8\xAD.txt", "2");  // a GB2312 name on the host in UTF-8
    vm.dir.write("d/ab_cd_ef_gh_ijk", "");    // 15 bytes: neither listed nor counted
    vm.dir.write("d/\xF0\x9F\x98\x80", "");   // outside the BMP: no GB2312 form
    vm.dir.write("d/bad\xFF", "");            // not UTF-8
    vm.dir.write("d/caf\xC3\xA9", "");        // below 256: one byte
    vm.dir.write("d/\xED\x95\x9C", "");       // no GB2312 code: "??"
    ASSERT_EQ(my_chdir(m, "d"), 0);
    const uint32_t buf = 0x4000;
    for (uint32_t i = 0; i < 96; ++i) lRamWrite(m, buf + i, 0xEE);
    EXPECT_EQ(vm.call(c_findfile, {0, 10, buf}), 5u);
    EXPECT_EQ(record(m, buf), "..");
    EXPECT_EQ(lRamRead(m, buf + 3), 0xEE);  // nothing written behind the terminator
    std::set<std::string> names;
    for (uint32_t i = 1; i < 5; ++i) names.insert(record(m, buf + 16 * i));
    EXPECT_EQ(names, (std::set<std::string>{"one.txt", "\xD6\xD0.txt", "caf\xE9", "??"}));
    EXPECT_EQ(lRamRead(m, buf + 80), 0xEE);
    EXPECT_EQ(vm.call(c_findfile, {0, 1, buf}), 1u);
    EXPECT_EQ(vm.call(c_findfile, {2, 10, buf}), 3u);
    EXPECT_EQ(vm.call(c_getfilenum, {vm.str("/d")}), 4u);
    EXPECT_EQ(vm.call(c_getfilenum, {vm.str(".profile")}), 0xFFFFFFFFu);
    EXPECT_EQ(vm.call(c_filelist, {}), 0xDEADBEEFu);  // pops and pushes nothing
}

TEST(FsFiles, OpenRefusalsAndTheVerboseSwitch) {
    FsVm vm;
    Machine& m = *vm.m;
    vm.dir.write("dir/x", "");
    vm.dir.write("f.txt", "abc");
    EXPECT_EQ(vm.open("dir", "r"), 0u);
    EXPECT_EQ(vm.host.logged, "[IO] fopen FAILED: " + vm.dir.root_slash() + "dir (mode: rb)\n");
    EXPECT_EQ(vm.open("f.txt", "r,ccs=UTF-8"), 0u);
    vm.host.logged.clear();
    m.verbose_mode = 0;
    EXPECT_EQ(vm.open("missing", "r"), 0u);
    EXPECT_EQ(vm.call(c_getfilenum, {vm.str("missing")}), 0xFFFFFFFFu);
    for (int i = 0; i < kMaxFiles; ++i) EXPECT_EQ(vm.open("f.txt", "r"), 0x80u + i);
    EXPECT_EQ(vm.open("f.txt", "r"), 0u);
    EXPECT_EQ(vm.host.logged, "");
}

}  // namespace
