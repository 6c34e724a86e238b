// Arithmetic and bitwise operators on one component.
#pragma once

#include "instructions/kernel.h"

namespace shadermachine {
inline namespace SHADERMACHINE_TARGET {

// Integers wrap modulo 2^32; unsigned arithmetic gives the same words without overflow.
using AddI = OperatorKernel<uint32_t, std::plus<>>;
using SubI = OperatorKernel<uint32_t, std::minus<>>;
using MulI = OperatorKernel<uint32_t, std::multiplies<>>;
// By 0: 0. The quotient of INT32_MIN and -1 does not fit; it wraps like NEG_I.
struct DivI : Kernel<int32_t(int32_t, int32_t)> {
  template <class I>
  I operator()(I a, I b) const {
    const auto negated = std::bit_cast<I>(0u - bitsOf(a));
    const auto isSpecial = (b == 0) | (b == -1);
    const I divided = quotient(a, isSpecial ? splat<I>(1) : b);
    return b == 0 ? I{} : b == -1 ? negated : divided;
  }
};
struct NegI : Kernel<uint32_t(uint32_t)> {
  template <class W>
  W operator()(W x) const {
    return 0u - x;
  }
};
struct IncI : Kernel<uint32_t(uint32_t)> {
  template <class W>
  W operator()(W x) const {
    return x + 1u;
  }
};
struct DecI : Kernel<uint32_t(uint32_t)> {
  template <class W>
  W operator()(W x) const {
    return x - 1u;
  }
};

using AddF = OperatorKernel<float, std::plus<>>;
using SubF = OperatorKernel<float, std::minus<>>;
using MulF = OperatorKernel<float, std::multiplies<>>;
using DivF = OperatorKernel<float, std::divides<>>;
// Division by a scalar: one reciprocal serves all components, so results can differ from DivF's in
// the last bit.
struct MulByReciprocalF : Kernel<float(float, float)> {
  template <class F>
  F operator()(F a, F b) const {
    return a * (1.0f / b);
  }
};
// From +0.0, so that negating either zero gives +0.0.
struct NegF : Kernel<float(float)> {
  template <class F>
  F operator()(F x) const {
    return 0.0f - x;
  }
};
struct IncF : Kernel<float(float)> {
  template <class F>
  F operator()(F x) const {
    return x + 1.0f;
  }
};
struct DecF : Kernel<float(float)> {
  template <class F>
  F operator()(F x) const {
    return x - 1.0f;
  }
};

using BitOr = OperatorKernel<uint32_t, std::bit_or<>>;
using BitXor = OperatorKernel<uint32_t, std::bit_xor<>>;
using BitAnd = OperatorKernel<uint32_t, std::bit_and<>>;
struct BitNot : Kernel<uint32_t(uint32_t)> {
  template <class W>
  W operator()(W x) const {
    return ~x;
  }
};

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine
