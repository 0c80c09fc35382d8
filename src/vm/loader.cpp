#include "vm/loader.h"

#include "base/strformat.h"
#include "base/tvx_header.h"

#include "fs/path.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <new>

void mylog(Machine& m, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const std::string text = vstrformat(fmt, ap);
    va_end(ap);
    if (!text.empty()) m.host->log(text);
}

void set_image(Cpu& c, std::unique_ptr<TvxImage> img) {
    c.pTOVI = std::move(img);
    c.code = c.pTOVI ? c.pTOVI->bytes.data() : nullptr;
    c.code_end = c.pTOVI ? c.pTOVI->end() : 0;
}

void lmemcpy(Cpu& c, uint32_t dst, uint32_t src, uint32_t n) {
    add_work(c, n);
    uint32_t d = ram_index(c, dst), s = ram_index(c, src);
    while (n > 0) {
        // Largest run that neither wraps nor reads bytes this copy has written.
        uint32_t run = std::min({n, kRamSize - d, kRamSize - s});
        if (d > s && d - s < run) run = d - s;
        std::memmove(c.tovix_ram + d, c.tovix_ram + s, run);
        d = (d + run) & kRamMask;
        s = (s + run) & kRamMask;
        n -= run;
    }
}

namespace {

// A zero-filled image of `size` file bytes, its terminating zero and the
// padding after it.
std::unique_ptr<TvxImage> padded_image(size_t size) {
    auto img = std::make_unique<TvxImage>();
    img->bytes.assign(size + 1 + kImagePad, 0xFF);
    img->bytes[size] = 0;
    img->file_size = static_cast<uint32_t>(size);
    return img;
}

}  // namespace

std::unique_ptr<TvxImage> TvxOpen(FILE* stream) {
    std::fseek(stream, 0, SEEK_END);
    const long n = std::ftell(stream);
    std::fseek(stream, 0, SEEK_SET);
    std::unique_ptr<TvxImage> img;
    // Code offsets are 24-bit, so a larger file cannot be a program.
    if (n >= 0 && n <= 0xFFFFFF) {
        try {
            img = padded_image(static_cast<size_t>(n));
        } catch (const std::bad_alloc&) {
        }
    }
    if (!img) {
        std::printf("memory not enough(%ld) for load tvx!\n", n + 1);
        std::fclose(stream);
        return nullptr;
    }
    const size_t got = std::fread(img->bytes.data(), 1, static_cast<size_t>(n), stream);
    img->bytes[got] = 0;
    img->file_size = static_cast<uint32_t>(got);
    std::fclose(stream);
    return img;
}

std::unique_ptr<TvxImage> image_from_bytes(const uint8_t* data, size_t size) {
    auto img = padded_image(size);
    if (size) std::memcpy(img->bytes.data(), data, size);
    return img;
}

namespace {

std::unique_ptr<TvxImage> open_checked(Machine& m, FILE* f, const std::string& path) {
    if (!f) {
        mylog(m, "Can not open %s!\n", path.c_str());
        return nullptr;
    }
    uint8_t head[16];
    std::fseek(f, 0, SEEK_SET);
    const size_t got = std::fread(head, 1, sizeof head, f);
    if (!tvx_header::is_header(head, got)) {
        mylog(m, "Not valid Tovix file %s!\n", path.c_str());
        std::fclose(f);
        return nullptr;
    }
    return TvxOpen(f);
}

}  // namespace

std::unique_ptr<TvxImage> TaskOpenUtf8(Machine& m, const std::string& path) {
    return open_checked(m, std::fopen(path.c_str(), "rb"), path);
}

std::unique_ptr<TvxImage> TaskOpen(Machine& m, const std::string& path) {
    std::string shown;
    if (!gb_host_path(path.c_str(), &shown)) shown = path;
    return open_checked(m, fopen_gb(path.c_str(), "rb"), shown);
}

