// System call handlers, opcodes 0x80-0xD6 (listed in vm/opcode_list.h). Each
// pops its own arguments from the evaluation stack and pushes at most one
// result.
#pragma once

#include "vm/opcode_list.h"

struct Machine;

#define TVM_DECLARE_CALL(code, mnemonic, operand, fn) void fn(Machine& m);
TVM_SYSTEM_CALL_OPCODES(TVM_DECLARE_CALL)
#undef TVM_DECLARE_CALL
