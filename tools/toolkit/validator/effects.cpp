#include "effects.h"

#include <array>
#include <cassert>

#include "instructions/stack_effect.h"

namespace shadermachine::tools {
namespace {

using Effect = void (*)(Step&);

constexpr std::array<Effect, kOpcodeCount> kEffects = {
#define HANDLER(...) &effects::__VA_ARGS__
#define KERNEL(shape, kernel) &effects::shape
#define OPCODE(number, mnemonic, handler, ...) handler,
#include "instructions/opcodes.def"
#undef OPCODE
#undef KERNEL
#undef HANDLER
};

// An instruction whose operands are wrong has been reported; go on as if it had worked, where the
// table says how many slots it takes and gives.
void skipUnsound(Step& step) {
  const OpcodeInfo& info = step.instruction.info();
  const bool isCall = step.instruction.opcode == Opcode::CALL;
  const bool isJump = step.instruction.opcode == Opcode::JUMP;
  if (isCall || isJump || info.pops == kVaries || info.pushes == kVaries) return step.end();
  step.stack.drop(static_cast<uint32_t>(info.pops));
  for (int8_t i = 0; i < info.pushes; ++i) step.push(unknownSlot());
}

bool endsWithValue(Opcode opcode) {
  return opcode == Opcode::RETURN_VALUE || opcode == Opcode::RETURN_VALUE_2;
}

// The effects follow what the slots hold; how many there are is told elsewhere too, and must agree.
[[maybe_unused]] bool hasDepthOf(const Step& step, uint32_t before) {
  const StackEffect effect = stackEffect(step.instruction, step.program.shader, step.function);
  return !effect.known || step.stack.size() + effect.pops == before + effect.pushes;
}

}  // namespace

void Step::apply() {
  const int8_t pops = instruction.info().pops;
  // The depth first: what follows reads slots below the top and takes them to be there.
  const bool takesLocals = endsWithValue(instruction.opcode);
  if (pops != kVaries && !takesLocals && !needDepth(static_cast<uint32_t>(pops))) return;
  if (!instruction.isSound) return skipUnsound(*this);
  [[maybe_unused]] const uint32_t depth = stack.size();
  kEffects[static_cast<unsigned>(instruction.opcode)](*this);
  assert(hasEnded() || hasDepthOf(*this, depth));
}

}  // namespace shadermachine::tools
