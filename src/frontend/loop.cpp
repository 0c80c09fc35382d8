// The loop on the main thread: input, slices of the guest on the real
// clock, presents, the frame counter, timed redraws, and sleeping while the
// guest waits.
#include <algorithm>

#include "frontend/frontend.h"

namespace {

constexpr uint64_t kFrameNs = 16'666'667;  // one slice of guest time: 1/60 s
constexpr uint32_t kWindowRedrawMs = 3000;   // redraws after a window event
constexpr uint32_t kRedrawEveryMs = 16;      // ... this often
constexpr uint32_t kUnitTestPanelMs = 250;   // the unit-test panel's clock
// The longest sleep: signals that ask tvm2 to end are seen at the latest
// after this.
constexpr uint32_t kLongestSleepMs = 100;

void count_frames(Frontend& fe, uint32_t now) {
    if (fe.fps_st == 0) {
        fe.fps_st = now;
    } else if (now - fe.fps_st > 999) {
        const uint32_t marks = fe.shown ? fe.shown->dirty_marks : 0;
        fe.fps_need_frames = marks - fe.dirty_marks_base;
        fe.dirty_marks_base = marks;
        fe.fps_frames = fe.fps_frames_curr;
        fe.fps_frames_curr = 0;
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
                fe.redraw_until = (now + kWindowRedrawMs) | 1;  // odd: never 0
                if (e.window.event == SDL_WINDOWEVENT_RESIZED) window_resized(fe, e.window.data1, e.window.data2);
                break;
            case SDL_KEYDOWN:
            case SDL_KEYUP:
            case SDL_CONTROLLERBUTTONDOWN:
            case SDL_CONTROLLERBUTTONUP: checkKey(fe, e); break;
            case SDL_CONTROLLERDEVICEADDED:
            case SDL_CONTROLLERDEVICEREMOVED: set_controler(fe); break;
            case SDL_FINGERDOWN:
            case SDL_FINGERUP: fe_log(fe, "touch!\n"); break;
            default: break;
        }
    }
    return quit || fe.exit_requested || (fe.stop_signal && *fe.stop_signal);
}

// The window is drawn again on every slice for a while after a window event
// and, in unit-test mode, every 250 ms so that the panel's clock runs.
void timed_redraws(Frontend& fe, bool presented) {
    const uint32_t now = SDL_GetTicks();
    bool due = false;
    if (fe.redraw_until != 0) {
        if (static_cast<int32_t>(now - fe.redraw_until) >= 0)
            fe.redraw_until = 0;
        else
            due = true;
    }
    if (fe.start.unit_test_mode && now - fe.last_unit_test_present >= kUnitTestPanelMs) {
        due = true;
        fe.last_unit_test_present = now;
    }
    if (due && !presented) present_again(fe);
}

}  // namespace

bool sdl_pass(Frontend& fe, RunResult* out) {
    const uint32_t now = SDL_GetTicks();
    count_frames(fe, now);
    if (drain_events(fe, now)) return false;

    // Slices end on a steady 1/60 s beat of guest time, so that a guest that
    // draws without pause is shown at that rate.
    const uint64_t t = core_time(fe.core);
    if (fe.next_frame_ns <= t) fe.next_frame_ns = t + kFrameNs;
    const RunResult r = core_run(fe.core, {.until_ns = fe.next_frame_ns});
    if (r.new_frame) present(fe, core_frame(fe.core));
    timed_redraws(fe, r.new_frame);
    if (out) *out = r;
    return r.status != RunStatus::Ended;
}

void wait_for_events(Frontend& fe, const RunResult& r) {
    uint32_t ms = kLongestSleepMs;
    if (r.wait == WaitKind::Time) {
        const uint64_t t = core_time(fe.core);
        ms = std::min<uint64_t>(ms, r.wake_ns > t ? (r.wake_ns - t + 999'999) / 1'000'000 : 0);
    }
    const uint32_t now = SDL_GetTicks();
    if (fe.redraw_until != 0) ms = std::min(ms, kRedrawEveryMs);
    if (fe.start.unit_test_mode) {
        const uint32_t since = now - fe.last_unit_test_present;
        ms = std::min(ms, since >= kUnitTestPanelMs ? 0 : kUnitTestPanelMs - since);
    }
    if (ms > 0) SDL_WaitEventTimeout(nullptr, static_cast<int>(ms));
}

void sdlLoop(Frontend& fe) {
    RunResult r;
    while (sdl_pass(fe, &r))
        if (r.status == RunStatus::Waiting) wait_for_events(fe, r);
}
