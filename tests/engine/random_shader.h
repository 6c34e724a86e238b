// Random shaders that are valid and end: expressions, stores, branches, loops, calls and host calls
// over the whole instruction set.
#pragma once

#include <shadermachine-tools/shader_builder.h>

#include <cstdint>
#include <random>
#include <span>

namespace shadermachine::tests {

// Where decisions come from: a seed, or bytes (when they end, zeros).
class Choices {
 public:
  explicit Choices(uint32_t seed) : random_(seed) {}
  explicit Choices(std::span<const uint8_t> bytes) : bytes_(bytes), fromBytes_(true) {}

  // 0 to n - 1.
  uint32_t below(uint32_t n) { return next() % n; }
  bool oneIn(uint32_t n) { return below(n) == 0; }
  uint32_t word() { return next() << 16 ^ next(); }

 private:
  uint32_t next() {
    if (!fromBytes_) return static_cast<uint32_t>(random_() >> 3);
    if (position_ + 2 > bytes_.size()) return 0;
    position_ += 2;
    return bytes_[position_ - 2] | static_cast<uint32_t>(bytes_[position_ - 1]) << 8;
  }

  std::mt19937 random_;
  std::span<const uint8_t> bytes_;
  size_t position_ = 0;
  bool fromBytes_ = false;
};

tools::BuiltShader randomShader(Choices choices);

}  // namespace shadermachine::tests
