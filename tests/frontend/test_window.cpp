// Frame geometry, the window rules, presents read back from a window of
// SDL's dummy video driver, and the loop's presents and timed redraws.
#include <tuple>

#include "fe_harness.h"

namespace {

constexpr uint32_t kWhite = 0xF8FCF8;

void expect_rect(const SDL_Rect& r, int x, int y, int w, int h) {
    EXPECT_EQ(r.x, x);
    EXPECT_EQ(r.y, y);
    EXPECT_EQ(r.w, w);
    EXPECT_EQ(r.h, h);
}

TEST(FrameGeometry, ScreensFitTheWindowAndOnlyGrowingWindowsAreAdopted) {
    FrameRects r = frame_rects(240, 160, 320, 240, 640, 480, false);
    expect_rect(r.src, 40, 40, 240, 160);
    expect_rect(r.dst, 0, 27, 640, 426);  // 640 * 160 / 240 = 426 rows, (480 - 426) / 2 above
    r = frame_rects(160, 240, 320, 240, 640, 480, false);
    expect_rect(r.src, 80, 0, 160, 240);
    expect_rect(r.dst, 160, 0, 320, 480);  // too tall at full width: full height instead
    r = frame_rects(160, 80, 640, 480, 640, 480, false);
    expect_rect(r.src, 0, 0, 640, 480);
    // A 480x640 display: landscape 640x480, turned, centred on the display.
    r = frame_rects(240, 160, 320, 240, 640, 480, true);
    expect_rect(r.dst, -80, 107, 640, 426);

    // Handheld or desktop by the display turned to landscape.
    for (auto [w, h, handheld] : {std::tuple{1024, 600, true}, {600, 1024, true}, {480, 640, true}, {480, 800, true},
                                  {1025, 600, false}, {600, 1025, false}, {1024, 601, false}, {601, 1024, false}})
        EXPECT_EQ(desktop_is_handheld(w, h), handheld) << w << "x" << h;
    Frontend fe;
    fe.windowWidth = 640;
    fe.windowHeight = 480;
    window_resized(fe, 600, 500);  // narrower: kept
    EXPECT_EQ(fe.windowWidth, 640);
    window_resized(fe, 900, 1200);  // portrait: turned
    EXPECT_EQ(fe.windowWidth, 1200);
    EXPECT_EQ(fe.windowHeight, 900);
    EXPECT_EQ(fe.need_rotate_270, 1);
}

// A w x h frame of one colour (palette 255 white, 20 red, 0 black).
std::shared_ptr<Frame> frame(int w, int h, uint8_t colour) {
    auto f = std::make_shared<Frame>();
    f->width = w;
    f->height = h;
    f->pal[255] = 0xFFFF;
    f->pal[20] = 0xF800;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) f->pixels[y * kFrameStride + x] = colour;
    return f;
}

// A real window of the dummy driver, the software renderer and the surfaces.
class Presenting : public ::testing::Test {
protected:
    static void SetUpTestSuite() { setenv("SDL_VIDEODRIVER", "dummy", 1); }
    void SetUp() override {
        initSDL(fe);
        ASSERT_NE(fe.sdlRenderer, nullptr);
        SDL_FlushEvents(SDL_FIRSTEVENT, SDL_LASTEVENT);  // the new window's own events
    }
    // Reads back the window after a present, as 0xRRGGBB per pixel.
    uint32_t at(int x, int y) {
        SDL_Rect r{x, y, 1, 1};
        uint32_t px = 0;
        EXPECT_EQ(SDL_RenderReadPixels(fe.sdlRenderer, &r, SDL_PIXELFORMAT_RGB888, &px, 4), 0) << SDL_GetError();
        // Colours come back through RGB565; the renderer may widen them with
        // the low bits clear or set.
        return px & 0xF8FCF8;
    }
    uint16_t surface_pixel(int x, int y) {
        const SDL_Surface* s = fe.gScreenSurface;
        return *reinterpret_cast<const uint16_t*>(static_cast<const uint8_t*>(s->pixels) + y * s->pitch + 2 * x);
    }

    TestFrontend t;
    Frontend& fe = t.fe;
};

TEST_F(Presenting, SmallScreenGetsTheWindowSizedSurfaceUntilFullScreenToggles) {
    present(fe, frame(160, 80, 255));
    ASSERT_NE(fe.gScreenSurfaceFull, nullptr);
    EXPECT_EQ(fe.gScreenSurfaceFull->w, 640);
    EXPECT_EQ(fe.gScreenSurfaceFull->h, 480);
    EXPECT_EQ(fe.touch.u, 480 / 18);  // touch buttons laid out for the window
    // Enlarged by 4: 640x320, rows 80 to 399.
    EXPECT_EQ(at(320, 79), 0u);
    EXPECT_EQ(at(0, 80), kWhite);
    EXPECT_EQ(at(639, 399), kWhite);
    EXPECT_EQ(at(320, 400), 0u);
    // Full screen: the surface made again at the desktop's size and drawn.
    toggleFullscreen(fe);
    EXPECT_EQ(fe.is_fullscreen, 1);
    SDL_DisplayMode mode{};
    ASSERT_EQ(SDL_GetDesktopDisplayMode(0, &mode), 0);
    ASSERT_NE(fe.gScreenSurfaceFull, nullptr);
    EXPECT_EQ(fe.gScreenSurfaceFull->w, std::max(mode.w, mode.h));
    toggleFullscreen(fe);
    EXPECT_EQ(fe.gScreenSurfaceFull->w, 640);
}

