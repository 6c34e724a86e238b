// How a kernel says what it takes and gives: Kernel<float(float, float)> computes a float from two.
// Its call operator is a template, for single values and for vectors alike (values.h).
#pragma once

#include <functional>

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

// An operator on two values of a type that gives a third; Operator is one of <functional>.
template <class T, class Operator>
struct OperatorKernel : Kernel<T(T, T)> {
  template <class V>
  V operator()(V a, V b) const {
    return Operator()(a, b);
  }
};

// A comparison of two values.
template <class T, class Operator>
struct ComparisonKernel : Kernel<uint32_t(T, T)> {
  template <class V>
  auto operator()(V a, V b) const {
    return booleanOf(Operator()(a, b));
  }
};

// Kernels that a vector like V can be given to: all but those of the C library's functions.
template <class K, class V>
concept HasVectorForm = requires(Like<V, typename K::Argument> v) {
  K{}(v);
}
|| requires(Like<V, typename K::Argument> v) { K{}(v, v); }
|| requires(Like<V, typename K::Argument> v) { K{}(v, v, v); };

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine
