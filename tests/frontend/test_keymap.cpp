// Keyboard and controller events pushed through SDL's queue and taken by one
// pass of the event loop, as the running front-end takes them.
#include "fe_harness.h"
#include "frontend/keymap.h"

namespace {

class KeyMap : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        setenv("SDL_VIDEODRIVER", "dummy", 0);
        ASSERT_EQ(SDL_Init(SDL_INIT_EVENTS | SDL_INIT_JOYSTICK | SDL_INIT_GAMECONTROLLER), 0) << SDL_GetError();
    }
    void SetUp() override { SDL_FlushEvents(SDL_FIRSTEVENT, SDL_LASTEVENT); }

    TestFrontend t;
    Machine& m = *t.m;
    Frontend& fe = *t.fe;

    static void key(SDL_Keycode sym, bool down, Uint16 mod = KMOD_NONE, bool repeat = false) {
        SDL_Event e{};
        e.type = down ? SDL_KEYDOWN : SDL_KEYUP;
        e.key.type = e.type;
        e.key.state = down ? SDL_PRESSED : SDL_RELEASED;
        e.key.repeat = repeat;
        e.key.keysym.sym = sym;
        e.key.keysym.mod = mod;
        SDL_PushEvent(&e);
    }
    static void pad(SDL_GameControllerButton b, bool down) {
        SDL_Event e{};
        e.type = down ? SDL_CONTROLLERBUTTONDOWN : SDL_CONTROLLERBUTTONUP;
        e.cbutton.type = e.type;
        e.cbutton.button = static_cast<Uint8>(b);
        e.cbutton.state = down ? SDL_PRESSED : SDL_RELEASED;
        SDL_PushEvent(&e);
    }
    static void plain(Uint32 type) {
        SDL_Event e{};
        e.type = type;
        SDL_PushEvent(&e);
    }
    bool pass() { return sdl_pass(fe); }
    uint16_t vk() const { return m.vk.load(); }
    uint8_t pending() const { return m.tvx_key.load(); }
    // The guest's key call takes the pending key.
    void consume() { m.tvx_key.store(m.tvx_key.load() & 0x7F); }
};

TEST_F(KeyMap, HostKeysHoldButtonsAndQueueTheirGuestCodes) {
    const struct {
        SDL_Keycode sym;
        uint16_t bit;
        int index;
        uint8_t code;
    } cases[] = {
        {SDLK_SPACE, btn::A, 5, 0x0D},   {SDLK_l, btn::A, 5, 0x0D},        {SDLK_k, btn::B, 6, 0x1B},
        {SDLK_LCTRL, btn::B, 6, 0x1B},   {SDLK_UP, btn::UP, 1, 0x14},      {SDLK_DOWN, btn::DOWN, 2, 0x15},
        {SDLK_LEFT, btn::LEFT, 3, 0x17}, {SDLK_RIGHT, btn::RIGHT, 4, 0x16}, {SDLK_TAB, btn::L1, 9, 0x13},
        {SDLK_PAGEUP, btn::L1, 9, 0x13}, {SDLK_BACKSPACE, btn::R1, 10, 0x0E}, {SDLK_PAGEDOWN, btn::R1, 10, 0x0E},
        {SDLK_p, btn::X, 11, 0x1F},      {SDLK_LSHIFT, btn::X, 11, 0x1F},  {SDLK_o, btn::Y, 12, 0x19},
        {SDLK_LALT, btn::Y, 12, 0x19},   {SDLK_5, btn::SELECT, 7, 0x1C},   {SDLK_RCTRL, btn::SELECT, 7, 0x1C},
        {SDLK_6, btn::START, 8, 0x1D},   {SDLK_RETURN, btn::START, 8, 0x1D},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(SDL_GetKeyName(c.sym));
        key(c.sym, true);
        EXPECT_TRUE(pass());
        EXPECT_EQ(vk(), 0xFFF & ~c.bit);
        EXPECT_EQ(m.cur_keyb[c.index].load(), 1);
        EXPECT_EQ(pending(), c.code | 0x80);
        consume();
        key(c.sym, false);
        pass();
        EXPECT_EQ(vk(), 0xFFF);
        EXPECT_EQ(m.cur_keyb[c.index].load(), 0);
        EXPECT_EQ(m.old_keyb[c.index].load(), 1);
    }
    // Right-hand modifiers, other letters and keys with no button do nothing.
    for (SDL_Keycode sym : {SDLK_RSHIFT, SDLK_RALT, SDLK_a, SDLK_z, SDLK_KP_ENTER, SDLK_F2}) {
        key(sym, true);
        pass();
        EXPECT_EQ(vk(), 0xFFF) << SDL_GetKeyName(sym);
        EXPECT_EQ(pending() & 0x80, 0);
    }
}

