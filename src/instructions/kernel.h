// How a kernel says what it takes and gives: Kernel<float(float, float)> computes a float from two.
// Its call operator is a template, for single values and for vectors alike (values.h).
#pragma once

#include "instructions/values.h"

namespace shadermachine {
inline namespace SHADERMACHINE_TARGET {

template <class Signature>
struct Kernel;

template <class R, class... Args>
struct Kernel<R(Args...)> {
  using Result = R;
  using Argument = std::common_type_t<Args...>;
  static constexpr size_t kOperands = sizeof...(Args);
};

// Applies a kernel to words, or to vectors of words, seen as whatever the kernel takes.
template <class K, class... Words>
auto applyKernel(Words... words) {
  using Word = std::common_type_t<Words...>;
  return std::bit_cast<Word>(K{}(std::bit_cast<Like<Word, typename K::Argument>>(words)...));
}

// Kernels that a vector like V can be given to: all but those of the C library's functions.
template <class K, class V>
concept HasVectorForm = requires(Like<V, typename K::Argument> v) {
  K{}(v);
}
|| requires(Like<V, typename K::Argument> v) { K{}(v, v); }
|| requires(Like<V, typename K::Argument> v) { K{}(v, v, v); };

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine
