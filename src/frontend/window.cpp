// Window, renderer and surfaces, and the present of a frame.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "frontend/frontend.h"
#include "frontend/gui/overlay.h"

Frontend::~Frontend() {
    SDL_FreeSurface(gScreenSurfaceFull);
    SDL_FreeSurface(gScreenSurface);
    if (sdlRenderer) SDL_DestroyRenderer(sdlRenderer);
    if (sdlWindow) SDL_DestroyWindow(sdlWindow);
    if (gGameController) SDL_GameControllerClose(gGameController);
}

void fe_log(const Frontend& fe, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    vlogf(fe.core.sinks.log, fmt, ap);
    va_end(ap);
}

namespace {

void quit_sdl() { SDL_Quit(); }

SDL_Window* create_window(int w, int h, Uint32 flags) {
    return SDL_CreateWindow("Tovix SDL", SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, w, h, flags);
}

SDL_Surface* create_surface(int w, int h) {
    return SDL_CreateRGBSurfaceWithFormat(0, w, h, 16, SDL_PIXELFORMAT_RGB565);
}

// The executable's file name, for the key-map panel's footer.
std::string program_name() {
    char buf[4096];
    if (!GetModuleFileName(buf, sizeof buf)) return "tvm2";
    const char* slash = std::strrchr(buf, '/');
    return slash ? slash + 1 : buf;
}

// Frame counter, key map and unit-test panel, in this order, over the frame;
// the panels centred in the part of the surface the window shows.
void draw_overlays(Frontend& fe, Surface16& view, int sw, int sh) {
    const SDL_Rect src = frame_rects(sw, sh, view.w, view.h, fe.windowWidth, fe.windowHeight, false).src;
    const OverlayArea area{src.x, src.y, src.w, src.h};
    if (fe.show_fps) draw_fps(view, static_cast<int>(fe.fps_frames), static_cast<int>(fe.fps_need_frames), sw, sh);
    if (fe.show_keymap) {
        static const std::string name = program_name();
        draw_keymap_sdl(view, area, name);
    }
    if (fe.start.unit_test_mode)
        draw_unit_test_info(view, area, SDL_GetTicks() - fe.start.unit_test_start_tick, fe.start.unit_test_func,
                            fe.start.unit_test_dir);
}

// Halving that rounds toward minus infinity.
int half_floor(int v) { return v >> 1; }

}  // namespace

