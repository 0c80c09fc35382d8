// Two-pass assembler: pass one parses every line, defines labels and lays out
// offsets (operand sizes never depend on operand values); pass two evaluates
// operands, checks ranges and emits bytes.
#include "tools/asm/asm.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <optional>
#include <set>
#include <unordered_map>

#include "base/opcodes.h"
#include "base/strformat.h"
#include "base/tvx_header.h"

namespace {

// Bound on literal values and sums; far beyond any operand range, and small
// enough that adding two in-range values cannot overflow.
constexpr int64_t kValueLimit = int64_t{1} << 48;

__attribute__((format(printf, 1, 2))) std::string format(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    std::string text = vstrformat(fmt, ap);
    va_end(ap);
    return text;
}

bool is_word_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           c == '_' || c == '.';
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

enum class Tok { Word, String, Char, Punct };

struct Token {
    Tok kind = Tok::Punct;
    std::string text;            // Word: as written
    std::vector<uint8_t> bytes;  // String: decoded bytes
    int64_t value = 0;           // Char: the byte
    char punct = 0;              // Punct: one of , : = + -
};

bool is_punct(const Token& t, char c) { return t.kind == Tok::Punct && t.punct == c; }

// A sum of signed terms, each a literal or a name resolved in pass two.
struct Term {
    bool negative = false;
    std::string name;  // empty: literal
    int64_t value = 0;
};
using Expr = std::vector<Term>;

// One operand or data item: a number expression or a string of bytes.
struct Item {
    bool is_string = false;
    std::vector<uint8_t> bytes;
    Expr expr;
};

struct Stmt {
    int line = 0;
    bool raw = false;  // .byte data rather than an instruction
    uint8_t op = 0;
    std::vector<Item> items;
};

struct Symbol {
    enum class State { Pending, Busy, Done, Failed };
    int line = 0;
    bool is_label = false;
    int64_t value = 0;
    Expr expr;  // .equ only
    State state = State::Pending;
};

enum class NumStatus { Ok, Bad, TooLarge };

NumStatus parse_number(std::string_view w, int64_t& out) {
    int base = 10;
    if (w.size() >= 2 && w[0] == '0' && (w[1] == 'x' || w[1] == 'X')) {
        base = 16;
        w.remove_prefix(2);
    }
    if (w.empty()) return NumStatus::Bad;
    int64_t v = 0;
    for (char c : w) {
        const int d = hex_value(c);
        if (d < 0 || d >= base) return NumStatus::Bad;
        v = v * base + d;
        if (v > kValueLimit) return NumStatus::TooLarge;
    }
    out = v;
    return NumStatus::Ok;
}

class Assembler {
public:
    explicit Assembler(std::string_view file) : file_(file) {}

    AsmResult run(std::string_view source) {
        int line_no = 0;
        size_t start = 0;
        while (start <= source.size()) {
            size_t end = source.find('\n', start);
            if (end == std::string_view::npos) end = source.size();
            ++line_no;
            parse_line(source.substr(start, end - start), line_no);
            start = end + 1;
        }
        emit_all();
        AsmResult r;
        std::stable_sort(errors_.begin(), errors_.end(),
                         [](const AsmError& a, const AsmError& b) { return a.line < b.line; });
        r.errors = std::move(errors_);
        if (r.errors.empty()) r.bytes = std::move(out_);
        return r;
    }

private:
    void error(int line, std::string msg) { errors_.push_back({std::string(file_), line, std::move(msg)}); }

    // ---- lexing -------------------------------------------------------

