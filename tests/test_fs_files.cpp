// File calls on the host side: listings and counts, names the guest cannot
// see, directories, reading and writing, the disk limit, refusals and the
// verbose switch.
#include <set>

#include "fs_harness.h"

using namespace fs_test;

namespace {

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
    EXPECT_EQ(vm.read_guest(buf), "..");
    EXPECT_EQ(lRamRead(m, buf + 3), 0xEE);  // nothing written behind the terminator
    std::set<std::string> names;
    for (uint32_t i = 1; i < 5; ++i) names.insert(vm.read_guest(buf + 16 * i));
    EXPECT_EQ(names, (std::set<std::string>{"one.txt", "\xD6\xD0.txt", "caf\xE9", "??"}));
    EXPECT_EQ(lRamRead(m, buf + 80), 0xEE);
    EXPECT_EQ(vm.call(c_findfile, {0, 1, buf}), 1u);
    EXPECT_EQ(vm.call(c_findfile, {2, 10, buf}), 3u);
    EXPECT_EQ(vm.call(c_findfile, {7, 1, buf}), uint32_t(-2));  // past the end: below 0
    EXPECT_EQ(vm.call(c_getfilenum, {vm.str("/d")}), 4u);
    EXPECT_EQ(vm.call(c_getfilenum, {vm.str(".profile")}), 0xFFFFFFFFu);
    EXPECT_EQ(vm.call(c_filelist, {}), 0xDEADBEEFu);  // pops and pushes nothing
}

