// Frame geometry, the window rules, and presents read back from a window of
// SDL's dummy video driver.
#include <thread>

#include "display/screen.h"
#include "fe_harness.h"

namespace {

constexpr uint32_t kWhite = 0xF8FCF8;

void expect_rect(const SDL_Rect& r, int x, int y, int w, int h) {
    EXPECT_EQ(r.x, x);
    EXPECT_EQ(r.y, y);
    EXPECT_EQ(r.w, w);
    EXPECT_EQ(r.h, h);
}

TEST(FrameGeometry, LargeScreensAreCutFromTheMiddleAndFitTheWindow) {
    FrameRects r = frame_rects(240, 160, 320, 240, 640, 480, false);
    expect_rect(r.src, 40, 40, 240, 160);
    expect_rect(r.dst, 0, 27, 640, 426);  // 640 * 160 / 240 = 426 rows, (480 - 426) / 2 above
    r = frame_rects(160, 240, 320, 240, 640, 480, false);
    expect_rect(r.src, 80, 0, 160, 240);
    expect_rect(r.dst, 160, 0, 320, 480);  // too tall at full width: full height instead
    r = frame_rects(320, 240, 320, 240, 1024, 600, false);
    expect_rect(r.dst, 112, 0, 800, 600);
}

TEST(FrameGeometry, SmallScreensUseTheWholeSurfaceAndPortraitFramesAreMoved) {
    FrameRects r = frame_rects(160, 80, 640, 480, 640, 480, false);
    expect_rect(r.src, 0, 0, 640, 480);
    expect_rect(r.dst, 0, 0, 640, 480);
    // A 480x640 display: landscape 640x480, turned, centred on the display.
    r = frame_rects(320, 240, 320, 240, 640, 480, true);
    expect_rect(r.dst, -80, 80, 640, 480);
    r = frame_rects(240, 160, 320, 240, 640, 480, true);
    expect_rect(r.dst, -80, 107, 640, 426);
}

TEST(FrameGeometry, HandheldDesktopsAndWindowResizes) {
    EXPECT_TRUE(desktop_is_handheld(1024, 600));
    EXPECT_TRUE(desktop_is_handheld(800, 480));
    EXPECT_FALSE(desktop_is_handheld(1025, 600));
    EXPECT_FALSE(desktop_is_handheld(1024, 601));
    EXPECT_FALSE(desktop_is_handheld(1920, 1080));

    TestFrontend t;
    Frontend& fe = *t.fe;
    fe.windowWidth = 640;
    fe.windowHeight = 480;
    window_resized(fe, 600, 500);  // narrower: kept
    EXPECT_EQ(fe.windowWidth, 640);
    window_resized(fe, 800, 600);
    EXPECT_EQ(fe.windowWidth, 800);
    EXPECT_EQ(fe.windowHeight, 600);
    EXPECT_EQ(fe.need_rotate_270, 0);
    window_resized(fe, 900, 1200);  // portrait: turned
    EXPECT_EQ(fe.windowWidth, 1200);
    EXPECT_EQ(fe.windowHeight, 900);
    EXPECT_EQ(fe.need_rotate_270, 1);
}

// A real window of the dummy driver, the software renderer and the surfaces.
class Presenting : public ::testing::Test {
protected:
    static void SetUpTestSuite() { setenv("SDL_VIDEODRIVER", "dummy", 1); }
    void SetUp() override {
        initSDL(fe);
        ASSERT_NE(fe.sdlRenderer, nullptr);
        m.graph_mode = 8;
        SetPalette(m);
    }
    void TearDown() override {
        SDL_FreeSurface(fe.gScreenSurfaceFull);
        SDL_FreeSurface(fe.gScreenSurface);
        SDL_DestroyRenderer(fe.sdlRenderer);
        SDL_DestroyWindow(fe.sdlWindow);
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
    void fill_screen(int w, int h, uint8_t colour) {
        m.ScreenWidth = w;
        m.ScreenHeight = h;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) m.ScreenBuffer[y * kPlaneStride + x] = colour;
    }

