#include "view/zoom.h"

#include <algorithm>
#include <cmath>

namespace shadermachine::tools {
namespace {

int floorOf(int value, int divisor) {
  return value >= 0 ? value / divisor : -((-value + divisor - 1) / divisor);
}

void blend(const float* colour, uint32_t x, uint32_t y, uint8_t* to) {
  const float board = ((x / 8 + y / 8) & 1) != 0 ? 0.4f : 0.3f;
  const float alpha = colour[3] > 0 ? std::min(colour[3], 1.0f) : 0;
  for (size_t i = 0; i < 3; ++i) {
    // No product with an infinity where nothing of it is to be seen.
    to[i] = quantize(alpha >= 1  ? colour[i]
                     : alpha > 0 ? board + (colour[i] - board) * alpha
                                 : board);
  }
}

}  // namespace

void Zoom::change(int steps, int x, int y) {
  const auto [column, row] = placeAt(x, y);
  for (; steps > 0 && scale_ < kMaxScale; --steps) scale_ *= 2;
  for (; steps < 0 && scale_ > 1; ++steps) scale_ /= 2;
  left_ = scale_ == 1 ? 0 : x - static_cast<int>(std::floor(column * scale_));
  top_ = scale_ == 1 ? 0 : y - static_cast<int>(std::floor(row * scale_));
}

void Zoom::drag(int x, int y) {
  if (scale_ == 1) return;
  left_ += x;
  top_ += y;
}

std::array<int, 2> Zoom::pixelAt(int x, int y) const {
  return {floorOf(x - left_, scale_), floorOf(y - top_, scale_)};
}

std::array<double, 2> Zoom::placeAt(double x, double y) const {
  return {(x - left_) / scale_, (y - top_) / scale_};
}

std::array<int, 2> Zoom::windowPlace(int column, int row) const {
  return {left_ + column * scale_, top_ + row * scale_};
}

ByteImage Zoom::show(const FloatImage& picture, uint32_t width, uint32_t height) const {
  ByteImage window(width, height);
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* to = window.pixel(0, y);
    for (uint32_t x = 0; x < width; ++x, to += 4) {
      const auto [column, row] = pixelAt(static_cast<int>(x), static_cast<int>(y));
      to[3] = 255;
      const bool isInside = column >= 0 && static_cast<uint32_t>(column) < picture.width &&
                            row >= 0 && static_cast<uint32_t>(row) < picture.height;
      if (isInside) {
        blend(picture.pixel(static_cast<uint32_t>(column), static_cast<uint32_t>(row)), x, y, to);
      }
    }
  }
  return window;
}

}  // namespace shadermachine::tools
