// The operand of HOST_LOOKUP_1 and HOST_LOOKUP_2: how many slots the look-up takes, sampler first,
// and its kind. The other bits have no meaning.
#pragma once

#include <cstdint>

namespace shadermachine {

// 2, or 3 with an extra word; with fewer the instruction does nothing.
constexpr uint32_t lookupArguments(uint32_t form) { return (form >> 5) & 3; }
constexpr uint32_t lookupKind(uint32_t form) { return (form >> 2) & 7; }
constexpr uint32_t lookupForm(uint32_t arguments, uint32_t kind) {
  return arguments << 5 | kind << 2;
}

}  // namespace shadermachine
