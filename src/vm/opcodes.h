// Opcode metadata: mnemonic and operand layout of every defined byte code,
// for the assembler, the disassembler and the tracer. Built from the same
// list as the interpreter's dispatch (vm/opcode_list.h).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

enum class Operand : uint8_t {
    None,      // no operand bytes
    Byte,      // one unsigned byte
    Imm16,     // two bytes, sign-extended
    Imm32,     // four bytes
    Addr,      // 2 bytes in 16-bit programs, else 3
    Target,    // 3-byte code offset from the image start
    Mark24,    // 3-byte number (source line / function id)
    String,    // literal bytes XOR secret, ended by a byte equal to secret
    AddrByte,  // addr then one byte (add_bp: frame size, argument count)
    Preset,    // addr, 2-byte count, count raw bytes
};

struct OpInfo {
    const char* name;  // nullptr: undefined byte code
    Operand operand;
};

// Indexed by the opcode byte. 0x00-0x74 instructions, 0x80-0xD6 system calls.
extern const std::array<OpInfo, 256> op_info;

// Mnemonic as the assembler and disassembler spell it; empty if undefined.
std::string_view op_mnemonic(uint8_t op);

// Opcode for a mnemonic, or nothing if unknown.
std::optional<uint8_t> op_lookup(std::string_view mnemonic);

// Number of operand bytes that follow the opcode for fixed-size operands;
// String and Preset are variable and return -1.
int operand_size(Operand k, int ram_bits);
