#include "machine/run_loop.h"

#include "engine/engine.h"
#include "engine/records.h"
#include "instructions/opcode_table.h"

namespace shadermachine {
namespace {

// Ends a run that never began.
[[gnu::noinline]] VmError refuseRun(Machine& machine, VmError error) {
  releaseGlobals(machine);
  freeSpareBlocks(machine);
  machine.shader = nullptr;
  machine.runState = VM_RUN_IDLE;
  machine.error = error;
  return error;
}

// Read in one go before anything is written, so that the compiler can move several words at once.
void beginState(Machine& machine, const StartupInfo& startup, uint32_t sameShader) {
  const StartupInfo given = startup;
  machine.userData = given.userData;
  machine.indexTop = -1;
  machine.runState = VM_RUN_RUNNING;
  machine.error = VM_OK;
  machine.builtin258 = given.builtin258;
  machine.builtin281 = given.builtin281;
  machine.builtin282 = given.builtin282;
  machine.builtin285 = given.builtin285;
  machine.sameShader = sameShader;
}

// Frees every block named by the slots, each once. The counts do not tell how often to release (DUP
// makes two slots name one reference), and nothing outside the stack can hold a block, so a count
// of 0 marks blocks already seen.
[[gnu::noinline]] void freeBlocks(ValueSlot* first, ValueSlot* end) {
  for (ValueSlot* slot = first; slot < end; ++slot) {
    if (slot->view.data == nullptr) continue;
    uint32_t& count = blockOf(slot->view)->referenceCount;
    if (count == 0) clearView(&slot->view);
    count = 0;
  }
  for (ValueSlot* slot = first; slot < end; ++slot) {
    if (slot->view.data == nullptr) continue;
    freeBlock(blockOf(slot->view));
    clearView(&slot->view);
  }
}

// Frees the blocks of all slots from 0 to the current top.
void sweepStack(Machine& machine) {
  const CallFrame& frame = currentFrame(machine);
  ValueSlot* const end = frame.locals + frame.top + 1;
  // Most shaders have no block: to see that costs less than to look at slot after slot.
  uintptr_t any = 0;
#pragma GCC unroll 4
  for (const ValueSlot* slot = machine.stack; slot < end; ++slot) {
    any |= reinterpret_cast<uintptr_t>(slot->view.data);
  }
  if (any != 0) freeBlocks(machine.stack, end);
}

const ValueSlot* outputSlot(const Machine& machine, int32_t global) {
  const bool exists = global >= 0 && global < static_cast<int32_t>(machine.heldGlobalCount);
  return exists ? &machine.stack[global] : nullptr;
}

[[gnu::noinline]] void callOutputs(Machine& machine) {
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

void deliverOutputs(Machine& machine) {
  if (machine.callbacks.output0 == nullptr && machine.callbacks.output1 == nullptr) return;
  machine.isDelivering = 1;
  callOutputs(machine);
  machine.isDelivering = 0;
}

void initGlobals(Machine& machine, const CompiledShader& shader) {
  machine.heldGlobalCount = shader.globalCount;
  if (shader.globalCount == 0) return;
  initVariables(machine, machine.stack, shader.globals, shader.globalCount);
}

// All of beginRun() but the time limit and the entry function's locals. What a small shader has
// none of goes to functions that are not inlined.
[[gnu::always_inline]] inline VmError prepareRun(Machine& machine, const CompiledShader& shader,
                                                 const StartupInfo& startup) {
  const uint32_t same = machine.shader == &shader ? 1 : 0;
  // The other shader's globals lie where this one's slots will be.
  if (same == 0 && machine.heldGlobalCount != 0) releaseGlobals(machine);
  machine.frameIndex = 0;
  machine.shader = &shader;
  beginState(machine, startup, same);

  const ShaderFunction* entry = shader.functions[shader.entryIndex];
  if (entry == nullptr) return refuseRun(machine, VM_ERR_INVALID_ENTRY);
  // Before anything is written to the stack: translated code relies on it and checks no more.
  if (shader.globalCount + entry->localCount > machine.stackCapacity) {
    return refuseRun(machine, VM_ERR_STACK_OVERFLOW);
  }
  machine.frames[0] = {entry, shader.code + entry->codeOffset, machine.stack + shader.globalCount,
                       0, entry->localCount - 1};
  if (same == 0) initGlobals(machine, shader);
  return VM_OK;
}

}  // namespace

[[gnu::noinline]] void releaseGlobals(Machine& machine) {
  for (uint32_t g = 0; g < machine.heldGlobalCount; ++g) blockRelease(&machine.stack[g].view);
  machine.heldGlobalCount = 0;
}

void initEntryLocals(Machine& machine) {
  const CallFrame& frame = machine.frames[0];
  initVariables(machine, frame.locals, frame.function->locals, frame.function->localCount);
}

VmError beginRun(Machine& machine, const CompiledShader& shader, const StartupInfo& startup) {
  machine.heldProgram = nullptr;
  startTimeLimit(machine.timeLimit, startup.timeout);
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
  // Idle before the outputs are delivered, as hosts see it there; isDelivering keeps the machine
  // from being run or destroyed meanwhile.
  machine.runState = VM_RUN_IDLE;
  if (error == VM_OK || error == VM_ERR_HALTED) deliverOutputs(machine);
  if (error != VM_OK) {
    // Behind the outputs, which are read from the globals' slots.
    sweepStack(machine);
    machine.heldGlobalCount = 0;
    machine.shader = nullptr;
  }
  return error;
}

namespace {

// True when frame 0, the globals, the translation and all that prepareRun() checks are as the
// shader's last run left them.
bool holdsAll(const Machine& machine, const CompiledShader& shader) {
  return machine.shader == &shader && machine.heldProgram != nullptr &&
         machine.engineUse != EngineUse::Never &&
         machine.frames[0].function == shader.functions[shader.entryIndex];
}

// Apart from runShader(), which has to save the fewer registers.
[[gnu::noinline]] VmError runAfresh(Machine& machine, const CompiledShader& shader,
                                    const StartupInfo& startup) {
  const VmError refused = prepareRun(machine, shader, startup);
  if (refused != VM_OK) return refused;
  engine::runRecords(engine::selectProgram(machine), machine);
  return endRun(machine);
}

}  // namespace

VmError runShader(Machine& machine, const CompiledShader& shader, const StartupInfo& startup) {
  startTimeLimit(machine.timeLimit, startup.timeout);
  if (!holdsAll(machine, shader)) return runAfresh(machine, shader, startup);
  beginState(machine, startup, 1);
  engine::runRecords(machine.heldProgram, machine);
  return endRun(machine);
}

VmError runShaderAnew(Machine& machine, const CompiledShader& shader, const StartupInfo& startup) {
  if (!holdsAll(machine, shader)) {
    releaseGlobals(machine);
    machine.shader = nullptr;
    return runAfresh(machine, shader, startup);
  }
  releaseGlobals(machine);
  beginState(machine, startup, 0);
  initGlobals(machine, shader);
  // A global without its block has ended the run: the plain program does nothing then.
  const bool stopped = machine.runState == VM_RUN_STOPPING;
  engine::runRecords(stopped ? engine::selectProgram(machine) : machine.heldProgram, machine);
  return endRun(machine);
}

}  // namespace shadermachine
