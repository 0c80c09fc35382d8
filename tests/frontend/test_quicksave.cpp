// Quick save (F5) and quick load (F9) through SDL's queue, with the slots in a
// temporary data folder.
#include <regex>

#include "fe_harness.h"

namespace {

// Counts the keys it gets: prints the count and draws a dot for it.
const char* const kCounter = R"(.tvx mode=8 width=160 height=80
.equ N, 0x2000
loop:   c_getchar
        pop_val
        push_int N
        push_vlong N
        push_char 1
        cal_add
        c_letx 4
        pop_val
        push_vlong N
        push_char 10
        push_char 1
        c_point
        push_string "%d "
        push_vlong N
        push_char 2
        c_printf
        c_jmp loop
)";

TEST(QuickSave, F9WithoutSlotChangesNothingAndF9AfterF5RestoresGuestAndFrame) {
    setenv("SDL_VIDEODRIVER", "dummy", 0);
    ASSERT_EQ(SDL_Init(SDL_INIT_EVENTS), 0) << SDL_GetError();
    SDL_FlushEvents(SDL_FIRSTEVENT, SDL_LASTEVENT);
    TestFrontend t;
    setenv("XDG_DATA_HOME", (t.dir.path / "data").c_str(), 1);
    t.load(kCounter);
    t.console.clear();  // configuration lines of the working directory, if any
    t.fe.start.tvxFilePath = (t.dir.path / "p.tvx").string();
    const std::string slot = quick_slot_path(t.fe.start.tvxFilePath);
    auto key = [&](SDL_Keycode sym) {  // a tap, then one pass
        for (const Uint32 type : {SDL_KEYDOWN, SDL_KEYUP}) {
            SDL_Event e{};
            e.type = type;
            e.key.keysym.sym = sym;
            SDL_PushEvent(&e);
        }
        ASSERT_TRUE(sdl_pass(t.fe, nullptr));
    };
    key(SDLK_SPACE);
    key(SDLK_F9);
    EXPECT_NE(t.log.find("quick load failed: " + slot + ": no saved state yet\n"), std::string::npos) << t.log;
    key(SDLK_SPACE);
    EXPECT_EQ(t.console, "1 2 ");

    key(SDLK_F5);
    EXPECT_NE(t.log.find("quick save: " + slot + "\n"), std::string::npos) << t.log;
    ASSERT_NE(t.fe.shown, nullptr);
    const uint32_t saved_frame = t.fe.shown->number;
    for (int i = 0; i < 2; ++i) key(SDLK_SPACE);
    key(SDLK_F9);
    EXPECT_NE(t.log.find("quick load: " + slot + "\n"), std::string::npos) << t.log;
    EXPECT_EQ(t.fe.shown->number, saved_frame);  // shown at once
    key(SDLK_SPACE);
    EXPECT_EQ(t.console, "1 2 3 4 3 ");
    // Only the slot is left in the folder (no temporary file).
    EXPECT_EQ(std::distance(fs::directory_iterator(fs::path(slot).parent_path()), fs::directory_iterator()), 1);
}

TEST(QuickSave, SlotsAreNamedAfterTheProgramAndItsPathUnderTheDataFolder) {
    const std::string home = std::getenv("HOME") ? std::getenv("HOME") : "";
    setenv("XDG_DATA_HOME", "/data", 1);
    const std::string a = quick_slot_path("/games/a/Run Fast!.tvx");
    EXPECT_TRUE(std::regex_match(a, std::regex("/data/tvm2/Run_Fast_-[0-9a-f]{16}\\.state"))) << a;
    EXPECT_EQ(quick_slot_path("/games/a/../a/Run Fast!.tvx"), a);
    EXPECT_NE(quick_slot_path("/games/b/Run Fast!.tvx"), a);
    setenv("XDG_DATA_HOME", "relative", 1);
    setenv("HOME", "/home/u", 1);
    EXPECT_EQ(quick_slot_path("/g/x.tvx").rfind("/home/u/.local/share/tvm2/x-", 0), 0u);
    unsetenv("HOME");
    EXPECT_EQ(quick_slot_path("/g/x.tvx"), "");
    setenv("HOME", home.c_str(), 1);
    unsetenv("XDG_DATA_HOME");
}

}  // namespace
