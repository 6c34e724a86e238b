#include <shadermachine-tools/renderer.h>
#include <shadermachine-tools/source_map.h>
#include <shadermachine/machine.h>

#include <algorithm>

#include "instructions/opcode_info.h"

namespace shadermachine::tools {
namespace {

int32_t functionIndex(const ShaderView& view, const ShaderFunction* function) {
  for (int32_t i = 0; i < view.shader->functionCount; ++i) {
    if (view.shader->functions[i] == function) return i;
  }
  return -1;
}

// Start of the instruction that covers byte `position` of a function's code.
uint32_t instructionStart(const uint8_t* code, uint32_t length, uint32_t position) {
  uint32_t start = 0;
  while (start < length) {
    const uint32_t size = instructionLength(code + start, length - start);
    if (size == 0 || position < start + size) return start;
    start += size;
  }
  return position;
}

}  // namespace

void locateFailure(const ShaderMachine& machine, const ShaderView& view, RunFailure& failure) {
  if (machine.frameIndex < 0) return;
  const CallFrame& frame = machine.frames[machine.frameIndex];
  failure.function = functionIndex(view, frame.function);
  if (failure.function < 0) return;
  // Of a shader that nobody validated, code may lie outside the view.
  const uint32_t start = frame.function->codeOffset;
  if (start >= view.codeSize) return;
  const uint8_t* code = view.shader->code + start;
  const uint32_t length = std::min(frame.function->codeLength, view.codeSize - start);
  // The counter stands behind what the failing instruction has read; only the time limit strikes
  // between two instructions.
  const bool between = failure.error == VM_ERR_TIMEOUT || frame.pc == 0;
  failure.offset = instructionStart(code, length, between ? frame.pc : frame.pc - 1);
  if (failure.offset < length && code[failure.offset] < kOpcodeCount) {
    failure.mnemonic = kOpcodeTable[code[failure.offset]].mnemonic;
  }
}

std::string describeFailure(const RunFailure& failure, const ShaderView& view) {
  std::string text = vmGetErrorString(failure.error);
  if (failure.function < 0) return text;
  text += " (" + functionText(view, static_cast<uint32_t>(failure.function));
  text += ", offset " + std::to_string(failure.offset);
  if (failure.mnemonic != nullptr) text += std::string(", ") + failure.mnemonic;
  return text + ")";
}

std::string formatFailure(const RunFailure& failure, const ShaderView& view,
                          std::string_view fileName, std::string_view before,
                          std::string_view after) {
  const std::string message =
      std::string(before) + describeFailure(failure, view) + std::string(after);
  return formatMessage(messagePlace(view, failure.function, failure.offset, fileName), "error",
                       message);
}

}  // namespace shadermachine::tools