    // Decodes the escape at text[i] (a backslash); advances i past it.
    std::optional<uint8_t> escape(std::string_view text, size_t& i, int line) {
        if (i + 1 >= text.size()) {
            error(line, "unterminated escape sequence");
            return std::nullopt;
        }
        const char c = text[i + 1];
        i += 2;
        switch (c) {
            case 'n': return uint8_t{'\n'};
            case 'r': return uint8_t{'\r'};
            case 't': return uint8_t{'\t'};
            case '0': return uint8_t{0};
            case '\\': return uint8_t{'\\'};
            case '"': return uint8_t{'"'};
            case '\'': return uint8_t{'\''};
            case 'x': {
                const int hi = i < text.size() ? hex_value(text[i]) : -1;
                const int lo = i + 1 < text.size() ? hex_value(text[i + 1]) : -1;
                if (hi < 0 || lo < 0) {
                    error(line, "\\x needs exactly two hex digits");
                    return std::nullopt;
                }
                i += 2;
                return static_cast<uint8_t>(hi * 16 + lo);
            }
            default:
                error(line, format("bad escape '\\%c'", c));
                return std::nullopt;
        }
    }

    // Checks a character written directly inside a literal.
    bool literal_char_ok(unsigned char c, int line) {
        if (c >= 0x20 && c <= 0x7E) return true;
        if (c >= 0x80)
            error(line, "non-ASCII character in literal (write GB2312 bytes as \\xNN)");
        else
            error(line, format("control character 0x%02X in literal (use an escape)", c));
        return false;
    }

    bool lex(std::string_view s, int line, std::vector<Token>& out) {
        size_t i = 0;
        while (i < s.size()) {
            const char c = s[i];
            if (c == ' ' || c == '\t' || c == '\r') {
                ++i;
            } else if (c == ';') {
                break;
            } else if (is_word_char(c)) {
                Token t;
                t.kind = Tok::Word;
                while (i < s.size() && is_word_char(s[i])) t.text += s[i++];
                out.push_back(std::move(t));
            } else if (c == '"') {
                Token t;
                t.kind = Tok::String;
                ++i;
                for (;;) {
                    if (i >= s.size()) {
                        error(line, "unterminated string literal");
                        return false;
                    }
                    if (s[i] == '"') {
                        ++i;
                        break;
                    }
                    if (s[i] == '\\') {
                        auto b = escape(s, i, line);
                        if (!b) return false;
                        t.bytes.push_back(*b);
                    } else {
                        if (!literal_char_ok(static_cast<unsigned char>(s[i]), line)) return false;
                        t.bytes.push_back(static_cast<uint8_t>(s[i++]));
                    }
                }
                out.push_back(std::move(t));
            } else if (c == '\'') {
                Token t;
                t.kind = Tok::Char;
                ++i;
                if (i >= s.size()) {
                    error(line, "unterminated character literal");
                    return false;
                }
                if (s[i] == '\'') {
                    error(line, "empty character literal");
                    return false;
                }
                if (s[i] == '\\') {
                    auto b = escape(s, i, line);
                    if (!b) return false;
                    t.value = *b;
                } else {
                    if (!literal_char_ok(static_cast<unsigned char>(s[i]), line)) return false;
                    t.value = static_cast<unsigned char>(s[i++]);
                }
                if (i >= s.size() || s[i] != '\'') {
                    error(line, "unterminated character literal");
                    return false;
                }
                ++i;
                out.push_back(std::move(t));
            } else if (c == ',' || c == ':' || c == '=' || c == '+' || c == '-') {
                Token t;
                t.punct = c;
                out.push_back(std::move(t));
                ++i;
            } else {
                const auto uc = static_cast<unsigned char>(c);
                error(line, uc >= 0x21 && uc <= 0x7E ? format("unexpected character '%c'", c)
                                                     : format("unexpected byte 0x%02X", uc));
                return false;
            }
        }
        return true;
    }

    // ---- parsing ------------------------------------------------------

