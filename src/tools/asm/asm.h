// Assembler and disassembler for .tvx bytecode (text syntax in README.md).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct AsmError {
    std::string file;
    int line = 0;
    std::string message;
};

struct AsmResult {
    std::vector<uint8_t> bytes;   // the whole .tvx file, header included
    std::vector<AsmError> errors; // empty on success
};

// Assembles source text; file_name is used in error messages only.
AsmResult assemble(std::string_view source, std::string_view file_name);

// Lists a .tvx file in assembler syntax such that assemble() of the text
// gives back the same bytes. Sets *error and returns "" when the data is not
// a .tvx file (shorter than 16 bytes, wrong magic or version).
std::string disassemble(const std::vector<uint8_t>& file, std::string* error);

// Appends the n bytes at p, each XOR xor_key, as a quoted assembler string
// with the escapes tvxasm reads.
void append_literal(std::string& out, const uint8_t* p, size_t n, uint8_t xor_key);
