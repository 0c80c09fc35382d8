// The character-class table and the calls that read it: the eleven class
// tests, tolower and toupper.
#include "lib/ctype.h"

#include <array>

#include "lib/syscalls.h"
#include "vm/machine.h"

namespace ctype_bits {
namespace {

struct Range {
    uint8_t first, last, bits;
};

// The classification by ranges; bytes not listed stay 0.
constexpr Range kRanges[] = {
    {0x00, 0x08, kControl},
    {0x09, 0x0D, kControl | kSpace},
    {0x0E, 0x1F, kControl},
    {0x20, 0x20, kSpace | kBlank},
    {0x21, 0x2F, kPunct},
    {0x30, 0x39, kDigit},
    {0x3A, 0x40, kPunct},
    {0x41, 0x46, kUpper | kHexLetter},
    {0x47, 0x5A, kUpper},
    {0x5B, 0x60, kPunct},
    {0x61, 0x66, kLower | kHexLetter},
    {0x67, 0x7A, kLower},
    {0x7B, 0x7E, kPunct},
    {0x7F, 0x7F, kControl},
    {0xA0, 0xA0, kSpace | kBlank},
    {0xA1, 0xBF, kPunct},
    {0xC0, 0xD6, kUpper},
    {0xD7, 0xD7, kPunct},
    {0xD8, 0xDE, kUpper},
    {0xDF, 0xF6, kLower},
    {0xF7, 0xF7, kPunct},
    {0xF8, 0xFF, kLower},
};

constexpr std::array<uint8_t, 256> build_table() {
    std::array<uint8_t, 256> t{};
    for (const Range& r : kRanges)
        for (unsigned ch = r.first; ch <= r.last; ++ch) t[ch] = r.bits;
    return t;
}

}  // namespace

constinit const std::array<uint8_t, 256> _ctype = build_table();

}  // namespace ctype_bits

using namespace ctype_bits;

namespace {

// Pops a character argument (its low byte) and pushes -1 when its class
// entry shares a bit with mask, else 0.
void class_test(Machine& m, uint8_t mask) {
    get_val(m);
    m.a1 = (_ctype[m.a1 & 0xFF] & mask) ? 0xFFFFFFFFu : 0u;
    put_val(m);
}

}  // namespace

void c_isupper(Machine& m) { class_test(m, kUpper); }
void c_islower(Machine& m) { class_test(m, kLower); }
void c_isdigit(Machine& m) { class_test(m, kDigit); }
void c_iscntrl(Machine& m) { class_test(m, kControl); }
void c_ispunct(Machine& m) { class_test(m, kPunct); }
void c_isspace(Machine& m) { class_test(m, kSpace); }
void c_isalpha(Machine& m) { class_test(m, kUpper | kLower); }
void c_isalnum(Machine& m) { class_test(m, kUpper | kLower | kDigit); }
void c_isxdigit(Machine& m) { class_test(m, kDigit | kHexLetter); }
void c_isgraph(Machine& m) { class_test(m, kUpper | kLower | kDigit | kPunct); }
// The blank bit makes 0x20 and 0xA0 printable.
void c_isprint(Machine& m) { class_test(m, kUpper | kLower | kDigit | kPunct | kBlank); }

// Case conversion follows the table, so the Latin-1 letters convert as well.
void c_tolower(Machine& m) {
    get_val(m);
    const uint8_t ch = static_cast<uint8_t>(m.a1);
    m.a1 = (_ctype[ch] & kUpper) ? static_cast<uint8_t>(ch + 32) : ch;
    put_val(m);
}

void c_toupper(Machine& m) {
    get_val(m);
    const uint8_t ch = static_cast<uint8_t>(m.a1);
    m.a1 = (_ctype[ch] & kLower) ? static_cast<uint8_t>(ch - 32) : ch;
    put_val(m);
}
