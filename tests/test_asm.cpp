// Assembler and disassembler: encodings, diagnostics and listings.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/asm/asm.h"
#include "base/opcodes.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Assembles and returns the bytes after the 16-byte header; fails the test on errors.
Bytes code_of(const std::string& src) {
    const AsmResult r = assemble(src, "t.tvs");
    for (const AsmError& e : r.errors) ADD_FAILURE() << e.file << ":" << e.line << ": " << e.message;
    if (r.bytes.size() < 16) return {};
    return Bytes(r.bytes.begin() + 16, r.bytes.end());
}

std::vector<AsmError> errors_of(const std::string& src) { return assemble(src, "bad.tvs").errors; }

TEST(AsmEncoding, OperandKindsIn24And32BitPrograms) {
    const std::string body =
        "push_char 255\npush_char -1\npush_int -2\npush_int 0xBEEF\npush_long -2\n"
        "push_vint 0x1234\nc_jmp 0x123456\nc_debug 70000\nadd_bp 0x20, 3\nc_secret 'Z'\n"
        "push_along2 5\npush_lalong2 6\nc_putchar\n";
    // The 16-bit forms run in the unit and program tests. In a 24-bit
    // program only address operands widen; targets and marks stay 3 bytes.
    const Bytes b24 = code_of(".tvx bits=24\n" + body);
    const Bytes e24 = {0x01, 0xFF, 0x01, 0xFF, 0x02, 0xFE, 0xFF, 0x02, 0xEF, 0xBE, 0x03, 0xFE, 0xFF, 0xFF, 0xFF,
                       0x05, 0x34, 0x12, 0x00, 0x3B, 0x56, 0x34, 0x12, 0x73, 0x70, 0x11, 0x01, 0x3E, 0x20, 0x00,
                       0x00, 0x03, 0x43, 0x5A, 0x17, 0x05, 0x00, 0x00, 0x18, 0x06, 0x00, 0x00, 0x80};
    EXPECT_EQ(b24, e24);
    EXPECT_EQ(code_of(".tvx bits=24\nset_sp 0xABCDEF\n"), (Bytes{0x3C, 0xEF, 0xCD, 0xAB}));
    // flags= derives the width like the loader: 0x90 is a 32-bit program.
    EXPECT_EQ(code_of(".tvx flags=0x90\npush_vchar 1\n"), (Bytes{0x04, 0x01, 0x00, 0x00}));
}

// Sources and the code bytes they give: string literals keyed by the secret
// (0 before any c_secret, which may name a constant defined later; .byte and
// c_preset data are never keyed), number and literal forms, labels and
// constants.
TEST(AsmEncoding, LiteralsLabelsAndConstants) {
    const struct { std::string src; Bytes want; } cases[] = {
        {"c_secret 0x5A\npush_string \"He\"\n", {0x43, 0x5A, 0x0D, 0x12, 0x3F, 0x5A}},
        {"push_string \"a\\n\\x01\"\nc_secret KEY\npush_string \"\"\n.equ KEY, 0x21\n",
         {0x0D, 'a', '\n', 0x01, 0x00, 0x43, 0x21, 0x0D, 0x21}},
        {"c_secret 7\n.byte \"A\", 'B', -1\n", {0x43, 7, 'A', 'B', 0xFF}},
        {"c_secret 7\nc_preset 0x2000, \"\\\"\\\\\\0\", 9\nc_preset 0x10\n",
         {0x43, 7, 0x41, 0x00, 0x20, 4, 0, '"', '\\', 0, 9, 0x41, 0x10, 0x00, 0, 0}},
        {"push_char '\\x41'\r\n\tpush_char '\\\\' ; tab, CRLF\r\npush_char ';' ; quoted ; is no comment\n"
         "push_int -0x8000\npush_long 0XFFFFFFFF\npush_long -2147483648\n.byte \"\\t\\r\\\";\", 0x7f, '\\''\n",
         {0x01, 0x41, 0x01, 0x5C, 0x01, ';', 0x02, 0x00, 0x80, 0x03, 0xFF, 0xFF, 0xFF, 0xFF, 0x03, 0x00,
          0x00, 0x00, 0x80, 0x09, 0x0D, '"', ';', 0x7F, '\''}},
        {".equ BASE, 0x2000\nstart: c_jmp end      ; forward\nloop:\n  push_vint BASE+2\n  c_jmpn loop ; backward\n"
         "end: c_call start\n.equ SIZE, end - start\n  push_int SIZE\n",
         {0x3B, 0x1B, 0x00, 0x00, 0x05, 0x02, 0x20, 0x3A, 0x14, 0x00, 0x00, 0x3D, 0x10, 0x00, 0x00, 0x02, 11, 0}},
    };
    for (const auto& k : cases) EXPECT_EQ(code_of(k.src), k.want) << k.src;
}

