// The instructions that apply a kernel, with what their kernels say of them.
#pragma once

#include <shadermachine/opcodes.h>

#include <string_view>

#include "instructions/operand_shapes.h"

namespace shadermachine::fuzz {

struct OpcodeGroup {
  VmOpcode opcode;
  std::string_view kernel;  // empty for an instruction that applies none

  const OperandShape& shape() const { return operandShape(static_cast<Opcode>(opcode)); }
  bool givesOneWord() const { return shape().out == WordCount::One; }

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
#define HANDLER(function) ""
#define KERNEL(shape, kernel) #kernel
#define OPCODE(number, mnemonic, handler, ...) {VM_OP_##mnemonic, handler},
#include "instructions/opcodes.def"
#undef OPCODE
#undef KERNEL
#undef HANDLER
};

}  // namespace shadermachine::fuzz
