// A small libretro front-end for the tests: loads the built core with dlopen,
// plays programs frame by frame with scripted RetroPad buttons, and compares
// what the core shows with tvxrun's screenshots of the same program and
// input at the same guest time.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <libretro.h>
#include <sys/wait.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "tools/run/screenshot.h"

namespace {

// One button change: at the start of frame `frame` (a multiple of 3, so that
// it falls on a whole millisecond: frame * 50 / 3 ms), the RetroPad button
// `id` goes down or up.
struct PadEvent {
    int frame;
    unsigned id;
    bool down;
};

// tvxrun's names of the RetroPad buttons (RETRO_DEVICE_ID_JOYPAD_B is 0 ... R is 11).
const char* const kKeyNames[] = {"B", "Y", "SELECT", "START", "UP", "DOWN", "LEFT", "RIGHT", "A", "X", "L1", "R1"};

// What the core hands back through the callbacks.
struct Host {
    std::map<std::string, std::string> options;
    uint32_t pad = 0;  // bit per RETRO_DEVICE_ID_JOYPAD_*
    retro_pixel_format format = RETRO_PIXEL_FORMAT_0RGB1555;
    retro_game_geometry geometry{};
    std::vector<uint32_t> frame;  // the last frame sent, 0x00RRGGBB
    unsigned w = 0, h = 0;
    int frames = 0, dupes = 0;
    bool shutdown = false;
    std::string log;
};
Host host;

void log_cb(retro_log_level, const char* fmt, ...) {
    char line[2048];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(line, sizeof line, fmt, ap);
    va_end(ap);
    host.log += line;
}

bool environment(unsigned cmd, void* data) {
    switch (cmd) {
    case RETRO_ENVIRONMENT_GET_LOG_INTERFACE:
        static_cast<retro_log_callback*>(data)->log = log_cb;
        return true;
    case RETRO_ENVIRONMENT_SET_PIXEL_FORMAT:
        host.format = *static_cast<const retro_pixel_format*>(data);
        return true;
    case RETRO_ENVIRONMENT_GET_CAN_DUPE:
        *static_cast<bool*>(data) = true;
        return true;
    case RETRO_ENVIRONMENT_SET_GEOMETRY:
        host.geometry = *static_cast<const retro_game_geometry*>(data);
        return true;
    case RETRO_ENVIRONMENT_GET_VARIABLE: {
        auto* var = static_cast<retro_variable*>(data);
        const auto it = host.options.find(var->key);
        var->value = it == host.options.end() ? nullptr : it->second.c_str();
        return var->value != nullptr;
    }
    case RETRO_ENVIRONMENT_SHUTDOWN:
        host.shutdown = true;
        return true;
    case RETRO_ENVIRONMENT_SET_VARIABLES:
    case RETRO_ENVIRONMENT_SET_INPUT_DESCRIPTORS:
    case RETRO_ENVIRONMENT_SET_SUPPORT_NO_GAME:
        return true;
    default:
        return false;
    }
}

void video(const void* data, unsigned w, unsigned h, size_t pitch) {
    if (!data) {
        ++host.dupes;
        return;
    }
    ++host.frames;
    EXPECT_EQ(host.format, RETRO_PIXEL_FORMAT_XRGB8888);
    EXPECT_EQ(w, host.geometry.base_width);
    EXPECT_EQ(h, host.geometry.base_height);
    host.w = w;
    host.h = h;
    host.frame.resize(size_t{w} * h);
    for (unsigned y = 0; y < h; ++y)
        std::memcpy(&host.frame[size_t{y} * w], static_cast<const uint8_t*>(data) + y * pitch, w * 4);
}

void input_poll() {}
int16_t input_state(unsigned port, unsigned device, unsigned, unsigned id) {
    return port == 0 && device == RETRO_DEVICE_JOYPAD && (host.pad >> id & 1);
}
size_t audio_batch(const int16_t*, size_t frames) { return frames; }

// The core's entry points, looked up once.
#define TVM2_RETRO_FUNCTIONS(X)                                                                         \
    X(retro_set_environment) X(retro_set_video_refresh) X(retro_set_input_poll) X(retro_set_input_state) \
    X(retro_set_audio_sample_batch) X(retro_init) X(retro_deinit) X(retro_load_game)                     \
    X(retro_unload_game) X(retro_get_system_av_info) X(retro_run) X(retro_serialize_size)                \
    X(retro_serialize) X(retro_unserialize)
struct Api {
    void* lib = nullptr;
#define TVM2_DECLARE(name) decltype(&::name) name = nullptr;
    TVM2_RETRO_FUNCTIONS(TVM2_DECLARE)
#undef TVM2_DECLARE
};

Api open_core() {
    Api a;
    a.lib = dlopen(LIBRETRO_CORE, RTLD_NOW | RTLD_LOCAL);
    if (!a.lib) ADD_FAILURE() << dlerror();
#define TVM2_LOOK_UP(name) a.name = reinterpret_cast<decltype(a.name)>(a.lib ? dlsym(a.lib, #name) : nullptr);
    TVM2_RETRO_FUNCTIONS(TVM2_LOOK_UP)
#undef TVM2_LOOK_UP
    return a;
}

// Opens the core and loads the program; the core is closed when it goes.
class Session {
public:
    explicit Session(const std::string& program, const char* grid = "disabled") : api_(open_core()) {
        host = Host{};
        host.options["tvm2_lcd_grid"] = grid;
        if (!api_.retro_run) return;
        api_.retro_set_environment(environment);
        api_.retro_set_video_refresh(video);
        api_.retro_set_input_poll(input_poll);
        api_.retro_set_input_state(input_state);
        api_.retro_set_audio_sample_batch(audio_batch);
        api_.retro_init();
        const retro_game_info game{program.c_str(), nullptr, 0, nullptr};
        loaded_ = api_.retro_load_game(&game);
        if (!loaded_) return;
        retro_system_av_info av{};
        api_.retro_get_system_av_info(&av);
        host.geometry = av.geometry;
        EXPECT_EQ(av.timing.fps, 60.0);
    }
    ~Session() {
        if (loaded_) api_.retro_unload_game();
        if (api_.retro_deinit) api_.retro_deinit();
        if (api_.lib) dlclose(api_.lib);
    }
    bool loaded() const { return loaded_; }
    const Api& api() const { return api_; }

