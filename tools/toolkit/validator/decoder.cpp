#include "decoder.h"

#include <algorithm>

namespace shadermachine::tools {
namespace {

constexpr bool isList(OperandKind kind) {
  return kind == OperandKind::CountList || kind == OperandKind::Path;
}

uint32_t littleEndian(const uint8_t* bytes, uint32_t width) {
  uint32_t value = 0;
  for (uint32_t i = 0; i < width; ++i) value |= uint32_t{bytes[i]} << (8 * i);
  return value;
}

class FunctionDecoder {
 public:
  FunctionDecoder(const ShaderView& view, uint32_t index, Diagnostics& diagnostics)
      : view_(view),
        shader_(*view.shader),
        index_(index),
        function_(*shader_.functions[index]),
        diagnostics_(diagnostics) {}

  DecodedFunction run() {
    decodeAll();
    for (Instruction& instruction : decoded_.instructions) checkOperands(instruction);
    decoded_.isJumpTarget.resize(decoded_.instructions.size());
    for (Instruction& instruction : decoded_.instructions) resolveJump(instruction);
    return std::move(decoded_);
  }

 private:
  template <class... Parts>
  void error(uint32_t offset, const char* mnemonic, const Parts&... parts) {
    diagnostics_.error({static_cast<int32_t>(index_), offset, mnemonic}, parts...);
  }

  void decodeAll() {
    const uint8_t* code = shader_.code + function_.codeOffset;
    uint32_t offset = 0;
    while (offset < function_.codeLength) {
      const uint32_t length = instructionLength(code + offset, function_.codeLength - offset);
      if (length == 0) return reportUndecodable(code[offset], offset);
      decoded_.instructions.push_back(decode(code + offset, offset, length));
      offset += length;
    }
  }

  void reportUndecodable(uint8_t byte, uint32_t offset) {
    decoded_.isComplete = false;
    if (byte >= kOpcodeCount) {
      error(offset, nullptr, "byte ", uint32_t{byte}, " is no opcode");
    } else {
      error(offset, opcodeInfo(Opcode{byte}).mnemonic, "the code ends inside the instruction");
    }
  }

  static Instruction decode(const uint8_t* bytes, uint32_t offset, uint32_t length) {
    Instruction instruction;
    instruction.offset = offset;
    instruction.length = length;
    instruction.opcode = Opcode{bytes[0]};
    const uint8_t* next = bytes + 1;
    for (uint32_t i = 0; i < kMaxOperands; ++i) {
      const OperandKind kind = instruction.info().operands[i];
      if (isList(kind)) {
        instruction.list = next;
        break;
      }
      instruction.operands[i] = littleEndian(next, operandWidth(kind));
      next += operandWidth(kind);
    }
    return instruction;
  }

  void checkOperands(Instruction& instruction) {
    for (uint32_t i = 0; i < kMaxOperands; ++i) {
      const OperandKind kind = instruction.info().operands[i];
      const uint32_t value = instruction.operands[i];
      const uint32_t limit = operandLimit(kind);
      if (limit != 0 && value > limit) {
        reject(instruction, "count ", value, " is above ", limit);
      }
      checkIndex(instruction, kind, value);
    }
  }

  void checkIndex(Instruction& instruction, OperandKind kind, uint32_t value) {
    using enum OperandKind;
    if (kind == Local && value >= function_.localCount) {
      reject(instruction, "there is no local ", value);
    } else if (kind == Global && value >= shader_.globalCount) {
      reject(instruction, "there is no global ", value);
    } else if (kind == Function && value >= shader_.functionCount) {
      reject(instruction, "there is no function ", value);
    } else if (kind == StructType && value >= view_.structCount) {
      reject(instruction, "there is no structure ", value);
    } else if (kind == ElementType && value <= INT16_MAX && value >= view_.structCount) {
      reject(instruction, "there is no type ", value);
    }
  }

  template <class... Parts>
  void reject(Instruction& instruction, const Parts&... parts) {
    instruction.isSound = false;
    error(instruction.offset, instruction.info().mnemonic, parts...);
  }

  void resolveJump(Instruction& instruction) {
    if (instruction.info().operands[0] != OperandKind::Jump) return;
    const uint32_t offset = instruction.offset + instruction.length + instruction.operands[0];
    const auto& all = decoded_.instructions;
    const auto found = std::lower_bound(
        all.begin(), all.end(), offset,
        [](const Instruction& candidate, uint32_t wanted) { return candidate.offset < wanted; });
    if (found != all.end() && found->offset == offset) {
      instruction.target = static_cast<uint32_t>(found - all.begin());
      decoded_.isJumpTarget[instruction.target] = true;
    } else if (offset >= function_.codeLength) {
      reject(instruction, "jumps to offset ", offset, ", outside the function's ",
             counted(function_.codeLength, "byte"));
    } else if (offset < all.back().offset + all.back().length) {
      reject(instruction, "jumps to offset ", offset, ", into the middle of an instruction");
    } else {
      reject(instruction, "jumps to offset ", offset, ", behind code that cannot be decoded");
    }
  }

  const ShaderView& view_;
  const CompiledShader& shader_;
  const uint32_t index_;
  const ShaderFunction& function_;
  Diagnostics& diagnostics_;
  DecodedFunction decoded_;
};

}  // namespace

DecodedFunction decodeFunction(const ShaderView& view, uint32_t function,
                               Diagnostics& diagnostics) {
  return FunctionDecoder(view, function, diagnostics).run();
}

}  // namespace shadermachine::tools