// Making (0777 less the umask), changing into and removing directories; ".."
// never climbs out of the root; GB2312 names are UTF-8 on the host; listing
// a current directory that went away fails.
TEST(FsFiles, DirectoriesAndNames) {
    FsVm vm;
    vm.dir.write("sub/one.txt", "");
    auto on = [&](void (*fn)(Machine&), const std::string& name) { return vm.call(fn, {vm.str(name)}); };
    const uint32_t ok = 0xFFFFFFFF;
    const mode_t mask = umask(022);
    EXPECT_EQ(on(c_makedir, "game"), ok);
    umask(mask);
    struct stat st;  // ordinary permissions: 0777 less the umask
    ASSERT_EQ(stat((vm.dir.root / "game").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);
    EXPECT_EQ(on(c_makedir, "game"), 0u);
    EXPECT_EQ(on(c_makedir, "a/b"), 0u);  // parents are not made
    EXPECT_EQ(on(c_chdir, "/sub/one.txt"), 0u);
    EXPECT_EQ(on(c_chdir, "nothing"), 0u);
    EXPECT_EQ(on(c_chdir, "sub"), ok);
    EXPECT_EQ(on(c_chdir, ".."), ok);  // and stays in sub
    EXPECT_EQ(on(c_getfilenum, "."), 1u);
    vm.call(c_fclose, {vm.open("/../up.dat", "w")});
    vm.call(c_fclose, {vm.open("\xCE\xC4.txt", "w")});
    EXPECT_TRUE(stdfs::exists(vm.dir.root / "up.dat"));
    EXPECT_TRUE(stdfs::exists(vm.dir.root / "sub" / "\xE6\x96\x87.txt"));
    EXPECT_EQ(on(c_deletefile, "up.dat"), 0u);
    EXPECT_EQ(on(c_deletefile, "/up.dat"), ok);
    EXPECT_EQ(on(c_deletefile, "/sub"), 0u);  // not empty
    EXPECT_EQ(on(c_deletefile, "/game"), ok);
    EXPECT_EQ(on(c_getfilenum, "/game"), ok);
    EXPECT_EQ(vm.host.logged, "[IO] getfilenum FAILED: cannot open dir " + vm.dir.root_slash() + "game\n");
    on(c_makedir, "/gone");
    on(c_chdir, "/gone");
    on(c_deletefile, "/gone");
    EXPECT_EQ(vm.call(c_findfile, {0, 1, 0x4000}), ok);
}

// Write and read back, putc and getc, seek, tell and end of file, handles
// that are not open, the update and append modes, a mode the host takes as it
// is, and data still buffered in an open file.
TEST(FsFiles, ReadWriteSeekAndModes) {
    FsVm vm;
    const uint32_t bad = 0xFFFFFFFF, buf = 0x4000;
    auto read_all = [&](uint32_t h) { return vm.call(c_fread, {buf, 1, 100, h}) == 6 ? vm.read_guest(buf, 6) : ""; };
    uint32_t h = vm.open("rw.dat", "w");
    EXPECT_EQ(vm.call(c_fwrite, {vm.str("hello"), 1, 5, h}), 5u);
    EXPECT_EQ(vm.call(c_putc, {'!', h}), uint32_t('!'));
    EXPECT_EQ(vm.call(c_ftell, {h}), 6u);
    vm.call(c_fclose, {h});
    h = vm.open("rw.dat", "r");
    EXPECT_EQ(h, 0x80u);
    EXPECT_EQ(read_all(h), "hello!");  // a short read sets end of file
    EXPECT_EQ(vm.call(c_feof, {h}), 1u);
    vm.call(c_rewind, {h});
    EXPECT_EQ(vm.call(c_feof, {h}), 0u);
    EXPECT_EQ(vm.call(c_getc, {h}), uint32_t('h'));
    EXPECT_EQ(vm.call(c_fseek, {h, uint32_t(-2), 2}), 0u);  // from the end
    EXPECT_EQ(vm.call(c_getc, {h}), uint32_t('o'));
    EXPECT_EQ(vm.call(c_fseek, {h, 1, 1}), 0u);  // from here
    EXPECT_EQ(vm.call(c_getc, {h}), bad);
    EXPECT_EQ(vm.call(c_feof, {h}), 1u);
    EXPECT_EQ(vm.call(c_fseek, {h, 0, 3}), bad);
    EXPECT_EQ(vm.call(c_ftell, {h}), 6u);
    // Handles that are not open: none, out of range, a closed slot.
    EXPECT_EQ(vm.call(c_ftell, {0x90}), bad);
    EXPECT_EQ(vm.call(c_getc, {0}), bad);
    EXPECT_EQ(vm.call(c_feof, {0x81}), bad);
    EXPECT_EQ(vm.call(c_fseek, {0x8F, 0, 0}), bad);
    EXPECT_EQ(vm.call(c_putc, {'x', 0x90}), bad);
    EXPECT_EQ(vm.call(c_fread, {buf, 1, 4, 0x85}), 0u);
    vm.call(c_fclose, {h});
    // Update: read one byte, overwrite the next, read all from the start.
    h = vm.open("rw.dat", "r+");
    EXPECT_EQ(vm.call(c_getc, {h}), uint32_t('h'));
    EXPECT_EQ(vm.call(c_putc, {'X', h}), uint32_t('X'));
    EXPECT_EQ(vm.call(c_fseek, {h, 0, 0}), 0u);
    EXPECT_EQ(read_all(h), "hXllo!");
    vm.call(c_fclose, {h});
    std::string error;  // as a saved state opens it again: at its byte, both ways
    FILE* f = reopen_file((vm.dir.root_slash() + "rw.dat").c_str(), "r+", 2, false, &error);
    ASSERT_NE(f, nullptr) << error;
    EXPECT_EQ(std::fgetc(f), 'l');
    std::fseek(f, 0, SEEK_CUR);
    EXPECT_EQ(std::fputc('L', f), 'L');
    std::fclose(f);
    h = vm.open("rw.dat", "a");
    vm.call(c_putc, {'?', h});
    vm.call(c_fclose, {h});
    EXPECT_EQ(vm.dir.read("rw.dat"), "hXlLo!?");
    EXPECT_EQ(vm.open("rw.dat", "rt"), 0x80u);
    EXPECT_EQ(vm.open("rw.dat", "q"), 0u);
    h = vm.open("open.dat", "w");
    vm.call(c_fwrite, {vm.str("kept"), 1, 4, h});
    close_all_files(*vm.m);
    EXPECT_EQ(vm.dir.read("open.dat"), "kept");
}

// The disk limit: a new entry counts 4,096 bytes, writes what they add; a
// write past it is cut short and putc fails, rewriting bytes a file has is
// free, no entry can be made; truncating and removing give the room back.
TEST(FsFiles, DiskLimit) {
    FsVm vm;
    vm.m->disk_limit = 10000;
    const uint32_t buf = 0x4000, fail = 0xFFFFFFFF;
    for (uint32_t i = 0; i < 4000; ++i) lRamWrite(*vm.m, buf + i, 'x');
    uint32_t h = vm.open("a.dat", "w");
    EXPECT_EQ(vm.call(c_fwrite, {buf, 1, 4000, h}), 4000u);
    EXPECT_EQ(vm.call(c_fwrite, {buf, 1, 4000, h}), 1904u);
    EXPECT_EQ(vm.call(c_putc, {'!', h}), fail);
    vm.call(c_fseek, {h, 0, 0});
    EXPECT_EQ(vm.call(c_fwrite, {buf, 1, 4000, h}), 4000u);
    EXPECT_EQ(vm.open("c.dat", "w"), 0u);
    EXPECT_EQ(vm.call(c_makedir, {vm.str("d")}), 0u);
    vm.call(c_fclose, {h});
    h = vm.open("a.dat", "w");
    EXPECT_EQ(vm.call(c_fwrite, {buf, 1, 4000, h}), 4000u);
    vm.call(c_fclose, {h});
    EXPECT_EQ(vm.call(c_deletefile, {vm.str("a.dat")}), fail);
    EXPECT_EQ(vm.open("b.dat", "w"), 0x80u);
    EXPECT_FALSE(stdfs::exists(vm.dir.root / "c.dat") || stdfs::exists(vm.dir.root / "d"));
}

TEST(FsFiles, OpenRefusalsAndTheVerboseSwitch) {
    FsVm vm;
    Machine& m = *vm.m;
    vm.dir.write("dir/x", "");
    vm.dir.write("f.txt", "abc");
    EXPECT_EQ(vm.open("dir", "r"), 0u);
    EXPECT_EQ(vm.host.logged, "[IO] fopen FAILED: " + vm.dir.root_slash() + "dir (mode: rb)\n");
    EXPECT_EQ(vm.open("f.txt", "r,ccs=UTF-8"), 0u);
    // Names the guest may not use; the root itself is never removed.
    for (const char* name : {".profile", "a/..b", "c:x", "a\\b"}) EXPECT_EQ(vm.open(name, "w"), 0u) << name;
    EXPECT_EQ(vm.call(c_makedir, {vm.str(".hidden")}), 0u);
    EXPECT_EQ(vm.call(c_deletefile, {vm.str("/")}), 0u);
    vm.host.logged.clear();
    m.verbose_mode = 0;
    EXPECT_EQ(vm.open("missing", "r"), 0u);
    EXPECT_EQ(vm.call(c_getfilenum, {vm.str("missing")}), 0xFFFFFFFFu);
    for (int i = 0; i < kMaxFiles; ++i) EXPECT_EQ(vm.open("f.txt", "r"), 0x80u + i);
    EXPECT_EQ(vm.open("f.txt", "r"), 0u);
    EXPECT_EQ(vm.host.logged, "");
    m.verbose_mode = 1;
    EXPECT_EQ(vm.open("f.txt", "r"), 0u);
    EXPECT_EQ(vm.host.logged, "[IO] fopen FAILED: no more file handles (max 16)\n");
    vm.call(c_fclose, {0x83});
    EXPECT_EQ(vm.open("f.txt", "r"), 0x83u);  // a freed slot is the next one taken
}

}  // namespace
