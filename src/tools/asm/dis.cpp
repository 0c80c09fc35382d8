// Linear disassembler. Everything it prints assembles back to the same bytes:
// bytes that do not decode as a whole instruction are listed as .byte data.
#include <cstdio>
#include <set>

#include "tools/asm/asm.h"
#include "base/tvx_header.h"
#include "base/opcodes.h"

namespace {

struct Entry {
    size_t offset = 0;
    size_t size = 0;
    bool raw = false;    // not a decodable instruction
    uint8_t secret = 0;  // literal key in force here (push_string)
};

uint32_t read_le(const std::vector<uint8_t>& f, size_t at, int bytes) {
    uint32_t v = 0;
    for (int k = 0; k < bytes; ++k) v |= static_cast<uint32_t>(f[at + static_cast<size_t>(k)]) << (8 * k);
    return v;
}

void appendf(std::string& out, const char* fmt, auto... args) {
    char buf[64];
    std::snprintf(buf, sizeof buf, fmt, args...);
    out += buf;
}

}  // namespace

void append_literal(std::string& out, const uint8_t* p, size_t n, uint8_t xor_key) {
    out += '"';
    for (size_t k = 0; k < n; ++k) {
        const uint8_t b = static_cast<uint8_t>(p[k] ^ xor_key);
        switch (b) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (b >= 0x20 && b <= 0x7E) out += static_cast<char>(b);
                else appendf(out, "\\x%02X", b);
        }
    }
    out += '"';
}

namespace {

void append_header(std::string& out, const std::vector<uint8_t>& f) {
    const uint8_t flags = f[8];
    out += ".tvx";
    bool canonical = false;
    for (int bits : {16, 24, 32})
        for (int mode : {1, 4, 8})
            for (int pen : {0, 1})
                if (!canonical && flags == (tvx_header::bits_flag(bits) | tvx_header::mode_flag(mode) |
                                            (pen ? tvx_header::kFlagPen : 0))) {
                    appendf(out, " bits=%d mode=%d pen=%d", bits, mode, pen);
                    canonical = true;
                }
    if (!canonical) appendf(out, " flags=0x%02X", flags);
    appendf(out, " width=%d height=%d", f[9] * 16, f[10] * 16);
    bool reserved = false;
    for (int off : tvx_header::kReservedOffsets) reserved = reserved || f[static_cast<size_t>(off)] != 0;
    if (reserved) {
        out += " reserved=";
        for (int off : tvx_header::kReservedOffsets) appendf(out, "%02X", f[static_cast<size_t>(off)]);
    }
    out += '\n';
}

std::string label(uint32_t offset) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "L%04X", offset);
    return buf;
}

}  // namespace

std::string disassemble(const std::vector<uint8_t>& file, std::string* error) {
    if (const std::string problem = tvx_header::problem(file.data(), file.size()); !problem.empty()) {
        if (error) *error = problem;
        return "";
    }
    if (error) error->clear();
    const int bits = tvx_header::ram_bits(file[8]);
    const int addr_bytes = operand_size(Operand::Addr, bits);
    const size_t n = file.size();

    // Decode, following c_secret so push_string literals end where the machine ends them.
    std::vector<Entry> entries;
    std::set<uint32_t> targets;
    uint8_t secret = 0;
    for (size_t pos = tvx_header::kSize; pos < n;) {
        const uint8_t op = file[pos];
        const OpInfo& info = op_info[op];
        if (!info.name) {
            entries.push_back({pos, 1, true, secret});
            ++pos;
            continue;
        }
        size_t size = 0;
        bool fits = false;
        if (info.operand == Operand::String) {
            for (size_t j = pos + 1; j < n; ++j) {
                if (file[j] == secret) {
                    size = j + 1 - pos;
                    fits = true;
                    break;
                }
            }
        } else if (info.operand == Operand::Preset) {
            const size_t count_at = pos + 1 + static_cast<size_t>(addr_bytes);
            if (count_at + 2 <= n) {
                size = count_at + 2 + read_le(file, count_at, 2) - pos;
                fits = pos + size <= n;
            }
        } else {
            size = 1 + static_cast<size_t>(operand_size(info.operand, bits));
            fits = pos + size <= n;
        }
        if (!fits) {  // operands run past the end: the rest is data
            entries.push_back({pos, n - pos, true, secret});
            break;
        }
        entries.push_back({pos, size, false, secret});
        if (info.operand == Operand::Target) targets.insert(read_le(file, pos + 1, 3));
        if (op == 0x43) secret = file[pos + 1];  // c_secret
        pos += size;
    }

    std::set<uint32_t> labelled;
    for (const Entry& e : entries)
        if (!e.raw && targets.count(static_cast<uint32_t>(e.offset))) labelled.insert(static_cast<uint32_t>(e.offset));

    std::string out;
    append_header(out, file);
    for (size_t k = 0; k < entries.size(); ++k) {
        const Entry& e = entries[k];
        if (e.raw) {
            // Consecutive data bytes, sixteen to a line.
            size_t end = e.offset + e.size;
            while (k + 1 < entries.size() && entries[k + 1].raw) {
                ++k;
                end = entries[k].offset + entries[k].size;
            }
            for (size_t p = e.offset; p < end; p += 16) {
                out += "    .byte ";
                for (size_t q = p; q < end && q < p + 16; ++q) appendf(out, q == p ? "0x%02X" : ", 0x%02X", file[q]);
                out += '\n';
            }
            continue;
        }
        if (labelled.count(static_cast<uint32_t>(e.offset))) out += label(static_cast<uint32_t>(e.offset)) + ":\n";
        const uint8_t op = file[e.offset];
        const size_t at = e.offset + 1;
        out += "    ";
        out += op_mnemonic(op);
        switch (op_info[op].operand) {
            case Operand::None: break;
            case Operand::Byte: appendf(out, " %u", file[at]); break;
            case Operand::Imm16: appendf(out, " %d", static_cast<int16_t>(read_le(file, at, 2))); break;
            case Operand::Imm32: appendf(out, " %d", static_cast<int32_t>(read_le(file, at, 4))); break;
            case Operand::Addr: appendf(out, addr_bytes == 2 ? " 0x%04X" : " 0x%06X", read_le(file, at, addr_bytes)); break;
            case Operand::Mark24: appendf(out, " %u", read_le(file, at, 3)); break;
            case Operand::Target: {
                const uint32_t t = read_le(file, at, 3);
                if (labelled.count(t)) out.append(" ").append(label(t));
                else appendf(out, " 0x%06X", t);
                break;
            }
            case Operand::AddrByte:
                appendf(out, " %u, %u", read_le(file, at, addr_bytes), file[at + static_cast<size_t>(addr_bytes)]);
                break;
            case Operand::String:
                out += ' ';
                append_literal(out, &file[at], e.size - 2, e.secret);
                break;
            case Operand::Preset: {
                const size_t data = at + static_cast<size_t>(addr_bytes) + 2;
                appendf(out, addr_bytes == 2 ? " 0x%04X" : " 0x%06X", read_le(file, at, addr_bytes));
                if (e.offset + e.size > data) {
                    out += ", ";
                    append_literal(out, &file[data], e.offset + e.size - data, 0);
                }
                break;
            }
        }
        out += '\n';
    }
    return out;
}
