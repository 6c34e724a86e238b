#include "decoder.h"

#include <algorithm>

namespace shadermachine::tools {
namespace {

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
    // Once the instructions no longer move: targets are their numbers.
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
    Instruction next = {};
    while (next.end < function_.codeLength) {
      if (!decodeInstruction(code, next.end, function_.codeLength, next)) {
        // Where another instruction would begin, nobody can know.
        return reportUndecodable(code[next.end], next.end);
      }
      decoded_.instructions.push_back(next);
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
    error(instruction.pc, instruction.info().mnemonic, parts...);
  }

  void resolveJump(Instruction& instruction) {
    if (!isJump(instruction.opcode)) return;
    const uint32_t offset = instruction.operands[0];
    const auto& all = decoded_.instructions;
    const auto found = std::lower_bound(
        all.begin(), all.end(), offset,
        [](const Instruction& candidate, uint32_t wanted) { return candidate.pc < wanted; });
    if (found != all.end() && found->pc == offset) {
      instruction.target = static_cast<uint32_t>(found - all.begin());
      decoded_.isJumpTarget[instruction.target] = true;
    } else if (offset >= function_.codeLength) {
      reject(instruction, "jumps to offset ", offset, ", outside the function's ",
             counted(function_.codeLength, "byte"));
      // There is a last instruction: this jump is one.
    } else if (offset < all.back().end) {
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
