// Pictures in memory. Row 0 is the top one; four components (red, green, blue, alpha) per pixel.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace shadermachine::tools {

template <class T>
struct Image {
  Image() = default;
  Image(uint32_t w, uint32_t h) : width(w), height(h), rgba(size_t{4} * w * h) {}

  T* pixel(uint32_t x, uint32_t y) { return &rgba[(size_t{y} * width + x) * 4]; }
  const T* pixel(uint32_t x, uint32_t y) const { return &rgba[(size_t{y} * width + x) * 4]; }

  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<T> rgba;
};

using FloatImage = Image<float>;
using ByteImage = Image<uint8_t>;

// Clamps to 0..1 and rounds; NaN becomes 0. No gamma: what a shader writes is what is stored.
uint8_t quantize(float value);
ByteImage quantize(const FloatImage& image);

}  // namespace shadermachine::tools