    std::optional<Expr> parse_expr(const std::vector<Token>& t, size_t b, size_t e, int line) {
        Expr expr;
        size_t i = b;
        bool negative = false;
        if (i < e && (is_punct(t[i], '-') || is_punct(t[i], '+'))) negative = is_punct(t[i++], '-');
        for (;;) {
            if (i >= e) {
                error(line, "expected a number or name");
                return std::nullopt;
            }
            Term term;
            term.negative = negative;
            const Token& a = t[i++];
            if (a.kind == Tok::Char) {
                term.value = a.value;
            } else if (a.kind == Tok::Word && is_digit(a.text[0])) {
                switch (parse_number(a.text, term.value)) {
                    case NumStatus::Ok: break;
                    case NumStatus::Bad: error(line, format("bad number '%s'", a.text.c_str())); return std::nullopt;
                    case NumStatus::TooLarge:
                        error(line, format("number '%s' is too large", a.text.c_str()));
                        return std::nullopt;
                }
            } else if (a.kind == Tok::Word) {
                term.name = a.text;
            } else {
                error(line, a.kind == Tok::String ? "a string is not allowed here"
                                                  : "expected a number or name");
                return std::nullopt;
            }
            expr.push_back(std::move(term));
            if (i == e) return expr;
            if (!is_punct(t[i], '+') && !is_punct(t[i], '-')) {
                error(line, "expected ',' or end of line after operand");
                return std::nullopt;
            }
            negative = is_punct(t[i++], '-');
        }
    }

    // Comma-separated items from t[b] to the end of the line.
    bool parse_items(const std::vector<Token>& t, size_t b, int line, std::vector<Item>& items) {
        if (b == t.size()) return true;
        for (;;) {
            size_t e = b;
            while (e < t.size() && !is_punct(t[e], ',')) ++e;
            if (e == b) {
                error(line, "missing operand");
                return false;
            }
            Item item;
            if (e - b == 1 && t[b].kind == Tok::String) {
                item.is_string = true;
                item.bytes = t[b].bytes;
            } else {
                auto ex = parse_expr(t, b, e, line);
                if (!ex) return false;
                item.expr = std::move(*ex);
            }
            items.push_back(std::move(item));
            if (e == t.size()) return true;
            b = e + 1;
        }
    }

    void define(const std::string& name, int line, Symbol sym) {
        if (is_digit(name[0])) {
            error(line, format("'%s' is not a valid name", name.c_str()));
            return;
        }
        auto [it, inserted] = symbols_.try_emplace(name, std::move(sym));
        if (!inserted) {
            error(line, format("'%s' is already defined at line %d", name.c_str(), it->second.line));
            return;
        }
        if (!it->second.is_label) equ_order_.push_back(name);
    }

    void parse_line(std::string_view text, int line) {
        std::vector<Token> t;
        if (!lex(text, line, t)) return;
        size_t i = 0;
        while (i + 1 < t.size() && t[i].kind == Tok::Word && is_punct(t[i + 1], ':')) {
            Symbol s;
            s.line = line;
            s.is_label = true;
            s.value = static_cast<int64_t>(offset_);
            define(t[i].text, line, std::move(s));
            i += 2;
        }
        if (i == t.size()) return;
        if (t[i].kind != Tok::Word) {
            error(line, "expected a label, directive or instruction");
            return;
        }
        const std::string& head = t[i].text;
        if (head == ".tvx") {
            parse_header(t, i + 1, line);
        } else if (head == ".equ") {
            parse_equ(t, i + 1, line);
        } else if (head == ".byte") {
            seen_code_ = true;
            Stmt st;
            st.line = line;
            st.raw = true;
            if (!parse_items(t, i + 1, line, st.items)) return;
            if (st.items.empty()) {
                error(line, ".byte needs at least one item");
                return;
            }
            for (const Item& it : st.items) offset_ += it.is_string ? it.bytes.size() : 1;
            stmts_.push_back(std::move(st));
        } else if (head[0] == '.') {
            error(line, format("unknown directive '%s'", head.c_str()));
        } else {
            parse_instruction(t, i, line);
        }
    }

    void parse_equ(const std::vector<Token>& t, size_t i, int line) {
        if (i + 2 > t.size() || t[i].kind != Tok::Word || !is_punct(t[i + 1], ',')) {
            error(line, ".equ needs NAME, value");
            return;
        }
        auto ex = parse_expr(t, i + 2, t.size(), line);
        if (!ex) return;
        Symbol s;
        s.line = line;
        s.expr = std::move(*ex);
        define(t[i].text, line, std::move(s));
    }

