// One instruction as text.
#pragma once

#include <map>
#include <span>
#include <string>

#include "disassembly/names.h"
#include "disassembly/record.h"

namespace shadermachine::tools::disassembly {

using LabelMap = std::map<uint32_t, std::string>;  // by offset in the function

// What the operands of a function's instructions refer to.
struct CodeContext {
  const Record& record;
  const RecordHandles& handles;
  std::span<const VarInfo> locals;
  const Handles& localHandles;
  const LabelMap& labels;
};

// The instruction at `offset`, which must lie whole within the code.
std::string instructionText(const CodeContext& context, std::span<const uint8_t> code,
                            uint32_t offset);

// Where a jump at `offset` leads.
uint32_t jumpTarget(std::span<const uint8_t> code, uint32_t offset);
bool isJump(uint8_t opcode);

}  // namespace shadermachine::tools::disassembly
