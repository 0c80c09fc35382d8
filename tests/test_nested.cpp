// Nested programs seen from inside the machine: the child's root, key codes,
// RAM and screen, and the parent's screen, palette and keys that come back
// when it ends (the nest_* programs check directories, files, the command
// line and the string key end to end).
#include <unistd.h>

#include "fs/config.h"
#include "fs_harness.h"

using namespace fs_test;

namespace {

// Copies `text` and a terminator to guest address `at` as program data.
Code& preset(Code& c, uint32_t at, const std::string& text, bool wide) {
    c.op("c_preset");
    wide ? c.u24(at) : c.u16(at);
    c.u16(static_cast<uint32_t>(text.size() + 1));
    for (char ch : text) c.u8(static_cast<uint8_t>(ch));
    return c.u8(0);
}

// Runs with the process in the temporary directory, whose TovixOS/ is then
// the default guest root; the old directory comes back at the end.
struct InDir {
    std::string old = stdfs::current_path().string();
    explicit InDir(const stdfs::path& p) { stdfs::current_path(p); }
    ~InDir() { stdfs::current_path(old); }
};

TEST(Nested, RefusedStartsChangeNothing) {
    TempRoot dir;
    InDir in(dir.top);
    stdfs::create_directories(dir.top / "TovixOS");
    std::ofstream(dir.top / "TovixOS/bad.tvx") << "not a program";
    Code parent;
    parent.op("set_sp").u24(0x4000);
    preset(parent, 0x3000, "/bad.tvx", true);
    preset(parent, 0x3010, "/none.tvx", true);
    preset(parent, 0x3020, ".x", true);
    for (uint32_t at : {0x3000, 0x3010, 0x3020}) parent.op("push_int").u16(at).op("push_int").u16(at).op("push_char").u8(0).op("c_exec");
    parent.op("push_char").u8(0).op("c_exit");
    Vm vm(parent, 0x80);
    filesys_init(*vm.m);
    vm.run();
    EXPECT_EQ(vm.m->task_lev, 0);
    EXPECT_EQ(vm.depth(), 3);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(vm.cell(i), 0xFFFFFFFFu);
    EXPECT_NE(vm.host.logged.find("Not valid Tovix file TovixOS/bad.tvx!"), std::string::npos);
    EXPECT_NE(vm.host.logged.find("Can not open TovixOS/none.tvx!"), std::string::npos);
}

}  // namespace
