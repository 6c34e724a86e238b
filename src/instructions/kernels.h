// Kernels: the arithmetic of the component-wise instructions, one struct per operation. Whoever
// executes instructions instantiates the same kernels: the plain handlers for one component, the
// engines for vectors too.
#pragma once

#include <shadermachine/machine.h>

#include "instructions/kernels_arithmetic.h"
#include "instructions/kernels_comparison.h"
#include "instructions/kernels_functions.h"

namespace shadermachine {
inline namespace SHADERMACHINE_TARGET {

// Component limit of the instructions that apply a kernel.
template <class K>
constexpr uint32_t kernelLimit() {
  if constexpr (requires { K::kMaxComponents; }) {
    return K::kMaxComponents;
  } else {
    return VM_COMPONENT_COUNT;
  }
}

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine
