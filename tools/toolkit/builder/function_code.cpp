// The half of FunctionBuilder that writes code.
#include <shadermachine-tools/shader_builder.h>

#include <bit>
#include <stdexcept>

#include "assembly/literals.h"
#include "assembly/operand_names.h"
#include "instructions/opcode_info.h"

namespace shadermachine::tools {
namespace {

constexpr uint32_t kUnbound = UINT32_MAX;
constexpr size_t kMaxListLength = 65535;

}  // namespace

uint8_t swizzleMask(std::string_view components) {
  const auto swizzle = assembly::parseSwizzle(components);
  if (!swizzle) throw std::invalid_argument("no swizzle: " + std::string(components));
  return static_cast<uint8_t>(swizzle->mask);
}

int16_t swizzleStep(std::string_view components) {
  const unsigned mask = swizzleMask(components);
  return static_cast<int16_t>(-static_cast<int>(components.size() << 8 | mask));
}

Label FunctionBuilder::newLabel() {
  labels_.push_back(kUnbound);
  return {static_cast<uint32_t>(labels_.size() - 1)};
}

void FunctionBuilder::bind(Label label) { labels_.at(label.index) = size(); }

void FunctionBuilder::emitJump(VmOpcode opcode, Label target) {
  emit(opcode, {0});
  // The offset is the only operand of a jump, and so the last four bytes.
  fixups_.push_back({size() - 4, target});
}

void FunctionBuilder::appendValue(int64_t value, unsigned width) {
  for (unsigned byte = 0; byte < width; ++byte) {
    code_.push_back(static_cast<uint8_t>(static_cast<uint64_t>(value) >> 8 * byte));
  }
}

void FunctionBuilder::noteRow() {
  // Every caller appends at least a byte behind it, so that no two rows get the same offset.
  std::vector<SourceRow>& rows = source_.rows;
  const SourcePosition before = rows.empty() ? SourcePosition() : rows.back().position;
  if (before == position_ && !beginsStatement_) return;
  rows.push_back({size(), position_, beginsStatement_});
  beginsStatement_ = false;
}

void FunctionBuilder::emit(VmOpcode opcode, std::span<const int64_t> operands) {
  noteRow();
  const OpcodeInfo& info = kOpcodeTable.at(opcode);
  code_.push_back(static_cast<uint8_t>(opcode));
  size_t next = 0;
  for (unsigned slot = 0; slot < kMaxOperands && info.operands[slot] != OperandKind::None; ++slot) {
    const OperandKind kind = info.operands[slot];
    const unsigned width = operandWidth(kind);
    if (isListLength(info, slot)) {
      const size_t length = operands.size() - next;
      if (length > kMaxListLength) throw std::length_error("operand list too long");
      appendValue(static_cast<int64_t>(length), width);
    } else if (isOperandList(kind)) {
      while (next < operands.size()) appendValue(operands[next++], width);
    } else if (next < operands.size()) {
      appendValue(operands[next++], width);
    } else {
      throw std::invalid_argument(std::string("too few operands for ") + info.mnemonic);
    }
  }
  if (next != operands.size()) {
    throw std::invalid_argument(std::string("too many operands for ") + info.mnemonic);
  }
}

void FunctionBuilder::emitBytes(std::span<const uint8_t> bytes) {
  if (!bytes.empty()) noteRow();
  code_.insert(code_.end(), bytes.begin(), bytes.end());
}

void FunctionBuilder::pushFloat(float value) {
  // By bits: -0 equals 0 and is another word.
  const auto word = std::bit_cast<uint32_t>(value);
  if (word == std::bit_cast<uint32_t>(0.0f)) {
    emit(VM_OP_PUSH_0_F);
  } else if (word == std::bit_cast<uint32_t>(1.0f)) {
    emit(VM_OP_PUSH_1_F);
  } else {
    emit(VM_OP_PUSH_U32, {word});
  }
}

void FunctionBuilder::pushInt(int32_t value) {
  if (value >= 0 && value <= 9) {
    emit(static_cast<VmOpcode>(VM_OP_PUSH_0 + value));
  } else if (value >= 0 && value <= 255) {
    emit(VM_OP_PUSH_U8, {value});
  } else {
    emit(VM_OP_PUSH_U32, {value});
  }
}

void FunctionBuilder::storeElement(VmOpcode opcode, uint16_t variable,
                                   std::initializer_list<int64_t> path) {
  std::vector<int64_t> operands{variable};
  operands.insert(operands.end(), path);
  emit(opcode, operands);
}

void FunctionBuilder::storeElement(LocalId variable, std::initializer_list<int64_t> path) {
  storeElement(VM_OP_STORE_LOCAL_ELEM_IMM, variable.index, path);
}

void FunctionBuilder::storeElement(GlobalId variable, std::initializer_list<int64_t> path) {
  storeElement(VM_OP_STORE_GLOBAL_ELEM_IMM, variable.index, path);
}

void FunctionBuilder::swizzle(std::string_view components) {
  emit(VM_OP_SWIZZLE, {0, static_cast<int64_t>(components.size()), swizzleMask(components)});
}

void FunctionBuilder::resolveJumps() {
  for (const Fixup& fixup : fixups_) {
    const uint32_t target = labels_.at(fixup.target.index);
    if (target == kUnbound) throw std::logic_error("unbound label in function " + name_);
    // Modulo 2^32, which is how a jump goes back.
    const uint32_t offset = target - (fixup.position + 4);
    for (unsigned byte = 0; byte < 4; ++byte) {
      code_[fixup.position + byte] = static_cast<uint8_t>(offset >> 8 * byte);
    }
  }
  // Code may be placed more than once.
  fixups_.clear();
}

}  // namespace shadermachine::tools
