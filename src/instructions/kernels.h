// Kernels: the arithmetic of the component-wise instructions, one struct per operation. The plain
// handlers and the translating engine instantiate the same kernels.
#pragma once

#include <shadermachine/machine.h>

#include <bit>
#include <cstdint>

#include "instructions/kernels_arithmetic.h"
#include "instructions/kernels_comparison.h"
#include "instructions/kernels_functions.h"

namespace shadermachine {

// Applies a kernel to words, seen as whatever the kernel takes.
template <class Kernel>
struct WordKernel {
  template <class Result, class... Args>
  static uint32_t apply(Result (Kernel::*)(Args...) const,
                        decltype(static_cast<void>(sizeof(Args)), uint32_t{})... words) {
    return std::bit_cast<uint32_t>(Kernel{}(std::bit_cast<Args>(words)...));
  }
};

template <class Kernel, class... Words>
uint32_t applyKernel(Words... words) {
  return WordKernel<Kernel>::apply(&Kernel::operator(), words...);
}

// Component limit of the instructions that apply a kernel.
template <class Kernel>
constexpr uint32_t kernelLimit() {
  if constexpr (requires { Kernel::kMaxComponents; }) {
    return Kernel::kMaxComponents;
  } else {
    return VM_COMPONENT_COUNT;
  }
}

}  // namespace shadermachine
