// Float copies of slots, for the handlers that combine components.
#pragma once

#include "machine/machine.h"

namespace shadermachine {

struct Floats {
  explicit Floats(const ValueSlot& slot) { std::memcpy(c, slot.value.words, sizeof c); }
  float c[VM_COMPONENT_COUNT];
};

inline void storeFloats(ValueSlot& slot, const float* components, uint32_t count) {
  std::memcpy(slot.value.words, components, count * sizeof(float));
}

}  // namespace shadermachine
