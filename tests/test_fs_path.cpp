// Guest path normalisation, roots and the host names built from them; a
// path-escape suite of hostile and random names.
#include <random>
#include <set>

#include "cjk/gbconv.h"
#include "fs_harness.h"

using namespace fs_test;

namespace {

// my_pathformat with the given current directory; "!" when rejected.
std::string norm(const std::string& in, const char* cd = "") {
    Files f;
    std::strcpy(f.CD, cd);
    char out[kPathMax];
    return my_pathformat(f, in, out) ? "!" : out;
}

TEST(FsPath, Normalisation) {
    std::string dots;
    for (int i = 0; i < 5000; ++i) dots += "./";
    const struct { std::string in, cd, out; } cases[] = {
        {"game/save.dat", "", "game/save.dat"}, {"save.dat", "game", "game/save.dat"}, {"/save.dat", "game", "save.dat"},
        {"a//b/./c/", "", "a/b/c"}, {"a/b/..", "", "a/b"},  // ".." never removes a directory
        {"a/b/../c", "", "a/b/c"}, {"/..", "", ""}, {"../../x", "deep/er", "deep/er/x"}, {"x/.", "", "x"},
        {"a.b/c..d", "", "a.b/c..d"}, {"\xD6\xD0/\xCE\xC4", "", "\xD6\xD0/\xCE\xC4"}, {".profile", "", "!"},
        {"a/..b", "", "!"}, {"c:\\x", "", "!"}, {"a\\b", "", "!"}, {"x:", "", "!"}, {"a/.b", "", "!"}, {"...", "", "!"},
        // 255 bytes of result fit, 256 do not; a long run of "./" collapses.
        {std::string(255, 'a'), "", std::string(255, 'a')}, {std::string(256, 'a'), "", "!"},
        {std::string(250, 'a'), "bbbbb", "!"}, {dots + "z", "", "z"},
        // Cut at an invalid two-byte character, then normalised like any other name.
        {"ab\xB0", "", "ab"}, {"a/b\xB0/c", "", "a/b"}, {"x/..\xB0", "", "x"}, {"\xB0/x", "", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(norm(c.in, c.cd.c_str()), c.out) << c.in;
}

TEST(FsPath, RootsAndHostNames) {
    Files f;
    EXPECT_EQ(SetRoot(f, "x"), 1);
    EXPECT_STREQ(f.RootPath, "x/");
    std::strcpy(f.CD, "sub");
    EXPECT_EQ(SetRoot(f, "x\\"), 1);
    EXPECT_STREQ(f.RootPath, "x\\");
    EXPECT_STREQ(f.CD, "");
    char out[kPathMax];
    true_name(f, "a/b", out);
    EXPECT_STREQ(out, "x/a/b");
    EXPECT_EQ(SetRoot(f, ""), 0);
    EXPECT_EQ(SetRoot(f, nullptr), 0);
    EXPECT_EQ(SetRoot(f, std::string(255, 'r').c_str()), 0);  // no room for the "/"
    EXPECT_EQ(SetRoot(f, (std::string(254, 'r') + "/").c_str()), 1);
    EXPECT_EQ(SetRoot(f, std::string(256, 'r').c_str()), 0);
    true_name_0(std::string(200, 'p').c_str(), out, std::string(56, 'r').c_str());
    EXPECT_STREQ(out, "");  // 256 bytes do not fit
    true_name_0(std::string(200, 'p').c_str(), out, std::string(55, 'r').c_str());
    EXPECT_EQ(std::strlen(out), 255u);

    SetRoot(f, "TovixOS");
    SetTvxRoot(f, "TovixOS/PROGRAM/game/game.tvx");
    EXPECT_STREQ(f.RootPath, "TovixOS/PROGRAM/game/");
    SetTvxRoot(f, "elsewhere/PROGRAM/x.tvx");
    EXPECT_STREQ(f.RootPath, "TovixOS/PROGRAM/game/");
}

// A directory the guest makes gets ordinary permissions, 0777 less the umask
// (fs_dirs checks making, changing and refusals end to end).
TEST(FsPath, MadeDirectoriesHaveOrdinaryPermissions) {
    FsVm vm;
    const mode_t mask = umask(022);
    EXPECT_EQ(my_mkdir(*vm.m, "made"), 0);
    umask(mask);
    struct stat st;
    ASSERT_EQ(stat((vm.dir.root / "made").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);
}

// Every two-byte GB code converts to a character outside ASCII (or the
// placeholder "?"), so no byte pair can turn into ".", "/", "\\" or ":" on
// the host and undo the checks made on the GB2312 form.
TEST(FsEscape, NoGbCodeBecomesAPathCharacter) {
    for (size_t i = 0; i < kGbTableEntries; ++i) {
        const uint16_t u = mb_gb2uni_table[i];
        ASSERT_TRUE(u >= 0x80 || u == '?') << i;
    }
}

// The file calls themselves, given hostile names in bulk, change nothing
// beside the root: the sentinel file and the sibling directory next to it
// stay as they were.
TEST(FsEscape, FileCallsLeaveTheRootsSurroundingsAlone) {
    FsVm vm;
    std::ofstream(vm.dir.top / "outside.txt") << "sentinel";
    stdfs::create_directory(vm.dir.top / "sibling");
    const std::vector<std::string> names = {"../outside.txt", "/../outside.txt", "../../outside.txt", "..",
                                            "../sibling/x",   "/..",             "sibling",           "\x81/../outside.txt",
                                            "a/../../sibling", "x\xFF",          "/", "..\xB0", "\xB0/x"};
    std::mt19937 rng(7);
    for (int iter = 0; iter < 400; ++iter) {
        std::string name = names[rng() % names.size()];
        if (rng() % 2) name = "../" + name;
        vm.next_str = 0x8000;
        switch (rng() % 5) {
            case 0: {
                const uint32_t h = vm.open(name, rng() % 2 ? "w" : "a+");
                if (h) {
                    vm.call(c_putc, {'!', h});
                    vm.call(c_fclose, {h});
                }
                break;
            }
            case 1: vm.call(c_makedir, {vm.str(name)}); break;
            case 2: vm.call(c_deletefile, {vm.str(name)}); break;
            case 3: vm.call(c_chdir, {vm.str(name)}); break;
            default: vm.call(c_getfilenum, {vm.str(name)}); break;
        }
    }
    std::set<std::string> beside;
    for (const auto& e : stdfs::directory_iterator(vm.dir.top)) beside.insert(e.path().filename().string());
    EXPECT_EQ(beside, (std::set<std::string>{"outside.txt", "root", "sibling"}));
    std::ifstream in(vm.dir.top / "outside.txt");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()), "sentinel");
    EXPECT_TRUE(stdfs::is_empty(vm.dir.top / "sibling"));
    EXPECT_TRUE(stdfs::is_directory(vm.dir.root));
}

}  // namespace
