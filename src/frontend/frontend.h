// The SDL front-end of tvm2: window, renderer and surfaces, the event loop
// on the main thread, the host that the VM thread talks to, and the state
// they share. One Frontend value per process; the machine it drives is
// created with it and both live until the process ends.
#pragma once

#include <SDL.h>

#include <atomic>
#include <cstdint>

#include "frontend/gui/touch.h"
#include "frontend/startup.h"
#include "vm/machine.h"

struct Frontend;

// The machine's host in tvm2: real clocks, the log on standard output, and
// frames presented through the main thread.
struct SdlHost : Host {
    Frontend* fe = nullptr;
    void HardwareRefresh(Machine& m) override;
    // A waiting guest call gives up once the front-end shuts down.
    bool keep_waiting(Machine& m) override;
};

struct Frontend {
    Machine* m = nullptr;
    SdlHost host;
    StartupState start;

    SDL_Window* sdlWindow = nullptr;
    SDL_Renderer* sdlRenderer = nullptr;
    SDL_Surface* gScreenSurface = nullptr;      // 320x240 RGB565: the guest screen 1:1
    SDL_Surface* gScreenSurfaceFull = nullptr;  // window-sized, for screens of at most 160x160
    SDL_Surface* gCurrSurface = nullptr;        // the surface of the frame being presented

    // Drawable size in landscape terms (the longer side is the width).
    int windowWidth = 0, windowHeight = 0;
    int need_rotate_270 = 0;  // portrait display: frames are turned by 270 degrees
    int is_fullscreen = 0;
    int scale_quality = -1;   // last value given to setScaleQuality

    // Frame counter: presents and dirty marks (the machine counts those) in
    // the current one-second window, and the last complete second's counts.
    uint32_t fps_st = 0;
    std::atomic<uint32_t> fps_frames_curr{0};
    uint32_t fps_frames = 0, fps_need_frames = 0;
    uint8_t show_fps = 0, show_keymap = 0;

    // Touch buttons over the window-sized surface: laid out and kept as a
    // texture, but not shown and not fed with finger events.
    TouchButtons touch;
    SDL_Texture* touch_texture = nullptr;

    SDL_GameController* gGameController = nullptr;
    int controllerType = 0;  // SDL game-controller type; 1 and 2 are the Xbox kinds

    uint32_t last_window_event = 0;      // tick of the last window event, 0 = none pending
    uint32_t last_unit_test_present = 0;

    // Only the main thread uses the renderer. A present asked for by the VM
    // thread is counted here and served by the next loop pass.
    SDL_threadID main_thread = 0;
    std::atomic<uint32_t> present_requests{0}, presents_served{0};

    std::atomic<bool> closing{false};  // shutdown has begun
    std::atomic<bool> vm_done{false};  // the VM thread has left main_loop

    Frontend();
    Frontend(const Frontend&) = delete;
    Frontend& operator=(const Frontend&) = delete;
};

// --- window.cpp ---

// A desktop no larger than 1024x600 is taken for a handheld's own display.
inline bool desktop_is_handheld(int w, int h) { return w <= 1024 && h <= 600; }

// SDL, controller, window (640x480, or full-screen on a handheld display),
// renderer and the 320x240 surface. Ends the process with status 1 when SDL,
// the window or the surface cannot be had.
void initSDL(Frontend& fe);
inline void initSystem(Frontend& fe) { initSDL(fe); }
// Sets the "SDL_RENDER_SCALE_QUALITY" hint when q differs from the last value.
void setScaleQuality(Frontend& fe, int q);
// Window-sized surface for small guest screens (and the touch layout for it).
void initFullScreen(Frontend& fe, int w, int h);
void initFullScreen2(Frontend& fe);
void toggleFullscreen(Frontend& fe);
// Makes the touch buttons' texture from their overlay (replacing any older
// one), and copies it over the frame; the latter is not called in this system.
void gui_update_texture(Frontend& fe);
void gui_render(Frontend& fe);

// The rectangles of one present. Small guest screens (both sides at most
// 160) fill their window-sized surface; larger ones lie centred in the
// 320x240 surface. The destination keeps the source's shape, as large as the
// window allows, centred; turned frames are moved so that they land centred
// on the portrait display.
struct FrameRects {
    SDL_Rect src{}, dst{};
};
FrameRects frame_rects(int screen_w, int screen_h, int surface_w, int surface_h, int window_w, int window_h,
                       bool rotate);

// Presents the guest screen now. On the main thread it converts, draws the
// overlays and renders; on any other thread it asks the main loop to do so
// and waits until it has (or the front-end shuts down).
void HardwareRefresh(Frontend& fe);
// The main thread's present (the renderer's owner).
void present_frame(Frontend& fe);
// Marks the screen dirty and presents at once (after an overlay switch).
void force_present(Frontend& fe);

// --- loop.cpp ---

// One pass of the event loop; false when the loop is to end.
bool sdl_pass(Frontend& fe);
void sdlLoop(Frontend& fe);
// A resize is adopted only while no full surface exists and only when the
// window grew in both directions.
void window_resized(Frontend& fe, int w, int h);

// --- keymap.cpp ---

// Applies one key or controller-button event to the button word vk.
void checkKey(Frontend& fe, const SDL_Event& e);
// (Re)opens the first game controller.
void set_controler(Frontend& fe);

// --- main.cpp / vm_thread.cpp ---

// The VM thread: main_loop, then marks the thread done.
int runVm(void* data);
// Stops the VM thread (bounded wait), closes the guest's files, flushes
// every stream and ends the process with status.
[[noreturn]] void shutdown_and_exit(Frontend& fe, int status);
