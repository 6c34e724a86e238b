// The noise generator written down directly, one corner after another: what the library's kernel is
// measured against. The gradient and permutation tables are the library's own.

#include <cmath>
#include <cstdint>

#include "native.h"
#include "noise/tables.h"

namespace shadermachine::benchmarks {
namespace {

struct Axis {
  int32_t cell;
  float nearOffset, farOffset;
  double fade;
};

Axis makeAxis(double coordinate) {
  const auto c = static_cast<float>(coordinate);
  const double widened = c;
  const auto cell = static_cast<int32_t>(c < 0.0f ? widened - 1.0 + 1e-9 : widened);
  const float offset = c - static_cast<float>(cell);
  const double t = offset;
  return {cell, offset, c - static_cast<float>(cell + 1),
          ((t * t) * t) * (t * (6.0 * t - 15.0) + 10.0)};
}

double corner(const NoiseTableEntries& entries, const Axis (&axes)[3], int a, int b, int c) {
  const int32_t* permutation = entries.permutation;
  const int32_t hashedZ = permutation[(axes[2].cell + c) & 255];
  const int32_t hashedY = permutation[((axes[1].cell + b) + hashedZ) & 255];
  const NoiseGradient& g = entries.gradients[((axes[0].cell + a) + hashedY) & 255];
  const float x = a == 0 ? axes[0].nearOffset : axes[0].farOffset;
  const float y = b == 0 ? axes[1].nearOffset : axes[1].farOffset;
  const float z = c == 0 ? axes[2].nearOffset : axes[2].farOffset;
  return (g.x * x + g.y * y) + g.z * z;
}

double lerp(double a, double b, double t) { return a + (b - a) * t; }

double kernel(const NoiseTableEntries& entries, double x, double y, double z) {
  const Axis axes[3] = {makeAxis(x), makeAxis(y), makeAxis(z)};
  double planes[2];
  for (int c = 0; c < 2; ++c) {
    double edges[2];
    for (int b = 0; b < 2; ++b) {
      edges[b] = lerp(corner(entries, axes, 0, b, c), corner(entries, axes, 1, b, c), axes[0].fade);
    }
    planes[c] = lerp(edges[0], edges[1], axes[1].fade);
  }
  return lerp(planes[0], planes[1], axes[2].fade);
}

}  // namespace

void nativeNoise(const Inputs& inputs, Color& color) {
  const NoiseTableEntries& entries = *noiseTables().read();
  double sum = 0.0;
  double frequency = 1.0;
  for (int octave = 0; octave < 3; ++octave, frequency *= 2.0) {
    sum += kernel(entries, inputs.position[0] * frequency, inputs.position[1] * frequency,
                  inputs.position[2] * frequency);
  }
  const float t = static_cast<float>(1.0 + sum / 3.0) * 0.5f;
  const float r = t <= 0.500001f ? t * 0.5f / 0.500001f : (t - 0.5f) * 0.5f / 0.500001f + 0.5f;
  color.fill((r - 1.0f) + r);
}

}  // namespace shadermachine::benchmarks
