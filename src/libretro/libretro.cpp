// tvm2 as a libretro core: the front-end loads a .tvx by path and calls
// retro_run sixty times a second; each call moves the guest clock on by
// exactly 1/60 s, so the same input gives the same frames on every machine
// (rewind, netplay and replays rely on that). Video is the guest screen at
// its own size; input is the RetroPad; save states are the core's own.
#include <fcntl.h>
#include <libretro.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/core.h"

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kFrameNs = 16'666'667;  // guest time per retro_run
// A guest that computes without waiting gets this many instructions per
// frame; its clock still moves by one frame, so a busy program cannot hold
// up the front-end.
constexpr uint64_t kStepsPerFrame = 4'000'000;
constexpr int kGridFactor = 3;  // the smallest enlargement that shows the grid
constexpr int kGridMaxSide = 160;
constexpr unsigned kMaxSide = 480;  // 160 x 3 with the grid; 320 x 240 without
// Save states carry a small frame of their own: a tag, the length of the
// core's state and the frame clock, then the state, then zero padding up to
// the fixed size.
constexpr uint8_t kStateTag[4] = {'T', 'V', 'L', 'R'};
constexpr size_t kStateFrame = 16;
// Room for what a state can grow by after the load: nested programs' images,
// open files, queued buttons.
constexpr size_t kStateSlack = 4u << 20;
constexpr char kGridKey[] = "tvm2_lcd_grid";

struct Pad {
    unsigned id;
    uint16_t button;
    const char* name;
};
constexpr Pad kPad[] = {
    {RETRO_DEVICE_ID_JOYPAD_UP, BTN_UP, "Up"},
    {RETRO_DEVICE_ID_JOYPAD_DOWN, BTN_DOWN, "Down"},
    {RETRO_DEVICE_ID_JOYPAD_LEFT, BTN_LEFT, "Left"},
    {RETRO_DEVICE_ID_JOYPAD_RIGHT, BTN_RIGHT, "Right"},
    {RETRO_DEVICE_ID_JOYPAD_A, BTN_A, "A"},
    {RETRO_DEVICE_ID_JOYPAD_B, BTN_B, "B"},
    {RETRO_DEVICE_ID_JOYPAD_X, BTN_X, "X"},
    {RETRO_DEVICE_ID_JOYPAD_Y, BTN_Y, "Y"},
    {RETRO_DEVICE_ID_JOYPAD_L, BTN_L1, "L1"},
    {RETRO_DEVICE_ID_JOYPAD_R, BTN_R1, "R1"},
    {RETRO_DEVICE_ID_JOYPAD_SELECT, BTN_SELECT, "Select"},
    {RETRO_DEVICE_ID_JOYPAD_START, BTN_START, "Start"},
};

// Everything one loaded copy of the library holds: the libretro interface is
// a set of free functions, so its state lives in this one object.
struct Retro {
    retro_environment_t env = nullptr;
    retro_video_refresh_t video = nullptr;
    retro_input_poll_t poll = nullptr;
    retro_input_state_t input = nullptr;
    retro_audio_sample_batch_t audio_batch = nullptr;
    retro_log_printf_t log = nullptr;
    bool can_dupe = false;
    bool xrgb = true;  // else RGB565

    std::unique_ptr<Core> core;
    bool ended = false;
    bool grid = false;
    // Guest time at the end of the last frame: frames follow each other at
    // exactly kFrameNs, whatever the guest clock overshot inside one.
    uint64_t frame_ns = 0;
    size_t state_size = 0;
    std::string program;  // absolute path of the loaded .tvx
    std::string log_line, console_line;  // text up to its next new line

    std::shared_ptr<const Frame> shown;  // the frame last sent
    bool shown_grid = false;
    unsigned out_w = 0, out_h = 0;  // the geometry last declared
    std::vector<uint32_t> xrgb_pixels;
    std::vector<uint16_t> rgb565_pixels;
};