TEST_F(KeyMap, OneNewKeyPerPassLowestIndexFirstAndKeysPressedWhilePendingAreLost) {
    key(SDLK_SPACE, true);  // A, index 5
    key(SDLK_UP, true);     // UP, index 1
    pass();
    EXPECT_EQ(pending(), 0x14 | 0x80);
    consume();
    pass();  // A is still held but not new: nothing more is queued
    EXPECT_EQ(pending(), 0x14);

    key(SDLK_k, true);  // B pressed and released while RIGHT is pending
    key(SDLK_RIGHT, true);
    pass();
    EXPECT_EQ(pending(), 0x16 | 0x80);
    key(SDLK_k, false);
    pass();
    consume();
    pass();
    EXPECT_EQ(pending(), 0x16);
}

TEST_F(KeyMap, EscapeAsksToLeaveAndHoldsStartAndShoulders) {
    key(SDLK_ESCAPE, true);
    EXPECT_FALSE(pass());  // the loop sees the request at the end of the pass
    EXPECT_EQ(m.force_exit_tvx.load(), 1);
    EXPECT_EQ(vk(), 0xFFF & ~0x308);
    EXPECT_EQ(m.cur_keyb[8].load() + m.cur_keyb[9].load() + m.cur_keyb[10].load(), 3);
    m.force_exit_tvx = 0;
    key(SDLK_ESCAPE, false);
    EXPECT_TRUE(pass());
    EXPECT_EQ(vk(), 0xFFF);
}

TEST_F(KeyMap, SelectChordsToggleGridAndFrameCounter) {
    const uint8_t grid = m.use_grid;
    key(SDLK_TAB, true);  // L1 held alone
    key(SDLK_5, true);
    pass();
    EXPECT_EQ(m.use_grid, grid ^ 1);
    EXPECT_EQ(fe.show_fps, 0);
    EXPECT_EQ(m.need_refresh.load(), 1);
    key(SDLK_5, false);
    key(SDLK_TAB, false);
    key(SDLK_BACKSPACE, true);  // R1 held alone
    key(SDLK_RCTRL, true);
    pass();
    EXPECT_EQ(fe.show_fps, 1);
    EXPECT_EQ(m.use_grid, grid ^ 1);
    key(SDLK_RCTRL, false);
    key(SDLK_TAB, true);  // both shoulders held: nothing
    pad(SDL_CONTROLLER_BUTTON_BACK, true);
    pass();
    EXPECT_EQ(fe.show_fps, 1);
    EXPECT_EQ(m.use_grid, grid ^ 1);
    EXPECT_EQ(vk() & btn::SELECT, 0);
    pad(SDL_CONTROLLER_BUTTON_BACK, false);
    key(SDLK_BACKSPACE, false);  // L1 alone again, with the controller's BACK
    pad(SDL_CONTROLLER_BUTTON_BACK, true);
    pass();
    EXPECT_EQ(m.use_grid, grid);
    EXPECT_EQ(m.force_exit_tvx.load(), 0);
}

TEST_F(KeyMap, StartWithSelectHeldEndsTheProgramAndTheLoop) {
    key(SDLK_6, true);  // START alone is a plain button
    EXPECT_TRUE(pass());
    EXPECT_EQ(m.force_exit_tvx.load(), 0);
    key(SDLK_6, false);
    key(SDLK_5, true);
    pass();
    pad(SDL_CONTROLLER_BUTTON_START, true);
    EXPECT_FALSE(pass());
    EXPECT_EQ(m.force_exit_tvx.load(), 1);
    EXPECT_EQ(vk() & (btn::SELECT | btn::START), 0);
}

TEST_F(KeyMap, AltReturnTogglesFullScreenWithoutExitRequest) {
    key(SDLK_5, true);  // even with SELECT held
    key(SDLK_RETURN, true, KMOD_RALT);
    pass();
    EXPECT_EQ(fe.is_fullscreen, 1);
    EXPECT_EQ(m.force_exit_tvx.load(), 0);
    EXPECT_EQ(vk() & btn::START, 0);
    key(SDLK_RETURN, false);
    key(SDLK_RETURN, true, KMOD_LALT);
    pass();
    EXPECT_EQ(fe.is_fullscreen, 0);
}

