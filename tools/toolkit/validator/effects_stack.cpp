// Variables, constants and references.

#include <shadermachine-tools/host_contract.h>

#include <bit>

#include "effects.h"
#include "instructions/builtin_variables.h"
#include "machine/types.h"

namespace shadermachine::tools::effects {
namespace {

constexpr int32_t kOneF = std::bit_cast<int32_t>(1.0f);

void push4(Step& step, int32_t word) {
  Slot slot = constantSlot(word);
  slot.words = 4;
  step.push(slot);
}

void storeTo(Step& step, const VarInfo& variable) {
  step.needValueOf(0, variable);
  step.stack.drop(1);
}

}  // namespace

void nop(Step&) {}

void loadLocal(Step& step) { step.push(step.slotOf(step.function.locals[step.operand(0)])); }

void loadGlobal(Step& step) {
  step.push(step.slotOf(step.program.shader.globals[step.operand(0)]));
}

void loadLocalComponent(Step& step) {
  const uint32_t bound = step.operand(0);
  const uint32_t component = step.operand(1);
  const uint32_t number = step.operand(2);
  const VarInfo& local = step.function.locals[number];
  if (component >= bound) {
    return step.stops(VM_ERR_INDEX_OUT_OF_BOUNDS, "component ", component, " is not below ", bound);
  }
  if (!isBasic(local)) {
    step.error("local ", number, " is an aggregate");
  } else if (component >= local.byteSize / kWordBytes) {
    step.error("component ", component, " is beyond the ",
               counted(local.byteSize / kWordBytes, "word"), " of local ", number);
  }
  step.push(inlineSlot(1));
}

void loadBuiltin(Step& step) {
  const uint32_t id = step.operand(0);
  const BuiltinFamily family = builtinVariable(id).family;
  if (family == BuiltinFamily::None) {
    return step.stops(VM_ERR_NO_BUILTIN_VARIABLE, "there is no built-in variable ", id);
  }
  if (family != BuiltinFamily::GlobalElement && family != BuiltinFamily::GlobalArray) {
    return step.push(inlineSlot(typeByteSize(builtinValue(id).type) / kWordBytes));
  }
  const int32_t global = backingGlobal(step.program.shader, id);
  if (global == -1) {
    return step.stops(VM_ERR_NO_BUILTIN_VARIABLE, "no global backs built-in variable ", id);
  }
  step.push(step.slotOf(step.program.shader.globals[global]));
}

void storeLocal(Step& step) { storeTo(step, step.function.locals[step.operand(0)]); }
void storeGlobal(Step& step) { storeTo(step, step.program.shader.globals[step.operand(0)]); }

// The value keeps its reference, so a twin may stay.
void storeLocalKeep(Step& step) {
  const VarInfo& local = step.function.locals[step.operand(0)];
  if (isBasic(local)) return step.needValueOf(0, local);
  step.needView(0, local.type, local.count);
}

void pop(Step& step) { step.drop(1); }

void popN(Step& step) {
  if (step.needDepth(step.operand(0))) step.drop(step.operand(0));
}

void popReleaseTop(Step& step) {
  // A twin would go on naming a block that may be gone.
  step.needSole(0);
  step.stack.drop(1);
}

void pushEmpty(Step& step) { step.push(inlineSlot(0)); }
void pushU8(Step& step) { step.push(constantSlot(static_cast<int32_t>(step.operand(0)))); }
void pushU32(Step& step) { step.push(constantSlot(static_cast<int32_t>(step.operand(0)))); }
void pushZero4(Step& step) { push4(step, 0); }
void pushOne4F(Step& step) { push4(step, kOneF); }
void push1F(Step& step) { step.push(constantSlot(kOneF)); }

void dup(Step& step) {
  if (step.needRoom()) step.stack.duplicate();
}

void swapTop(Step& step) { step.stack.swap(); }

void makeUnique(Step& step) {
  // Whether a twin would name the copy or the original depends on who else holds the block.
  step.needView(0);
  step.needSole(0);
}

void pushIndex(Step& step) {
  step.needWords(0, 1);
  step.stack.drop(1);
}

void pushIndexImm(Step&) {}

}  // namespace shadermachine::tools::effects