TEST(AsmHeader, Fields) {
    const AsmResult d = assemble("", "e.tvs");
    EXPECT_EQ(d.bytes, (Bytes{'T', 'V', 'X', 0x12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    const AsmResult h =
        assemble("; comment\n.tvx bits=32 mode=8 pen=1 width=320 height=240 reserved=0102030405060708AB\n", "h.tvs");
    EXPECT_EQ(h.bytes, (Bytes{'T', 'V', 'X', 0x12, 1, 2, 3, 4, 0x71, 20, 15, 5, 6, 7, 8, 0xAB}));
    EXPECT_EQ(assemble(".tvx bits=24 mode=4\n", "h.tvs").bytes[8], 0xC0);
}

TEST(AsmErrors, ReportFileAndLineForEveryError) {
    const auto errs = errors_of(
        "push_int 1\n"
        "bogus 3\n"                  // 2 unknown mnemonic
        "push_char 256\n"            // 3 out of range
        "push_int 1, 2\n"            // 4 operand count
        "c_jmp nowhere\n"            // 5 undefined label
        "x: pop_val\n"
        "x: pop_val\n"               // 7 duplicate
        "push_string \"a\\q\"\n"     // 8 bad escape
        "push_string \"abc\n"        // 9 unterminated
        ".tvx bits=24\n");           // 10 header after code
    std::vector<int> lines;
    for (const AsmError& e : errs) {
        EXPECT_EQ(e.file, "bad.tvs");
        lines.push_back(e.line);
    }
    EXPECT_EQ(lines, (std::vector<int>{2, 3, 4, 5, 7, 8, 9, 10}));
}

TEST(AsmErrors, RejectedInputs) {
    const char* const bad[] = {
        "push_int 65536",          "push_int -32769",           "push_long 4294967296",
        "push_vint 0x10000",       "c_jmp 0x1000000",           "push_vint -1",
        "push_string \"a\\0b\"",   "push_string 5",             "push_char \"a\"",
        "push_char",               "sub_bp 1",                  "add_bp 1",
        ".byte",                   ".byte 256",                 "push_char 'ab'",
        "push_char ''",            "push_string \"\\x4\"",      "push_string \"\xC4\xE3\"",
        ".tvx bits=20",            ".tvx mode=2",               ".tvx width=100",
        ".tvx width=4096",         ".tvx flags=0x10 bits=32",   ".tvx reserved=0102",
        ".tvx size=1",             ".tvx\n.tvx",                ".equ A, B\n.equ B, A\npush_int A",
        ".foo 1",                  "push_int 1 2",              "push_char 12ab",
        "1abc: pop_val",           "push_int #",                "push_int 99999999999999999999",
    };
    for (const char* src : bad) EXPECT_FALSE(errors_of(src).empty()) << src;
    const auto cyc = errors_of(".equ A, B\n.equ B, A\npush_int A\n");
    ASSERT_EQ(cyc.size(), 1u);  // one report for the cycle, none repeated at the use
    EXPECT_EQ(cyc[0].line, 1);
}

// The round trip on arbitrary files is the dis fuzz target's (its regression
// inputs run as fuzz.dis).
TEST(AsmDisassembler, Listing) {
    const Bytes f = {'T', 'V', 'X', 0x12, 0, 0, 0, 0, 0x61, 10, 5, 0, 0, 0, 0, 0x01,
                     0x43, 0x5A, 0x0D, 0x12, 0x3F, 0x5A,  // c_secret; push_string "He"
                     0x3B, 0x10, 0x00, 0x00,              // c_jmp to offset 16
                     0x3A, 0x11, 0x00, 0x00,              // c_jmpn into the middle of c_secret
                     0x75,                                // undefined opcode
                     0x02, 0x01};                         // push_int cut short
    std::string err = "x";
    const std::string text = disassemble(f, &err);
    EXPECT_TRUE(err.empty());
    EXPECT_EQ(text,
              ".tvx bits=16 mode=8 pen=1 width=160 height=80 reserved=000000000000000001\n"
              "L0010:\n"
              "    c_secret 90\n"
              "    push_string \"He\"\n"
              "    c_jmp L0010\n"
              "    c_jmpn 0x000011\n"
              "    .byte 0x75, 0x02, 0x01\n");

    EXPECT_EQ(disassemble(Bytes{'T', 'V', 'X', 0x12, 0, 0, 0, 0, 0x20, 0, 0, 0, 0, 0, 0, 0}, nullptr),
              ".tvx flags=0x20 width=0 height=0\n");
    for (const Bytes& bad : {Bytes{'T', 'V', 'X', 0x12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
                             Bytes{'T', 'V', 'X', 0x13, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}}) {
        err.clear();
        EXPECT_EQ(disassemble(bad, &err), "");
        EXPECT_FALSE(err.empty());
    }
}

}  // namespace