Retro g;

void logf(retro_log_level level, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void logf(retro_log_level level, const char* fmt, ...) {
    char line[1024];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(line, sizeof line, fmt, ap);
    va_end(ap);
    if (g.log)
        g.log(level, "[tvm2] %s", line);
    else
        std::fprintf(stderr, "[tvm2] %s", line);
}

// The core's log and the guest's console text go to the front-end's log,
// one line per call.
void log_text(retro_log_level level, std::string& pending, std::string_view text) {
    pending.append(text);
    size_t start = 0;
    for (size_t nl; (nl = pending.find('\n', start)) != std::string::npos; start = nl + 1)
        logf(level, "%.*s\n", static_cast<int>(nl - start), pending.data() + start);
    pending.erase(0, start);
    if (pending.size() > 4096) {
        logf(level, "%s\n", pending.c_str());
        pending.clear();
    }
}

bool grid_option() {
    retro_variable var{kGridKey, nullptr};
    return g.env && g.env(RETRO_ENVIRONMENT_GET_VARIABLE, &var) && var.value && std::strcmp(var.value, "enabled") == 0;
}

// The grid look applies to monochrome screens small enough to enlarge.
bool grid_applies(const Frame& f) {
    return g.grid && f.graph_mode == 1 && f.width <= kGridMaxSide && f.height <= kGridMaxSide;
}

void output_size(const Frame& f, unsigned* w, unsigned* h) {
    const int k = grid_applies(f) ? kGridFactor : 1;
    *w = static_cast<unsigned>(std::clamp(f.width, 1, kFrameStride) * k);
    *h = static_cast<unsigned>(std::clamp(f.height, 1, 240) * k);
}

// Converts the frame into the pixel buffer of the chosen format.
void convert(const Frame& f, unsigned w, unsigned h) {
    const size_t n = size_t{w} * h;
    if (grid_applies(f)) {
        g.rgb565_pixels.assign(n, 0);
        Surface16 s{reinterpret_cast<uint8_t*>(g.rgb565_pixels.data()), static_cast<int>(w), static_cast<int>(h),
                    static_cast<int>(w * 2)};
        ScaleX_grid(f, s, kGridFactor);
        if (g.xrgb) {
            g.xrgb_pixels.resize(n);
            rgb565_to_xrgb8888(g.rgb565_pixels.data(), n, g.xrgb_pixels.data());
        }
        return;
    }
    if (g.xrgb) {
        g.xrgb_pixels.resize(n);
        frame_to_xrgb8888(f, g.xrgb_pixels.data());
        return;
    }
    g.rgb565_pixels.resize(n);
    for (unsigned y = 0; y < h; ++y)
        for (unsigned x = 0; x < w; ++x) g.rgb565_pixels[y * w + x] = f.pal[f.pixels[y * kFrameStride + x]];
}

// Sends the latest frame, or a dupe when it is the one already sent.
void present() {
    std::shared_ptr<const Frame> f = core_frame(*g.core);
    if (!f) f = core_present_now(*g.core);
    unsigned w = 0, h = 0;
    output_size(*f, &w, &h);
    if (f == g.shown && g.grid == g.shown_grid && w == g.out_w && h == g.out_h && g.can_dupe) {
        g.video(nullptr, w, h, 0);
        return;
    }
    if (w != g.out_w || h != g.out_h) {
        retro_game_geometry geo{w, h, kMaxSide, kMaxSide, static_cast<float>(w) / static_cast<float>(h)};
        g.env(RETRO_ENVIRONMENT_SET_GEOMETRY, &geo);
        g.out_w = w;
        g.out_h = h;
    }
    convert(*f, w, h);
    if (g.xrgb)
        g.video(g.xrgb_pixels.data(), w, h, w * sizeof(uint32_t));
    else
        g.video(g.rgb565_pixels.data(), w, h, w * sizeof(uint16_t));
    g.shown = std::move(f);
    g.shown_grid = g.grid;
}

void finish_run(int32_t code) {
    g.ended = true;
    logf(RETRO_LOG_INFO, "the program ended with exit code %d\n", static_cast<int>(code));
    core_close_files(*g.core);
    g.env(RETRO_ENVIRONMENT_SHUTDOWN, nullptr);
}

// The root of the guest file system, found as tvm2 finds it but from the
// program's folder upwards: the nearest folder that holds a TovixOS folder.
// Without one the program's folder stands in.
fs::path guest_fs_root(const fs::path& program) {
    std::error_code ec;
    for (fs::path p = program.parent_path();; p = p.parent_path()) {
        if (fs::is_directory(p / "TovixOS", ec)) return p;
        if (p == p.root_path() || p.empty()) break;
    }
    return program.parent_path();
}

// Loads with the guest file system's root as the current directory, as tvm2
// runs (the machine reads TovixOS/System/Config.ini from there), and puts the
// front-end's current directory back afterwards. The guest's own root is the
// program's folder, so a program finds the files beside it.
std::string load_program(Core& core, const fs::path& program) {
    const fs::path root = guest_fs_root(program);
    logf(RETRO_LOG_INFO, "root = %s\n", root.c_str());
    const int here = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (here < 0) return std::string("cannot open the current directory: ") + std::strerror(errno);
    std::string err;
    if (::chdir(root.c_str()) != 0) {
        err = root.string() + ": " + std::strerror(errno);
    } else {
        LoadOptions opts;
        opts.program = program.string();
        opts.virtual_clock = true;
        opts.single_program = true;
        opts.grid = g.grid;
        err = core_load(core, opts);
    }
    if (::fchdir(here) != 0) logf(RETRO_LOG_WARN, "cannot go back to the previous directory\n");
    ::close(here);
    return err;
}

}  // namespace

