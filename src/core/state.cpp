// Save states: the whole machine, its program images and the host's pending
// button changes as a versioned binary.
//
// Layout (all numbers little-endian, written field by field):
//   "TVM2STAT", u32 format version, u64 payload size, u32 CRC-32 of the
//   payload, then the payload: sections of a 4-byte tag, a u32 size and
//   their fields, in a fixed order. Strings are a u32 length and their
//   bytes; guest RAM and the screen planes are runs of one byte value and
//   literal bytes.
//
// Loading reads everything into a fresh machine and checks every size,
// count, index and path before the core is touched; the open files are
// opened again there, and only then does the new machine replace the old.
#include <array>
#include <cstring>

#include "core/core_internal.h"
#include "core/state.h"
#include "fs/path.h"
#include "vm/loader.h"
#include "base/tvx_header.h"

namespace {

constexpr char kMagic[8] = {'T', 'V', 'M', '2', 'S', 'T', 'A', 'T'};
constexpr uint32_t kFormatVersion = 2;
constexpr size_t kHeaderSize = sizeof kMagic + 4 + 8 + 4;
// Guest time stays far below where adding a tick or a delay wraps around
// (2^62 ns is some 146 years).
constexpr uint64_t kMaxGuestNs = uint64_t{1} << 62;
// More pending button changes than a host could make between two runs.
constexpr uint32_t kMaxQueued = 1 << 16;

constexpr std::array<uint32_t, 256> make_crc_table() {
    std::array<uint32_t, 256> t{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        t[i] = c;
    }
    return t;
}
constexpr std::array<uint32_t, 256> kCrcTable = make_crc_table();

uint32_t crc32(std::span<const uint8_t> data) {
    uint32_t c = 0xFFFFFFFFu;
    for (const uint8_t b : data) c = kCrcTable[(c ^ b) & 0xFF] ^ (c >> 8);
    return c ^ 0xFFFFFFFFu;
}

class Writer {
public:
    std::vector<uint8_t> out;

    void u8(uint8_t v) { out.push_back(v); }
    void u16(uint16_t v) { le(v, 2); }
    void u32(uint32_t v) { le(v, 4); }
    void u64(uint64_t v) { le(v, 8); }
    void i32(int32_t v) { u32(static_cast<uint32_t>(v)); }
    void i64(int64_t v) { u64(static_cast<uint64_t>(v)); }
    void flag(bool v) { u8(v ? 1 : 0); }
    void bytes(const uint8_t* p, size_t n) { out.insert(out.end(), p, p + n); }
    void str(std::string_view s) {
        u32(static_cast<uint32_t>(s.size()));
        bytes(reinterpret_cast<const uint8_t*>(s.data()), s.size());
    }
    void cstr(const char* s, size_t cap) { str(std::string_view(s, strnlen(s, cap))); }
    template <size_t N>
    void u32s(const uint32_t (&a)[N]) {
        for (const uint32_t v : a) u32(v);
    }

    // A section: its tag, then its size once its fields are written.
    size_t begin(const char (&tag)[5]) {
        bytes(reinterpret_cast<const uint8_t*>(tag), 4);
        u32(0);
        return out.size();
    }
    void end(size_t start) {
        const uint32_t n = static_cast<uint32_t>(out.size() - start);
        for (int k = 0; k < 4; ++k) out[start - 4 + k] = static_cast<uint8_t>(n >> (8 * k));
    }

    // Runs of (count, byte repeated count times, literal count, literal
    // bytes); a literal stretch ends where 16 equal bytes or more begin.
    void block(const uint8_t* p, size_t n) {
        auto run_at = [&](size_t i) {
            size_t k = i;
            while (k < n && p[k] == p[i]) ++k;
            return k - i;
        };
        size_t i = 0;
        while (i < n) {
            const size_t run = run_at(i);
            size_t lit = i + run;
            while (lit < n) {
                const size_t next = run_at(lit);
                if (next >= 16) break;
                lit += next;
            }
            u32(static_cast<uint32_t>(run));
            u8(p[i]);
            u32(static_cast<uint32_t>(lit - i - run));
            bytes(p + i + run, lit - i - run);
            i = lit;
        }
    }

private:
    void le(uint64_t v, int n) {
        for (int k = 0; k < n; ++k) out.push_back(static_cast<uint8_t>(v >> (8 * k)));
    }
};

// Reads fields from a span; the first problem is kept in *error and every
// later read returns zeros, so a parse runs to its end and is checked once.
class Reader {
public:
    Reader(std::span<const uint8_t> d, std::string* error) : d_(d), error_(error) {}