    void parse_header(const std::vector<Token>& t, size_t i, int line) {
        if (seen_code_) {
            error(line, "header directive after code");
            return;
        }
        if (header_seen_) {
            error(line, "header directive given twice");
            return;
        }
        header_seen_ = true;
        std::set<std::string> keys;
        int bits = 16, mode = 1, pen = 0;
        bool have_flags = false;
        uint8_t flags = 0;
        while (i < t.size()) {
            if (is_punct(t[i], ',')) {  // commas between pairs are optional
                ++i;
                continue;
            }
            if (i + 2 >= t.size() || t[i].kind != Tok::Word || !is_punct(t[i + 1], '=') ||
                t[i + 2].kind != Tok::Word) {
                error(line, "expected key=value in header directive");
                return;
            }
            const std::string& key = t[i].text;
            const std::string& val = t[i + 2].text;
            i += 3;
            if (!keys.insert(key).second) {
                error(line, format("header key '%s' given twice", key.c_str()));
                continue;
            }
            if (key == "reserved") {
                std::string_view hex = val;
                if (hex.size() >= 2 && hex[0] == '0' && (hex[1] == 'x' || hex[1] == 'X')) hex.remove_prefix(2);
                bool ok = hex.size() == 18;
                for (char c : hex) ok = ok && hex_value(c) >= 0;
                if (!ok) {
                    error(line, "reserved= needs exactly 18 hex digits (header bytes 4-7 and 11-15)");
                    continue;
                }
                for (int k = 0; k < 9; ++k)
                    reserved_[k] = static_cast<uint8_t>(hex_value(hex[2 * k]) * 16 + hex_value(hex[2 * k + 1]));
                continue;
            }
            int64_t v = 0;
            if (parse_number(val, v) != NumStatus::Ok) {
                error(line, format("bad number '%s' for header key '%s'", val.c_str(), key.c_str()));
                continue;
            }
            if (key == "bits") {
                if (v != 16 && v != 24 && v != 32) error(line, "bits= must be 16, 24 or 32");
                else bits = static_cast<int>(v);
            } else if (key == "mode") {
                if (v != 1 && v != 4 && v != 8) error(line, "mode= must be 1, 4 or 8");
                else mode = static_cast<int>(v);
            } else if (key == "pen") {
                if (v != 0 && v != 1) error(line, "pen= must be 0 or 1");
                else pen = static_cast<int>(v);
            } else if (key == "width" || key == "height") {
                if (v % 16 != 0 || v > 4080)
                    error(line, format("%s= must be a multiple of 16 from 0 to 4080", key.c_str()));
                else (key == "width" ? width_units_ : height_units_) = static_cast<uint8_t>(v / 16);
            } else if (key == "flags") {
                if (v > 255) error(line, "flags= must be a byte");
                else flags = static_cast<uint8_t>(v);
                have_flags = true;
            } else {
                error(line, format("unknown header key '%s'", key.c_str()));
            }
        }
        if (have_flags && (keys.count("bits") || keys.count("mode") || keys.count("pen"))) {
            error(line, "flags= cannot be combined with bits=, mode= or pen=");
            return;
        }
        if (!have_flags)
            flags = static_cast<uint8_t>(tvx_header::bits_flag(bits) | tvx_header::mode_flag(mode) |
                                         (pen ? tvx_header::kFlagPen : 0));
        flags_ = flags;
        ram_bits_ = tvx_header::ram_bits(flags);
    }

