// Values as the 32-bit words a slot holds.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <vector>

namespace shadermachine::tests {

using Words = std::vector<uint32_t>;

inline constexpr float kInfinity = std::numeric_limits<float>::infinity();
inline constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
inline constexpr uint32_t kMinusZero = 0x80000000;
inline constexpr int32_t kIntMin = std::numeric_limits<int32_t>::min();

// As an expected word: any NaN, since compilers may choose sign and payload of a computed one.
inline constexpr uint32_t kAnyNan = 0x7FC0A11A;

constexpr uint32_t bits(float value) { return std::bit_cast<uint32_t>(value); }
constexpr float asFloat(uint32_t word) { return std::bit_cast<float>(word); }

inline Words floats(std::initializer_list<float> values) {
  Words words;
  for (float value : values) words.push_back(std::isnan(value) ? kAnyNan : bits(value));
  return words;
}

inline Words ints(std::initializer_list<int64_t> values) {
  Words words;
  for (int64_t value : values) words.push_back(static_cast<uint32_t>(value));
  return words;
}

inline bool matches(uint32_t actual, uint32_t expected) {
  return expected == kAnyNan ? std::isnan(asFloat(actual)) : actual == expected;
}

// What test inputs hold past the words they state: differs by input and component.
constexpr uint32_t fillerWord(size_t input, size_t component) {
  return static_cast<uint32_t>(0x5A000000 | input << 8 | component);
}

}  // namespace shadermachine::tests
