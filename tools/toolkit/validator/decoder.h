// Concern: a function's bytes are instructions, jumps land on instructions, and operands stay
// within the limits and tables they refer to.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "diagnostics.h"
#include "instructions/opcode_info.h"

namespace shadermachine::tools {

inline constexpr uint32_t kNoTarget = UINT32_MAX;

struct Instruction {
  uint32_t offset = 0;  // in the function's code
  uint32_t length = 0;
  Opcode opcode = Opcode::NOP;
  bool isSound = true;          // false when an operand is beyond its limit or table
  uint32_t target = kNoTarget;  // of a jump: index of the instruction
  std::array<uint32_t, kMaxOperands> operands = {};  // zero-extended; a list has no value here
  const uint8_t* list = nullptr;                     // entries of the list, unaligned

  const OpcodeInfo& info() const { return opcodeInfo(opcode); }
  uint8_t listedCount(uint32_t i) const { return list[i]; }
  int16_t listedIndex(uint32_t i) const {
    return static_cast<int16_t>(list[2 * i] | list[2 * i + 1] << 8);
  }
};

struct DecodedFunction {
  std::vector<Instruction> instructions;  // up to the first undecodable byte
  std::vector<bool> isJumpTarget;         // per instruction
  bool isComplete = true;                 // false when decoding stopped early
};

// The function must be one with code inside the view.
DecodedFunction decodeFunction(const ShaderView& view, uint32_t function, Diagnostics& diagnostics);

}  // namespace shadermachine::tools