    bool ok() const { return error_->empty(); }
    void fail(const std::string& why) {
        if (error_->empty()) *error_ = why;
    }

    uint8_t u8() { return static_cast<uint8_t>(le(1)); }
    uint16_t u16() { return static_cast<uint16_t>(le(2)); }
    uint32_t u32() { return static_cast<uint32_t>(le(4)); }
    uint64_t u64() { return le(8); }
    int32_t i32() { return static_cast<int32_t>(u32()); }
    int64_t i64() { return static_cast<int64_t>(u64()); }
    bool flag() {
        const uint8_t v = u8();
        if (v > 1) fail("a yes/no field holds " + std::to_string(v));
        return v == 1;
    }
    // A value that must lie in [lo, hi].
    int64_t ranged(int64_t v, int64_t lo, int64_t hi, const char* what) {
        if (v < lo || v > hi) {
            fail(std::string(what) + " out of range (" + std::to_string(v) + ")");
            return lo;
        }
        return v;
    }
    // An unsigned value that must stay below hi.
    uint64_t below(uint64_t v, uint64_t hi, const char* what) {
        if (v < hi) return v;
        fail(std::string(what) + " out of range (" + std::to_string(v) + ")");
        return 0;
    }
    void bytes(uint8_t* p, size_t n) {
        if (const uint8_t* s = take(n))
            std::memcpy(p, s, n);
        else
            std::memset(p, 0, n);
    }
    std::string str(size_t max, const char* what) {
        const uint32_t n = u32();
        if (n > max) {
            fail(std::string(what) + " too long (" + std::to_string(n) + " bytes)");
            return {};
        }
        const uint8_t* s = take(n);
        return s ? std::string(reinterpret_cast<const char*>(s), n) : std::string();
    }
    // Into a zero-terminated buffer of cap bytes; no zero byte inside.
    void cstr(char* out, size_t cap, const char* what) {
        const std::string s = str(cap - 1, what);
        if (s.find('\0') != std::string::npos) fail(std::string(what) + " holds a zero byte");
        std::memset(out, 0, cap);
        std::memcpy(out, s.data(), std::min(s.size(), cap - 1));
    }
    template <size_t N>
    void u32s(uint32_t (&a)[N]) {
        for (uint32_t& v : a) v = u32();
    }

    Reader section(const char (&tag)[5]) {
        const uint8_t* t = take(4);
        if (t && std::memcmp(t, tag, 4) != 0) fail(std::string("section ") + tag + " missing");
        const uint32_t n = u32();
        const uint8_t* body = take(n);
        if (!body) fail(std::string("section ") + tag + " cut short");
        return Reader(body ? std::span<const uint8_t>(body, n) : std::span<const uint8_t>(), error_);
    }
    // Every byte of a section must have been read.
    void finish(const char* what) {
        if (ok() && at_ != d_.size()) fail(std::string("section ") + what + " has " + std::to_string(d_.size() - at_) + " bytes too many");
    }

    void block(uint8_t* p, size_t n, const char* what) {
        size_t filled = 0;
        while (ok() && filled < n) {
            const uint32_t run = u32();
            const uint8_t value = u8();
            const uint32_t lits = u32();
            if (run + static_cast<uint64_t>(lits) > n - filled || run + lits == 0) {
                fail(std::string(what) + ": bad run");
                break;
            }
            std::memset(p + filled, value, run);
            bytes(p + filled + run, lits);
            filled += run + lits;
        }
        if (!ok()) std::memset(p, 0, n);
    }

private:
    const uint8_t* take(size_t n) {
        if (!ok()) return nullptr;
        if (n > d_.size() - at_) {
            fail("the state is cut short");
            return nullptr;
        }
        const uint8_t* p = d_.data() + at_;
        at_ += n;
        return p;
    }
    uint64_t le(int n) {
        const uint8_t* p = take(static_cast<size_t>(n));
        uint64_t v = 0;
        if (p)
            for (int k = 0; k < n; ++k) v |= static_cast<uint64_t>(p[k]) << (8 * k);
        return v;
    }

