// A temporary directory holding a guest root, and a machine whose file
// calls can be made directly with guest strings and numbers as arguments.
#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "fs/path.h"
#include "lib/syscalls.h"
#include "vm_harness.h"

namespace fs_test {

namespace stdfs = std::filesystem;

// A fresh directory T with the guest root T/root; everything is removed at
// the end (directories the guest made with permission bits 0 included).
struct TempRoot {
    stdfs::path top, root;
    TempRoot() {
        std::string tmpl = (stdfs::temp_directory_path() / "tvm2fsXXXXXX").string();
        top = mkdtemp(tmpl.data());
        root = top / "root";
        stdfs::create_directory(root);
    }
    ~TempRoot() {
        open_up(top);
        std::error_code ec;
        stdfs::remove_all(top, ec);
    }
    static void open_up(const stdfs::path& p) {
        std::error_code ec;
        if (!stdfs::is_directory(stdfs::symlink_status(p, ec))) return;
        stdfs::permissions(p, stdfs::perms::owner_all, stdfs::perm_options::add, ec);
        for (const auto& e : stdfs::directory_iterator(p, ec)) open_up(e.path());
    }
    // root + "/" as a GB2312 guest root (the temporary path is ASCII).
    std::string root_slash() const { return root.string() + "/"; }
    void write(const std::string& rel, const std::string& text) const {
        stdfs::create_directories((root / rel).parent_path());
        std::ofstream(root / rel, std::ios::binary) << text;
    }
    std::string read(const std::string& rel) const {
        std::ifstream in(root / rel, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
};

struct FsVm {
    TempRoot dir;
    TestHost host;
    std::unique_ptr<Machine> m = std::make_unique<Machine>();
    uint32_t next_str = 0x8000;

    explicit FsVm(uint32_t ram_bits = 16) {
        m->host = &host;
        filesys_init(*m);
        SetRoot(*m, dir.root_slash().c_str());
        set_ram_bits(*m, ram_bits);
    }
    // Copies s with a terminator into guest memory; returns its address.
    uint32_t str(const std::string& s) {
        const uint32_t at = next_str;
        for (size_t i = 0; i <= s.size(); ++i) lRamWrite(*m, at + static_cast<uint32_t>(i), i < s.size() ? static_cast<uint8_t>(s[i]) : 0);
        next_str += static_cast<uint32_t>(s.size()) + 1;
        return at;
    }
    // Pushes the arguments in order, runs the call and returns what it
    // pushed (or 0xDEADBEEF when it pushed nothing).
    uint32_t call(void (*fn)(Machine&), std::initializer_list<uint32_t> args) {
        m->eval_top = 0;
        for (uint32_t a : args) push_cell(*m, a);
        fn(*m);
        if (m->eval_top == 0) return 0xDEADBEEF;
        EXPECT_EQ(m->eval_top, 4) << "stack effect";
        return lRamRead4(*m, m->eval_stack);
    }
    // The string at guest address `at`, or its first n bytes.
    std::string read_guest(uint32_t at, uint32_t n = 0) {
        std::string s;
        for (uint32_t i = 0; n ? i < n : lRamRead(*m, at + i) != 0; ++i) s += static_cast<char>(lRamRead(*m, at + i));
        return s;
    }
    uint32_t open(const std::string& name, const std::string& mode) {
        return call(c_fopen, {str(name), str(mode)});
    }
};

}  // namespace fs_test
