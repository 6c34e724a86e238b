// Comparisons, logic and conversions of one component. Booleans are written as 0 or 1 and read as
// true when non-zero.
#pragma once

#include "instructions/kernel.h"

namespace shadermachine {
inline namespace SHADERMACHINE_TARGET {

struct AndB : Kernel<uint32_t(uint32_t, uint32_t)> {
  template <class W>
  W operator()(W a, W b) const {
    return booleanOf(a != 0u) & booleanOf(b != 0u);
  }
};
struct OrB : Kernel<uint32_t(uint32_t, uint32_t)> {
  template <class W>
  W operator()(W a, W b) const {
    return booleanOf((a | b) != 0u);
  }
};
struct XorB : Kernel<uint32_t(uint32_t, uint32_t)> {
  template <class W>
  W operator()(W a, W b) const {
    return booleanOf(a != 0u) ^ booleanOf(b != 0u);
  }
};
struct NotB : Kernel<uint32_t(uint32_t)> {
  template <class W>
  W operator()(W x) const {
    return booleanOf(x == 0u);
  }
};

// W: whole words, for integers and booleans.
using EqualW = ComparisonKernel<uint32_t, std::equal_to<>>;
using NotEqualW = ComparisonKernel<uint32_t, std::not_equal_to<>>;
using LessI = ComparisonKernel<int32_t, std::less<>>;
using LessEqualI = ComparisonKernel<int32_t, std::less_equal<>>;
using GreaterI = ComparisonKernel<int32_t, std::greater<>>;
using GreaterEqualI = ComparisonKernel<int32_t, std::greater_equal<>>;

using EqualF = ComparisonKernel<float, std::equal_to<>>;
using NotEqualF = ComparisonKernel<float, std::not_equal_to<>>;
using LessF = ComparisonKernel<float, std::less<>>;
using LessEqualF = ComparisonKernel<float, std::less_equal<>>;
using GreaterF = ComparisonKernel<float, std::greater<>>;
using GreaterEqualF = ComparisonKernel<float, std::greater_equal<>>;

struct WordToBool : Kernel<uint32_t(uint32_t)> {
  template <class W>
  W operator()(W x) const {
    return booleanOf(x != 0u);
  }
};
struct FloatToBool : Kernel<uint32_t(float)> {
  template <class F>
  auto operator()(F x) const {
    return booleanOf(x != 0.0f);
  }
};
struct BoolToFloat : Kernel<float(uint32_t)> {
  template <class W>
  auto operator()(W x) const {
    using F = Like<W, float>;
    return x != 0u ? splat<F>(1.0f) : F{};
  }
};
struct IntToFloat : Kernel<float(int32_t)> {
  template <class I>
  auto operator()(I x) const {
    return convertTo<float>(x);
  }
};
struct FloatToInt : Kernel<int32_t(float)> {
  template <class F>
  auto operator()(F x) const {
    // False for NaN too; every float inside the range converts without overflow.
    const auto fits = (x >= -2147483648.0f) & (x < 2147483648.0f);
    const auto converted = convertTo<int32_t>(fits ? x : F{});
    return fits ? converted : splat<Like<F, int32_t>>(INT32_MIN);
  }
};

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine
