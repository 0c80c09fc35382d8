// Formatted output: c_putchar, c_printf and c_sprintf with their own small
// format language (%d %f %c %s %%, flags - and 0, a decimal width).
#include <algorithm>
#include <cstdio>
#include <string>

#include "lib/syscalls.h"
#include "vm/interp.h"

namespace {

// Longest run of guest bytes a string or format is read for: the whole
// block, so a string without a zero cannot keep a call going for ever.
constexpr uint32_t kScanLimit = kRamSize;
// Widths beyond this are taken as this, so a hostile width cannot flood the output.
constexpr uint32_t kMaxWidth = 0xFFFF;
// Most bytes one call writes: as much as the guest's memory holds. A format
// full of "%s" over strings without terminators would otherwise keep the call
// busy for a long time; no valid program comes near this.
constexpr uint64_t kOutputLimit = kRamSize;

// Where formatted text goes: the console (printf) or guest memory (sprintf).
struct Sink {
    Machine& m;
    bool to_memory;
    uint32_t dst = 0;
    uint64_t written = 0;
    bool full() const { return written >= kOutputLimit; }
    void put(uint8_t ch) {
        if (full()) return;
        ++written;
        if (to_memory)
            lRamWrite(m, dst++, ch);
        else
            cout(m, ch);
    }
    void put(const std::string& s) {
        for (char c : s) put(static_cast<uint8_t>(c));
    }
};

struct Format {
    uint32_t width = 0;
    int flag = 0;  // 0 right-justify, 64 zero padding, 128 left-justify
};

void next_arg(Machine& m) {
    m.func_x += 4;
    m.a1 = lRamRead4(m, m.eval_stack + m.func_x);
}

// Parses flags and width after "%"; returns the address of the conversion.
uint32_t fenxi_fmt(Machine& m, uint32_t pos, Format& f) {
    bool zero = false, left = false;
    uint32_t width = 0;
    for (uint32_t n = 0; n < kScanLimit; ++n) {
        const uint8_t b = lRamRead(m, pos);
        if (b == '0') {
            zero = true;
            ++pos;
        } else if (b == '-') {
            left = true;
            ++pos;
        } else if (b >= '1' && b <= '9') {
            width = b - '0';
            ++pos;
            for (uint8_t d; (d = lRamRead(m, pos)) >= '0' && d <= '9'; ++pos)
                width = std::min<uint32_t>(width * 10 + (d - '0'), kMaxWidth);
        } else {
            break;
        }
    }
    f.width = width;
    if (width == 0)
        f.flag = 0;
    else if (left)
        f.flag = 128;
    else if (zero)
        f.flag = 64;
    return pos;
}

// The zero padding goes before a minus sign ("%05d" of -42 is "00-42").
void printint(Machine& m, Sink& out, const Format& f) {
    next_arg(m);
    char digits[16];
    const int n = std::snprintf(digits, sizeof digits, "%d", static_cast<int32_t>(m.a1));
    const std::string text(digits, static_cast<size_t>(n));
    if (f.width == 0 || static_cast<uint32_t>(n) >= f.width) {
        out.put(text);
        return;
    }
    const std::string pad(f.width - static_cast<uint32_t>(n), f.flag == 64 ? '0' : ' ');
    if (f.flag == 128) {
        out.put(text);
        out.put(pad);
    } else {
        out.put(pad);
        out.put(text);
    }
}

// "%g" of the single-precision value, with the first exponent digit dropped
// ("1e+20" prints as "1e+0"); infinities and NaN print "error".
std::string printfloat(Machine& m) {
    next_arg(m);
    if (((m.a1 >> 23) & 0xFF) == 0xFF) return "error";
    char buf[48];
    std::snprintf(buf, sizeof buf, "%g", static_cast<double>(i2f(m.a1)));
    std::string text;
    int count = 0;
    for (size_t i = 0; buf[i]; ++i) {
        if (count > 0) ++count;
        if (buf[i] == 'e' && i > 0 && count == 0) count = 1;
        if (count == 3) continue;  // the second character after the "e"
        text += buf[i];
    }
    return text;
}

// Writes a GB2312 string to the console, moving a two-byte character that
// would be split by the end of a row to the next row.
void put_console_text(Machine& m, Sink& out, uint32_t& pos, bool* ended) {
    const uint8_t b = lRamRead(m, pos++);
    if (b < 0x80) {
        out.put(b);
        return;
    }
    if (!out.to_memory && m.scr_x + 1 >= m.curr_CPR) out.put(' ');
    out.put(b);
    const uint8_t trail = lRamRead(m, pos++);
    if (trail == 0) {
        *ended = true;
        return;
    }
    out.put(trail);
}

// Formats the text at fmt into out; returns the address after the last
// format byte read.
uint32_t format_text(Machine& m, Sink& out, uint32_t fmt) {
    Format f;
    uint32_t pos = fmt;
    for (uint32_t steps = 0; steps < kScanLimit && !out.full(); ++steps) {
        const uint8_t b = lRamRead(m, pos);
        if (b == 0) return pos;
        if (b != '%') {
            if (out.to_memory) {
                out.put(b);
                ++pos;
                continue;
            }
            bool ended = false;
            put_console_text(m, out, pos, &ended);
            if (ended) return pos;
            continue;
        }
        pos = fenxi_fmt(m, pos + 1, f);
        const uint8_t conv = lRamRead(m, pos++);
        switch (conv) {
            case 0: return pos;
            case 'd': printint(m, out, f); break;
            case 'f': out.put(printfloat(m)); break;
            case 'c':
                next_arg(m);
                out.put(static_cast<uint8_t>(m.a1));
                break;
            case 's': {
                next_arg(m);
                uint32_t s = m.a1 & m.addr_mask;
                bool ended = false;
                for (uint32_t n = 0; n < kScanLimit && !ended && !out.full() && lRamRead(m, s) != 0; ++n) {
                    if (out.to_memory)
                        out.put(lRamRead(m, s++));
                    else
                        put_console_text(m, out, s, &ended);
                }
                break;
            }
            default: out.put(conv); break;  // "%%" and unknown conversions
        }
    }
    return pos;
}

// Formats and counts the bytes read and written as the call's work.
void format(Machine& m, Sink& out, uint32_t fmt) {
    const uint32_t read = format_text(m, out, fmt) - fmt;
    add_work(m, read * kWorkPerByteLooped + out.written * kWorkPerByteOutput);
}

// Takes the argument count and points func_x at the first argument.
uint32_t start_varargs(Machine& m) {
    get_val(m);
    m.eval_top = static_cast<uint8_t>(m.eval_top - m.a1 * 4);
    m.func_x = m.eval_top;
    return lRamRead4(m, m.eval_stack + m.func_x) & m.addr_mask;
}

}  // namespace

void c_putchar(Machine& m) {
    get_val(m);
    cout(m, static_cast<uint8_t>(m.a1));
    update_lcd_0(m);
}

void c_printf(Machine& m) {
    const uint32_t fmt = start_varargs(m);
    Sink out{m, false};
    format(m, out, fmt);
    if (!m.verbose_mode) update_lcd_0(m);
}

void c_sprintf(Machine& m) {
    const uint32_t dst = start_varargs(m);
    next_arg(m);
    Sink out{m, true, dst};
    format(m, out, m.a1 & m.addr_mask);
    lRamWrite(m, out.dst, 0);  // terminated even when the limit cut the text
}
