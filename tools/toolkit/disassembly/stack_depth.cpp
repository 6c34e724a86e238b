#include "disassembly/stack_depth.h"

#include <shadermachine-tools/host_contract.h>

#include <optional>

#include "disassembly/instruction_text.h"
#include "instructions/opcode_info.h"

namespace shadermachine::tools::disassembly {
namespace {

uint32_t word16(std::span<const uint8_t> code, uint32_t offset) {
  return uint32_t{code[offset]} | uint32_t{code[offset + 1]} << 8;
}

// Slots gained by an instruction whose operands decide.
std::optional<int64_t> variableGain(const Record& record, std::span<const uint8_t> code,
                                    uint32_t offset) {
  switch (static_cast<Opcode>(code[offset])) {
    case Opcode::POP_N:
      return -int64_t{code[offset + 1]};
    case Opcode::STORE_LOCAL_ELEM:
    case Opcode::STORE_GLOBAL_ELEM:
      return -1 - int64_t{word16(code, offset + 3)};
    case Opcode::CTOR_STRUCT:
      return 1 - static_cast<int64_t>(record.members(word16(code, offset + 1)).size());
    case Opcode::CTOR_ARRAY:
      return 1 - int64_t{word16(code, offset + 3)};
    case Opcode::CALL_BUILTIN: {
      const BuiltinFunction* function = findBuiltinFunction(word16(code, offset + 1));
      return function ? std::optional(-int64_t{function->pops}) : std::nullopt;
    }
    case Opcode::HOST_LOOKUP_1:
    case Opcode::HOST_LOOKUP_2: {
      const int64_t arguments = code[offset + 1] >> 5 & 3;
      return arguments < 2 ? 0 : 1 - arguments;
    }
    default: {  // the vector and matrix constructors
      const int64_t operands = word16(code, offset + 1);
      return operands == 0 ? 0 : 1 - operands;
    }
  }
}

std::optional<int64_t> gain(const Record& record, std::span<const uint8_t> code, uint32_t offset) {
  const OpcodeInfo& info = kOpcodeTable[code[offset]];
  if (info.pops != kVaries && info.pushes != kVaries) return info.pushes - info.pops;
  return variableGain(record, code, offset);
}

bool endsFlow(Opcode opcode) {
  switch (opcode) {
    case Opcode::JUMP:
    case Opcode::RETURN:
    case Opcode::RETURN_VALUE:
    case Opcode::RETURN_VALUE_2:
    case Opcode::DISCARD:
    case Opcode::HALT:
      return true;
    default:
      return false;
  }
}

}  // namespace

std::map<uint32_t, int64_t> stackDepths(const Record& record, std::span<const uint8_t> code) {
  std::map<uint32_t, int64_t> depths = {{0, 0}};
  uint32_t offset = 0;
  const auto size = static_cast<uint32_t>(code.size());
  while (offset < size) {
    const uint32_t length = instructionLength(code.data() + offset, size - offset);
    if (length == 0) break;
    const auto known = depths.find(offset);
    if (known != depths.end()) {
      const auto change = gain(record, code, offset);
      if (change && isJump(code[offset])) {
        depths.emplace(jumpTarget(code, offset), known->second + *change);
      }
      if (change && !endsFlow(static_cast<Opcode>(code[offset]))) {
        depths.emplace(offset + length, known->second + *change);
      }
    }
    offset += length;
  }
  return depths;
}

}  // namespace shadermachine::tools::disassembly