void initSDL(Frontend& fe) {
    // SIGINT and SIGTERM stay with tvm2's own handlers instead of becoming a
    // window close, so that the exit status tells which signal it was.
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    if (SDL_Init(SDL_INIT_VIDEO | SDL_INIT_JOYSTICK | SDL_INIT_GAMECONTROLLER) < 0) {
        fe_log(fe, "SDL could not initialize! SDL Error: %s\n", SDL_GetError());
        std::exit(1);
    }
    set_controler(fe);
    std::atexit(quit_sdl);
    if (!window_visible()) {
        // Left to itself SDL falls back to a driver without a screen and the
        // program would run unseen; a driver named in SDL_VIDEODRIVER is meant.
        const char* chosen = SDL_getenv("SDL_VIDEODRIVER");
        if (!chosen || !*chosen) {
            std::fprintf(stderr,
                         "tvm2: no display to show a window on (DISPLAY and WAYLAND_DISPLAY are unset);\n"
                         "set SDL_VIDEODRIVER to run without one (for example SDL_VIDEODRIVER=offscreen)\n");
            std::exit(1);
        }
    }

    SDL_DisplayMode mode{};
    int dw = 0, dh = 0;
    if (SDL_GetDesktopDisplayMode(0, &mode) == 0) {
        dw = mode.w;
        dh = mode.h;
    }
    fe_log(fe, "Desktop size %d x %d\n", dw, dh);

    if (!desktop_is_handheld(dw, dh)) {
        fe.windowWidth = 640;
        fe.windowHeight = 480;
        fe.sdlWindow = create_window(640, 480, SDL_WINDOW_OPENGL);
        if (!fe.sdlWindow) {
            fe_log(fe, "Couldn't create SDL window: %s\n", SDL_GetError());
            fe_log(fe, "Trying software rendering...\n");
            fe.sdlWindow = create_window(640, 480, 0);
            if (!fe.sdlWindow) {
                fe_log(fe, "Fatal: Couldn't create SDL window at all!\n");
                std::exit(1);
            }
        }
        fe_log(fe, "Window mode: %d x %d\n", fe.windowWidth, fe.windowHeight);
    } else {
        // A handheld's own display: the whole of it, in landscape terms.
        // Made at the desktop's size: without a window manager a full-screen
        // window keeps the size it was made with.
        fe.sdlWindow = create_window(dw, dh, SDL_WINDOW_FULLSCREEN_DESKTOP | SDL_WINDOW_OPENGL);
        int w = 0, h = 0;
        if (fe.sdlWindow) SDL_GetWindowSize(fe.sdlWindow, &w, &h);
        if (w <= 1 || h <= 1) {
            w = dw;
            h = dh;
        }
        fe_log(fe, "Fullscreen mode: %d x %d\n", w, h);
        if (w < h) {
            std::swap(w, h);
            fe.need_rotate_270 = 1;
        }
        fe.windowWidth = w;
        fe.windowHeight = h;
        fe.is_fullscreen = 1;
    }

    fe.sdlRenderer = SDL_CreateRenderer(fe.sdlWindow, -1, SDL_RENDERER_ACCELERATED | SDL_RENDERER_PRESENTVSYNC);
    if (!fe.sdlRenderer) {
        fe_log(fe, "Couldn't create SDL renderer: %s\n", SDL_GetError());
        // Without an accelerated driver the software renderer still shows
        // the picture; without either, presents do nothing.
        fe.sdlRenderer = SDL_CreateRenderer(fe.sdlWindow, -1, SDL_RENDERER_SOFTWARE);
    }

    fe.gScreenSurface = create_surface(320, 240);
    if (!fe.gScreenSurface) {
        fe_log(fe, "Couldn't set 320x240x8 video mode: %s\n", SDL_GetError());
        std::exit(1);
    }
    SDL_ShowCursor(SDL_DISABLE);
    setScaleQuality(fe, 0);
}

bool window_visible() {
    const char* driver = SDL_GetCurrentVideoDriver();
    return driver && std::strcmp(driver, "offscreen") != 0 && std::strcmp(driver, "dummy") != 0;
}


void setScaleQuality(Frontend& fe, int q) {
    if (q == fe.scale_quality) return;
    fe.scale_quality = q;
    SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, q ? "1" : "0");
}

void initFullScreen2(Frontend& fe) {
    int w = 0, h = 0;
    if (fe.sdlWindow) SDL_GetWindowSize(fe.sdlWindow, &w, &h);
    if (w <= 0 || h <= 0) return;
    if (w < h) std::swap(w, h);
    fe.windowWidth = w;
    fe.windowHeight = h;
    fe.gScreenSurfaceFull = create_surface(w, h);
    gui_init(fe.touch, w, h);
}

void toggleFullscreen(Frontend& fe) {
    // The sizes asked for, not what the window reports at once: the window
    // system changes it later.
    if (fe.is_fullscreen) {
        SDL_SetWindowFullscreen(fe.sdlWindow, 0);
        SDL_SetWindowSize(fe.sdlWindow, 640, 480);
        fe.windowWidth = 640;
        fe.windowHeight = 480;
        fe.need_rotate_270 = 0;
        fe.is_fullscreen = 0;
    } else {
        SDL_SetWindowFullscreen(fe.sdlWindow, SDL_WINDOW_FULLSCREEN_DESKTOP);
        SDL_DisplayMode mode{};
        if (SDL_GetDesktopDisplayMode(0, &mode) == 0 && mode.w > 0 && mode.h > 0) {
            fe.windowWidth = std::max(mode.w, mode.h);
            fe.windowHeight = std::min(mode.w, mode.h);
            fe.need_rotate_270 = mode.w < mode.h;
        }
        fe.is_fullscreen = 1;
    }
    // Made again, for the new size, at the next present of a small screen.
    SDL_FreeSurface(fe.gScreenSurfaceFull);
    fe.gScreenSurfaceFull = nullptr;
    present_again(fe);
}

