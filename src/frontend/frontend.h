// The SDL front-end of tvm2: window, renderer and surfaces, and the loop
// that feeds the core its input, runs it in slices on the real clock,
// presents its frames and sleeps while the guest waits. Everything runs on
// the main thread.
#pragma once

#include <SDL.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <memory>
#include <string>

#include "core/core.h"
#include "frontend/gui/touch.h"
#include "frontend/startup.h"

struct Frontend {
    Core core;
    StartupState start;

    SDL_Window* sdlWindow = nullptr;
    SDL_Renderer* sdlRenderer = nullptr;
    SDL_Surface* gScreenSurface = nullptr;      // 320x240 RGB565: the guest screen 1:1
    SDL_Surface* gScreenSurfaceFull = nullptr;  // window-sized, for screens of at most 160x160

    // Drawable size in landscape terms (the longer side is the width).
    int windowWidth = 0, windowHeight = 0;
    int need_rotate_270 = 0;  // portrait display: frames are turned by 270 degrees
    int is_fullscreen = 0;
    int scale_quality = -1;  // last value given to setScaleQuality

    std::shared_ptr<const Frame> shown;  // the frame on the window
    uint64_t next_frame_ns = 0;          // guest time at which the current slice ends

    // Frame counter: presents and the guest's dirty marks in the current
    // one-second window, and the last complete second's counts.
    uint32_t fps_st = 0;
    uint32_t fps_frames_curr = 0, dirty_marks_base = 0;
    uint32_t fps_frames = 0, fps_need_frames = 0;
    uint8_t show_fps = 0, show_keymap = 0;

    // Touch buttons laid out over the window-sized surface; not shown and not
    // fed with finger events.
    TouchButtons touch;

    SDL_GameController* gGameController = nullptr;
    int controllerType = 0;  // SDL game-controller type; 1 and 2 are the Xbox kinds

    uint16_t held = 0;           // buttons held as the core was last told (1 = held)
    bool exit_requested = false;  // an exit key or chord: the loop ends
    // Where the host's signal handler notes a signal that asks tvm2 to end
    // (non-zero): the loop ends at its next pass. Null: none.
    const volatile std::sig_atomic_t* stop_signal = nullptr;
    uint32_t redraw_until = 0;  // after a window event: tick until which it is redrawn; 0: none
    uint32_t last_unit_test_present = 0;

    Frontend() = default;
    ~Frontend();
    Frontend(const Frontend&) = delete;
    Frontend& operator=(const Frontend&) = delete;
};

// A log line of the front-end, to where the core's log goes.
void fe_log(const Frontend& fe, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

// --- window.cpp ---

// A display no larger than 1024x600 once turned to landscape (the longer side
// as its width) is taken for a handheld's own: 480x640, 480x800 and 600x1024
// portrait panels as much as 1024x600.
inline bool desktop_is_handheld(int w, int h) { return std::max(w, h) <= 1024 && std::min(w, h) <= 600; }

// SDL, controller, window (640x480, or full-screen on a handheld display),
// renderer and the 320x240 surface. Ends the process with status 1 when SDL,
// the window or the surface cannot be had, or when there is no display and
// SDL_VIDEODRIVER names no driver.
void initSDL(Frontend& fe);
// Whether SDL's video driver shows windows to anyone (not "offscreen" or
// "dummy").
bool window_visible();
// Shows text (its first line as a heading) in the window until a key,
// button, click or close, or a stop signal; nothing where no window is
// visible.
void show_error(Frontend& fe, const std::string& text);
// Sets the "SDL_RENDER_SCALE_QUALITY" hint when q differs from the last value.
void setScaleQuality(Frontend& fe, int q);
// Window-sized surface for small guest screens (and the touch layout for it).
void initFullScreen2(Frontend& fe);
void toggleFullscreen(Frontend& fe);
// A resize is adopted only while no full surface exists and only when the
// window grew in both directions.
void window_resized(Frontend& fe, int w, int h);

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

// Puts a frame on the window: converted into its surface, the overlays over
// it, scaled (and turned) by the renderer, and presented. It becomes the
// shown frame.
void present(Frontend& fe, std::shared_ptr<const Frame> frame);
// Presents the shown frame again (overlays changed, window exposed).
void present_again(Frontend& fe);
// Scales (and turns) a surface holding a sw x sh guest screen onto the
// window and presents it.
void put_surface(Frontend& fe, SDL_Surface* surface, int sw, int sh);

// --- loop.cpp ---

// One pass of the loop: input, one slice of the guest, its frame, the
// frame counter and the timed redraws. Returns false when the loop is to
// end; else what the slice ended with.
bool sdl_pass(Frontend& fe, RunResult* r);
// Sleeps until an event arrives, the guest's wake-up time or the next timed
// redraw, whichever comes first.
void wait_for_events(Frontend& fe, const RunResult& r);
// Passes until the window closes, an exit key is pressed or a single
// program ends.
void sdlLoop(Frontend& fe);

// --- quicksave.cpp ---

// The folder of the quick-save slots: $XDG_DATA_HOME/tvm2, or
// $HOME/.local/share/tvm2 when XDG_DATA_HOME is unset or not absolute; empty
// when HOME is not absolute either.
std::string quick_slot_dir();
// A program's slot in that folder: its file name made safe, a hash of its
// absolute path (so that programs of the same name keep apart), ".state".
// Empty when there is no folder.
std::string quick_slot_path(const std::string& program);
// Saves the whole machine into the running program's slot (F5).
void quick_save(Frontend& fe);
// Loads the slot (F9) and shows its frame at once; when there is no slot or
// the state cannot be loaded, nothing changes. Each logs one line.
void quick_load(Frontend& fe);

// --- keymap.cpp ---

// Applies one key or controller-button event: the core's buttons and the
// host chords.
void checkKey(Frontend& fe, const SDL_Event& e);
// (Re)opens the first game controller.
void set_controler(Frontend& fe);
