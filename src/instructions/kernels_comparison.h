// Comparisons, logic and conversions of one component. Booleans are written as 0 or 1 and read as
// true when non-zero.
#pragma once

#include <cstdint>

namespace shadermachine {

struct AndB {
  uint32_t operator()(uint32_t a, uint32_t b) const { return (a != 0) & (b != 0); }
};
struct OrB {
  uint32_t operator()(uint32_t a, uint32_t b) const { return (a | b) != 0; }
};
struct XorB {
  uint32_t operator()(uint32_t a, uint32_t b) const { return (a != 0) != (b != 0); }
};
struct NotB {
  uint32_t operator()(uint32_t x) const { return x == 0; }
};

// W: whole words, for integers and booleans.
struct EqualW {
  uint32_t operator()(uint32_t a, uint32_t b) const { return a == b; }
};
struct NotEqualW {
  uint32_t operator()(uint32_t a, uint32_t b) const { return a != b; }
};
struct LessI {
  uint32_t operator()(int32_t a, int32_t b) const { return a < b; }
};
struct LessEqualI {
  uint32_t operator()(int32_t a, int32_t b) const { return a <= b; }
};
struct GreaterI {
  uint32_t operator()(int32_t a, int32_t b) const { return a > b; }
};
struct GreaterEqualI {
  uint32_t operator()(int32_t a, int32_t b) const { return a >= b; }
};

struct EqualF {
  uint32_t operator()(float a, float b) const { return a == b; }
};
struct NotEqualF {
  uint32_t operator()(float a, float b) const { return a != b; }
};
struct LessF {
  uint32_t operator()(float a, float b) const { return a < b; }
};
struct LessEqualF {
  uint32_t operator()(float a, float b) const { return a <= b; }
};
struct GreaterF {
  uint32_t operator()(float a, float b) const { return a > b; }
};
struct GreaterEqualF {
  uint32_t operator()(float a, float b) const { return a >= b; }
};

struct WordToBool {
  uint32_t operator()(uint32_t x) const { return x != 0; }
};
struct FloatToBool {
  uint32_t operator()(float x) const { return x != 0.0f; }
};
struct BoolToFloat {
  float operator()(uint32_t x) const { return x != 0 ? 1.0f : 0.0f; }
};
struct IntToFloat {
  float operator()(int32_t x) const { return static_cast<float>(x); }
};
struct FloatToInt {
  int32_t operator()(float x) const {
    // False for NaN too; every float inside the range converts without overflow.
    return x >= -2147483648.0f && x < 2147483648.0f ? static_cast<int32_t>(x) : INT32_MIN;
  }
};

}  // namespace shadermachine
