#include "machine/run_loop.h"

#include <cstdlib>

#include "engine/engine.h"
#include "instructions/opcode_table.h"

namespace shadermachine {
namespace {

// Ends a run that never began.
VmError refuseRun(Machine& machine, VmError error) {
  releaseGlobals(machine);
  machine.shader = nullptr;
  machine.runState = VM_RUN_IDLE;
  machine.error = error;
  machine.insideRun = 0;
  return error;
}

void copyStartup(Machine& machine, const StartupInfo& startup) {
  machine.userData = startup.userData;
  machine.builtin258 = startup.builtin258;
  machine.builtin281 = startup.builtin281;
  machine.builtin282 = startup.builtin282;
  machine.builtin285 = startup.builtin285;
  machine.indexTop = -1;
  machine.runState = VM_RUN_RUNNING;
  machine.error = VM_OK;
}

// Frees every block named by a slot from 0 to the current top, each once. The counts do not tell
// how often to release (DUP makes two slots name one reference), and nothing outside the stack can
// hold a block, so a count of 0 marks blocks already seen.
void sweepStack(Machine& machine) {
  const CallFrame& frame = currentFrame(machine);
  ValueSlot* const end = frame.locals + frame.top + 1;
  for (ValueSlot* slot = machine.stack; slot < end; ++slot) {
    if (slot->view.data == nullptr) continue;
    uint32_t& count = blockOf(slot->view)->referenceCount;
    if (count == 0) clearView(&slot->view);
    count = 0;
  }
  for (ValueSlot* slot = machine.stack; slot < end; ++slot) {
    if (slot->view.data == nullptr) continue;
    std::free(blockOf(slot->view));
    clearView(&slot->view);
  }
}

const ValueSlot* outputSlot(const Machine& machine, int32_t global) {
  const bool exists = global >= 0 && global < static_cast<int32_t>(machine.heldGlobalCount);
  return exists ? &machine.stack[global] : nullptr;
}

void deliverOutputs(Machine& machine) {
  const CompiledShader& shader = *machine.shader;
  if (machine.callbacks.output0 != nullptr) {
    const ValueSlot* slot = outputSlot(machine, shader.outputGlobal0);
    if (slot == nullptr) return;
    machine.callbacks.output0(slot->value.words, machine.userData);
  }
  const ValueSlot* slot = outputSlot(machine, shader.outputGlobal1);
  if (machine.callbacks.output1 != nullptr && slot != nullptr) {
    machine.callbacks.output1(std::bit_cast<float>(slot->value.words[0]), machine.userData);
  }
}

}  // namespace

VmError verifyShader(const CompiledShader* shader) {
  if (shader == nullptr || shader->functions == nullptr) return VM_ERR_INVALID_SHADER;
  if (shader->version != 1) return VM_ERR_NEWER_COMPILER;
  if (shader->entryIndex >= shader->functionCount) return VM_ERR_INVALID_ENTRY;
  return VM_OK;
}

void releaseGlobals(Machine& machine) {
  for (uint32_t g = 0; g < machine.heldGlobalCount; ++g) blockRelease(&machine.stack[g].view);
  machine.heldGlobalCount = 0;
}

VmError prepareRun(Machine& machine, const CompiledShader& shader, const StartupInfo& startup) {
  machine.insideRun = 1;
  machine.sameShader = machine.shader == &shader ? 1 : 0;
  if (machine.sameShader == 0) releaseGlobals(machine);
  machine.frameIndex = 0;
  machine.shader = &shader;
  copyStartup(machine, startup);

  const ShaderFunction* entry = shader.functions[shader.entryIndex];
  if (entry == nullptr) return refuseRun(machine, VM_ERR_INVALID_ENTRY);
  if (shader.globalCount + entry->localCount > machine.stackCapacity) {
    return refuseRun(machine, VM_ERR_STACK_OVERFLOW);
  }
  machine.frames[0] = {entry, shader.code + entry->codeOffset, machine.stack + shader.globalCount,
                       0, entry->localCount - 1};
  startTimeLimit(machine.timeLimit, startup.timeout);

  machine.heldGlobalCount = shader.globalCount;
  if (machine.sameShader == 0) {
    initVariables(machine, machine.stack, shader.globals, shader.globalCount);
  }
  return VM_OK;
}

void initEntryLocals(Machine& machine) {
  const CallFrame& frame = machine.frames[0];
  initVariables(machine, frame.locals, frame.function->locals, frame.function->localCount);
}

VmError beginRun(Machine& machine, const CompiledShader& shader, const StartupInfo& startup) {
  const VmError refused = prepareRun(machine, shader, startup);
  if (refused == VM_OK) initEntryLocals(machine);
  return refused;
}

void stepInstruction(Machine& machine) {
  const uint8_t opcode = fetchU8(machine);
  kHandlers[opcode](machine);
}

VmError endRun(Machine& machine) {
  const VmError error = machine.error;
  machine.runState = VM_RUN_IDLE;
  if (error == VM_OK || error == VM_ERR_HALTED) deliverOutputs(machine);
  if (error != VM_OK) {
    sweepStack(machine);
    machine.heldGlobalCount = 0;
    machine.shader = nullptr;
  }
  machine.insideRun = 0;
  return error;
}

VmError runShader(Machine& machine, const CompiledShader& shader, const StartupInfo& startup) {
  const VmError refused = prepareRun(machine, shader, startup);
  if (refused != VM_OK) return refused;
  engine::execute(machine);
  return endRun(machine);
}

}  // namespace shadermachine
