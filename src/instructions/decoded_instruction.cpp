#include "instructions/decoded_instruction.h"

namespace shadermachine {
namespace {

uint32_t littleEndian(const uint8_t* bytes, unsigned width) {
  uint32_t value = 0;
  for (unsigned i = 0; i < width; ++i) value |= uint32_t{bytes[i]} << (8 * i);
  return value;
}

}  // namespace

bool decodeInstruction(const uint8_t* code, uint32_t pc, uint32_t length,
                       DecodedInstruction& instruction) {
  const uint32_t size = pc < length ? instructionLength(code + pc, length - pc) : 0;
  if (size == 0) return false;
  instruction = {pc, pc + size, static_cast<Opcode>(code[pc]), {}, nullptr};
  const uint8_t* at = code + pc + 1;
  const OpcodeInfo& info = instruction.info();
  for (unsigned i = 0; i < kMaxOperands && info.operands[i] != OperandKind::None; ++i) {
    const OperandKind kind = info.operands[i];
    if (isList(kind)) {
      instruction.list = at;  // always the last operand
      break;
    }
    instruction.operands[i] = littleEndian(at, operandWidth(kind));
    if (kind == OperandKind::Jump) instruction.operands[i] += instruction.end;
    at += operandWidth(kind);
  }
  return true;
}

}  // namespace shadermachine
