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

std::vector<uint8_t> program_file(const Code& c, uint8_t flags, uint8_t width = 0, uint8_t height = 0) {
    auto file = tvx_header(flags, width, height);
    file.insert(file.end(), c.b.begin(), c.b.end());
    return file;
}

// Runs with the process in the temporary directory, whose TovixOS/ is then
// the default guest root; the old directory comes back at the end.
struct InDir {
    std::string old = stdfs::current_path().string();
    explicit InDir(const stdfs::path& p) { stdfs::current_path(p); }
    ~InDir() { stdfs::current_path(old); }
};

TEST(Nested, ChildStateAndTheParentsReturn) {
    TempRoot dir;
    InDir in(dir.top);
    const stdfs::path prog = dir.top / "TovixOS/PROGRAM/g";
    stdfs::create_directories(prog);
    std::ofstream(prog / "Config.ini") << "A = X\n";

    // Child: 16 greys, 192x96; exits 7.
    Code child;
    child.op("push_char").u8(7).op("c_exit");
    const auto bytes = program_file(child, 0x40, 12, 6);
    std::ofstream(prog / "child.tvx", std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));

    // Parent: 24-bit, 256 colours; a marker under the start call's result.
    Code parent;
    parent.op("set_sp").u24(0x4000).op("push_char").u8(11);
    preset(parent, 0x3000, "/PROGRAM/g/child.tvx", true);
    preset(parent, 0x3100, "arg", true);
    parent.op("push_int").u16(0x3000).op("push_int").u16(0x3100).op("push_char").u8(0).op("c_exec");
    parent.op("push_char").u8(0).op("c_exit");
    Vm vm(parent, 0xE0);
    Machine& m = *vm.m;
    filesys_init(m);
    m.bgcolor = 9;
    m.palette[3 * 20] = 0x42;
    m.key_code[5] = 0x61;
    const uint32_t outer = m.frame_number;

    while (m.task_lev == 0 && !m.exited) vm.run(1);
    ASSERT_EQ(m.task_lev, 1);
    EXPECT_STREQ(m.RootPath, "TovixOS/PROGRAM/g/");
    EXPECT_EQ(m.key_code[5], 0x78);  // from the child's Config.ini
    EXPECT_EQ(m.lRam, 0x4000u);
    EXPECT_EQ(m.graph_mode, 4);
    EXPECT_EQ(m.ScreenWidth, 192);

    m.need_refresh = 1;
    vm.run();
    EXPECT_EQ(m.frame_number, outer + 1);  // the child's last picture is shown
    EXPECT_TRUE(m.exited);
    EXPECT_EQ(m.task_lev, 0);
    EXPECT_EQ(vm.cell(0), 7u);
    EXPECT_EQ(vm.cell(1), 11u);
    EXPECT_EQ(m.lRam, 0u);
    EXPECT_EQ(m.RamBits, 24u);
    EXPECT_EQ(m.graph_mode, 8);
    EXPECT_EQ(m.fgcolor, 255);
    EXPECT_EQ(m.bgcolor, 9);
    EXPECT_EQ(m.palette[3 * 20], 0x42);
    EXPECT_EQ(m.ScreenWidth, 160);
    EXPECT_EQ(m.ScreenHeight, 80);
    EXPECT_EQ(m.key_code[5], 0x61);
    EXPECT_STREQ(m.RootPath, "TovixOS/");
    EXPECT_EQ(m.pTOVI->file_size, 16 + parent.b.size());
}

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