std::unique_ptr<TvxImage> shell_init(Machine& m) {
    filesys_init(m);
    m.lRam = 0;
    m.task_lev = 0;
    if (!m.tvxFilePath.empty()) {
        m.VirtualFullName = m.tvxFilePath;
        const auto slash = m.tvxFilePath.rfind('/');
        if (!m.tvxRoot.empty()) {
            if (m.verbose_mode) mylog(m, "[IO] Setting root path (GBK): %s\n", m.tvxRoot.c_str());
            SetRoot(m, m.tvxRoot.c_str());
        } else if (slash != std::string::npos) {
            const std::string root = m.tvxFilePath.substr(0, slash);
            if (m.verbose_mode) mylog(m, "[IO] Setting root path (UTF-8): %s\n", root.c_str());
            // A directory whose name has no GB2312 form keeps the default
            // root: a cut or altered name would be another directory.
            std::string gb;
            if (host_path_gb(root, &gb)) {
                if (m.verbose_mode) mylog(m, "[IO] Setting root path (GBK): %s\n", gb.c_str());
                SetRoot(m, gb.c_str());
            } else {
                mylog(m, "[IO] Root path has no GB2312 form, keeping %s: %s\n", m.RootPath, root.c_str());
            }
        }
        return TaskOpenUtf8(m, m.tvxFilePath);
    }
    m.VirtualFullName = "TovixOS/System/Hubsel.sys";
    return TaskOpen(m, "TovixOS/System/Hubsel.sys");
}

void set_sys_ram(Machine& m) {
    m.TextBuffer = kTextBuffer;
    m.string_stack = kStringStack;
    m.eval_stack = kEvalStack;
}

void make_negative(Machine& m) {
    for (int i = 0; i < 256; ++i) {
        uint8_t r = 0;
        for (int b = 0; b < 8; ++b)
            if (i & (1 << b)) r = static_cast<uint8_t>(r | (0x80 >> b));
        m.negative_tbl[i] = r;
    }
}

namespace {

std::string after_last_slash(const std::string& s) {
    const auto p = s.rfind('/');
    return p == std::string::npos ? s : s.substr(p + 1);
}

}  // namespace

void write_cmdline(Machine& m) {
    std::string line = after_last_slash(m.tvxFilePath);
    if (!m.tvxProgArgs.empty()) {
        line += ' ';
        line += after_last_slash(m.tvxProgArgs);
    }
    // The line may reach up to the text buffer at 0x1400.
    if (line.size() > kTextBuffer - kCmdLine - 1) line.resize(kTextBuffer - kCmdLine - 1);
    for (size_t i = 0; i < line.size(); ++i) lRamWrite(m, kCmdLine + static_cast<uint32_t>(i), static_cast<uint8_t>(line[i]));
    lRamWrite(m, kCmdLine + static_cast<uint32_t>(line.size()), 0);
    mylog(m, "[DEBUG] CMDLINE: %s\n", line.c_str());
}

void tvxReset(Machine& m) {
    const uint8_t* head = m.code;
    m.lPC = 16;
    const uint8_t flags = head[8];
    set_ram_bits(m, static_cast<uint32_t>(tvx_header::ram_bits(flags)));
    m.eval_top = 0;
    m.d_line = -1;
    m.ramuses = 0xF00000;
    m.ramusee = 0;
    m.ramarm = 1;

    // Program data from 0x2000: to 0xFFFF for 16-bit programs, to the end of
    // the block otherwise. Lower addresses (command line, stacks) survive.
    const uint64_t start = static_cast<uint64_t>(m.lRam) + kProgramData;
    const uint64_t end = std::min<uint64_t>(m.RamBits == 16 ? start + 0xE000 : kRamSize, kRamSize);
    if (start < end && !m.ram_pristine) std::memset(m.tovix_ram + start, 0, static_cast<size_t>(end - start));
    m.ram_pristine = false;

    set_sys_ram(m);
    m.string_ptr = m.string_stack;

    m.bgcolor = 0;
    const uint16_t old_mode = m.graph_mode;
    switch (flags & 0x60) {
        case 0x40: m.graph_mode = 4; m.fgcolor = 15; break;
        case 0x60: m.graph_mode = 8; m.fgcolor = 255; break;
        default: m.graph_mode = 1; m.fgcolor = 15; break;
    }
    m.have_pen = flags & 1;
    m.have_keypad = !(flags & 1);
    SetPalette(m);
    const bool mode_changed = old_mode != m.graph_mode;
    if (mode_changed || head[10] <= 14) ClearNdsScreen(m);

    m.secret = 0;
    std::memset(m.cur_keyb, 0, sizeof m.cur_keyb);
    clearAllKey(m);
    m.tvx_key = 0;
    m.delay = 0;
    m.wait_key = 0;

    int width = static_cast<int16_t>(head[9] * 16);
    int height = static_cast<int16_t>(head[10] * 16);
    if (width == 0) width = 160;
    width = std::clamp(width, 32, 320);
    if (height == 0) height = 80;
    height = std::clamp(height, 32, 240);
    Adjust_Window(m, width, height);

    m.line_mode = 0;
    setscreen(m, 0);

    m.seed += static_cast<int64_t>(static_cast<int32_t>(GetMillisecond_os(m)));
    m.seed |= 1;
    make_negative(m);
}
