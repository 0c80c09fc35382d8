// The real tvm2 started as a program: its messages, exit statuses and runs.
#include "fe_harness.h"

namespace {

const std::string kBin = TVM2_BIN;

std::string help_text(const std::string& a) {
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

TEST(Tvm2Program, BannerHelpAndMissingOrBrokenPrograms) {
    TempDir d;
    Process r = run_tvm2(d.str(), "");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out,
              "Tovix虚拟机 v2.0\n"
              "错误：没有指定输入文件\n"
              "使用 'tvm2 -h' 或 'tvm2 --help' 查看帮助信息\n");
    EXPECT_EQ(r.err, "");

    assemble_to(d.path / "game.tvx", "good_exit\n");
    for (const char* args : {"-h", "game.tvx --help", "-v missing --help game.tvx"}) {
        SCOPED_TRACE(args);
        r = run_tvm2(d.str(), args);
        EXPECT_EQ(r.status, 0);
        const std::string before = std::string(args).rfind("-v", 0) == 0
                                       ? "Verbose mode enabled\nPath not found: " + d.str() + "/missing\n"
                                       : "";
        EXPECT_EQ(r.out, before + help_text(kBin));
        EXPECT_EQ(r.err, "");
    }

    write_file(d.path / "GAME.TVX", "");
    r = run_tvm2(d.str(), "-v GAME.TVX");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "Verbose mode enabled\nFile is not a .tvx file: " + d.str() + "/GAME.TVX\n");
    EXPECT_EQ(r.err, "tvm2: " + d.str() + "/GAME.TVX: not a program file name: it must end in .tvx (lower case)\n" +
                         "Error: No .tvx file specified or file not found.\nUsage: " + kBin + " <file.tvx> [test_func]\n");

    // A file that is not a program: the loader's reason, status 126.
    write_file(d.path / "junk.tvx", "not a program");
    r = run_tvm2(d.str(), "junk.tvx");
    EXPECT_EQ(r.status, 126);
    EXPECT_EQ(r.err, "tvm2: " + d.str() + "/junk.tvx: not a Tovix program\n");

    // No display and no driver chosen: an error, not a run nobody sees.
    r = run_in(d.str(), "env -u SDL_VIDEODRIVER -u DISPLAY -u WAYLAND_DISPLAY timeout 10 '" + kBin + "' game.tvx");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("tvm2: no display"), std::string::npos) << r.err;
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
    const Process r = run_tvm2(d.str(), "PROGRAM/hello.tvx check extra");
    EXPECT_EQ(r.status, 0);
    const auto pos = [&](const std::string& s) { return r.out.find(s); };
    EXPECT_NE(pos("Window mode: 640 x 480\n"), std::string::npos) << r.out;
    EXPECT_NE(pos("你好 hello.tvx extra\n"), std::string::npos);
    EXPECT_LT(pos("Unit test mode: func=check\n"), pos("root = .\n"));
    EXPECT_LT(pos("root = .\n"), pos("Desktop size"));
    EXPECT_LT(pos("Desktop size"), pos("[DEBUG] CMDLINE: hello.tvx extra\n"));
    EXPECT_EQ(r.err, "");
}

// A program found in a directory starts again whenever it exits, until a
// signal ends tvm2 with 128 + its number. Files the guest left open and
// unflushed are written out on the way.
TEST(Tvm2Program, DirectoryProgramRunsUntilClosedAndKeepsWhatItWrote) {
    TempDir d;
    fs::create_directories(d.path / "TovixOS");
    assemble_to(d.path / "games" / "write.tvx",
                ".tvx bits=24 mode=8\n"
                ".equ H, 0x2000\n"
                "        push_int H\n"
                "        push_string \"kept.txt\"\n"
                "        push_string \"a\"\n"
                "        c_fopen\n"
                "        c_letx 4\n"
                "        pop_val\n"
                "        push_string \"run,\"\n"
                "        push_char 1\n"
                "        push_char 4\n"
                "        push_vlong H\n"
                "        c_fwrite\n"
                "        pop_val\n"
                "        push_string \"open\\n\"\n"
                "        push_char 1\n"
                "        c_printf\n"
                "        push_int 300\n"
                "        c_delay\n"
                "        good_exit\n");
    for (const auto& [signal, status] : {std::pair{"INT", 130}, {"TERM", 143}, {"HUP", 129}}) {
        SCOPED_TRACE(signal);
        fs::remove(d.path / "games" / "kept.txt");
        const Process r = run_in(d.str(), "timeout --preserve-status -s " + (signal + (" 2 '" + kBin)) + "' games");
        EXPECT_EQ(r.status, status);
        // Each run wrote before it printed, and it printed at least twice.
        size_t runs = 0;
        for (size_t at = 0; (at = r.out.find("open\n", at)) != std::string::npos; at += 5) ++runs;
        EXPECT_GE(runs, 2u) << r.out;
        std::string expected;
        for (size_t i = 0; i < runs; ++i) expected += "run,";
        EXPECT_EQ(read_file(d.path / "games" / "kept.txt"), expected);
    }
}

}  // namespace