    std::span<const uint8_t> d_;
    size_t at_ = 0;
    std::string* error_;
};

// ---- images ----

void put_image(Writer& w, const TvxImage* img) {
    w.flag(img != nullptr);
    if (img) {
        w.u32(img->file_size);
        w.bytes(img->bytes.data(), img->file_size);
    }
}

std::unique_ptr<TvxImage> get_image(Reader& r, const char* what) {
    if (!r.flag()) return nullptr;
    const uint32_t n = static_cast<uint32_t>(r.ranged(r.u32(), tvx_header::kSize, 0xFFFFFF, what));
    std::vector<uint8_t> file(n);
    r.bytes(file.data(), n);
    if (!r.ok()) return nullptr;
    if (!tvx_header::is_header(file.data(), n)) {
        r.fail(std::string(what) + " is not a Tovix program");
        return nullptr;
    }
    return image_from_bytes(file.data(), n);
}

bool valid_ram_bits(uint32_t b) { return b == 16 || b == 24 || b == 32; }

// The program counter stays where a fetch reads inside the image buffer.
bool valid_pc(uint32_t pc, const TvxImage& img) { return pc < img.end() + kImagePad; }

// ---- paths ----

// A guest path as the machine keeps it: normalised, no leading "/".
bool normalised(const std::string& p) {
    Files none;
    char out[kPathMax];
    return my_pathformat(none, "/" + p, out) == 0 && p == out;
}

// The root a task level's files and paths are resolved against.
const char* level_root(const Machine& m, int lev) {
    return lev == m.task_lev ? m.RootPath : m.task[lev].dirs.RootPath;
}

// Host path (GB2312) root + rest, where rest must be a normalised guest path.
bool under_root(const std::string& path, const char* root) {
    const size_t n = std::strlen(root);
    return path.compare(0, n, root) == 0 && normalised(path.substr(n));
}

// ---- the sections ----

void put_cpu(Writer& w, const Machine& m) {
    const size_t s = w.begin("CPU ");
    w.u32(m.lPC);
    w.u32(m.lRam);
    w.u32(m.RamBits);
    w.u8(m.eval_top);
    for (const uint32_t v : {m.a1, m.a3, m.result, m.func_x, m.TextBuffer, m.eval_stack, m.string_stack,
                             m.string_ptr, m.local_bp, m.local_sp})
        w.u32(v);
    w.u8(m.secret);
    w.i64(m.d_line);
    for (const uint32_t v : {m.ramuses, m.ramusee, m.ramarm}) w.u32(v);
    w.i64(m.seed);
    w.u32(m.cur_funcid);
    w.u32(m.func_top);
    w.u32s(m.func_stack);
    for (const int32_t v : {m.delay, m.wait_key}) w.i32(v);
    w.u64(m.line_mode);
    for (const int32_t v : {m.have_pen, m.have_keypad}) w.i32(v);
    w.u8(m.force_exit_tvx);
    w.bytes(m.negative_tbl, sizeof m.negative_tbl);
    w.u8(static_cast<uint8_t>(m.wait.kind));
    w.u8(static_cast<uint8_t>(m.wait.then));
    w.u32(m.wait.exit_code);
    w.u64(m.wait.until_ns);
    w.str(m.wait.child);
    w.flag(m.wait_retry);
    w.end(s);
}

void get_cpu(Reader& in, Machine& m) {
    Reader r = in.section("CPU ");
    m.lPC = r.u32();
    m.lRam = static_cast<uint32_t>(r.ranged(r.u32(), 0, kRamMask, "RAM base"));
    const uint32_t bits = r.u32();
    if (!valid_ram_bits(bits)) r.fail("address width " + std::to_string(bits));
    set_ram_bits(m, valid_ram_bits(bits) ? bits : 16);
    m.eval_top = r.u8();
    for (uint32_t* v : {&m.a1, &m.a3, &m.result, &m.func_x, &m.TextBuffer, &m.eval_stack, &m.string_stack,
                        &m.string_ptr, &m.local_bp, &m.local_sp})
        *v = r.u32();
    m.secret = r.u8();
    m.d_line = r.i64();
    for (uint32_t* v : {&m.ramuses, &m.ramusee, &m.ramarm}) *v = r.u32();
    m.seed = r.i64();
    m.cur_funcid = r.u32();
    m.func_top = r.u32();
    r.u32s(m.func_stack);
    for (int32_t* v : {&m.delay, &m.wait_key}) *v = r.i32();
    m.line_mode = r.u64();
    for (int32_t* v : {&m.have_pen, &m.have_keypad}) *v = r.i32();
    m.force_exit_tvx = r.u8();
    r.bytes(m.negative_tbl, sizeof m.negative_tbl);
    m.wait.kind = static_cast<WaitKind>(r.ranged(r.u8(), 0, static_cast<int>(WaitKind::Time), "wait kind"));
    m.wait.then = static_cast<AfterKeysUp>(r.ranged(r.u8(), 0, static_cast<int>(AfterKeysUp::Exec), "wait follow-up"));
    m.wait.exit_code = r.u32();
    m.wait.until_ns = r.below(r.u64(), 2 * kMaxGuestNs, "wake-up time");
    m.wait.child = r.str(kPathMax - 1, "program to start");
    m.wait_retry = r.flag();
    r.finish("CPU");
}

void put_program(Writer& w, const Machine& m) {
    const size_t s = w.begin("PROG");
    w.str(m.tvxFilePath);
    w.str(m.tvxProgArgs);
    w.str(m.VirtualFullName);
    w.i32(m.single_program_mode);
    w.i32(m.exit_code);
    w.flag(m.exited);
    w.end(s);
}

void get_program(Reader& in, Machine& m) {
    Reader r = in.section("PROG");
    m.tvxFilePath = r.str(4096, "program path");
    m.tvxProgArgs = r.str(4096, "program arguments");
    m.VirtualFullName = r.str(4096, "program name");
    m.single_program_mode = static_cast<int32_t>(r.ranged(r.i32(), 0, 1, "single-program mode"));
    m.exit_code = r.i32();
    m.exited = r.flag();
    r.finish("PROG");
}

void put_ram(Writer& w, const Machine& m) {
    const size_t s = w.begin("RAM ");
    w.block(m.tovix_ram, kRamSize);
    w.end(s);
}

void get_ram(Reader& in, Machine& m) {
    Reader r = in.section("RAM ");
    r.block(m.tovix_ram, kRamSize, "guest RAM");
    m.ram_pristine = false;  // a nested program started later must clear its data
    r.finish("RAM");
}

void put_tasks(Writer& w, const Machine& m) {
    const size_t s = w.begin("TASK");
    w.i32(m.task_lev);
    put_image(w, m.pTOVI.get());
    for (const TaskRecord& t : m.task) {
        w.u32(t.mode);
        w.cstr(t.dirs.CD, sizeof t.dirs.CD);
        w.cstr(t.dirs.RootPath, sizeof t.dirs.RootPath);
        w.u32(t.regs.RamBits);
        for (const uint16_t v : {t.screen.graph_mode, t.screen.bgcolor, t.screen.fgcolor}) w.u16(v);
        w.bytes(t.screen.palette, sizeof t.screen.palette);
        w.bytes(t.key_code, sizeof t.key_code);
        w.i32(t.screen.ScreenWidth);
        w.i32(t.screen.ScreenHeight);
        w.u8(t.regs.secret);
        put_image(w, t.image.get());
        for (const uint32_t v : {t.regs.lRam, t.regs.lPC, t.regs.local_sp, t.regs.local_bp}) w.u32(v);
        w.u8(t.regs.eval_top);
        w.u32(t.regs.string_ptr);
    }
    w.end(s);
}

void get_tasks(Reader& in, Machine& m) {
    Reader r = in.section("TASK");
    m.task_lev = static_cast<int32_t>(r.ranged(r.i32(), 0, kTaskLevels - 1, "task level"));
    set_image(m, get_image(r, "the program image"));
    if (r.ok() && !m.pTOVI) r.fail("no program image");
    for (TaskRecord& t : m.task) {
        t.mode = r.u32();
        r.cstr(t.dirs.CD, sizeof t.dirs.CD, "directory");
        r.cstr(t.dirs.RootPath, sizeof t.dirs.RootPath, "root");
        t.regs.RamBits = r.u32();
        t.regs.addr_mask = t.regs.RamBits > 16 ? 0xFFFFFF : 0xFFFF;
        for (uint16_t* v : {&t.screen.graph_mode, &t.screen.bgcolor, &t.screen.fgcolor}) *v = r.u16();
        r.bytes(t.screen.palette, sizeof t.screen.palette);
        r.bytes(t.key_code, sizeof t.key_code);
        t.screen.ScreenWidth = static_cast<int32_t>(r.ranged(r.i32(), 0, 320, "saved screen width"));
        t.screen.ScreenHeight = static_cast<int32_t>(r.ranged(r.i32(), 0, 240, "saved screen height"));
        t.regs.secret = r.u8();
        t.image = get_image(r, "a nested program's image");
        for (uint32_t* v : {&t.regs.lRam, &t.regs.lPC, &t.regs.local_sp, &t.regs.local_bp}) *v = r.u32();
        t.regs.eval_top = r.u8();
        t.regs.string_ptr = r.u32();
        t.regs.lRam = static_cast<uint32_t>(r.ranged(t.regs.lRam, 0, kRamMask, "saved RAM base"));
    }
    r.finish("TASK");
}

void put_screen(Writer& w, const Machine& m) {
    const size_t s = w.begin("SCRN");
    w.block(m.ScreenBuffer, sizeof m.ScreenBuffer);
    w.i32(m.ScreenWidth);
    w.i32(m.ScreenHeight);
    for (const uint16_t v : {m.graph_mode, m.bgcolor, m.fgcolor}) w.u16(v);
    w.bytes(m.palette, sizeof m.palette);
    for (const uint8_t v : {m.GRAY, m.need_clean}) w.u8(v);
    w.end(s);
}

void get_screen(Reader& in, Machine& m) {
    Reader r = in.section("SCRN");
    r.block(m.ScreenBuffer, sizeof m.ScreenBuffer, "screen planes");
    m.ScreenWidth = static_cast<int32_t>(r.ranged(r.i32(), 0, 320, "screen width"));
    m.ScreenHeight = static_cast<int32_t>(r.ranged(r.i32(), 0, 240, "screen height"));
    for (uint16_t* v : {&m.graph_mode, &m.bgcolor, &m.fgcolor}) *v = r.u16();
    if (m.graph_mode != 1 && m.graph_mode != 4 && m.graph_mode != 8) r.fail("graphics mode " + std::to_string(m.graph_mode));
    r.bytes(m.palette, sizeof m.palette);
    for (uint8_t* v : {&m.GRAY, &m.need_clean}) *v = r.u8();
    r.finish("SCRN");
}

void put_console(Writer& w, const Machine& m) {
    const size_t s = w.begin("CONS");
    for (const int32_t v : {m.scr_mode, m.curr_CPR, m.curr_RPS, m.small_left, m.small_up, m.small_down, m.scr_x,
                            m.scr_y, m.scr_off, m.verbose_mode, m.verbose_buf_len})
        w.i32(v);
    w.bytes(m.verbose_buf, sizeof m.verbose_buf);
    w.end(s);
}

void get_console(Reader& in, Machine& m) {
    Reader r = in.section("CONS");
    m.scr_mode = static_cast<int32_t>(r.ranged(r.i32(), 0, 1, "console font"));
    // The grid geometry bounds the repaint loops: nothing beyond a screen.
    m.curr_CPR = static_cast<int32_t>(r.ranged(r.i32(), 0, 320, "console columns"));
    m.curr_RPS = static_cast<int32_t>(r.ranged(r.i32(), 0, 240, "console rows"));
    for (int32_t* v : {&m.small_left, &m.small_up, &m.small_down, &m.scr_x, &m.scr_y})
        *v = static_cast<int32_t>(r.ranged(r.i32(), -320, 320, "console position"));
    m.scr_off = r.i32();
    m.verbose_mode = r.i32();
    m.verbose_buf_len = static_cast<int32_t>(r.ranged(r.i32(), 0, 254, "pending console bytes"));
    r.bytes(m.verbose_buf, sizeof m.verbose_buf);
    r.finish("CONS");
}

void put_keys(Writer& w, const Machine& m) {
    const size_t s = w.begin("KEYS");
    w.u16(m.vk);
    w.bytes(m.cur_keyb, sizeof m.cur_keyb);
    w.bytes(m.old_keyb, sizeof m.old_keyb);
    w.u8(m.tvx_key);
    w.bytes(m.key_code, sizeof m.key_code);
    for (const int32_t v : {m.s_year, m.s_month, m.s_day, m.s_hour, m.s_min, m.s_sec, m.s_week}) w.i32(v);
    w.end(s);
}

void get_keys(Reader& in, Machine& m) {
    Reader r = in.section("KEYS");
    m.vk = r.u16();
    r.bytes(m.cur_keyb, sizeof m.cur_keyb);
    r.bytes(m.old_keyb, sizeof m.old_keyb);
    m.tvx_key = r.u8();
    r.bytes(m.key_code, sizeof m.key_code);
    for (int32_t* v : {&m.s_year, &m.s_month, &m.s_day, &m.s_hour, &m.s_min, &m.s_sec, &m.s_week}) *v = r.i32();
    r.finish("KEYS");
}

// Guest time is saved as the time since the load; under the real clock it
// goes on from there against the host's clock of the loading process.
void put_clock(Writer& w, const Machine& m) {
    const size_t s = w.begin("CLCK");
    w.flag(m.clock.virtual_time);
    w.u64(guest_now(m));
    w.i64(m.clock.calendar_offset_s);
    w.u64(m.clock.last_input_pass_ns);
    w.end(s);
}

void get_clock(Reader& in, Machine& m) {
    Reader r = in.section("CLCK");
    m.clock = GuestClock{};
    m.clock.virtual_time = r.flag();
    const uint64_t now = r.below(r.u64(), kMaxGuestNs, "guest time");
    // A guest's setting of the time (year up to 65535, month up to 255)
    // moves the calendar by less than 2^41 seconds.
    m.clock.calendar_offset_s = r.ranged(r.i64(), -(int64_t{1} << 41), int64_t{1} << 41, "calendar offset");
    m.clock.last_input_pass_ns = r.u64();
    if (m.clock.last_input_pass_ns > now) r.fail("input pass after the saved time");
    if (m.clock.virtual_time)
        m.clock.now_ns = now;
    else
        m.clock.real_start_ns = m.host->GetNanoSeconds_os() * 100 - now;  // wraps as guest_now unwraps
    r.finish("CLCK");
}

void put_presentation(Writer& w, const Machine& m) {
    const size_t s = w.begin("PRES");
    for (const uint8_t v : {m.need_refresh, m.use_grid, m.ZOOM}) w.u8(v);
    w.u32(m.dirty_marks);
    w.u32(m.frame_number);
    w.end(s);
}

void get_presentation(Reader& in, Machine& m) {
    Reader r = in.section("PRES");
    for (uint8_t* v : {&m.need_refresh, &m.use_grid, &m.ZOOM}) *v = r.u8();
    m.dirty_marks = r.u32();
    m.frame_number = r.u32();
    r.finish("PRES");
}

// Open files: the slot, the level that opened it, the guest path, the mode
// and where the stream stood. The streams themselves are opened after the
// whole state has been checked.
struct SavedFile {
    int slot = 0;
    std::string path, mode;
    int64_t pos = 0;
    bool eof = false;
};

void put_files(Writer& w, const Machine& m) {
    const size_t s = w.begin("FILE");
    w.cstr(m.RootPath, sizeof m.RootPath);
    w.cstr(m.CD, sizeof m.CD);
    w.i64(m.disk_added);
    uint32_t open = 0;
    for (FILE* f : m.fhandle) open += f != nullptr;
    w.u32(open);
    for (int i = 0; i < kMaxFiles; ++i) {
        FILE* f = m.fhandle[i];
        if (!f) continue;
        // What the guest wrote reaches the disk, where a load will find it.
        std::fflush(f);
        w.u8(static_cast<uint8_t>(i));
        w.u8(m.ftask[i]);
        w.u8(m.last_io[i]);
        w.str(m.fpath[i]);
        w.str(m.fmode[i]);
        w.i64(std::ftell(f));
        w.flag(std::feof(f) != 0);
    }
    w.end(s);
}

void get_files(Reader& in, Machine& m, std::vector<SavedFile>* files) {
    Reader r = in.section("FILE");
    r.cstr(m.RootPath, sizeof m.RootPath, "root");
    r.cstr(m.CD, sizeof m.CD, "directory");
    m.disk_added = r.ranged(r.i64(), -(int64_t{1} << 62), int64_t{1} << 62, "disk use");
    const uint32_t n = static_cast<uint32_t>(r.ranged(r.u32(), 0, kMaxFiles, "open file count"));
    for (uint32_t k = 0; k < n && r.ok(); ++k) {
        SavedFile f;
        f.slot = static_cast<int>(r.ranged(r.u8(), 0, kMaxFiles - 1, "file slot"));
        const uint8_t lev = r.u8();
        const uint8_t io = static_cast<uint8_t>(r.ranged(r.u8(), 0, 2, "last transfer"));
        f.path = r.str(kPathMax - 1, "file path");
        f.mode = r.str(32, "file mode");
        f.pos = r.ranged(r.i64(), 0, INT64_MAX, "file position");
        f.eof = r.flag();
        if (!r.ok()) break;
        if (!files->empty() && f.slot <= files->back().slot) r.fail("file slots out of order");
        m.ftask[f.slot] = lev;
        m.last_io[f.slot] = io;
        files->push_back(std::move(f));
    }
    r.finish("FILE");
}

void put_input(Writer& w, const CoreInput& in) {
    const size_t s = w.begin("INPT");
    w.u32(static_cast<uint32_t>(in.queue.size()));
    for (const CoreInput::Change& c : in.queue) {
        w.u16(c.buttons);
        w.flag(c.down);
    }
    w.u16(in.word);
    w.u16(in.unseen);
    w.flag(in.cut);
    w.flag(in.cut_refresh);
    w.u32(static_cast<uint32_t>(in.cut_queued));
    w.end(s);
}

void get_input(Reader& outer, CoreInput& in) {
    Reader r = outer.section("INPT");
    const uint32_t n = static_cast<uint32_t>(r.ranged(r.u32(), 0, kMaxQueued, "pending button changes"));
    for (uint32_t k = 0; k < n && r.ok(); ++k) {
        const auto b = static_cast<uint16_t>(r.ranged(r.u16(), 1, kAllButtons, "button change"));
        in.queue.push_back({b, r.flag()});
    }
    in.word = static_cast<uint16_t>(r.ranged(r.u16(), 0, kAllButtons, "pressed buttons"));
    in.unseen = static_cast<uint16_t>(r.ranged(r.u16(), 0, kAllButtons, "unseen buttons"));
    in.cut = r.flag();
    in.cut_refresh = r.flag();
    in.cut_queued = static_cast<size_t>(r.ranged(r.u32(), 0, n, "changes before the cut"));
    r.finish("INPT");
}

// Checks that need more than one section: images where the task levels need
// them, program counters inside their images, paths inside the guest root.
void check_machine(Reader& r, const Machine& m, const std::vector<SavedFile>& files) {
    if (!r.ok()) return;
    if (!valid_pc(m.lPC, *m.pTOVI)) r.fail("program counter outside the image");
    const bool exec_wait = m.wait.kind == WaitKind::KeysUp && m.wait.then == AfterKeysUp::Exec;
    for (int lev = 0; lev < kTaskLevels; ++lev) {
        const TaskRecord& t = m.task[lev];
        const bool needed = lev < m.task_lev || (exec_wait && lev == m.task_lev + 1);
        if (needed != (t.image != nullptr)) {
            r.fail("task level " + std::to_string(lev) + (needed ? " lacks" : " has") + " a program image");
            return;
        }
        if (lev < m.task_lev && (!valid_ram_bits(t.regs.RamBits) || !valid_pc(t.regs.lPC, *t.image)))
            r.fail("task level " + std::to_string(lev) + " does not fit its image");
    }
    if (exec_wait && m.task_lev + 1 >= kTaskLevels) r.fail("a program is started past the last level");

    // Every root in use lies at or under the outermost level's root, every
    // directory and file path is a normalised guest path.
    const std::string root0 = level_root(m, 0);
    auto check_root = [&](const char* root) {
        std::string dir = root;
        if (dir.size() > root0.size() && dir.back() == '/') dir.pop_back();
        if (root[0] && dir != root0 && !under_root(dir, root0.c_str()))
            r.fail(std::string("root outside the guest root: ") + root);
    };
    if (root0.empty()) r.fail("no guest root");
    check_root(m.RootPath);
    for (const TaskRecord& t : m.task) {
        check_root(t.dirs.RootPath);
        if (!normalised(t.dirs.CD)) r.fail("directory is not a guest path");
    }
    if (!normalised(m.CD)) r.fail("directory is not a guest path");
    if (exec_wait && !under_root(m.wait.child, m.RootPath)) r.fail("program to start lies outside the guest root");
    for (const SavedFile& f : files) {
        if (m.ftask[f.slot] > m.task_lev) r.fail("a file belongs to a level that is not running");
        if (f.path.empty() || !normalised(f.path)) r.fail("file path is not a guest path");
        if (!valid_open_mode(f.mode)) r.fail("file mode '" + f.mode + "'");
    }
}

// Moves every root at or under old_root to new_root (both ending in "/").
bool move_root(Machine& m, const std::string& old_root, const std::string& new_root) {
    auto move = [&](char* path) {
        const std::string p = path;
        if (p.compare(0, old_root.size(), old_root) != 0) return true;
        const std::string moved = new_root + p.substr(old_root.size());
        if (moved.size() >= kPathMax) return false;
        std::memcpy(path, moved.c_str(), moved.size() + 1);
        return true;
    };
    bool ok = move(m.RootPath);
    for (TaskRecord& t : m.task) ok = move(t.dirs.RootPath) && ok;
    if (m.wait.child.compare(0, old_root.size(), old_root) == 0) m.wait.child = new_root + m.wait.child.substr(old_root.size());
    return ok && m.wait.child.size() < kPathMax;
}

}  // namespace

