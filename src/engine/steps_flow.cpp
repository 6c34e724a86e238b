// Control flow, calls into the plain handlers, and the state that slots carry beside their words.

#include "engine/plain_program.h"
#include "engine/steps.h"
#include "engine/vectors.h"
#include "instructions/opcode_table.h"

namespace shadermachine::engine {
namespace {

void fillFrame(Machine& machine, const InlinedCall& call, uint32_t pc, int32_t top) {
  CallFrame& frame = machine.frames[call.frameIndex];
  const ShaderFunction* function = machine.shader->functions[call.function];
  frame = {function, machine.shader->code + function->codeOffset, machine.stack + call.localsSlot,
           pc, top};
}

void runPlainCall(Machine& machine, int32_t callerFrame) {
  runPlainWhile(machine, [&] {
    return machine.runState != VM_RUN_STOPPING && machine.frameIndex > callerFrame;
  });
}

}  // namespace

void fillFrames(Machine& machine, const Site& site) {
  const InlinedCall* call = site.call;
  uint32_t pc = site.pc;
  int32_t top = site.top;
  for (; call->caller != nullptr; call = call->caller) {
    fillFrame(machine, *call, pc, top);
    pc = call->callerPc;
    top = call->callerTop;
  }
  CallFrame& entry = machine.frames[call->frameIndex];
  entry.pc = pc;
  entry.top = top;
}

Step plainStep(ENGINE_STATE) {
  enterSite(machine, *record->site);
  kHandlers[record->site->opcode](machine);
  if (machine.runState == VM_RUN_STOPPING) ENGINE_END;
  ENGINE_FORGET;
  ENGINE_NEXT;
}

Step plainCallStep(ENGINE_STATE) {
  const Site& site = *record->site;
  enterSite(machine, site);
  kHandlers[site.opcode](machine);
  runPlainCall(machine, site.call->frameIndex);
  // A function may leave indices behind; what then follows was not translated.
  if (machine.runState != VM_RUN_STOPPING && machine.indexTop != site.indexTop) {
    runPlainToEnd(machine);
  }
  if (machine.runState == VM_RUN_STOPPING) ENGINE_END;
  ENGINE_FORGET;
  ENGINE_NEXT;
}

Step stopStep(ENGINE_STATE) {
  enterSite(machine, *record->site);
  stopRun(machine, record->x);
  ENGINE_END;
}

Step finishStep(ENGINE_STATE) {
  const Site& site = *record->site;
  CallFrame& frame = machine.frames[0];
  frame.pc = site.pc;
  frame.top = site.top;
  machine.frameIndex = 0;
  machine.indexTop = site.indexTop;
  stopRun(machine, record->x);
  ENGINE_END;
}

Step jumpStep(ENGINE_STATE) { ENGINE_GO(record->target); }

// Apart from the loops' own handlers, so that those save no registers.
Step timeStep(ENGINE_STATE) {
  if (readTimeLimit(machine.timeLimit)) {
    enterSite(machine, *objectAt<Site>(record->d));
    stopRun(machine, VM_ERR_TIMEOUT);
    ENGINE_END;
  }
  ENGINE_FORGET;
  ENGINE_GO(objectAt<Record>(record->c));
}

Step clockStep(ENGINE_STATE) {
  if (readTimeLimit(machine.timeLimit)) {
    enterSite(machine, *record->site);
    stopRun(machine, VM_ERR_TIMEOUT);
    ENGINE_END;
  }
  ENGINE_FORGET;
  ENGINE_NEXT;
}

Step jumpBackStep(ENGINE_STATE) {
  if (--machine.timeLimit.ticksLeft == 0) ENGINE_STAY(timeStep);
  ENGINE_GO(objectAt<Record>(record->c));
}

Step branchWordStep(ENGINE_STATE) {
  if (word == 0) ENGINE_GO(record->target);
  ENGINE_NEXT;
}

Step branchMemoryStep(ENGINE_STATE) {
  if (*record->a == 0) ENGINE_GO(record->target);
  ENGINE_NEXT;
}

template <uint32_t words>
void zeroSlots(const Record* record) {
  uint32_t* slot = record->d;
  constexpr uint32_t kWordsPerSlot = sizeof(ValueSlot) / sizeof(uint32_t);
  const uint32_t* const end = slot + record->x * kWordsPerSlot;
  for (; slot < end; slot += kWordsPerSlot) {
    for (uint32_t i = 0; i < words; i += 4) storeVector<4>(slot + i, FloatVector{});
  }
}

Step zeroSlotsStep(ENGINE_STATE) {
  zeroSlots<4>(record);
  ENGINE_NEXT;
}

Step zeroWideSlotsStep(ENGINE_STATE) {
  zeroSlots<VM_COMPONENT_COUNT>(record);
  ENGINE_NEXT;
}

Step initLocalsStep(ENGINE_STATE) {
  const Site& site = *record->site;
  const ShaderFunction& function = *machine.shader->functions[site.call->function];
  initVariables(machine, &slotOf(record->d), function.locals + record->y, record->x);
  if (machine.runState == VM_RUN_STOPPING) {
    enterSite(machine, site);
    ENGINE_END;
  }
  ENGINE_NEXT;
}

Step releaseSlotStep(ENGINE_STATE) {
  blockRelease(&slotOf(record->d).view);
  ENGINE_NEXT;
}

Step clearSlotStep(ENGINE_STATE) {
  slotOf(record->d).view.data = nullptr;
  ENGINE_NEXT;
}

Step shareViewStep(ENGINE_STATE) {
  BlockView& target = slotOf(record->d).view;
  const BlockView& source = slotOf(record->a).view;
  if (record->x == 0) {
    blockShare(&target, &source);
  } else {
    const uint32_t base = record->b == nullptr ? 0 : *record->b * record->z;
    blockSubView(&target, &source, record->x, record->y + base);
  }
  ENGINE_NEXT;
}

}  // namespace shadermachine::engine
