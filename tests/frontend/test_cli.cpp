// The real tvm2 started as a program: its messages, exit statuses and runs.
#include "fe_harness.h"

namespace {

const std::string kBin = TVM2_BIN;

std::string help_text(const std::string& argv0) {
    const std::string& a = argv0;
    return "Usage: " + a + " [-v] <path>\n" +
           "  -v         Enable IO debug output\n"
           "  path       Path to a .tvx file or a directory containing .tvx files.\n"
           "\nUnit Test Mode:\n"
           "  " + a + " <test_dir> <test_func>  # Run unit test\n" +
           "  " + a + " <file.tvx> <test_func>  # Run unit test with .tvx file\n" +
           "\nExamples:\n"
           "  " + a + " game.tvx          # Open specific .tvx file\n" +
           "  " + a + " -v game.tvx       # Open with IO debug\n" +
           "  " + a + " /path/to/games/   # Open first .tvx file in directory\n" +
           "  " + a + " /path/to/test testFunc  # Run unit test\n" +
           "  " + a + " test.tvx testFunc  # Run unit test with .tvx file\n";
}

TEST(Tvm2Program, NoArgumentPrintsTheBannerAndFails) {
    TempDir d;
    const RunResult r = run_tvm2(d.str(), "");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out,
              "Tovix虚拟机 v2.0\n"
              "错误：没有指定输入文件\n"
              "使用 'tvm2 -h' 或 'tvm2 --help' 查看帮助信息\n");
    EXPECT_EQ(r.err, "");
}

TEST(Tvm2Program, HelpAnywhereStopsBeforeTheWindow) {
    TempDir d;
    fs::create_directories(d.path / "TovixOS");
    assemble_to(d.path / "game.tvx", "good_exit\n");
    for (const char* args : {"-h", "--help", "game.tvx -h", "-v missing --help game.tvx"}) {
        SCOPED_TRACE(args);
        const RunResult r = run_tvm2(d.str(), args);
        EXPECT_EQ(r.status, 0);
        const std::string before = std::string(args).rfind("-v", 0) == 0
                                       ? "Verbose mode enabled\nPath not found: " + d.str() + "/missing\n"
                                       : "";
        EXPECT_EQ(r.out, before + help_text(kBin));
        EXPECT_EQ(r.err, "");
    }
}

TEST(Tvm2Program, NothingToRunEndsWithTheUsageOnStandardError) {
    TempDir d;
    write_file(d.path / "GAME.TVX", "");
    RunResult r = run_tvm2(d.str(), "-v");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "Verbose mode enabled\n");
    EXPECT_EQ(r.err, "Error: No .tvx file specified or file not found.\nUsage: " + kBin + " <file.tvx> [test_func]\n");
    r = run_tvm2(d.str(), "GAME.TVX");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "File is not a .tvx file: " + d.str() + "/GAME.TVX\n");
}

// A program named on the command line runs once: when it exits the window
// closes and tvm2 ends; its console text is on standard output.
TEST(Tvm2Program, SingleProgramRunsOnceAndPrintsToStandardOutput) {
    TempDir d;
    fs::create_directories(d.path / "TovixOS");
    assemble_to(d.path / "PROGRAM" / "hello.tvx",
                ".tvx bits=24 mode=8 width=240 height=160\n"
                "        push_string \"\\xc4\\xe3\\xba\\xc3 %s\\n\"\n"  // GB2312 "ni hao"
                "        push_int 0x3000\n"
                "        c_getcmdline\n"
                "        push_int 0x3000\n"
                "        push_char 2\n"
                "        c_printf\n"
                "        push_char 7\n"
                "        c_exit\n");
    const RunResult r = run_tvm2(d.str(), "PROGRAM/hello.tvx check extra");
    EXPECT_EQ(r.status, 0);
    const auto pos = [&](const std::string& s) { return r.out.find(s); };
    EXPECT_NE(pos("Unit test mode: func=check\n"), std::string::npos) << r.out;
    EXPECT_NE(pos("root = .\n"), std::string::npos);
    EXPECT_NE(pos("Window mode: 640 x 480\n"), std::string::npos);
    EXPECT_NE(pos("[DEBUG] CMDLINE: hello.tvx extra\n"), std::string::npos);
    EXPECT_NE(pos("你好 hello.tvx extra\n"), std::string::npos);
    EXPECT_LT(pos("Unit test mode"), pos("root = ."));
    EXPECT_LT(pos("root = ."), pos("Desktop size"));
    EXPECT_LT(pos("Desktop size"), pos("[DEBUG] CMDLINE"));
    EXPECT_EQ(r.err, "");
}

// A program found in a directory starts again when it exits; Escape or the
// window's close button ends tvm2. Here the guest waits for a key that
// never comes, so the run is ended from outside: the process must leave
// cleanly and what the guest printed before must be on standard output.
TEST(Tvm2Program, DirectoryProgramKeepsRunningUntilClosed) {
    TempDir d;
    fs::create_directories(d.path / "TovixOS");
    assemble_to(d.path / "games" / "wait.tvx",
                "        push_string \"waiting\\n\"\n"
                "        push_char 1\n"
                "        c_printf\n"
                "        c_getchar\n"
                "        good_exit\n");
    const RunResult r = run_in(d.str(), "timeout --preserve-status -s INT 2 '" + kBin + "' games");
    EXPECT_EQ(r.status, 0);  // an interrupt closes the window like its close button
    EXPECT_NE(r.out.find("waiting\n"), std::string::npos) << r.out;
}

// Closing the window while the guest has a file open and unflushed: what it
// wrote is on disk afterwards.
TEST(Tvm2Program, ClosingTheWindowKeepsWhatTheGuestWrote) {
    TempDir d;
    fs::create_directories(d.path / "TovixOS");
    assemble_to(d.path / "games" / "write.tvx",
                ".tvx bits=24 mode=8\n"
                ".equ H, 0x2000\n"
                "        push_int H\n"
                "        push_string \"kept.txt\"\n"
                "        push_string \"w\"\n"
                "        c_fopen\n"
                "        c_letx 4\n"
                "        pop_val\n"
                "        push_string \"written, never closed\"\n"
                "        push_char 1\n"
                "        push_char 21\n"
                "        push_vlong H\n"
                "        c_fwrite\n"
                "        pop_val\n"
                "        push_string \"open\\n\"\n"
                "        push_char 1\n"
                "        c_printf\n"
                "        c_getchar\n"
                "        good_exit\n");
    const RunResult r = run_in(d.str(), "timeout --preserve-status -s TERM 2 '" + kBin + "' games/write.tvx");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("open\n"), std::string::npos) << r.out;
    EXPECT_EQ(read_file(d.path / "games" / "kept.txt"), "written, never closed");
}

}  // namespace
