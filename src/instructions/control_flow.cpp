// Branches, calls and returns, and the instructions that end a run.

#include <cstdlib>

#include "instructions/handlers.h"

namespace shadermachine {
namespace {

void jumpBy(Machine& machine, uint32_t offset) {
  CallFrame& frame = currentFrame(machine);
  const uint32_t target = frame.pc + offset;
  // There is no code before the function's first byte.
  if (static_cast<int32_t>(offset) < 0 && target > frame.pc) {
    return stopRun(machine, VM_ERR_INVALID_SHADER);
  }
  // Only what goes back can go on for ever; forward code ends at the function's last byte.
  const bool backward = target <= frame.pc;
  frame.pc = target;
  if (backward && tickTimeLimit(machine.timeLimit)) stopRun(machine, VM_ERR_TIMEOUT);
}

// Host-implemented functions ----------------------------------------------------------------------

bool isInHostRange(const CompiledShader& shader, uint32_t function) {
  if (shader.hostFunctionBase == -1) return false;
  const int64_t offset = int64_t{function} - shader.hostFunctionBase;
  return offset >= 0 && offset < shader.hostFunctionCount;
}

void callHostFunction(Machine& machine, uint32_t function) {
  const HostFunctionRequest request = {
      topSlot(machine, 2).value.words, topSlot(machine, 1).value.words,
      static_cast<int32_t>(function) - machine.shader->hostFunctionBase, topSlot(machine).view.data,
      machine.userData};
  machine.callbacks.hostFunction(&request);
}

void callOverrideB(Machine& machine) {
  const HostOverrideRequestB request = {topSlot(machine).view.data, 2, machine.userData};
  uint32_t output[3] = {};
  machine.callbacks.overrideB(output, &request);
  std::memcpy(topSlot(machine, 1).value.words, output, sizeof output);
}

// Data of the first of the caller's locals that has the type, null when there is none.
const void* firstLocalOfType(Machine& machine, int32_t type) {
  if (type == -1) return nullptr;
  const CallFrame& frame = currentFrame(machine);
  for (uint32_t k = 0; k < frame.function->localCount; ++k) {
    if (frame.function->locals[k].type == type) return frame.locals[k].view.data;
  }
  return nullptr;
}

void callOverrideA(Machine& machine) {
  constexpr uint32_t kWordFromBlock = 6;
  const ValueSlot& argument = topSlot(machine, 1);
  uint32_t word = argument.value.words[0];
  if (machine.shader->hostStructMode == kWordFromBlock) {
    word = 0;
    if (argument.view.data != nullptr) std::memcpy(&word, argument.view.data, sizeof word);
  }
  const HostOverrideRequestA request = {
      word, topSlot(machine).value.words,
      firstLocalOfType(machine, machine.shader->hostFunctionAType), machine.userData};
  topSlot(machine, 2).value.words[0] = machine.callbacks.overrideA(&request);
}

// True when the host has taken the call.
bool callHost(Machine& machine, uint32_t function) {
  const CompiledShader& shader = *machine.shader;
  const HostCallbacks& callbacks = machine.callbacks;
  if (callbacks.hostFunction != nullptr && isInHostRange(shader, function)) {
    callHostFunction(machine, function);
  } else if (callbacks.overrideB != nullptr && shader.hostFunctionB == int64_t{function}) {
    callOverrideB(machine);
  } else if (callbacks.overrideA != nullptr && shader.hostFunctionA == int64_t{function}) {
    callOverrideA(machine);
  } else {
    return false;
  }
  return true;
}

// Frames ------------------------------------------------------------------------------------------

bool growFrames(Machine& machine) {
  constexpr uint64_t kBytes = VM_FRAME_INCREMENT * sizeof(CallFrame);
  const int32_t capacity = machine.frameCapacity + VM_FRAME_INCREMENT;
  // Counted before it is there: what does not fit into the limit is never asked of the system.
  if (!reserveMemory(machine, kBytes)) return false;
  void* grown = std::realloc(machine.frames, static_cast<size_t>(capacity) * sizeof(CallFrame));
  if (grown == nullptr) {
    unreserveMemory(machine, kBytes);
    return false;
  }
  machine.frames = static_cast<CallFrame*>(grown);
  machine.frameCapacity = capacity;
  return true;
}

void enterFunction(Machine& machine, const ShaderFunction& function) {
  // The arguments become the callee's first locals where they are.
  if (!checkStackDepth(machine, function.paramCount)) return;
  const CallFrame& caller = currentFrame(machine);
  ValueSlot* const locals = caller.locals + caller.top + 1 - function.paramCount;
  if (locals + function.localCount - machine.stack > machine.stackCapacity ||
      machine.frameIndex + 1 >= VM_FRAME_LIMIT) {
    return stopRun(machine, VM_ERR_STACK_OVERFLOW);
  }
  if (machine.frameIndex + 1 >= machine.frameCapacity && !growFrames(machine)) {
    return stopWithoutBlock(machine);
  }
  // Entered before the locals are made: when one of them ends the run, the sweep finds them all
  // below this frame's top.
  ++machine.frameIndex;
  currentFrame(machine) = {&function, machine.shader->code + function.codeOffset, locals, 0,
                           function.localCount - 1};
  if (function.localCount > function.paramCount) {
    initVariables(machine, locals + function.paramCount, function.locals + function.paramCount,
                  uint32_t{function.localCount} - function.paramCount);
  }
}

void leaveFrame(Machine& machine, uint32_t firstReleased) {
  CallFrame& frame = currentFrame(machine);
  const ShaderFunction& function = *frame.function;
  // Temporaries left above the locals are dropped without release, so that no reference stays above
  // the caller's top.
  while (frame.top >= function.localCount) popSlot(machine);
  for (uint32_t k = firstReleased; k < function.localCount; ++k) {
    if (!isBasicVar(function.locals[k])) blockRelease(&frame.locals[k].view);
  }
  if (machine.frameIndex == 0) return stopRun(machine, VM_OK);
  --machine.frameIndex;
}

}  // namespace

void jump(Machine& machine) { jumpBy(machine, fetchU32(machine)); }

void jumpIfFalse(Machine& machine) {
  const uint32_t offset = fetchU32(machine);
  const bool isFalse = topSlot(machine).value.words[0] == 0;
  popSlot(machine);
  if (isFalse) jumpBy(machine, offset);
}

void call(Machine& machine) {
  const uint32_t number = fetchU16(machine);
  const CompiledShader& shader = *machine.shader;
  if (number >= shader.functionCount) return stopRun(machine, VM_ERR_INVALID_FUNCTION);
  if (callHost(machine, number)) {
    chargeHostCall(machine);
    return;
  }
  const ShaderFunction* function = shader.functions[number];
  if (function == nullptr || function->codeLength == 0) {
    return stopRun(machine, VM_ERR_INVALID_FUNCTION);
  }
  if (tickTimeLimit(machine.timeLimit)) return stopRun(machine, VM_ERR_TIMEOUT);
  enterFunction(machine, *function);
}

void returnVoid(Machine& machine) {
  // Nobody else releases the entry function's parameters.
  const bool inEntry = machine.frameIndex == 0;
  leaveFrame(machine, inEntry ? 0 : currentFrame(machine).function->paramCount);
}

void returnValue(Machine& machine) {
  if (machine.frameIndex != 0) {
    ValueSlot* const locals = currentFrame(machine).locals;
    if (locals == machine.stack) return stopRun(machine, VM_ERR_INVALID_SHADER);
    // Below the arguments, where the caller has left room. Moved, not copied: the reference is the
    // result's before the frame's own are released.
    locals[-1] = topSlot(machine);
    topSlot(machine).view.data = nullptr;
  }
  returnVoid(machine);
}

void discard(Machine& machine) { stopRun(machine, VM_ERR_DISCARDED); }
void halt(Machine& machine) { stopRun(machine, VM_ERR_HALTED); }
void reserved(Machine& machine) { stopRun(machine, VM_ERR_NOT_IMPLEMENTED); }
void illegalInstruction(Machine& machine) { stopRun(machine, VM_ERR_ILLEGAL_INSTRUCTION); }

void reservedSkip1(Machine& machine) {
  fetchU8(machine);
  reserved(machine);
}

void reservedSkip2(Machine& machine) {
  fetchU16(machine);
  reserved(machine);
}

}  // namespace shadermachine