TEST_F(KeyMap, F1TogglesTheKeyMapOnPressOnlyAndRepeatsAreIgnored) {
    key(SDLK_F1, true);
    pass();
    EXPECT_EQ(fe.show_keymap, 1);
    key(SDLK_F1, true, KMOD_NONE, true);
    key(SDLK_F1, false);
    pass();
    EXPECT_EQ(fe.show_keymap, 1);
    EXPECT_EQ(vk(), 0xFFF);
    key(SDLK_F1, true);
    pass();
    EXPECT_EQ(fe.show_keymap, 0);
}

TEST_F(KeyMap, PadButtonsWithTheXboxSwapAndTheExtraReleaseBits) {
    using B = SDL_GameControllerButton;
    const struct {
        B b;
        uint16_t xbox_press, xbox_release, other_press, other_release;
    } cases[] = {
        {SDL_CONTROLLER_BUTTON_A, btn::B, btn::B | btn::Y, btn::A, btn::A | btn::Y},
        {SDL_CONTROLLER_BUTTON_B, btn::A, btn::A | btn::B, btn::B, btn::B},
        {SDL_CONTROLLER_BUTTON_X, btn::Y, btn::Y | btn::X, btn::X, btn::X},
        {SDL_CONTROLLER_BUTTON_Y, btn::X, btn::X | btn::A, btn::Y, btn::Y | btn::A},
        {SDL_CONTROLLER_BUTTON_LEFTSHOULDER, btn::L1, btn::L1, btn::L1, btn::L1},
        {SDL_CONTROLLER_BUTTON_RIGHTSHOULDER, btn::R1, btn::R1, btn::R1, btn::R1},
        {SDL_CONTROLLER_BUTTON_DPAD_UP, btn::UP, btn::UP, btn::UP, btn::UP},
        {SDL_CONTROLLER_BUTTON_DPAD_DOWN, btn::DOWN, btn::DOWN, btn::DOWN, btn::DOWN},
        {SDL_CONTROLLER_BUTTON_DPAD_LEFT, btn::LEFT, btn::LEFT, btn::LEFT, btn::LEFT},
        {SDL_CONTROLLER_BUTTON_DPAD_RIGHT, btn::RIGHT, btn::RIGHT, btn::RIGHT, btn::RIGHT},
        {SDL_CONTROLLER_BUTTON_GUIDE, 0, 0, 0, 0},
        {SDL_CONTROLLER_BUTTON_LEFTSTICK, 0, 0, 0, 0},
    };
    for (int type : {SDL_CONTROLLER_TYPE_XBOX360, SDL_CONTROLLER_TYPE_XBOXONE, SDL_CONTROLLER_TYPE_PS4}) {
        fe.controllerType = type;
        const bool xbox = type != SDL_CONTROLLER_TYPE_PS4;
        for (const auto& c : cases) {
            SCOPED_TRACE(testing::Message() << "type " << type << " button " << int(c.b));
            m.vk = 0xFFF;
            pad(c.b, true);
            pass();
            EXPECT_EQ(vk(), 0xFFF & ~(xbox ? c.xbox_press : c.other_press));
            m.vk = 0;  // everything held: the release shows every bit it sets
            pad(c.b, false);
            pass();
            EXPECT_EQ(vk(), xbox ? c.xbox_release : c.other_release);
        }
    }
    // Holding Y (here on the keyboard) and tapping the pad's A leaves Y released.
    m.vk = 0xFFF;
    key(SDLK_o, true);
    pad(SDL_CONTROLLER_BUTTON_A, true);
    pad(SDL_CONTROLLER_BUTTON_A, false);
    pass();
    EXPECT_EQ(vk(), 0xFFF);
}

TEST_F(KeyMap, DeviceQuitAndTouchEvents) {
    plain(SDL_CONTROLLERDEVICEADDED);
    plain(SDL_FINGERDOWN);
    plain(SDL_FINGERMOTION);
    plain(SDL_FINGERUP);
    EXPECT_TRUE(pass());
    EXPECT_NE(t.log().find("Warning: No joysticks connected!\n"), std::string::npos) << t.log();
    EXPECT_NE(t.log().find("touch!\ntouch!\n"), std::string::npos);
    EXPECT_EQ(t.log().find("touch!\ntouch!\ntouch!"), std::string::npos);
    EXPECT_EQ(vk(), 0xFFF);
    plain(SDL_QUIT);
    EXPECT_FALSE(pass());
}

}  // namespace
