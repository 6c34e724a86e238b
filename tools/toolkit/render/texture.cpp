#include "render/texture.h"

#include <shadermachine-tools/host_contract.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace shadermachine::tools {
namespace {

using Colour = std::array<float, 4>;

struct Point {
  float u, v;
};

// Into 0 (included) to 1 (not included); whatever is no number becomes 0.
float repeated(float value) {
  const float part = value - std::floor(value);
  return part >= 0 && part < 1 ? part : 0;
}

float wrapped(float value, TextureWrap wrap) {
  if (wrap == TextureWrap::Repeat) return repeated(value);
  if (wrap == TextureWrap::Clamp) return value > 0 ? std::min(value, 1.0f) : 0;
  const float part = 2 * repeated(value / 2);
  return part > 1 ? 2 - part : part;
}

Point onPanorama(const float* d) {
  const float angle = std::atan2(d[0], -d[2]);
  const float height = std::atan2(d[1], std::hypot(d[0], d[2]));
  constexpr float kPi = std::numbers::pi_v<float>;
  // The poles are not to be blended with each other.
  const float v = std::clamp(height / kPi + 0.5f, 0.001f, 0.999f);
  return {angle / (2 * kPi) + 0.5f, v};
}

Point placeOf(uint32_t kind, const float* c) {
  switch (kind) {
    case 1:
      return {c[0], 0.5f};
    case kCubeKind:
      return onPanorama(c);
    case 5:
      return {c[0] / c[1], 0.5f};
    case 6:
      return {c[0] / c[2], c[1] / c[2]};
    case 7:
      return {c[0] / c[3], c[1] / c[3]};
    default:
      return {c[0], c[1]};
  }
}

Colour texel(const ByteImage& image, uint32_t x, uint32_t y) {
  const uint8_t* bytes = image.pixel(x, y);
  Colour colour;
  for (size_t i = 0; i < colour.size(); ++i) colour[i] = static_cast<float>(bytes[i]) / 255;
  return colour;
}

Colour mix(const Colour& a, const Colour& b, float t) {
  Colour result;
  for (size_t i = 0; i < result.size(); ++i) result[i] = a[i] + (b[i] - a[i]) * t;
  return result;
}

// The two texels of one axis that a position lies between, and how far along.
struct Neighbours {
  uint32_t first, second;
  float fraction;
};

Neighbours neighbours(float position, uint32_t size, TextureWrap wrap) {
  const float place = position * static_cast<float>(size) - 0.5f;
  const float floor = std::floor(place);
  const auto first = static_cast<uint32_t>(floor + static_cast<float>(size));  // one too many
  if (wrap == TextureWrap::Repeat) return {first % size, (first + 1) % size, place - floor};
  // Beyond the edge lies the edge, which is also what a mirror shows there.
  const auto inside = [&](uint32_t texel) { return std::clamp(texel, size, 2 * size - 1) - size; };
  return {inside(first), inside(first + 1), place - floor};
}

Colour filtered(const ByteImage& image, TextureFilter filter, TextureWrap wrap, Point place) {
  const float u = wrapped(place.u, wrap);
  // Rows run from top to bottom.
  const float v = wrapped(wrap == TextureWrap::Repeat ? -place.v : 1 - place.v, wrap);
  if (filter == TextureFilter::Nearest) {
    const auto x = static_cast<uint32_t>(u * static_cast<float>(image.width));
    const auto y = static_cast<uint32_t>(v * static_cast<float>(image.height));
    return texel(image, std::min(x, image.width - 1), std::min(y, image.height - 1));
  }
  const Neighbours column = neighbours(u, image.width, wrap);
  const Neighbours row = neighbours(v, image.height, wrap);
  const auto alongRow = [&](uint32_t y) {
    return mix(texel(image, column.first, y), texel(image, column.second, y), column.fraction);
  };
  return mix(alongRow(row.first), alongRow(row.second), row.fraction);
}

// The face of a cube that a direction points to, and the place on it.
Colour onCube(const Texture& texture, const float* d) {
  const float ax = std::abs(d[0]);
  const float ay = std::abs(d[1]);
  const float az = std::abs(d[2]);
  const size_t axis = ax >= ay && ax >= az ? 0 : ay >= az ? 1 : 2;
  const bool isNegative = d[axis] < 0;
  const float sign = isNegative ? -1.0f : 1.0f;
  const float s = axis == 0 ? -sign * d[2] : axis == 1 ? d[0] : sign * d[0];
  const float up = axis == 1 ? -sign * d[2] : d[1];
  const float length = std::abs(d[axis]);
  const Point place = {(s / length + 1) / 2, (up / length + 1) / 2};
  return filtered(texture.faces[2 * axis + (isNegative ? 1 : 0)], texture.filter,
                  TextureWrap::Clamp, place);
}

// Texels outside of the picture are zeros.
Colour texelAt(const ByteImage& image, const float* position) {
  const float column = std::floor(position[0]);
  const float row = std::floor(position[1]);
  const bool inside = column >= 0 && column < static_cast<float>(image.width) && row >= 0 &&
                      row < static_cast<float>(image.height);
  if (!inside) return {};
  return texel(image, static_cast<uint32_t>(column), image.height - 1 - static_cast<uint32_t>(row));
}

}  // namespace

Colour lookUp(const Texture& texture, const LookupRequest& request) {
  const ByteImage& image = texture.image;
  if (image.rgba.empty()) return {0, 0, 0, 1};
  if (request.kind == kCubeKind && texture.faces.size() == 6)
    return onCube(texture, request.coords);
  if (request.kind != kTexelKind) {
    return filtered(image, texture.filter, texture.wrap, placeOf(request.kind, request.coords));
  }
  if (request.param == 0) return texelAt(image, request.coords);
  return {static_cast<float>(image.width), static_cast<float>(image.height), 1, 1};
}

}  // namespace shadermachine::tools
