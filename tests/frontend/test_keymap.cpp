// Keyboard and controller events pushed through SDL's queue and taken by a
// pass of the loop: what the guest receives, the buttons held, and the host
// chords.
#include "fe_harness.h"
#include "frontend/keymap.h"

namespace {

// Prints the code of every key it gets.
const char* const kEcho =
    "again:  push_string \"%d \"\n"
    "        c_getchar\n"
    "        push_char 2\n"
    "        c_printf\n"
    "        c_jmp again\n";

class KeyMap : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        setenv("SDL_VIDEODRIVER", "dummy", 0);
        ASSERT_EQ(SDL_Init(SDL_INIT_EVENTS | SDL_INIT_JOYSTICK | SDL_INIT_GAMECONTROLLER), 0) << SDL_GetError();
    }
    void SetUp() override {
        SDL_FlushEvents(SDL_FIRSTEVENT, SDL_LASTEVENT);
        t.load(kEcho);
        pass();  // the guest waits for its first key
    }

    TestFrontend t;
    Frontend& fe = t.fe;

    static void key(SDL_Keycode sym, bool down, Uint16 mod = KMOD_NONE, bool repeat = false) {
        SDL_Event e{};
        e.type = down ? SDL_KEYDOWN : SDL_KEYUP;
        e.key.repeat = repeat;
        e.key.keysym.sym = sym;
        e.key.keysym.mod = mod;
        SDL_PushEvent(&e);
    }
    static void tap(SDL_Keycode sym) {
        key(sym, true);
        key(sym, false);
    }
    static void pad(SDL_GameControllerButton b, bool down) {
        SDL_Event e{};
        e.type = down ? SDL_CONTROLLERBUTTONDOWN : SDL_CONTROLLERBUTTONUP;
        e.cbutton.button = static_cast<Uint8>(b);
        SDL_PushEvent(&e);
    }
    static void plain(Uint32 type) {
        SDL_Event e{};
        e.type = type;
        SDL_PushEvent(&e);
    }
    bool pass() { return sdl_pass(fe, nullptr); }
};

// A press and its release within one pass (a tap far shorter than a slice)
// still reach the guest, once, with the key's code.
TEST_F(KeyMap, TapsOfEveryHostKeyReachTheGuestWithTheirCodes) {
    const struct {
        SDL_Keycode sym;
        int code;
    } cases[] = {
        {SDLK_SPACE, 0x0D}, {SDLK_l, 0x0D},      {SDLK_k, 0x1B},      {SDLK_LCTRL, 0x1B},     {SDLK_UP, 0x14},
        {SDLK_DOWN, 0x15},  {SDLK_LEFT, 0x17},   {SDLK_RIGHT, 0x16},  {SDLK_TAB, 0x13},       {SDLK_PAGEUP, 0x13},
        {SDLK_BACKSPACE, 0x0E}, {SDLK_PAGEDOWN, 0x0E}, {SDLK_p, 0x1F}, {SDLK_LSHIFT, 0x1F},   {SDLK_o, 0x19},
        {SDLK_LALT, 0x19},  {SDLK_5, 0x1C},      {SDLK_RCTRL, 0x1C},  {SDLK_6, 0x1D},         {SDLK_RETURN, 0x1D},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(SDL_GetKeyName(c.sym));
        t.console.clear();
        tap(c.sym);
        EXPECT_TRUE(pass());
        EXPECT_EQ(t.console, std::to_string(c.code) + " ");
        pass();
        EXPECT_EQ(fe.held, 0);
    }
    // Right-hand modifiers, other letters and keys with no button do nothing.
    t.console.clear();
    for (SDL_Keycode sym : {SDLK_RSHIFT, SDLK_RALT, SDLK_a, SDLK_z, SDLK_KP_ENTER, SDLK_F2}) tap(sym);
    pass();
    EXPECT_EQ(t.console, "");
    // Several taps queued at once come one after the other, in order.
    tap(SDLK_SPACE);
    tap(SDLK_k);
    tap(SDLK_UP);
    for (int i = 0; i < 6; ++i) pass();
    EXPECT_EQ(t.console, "13 27 20 ");
}

TEST_F(KeyMap, ExitKeysEndTheLoop) {
    key(SDLK_6, true);  // START alone is a plain button
    EXPECT_TRUE(pass());
    key(SDLK_6, false);
    key(SDLK_5, true);
    EXPECT_TRUE(pass());
    pad(SDL_CONTROLLER_BUTTON_START, true);  // START with SELECT held
    EXPECT_FALSE(pass());

    TestFrontend other;  // SELECT pressed while START is held
    other.load(kEcho);
    key(SDLK_RETURN, true);
    EXPECT_TRUE(sdl_pass(other.fe, nullptr));
    key(SDLK_RCTRL, true);
    EXPECT_FALSE(sdl_pass(other.fe, nullptr));

    TestFrontend esc;  // Escape, which holds START and the shoulders while down
    esc.load(kEcho);
    key(SDLK_ESCAPE, true);
    EXPECT_FALSE(sdl_pass(esc.fe, nullptr));
    EXPECT_EQ(esc.fe.held, BTN_START | BTN_L1 | BTN_R1);
}

