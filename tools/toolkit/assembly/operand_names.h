// What the operands of instructions are called, in messages and in the reference.
#pragma once

#include <string>

#include "instructions/opcode_info.h"

namespace shadermachine::tools {

struct OperandNames {
  const char* name;
  const char* meaning;
};

const OperandNames& operandNames(OperandKind kind);

constexpr bool isOperandList(OperandKind kind) {
  return kind == OperandKind::CountList || kind == OperandKind::Path;
}

// Whether operand `slot` is the length of the list behind it, which texts leave out.
constexpr bool isListLength(const OpcodeInfo& info, unsigned slot) {
  return slot + 1 < kMaxOperands && isOperandList(info.operands[slot + 1]);
}

// Widths and names of an instruction's operands: "u16 local, u16 length, i16... path".
std::string operandText(const OpcodeInfo& info);

}  // namespace shadermachine::tools
