// Helpers of the front-end tests: temporary directories, assembled programs,
// a front-end whose log and guest console are recorded, and runs of the real
// tvm2.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "frontend/frontend.h"
#include "tools/asm/asm.h"

namespace fs = std::filesystem;

// A fresh directory under the system's temporary directory, removed again.
struct TempDir {
    fs::path path;
    TempDir() {
        std::string templ = (fs::temp_directory_path() / "tvm2fe.XXXXXX").string();
        path = mkdtemp(templ.data());
    }
    ~TempDir() {
        std::error_code ec;
        fs::remove_all(path, ec);
    }
    std::string str() const { return path.string(); }
};

inline void write_file(const fs::path& p, const std::string& text) {
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << text;
}

inline std::string read_file(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Assembles source into a .tvx file at p.
inline void assemble_to(const fs::path& p, const std::string& source) {
    const AsmResult r = assemble(source, p.filename().string());
    ASSERT_TRUE(r.errors.empty()) << r.errors.front().line << ": " << r.errors.front().message;
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary).write(reinterpret_cast<const char*>(r.bytes.data()),
                                             static_cast<std::streamsize>(r.bytes.size()));
}

// A front-end without a window unless a test opens one; load() starts a
// program on the real clock, as tvm2 does.
struct TestFrontend {
    std::string log, console;  // outlive the core, which writes to them until its end
    TempDir dir;
    Frontend fe;
    TestFrontend() {
        fe.core.sinks.log = [this](std::string_view t) { log += t; };
        fe.core.sinks.console = [this](std::string_view t) { console += t; };
    }
    void load(const std::string& source) {
        assemble_to(dir.path / "p.tvx", source);
        LoadOptions o;
        o.program = (dir.path / "p.tvx").string();
        o.virtual_clock = false;
        ASSERT_EQ(core_load(fe.core, o), "");
    }
};

// The outcome of one run of a program.
struct Process {
    int status = -1;
    std::string out, err;
};

// Runs a shell command line in dir under SDL's dummy video driver.
inline Process run_in(const std::string& dir, const std::string& command) {
    TempDir io;
    const std::string out = (io.path / "out").string(), err = (io.path / "err").string();
    const std::string cmd = "cd '" + dir + "' && SDL_VIDEODRIVER=dummy SDL_AUDIODRIVER=dummy timeout 30 " + command +
                            " >'" + out + "' 2>'" + err + "'";
    const int rc = std::system(cmd.c_str());
    return {WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, read_file(out), read_file(err)};
}

inline Process run_tvm2(const std::string& dir, const std::string& args) {
    return run_in(dir, std::string("'") + TVM2_BIN + "' " + args);
}