extern "C" {

RETRO_API unsigned retro_api_version(void) { return RETRO_API_VERSION; }

RETRO_API void retro_set_environment(retro_environment_t cb) {
    g.env = cb;
    static const retro_variable vars[] = {
        {kGridKey, "LCD grid (monochrome screens); disabled|enabled"},
        {nullptr, nullptr},
    };
    cb(RETRO_ENVIRONMENT_SET_VARIABLES, const_cast<retro_variable*>(vars));
    bool no_game = false;
    cb(RETRO_ENVIRONMENT_SET_SUPPORT_NO_GAME, &no_game);
    retro_log_callback log{};
    g.log = cb(RETRO_ENVIRONMENT_GET_LOG_INTERFACE, &log) ? log.log : nullptr;
}

RETRO_API void retro_set_video_refresh(retro_video_refresh_t cb) { g.video = cb; }
RETRO_API void retro_set_audio_sample(retro_audio_sample_t) {}
RETRO_API void retro_set_audio_sample_batch(retro_audio_sample_batch_t cb) { g.audio_batch = cb; }
RETRO_API void retro_set_input_poll(retro_input_poll_t cb) { g.poll = cb; }
RETRO_API void retro_set_input_state(retro_input_state_t cb) { g.input = cb; }

RETRO_API void retro_init(void) {}

RETRO_API void retro_deinit(void) {
    g.core.reset();
    g.shown.reset();
}

RETRO_API void retro_get_system_info(retro_system_info* info) {
    *info = {};
    info->library_name = "tvm2";
    info->library_version = "1.0";
    info->valid_extensions = "tvx";
    info->need_fullpath = true;
    info->block_extract = false;
}

RETRO_API void retro_get_system_av_info(retro_system_av_info* info) {
    *info = {};
    unsigned w = 320, h = 240;
    if (g.core && g.core->loaded()) {
        std::shared_ptr<const Frame> f = core_frame(*g.core);
        if (!f) f = core_present_now(*g.core);
        output_size(*f, &w, &h);
    }
    info->geometry = {w, h, kMaxSide, kMaxSide, static_cast<float>(w) / static_cast<float>(h)};
    info->timing.fps = 60.0;
    info->timing.sample_rate = 44100.0;
    g.out_w = w;
    g.out_h = h;
}

RETRO_API void retro_set_controller_port_device(unsigned, unsigned) {}

RETRO_API void retro_reset(void) {
    if (!g.core || !g.core->loaded()) return;
    core_close_files(*g.core);
    auto core = std::make_unique<Core>();
    core->sinks = g.core->sinks;
    if (const std::string err = load_program(*core, g.program); !err.empty()) {
        logf(RETRO_LOG_ERROR, "reset: %s\n", err.c_str());
        return;
    }
    g.core = std::move(core);
    g.ended = false;
    g.frame_ns = 0;
    g.shown.reset();
}

RETRO_API bool retro_load_game(const retro_game_info* game) {
    if (!game || !game->path) return false;
    static const retro_input_descriptor descriptors[] = {
        {0, RETRO_DEVICE_JOYPAD, 0, kPad[0].id, kPad[0].name},   {0, RETRO_DEVICE_JOYPAD, 0, kPad[1].id, kPad[1].name},
        {0, RETRO_DEVICE_JOYPAD, 0, kPad[2].id, kPad[2].name},   {0, RETRO_DEVICE_JOYPAD, 0, kPad[3].id, kPad[3].name},
        {0, RETRO_DEVICE_JOYPAD, 0, kPad[4].id, kPad[4].name},   {0, RETRO_DEVICE_JOYPAD, 0, kPad[5].id, kPad[5].name},
        {0, RETRO_DEVICE_JOYPAD, 0, kPad[6].id, kPad[6].name},   {0, RETRO_DEVICE_JOYPAD, 0, kPad[7].id, kPad[7].name},
        {0, RETRO_DEVICE_JOYPAD, 0, kPad[8].id, kPad[8].name},   {0, RETRO_DEVICE_JOYPAD, 0, kPad[9].id, kPad[9].name},
        {0, RETRO_DEVICE_JOYPAD, 0, kPad[10].id, kPad[10].name}, {0, RETRO_DEVICE_JOYPAD, 0, kPad[11].id, kPad[11].name},
        {0, 0, 0, 0, nullptr},
    };
    g.env(RETRO_ENVIRONMENT_SET_INPUT_DESCRIPTORS, const_cast<retro_input_descriptor*>(descriptors));
    retro_pixel_format fmt = RETRO_PIXEL_FORMAT_XRGB8888;
    g.xrgb = g.env(RETRO_ENVIRONMENT_SET_PIXEL_FORMAT, &fmt);
    if (!g.xrgb) {
        fmt = RETRO_PIXEL_FORMAT_RGB565;
        if (!g.env(RETRO_ENVIRONMENT_SET_PIXEL_FORMAT, &fmt)) return false;
    }
    bool dupe = false;
    g.can_dupe = g.env(RETRO_ENVIRONMENT_GET_CAN_DUPE, &dupe) && dupe;
    g.grid = grid_option();

    std::error_code ec;
    const fs::path program = fs::absolute(game->path, ec).lexically_normal();
    auto core = std::make_unique<Core>();
    g.log_line.clear();
    g.console_line.clear();
    core->sinks.log = [](std::string_view text) { log_text(RETRO_LOG_DEBUG, g.log_line, text); };
    core->sinks.console = [](std::string_view text) { log_text(RETRO_LOG_INFO, g.console_line, text); };
    if (const std::string err = ec ? ec.message() : load_program(*core, program); !err.empty()) {
        logf(RETRO_LOG_ERROR, "%s\n", err.c_str());
        return false;
    }
    g.core = std::move(core);
    g.program = program.string();
    g.ended = false;
    g.frame_ns = 0;
    g.shown.reset();
    g.out_w = g.out_h = 0;
    g.state_size = kStateFrame + core_save_state(*g.core).size() + kStateSlack;
    return true;
}

RETRO_API bool retro_load_game_special(unsigned, const retro_game_info*, size_t) { return false; }

RETRO_API void retro_unload_game(void) {
    if (!g.core) return;
    // What the guest wrote reaches the disk before the front-end goes on.
    if (g.core->loaded()) core_close_files(*g.core);
    g.core.reset();
    g.shown.reset();
    g.state_size = 0;
}

RETRO_API void retro_run(void) {
    if (!g.core || !g.core->loaded()) return;
    bool updated = false;
    if (g.env(RETRO_ENVIRONMENT_GET_VARIABLE_UPDATE, &updated) && updated) {
        g.grid = grid_option();
        core_set_grid(*g.core, g.grid);
    }
    g.poll();
    uint16_t word = 0;
    for (const Pad& p : kPad)
        if (g.input(0, RETRO_DEVICE_JOYPAD, 0, p.id)) word |= p.button;

    if (!g.ended) {
        Core& core = *g.core;
        core_set_buttons(core, word);
        const uint64_t target = g.frame_ns + kFrameNs;
        g.frame_ns = target;
        const RunResult r = core_run_frame(core, target, kStepsPerFrame);
        if (r.status == RunStatus::Ended) finish_run(r.exit_code);
    }
    present();
}

RETRO_API size_t retro_serialize_size(void) { return g.core && g.core->loaded() ? g.state_size : 0; }

RETRO_API bool retro_serialize(void* data, size_t size) {
    if (!g.core || !g.core->loaded() || !data) return false;
    const std::vector<uint8_t> state = core_save_state(*g.core);
    if (state.size() > size || size - state.size() < kStateFrame) {
        logf(RETRO_LOG_WARN, "save state of %zu bytes does not fit in %zu\n", state.size(), size);
        return false;
    }
    auto* out = static_cast<uint8_t*>(data);
    std::memcpy(out, kStateTag, sizeof kStateTag);
    const uint32_t n = static_cast<uint32_t>(state.size());
    for (int k = 0; k < 4; ++k) out[4 + k] = static_cast<uint8_t>(n >> (8 * k));
    for (int k = 0; k < 8; ++k) out[8 + k] = static_cast<uint8_t>(g.frame_ns >> (8 * k));
    std::memcpy(out + kStateFrame, state.data(), state.size());
    std::memset(out + kStateFrame + state.size(), 0, size - kStateFrame - state.size());
    return true;
}

RETRO_API bool retro_unserialize(const void* data, size_t size) {
    if (!g.core || !g.core->loaded() || !data || size < kStateFrame) return false;
    const auto* in = static_cast<const uint8_t*>(data);
    if (std::memcmp(in, kStateTag, sizeof kStateTag) != 0) return false;
    uint32_t n = 0;
    for (int k = 0; k < 4; ++k) n |= uint32_t{in[4 + k]} << (8 * k);
    uint64_t frame_ns = 0;
    for (int k = 0; k < 8; ++k) frame_ns |= uint64_t{in[8 + k]} << (8 * k);
    if (n > size - kStateFrame) return false;
    if (const std::string err = core_load_state(*g.core, {in + kStateFrame, n}); !err.empty()) {
        logf(RETRO_LOG_WARN, "save state refused: %s\n", err.c_str());
        return false;
    }
    core_set_grid(*g.core, g.grid);
    g.frame_ns = frame_ns;
    g.ended = core_ended(*g.core);
    g.shown.reset();
    return true;
}

RETRO_API void retro_cheat_reset(void) {}
RETRO_API void retro_cheat_set(unsigned, bool, const char*) {}
RETRO_API unsigned retro_get_region(void) { return RETRO_REGION_NTSC; }
RETRO_API void* retro_get_memory_data(unsigned) { return nullptr; }
RETRO_API size_t retro_get_memory_size(unsigned) { return 0; }

}  // extern "C"