std::vector<uint8_t> core_save_state(const Core& core) {
    if (!core.loaded()) return {};
    const Machine& m = *core.machine;
    Writer w;
    w.bytes(reinterpret_cast<const uint8_t*>(kMagic), sizeof kMagic);
    w.u32(kFormatVersion);
    w.u64(0);
    w.u32(0);
    put_program(w, m);
    put_cpu(w, m);
    put_ram(w, m);
    put_tasks(w, m);
    put_screen(w, m);
    put_console(w, m);
    put_keys(w, m);
    put_clock(w, m);
    put_presentation(w, m);
    put_files(w, m);
    put_input(w, *core.input);
    const std::span<const uint8_t> payload(w.out.data() + kHeaderSize, w.out.size() - kHeaderSize);
    const uint64_t size = payload.size();
    const uint32_t crc = crc32(payload);
    for (int k = 0; k < 8; ++k) w.out[sizeof kMagic + 4 + k] = static_cast<uint8_t>(size >> (8 * k));
    for (int k = 0; k < 4; ++k) w.out[sizeof kMagic + 12 + k] = static_cast<uint8_t>(crc >> (8 * k));
    return std::move(w.out);
}

std::string core_load_state(Core& core, std::span<const uint8_t> state) { return core_load_state_at(core, state, ""); }