    TestFrontend t;
    Machine& m = *t.m;
    Frontend& fe = *t.fe;
};

TEST_F(Presenting, LargeScreenFillsTheWindowWidthCentred) {
    EXPECT_NE(t.log().find("Window mode: 640 x 480\n"), std::string::npos) << t.log();
    fill_screen(240, 160, 255);  // white
    m.ScreenBuffer[0] = 0;       // black top-left guest pixel
    ToviNeedRefresh(m);
    EXPECT_TRUE(sdl_pass(fe));
    EXPECT_EQ(m.need_refresh.load(), 0);
    EXPECT_EQ(fe.fps_frames_curr.load(), 1u);
    EXPECT_EQ(fe.gCurrSurface, fe.gScreenSurface);
    EXPECT_EQ(at(320, 26), 0u);  // bars above and below the 640x426 picture
    EXPECT_EQ(at(320, 27 + 426), 0u);
    EXPECT_EQ(at(320, 27), kWhite);
    EXPECT_EQ(at(639, 27 + 425), kWhite);
    EXPECT_EQ(at(1, 28), 0u);  // the top-left guest pixel, enlarged
    EXPECT_EQ(at(4, 27), kWhite);
}

TEST_F(Presenting, SmallScreenGetsTheWindowSizedSurfaceUntilFullScreenToggles) {
    fill_screen(160, 80, 255);
    force_present(fe);
    ASSERT_NE(fe.gScreenSurfaceFull, nullptr);
    EXPECT_EQ(fe.gCurrSurface, fe.gScreenSurfaceFull);
    EXPECT_EQ(fe.gScreenSurfaceFull->w, 640);
    EXPECT_EQ(fe.gScreenSurfaceFull->h, 480);
    EXPECT_EQ(fe.touch.u, 480 / 18);  // touch buttons laid out for the window, kept as a texture
    EXPECT_NE(fe.touch_texture, nullptr);
    // Enlarged by 4: 640x320, rows 80 to 399.
    EXPECT_EQ(at(320, 79), 0u);
    EXPECT_EQ(at(0, 80), kWhite);
    EXPECT_EQ(at(639, 399), kWhite);
    EXPECT_EQ(at(320, 400), 0u);
    toggleFullscreen(fe);
    EXPECT_EQ(fe.gScreenSurfaceFull, nullptr);
    EXPECT_EQ(fe.is_fullscreen, 1);
    EXPECT_EQ(m.can_refresh.load(), 1);
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
    fe.windowWidth = 640;
    fe.windowHeight = 480;
    fe.need_rotate_270 = 1;
    fill_screen(320, 240, 255);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x) {
            m.ScreenBuffer[y * kPlaneStride + x] = 0;                        // black top-left
            m.ScreenBuffer[(224 + y) * kPlaneStride + 304 + x] = 20;         // red bottom-right
        }
    force_present(fe);
    EXPECT_EQ(at(10, 630), 0u);
    EXPECT_EQ(at(470, 10), 0xF80000u);
    EXPECT_EQ(at(10, 10), kWhite);
    EXPECT_EQ(at(470, 630), kWhite);
    EXPECT_EQ(at(240, 320), kWhite);
}

TEST_F(Presenting, OverlaysAreDrawnIntoThePresentedFrame) {
    fill_screen(320, 240, 0);
    auto pixel = [&](int x, int y) {
        const SDL_Surface* s = fe.gScreenSurface;
        return *reinterpret_cast<const uint16_t*>(static_cast<const uint8_t*>(s->pixels) + y * s->pitch + 2 * x);
    };
    auto green_in_top_row = [&] {
        int n = 0;
        for (int y = 0; y < 8; ++y)
            for (int x = 280; x < 320; ++x) n += pixel(x, y) == 0x07E0;
        return n;
    };
    force_present(fe);
    EXPECT_EQ(green_in_top_row(), 0);
    EXPECT_EQ(pixel(42, 50), 0);
    fe.show_fps = 1;
    fe.show_keymap = 1;
    fe.start.unit_test_mode = 1;
    force_present(fe);
    EXPECT_GT(green_in_top_row(), 0);        // "00/00" at the top right
    EXPECT_EQ(pixel(42, 50), 0xFFFF);        // the key map's frame
    EXPECT_EQ(pixel(20, 80), 0xFFFF);        // the unit-test panel's frame, centred
}

TEST_F(Presenting, VmThreadPresentsAreServedByTheLoop) {
    fill_screen(320, 240, 255);
    std::atomic<bool> returned{false};
    std::thread vm([&] {
        m.host->HardwareRefresh(m);
        returned = true;
    });
    for (int i = 0; i < 200 && !returned; ++i) sdl_pass(fe);
    vm.join();
    EXPECT_TRUE(returned);
    EXPECT_EQ(fe.fps_frames_curr.load(), 1u);
    EXPECT_EQ(fe.presents_served.load(), 1u);
    EXPECT_EQ(at(0, 0), kWhite);

    fe.closing = true;  // after shutdown began a request returns at once
    std::thread late([&] { m.host->HardwareRefresh(m); });
    late.join();
    EXPECT_EQ(fe.present_requests.load(), 1u);
    EXPECT_FALSE(m.host->keep_waiting(m));
}

TEST_F(Presenting, WindowEventsRedrawForThreeSecondsAndTheCounterRollsOver) {
    SDL_Event e{};
    e.type = SDL_WINDOWEVENT;
    e.window.event = SDL_WINDOWEVENT_EXPOSED;
    SDL_PushEvent(&e);
    sdl_pass(fe);
    ASSERT_NE(fe.last_window_event, 0u);
    EXPECT_EQ(fe.fps_frames_curr.load(), 0u);
    sdl_pass(fe);  // the next pass marks the screen dirty, the one after presents
    sdl_pass(fe);
    EXPECT_GE(fe.fps_frames_curr.load(), 1u);
    while (SDL_GetTicks() < 3100) SDL_Delay(50);
    fe.last_window_event = SDL_GetTicks() - 3000;
    sdl_pass(fe);
    EXPECT_EQ(fe.last_window_event, 0u);

    m.fps_need_frames_curr = 0;
    ToviNeedRefresh(m);
    ToviNeedRefresh(m);
    fe.fps_st = SDL_GetTicks() - 1000;
    const uint32_t frames = fe.fps_frames_curr.load();
    sdl_pass(fe);
    EXPECT_EQ(fe.fps_need_frames, 2u);
    EXPECT_EQ(fe.fps_frames, frames);
    EXPECT_EQ(fe.fps_frames_curr.load(), 1u);  // this pass's own present, in the new second
}

}  // namespace
