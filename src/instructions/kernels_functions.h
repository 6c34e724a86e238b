// Built-in functions of one component: angles, trigonometry, exponentials and the common functions.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

namespace shadermachine {

struct RadiansF {
  float operator()(float x) const { return x * std::bit_cast<float>(0x3C8EFA35u); }
};
struct DegreesF {
  float operator()(float x) const { return x * std::bit_cast<float>(0x42652EE1u); }
};
struct SinF {
  float operator()(float x) const { return std::sin(x); }
};
struct CosF {
  float operator()(float x) const { return std::cos(x); }
};
struct TanF {
  float operator()(float x) const { return std::tan(x); }
};
struct AsinF {
  float operator()(float x) const { return std::asin(x); }
};
struct AcosF {
  float operator()(float x) const { return std::acos(x); }
};
struct AtanF {
  float operator()(float x) const { return std::atan(x); }
};
struct Atan2F {
  float operator()(float y, float x) const { return std::atan2(y, x); }
};

struct PowF {
  float operator()(float base, float exponent) const { return std::pow(base, exponent); }
};
struct ExpF {
  float operator()(float x) const { return std::exp(x); }
};
struct LogF {
  float operator()(float x) const { return std::log(x); }
};
struct Exp2F {
  float operator()(float x) const { return std::exp2(x); }
};
// By the natural logarithm, not log2f: the results are defined that way.
struct Log2F {
  float operator()(float x) const { return std::log(x) * std::bit_cast<float>(0x3FB8AA3Bu); }
};
struct SqrtF {
  float operator()(float x) const { return std::sqrt(x); }
};
struct InverseSqrtF {
  float operator()(float x) const { return 1.0f / std::sqrt(x); }
};

inline constexpr float kTwoTo23 = 8388608.0f;

// x rounded to an integral value, ties to even; floats of 2^23 and above are integral already.
// Adding and subtracting a constant of x's sign is exact and, unlike nearbyint, never gives -0.0.
inline float roundToEven(float x) {
  const float c = std::copysign(std::fabs(x) < kTwoTo23 ? kTwoTo23 : 0.0f, x);
  return (x + c) - c;
}
inline float floorValue(float x) {
  const float r = roundToEven(x);
  // Written so that a NaN difference (x infinite or NaN) takes the first branch.
  return !(r - x <= 0.0f) ? r - 1.0f : r - 0.0f;
}
inline float ceilValue(float x) {
  const float r = roundToEven(x);
  return r - x < 0.0f ? r + 1.0f : r + 0.0f;
}

struct AbsF {
  uint32_t operator()(uint32_t x) const { return x & 0x7FFFFFFFu; }
};
struct SignF {
  float operator()(float x) const { return x > 0.0f ? 1.0f : x < 0.0f ? -1.0f : 0.0f; }
};
struct FloorF {
  float operator()(float x) const { return floorValue(x); }
};
struct CeilF {
  float operator()(float x) const { return ceilValue(x); }
};
struct FractF {
  float operator()(float x) const { return x - floorValue(x); }
};
struct ModF {
  float operator()(float x, float y) const { return x - floorValue(x / y) * y; }
};

// Selections, not computations: a false comparison (NaN, zeros of either sign) gives the second.
struct MinF {
  float operator()(float x, float y) const { return x < y ? x : y; }
};
struct MaxF {
  float operator()(float x, float y) const { return x > y ? x : y; }
};
struct ClampF {
  float operator()(float x, float lo, float hi) const {
    const float m = x > lo ? x : lo;
    return m < hi ? m : hi;
  }
};
struct MixF {
  float operator()(float x, float y, float a) const { return x * (1.0f - a) + y * a; }
};
struct StepF {
  float operator()(float edge, float x) const { return edge > x ? 0.0f : 1.0f; }
};

// t is the position between the edges before clamping.
inline float smoothValue(float e0, float e1, float x, float t) {
  t = t > 0.0f ? t : 0.0f;
  t = t < 1.0f ? t : 1.0f;
  if (e0 >= x) return 0.0f;
  if (x >= e1) return 1.0f;
  return (t * t) * (3.0f - t * 2.0f);
}
struct SmoothstepF {
  static constexpr uint32_t kMaxComponents = 4;
  float operator()(float e0, float e1, float x) const {
    return smoothValue(e0, e1, x, (x - e0) / (e1 - e0));
  }
};
struct SmoothstepByReciprocalF {
  static constexpr uint32_t kMaxComponents = 4;
  float operator()(float e0, float e1, float x) const {
    return smoothValue(e0, e1, x, (x - e0) * (1.0f / (e1 - e0)));
  }
};

}  // namespace shadermachine
