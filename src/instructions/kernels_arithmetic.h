// Arithmetic and bitwise operators on one component.
#pragma once

#include <cstdint>

namespace shadermachine {

// Integers wrap modulo 2^32; unsigned arithmetic gives the same words without overflow.
struct AddI {
  uint32_t operator()(uint32_t a, uint32_t b) const { return a + b; }
};
struct SubI {
  uint32_t operator()(uint32_t a, uint32_t b) const { return a - b; }
};
struct MulI {
  uint32_t operator()(uint32_t a, uint32_t b) const { return a * b; }
};
struct DivI {
  int32_t operator()(int32_t a, int32_t b) const {
    if (b == 0) return 0;
    // The quotient of INT32_MIN and -1 does not fit; it wraps like NEG_I.
    if (b == -1) return static_cast<int32_t>(0u - static_cast<uint32_t>(a));
    return a / b;
  }
};
struct NegI {
  uint32_t operator()(uint32_t x) const { return 0u - x; }
};
struct IncI {
  uint32_t operator()(uint32_t x) const { return x + 1u; }
};
struct DecI {
  uint32_t operator()(uint32_t x) const { return x - 1u; }
};

struct AddF {
  float operator()(float a, float b) const { return a + b; }
};
struct SubF {
  float operator()(float a, float b) const { return a - b; }
};
struct MulF {
  float operator()(float a, float b) const { return a * b; }
};
struct DivF {
  float operator()(float a, float b) const { return a / b; }
};
// Division by a scalar: one reciprocal serves all components, so results can differ from DivF's in
// the last bit.
struct MulByReciprocalF {
  float operator()(float a, float b) const { return a * (1.0f / b); }
};
// From +0.0, so that negating either zero gives +0.0.
struct NegF {
  float operator()(float x) const { return 0.0f - x; }
};
struct IncF {
  float operator()(float x) const { return x + 1.0f; }
};
struct DecF {
  float operator()(float x) const { return x - 1.0f; }
};

struct BitOr {
  uint32_t operator()(uint32_t a, uint32_t b) const { return a | b; }
};
struct BitXor {
  uint32_t operator()(uint32_t a, uint32_t b) const { return a ^ b; }
};
struct BitAnd {
  uint32_t operator()(uint32_t a, uint32_t b) const { return a & b; }
};
struct BitNot {
  uint32_t operator()(uint32_t x) const { return ~x; }
};

}  // namespace shadermachine
