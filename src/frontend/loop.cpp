// The event loop on the main thread: input, frame counter, presents, pacing.
#include "frontend/frontend.h"
#include "frontend/keymap.h"

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

namespace {

void count_frames(Frontend& fe, uint32_t now) {
    if (fe.fps_st == 0) {
        fe.fps_st = now;
    } else if (now - fe.fps_st > 999) {
        fe.fps_need_frames = fe.m->fps_need_frames_curr.exchange(0, std::memory_order_relaxed);
        fe.fps_frames = fe.fps_frames_curr.exchange(0, std::memory_order_relaxed);
        fe.fps_st = now;
    }
}

// Returns true when the window is to close.
bool drain_events(Frontend& fe, uint32_t now) {
    bool quit = false;
    SDL_Event e;
    while (SDL_PollEvent(&e)) {
        switch (e.type) {
            case SDL_QUIT: quit = true; break;
            case SDL_WINDOWEVENT:
                fe.last_window_event = now;
                if (e.window.event == SDL_WINDOWEVENT_RESIZED) window_resized(fe, e.window.data1, e.window.data2);
                break;
            case SDL_KEYDOWN:
            case SDL_KEYUP:
            case SDL_CONTROLLERBUTTONDOWN:
            case SDL_CONTROLLERBUTTONUP: checkKey(fe, e); break;
            case SDL_CONTROLLERDEVICEADDED:
            case SDL_CONTROLLERDEVICEREMOVED: set_controler(fe); break;
            case SDL_FINGERDOWN:
            case SDL_FINGERUP: mylog(*fe.m, "touch!\n"); break;
            default: break;
        }
    }
    return quit;
}

bool can_present(const Machine& m) { return m.can_refresh.load(std::memory_order_relaxed) == 1; }

}  // namespace

bool sdl_pass(Frontend& fe) {
    Machine& m = *fe.m;
    const uint32_t now = SDL_GetTicks();
    count_frames(fe, now);

    bool quit = drain_events(fe, now);
    // SELECT and START held together close the window.
    if ((m.vk.load(std::memory_order_relaxed) & (btn::SELECT | btn::START)) == 0) quit = true;
    SetGamePad(m, m.vk.load(std::memory_order_relaxed));

    // Presents the VM thread asked for.
    const uint32_t requested = fe.present_requests.load(std::memory_order_acquire);
    if (requested != fe.presents_served.load(std::memory_order_relaxed) && can_present(m)) {
        present_frame(fe);
        fe.presents_served.store(requested, std::memory_order_release);
    }

    if (m.need_refresh.load(std::memory_order_relaxed) && m.refresh_mode == 0) {
        if (can_present(m)) present_frame(fe);
    } else if (fe.last_window_event != 0 && fe.last_window_event < now) {
        // Draw again on every pass for three seconds after a window event.
        if (now - fe.last_window_event >= 3000)
            fe.last_window_event = 0;
        else
            m.need_refresh.store(1, std::memory_order_relaxed);
    }

    // Keeps the unit-test panel's clock running while the guest draws nothing.
    if (fe.start.unit_test_mode && can_present(m) && now - fe.last_unit_test_present > 249) {
        present_frame(fe);
        fe.last_unit_test_present = now;
    }

    const int32_t elapsed = static_cast<int32_t>(SDL_GetTicks() - now);
    if (m.refresh_mode == 0) {
        if (elapsed >= 0 && elapsed <= 9) SDL_Delay(static_cast<Uint32>(10 - elapsed));
    } else if (elapsed >= 0 && elapsed <= 15) {
        SDL_Delay(static_cast<Uint32>(16 - elapsed));
    }
    return !quit && !m.force_exit_tvx.load(std::memory_order_relaxed);
}

void sdlLoop(Frontend& fe) {
    while (sdl_pass(fe)) {
    }
}