    // Runs frames up to (not including) `end`, applying the script's events
    // as their frames start.
    void run_until(int end, const std::vector<PadEvent>& script) {
        for (; frame_ < end; ++frame_) {
            for (const PadEvent& e : script)
                if (e.frame == frame_) host.pad = e.down ? host.pad | 1u << e.id : host.pad & ~(1u << e.id);
            api_.retro_run();
        }
    }
    void unload() {
        if (loaded_) api_.retro_unload_game();
        loaded_ = false;
    }
    // Back to an earlier frame number, after a state of that frame was loaded.
    void rewind_to(int frame) { frame_ = frame; }

private:
    Api api_;
    bool loaded_ = false;
    int frame_ = 0;
};

// tvxrun's key script for the events before frame `end`.
std::string key_script(const std::vector<PadEvent>& script, int end) {
    std::string keys;
    for (const PadEvent& e : script) {
        if (e.frame >= end) continue;
        EXPECT_EQ(e.frame % 3, 0) << "frame " << e.frame << " is not on a whole millisecond";
        if (!keys.empty()) keys += ',';
        keys += std::to_string(e.frame * 50 / 3);
        keys += ':';
        keys += kKeyNames[e.id];
        keys += e.down ? '+' : '-';
    }
    return keys;
}

// Runs tvxrun on the program with the virtual clock, the key script and a
// screenshot; returns its exit status.
int tvxrun_screenshot(const std::string& program, const std::string& keys, const std::string& png,
                      const std::string& size) {
    std::string cmd = "'" TVXRUN "' --clock virtual --root '";
    cmd.append(program, 0, program.rfind('/'));
    cmd.append("' --screenshot '").append(png).append("'");
    if (!keys.empty()) cmd.append(" --keys '").append(keys).append("'");
    if (!size.empty()) cmd.append(" --screenshot-size ").append(size);
    cmd.append(" '").append(program).append("' >/dev/null 2>&1");
    const int status = std::system(cmd.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void expect_same_as(const std::string& png, const std::string& what) {
    RgbImage want;
    std::string error;
    ASSERT_TRUE(read_png(png, &want, &error)) << error;
    RgbImage got;
    got.w = static_cast<int>(host.w);
    got.h = static_cast<int>(host.h);
    for (uint32_t p : host.frame) got.rgb.insert(got.rgb.end(), {uint8_t(p >> 16), uint8_t(p >> 8), uint8_t(p)});
    std::string difference;
    if (same_pixels(got, want, &difference)) return;
    ADD_FAILURE() << what << ": " << difference << " (the core's picture: " << png << ".core.png)";
    write_png(got, png + ".core.png", &error);
}

struct Play {
    const char* name;
    const char* program;  // under PROGRAMS
    const char* grid;     // the grid option's value
    std::vector<PadEvent> script;
    std::vector<int> checkpoints;  // frames at which the program waits for a key
    int end_frame;                 // by then the program has ended
    int exit_code;
    unsigned w, h;        // the core's picture size
    const char* size;     // tvxrun --screenshot-size for the same picture, or ""
};

void PrintTo(const Play& p, std::ostream* os) { *os << p.name; }

class Frames : public testing::TestWithParam<Play> {};

// At each checkpoint the program waits for a key that the shortened script
// never gives, so tvxrun stops there and its screenshot is the screen the
// core shows; the whole script ends the program.
TEST_P(Frames, MatchTvxrunAtTheSameGuestTime) {
    const Play& p = GetParam();
    const std::string program = std::string(PROGRAMS) + "/" + p.program;
    Session s(program, p.grid);
    ASSERT_TRUE(s.loaded()) << host.log;
    EXPECT_EQ(host.geometry.base_width, p.w);
    EXPECT_EQ(host.geometry.base_height, p.h);
    const std::string png = std::string(PROGRAMS) + "/" + p.name + ".png";
    for (int at : p.checkpoints) {
        s.run_until(at, p.script);
        ASSERT_EQ(tvxrun_screenshot(program, key_script(p.script, at), png, p.size), 123) << "frame " << at;
        expect_same_as(png, "frame " + std::to_string(at));
        EXPECT_FALSE(host.shutdown);
    }
    s.run_until(p.end_frame, p.script);
    EXPECT_TRUE(host.shutdown);
    EXPECT_NE(host.log.find("exit code " + std::to_string(p.exit_code) + "\n"), std::string::npos) << host.log;
    ASSERT_EQ(tvxrun_screenshot(program, key_script(p.script, p.end_frame), png, p.size), p.exit_code);
    expect_same_as(png, "the end");
    // A program that waits for keys is shown with dupes, not new pictures.
    EXPECT_GT(host.dupes, host.frames);
}

constexpr unsigned kUp = RETRO_DEVICE_ID_JOYPAD_UP, kDown = RETRO_DEVICE_ID_JOYPAD_DOWN,
                   kRight = RETRO_DEVICE_ID_JOYPAD_RIGHT, kA = RETRO_DEVICE_ID_JOYPAD_A,
                   kB = RETRO_DEVICE_ID_JOYPAD_B, kX = RETRO_DEVICE_ID_JOYPAD_X, kY = RETRO_DEVICE_ID_JOYPAD_Y,
                   kL = RETRO_DEVICE_ID_JOYPAD_L, kR = RETRO_DEVICE_ID_JOYPAD_R,
                   kSelect = RETRO_DEVICE_ID_JOYPAD_SELECT, kStart = RETRO_DEVICE_ID_JOYPAD_START;

// Tour: the bar's colours move with guest time, A starts demo.tvx as a
// nested program, B ends it.
const std::vector<PadEvent> kTour = {
    {18, kRight, true}, {24, kRight, false}, {36, kRight, true}, {42, kRight, false}, {54, kDown, true},
    {60, kDown, false}, {72, kA, true},      {78, kA, false},    {120, kB, true},     {126, kB, false},
};
// Pad: every button but START writes a line; START ends with the count.
const std::vector<PadEvent> kPadScript = {
    {30, kA, true},       {36, kA, false},       {45, kRight, true}, {48, kRight, false}, {60, kX, true},
    {63, kX, false},      {66, kY, true},        {72, kY, false},    {90, kL, true},      {93, kL, false},
    {99, kR, true},       {105, kR, false},      {111, kSelect, true}, {114, kSelect, false}, {120, kB, true},
    {123, kB, false},     {126, kUp, true},      {129, kUp, false},  {150, kStart, true}, {156, kStart, false},
};

INSTANTIATE_TEST_SUITE_P(
    Programs, Frames,
    testing::Values(Play{"pad", "pad.tvx", "disabled", kPadScript, {12, 51, 108}, 160, 9, 160, 80, ""},
                    Play{"tour", "tour.tvx", "disabled", kTour, {}, 140, 0, 320, 240, ""},
                    // With the grid: enlarged three times, as tvm2 shows it in a
                    // window three times the screen's size.
                    Play{"mono_grid", "mono.tvx", "enabled", {{30, kB, true}, {33, kB, false}}, {21}, 40, 5, 480, 240, "480x240"},
                    Play{"mono", "mono.tvx", "disabled", {{30, kY, true}, {33, kY, false}}, {21}, 40, 5, 160, 80, ""}),
    [](const testing::TestParamInfo<Play>& info) { return std::string(info.param.name); });

// A state saved mid-run and loaded again replays the same frames with the
// same input; damaged or cut states are refused and change nothing.
TEST(SaveStates, ReplaySameFramesAndRefuseBadBuffers) {
    Session s(std::string(PROGRAMS) + "/tour.tvx");
    ASSERT_TRUE(s.loaded()) << host.log;
    s.run_until(30, kTour);
    const size_t size = s.api().retro_serialize_size();
    std::vector<uint8_t> state(size);
    ASSERT_TRUE(s.api().retro_serialize(state.data(), size));
    EXPECT_EQ(s.api().retro_serialize_size(), size);

    std::vector<std::vector<uint32_t>> first;
    for (int f = 30; f < 100; ++f) {
        s.run_until(f + 1, kTour);
        first.push_back(host.frame);
    }
    ASSERT_NE(first.front(), first.back());  // the bar moved: a replay has something to match

    // The state proper ends at its last non-zero byte (zeros pad it).
    size_t used = size;
    while (used > 0 && state[used - 1] == 0) --used;
    std::vector<uint8_t> flipped = state;
    flipped[used / 2] ^= 0x40;
    std::vector<uint8_t> untagged = state;
    untagged[0] = 'X';
    // Empty, cut inside the frame, cut short, one byte flipped, not a state.
    const std::pair<const std::vector<uint8_t>*, size_t> bad[] = {
        {&state, 0}, {&state, 5}, {&state, used - 1}, {&flipped, size}, {&untagged, size}};
    for (const auto& [bytes, n] : bad) EXPECT_FALSE(s.api().retro_unserialize(bytes->data(), n)) << n;
    // The refused loads left the machine as it was: it plays on.
    s.run_until(101, kTour);
    EXPECT_FALSE(host.shutdown);

    ASSERT_TRUE(s.api().retro_unserialize(state.data(), size));
    s.rewind_to(30);
    for (int f = 30; f < 100; ++f) {
        s.run_until(f + 1, kTour);
        ASSERT_EQ(host.frame, first[f - 30]) << "frame " << f;
    }
}

// A file the program left open is on the disk once the content is closed.
TEST(Load, UnloadWritesOpenFiles) {
    const std::string note = std::string(PROGRAMS) + "/note.txt";
    std::remove(note.c_str());
    Session s(std::string(PROGRAMS) + "/note.tvx");
    ASSERT_TRUE(s.loaded()) << host.log;
    s.run_until(5, {});
    s.unload();
    std::ifstream f(note, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(f), {}), "kept");
}

TEST(Load, RefusesWhatIsNotAProgram) {
    for (const std::string& path : {std::string("/nonexistent/x.tvx"), std::string(LIBRETRO_CORE)}) {
        Session s(path);
        EXPECT_FALSE(s.loaded()) << path;
        EXPECT_FALSE(host.log.empty()) << path;
    }
}

}  // namespace
