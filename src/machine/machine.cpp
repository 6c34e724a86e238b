#include "machine/machine.h"

#include <cstdlib>

#include "engine/engine.h"
#include "machine/run_loop.h"

namespace shadermachine {

Machine* createMachine(const HostCallbacks* callbacks) {
  auto* machine = static_cast<Machine*>(std::calloc(1, sizeof(Machine)));
  if (machine == nullptr) return nullptr;
  machine->memory.limit = VM_MEMORY_LIMIT;
  machine->stackCapacity = VM_STACK_CAPACITY;
  machine->frameCapacity = VM_FRAME_INCREMENT;
  machine->frameIndex = -1;
  machine->indexTop = -1;
  if (callbacks != nullptr) machine->callbacks = *callbacks;
  // Zeroed memory is what clears every block reference. One slot more than there are: translated
  // code reads four words at a time, at the end of the last slot too.
  machine->stack = static_cast<ValueSlot*>(std::calloc(VM_STACK_CAPACITY + 1, sizeof(ValueSlot)));
  machine->frames = static_cast<CallFrame*>(std::calloc(VM_FRAME_INCREMENT, sizeof(CallFrame)));
  if (machine->stack == nullptr || machine->frames == nullptr) {
    destroyMachine(machine);
    return nullptr;
  }
  return machine;
}

void destroyMachine(Machine* machine) {
  // Blocks of globals become spare blocks, so these are freed after them.
  if (machine->stack != nullptr) releaseGlobals(*machine);
  freeSpareBlocks(*machine);
  engine::release(*machine);
  std::free(machine->stack);
  std::free(machine->frames);
  std::free(machine);
}

namespace {

void initBasic(ValueSlot& slot, const VarInfo& info) {
  const bool isFloatValue = (info.type >= VM_TYPE_FLOAT && info.type <= VM_TYPE_VEC4) ||
                            (info.type >= VM_TYPE_MAT2 && info.type <= VM_TYPE_MAT4);
  // Constant sizes first: g++ clears a variable one in a loop of small steps.
  slot.value.block = nullptr;
  if (isFloatValue) {
    slot.value = {};
  } else if (info.byteSize == sizeof(uint32_t)) {
    slot.value.words[0] = 0;
  } else {
    std::memset(slot.value.words, 0, inlineByteSize(info));
  }
}

}  // namespace

ValueSlot& straySlot(Machine& machine) {
  stopRun(machine, VM_ERR_INVALID_SHADER);
  machine.stray = {};
  return machine.stray;
}

void initVariables(Machine& machine, ValueSlot* slots, const VarInfo* entries, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    const VarInfo& info = entries[i];
    if (isBasicVar(info)) {
      initBasic(slots[i], info);
      continue;
    }
    // A run that is over gets no more blocks, but no slot may keep what it held.
    const bool isOver = machine.runState == VM_RUN_STOPPING || !chargeBytes(machine, info.byteSize);
    if (isOver) {
      clearView(&slots[i].view);
    } else if (!blockAlloc(machine, &slots[i].view, info.byteSize, nullptr) && info.byteSize != 0) {
      stopWithoutBlock(machine);
    }
  }
}

}  // namespace shadermachine
