// Variables, constants and the two stacks.

#include "instructions/handlers.h"

namespace shadermachine {
namespace {

constexpr uint32_t kOneF = std::bit_cast<uint32_t>(1.0f);

struct Variable {
  ValueSlot& slot;
  const VarInfo& info;
};

// Of no words: nothing is copied from or to it.
constexpr VarInfo kNoVariable = {VM_TYPE_INT, 0, 0, 0, 0, nullptr, 0};

Variable localVariable(Machine& machine, uint32_t number) {
  const CallFrame& frame = currentFrame(machine);
  if (number >= frame.function->localCount) return {straySlot(machine), kNoVariable};
  return {frame.locals[number], frame.function->locals[number]};
}

Variable globalVariable(Machine& machine, uint32_t number) {
  if (number >= machine.shader->globalCount) return {straySlot(machine), kNoVariable};
  return {machine.stack[number], machine.shader->globals[number]};
}

void loadVariable(ValueSlot& target, const Variable& variable) {
  if (isBasicVar(variable.info)) {
    std::memcpy(target.value.words, variable.slot.value.words, inlineByteSize(variable.info));
  } else {
    blockShare(&target.view, &variable.slot.view);
  }
}

void storeVariable(Machine& machine, const Variable& variable) {
  ValueSlot& source = topSlot(machine);
  if (isBasicVar(variable.info)) {
    std::memcpy(variable.slot.value.words, source.value.words, inlineByteSize(variable.info));
    return;
  }
  if (!chargeBytes(machine, source.view.size)) return;
  if (!blockStore(machine, &variable.slot.view, &source.view)) stopWithoutBlock(machine);
}

void storeAndPop(Machine& machine, const Variable& variable) {
  storeVariable(machine, variable);
  if (isBasicVar(variable.info)) {
    popSlot(machine);
  } else {
    popRelease(machine);
  }
}

// An aggregate is filled in the global's own block, a basic value for this load only.
void loadHostVariable(Machine& machine, ValueSlot& target, uint32_t number) {
  const Variable global = globalVariable(machine, number);
  const bool basic = isBasicVar(global.info);
  // The host writes as many bytes as the table says.
  if (basic && global.info.byteSize > sizeof target.value.words) {
    return stopRun(machine, VM_ERR_INVALID_SHADER);
  }
  if (!basic) blockShare(&target.view, &global.slot.view);
  const HostVariableRequest request = {
      basic ? static_cast<void*>(target.value.words) : target.view.data,
      &global.info,
      number,
      global.info.count,
      currentIndex(machine),
      machine.userData};
  chargeHostCall(machine);
  machine.callbacks.hostVariable(&request);
}

void push4(Machine& machine, uint32_t word) {
  ValueSlot* slot = pushSlot(machine);
  if (slot == nullptr) return;
  for (uint32_t i = 0; i < 4; ++i) slot->value.words[i] = word;
}

}  // namespace

void nop(Machine&) {}

void loadLocal(Machine& machine) {
  ValueSlot* slot = pushSlot(machine);
  if (slot != nullptr) loadVariable(*slot, localVariable(machine, fetchU16(machine)));
}

void loadGlobal(Machine& machine) {
  ValueSlot* slot = pushSlot(machine);
  if (slot == nullptr) return;
  const uint32_t number = fetchU16(machine);
  const Variable global = globalVariable(machine, number);
  if (asksHost(machine, global.info)) {
    loadHostVariable(machine, *slot, number);
  } else {
    loadVariable(*slot, global);
  }
}

void loadLocalComponent(Machine& machine) {
  ValueSlot* slot = pushSlot(machine);
  if (slot == nullptr) return;
  const uint32_t bound = fetchU8(machine);
  const uint32_t component = fetchU8(machine);
  const Variable local = localVariable(machine, fetchU16(machine));
  if (component >= bound) {
    stopRun(machine, VM_ERR_INDEX_OUT_OF_BOUNDS);
  } else if (bound > VM_COMPONENT_COUNT) {
    stopRun(machine, VM_ERR_INVALID_SHADER);
  } else {
    slot->value.words[0] = local.slot.value.words[component];
  }
}

void storeLocal(Machine& machine) {
  storeAndPop(machine, localVariable(machine, fetchU16(machine)));
}

void storeGlobal(Machine& machine) {
  storeAndPop(machine, globalVariable(machine, fetchU16(machine)));
}

void storeLocalKeep(Machine& machine) {
  storeVariable(machine, localVariable(machine, fetchU16(machine)));
}

void pop(Machine& machine) { popSlot(machine); }
void popN(Machine& machine) { popSlots(machine, fetchU8(machine)); }
void popReleaseTop(Machine& machine) { popRelease(machine); }
void pushEmpty(Machine& machine) { pushSlot(machine); }

void pushWord(Machine& machine, uint32_t word) {
  ValueSlot* slot = pushSlot(machine);
  if (slot != nullptr) slot->value.words[0] = word;
}

void pushU8(Machine& machine) {
  ValueSlot* slot = pushSlot(machine);
  if (slot != nullptr) slot->value.words[0] = fetchU8(machine);
}

void pushU32(Machine& machine) {
  ValueSlot* slot = pushSlot(machine);
  if (slot != nullptr) slot->value.words[0] = fetchU32(machine);
}

void pushZero4(Machine& machine) { push4(machine, 0); }
void pushOne4F(Machine& machine) { push4(machine, kOneF); }
void push1F(Machine& machine) { pushWord(machine, kOneF); }

void dup(Machine& machine) {
  ValueSlot* slot = pushSlot(machine);
  // Not counted: both slots name the one reference that the value holds.
  if (slot != nullptr) *slot = topSlot(machine, 1);
}

void swapTop(Machine& machine) {
  const ValueSlot below = topSlot(machine, 1);
  topSlot(machine, 1) = topSlot(machine);
  topSlot(machine) = below;
}

void makeUnique(Machine& machine) {
  BlockView& view = topSlot(machine).view;
  // Where the frame has no slot topSlot() has ended the run already, and its code must stay.
  if (machine.runState == VM_RUN_STOPPING || blockRefCount(&view) == 1) return;
  if (!chargeBytes(machine, view.size)) return;
  BlockView copy;
  if (!blockClone(machine, &copy, &view)) return stopWithoutBlock(machine);
  blockRelease(&view);
  view = copy;
}

void pushIndex(Machine& machine) {
  if (++machine.indexTop >= VM_INDEX_STACK_CAPACITY) {
    return stopRun(machine, VM_ERR_INDEX_STACK_OVERFLOW);
  }
  machine.indexStack[machine.indexTop] = topSlot(machine).value.words[0];
  popSlot(machine);
}

void pushIndexImm(Machine& machine) {
  if (++machine.indexTop >= VM_INDEX_STACK_CAPACITY) {
    return stopRun(machine, VM_ERR_INDEX_STACK_OVERFLOW);
  }
  machine.indexStack[machine.indexTop] = fetchU8(machine);
}

}  // namespace shadermachine
