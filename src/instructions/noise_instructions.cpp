// The noise instructions: a noise value of the top vector, in every result component.

#include "instructions/float_operands.h"
#include "instructions/handlers.h"
#include "noise/evaluation.h"

namespace shadermachine {

void writeNoise(Machine& machine, uint32_t results) {
  constexpr uint32_t kMaxPoint = 4;
  uint32_t n;
  if (!fetchCount(machine, kMaxPoint, n)) return;
  const Floats point(topSlot(machine));
  const float value = noiseScalar(point.c, n);
  const float components[4] = {value, value, value, value};
  storeFloats(topSlot(machine), components, results);
}

}  // namespace shadermachine
