// Concern: a function's bytes are instructions, jumps land on instructions, and operands stay
// within the limits and tables they refer to.
#pragma once

#include <cstdint>
#include <vector>

#include "diagnostics.h"
#include "instructions/decoded_instruction.h"

namespace shadermachine::tools {

inline constexpr uint32_t kNoTarget = UINT32_MAX;

struct Instruction : DecodedInstruction {
  bool isSound = true;          // false when an operand is beyond its limit or table
  uint32_t target = kNoTarget;  // of a jump: index of the instruction

  uint32_t length() const { return end - pc; }
};

struct DecodedFunction {
  std::vector<Instruction> instructions;  // up to the first undecodable byte
  std::vector<bool> isJumpTarget;         // per instruction
  bool isComplete = true;                 // false when decoding stopped early
};

// The function must be one with code inside the view.
DecodedFunction decodeFunction(const ShaderView& view, uint32_t function, Diagnostics& diagnostics);

}  // namespace shadermachine::tools
