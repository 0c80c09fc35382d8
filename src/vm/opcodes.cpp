#include "vm/opcodes.h"

#include "vm/opcode_list.h"

namespace {

constexpr std::array<OpInfo, 256> build_table() {
    std::array<OpInfo, 256> t{};
    for (auto& e : t) e = {nullptr, Operand::None};
#define TVM_OP_INFO(code, mnemonic, operand, handler) t[code] = {#mnemonic, Operand::operand};
    TVM_OPCODES(TVM_OP_INFO)
#undef TVM_OP_INFO
    return t;
}

}  // namespace

const std::array<OpInfo, 256> op_info = build_table();

static_assert(build_table()[0xD6].name != nullptr && build_table()[0xD7].name == nullptr,
              "87 system calls end at 0xD6");

std::string_view op_mnemonic(uint8_t op) {
    const char* n = op_info[op].name;
    return n ? std::string_view(n) : std::string_view();
}

std::optional<uint8_t> op_lookup(std::string_view mnemonic) {
    for (int op = 0; op < 256; ++op)
        if (op_info[op].name && op_info[op].name == mnemonic) return static_cast<uint8_t>(op);
    return std::nullopt;
}

int operand_size(Operand k, int ram_bits) {
    const int addr = ram_bits > 16 ? 3 : 2;
    switch (k) {
        case Operand::None: return 0;
        case Operand::Byte: return 1;
        case Operand::Imm16: return 2;
        case Operand::Imm32: return 4;
        case Operand::Addr: return addr;
        case Operand::Target:
        case Operand::Mark24: return 3;
        case Operand::AddrByte: return addr + 1;
        case Operand::String:
        case Operand::Preset: return -1;
    }
    return -1;
}
