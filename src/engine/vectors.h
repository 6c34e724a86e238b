// Kernels applied to the components of a vector register at once.
#pragma once

#include <bit>

#include "engine/records.h"
#include "instructions/kernels.h"

namespace shadermachine::engine {

inline FloatVector splat(float x) { return FloatVector{x, x, x, x}; }

// Any kernel, component by component: n of them, the other lanes are zero.
template <class K, uint32_t n, class... Operands>
FloatVector eachComponent(Operands... operands) {
  FloatVector result = {};
  for (uint32_t i = 0; i < n; ++i) {
    result[i] = std::bit_cast<float>(applyKernel<K>(std::bit_cast<uint32_t>(operands[i])...));
  }
  return result;
}

template <class K, uint32_t n, class... Operands>
FloatVector applyLanes(Operands... operands) {
  if constexpr (HasVectorForm<K, FloatVector>) {
    return applyKernel<K>(operands...);
  } else {
    return eachComponent<K, n>(operands...);
  }
}

// Loads and stores of n components. Three take a whole register: the fourth word of a slot that
// holds three is dead.
template <uint32_t n>
FloatVector loadVector(const uint32_t* words) {
  if constexpr (n == 2) {
    using PairVector = uint64_t __attribute__((vector_size(16)));
    uint64_t pair;
    std::memcpy(&pair, words, sizeof pair);
    return std::bit_cast<FloatVector>(PairVector{pair, 0});
  } else {
    FloatVector v;
    std::memcpy(&v, words, sizeof v);
    return v;
  }
}

// For stores to words of any alignment. memcpy() would do, but clang 14 goes through a copy of the
// vector on the stack then, and guards it; with __attribute__ behind `using` it takes no notice of
// the alignment.
typedef float LooseVector __attribute__((vector_size(16), aligned(4), may_alias));
typedef uint64_t LoosePair __attribute__((aligned(4), may_alias));

template <uint32_t n>
void storeVector(uint32_t* words, FloatVector v) {
  if constexpr (n == 2) {
    using PairVector = uint64_t __attribute__((vector_size(16)));
    *reinterpret_cast<LoosePair*>(words) = std::bit_cast<PairVector>(v)[0];
  } else {
    *reinterpret_cast<LooseVector*>(words) = v;
  }
}

}  // namespace shadermachine::engine
