#include "disassembly/instruction_text.h"

#include "assembly/literals.h"
#include "assembly/operand_names.h"
#include "assembly/path.h"
#include "instructions/lookup_form.h"
#include "instructions/opcode_info.h"

namespace shadermachine::tools::disassembly {
namespace {

// Opcode and offset.
constexpr uint32_t kJumpLength = 5;

uint32_t readBytes(std::span<const uint8_t> code, uint32_t offset, unsigned width) {
  uint32_t value = 0;
  for (unsigned i = 0; i < width; ++i) value |= uint32_t{code[offset + i]} << 8 * i;
  return value;
}

class InstructionWriter {
 public:
  InstructionWriter(const CodeContext& context, std::span<const uint8_t> code, uint32_t offset)
      : context_(context), code_(code), start_(offset), position_(offset + 1) {}

  std::string run() {
    const OpcodeInfo& info = kOpcodeTable[code_[start_]];
    text_ = info.mnemonic;
    for (unsigned slot = 0; slot < kMaxOperands; ++slot) {
      if (info.operands[slot] == OperandKind::None) break;
      if (isListLength(info, slot)) {
        listLength_ = fetch(operandWidth(info.operands[slot]));
      } else {
        writeOperand(info.operands[0], info.operands[slot]);
      }
    }
    return text_;
  }

 private:
  uint32_t fetch(unsigned width) {
    const uint32_t value = readBytes(code_, position_, width);
    position_ += width;
    return value;
  }

  void put(const std::string& operand) {
    text_ += hasOperand_ ? ", " : " ";
    text_ += operand;
    hasOperand_ = true;
  }

  void putNumber(int64_t number) { put(std::to_string(number)); }

  void writeOperand(OperandKind first, OperandKind kind) {
    using enum OperandKind;
    switch (kind) {
      case CountList:
        for (; listLength_ > 0; --listLength_) putNumber(fetch(1));
        return;
      case Path:
        return writePath(first);
      case SwizzleCount:
        return writeSwizzle();
      case Mask:
        return;  // written with the count
      default:
        return writeValue(kind, fetch(operandWidth(kind)));
    }
  }

  void writeValue(OperandKind kind, uint32_t value) {
    using enum OperandKind;
    switch (kind) {
      case Local:
        return put(context_.localHandles.text(previous_ = value));
      case Global:
        return put(context_.handles.globals.text(previous_ = value));
      case Function:
        return put(context_.handles.functions.text(value));
      case StructType:
        return put(context_.handles.structs.text(previous_ = value));
      case Member:
        return put(memberText(previous_, value));
      case ElementType:
        return put(typeText(context_.handles, static_cast<int16_t>(value),
                            context_.handles.structs.size()));
      case Jump:
        return put(jumpText(value));
      case Word:
        return put(assembly::formatWord(value));
      case Skip8:
      case Skip16:
        skipped_ = value;
        if (value != 0) putNumber(value);
        return;
      case LookupForm:
        return writeLookupForm(value);
      default:
        return putNumber(value);
    }
  }

  std::string memberText(size_t structure, uint32_t member) const {
    const std::vector<Handles>& members = context_.handles.members;
    return structure < members.size() ? members[structure].text(member) : std::to_string(member);
  }

  std::string jumpText(uint32_t offset) const {
    // The offset is the last operand, so `position_` is the following instruction, where it counts
    // from; both wrap as the machine's do.
    const auto label = context_.labels.find(position_ + offset);
    if (label != context_.labels.end()) return label->second;
    const auto distance = static_cast<int32_t>(offset);
    return (distance < 0 ? "" : "+") + std::to_string(distance);
  }

  void writeSwizzle() {
    const uint32_t count = fetch(1);
    const uint32_t mask = fetch(1);
    const std::string swizzle = assembly::formatSwizzle({count, mask});
    if (!swizzle.empty()) return put(swizzle);
    // Only a swizzle may follow an unused byte that is left out; a number would be taken for it.
    if (skipped_ == 0) putNumber(0);
    putNumber(count);
    putNumber(mask);
  }

  void writeLookupForm(uint32_t form) {
    // Other bits, which argument count and kind do not say, need the whole number.
    const uint32_t arguments = lookupArguments(form), kind = lookupKind(form);
    if (form != lookupForm(arguments, kind)) return putNumber(form);
    putNumber(arguments);
    putNumber(kind);
  }

  const VarInfo* pathVariable(OperandKind first) const {
    const std::span<const VarInfo> variables =
        first == OperandKind::Local ? context_.locals : context_.record.globals();
    return previous_ < variables.size() ? &variables[previous_] : nullptr;
  }

  void writePath(OperandKind first) {
    assembly::PathWalk walk(pathVariable(first),
                            [this](size_t structure, size_t member) -> const VarInfo* {
                              const auto members = context_.record.members(structure);
                              return member < members.size() ? &members[member] : nullptr;
                            });
    for (; listLength_ > 0; --listLength_) {
      const auto step = static_cast<int16_t>(fetch(2));
      writeStep(walk, step);
      walk.step(step);
    }
  }

  void writeStep(const assembly::PathWalk& walk, int16_t step) {
    if (step < 0) {
      const auto pattern = static_cast<unsigned>(-static_cast<int>(step));
      const std::string swizzle = assembly::formatSwizzle({pattern >> 8, pattern & 0xFF});
      return swizzle.empty() ? putNumber(step) : put(swizzle);
    }
    const auto structure = walk.structure();
    if (!structure) return putNumber(step);
    put(memberText(*structure, static_cast<uint32_t>(step)));
  }

  const CodeContext& context_;
  std::span<const uint8_t> code_;
  uint32_t start_;
  uint32_t position_;
  uint32_t listLength_ = 0;
  uint32_t previous_ = 0;  // number of the variable or structure that the operands refer to
  uint32_t skipped_ = 0;
  bool hasOperand_ = false;
  std::string text_;
};

}  // namespace

std::string instructionText(const CodeContext& context, std::span<const uint8_t> code,
                            uint32_t offset) {
  return InstructionWriter(context, code, offset).run();
}

uint32_t jumpTarget(std::span<const uint8_t> code, uint32_t offset) {
  return offset + kJumpLength + readBytes(code, offset + 1, 4);
}

bool isJump(uint8_t opcode) {
  return opcode < kOpcodeCount && kOpcodeTable[opcode].operands[0] == OperandKind::Jump;
}

}  // namespace shadermachine::tools::disassembly
