// Arithmetic and bitwise operators on one component.
#pragma once

#include "instructions/kernel.h"

namespace shadermachine {
inline namespace SHADERMACHINE_TARGET {

// Integers wrap modulo 2^32; unsigned arithmetic gives the same words without overflow.
struct AddI : Kernel<uint32_t(uint32_t, uint32_t)> {
  template <class W>
  W operator()(W a, W b) const {
    return a + b;
  }
};
struct SubI : Kernel<uint32_t(uint32_t, uint32_t)> {
  template <class W>
  W operator()(W a, W b) const {
    return a - b;
  }
};
struct MulI : Kernel<uint32_t(uint32_t, uint32_t)> {
  template <class W>
  W operator()(W a, W b) const {
    return a * b;
  }
};
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

struct AddF : Kernel<float(float, float)> {
  template <class F>
  F operator()(F a, F b) const {
    return a + b;
  }
};
struct SubF : Kernel<float(float, float)> {
  template <class F>
  F operator()(F a, F b) const {
    return a - b;
  }
};
struct MulF : Kernel<float(float, float)> {
  template <class F>
  F operator()(F a, F b) const {
    return a * b;
  }
};
struct DivF : Kernel<float(float, float)> {
  template <class F>
  F operator()(F a, F b) const {
    return a / b;
  }
};
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

struct BitOr : Kernel<uint32_t(uint32_t, uint32_t)> {
  template <class W>
  W operator()(W a, W b) const {
    return a | b;
  }
};
struct BitXor : Kernel<uint32_t(uint32_t, uint32_t)> {
  template <class W>
  W operator()(W a, W b) const {
    return a ^ b;
  }
};
struct BitAnd : Kernel<uint32_t(uint32_t, uint32_t)> {
  template <class W>
  W operator()(W a, W b) const {
    return a & b;
  }
};
struct BitNot : Kernel<uint32_t(uint32_t)> {
  template <class W>
  W operator()(W x) const {
    return ~x;
  }
};

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine
