// Argument classification, and the program and root searches.
#include <vector>

#include "fe_harness.h"

namespace {

// Runs parse_command_line with the given arguments from directory cwd.
struct Parse {
    StartupState st;
    std::optional<int> status;
    std::string log, err;
    Parse(const fs::path& cwd, std::vector<std::string> args) {
        const fs::path back = fs::current_path();
        fs::current_path(cwd);
        args.insert(args.begin(), "tvm2");
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        testing::internal::CaptureStderr();
        status = parse_command_line(st, static_cast<int>(argv.size()), argv.data(), [] { return 4321u; },
                                    [this](std::string_view t) { log += t; });
        err = testing::internal::GetCapturedStderr();
        fs::current_path(back);
    }
};

const char* const kNoProgram = "Error: No .tvx file specified or file not found.\nUsage: tvm2 <file.tvx> [test_func]\n";

TEST(CommandLine, ProgramThenWordsGivesTestFunctionAndPrefixedArguments) {
    TempDir d, other;
    write_file(d.path / "game.tvx", "TVX");
    write_file(other.path / "one.tvx", "");
    Parse p(d.path, {"-v", other.str() + "/one.tvx", "game.tvx", "check", "more"});
    EXPECT_FALSE(p.status.has_value());
    EXPECT_EQ(p.st.tvxFilePath, d.str() + "/game.tvx");  // absolute paths as typed; the later program wins
    EXPECT_TRUE(p.st.single_program_mode);
    EXPECT_EQ(p.st.unit_test_mode, 1);
    EXPECT_EQ(p.st.unit_test_func, "check");
    EXPECT_EQ(p.st.unit_test_start_tick, 4321u);
    EXPECT_EQ(p.st.tvxProgArgs, "check " + d.str() + "/more");
    EXPECT_EQ(p.log, "Verbose mode enabled\nUnit test mode: func=check\n");
}

TEST(CommandLine, DirectoryGivesItsTvxFileWithoutSingleProgramMode) {
    TempDir d;
    write_file(d.path / "games" / ".hidden.tvx", "");
    write_file(d.path / "games" / "UPPER.TVX", "");
    write_file(d.path / "games" / "readme.txt", "");
    fs::create_directories(d.path / "games" / "folder.tvx");
    write_file(d.path / "games" / "play.tvx", "");
    Parse p(d.path, {"games", "word"});
    EXPECT_EQ(p.st.tvxFilePath, d.str() + "/games/play.tvx");
    EXPECT_FALSE(p.st.single_program_mode);
    EXPECT_EQ(p.st.unit_test_mode, 0);  // only a named file makes a word the test function
    EXPECT_EQ(p.st.tvxProgArgs, d.str() + "/word");
    EXPECT_EQ(p.log, "");
}

TEST(CommandLine, RefusedFilesMissingPathsAndTestDirectoriesWithoutProgram) {
    TempDir d;
    write_file(d.path / "GAME.TVX", "");
    write_file(d.path / "notes.tvx.txt", "");
    fs::create_directories(d.path / "tests");
    Parse p(d.path, {"GAME.TVX", "notes.tvx.txt", "gone", "tests", "testFunc"});
    EXPECT_EQ(p.status, 1);
    EXPECT_EQ(p.err, "tvm2: " + d.str() + "/GAME.TVX: not a program file name: it must end in .tvx (lower case)\n" +
                         "tvm2: " + d.str() + "/notes.tvx.txt: not a program file name: it must end in .tvx (lower case)\n" +
                         kNoProgram);
    EXPECT_EQ(p.log, "File is not a .tvx file: " + d.str() + "/GAME.TVX\n" +
                         "File is not a .tvx file: " + d.str() + "/notes.tvx.txt\n" +
                         "Path not found: " + d.str() + "/gone\n" +
                         "No .tvx file found in directory, may be unit test dir: " + d.str() + "/tests\n" +
                         "Unit test mode: dir=" + d.str() + "/tests, func=testFunc\n");
    EXPECT_EQ(p.st.unit_test_dir, d.str() + "/tests");
    EXPECT_EQ(p.st.tvxProgArgs, "testFunc");
    // With a program after them, a test directory and function run.
    write_file(d.path / "p.tvx", "");
    Parse q(d.path, {"tests", "testFunc", "p.tvx", "w"});
    EXPECT_FALSE(q.status.has_value());
    EXPECT_EQ(q.st.unit_test_mode, 1);
    EXPECT_EQ(q.st.tvxProgArgs, "testFunc " + d.str() + "/w");
}

TEST(CommandLine, ArgumentStringAndNamesAreCut) {
    std::string args;
    append_prog_args(args, std::string(250, 'a'));
    append_prog_args(args, "bcdefgh");
    EXPECT_EQ(args, std::string(250, 'a') + " bcde");
    append_prog_args(args, "x");
    EXPECT_EQ(args.size(), 255u);

    TempDir d;
    write_file(d.path / "p.tvx", "");
    Parse p(d.path, {"p.tvx", std::string(300, 'f')});
    EXPECT_EQ(p.st.unit_test_func, std::string(255, 'f'));
    EXPECT_EQ(p.st.tvxProgArgs, std::string(255, 'f'));
}

TEST(RootSearch, FindDirLooksDownToTheGivenDepthAndSkipsHiddenDirectories) {
    TempDir d;
    fs::create_directories(d.path / ".hid" / "TovixOS");
    fs::create_directories(d.path / "a" / "b" / "TovixOS");
    std::string out;
    EXPECT_EQ(findDir(out, d.str(), "TovixOS", 0, 1), 0);
    EXPECT_EQ(findDir(out, d.str(), "TovixOS", 0, 2), 1);
    EXPECT_EQ(out, d.str() + "/a/b");
    EXPECT_EQ(findDir(out, d.str() + "/.hid", "TovixOS", 0, 0), 1);
    EXPECT_EQ(out, d.str() + "/.hid");
    EXPECT_EQ(findDir(out, d.str() + "/missing", "TovixOS", 0, 3), 0);
    EXPECT_EQ(findFirstTvxFile(out, d.str() + "/missing"), 0);
    // Links are not followed (they lead into /proc/PID/cwd and back up the tree).
    fs::create_directories(d.path / "l");
    fs::create_directory_symlink(d.path / "a" / "b", d.path / "l" / "link");
    EXPECT_EQ(findDir(out, d.str() + "/l", "TovixOS", 0, 3), 0);
    // Kernel and device file systems are never searched: each name lies one level below "/".
    for (const char* name : {"kernel", "self", "pts"}) {
        SCOPED_TRACE(name);
        out.clear();
        findDir(out, "/", name, 0, 1);
        EXPECT_TRUE(out != "/sys" && out != "/proc" && out != "/dev" && !out.starts_with("//")) << out;
    }
}

TEST(RootSearch, CandidatesInOrderThenSearchesThenTheLastResort) {
    std::vector<std::string> dirs, searches;
    int found_at = -1;  // which search succeeds
    auto is_dir = [&](const std::string& p) { return std::find(dirs.begin(), dirs.end(), p) != dirs.end(); };
    auto find = [&](std::string& out, const std::string& base, const std::string& name, int depth, int maxdepth) {
        searches.push_back(base + " " + name + " " + std::to_string(depth) + " " + std::to_string(maxdepth));
        if (static_cast<int>(searches.size()) - 1 != found_at) return 0;
        out = "/found" + base;
        return 1;
    };
    dirs = {"/storage/emulated/0/TovixOS", "/mnt/TovixOS"};
    EXPECT_EQ(GetExePath(is_dir, find), "/mnt");
    dirs = {"/storage/emulated/0/TovixOS", "/media/sdcard/TovixOS", "./TovixOS"};
    EXPECT_EQ(GetExePath(is_dir, find), ".");
    dirs = {"/mnt/SDCARD/TovixOS"};
    EXPECT_EQ(GetExePath(is_dir, find), "/mnt/SDCARD");
    EXPECT_TRUE(searches.empty());

    dirs = {};
    EXPECT_EQ(GetExePath(is_dir, find), "/media/QEMU VVFAT");
    EXPECT_EQ(searches, (std::vector<std::string>{"/media TovixOS 0 2", "/ TovixOS 0 4"}));
    searches.clear();
    found_at = 1;
    EXPECT_EQ(GetExePath(is_dir, find), "/found/");

    // The real file system, from a directory that holds TovixOS.
    TempDir d;
    fs::create_directories(d.path / "TovixOS");
    const fs::path back = fs::current_path();
    fs::current_path(d.path);
    EXPECT_EQ(GetExePath(), ".");
    fs::current_path(back);
}

}  // namespace
