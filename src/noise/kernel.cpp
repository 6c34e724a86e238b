#include "noise/kernel.h"

#include <limits>

namespace shadermachine {
namespace {

// One axis of the point: its cell and the distances to the cell's two lattice planes.
struct Axis {
  int32_t cells[2];
  float offsets[2];
  double fade;
};

int32_t wrap(int32_t i) { return i & 255; }

int32_t truncateToCell(double value) {
  const bool fits = value > -2147483649.0 && value < 2147483648.0;
  return fits ? static_cast<int32_t>(value) : std::numeric_limits<int32_t>::min();
}

int32_t cellOf(float scaled) {
  const double widened = scaled;
  return truncateToCell(scaled < 0.0F ? widened - 1.0 + 1e-9 : widened);
}

double fadeCurve(double t) { return ((t * t) * t) * (t * (6.0 * t - 15.0) + 10.0); }

double lerp(double a, double b, double t) { return a + (b - a) * t; }

Axis makeAxis(double coordinate, float kernelScale) {
  const float scaled = static_cast<float>(coordinate) * kernelScale;
  Axis axis;
  axis.cells[0] = cellOf(scaled);
  axis.cells[1] = static_cast<int32_t>(static_cast<uint32_t>(axis.cells[0]) + 1U);
  for (int far = 0; far < 2; ++far)
    axis.offsets[far] = scaled - static_cast<float>(axis.cells[far]);
  axis.fade = fadeCurve(axis.offsets[0]);
  return axis;
}

double cornerValue(const NoiseTableEntries& entries, const Axis (&axes)[3], int a, int b, int c) {
  const auto& [x, y, z] = axes;
  const uint32_t index = gradientIndex(entries, x.cells[a], y.cells[b], z.cells[c]);
  const NoiseGradient& gradient = entries.gradients[index];
  return (gradient.x * x.offsets[a] + gradient.y * y.offsets[b]) + gradient.z * z.offsets[c];
}

}  // namespace

uint32_t gradientIndex(const NoiseTableEntries& entries, int32_t i, int32_t j, int32_t k) {
  const int32_t* permutation = entries.permutation;
  const int32_t hashedZ = permutation[wrap(k)];
  const int32_t hashedYz = permutation[wrap(wrap(j) + hashedZ)];
  return static_cast<uint32_t>(wrap(wrap(i) + hashedYz));
}

double gradientNoise3(const NoiseTables& tables, const NoiseSettings& settings, double x, double y,
                      double z) {
  const NoiseTableEntries* entries = tables.read();
  if (entries == nullptr) return 0.0;
  const Axis axes[3] = {makeAxis(x, settings.kernelScale), makeAxis(y, settings.kernelScale),
                        makeAxis(z, settings.kernelScale)};
  double planes[2];
  for (int c = 0; c < 2; ++c) {
    double edges[2];
    for (int b = 0; b < 2; ++b)
      edges[b] = lerp(cornerValue(*entries, axes, 0, b, c), cornerValue(*entries, axes, 1, b, c),
                      axes[0].fade);
    planes[c] = lerp(edges[0], edges[1], axes[1].fade);
  }
  return lerp(planes[0], planes[1], axes[2].fade);
}

}  // namespace shadermachine
