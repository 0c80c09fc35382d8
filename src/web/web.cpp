// The page's host of the core: one machine, driven a frame at a time from
// JavaScript through these C functions. Each frame moves the guest clock by
// exactly 1/60 s (as the libretro core does), so a page shows the same
// frames as `tvxrun --clock virtual` for the same program and buttons. The
// guest's files live in the module's file system, where the page puts the
// program.
#include <emscripten/emscripten.h>

#include <memory>
#include <string>
#include <vector>

#include "core/core.h"

namespace {

constexpr uint64_t kFrameNs = 16'666'667;
constexpr uint64_t kStepsPerFrame = 4'000'000;  // what a busy guest gets per frame

struct Page {
    Core core;
    std::string error, console, console_out, log, log_out;
    std::vector<uint8_t> state;  // the last save state made
    std::vector<uint8_t> rgba;  // the last frame, 4 bytes a pixel
    std::vector<uint32_t> xrgb;
    int width = 0, height = 0;  // of rgba
    int scale = 1;              // the page's enlargement
    uint64_t frame_ns = 0;
    bool ended = false;
    int32_t exit_code = 0;
};

// The page has one machine at a time; it lives from tvm_load to the next.
std::unique_ptr<Page> page;

// The last frame as RGBA: the guest screen 1:1, or with the LCD grid on and
// a monochrome screen enlarged by the page's scale with the grid look (the
// picture tvm2 draws into a window of that size).
void take_frame(Page& p) {
    const std::shared_ptr<const Frame> f = core_frame(p.core);
    if (!f) return;
    const int k = core_grid(p.core) && f->graph_mode == 1 && p.scale >= 3 ? p.scale : 1;
    p.width = f->width * k;
    p.height = f->height * k;
    p.xrgb.resize(static_cast<size_t>(p.width) * p.height);
    if (k == 1) {
        frame_to_xrgb8888(*f, p.xrgb.data());
    } else {
        std::vector<uint16_t> px(p.xrgb.size());
        Surface16 s{reinterpret_cast<uint8_t*>(px.data()), p.width, p.height, p.width * 2};
        ScaleX_grid(*f, s, k);
        rgb565_to_xrgb8888(px.data(), px.size(), p.xrgb.data());
    }
    p.rgba.resize(p.xrgb.size() * 4);
    for (size_t i = 0; i < p.xrgb.size(); ++i) {
        const uint32_t c = p.xrgb[i];
        p.rgba[4 * i] = static_cast<uint8_t>(c >> 16);
        p.rgba[4 * i + 1] = static_cast<uint8_t>(c >> 8);
        p.rgba[4 * i + 2] = static_cast<uint8_t>(c);
        p.rgba[4 * i + 3] = 255;
    }
}

// The text gathered in `from` since the last call, kept in `out` for the
// page to read; `from` starts empty again.
const char* taken(std::string& from, std::string& out) {
    out.swap(from);
    from.clear();
    return out.c_str();
}

// A new page machine, its log and console text gathered for tvm_log and
// tvm_console.
Page& new_page() {
    page = std::make_unique<Page>();
    Page& p = *page;
    p.core.sinks.log = [&p](std::string_view text) { p.log += text; };
    p.core.sinks.console = [&p](std::string_view text) { p.console += text; };
    return p;
}

}  // namespace

extern "C" {

// Loads the program at path (in the module's file system) with root as the
// guest's "/". Returns "" or the reason it could not be loaded.
EMSCRIPTEN_KEEPALIVE const char* tvm_load(const char* path, const char* root, int grid) {
    Page& p = new_page();
    LoadOptions opts;
    opts.program = path;
    opts.root = root;
    opts.grid = grid != 0;
    p.error = core_load(p.core, opts);
    if (p.error.empty()) take_frame(p);
    return p.error.c_str();
}

// Runs one frame with the buttons (a word of BTN_ bits) held. Returns 1 when
// the guest presented a new frame.
EMSCRIPTEN_KEEPALIVE int tvm_frame(int buttons) {
    if (!page || !page->core.loaded() || page->ended) return 0;
    Page& p = *page;
    core_set_buttons(p.core, static_cast<uint16_t>(buttons));
    p.frame_ns += kFrameNs;
    const RunResult r = core_run_frame(p.core, p.frame_ns, kStepsPerFrame);
    if (r.status == RunStatus::Ended) {
        p.ended = true;
        p.exit_code = r.exit_code;
    }
    if (r.new_frame) take_frame(p);
    return r.new_frame ? 1 : 0;
}

// The last frame's pixels (RGBA), tvm_width x tvm_height: the guest's size,
// or that size times the scale when the grid look enlarges it.
EMSCRIPTEN_KEEPALIVE const uint8_t* tvm_pixels() { return page ? page->rgba.data() : nullptr; }
EMSCRIPTEN_KEEPALIVE int tvm_width() { return page ? page->width : 0; }
EMSCRIPTEN_KEEPALIVE int tvm_height() { return page ? page->height : 0; }
// The guest screen's size (0 before the first frame).
EMSCRIPTEN_KEEPALIVE int tvm_screen_width() {
    const auto f = page ? core_frame(page->core) : nullptr;
    return f ? f->width : 0;
}
EMSCRIPTEN_KEEPALIVE int tvm_screen_height() {
    const auto f = page ? core_frame(page->core) : nullptr;
    return f ? f->height : 0;
}

// The page's enlargement and the LCD grid option; the last frame is
// converted again for them.
EMSCRIPTEN_KEEPALIVE void tvm_set_view(int scale, int grid) {
    if (!page || !page->core.loaded()) return;
    page->scale = scale < 1 ? 1 : scale > 16 ? 16 : scale;
    core_set_grid(page->core, grid != 0);
    take_frame(*page);
}

// What the guest's open files hold reaches the module's file system, so that
// the page can store it.
EMSCRIPTEN_KEEPALIVE void tvm_flush_files() {
    if (page) core_flush_files(page->core);
}
EMSCRIPTEN_KEEPALIVE int tvm_ended() { return page && page->ended ? 1 : 0; }
EMSCRIPTEN_KEEPALIVE int tvm_exit_code() { return page ? page->exit_code : 0; }

// The machine as a save state (the bytes tvxrun --state-out writes); null
// when nothing is loaded. tvm_state_size gives its length.
EMSCRIPTEN_KEEPALIVE const uint8_t* tvm_save_state() {
    if (!page || !page->core.loaded()) return nullptr;
    page->state = core_save_state(page->core);
    return page->state.data();
}
EMSCRIPTEN_KEEPALIVE int tvm_state_size() { return page ? static_cast<int>(page->state.size()) : 0; }

// Goes on from a save state instead of the running program. Returns "" or
// the reason the state was refused (the machine is then as it was).
EMSCRIPTEN_KEEPALIVE const char* tvm_load_state(const uint8_t* data, int size) {
    if (!page) new_page();
    Page& p = *page;
    p.error = core_load_state(p.core, std::span<const uint8_t>(data, size > 0 ? static_cast<size_t>(size) : 0));
    if (!p.error.empty()) return p.error.c_str();
    p.ended = core_ended(p.core);
    p.exit_code = core_exit_code(p.core);
    p.frame_ns = core_time(p.core);
    core_present_now(p.core);
    take_frame(p);
    return "";
}

// The console text, and the machine log, since the last call (UTF-8).
EMSCRIPTEN_KEEPALIVE const char* tvm_console() { return page ? taken(page->console, page->console_out) : ""; }
EMSCRIPTEN_KEEPALIVE const char* tvm_log() { return page ? taken(page->log, page->log_out) : ""; }

}  // extern "C"
