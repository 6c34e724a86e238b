// Decisions of a generator, taken from a fuzzer's bytes. When they are used up every answer is 0,
// which generators treat as the simplest choice, so that they come to an end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <span>
#include <vector>

namespace shadermachine::fuzz {

class Choices {
 public:
  explicit Choices(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  bool empty() const { return bytes_.empty(); }
  std::span<const uint8_t> rest() const { return bytes_; }

  template <class T>
  T value() {
    T result = {};
    const size_t size = bytes_.size() < sizeof(T) ? bytes_.size() : sizeof(T);
    if (size != 0) std::memcpy(&result, bytes_.data(), size);
    bytes_ = bytes_.subspan(size);
    return result;
  }

  // 0 to count - 1; one byte as long as that is enough.
  uint32_t below(uint32_t count) {
    if (count <= 1) return 0;
    return (count <= 256 ? value<uint8_t>() : value<uint32_t>()) % count;
  }
  uint32_t between(uint32_t first, uint32_t last) { return first + below(last - first + 1); }
  bool oneIn(uint32_t count) { return !empty() && below(count) == 1 % count; }

  template <class Container>
  const auto& of(const Container& container) {
    return *(std::begin(container) + below(static_cast<uint32_t>(std::size(container))));
  }

 private:
  std::span<const uint8_t> bytes_;
};

// Bytes for generators that no fuzzer feeds; the same for the same seed.
inline std::vector<uint8_t> randomBytes(uint32_t seed, size_t size) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(size);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

}  // namespace shadermachine::fuzz
