// The instructions that apply a kernel, grouped by how they take their operands.
#pragma once

#include <shadermachine/opcodes.h>

#include <array>
#include <string_view>

#include "instructions/opcode_info.h"

namespace shadermachine::fuzz {

// Named as in the opcode table; `other` is everything that is not a kernel.
enum class Shape : uint8_t {
  other,
  unary,
  binary,
  binaryVS,
  binarySV,
  ternary,
  ternaryVSS,
  ternaryVVS,
  ternarySSV,
  scalarUnary,
  scalarBinary,
  allOf,
  anyOf,
};

struct OpcodeGroup {
  VmOpcode opcode;
  Shape shape;
  std::string_view kernel;

  bool isCompare() const {
    return kernel.starts_with("Less") || kernel.starts_with("Greater") ||
           kernel.starts_with("Equal") || kernel.starts_with("NotEqual");
  }
  bool readsFloats() const { return kernel.ends_with("F") || kernel.starts_with("FloatTo"); }
  bool givesFloats() const {
    return (kernel.ends_with("F") && !isCompare()) || kernel.ends_with("ToFloat");
  }
  // Components at most; 0 for scalar instructions.
  unsigned countLimit() const {
    return operandLimit(opcodeInfo(static_cast<Opcode>(opcode)).operands[0]);
  }
};

inline constexpr OpcodeGroup kOpcodeGroups[] = {
#define HANDLER(function) Shape::other, ""
#define KERNEL(shape, kernel) Shape::shape, #kernel
#define OPCODE(number, mnemonic, handler, ...) {VM_OP_##mnemonic, handler},
#include "instructions/opcodes.def"
#undef OPCODE
#undef KERNEL
#undef HANDLER
};

}  // namespace shadermachine::fuzz