std::string core_load_state_at(Core& core, std::span<const uint8_t> state, const std::string& root) {
    std::string error;
    Reader head(state, &error);
    uint8_t magic[sizeof kMagic];
    head.bytes(magic, sizeof magic);
    if (!head.ok() || std::memcmp(magic, kMagic, sizeof kMagic) != 0) return "not a save state";
    const uint32_t version = head.u32();
    const uint64_t size = head.u64();
    const uint32_t crc = head.u32();
    if (!head.ok()) return "the save state is cut short";
    if (version != kFormatVersion)
        return "save state format " + std::to_string(version) + ", this build reads format " + std::to_string(kFormatVersion);
    const std::span<const uint8_t> payload = state.subspan(kHeaderSize);
    if (size != payload.size())
        return size > payload.size() ? "the save state is cut short" : "the save state has bytes after its end";
    if (crc32(payload) != crc) return "the save state is damaged (checksum mismatch)";

    auto m = std::make_unique<Machine>();
    m->host = core.host.get();
    if (core.loaded()) m->disk_limit = core.machine->disk_limit;
    auto input = std::make_unique<CoreInput>();
    std::vector<SavedFile> files;
    Reader r(payload, &error);
    get_program(r, *m);
    get_cpu(r, *m);
    get_ram(r, *m);
    get_tasks(r, *m);
    get_screen(r, *m);
    get_console(r, *m);
    get_keys(r, *m);
    get_clock(r, *m);
    get_presentation(r, *m);
    get_files(r, *m, &files);
    get_input(r, *input);
    r.finish("state");
    check_machine(r, *m, files);
    if (!r.ok()) return "the save state is damaged: " + error;

    if (!root.empty()) {
        std::string gb;
        if (!host_path_gb(root, &gb) || gb.size() >= kPathMax - 1) return root + ": not a usable guest root";
        if (gb.back() != '/') gb += '/';
        if (!move_root(*m, level_root(*m, 0), gb)) return root + ": the state's paths do not fit under this root";
    }

    // The files are read as the running machine has left them so far.
    if (core.loaded()) flush_all_files(*core.machine);
    for (const SavedFile& f : files) {
        char host[kPathMax];
        true_name_0(f.path.c_str(), host, level_root(*m, m->ftask[f.slot]));
        std::string why;
        FILE* s = host[0] ? reopen_file(host, f.mode, f.pos, f.eof, &why) : nullptr;
        if (!s) return "an open file of the saved program cannot be opened again: " + (host[0] ? why : f.path);
        m->fhandle[f.slot] = s;
        m->fpath[f.slot] = f.path;
        m->fmode[f.slot] = f.mode;
    }

    // The loaded screen as a frame, without touching what the guest can see.
    auto frame = std::make_shared<Frame>();
    snapshot_frame(*m, frame.get());
    frame->number = m->frame_number;
    frame->grid = m->use_grid != 0;
    frame->clean = true;
    frame->dirty_marks = m->dirty_marks;
    m->frame = std::move(frame);

    core.machine = std::move(m);
    core.input = std::move(input);
    return "";
}