TEST_F(KeyMap, ChordsToggleGridFrameCounterKeyMapAndFullScreen) {
    const bool grid = core_grid(fe.core);
    key(SDLK_TAB, true);  // L1 held alone
    key(SDLK_5, true);
    pass();
    EXPECT_EQ(core_grid(fe.core), !grid);
    EXPECT_EQ(fe.show_fps, 0);
    key(SDLK_5, false);
    key(SDLK_TAB, false);
    key(SDLK_BACKSPACE, true);  // R1 held alone
    key(SDLK_RCTRL, true);
    pass();
    EXPECT_EQ(fe.show_fps, 1);
    key(SDLK_RCTRL, false);
    key(SDLK_TAB, true);  // both shoulders held: nothing
    pad(SDL_CONTROLLER_BUTTON_BACK, true);
    pass();
    EXPECT_EQ(fe.show_fps, 1);
    EXPECT_EQ(core_grid(fe.core), !grid);
    EXPECT_EQ(fe.held, BTN_L1 | BTN_R1 | BTN_SELECT);

    key(SDLK_TAB, false);
    key(SDLK_BACKSPACE, false);
    pad(SDL_CONTROLLER_BUTTON_BACK, false);
    key(SDLK_RETURN, true, KMOD_RALT);
    EXPECT_TRUE(pass());
    EXPECT_EQ(fe.is_fullscreen, 1);
    key(SDLK_RETURN, false);
    key(SDLK_RETURN, true, KMOD_LALT);
    EXPECT_TRUE(pass());
    EXPECT_EQ(fe.is_fullscreen, 0);

    key(SDLK_F1, true);  // F1 on its press only; repeats ignored
    key(SDLK_F1, true, KMOD_NONE, true);
    key(SDLK_F1, false);
    pass();
    EXPECT_EQ(fe.show_keymap, 1);
}

TEST_F(KeyMap, PadButtonsWithTheXboxSwapAndTheExtraReleaseBits) {
    using B = SDL_GameControllerButton;
    const struct {
        B b;
        uint16_t xbox_press, xbox_release, other_press, other_release;
    } cases[] = {
        {SDL_CONTROLLER_BUTTON_A, BTN_B, BTN_B | BTN_Y, BTN_A, BTN_A | BTN_Y},
        {SDL_CONTROLLER_BUTTON_B, BTN_A, BTN_A | BTN_B, BTN_B, BTN_B},
        {SDL_CONTROLLER_BUTTON_X, BTN_Y, BTN_Y | BTN_X, BTN_X, BTN_X},
        {SDL_CONTROLLER_BUTTON_Y, BTN_X, BTN_X | BTN_A, BTN_Y, BTN_Y | BTN_A},
        {SDL_CONTROLLER_BUTTON_LEFTSHOULDER, BTN_L1, BTN_L1, BTN_L1, BTN_L1},
        {SDL_CONTROLLER_BUTTON_DPAD_LEFT, BTN_LEFT, BTN_LEFT, BTN_LEFT, BTN_LEFT},
        {SDL_CONTROLLER_BUTTON_GUIDE, 0, 0, 0, 0},
    };
    for (int type : {SDL_CONTROLLER_TYPE_XBOX360, SDL_CONTROLLER_TYPE_XBOXONE, SDL_CONTROLLER_TYPE_PS4}) {
        const bool xbox = type != SDL_CONTROLLER_TYPE_PS4;
        for (const auto& c : cases) {
            SCOPED_TRACE(testing::Message() << "type " << type << " button " << int(c.b));
            EXPECT_EQ(pad_button(c.b, type), xbox ? c.xbox_press : c.other_press);
            EXPECT_EQ(pad_release_bits(c.b, type), xbox ? c.xbox_release : c.other_release);
        }
    }
    // Holding Y (on the keyboard) and tapping the pad's A leaves Y released.
    fe.controllerType = SDL_CONTROLLER_TYPE_PS4;
    key(SDLK_o, true);
    pad(SDL_CONTROLLER_BUTTON_A, true);
    pass();
    EXPECT_EQ(fe.held, BTN_Y | BTN_A);
    pad(SDL_CONTROLLER_BUTTON_A, false);
    pass();
    EXPECT_EQ(fe.held, 0);
}

TEST_F(KeyMap, DeviceQuitAndTouchEvents) {
    plain(SDL_CONTROLLERDEVICEADDED);
    plain(SDL_FINGERDOWN);
    plain(SDL_FINGERMOTION);
    plain(SDL_FINGERUP);
    EXPECT_TRUE(pass());
    EXPECT_NE(t.log.find("Warning: No joysticks connected!\n"), std::string::npos) << t.log;
    EXPECT_NE(t.log.find("touch!\ntouch!\n"), std::string::npos);
    EXPECT_EQ(t.log.find("touch!\ntouch!\ntouch!"), std::string::npos);
    plain(SDL_QUIT);
    EXPECT_FALSE(pass());
}

}  // namespace