    void parse_instruction(const std::vector<Token>& t, size_t i, int line) {
        seen_code_ = true;
        const std::string& name = t[i].text;
        const auto op = op_lookup(name);
        if (!op) {
            error(line, format("unknown instruction '%s'", name.c_str()));
            return;
        }
        Stmt st;
        st.line = line;
        st.op = *op;
        if (!parse_items(t, i + 1, line, st.items)) return;
        const Operand kind = op_info[*op].operand;
        const size_t n = st.items.size();
        auto count_error = [&](const char* what) {
            error(line, format("%s takes %s", name.c_str(), what));
        };
        auto strings_ok = [&](size_t upto) {
            for (size_t k = 0; k < upto && k < n; ++k) {
                if (st.items[k].is_string) {
                    error(line, format("%s: operand %zu must be a number", name.c_str(), k + 1));
                    return false;
                }
            }
            return true;
        };
        uint64_t size = 1;
        switch (kind) {
            case Operand::None:
                if (n != 0) return count_error("no operands");
                break;
            case Operand::AddrByte:
                if (n != 2) return count_error("2 operands (frame size, argument count)");
                if (!strings_ok(2)) return;
                size += static_cast<uint64_t>(operand_size(kind, ram_bits_));
                break;
            case Operand::String: {
                if (n != 1 || !st.items[0].is_string) return count_error("one string literal");
                const auto& b = st.items[0].bytes;
                if (std::find(b.begin(), b.end(), 0) != b.end()) {
                    error(line, "push_string literal may not contain a zero byte");
                    return;
                }
                size += b.size() + 1;
                break;
            }
            case Operand::Preset: {
                if (n < 1) return count_error("an address and data items");
                if (!strings_ok(1)) return;
                uint64_t count = 0;
                for (size_t k = 1; k < n; ++k) count += st.items[k].is_string ? st.items[k].bytes.size() : 1;
                if (count > 0xFFFF) {
                    error(line, format("c_preset data is %llu bytes, at most 65535 fit",
                                       static_cast<unsigned long long>(count)));
                    return;
                }
                size += static_cast<uint64_t>(operand_size(Operand::Addr, ram_bits_)) + 2 + count;
                break;
            }
            default:
                if (n != 1) return count_error("1 operand");
                if (!strings_ok(1)) return;
                size += static_cast<uint64_t>(operand_size(kind, ram_bits_));
                break;
        }
        offset_ += size;
        stmts_.push_back(std::move(st));
    }

    // ---- evaluation and emission --------------------------------------

    std::optional<int64_t> resolve(const std::string& name, int line) {
        auto it = symbols_.find(name);
        if (it == symbols_.end()) {
            error(line, format("undefined name '%s'", name.c_str()));
            return std::nullopt;
        }
        Symbol& s = it->second;
        if (s.is_label) return s.value;
        switch (s.state) {
            case Symbol::State::Done: return s.value;
            case Symbol::State::Failed: return std::nullopt;
            case Symbol::State::Busy:
                error(s.line, format("'%s' is defined in terms of itself", name.c_str()));
                s.state = Symbol::State::Failed;
                return std::nullopt;
            case Symbol::State::Pending: break;
        }
        // A cycle finds the symbol Busy again, reports it and marks it Failed.
        s.state = Symbol::State::Busy;
        auto v = eval(s.expr, s.line);
        if (s.state == Symbol::State::Busy) {
            s.state = v ? Symbol::State::Done : Symbol::State::Failed;
            if (v) s.value = *v;
        }
        return s.state == Symbol::State::Done ? std::optional<int64_t>(s.value) : std::nullopt;
    }

    std::optional<int64_t> eval(const Expr& expr, int line) {
        int64_t sum = 0;
        bool ok = true;
        for (const Term& term : expr) {
            int64_t v = term.value;
            if (!term.name.empty()) {
                auto r = resolve(term.name, line);
                if (!r) {
                    ok = false;
                    continue;
                }
                v = *r;
            }
            sum += term.negative ? -v : v;
            if (sum > kValueLimit || sum < -kValueLimit) {
                error(line, "value is too large");
                return std::nullopt;
            }
        }
        if (!ok) return std::nullopt;
        return sum;
    }

    // Evaluates and range-checks; on failure reports and gives 0 so layout stays intact.
    uint32_t value(const Expr& expr, int line, int64_t lo, int64_t hi, const char* what) {
        auto v = eval(expr, line);
        if (!v) return 0;
        if (*v < lo || *v > hi) {
            error(line, format("value %lld out of range for %s (%lld..%lld)", static_cast<long long>(*v), what,
                               static_cast<long long>(lo), static_cast<long long>(hi)));
            return 0;
        }
        return static_cast<uint32_t>(*v);
    }

