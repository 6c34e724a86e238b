// Built-in functions of one component: angles, trigonometry, exponentials and the common functions.
#pragma once

#include "instructions/kernel.h"

namespace shadermachine {
inline namespace SHADERMACHINE_TARGET {

// The C library's functions. An engine that has them for a vector of floats specializes this for
// the vector, to the same bits in every lane.
template <class F>
struct CLibrary;

template <>
struct CLibrary<float> {
  static float sin(float x) { return std::sin(x); }
  static float cos(float x) { return std::cos(x); }
  static float tan(float x) { return std::tan(x); }
  static float asin(float x) { return std::asin(x); }
  static float acos(float x) { return std::acos(x); }
  static float atan(float x) { return std::atan(x); }
  static float atan2(float y, float x) { return std::atan2(y, x); }
  static float pow(float base, float exponent) { return std::pow(base, exponent); }
  static float exp(float x) { return std::exp(x); }
  static float log(float x) { return std::log(x); }
  static float exp2(float x) { return std::exp2(x); }
};

template <class F>
concept HasCLibrary = requires {
  sizeof(CLibrary<F>);
};

struct RadiansF : Kernel<float(float)> {
  template <class F>
  F operator()(F x) const {
    return x * std::bit_cast<float>(0x3C8EFA35u);
  }
};
struct DegreesF : Kernel<float(float)> {
  template <class F>
  F operator()(F x) const {
    return x * std::bit_cast<float>(0x42652EE1u);
  }
};
// What takes long.
struct AsksCLibrary {};

#define LIBRARY_KERNEL(K, function)               \
  struct K : Kernel<float(float)>, AsksCLibrary { \
    template <HasCLibrary F>                      \
    F operator()(F x) const {                     \
      return CLibrary<F>::function(x);            \
    }                                             \
  };
LIBRARY_KERNEL(SinF, sin)
LIBRARY_KERNEL(CosF, cos)
LIBRARY_KERNEL(TanF, tan)
LIBRARY_KERNEL(AsinF, asin)
LIBRARY_KERNEL(AcosF, acos)
LIBRARY_KERNEL(AtanF, atan)
LIBRARY_KERNEL(ExpF, exp)
LIBRARY_KERNEL(LogF, log)
LIBRARY_KERNEL(Exp2F, exp2)
#undef LIBRARY_KERNEL

struct Atan2F : Kernel<float(float, float)>, AsksCLibrary {
  template <HasCLibrary F>
  F operator()(F y, F x) const {
    return CLibrary<F>::atan2(y, x);
  }
};
struct PowF : Kernel<float(float, float)>, AsksCLibrary {
  template <HasCLibrary F>
  F operator()(F base, F exponent) const {
    return CLibrary<F>::pow(base, exponent);
  }
};
// By the natural logarithm, not log2f: the results are defined that way.
struct Log2F : Kernel<float(float)>, AsksCLibrary {
  template <HasCLibrary F>
  F operator()(F x) const {
    return CLibrary<F>::log(x) * std::bit_cast<float>(0x3FB8AA3Bu);
  }
};
struct SqrtF : Kernel<float(float)> {
  template <class F>
  F operator()(F x) const {
    return squareRoot(x);
  }
};
struct InverseSqrtF : Kernel<float(float)> {
  template <class F>
  F operator()(F x) const {
    return 1.0f / squareRoot(x);
  }
};

inline constexpr float kTwoTo23 = 8388608.0f;

// x rounded to an integral value, ties to even; floats of 2^23 and above are integral already.
// Adding and subtracting a constant of x's sign is exact and, unlike nearbyint, never gives -0.0.
template <class F>
F roundToEven(F x) {
  const F c = withSignOf(magnitude(x) < kTwoTo23 ? splat<F>(kTwoTo23) : F{}, x);
  return (x + c) - c;
}
template <class F>
F floorValue(F x) {
  // In a vector's lane selections are no branches: which way x is rounded no processor predicts.
  using Lanes = VectorOf<float, 4>::Type;
  if constexpr (!kIsVector<F>) return floorValue(Lanes{x})[0];
  // The instruction would give -0.0 for itself.
  if constexpr (kIsVector<F> && requires { floorsOf(x); }) return F(floorsOf(x)) + 0.0f;
  const F r = roundToEven(x);
  // Written so that a NaN difference (x infinite or NaN) subtracts 1.
  return r - (r - x <= 0.0f ? F{} : splat<F>(1.0f));
}
template <class F>
F ceilValue(F x) {
  const F r = roundToEven(x);
  return r + (r - x < 0.0f ? splat<F>(1.0f) : F{});
}

struct AbsF : Kernel<float(float)> {
  template <class F>
  F operator()(F x) const {
    return magnitude(x);
  }
};
struct SignF : Kernel<float(float)> {
  template <class F>
  F operator()(F x) const {
    return x > 0.0f ? splat<F>(1.0f) : x < 0.0f ? splat<F>(-1.0f) : F{};
  }
};
struct FloorF : Kernel<float(float)> {
  template <class F>
  F operator()(F x) const {
    return floorValue(x);
  }
};
struct CeilF : Kernel<float(float)> {
  template <class F>
  F operator()(F x) const {
    return ceilValue(x);
  }
};
struct FractF : Kernel<float(float)> {
  template <class F>
  F operator()(F x) const {
    return x - floorValue(x);
  }
};
struct ModF : Kernel<float(float, float)> {
  template <class F>
  F operator()(F x, F y) const {
    return x - floorValue(x / y) * y;
  }
};

// Selections, not computations: a false comparison (NaN, zeros of either sign) gives the second.
struct MinF : Kernel<float(float, float)> {
  template <class F>
  F operator()(F x, F y) const {
    return x < y ? x : y;
  }
};
struct MaxF : Kernel<float(float, float)> {
  template <class F>
  F operator()(F x, F y) const {
    return x > y ? x : y;
  }
};
struct ClampF : Kernel<float(float, float, float)> {
  template <class F>
  F operator()(F x, F lo, F hi) const {
    const F m = x > lo ? x : lo;
    return m < hi ? m : hi;
  }
};
struct MixF : Kernel<float(float, float, float)> {
  template <class F>
  F operator()(F x, F y, F a) const {
    return x * (1.0f - a) + y * a;
  }
};
struct StepF : Kernel<float(float, float)> {
  template <class F>
  F operator()(F edge, F x) const {
    return edge > x ? F{} : splat<F>(1.0f);
  }
};

// t is the position between the edges before clamping.
template <class F>
F smoothValue(F e0, F e1, F x, F t) {
  t = t > 0.0f ? t : F{};
  t = t < 1.0f ? t : splat<F>(1.0f);
  const F curve = (t * t) * (3.0f - t * 2.0f);
  return e0 >= x ? F{} : x >= e1 ? splat<F>(1.0f) : curve;
}
struct SmoothstepF : Kernel<float(float, float, float)> {
  static constexpr uint32_t kMaxComponents = 4;
  template <class F>
  F operator()(F e0, F e1, F x) const {
    return smoothValue(e0, e1, x, (x - e0) / (e1 - e0));
  }
};
struct SmoothstepByReciprocalF : Kernel<float(float, float, float)> {
  static constexpr uint32_t kMaxComponents = 4;
  template <class F>
  F operator()(F e0, F e1, F x) const {
    return smoothValue(e0, e1, x, (x - e0) * (1.0f / (e1 - e0)));
  }
};

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine
