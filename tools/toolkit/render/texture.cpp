#include "render/texture.h"

#include <shadermachine-tools/host_contract.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <numbers>

namespace shadermachine::tools {
namespace {

using Colour = std::array<float, 4>;

struct Point {
  float u, v;
};

// Four numbers in one register, as compilers without options for newer processors do not find them.
using Vector = float __attribute__((vector_size(16)));
using Words = int32_t __attribute__((vector_size(16)));

// Of numbers below 2^31; in line, which std::floor() is on newer processors only.
float floorOf(float value) {
  const auto whole = static_cast<float>(static_cast<int32_t>(value));
  return whole > value ? whole - 1 : whole;
}

// Into 0 (included) to 1 (not included); whatever is no number becomes 0, as do those too large for
// a fraction.
float repeated(float value) {
  if (!(std::abs(value) < 0x1p23f)) return 0;
  const float part = value - floorOf(value);
  return part < 1 ? part : 0;
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

// One picture, of bytes or of floats.
struct Level {
  Level(const ByteImage& image)  // NOLINT(google-explicit-constructor)
      : width(image.width), height(image.height), bytes(image.rgba.data()) {}
  Level(const FloatImage& image)  // NOLINT(google-explicit-constructor)
      : width(image.width), height(image.height), floats(image.rgba.data()) {}

  uint32_t width;
  uint32_t height;
  const uint8_t* bytes = nullptr;
  const float* floats = nullptr;
};

Vector texel(const Level& level, uint32_t x, uint32_t y) {
  const size_t place = (size_t{y} * level.width + x) * 4;
  if (level.floats != nullptr) {
    Vector colour;
    std::memcpy(&colour, level.floats + place, sizeof colour);
    return colour;
  }
  const uint8_t* bytes = level.bytes + place;
  const Words words = {bytes[0], bytes[1], bytes[2], bytes[3]};
  return __builtin_convertvector(words, Vector) / 255;
}

struct ReadTexel {
  Vector operator()(const Level& level, uint32_t x, uint32_t y) const { return texel(level, x, y); }
};

Vector mix(const Vector& a, const Vector& b, float t) { return a + (b - a) * t; }

Colour colourOf(const Vector& vector) { return std::bit_cast<Colour>(vector); }

// The two texels of one axis that a position lies between, and how far along.
struct Neighbours {
  uint32_t first, second;
  float fraction;
};

Neighbours neighbours(float position, uint32_t size, TextureWrap wrap) {
  const float place = position * static_cast<float>(size) - 0.5f;
  const float floor = floorOf(place);
  const auto first = static_cast<int32_t>(floor);  // -1 to the last
  const auto last = static_cast<int32_t>(size) - 1;
  // Beyond the edge lies the edge, which is also what a mirror shows there.
  const bool repeats = wrap == TextureWrap::Repeat;
  const int32_t before = repeats ? last : 0, behind = repeats ? 0 : last;
  return {static_cast<uint32_t>(first < 0 ? before : std::min(first, last)),
          static_cast<uint32_t>(first < last ? first + 1 : behind), place - floor};
}

Level levelOf(const Texture& texture, float level) {
  if (texture.floats != nullptr) return *texture.floats;
  if (!(level >= 1) || texture.smaller.empty()) return texture.image;
  // Clamped as a float: an infinite level is no integer.
  const size_t last = texture.smaller.size() - 1;
  return texture.smaller[std::min(static_cast<size_t>(std::min(level, 32.0f)) - 1, last)];
}

// `read` gives a texel of a picture, or what a comparison makes of it.
template <class Read>
Vector filtered(const Level& image, TextureFilter filter, TextureWrap wrap, Point place,
                const Read& read) {
  const float u = wrapped(place.u, wrap);
  // Rows run from top to bottom.
  const float v = wrapped(wrap == TextureWrap::Repeat ? -place.v : 1 - place.v, wrap);
  if (filter == TextureFilter::Nearest) {
    const auto x = static_cast<uint32_t>(u * static_cast<float>(image.width));
    const auto y = static_cast<uint32_t>(v * static_cast<float>(image.height));
    return read(image, std::min(x, image.width - 1), std::min(y, image.height - 1));
  }
  const Neighbours column = neighbours(u, image.width, wrap);
  const Neighbours row = neighbours(v, image.height, wrap);
  const auto alongRow = [&](uint32_t y) {
    return mix(read(image, column.first, y), read(image, column.second, y), column.fraction);
  };
  return mix(alongRow(row.first), alongRow(row.second), row.fraction);
}

// Between two levels, unless the texture is not to be filtered.
template <class Read>
Vector sampled(const Texture& texture, Point place, float level, const Read& read) {
  const auto at = [&](const Level& image) {
    return filtered(image, texture.filter, texture.wrap, place, read);
  };
  if (!(level > 0) || texture.smaller.empty()) return at(levelOf(texture, 0));
  if (texture.filter == TextureFilter::Nearest) return at(levelOf(texture, level + 0.5f));
  const float first = std::floor(level);
  return mix(at(levelOf(texture, first)), at(levelOf(texture, first + 1)), level - first);
}

// The face of a cube that a direction points to, and the place on it.
Vector onCube(const Texture& texture, const float* d) {
  const float ax = std::abs(d[0]);
  const float ay = std::abs(d[1]);
  const float az = std::abs(d[2]);
  const size_t axis = ax >= ay && ax >= az ? 0 : ay >= az ? 1 : 2;
  const bool isNegative = d[axis] < 0;
  const float sign = isNegative ? -1.0f : 1.0f;
  const float s = axis == 0 ? -sign * d[2] : axis == 1 ? d[0] : sign * d[0];
  const float up = axis == 1 ? -sign * d[2] : d[1];
  // 0 where there is no direction; the quotients are NaN then, which wrapped() takes to an edge.
  const float length = std::abs(d[axis]);
  const Point place = {(s / length + 1) / 2, (up / length + 1) / 2};
  return filtered(texture.faces[2 * axis + (isNegative ? 1 : 0)], texture.filter,
                  TextureWrap::Clamp, place, ReadTexel());
}

// Texels outside of the picture are zeros.
Vector texelAt(const Level& image, float x, float y) {
  const float column = std::floor(x);
  const float row = std::floor(y);
  // Compared as floats, where NaN and large numbers are outside; only then they are converted.
  const bool inside = column >= 0 && column < static_cast<float>(image.width) && row >= 0 &&
                      row < static_cast<float>(image.height);
  if (!inside) return Vector{};
  return texel(image, static_cast<uint32_t>(column), image.height - 1 - static_cast<uint32_t>(row));
}

Colour integers(std::array<uint32_t, 4> numbers) { return std::bit_cast<Colour>(numbers); }

// A look-up that a matrix and bits describe (host_contract.h).
class DescribedLookUp {
 public:
  DescribedLookUp(const Texture& texture, const LookupRequest& request)
      : texture_(texture), words_(request.coords), bits_(request.extra) {}

  Colour answer() const {
    switch (static_cast<LookupOperation>(bits_ >> kLookupOperationShift & kLookupOperations)) {
      case LookupOperation::Level:
      case LookupOperation::Sample:
        return finished(sample(words_[11]));
      case LookupOperation::Gradient:
        return finished(sample(levelOfGradients()));
      case LookupOperation::Texel:
        return finished(fetch());
      case LookupOperation::Gather:
        return finished(gather());
      case LookupOperation::Size: {
        const Level image = levelOf(texture_, words_[11]);
        if (has(kLookupIsBuffer)) return integers({image.width * image.height, 1, 1, 1});
        return integers({image.width, dimensions() == 1 ? 1 : image.height, 1, 1});
      }
      case LookupOperation::LevelOfGradients: {
        const float level = levelOfGradients();
        const auto last = static_cast<float>(texture_.smaller.size());
        return {std::clamp(level, 0.0f, last), level, 0, 0};
      }
      default:
        return integers({static_cast<uint32_t>(texture_.smaller.size()) + 1, 0, 0, 0});
    }
  }

 private:
  uint32_t dimensions() const { return bits_ & kLookupDimensions; }
  bool has(uint32_t flag) const { return (bits_ & flag) != 0; }

  Point place(const Level& image) const {
    const auto width = static_cast<float>(image.width);
    const auto height = static_cast<float>(image.height);
    Point point = {words_[0], dimensions() == 1 ? 0.5f : words_[1]};
    if (dimensions() == 4) point = onPanorama(words_);
    if (has(kLookupInTexels)) point = {point.u / width, point.v / height};
    return {point.u + words_[12] / width, point.v + words_[13] / height};
  }

  // Behind the position and the layer, if not apart; of one dimension, there is a gap before it.
  float reference() const {
    if (has(kLookupIsApart)) return words_[7];
    if (dimensions() == 1 && !has(kLookupIsLayered)) return words_[2];
    return words_[std::min(dimensions(), 3u) + (has(kLookupIsLayered) ? 1 : 0)];
  }

  Vector read(const Level& image, uint32_t x, uint32_t y) const {
    const Vector colour = texel(image, x, y);
    if (!has(kLookupCompares)) return colour;
    const float passed = reference() <= colour[0] ? 1.0f : 0.0f;
    return Vector{passed, passed, passed, 1};
  }

  Vector sample(float level) const {
    return sampled(
        texture_, place(levelOf(texture_, level)), level,
        [this](const Level& image, uint32_t x, uint32_t y) { return read(image, x, y); });
  }

  float levelOfGradients() const {
    const auto length = [this](size_t column) {
      const auto [columns, rows] = sizeOf(texture_);
      const auto width = static_cast<float>(columns);
      const auto height = static_cast<float>(rows);
      const bool inTexels = has(kLookupInTexels);
      const float* d = words_ + 4 * column;
      return std::hypot(d[0] * (inTexels ? 1 : width), d[1] * (inTexels ? 1 : height));
    };
    return std::log2(std::max(length(1), length(2)));
  }

  Vector fetch() const {
    const Level image = levelOf(texture_, words_[11]);
    if (has(kLookupIsBuffer)) {
      const auto width = static_cast<float>(image.width);
      const float row = std::floor(words_[0] / width);
      return texelAt(image, words_[0] - row * width, row);
    }
    const float row =
        dimensions() == 1 ? std::floor(static_cast<float>(image.height) / 2) : words_[1];
    return texelAt(image, words_[0] + words_[12], row + words_[13]);
  }

  // Clockwise from the top left.
  Vector gather() const {
    const Level image = levelOf(texture_, 0);
    const Point point = place(image);
    const Neighbours column =
        neighbours(wrapped(point.u, texture_.wrap), image.width, texture_.wrap);
    const Neighbours row = neighbours(
        wrapped(texture_.wrap == TextureWrap::Repeat ? -point.v : 1 - point.v, texture_.wrap),
        image.height, texture_.wrap);
    // The shader's number: what is no component is the nearest one.
    const float number = has(kLookupCompares) || !(words_[15] > 0) ? 0 : std::min(words_[15], 3.0f);
    const auto component = static_cast<size_t>(number);
    return Vector{read(image, column.first, row.first)[component],
                  read(image, column.second, row.first)[component],
                  read(image, column.second, row.second)[component],
                  read(image, column.first, row.second)[component]};
  }

  Colour finished(const Vector& colour) const {
    if (!has(kLookupGivesIntegers)) return colourOf(colour);
    std::array<uint32_t, 4> numbers;
    for (size_t i = 0; i < numbers.size(); ++i) {
      numbers[i] = static_cast<uint32_t>(std::lround(colour[i] * 255));
    }
    return integers(numbers);
  }

  const Texture& texture_;
  const float* words_;
  uint32_t bits_;
};

}  // namespace

TextureSize sizeOf(const Texture& texture) {
  const Level level = levelOf(texture, 0);
  return {level.width, level.height};
}

Colour lookUp(const Texture& texture, const LookupRequest& request) {
  if (sizeOf(texture).width == 0) return {0, 0, 0, 1};
  const bool isLevel = request.param == 0;  // HOST_LOOKUP_2
  if (request.kind == kCubeKind && texture.faces.size() == 6) {
    return colourOf(onCube(texture, request.coords));
  }
  if (request.kind != kTexelKind) {
    const float level = request.hasExtra != 0 ? std::bit_cast<float>(request.extra) : 0;
    const Point place = placeOf(request.kind, request.coords);
    return colourOf(sampled(texture, place, level, ReadTexel()));
  }
  if (isLevel && request.hasExtra != 0) return DescribedLookUp(texture, request).answer();
  const float level = isLevel ? request.coords[2] : request.coords[0];
  const Level chosen = levelOf(texture, level);
  if (isLevel) return colourOf(texelAt(chosen, request.coords[0], request.coords[1]));
  return {static_cast<float>(chosen.width), static_cast<float>(chosen.height), 1, 1};
}

// Each half the size of the one before, down to one texel.
std::vector<ByteImage> smallerLevels(const ByteImage& image) {
  std::vector<ByteImage> levels;
  const ByteImage* from = &image;
  while (!from->rgba.empty() && (from->width > 1 || from->height > 1)) {
    ByteImage half(std::max(from->width / 2, 1u), std::max(from->height / 2, 1u));
    for (uint32_t y = 0; y < half.height; ++y) {
      for (uint32_t x = 0; x < half.width; ++x) {
        // A side of one texel counts it twice; of an odd side the last texel is left out.
        const uint32_t right = std::min(2 * x + 1, from->width - 1);
        const uint32_t below = std::min(2 * y + 1, from->height - 1);
        const uint32_t left = std::min(2 * x, right), above = std::min(2 * y, below);
        for (size_t i = 0; i < 4; ++i) {
          const int sum = from->pixel(left, above)[i] + from->pixel(right, above)[i] +
                          from->pixel(left, below)[i] + from->pixel(right, below)[i];
          half.pixel(x, y)[i] = static_cast<uint8_t>((sum + 2) / 4);
        }
      }
    }
    levels.push_back(std::move(half));
    from = &levels.back();
  }
  return levels;
}

std::array<float, 4> lookUpIn(const Texture* texture, const LookupRequest& request) {
  return texture != nullptr ? lookUp(*texture, request) : std::array<float, 4>{0, 0, 0, 1};
}

}  // namespace shadermachine::tools