    void put(uint32_t v, int bytes) {
        for (int k = 0; k < bytes; ++k) out_.push_back(static_cast<uint8_t>(v >> (8 * k)));
    }

    void emit_all() {
        for (const std::string& name : equ_order_) resolve(name, symbols_.at(name).line);

        out_.assign(tvx_header::kSize, 0);
        out_[0] = 'T';
        out_[1] = 'V';
        out_[2] = 'X';
        out_[3] = tvx_header::kVersion;
        out_[8] = flags_;
        out_[9] = width_units_;
        out_[10] = height_units_;
        for (int k = 0; k < 9; ++k) out_[static_cast<size_t>(tvx_header::kReservedOffsets[k])] = reserved_[k];

        const int addr_bytes = operand_size(Operand::Addr, ram_bits_);
        const int64_t addr_max = addr_bytes == 2 ? 0xFFFF : 0xFFFFFF;
        uint8_t secret = 0;
        for (const Stmt& st : stmts_) {
            const int line = st.line;
            if (st.raw) {
                for (const Item& it : st.items) {
                    if (it.is_string) out_.insert(out_.end(), it.bytes.begin(), it.bytes.end());
                    else put(value(it.expr, line, -128, 255, "a byte"), 1);
                }
                continue;
            }
            out_.push_back(st.op);
            const auto& items = st.items;
            switch (op_info[st.op].operand) {
                case Operand::None: break;
                case Operand::Byte: {
                    const uint32_t v = value(items[0].expr, line, -128, 255, "a byte");
                    put(v, 1);
                    if (st.op == 0x43) secret = static_cast<uint8_t>(v);  // c_secret keys later literals
                    break;
                }
                case Operand::Imm16: put(value(items[0].expr, line, -32768, 65535, "a 16-bit operand"), 2); break;
                case Operand::Imm32:
                    put(value(items[0].expr, line, -2147483648LL, 4294967295LL, "a 32-bit operand"), 4);
                    break;
                case Operand::Addr: put(value(items[0].expr, line, 0, addr_max, "an address"), addr_bytes); break;
                case Operand::Target: put(value(items[0].expr, line, 0, 0xFFFFFF, "a target"), 3); break;
                case Operand::Mark24: put(value(items[0].expr, line, 0, 0xFFFFFF, "a 24-bit operand"), 3); break;
                case Operand::AddrByte:
                    put(value(items[0].expr, line, 0, addr_max, "a frame size"), addr_bytes);
                    put(value(items[1].expr, line, -128, 255, "an argument count"), 1);
                    break;
                case Operand::String:
                    for (uint8_t b : items[0].bytes) out_.push_back(static_cast<uint8_t>(b ^ secret));
                    out_.push_back(secret);
                    break;
                case Operand::Preset: {
                    put(value(items[0].expr, line, 0, addr_max, "an address"), addr_bytes);
                    const size_t count_at = out_.size();
                    put(0, 2);
                    for (size_t k = 1; k < items.size(); ++k) {
                        if (items[k].is_string) out_.insert(out_.end(), items[k].bytes.begin(), items[k].bytes.end());
                        else put(value(items[k].expr, line, -128, 255, "a byte"), 1);
                    }
                    const size_t count = out_.size() - count_at - 2;
                    out_[count_at] = static_cast<uint8_t>(count);
                    out_[count_at + 1] = static_cast<uint8_t>(count >> 8);
                    break;
                }
            }
        }
    }

    std::string_view file_;
    std::vector<AsmError> errors_;
    std::vector<Stmt> stmts_;
    std::unordered_map<std::string, Symbol> symbols_;
    std::vector<std::string> equ_order_;
    std::vector<uint8_t> out_;
    uint64_t offset_ = tvx_header::kSize;
    bool seen_code_ = false;
    bool header_seen_ = false;
    int ram_bits_ = 16;
    uint8_t flags_ = 0;
    uint8_t width_units_ = 0;
    uint8_t height_units_ = 0;
    uint8_t reserved_[9] = {};
};

}  // namespace

AsmResult assemble(std::string_view source, std::string_view file_name) {
    return Assembler(file_name).run(source);
}
