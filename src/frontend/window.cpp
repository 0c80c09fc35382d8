// Window, renderer and surfaces, and the present of a frame.
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "display/present.h"
#include "frontend/frontend.h"
#include "frontend/gui/overlay.h"

Frontend::Frontend() {
    host.fe = this;
    main_thread = SDL_ThreadID();
}

namespace {

void quit_sdl() { SDL_Quit(); }

SDL_Window* create_window(int w, int h, Uint32 flags) {
    return SDL_CreateWindow("Tovix SDL", SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, w, h, flags);
}

SDL_Surface* create_surface(int w, int h) {
    return SDL_CreateRGBSurfaceWithFormat(0, w, h, 16, SDL_PIXELFORMAT_RGB565);
}

// Takes the present over from whoever holds it, waiting 1 ms at a time.
void take_refresh(Machine& m) {
    while (m.can_refresh.exchange(0, std::memory_order_acquire) == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void give_refresh(Machine& m) { m.can_refresh.store(1, std::memory_order_release); }

// The executable's file name, for the key-map panel's footer.
std::string program_name() {
    char buf[4096];
    if (!GetModuleFileName(buf, sizeof buf)) return "tvm2";
    const char* slash = std::strrchr(buf, '/');
    return slash ? slash + 1 : buf;
}

// Frame counter, key map and unit-test panel, in this order, over the frame.
void draw_overlays(Frontend& fe, Surface16& view, int sw, int sh) {
    if (fe.show_fps) draw_fps(view, static_cast<int>(fe.fps_frames), static_cast<int>(fe.fps_need_frames), sw, sh);
    if (fe.show_keymap) {
        static const std::string name = program_name();
        draw_keymap_sdl(view, name);
    }
    if (fe.start.unit_test_mode)
        draw_unit_test_info(view, SDL_GetTicks() - fe.start.unit_test_start_tick, fe.start.unit_test_func,
                            fe.start.unit_test_dir);
}

// Halving that rounds toward minus infinity.
int half_floor(int v) { return v >> 1; }

}  // namespace

void initSDL(Frontend& fe) {
    Machine& m = *fe.m;
    if (SDL_Init(SDL_INIT_VIDEO | SDL_INIT_JOYSTICK | SDL_INIT_GAMECONTROLLER) < 0) {
        mylog(m, "SDL could not initialize! SDL Error: %s\n", SDL_GetError());
        std::exit(1);
    }
    set_controler(fe);
    std::atexit(quit_sdl);
    std::at_quick_exit(quit_sdl);

    SDL_DisplayMode mode{};
    int dw = 0, dh = 0;
    if (SDL_GetDesktopDisplayMode(0, &mode) == 0) {
        dw = mode.w;
        dh = mode.h;
    }
    mylog(m, "Desktop size %d x %d\n", dw, dh);

    if (!desktop_is_handheld(dw, dh)) {
        fe.windowWidth = 640;
        fe.windowHeight = 480;
        fe.sdlWindow = create_window(640, 480, SDL_WINDOW_OPENGL);
        if (!fe.sdlWindow) {
            mylog(m, "Couldn't create SDL window: %s\n", SDL_GetError());
            mylog(m, "Trying software rendering...\n");
            fe.sdlWindow = create_window(640, 480, 0);
            if (!fe.sdlWindow) {
                mylog(m, "Fatal: Couldn't create SDL window at all!\n");
                std::exit(1);
            }
        }
        mylog(m, "Window mode: %d x %d\n", fe.windowWidth, fe.windowHeight);
    } else {
        // A handheld's own display: the whole of it, in landscape terms.
        fe.sdlWindow = create_window(0, 0, SDL_WINDOW_FULLSCREEN_DESKTOP | SDL_WINDOW_OPENGL);
        int w = 0, h = 0;
        if (fe.sdlWindow) SDL_GetWindowSize(fe.sdlWindow, &w, &h);
        mylog(m, "Fullscreen mode: %d x %d\n", w, h);
        if (w < h) {
            std::swap(w, h);
            fe.need_rotate_270 = 1;
        }
        fe.windowWidth = w;
        fe.windowHeight = h;
    }

    fe.sdlRenderer = SDL_CreateRenderer(fe.sdlWindow, -1, SDL_RENDERER_ACCELERATED | SDL_RENDERER_PRESENTVSYNC);
    if (!fe.sdlRenderer) {
        mylog(m, "Couldn't create SDL renderer: %s\n", SDL_GetError());
        // Without an accelerated driver the software renderer still shows
        // the picture; without either, presents do nothing.
        fe.sdlRenderer = SDL_CreateRenderer(fe.sdlWindow, -1, SDL_RENDERER_SOFTWARE);
    }

    fe.gScreenSurface = create_surface(320, 240);
    if (!fe.gScreenSurface) {
        mylog(m, "Couldn't set 320x240x8 video mode: %s\n", SDL_GetError());
        std::exit(1);
    }
    SDL_ShowCursor(SDL_DISABLE);
    setScaleQuality(fe, 0);
}

void setScaleQuality(Frontend& fe, int q) {
    if (q == fe.scale_quality) return;
    fe.scale_quality = q;
    SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, q ? "1" : "0");
}

void initFullScreen(Frontend& fe, int w, int h) {
    fe.windowWidth = w;
    fe.windowHeight = h;
    fe.gScreenSurfaceFull = create_surface(w, h);
    if (gui_init(fe.touch, w, h)) gui_update_texture(fe);
}

void gui_update_texture(Frontend& fe) {
    TouchButtons& t = fe.touch;
    if (t.pixels.empty()) return;
    SDL_DestroyTexture(fe.touch_texture);
    fe.touch_texture = nullptr;
    SDL_Surface* s = SDL_CreateRGBSurfaceFrom(t.pixels.data(), t.width, t.height, 32, t.width * 4, 0x000000FF,
                                              0x0000FF00, 0x00FF0000, 0xFF000000);
    if (!s) return;
    fe.touch_texture = SDL_CreateTextureFromSurface(fe.sdlRenderer, s);
    if (fe.touch_texture) SDL_SetTextureBlendMode(fe.touch_texture, SDL_BLENDMODE_BLEND);
    SDL_FreeSurface(s);
}

void gui_render(Frontend& fe) {
    const SDL_Rect r{0, 0, fe.touch.width, fe.touch.height};
    if (fe.touch_texture) SDL_RenderCopy(fe.sdlRenderer, fe.touch_texture, &r, &r);
}

void initFullScreen2(Frontend& fe) {
    int w = 0, h = 0;
    if (fe.sdlWindow) SDL_GetWindowSize(fe.sdlWindow, &w, &h);
    if (w <= 0 || h <= 0) return;
    if (w < h) std::swap(w, h);
    initFullScreen(fe, w, h);
}

void toggleFullscreen(Frontend& fe) {
    if (fe.is_fullscreen) {
        SDL_SetWindowFullscreen(fe.sdlWindow, 0);
        SDL_SetWindowSize(fe.sdlWindow, 640, 480);
        fe.is_fullscreen = 0;
    } else {
        SDL_SetWindowFullscreen(fe.sdlWindow, SDL_WINDOW_FULLSCREEN_DESKTOP);
        fe.is_fullscreen = 1;
    }
    int w = fe.windowWidth, h = fe.windowHeight;
    if (fe.sdlWindow) SDL_GetWindowSize(fe.sdlWindow, &w, &h);
    fe.windowWidth = w;
    fe.windowHeight = h;
    // Made again, for the new size, at the next present of a small screen.
    take_refresh(*fe.m);
    SDL_FreeSurface(fe.gScreenSurfaceFull);
    fe.gScreenSurfaceFull = nullptr;
    give_refresh(*fe.m);
}

FrameRects frame_rects(int screen_w, int screen_h, int surface_w, int surface_h, int window_w, int window_h,
                       bool rotate) {
    FrameRects r;
    if (screen_w < 161 && screen_h < 161) {
        r.src = {0, 0, surface_w, surface_h};
    } else {
        r.src = {half_floor(surface_w - screen_w), half_floor(surface_h - screen_h), screen_w, screen_h};
    }
    int w = window_w;
    int h = r.src.w > 0 ? w * r.src.h / r.src.w : 0;
    if (h > window_h) {
        h = window_h;
        w = r.src.h > 0 ? r.src.w * h / r.src.h : 0;
    }
    r.dst = {half_floor(window_w - w), half_floor(window_h - h), w, h};
    if (rotate) {
        const int d = (window_h - window_w) / 2;
        r.dst.x += d;
        r.dst.y -= d;
    }
    return r;
}

void present_frame(Frontend& fe) {
    Machine& m = *fe.m;
    if (!fe.gScreenSurface) return;
    take_refresh(m);
    m.need_refresh.store(0, std::memory_order_relaxed);
    SetSDLPalette(m);

    // The guest may change its screen size meanwhile: read it once.
    const int sw = m.ScreenWidth, sh = m.ScreenHeight;
    SDL_Surface* surface = fe.gScreenSurface;
    if (sw < 161 && sh < 161) {
        if (!fe.gScreenSurfaceFull) initFullScreen2(fe);
        surface = fe.gScreenSurfaceFull;
    }
    fe.gCurrSurface = surface;
    if (surface) {
        Surface16 view{static_cast<uint8_t*>(surface->pixels), surface->w, surface->h, surface->pitch};
        DmaRefresh(m, &view);
        draw_overlays(fe, view, sw, sh);

        SDL_RenderClear(fe.sdlRenderer);
        SDL_Texture* texture = SDL_CreateTextureFromSurface(fe.sdlRenderer, surface);
        const FrameRects r = frame_rects(sw, sh, surface->w, surface->h, fe.windowWidth, fe.windowHeight,
                                         fe.need_rotate_270 != 0);
        if (fe.need_rotate_270)
            SDL_RenderCopyEx(fe.sdlRenderer, texture, &r.src, &r.dst, 270.0, nullptr, SDL_FLIP_NONE);
        else
            SDL_RenderCopy(fe.sdlRenderer, texture, &r.src, &r.dst);
        SDL_DestroyTexture(texture);
        SDL_RenderPresent(fe.sdlRenderer);
        fe.fps_frames_curr.fetch_add(1, std::memory_order_relaxed);
    }
    give_refresh(m);
}

void HardwareRefresh(Frontend& fe) {
    if (SDL_ThreadID() == fe.main_thread) {
        present_frame(fe);
        return;
    }
    // The renderer belongs to the main thread: ask the loop to present and
    // wait for it, as a present done here would have taken about as long.
    if (fe.closing.load(std::memory_order_relaxed)) return;
    const uint32_t ticket = fe.present_requests.fetch_add(1, std::memory_order_acq_rel) + 1;
    for (int waited = 0; waited < 1000; ++waited) {
        if (static_cast<int32_t>(fe.presents_served.load(std::memory_order_acquire) - ticket) >= 0) return;
        if (fe.closing.load(std::memory_order_relaxed)) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void force_present(Frontend& fe) {
    Machine& m = *fe.m;
    m.need_refresh.store(1, std::memory_order_relaxed);
    m.can_refresh.store(1, std::memory_order_relaxed);
    HardwareRefresh(fe);
}

void SdlHost::HardwareRefresh(Machine&) { ::HardwareRefresh(*fe); }

bool SdlHost::keep_waiting(Machine&) { return !fe->closing.load(std::memory_order_relaxed); }