// A portrait display: the landscape frame turned by 270 degrees fills it,
// the guest's top-left corner at the bottom left, its bottom-right corner
// at the top right.
TEST_F(Presenting, PortraitDisplaysGetTheFrameTurned) {
    SDL_DestroyRenderer(fe.sdlRenderer);
    SDL_DestroyWindow(fe.sdlWindow);
    fe.sdlWindow = SDL_CreateWindow("portrait", 0, 0, 480, 640, 0);
    fe.sdlRenderer = SDL_CreateRenderer(fe.sdlWindow, -1, SDL_RENDERER_SOFTWARE);
    ASSERT_NE(fe.sdlRenderer, nullptr);
    fe.need_rotate_270 = 1;
    auto f = frame(320, 240, 255);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x) {
            f->pixels[y * kFrameStride + x] = 0;                // black top-left
            f->pixels[(224 + y) * kFrameStride + 304 + x] = 20;  // red bottom-right
        }
    present(fe, f);
    EXPECT_EQ(at(10, 630), 0u);
    EXPECT_EQ(at(470, 10), 0xF80000u);
    EXPECT_EQ(at(10, 10), kWhite);
    EXPECT_EQ(at(470, 630), kWhite);
}

TEST_F(Presenting, OverlaysAreDrawnIntoThePresentedFrame) {
    auto green_in_top_row = [&] {
        int n = 0;
        for (int y = 0; y < 8; ++y)
            for (int x = 280; x < 320; ++x) n += surface_pixel(x, y) == 0x07E0;
        return n;
    };
    present(fe, frame(320, 240, 0));
    EXPECT_EQ(green_in_top_row(), 0);
    EXPECT_EQ(surface_pixel(44, 50), 0);
    fe.show_fps = 1;
    fe.show_keymap = 1;
    fe.start.unit_test_mode = 1;
    present_again(fe);
    EXPECT_GT(green_in_top_row(), 0);           // "00/00" at the top right
    EXPECT_EQ(surface_pixel(44, 50), 0xFFFF);  // the key map's frame, centred
    EXPECT_EQ(surface_pixel(20, 80), 0xFFFF);  // the unit-test panel's frame, centred
}

TEST_F(Presenting, IdleGuestsAreRedrawnOnlyAfterWindowEventsAndForTheUnitTestPanel) {
    t.load("push_char 1\npush_char 1\npush_char 1\nc_point\nc_getchar\ngood_exit\n");
    RunResult r;
    ASSERT_TRUE(sdl_pass(fe, &r));
    EXPECT_EQ(r.status, RunStatus::Waiting);
    EXPECT_EQ(fe.fps_frames_curr, 1u);
    sdl_pass(fe, &r);
    EXPECT_EQ(fe.fps_frames_curr, 1u);

    SDL_Event e{};
    e.type = SDL_WINDOWEVENT;
    e.window.event = SDL_WINDOWEVENT_EXPOSED;
    SDL_PushEvent(&e);
    sdl_pass(fe, &r);
    sdl_pass(fe, &r);
    EXPECT_EQ(fe.fps_frames_curr, 3u);  // drawn again on every pass for a while
    fe.redraw_until = SDL_GetTicks();   // ... until three seconds have passed
    sdl_pass(fe, &r);
    EXPECT_EQ(fe.redraw_until, 0u);
    EXPECT_EQ(fe.fps_frames_curr, 3u);

    fe.start.unit_test_mode = 1;
    fe.last_unit_test_present = SDL_GetTicks() - 250;
    sdl_pass(fe, &r);
    sdl_pass(fe, &r);
    EXPECT_EQ(fe.fps_frames_curr, 4u);  // the panel's clock, every 250 ms

    // The counter's second rolls over: presents and the guest's dirty marks.
    fe.fps_st = SDL_GetTicks() - 1000;
    sdl_pass(fe, &r);
    EXPECT_EQ(fe.fps_frames, 4u);
    EXPECT_EQ(fe.fps_need_frames, 1u);  // the one point
    EXPECT_EQ(fe.fps_frames_curr, 0u);
}

// While the guest waits on time, the loop sleeps until the guest's wake-up
// time rather than running it again and again.
TEST_F(Presenting, WaitingOnTimeSleepsUntilTheWakeUpTime) {
    t.load("push_int 40\nc_delay\ngood_exit\n");
    RunResult r;
    int passes = 0;
    while (sdl_pass(fe, &r)) {
        ASSERT_EQ(r.wait, WaitKind::Time);
        wait_for_events(fe, r);
        ++passes;
    }
    EXPECT_LE(passes, 3);
    EXPECT_GE(core_time(fe.core), 39'062'500u);  // 40 ms in whole 1/256 s ticks
    const uint32_t before = SDL_GetTicks();  // a wake-up time already past: no wait at all
    wait_for_events(fe, {.status = RunStatus::Waiting, .wait = WaitKind::Time, .wake_ns = 1});
    EXPECT_LT(SDL_GetTicks() - before, 50u);
}

}  // namespace