void window_resized(Frontend& fe, int w, int h) {
    if (fe.gScreenSurfaceFull || w < fe.windowWidth || h < fe.windowHeight) return;
    fe.windowWidth = w;
    fe.windowHeight = h;
    if (w < h) {
        fe.windowWidth = h;
        fe.windowHeight = w;
        fe.need_rotate_270 = 1;
    }
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

void present(Frontend& fe, std::shared_ptr<const Frame> frame) {
    fe.shown = std::move(frame);
    present_again(fe);
}

void present_again(Frontend& fe) {
    if (!fe.gScreenSurface || !fe.shown) return;
    const Frame& f = *fe.shown;
    SDL_Surface* surface = fe.gScreenSurface;
    if (f.width < 161 && f.height < 161) {
        if (!fe.gScreenSurfaceFull) initFullScreen2(fe);
        surface = fe.gScreenSurfaceFull;
    }
    if (!surface) return;
    Surface16 view{static_cast<uint8_t*>(surface->pixels), surface->w, surface->h, surface->pitch};
    DmaRefresh(f, &view);
    draw_overlays(fe, view, f.width, f.height);
    put_surface(fe, surface, f.width, f.height);
    ++fe.fps_frames_curr;
}

void show_error(Frontend& fe, const std::string& text) {
    if (!fe.sdlWindow || !fe.gScreenSurface || !window_visible()) return;
    SDL_Surface* surface = fe.gScreenSurface;
    Surface16 view{static_cast<uint8_t*>(surface->pixels), surface->w, surface->h, surface->pitch};
    SDL_FillRect(surface, nullptr, 0);
    // The overlay font: 8x8, capitals; the text wrapped at 38 characters.
    constexpr size_t kColumns = 38;
    int y = 16;
    size_t start = 0;
    for (bool first = true; start < text.size() && y < 200; first = false) {
        const size_t end = std::min(text.find('\n', start), start + kColumns);
        mesDrawString(view, 8, y, std::string_view(text).substr(start, end - start), first ? kMesYellow : kMesWhite,
                      kMesTransparent);
        start = end < text.size() && text[end] == '\n' ? end + 1 : end;
        y += first ? 16 : 10;
    }
    mesDrawString(view, 8, 220, "PRESS A KEY TO CLOSE", kMesGrey, kMesTransparent);
    for (;;) {
        put_surface(fe, surface, surface->w, surface->h);
        SDL_Event e;
        if (!SDL_WaitEventTimeout(&e, 100)) {
            if (fe.stop_signal && *fe.stop_signal) return;
            continue;
        }
        if (e.type == SDL_QUIT || e.type == SDL_KEYDOWN || e.type == SDL_CONTROLLERBUTTONDOWN ||
            e.type == SDL_MOUSEBUTTONDOWN || e.type == SDL_FINGERDOWN)             return;
    }
}

void put_surface(Frontend& fe, SDL_Surface* surface, int sw, int sh) {
    SDL_RenderClear(fe.sdlRenderer);
    SDL_Texture* texture = SDL_CreateTextureFromSurface(fe.sdlRenderer, surface);
    const FrameRects r = frame_rects(sw, sh, surface->w, surface->h, fe.windowWidth, fe.windowHeight, fe.need_rotate_270);
    if (fe.need_rotate_270)
        SDL_RenderCopyEx(fe.sdlRenderer, texture, &r.src, &r.dst, 270.0, nullptr, SDL_FLIP_NONE);
    else
        SDL_RenderCopy(fe.sdlRenderer, texture, &r.src, &r.dst);
    SDL_DestroyTexture(texture);
    SDL_RenderPresent(fe.sdlRenderer);
}
