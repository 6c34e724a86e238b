// One instruction with its operands taken apart, as the opcode table describes them. Nobody else
// reads operand bytes by offset, but for the handlers, which fetch them one after another.
#pragma once

#include "instructions/opcode_info.h"

namespace shadermachine {

struct DecodedInstruction {
  uint32_t pc;   // of the opcode byte, from the function's first
  uint32_t end;  // pc of the following instruction
  Opcode opcode;
  // By position, zero-extended. A Jump is the pc it leads to; a list has no value here.
  std::array<uint32_t, kMaxOperands> operands;
  const uint8_t* list;  // entries of the CountList or Path, unaligned; null without one

  const OpcodeInfo& info() const { return opcodeInfo(opcode); }
  uint8_t listedCount(uint32_t i) const { return list[i]; }
  int16_t listedIndex(uint32_t i) const {
    return static_cast<int16_t>(list[2 * i] | list[2 * i + 1] << 8);
  }
};

// Decodes the instruction at code[pc]; false when it does not end before code[length].
bool decodeInstruction(const uint8_t* code, uint32_t pc, uint32_t length,
                       DecodedInstruction& instruction);

constexpr bool isJump(Opcode opcode) {
  return opcode == Opcode::JUMP || opcode == Opcode::JUMP_IF_FALSE;
}

constexpr bool isReturn(Opcode opcode) {
  return opcode == Opcode::RETURN || opcode == Opcode::RETURN_VALUE ||
         opcode == Opcode::RETURN_VALUE_2;
}

// True when control never reaches the following instruction.
constexpr bool endsFlow(Opcode opcode) {
  return opcode == Opcode::JUMP || isReturn(opcode) || opcode == Opcode::DISCARD ||
         opcode == Opcode::HALT;
}

}  // namespace shadermachine
