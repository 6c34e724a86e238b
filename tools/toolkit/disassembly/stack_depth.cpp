#include "disassembly/stack_depth.h"

#include "instructions/stack_effect.h"

namespace shadermachine::tools::disassembly {
namespace {

// Records that nobody validated may name what their tables lack.
bool namesExist(const Record& record, const ShaderFunction& function,
                const DecodedInstruction& instruction) {
  for (unsigned i = 0; i < kMaxOperands; ++i) {
    const uint32_t number = instruction.operands[i];
    const OperandKind kind = instruction.info().operands[i];
    if (kind == OperandKind::Local && number >= Record::locals(function).size()) return false;
    if (kind == OperandKind::Global && number >= record.globals().size()) return false;
    if (kind == OperandKind::StructType && record.members(number).empty()) return false;
  }
  return true;
}

}  // namespace

std::map<uint32_t, int64_t> stackDepths(const Record& record, const ShaderFunction& function,
                                        std::span<const uint8_t> code) {
  std::map<uint32_t, int64_t> depths = {{0, 0}};
  const auto size = static_cast<uint32_t>(code.size());
  DecodedInstruction instruction = {};
  for (; decodeInstruction(code.data(), instruction.end, size, instruction);) {
    // One pass in code order: a place that only a jump from further below reaches stays unknown.
    const auto known = depths.find(instruction.pc);
    if (known == depths.end() || !namesExist(record, function, instruction)) continue;
    const StackEffect effect = stackEffect(instruction, record.shader(), function);
    if (!effect.known) continue;
    const int64_t depth = known->second + effect.pushes - effect.pops;
    if (isJump(instruction.opcode)) depths.emplace(instruction.operands[0], depth);
    if (!endsFlow(instruction.opcode)) depths.emplace(instruction.end, depth);
  }
  return depths;
}

}  // namespace shadermachine::tools::disassembly
