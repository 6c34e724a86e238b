#include "noise/kernel.h"

#include <cstring>
#include <limits>

namespace shadermachine {
namespace {

// Vectors of the compiler: plain element-wise arithmetic, the same bits as scalar code.
using Float4 = float __attribute__((vector_size(16)));
using Double2 = double __attribute__((vector_size(16)));
using Double4 = double __attribute__((vector_size(32)));

// One axis of the point: its cell and the distances to the cell's two lattice planes.
struct Axis {
  int32_t cells[2];
  float offsets[2];
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

template <class Value>
Value fadeCurve(Value t) {
  return ((t * t) * t) * (t * (6.0 * t - 15.0) + 10.0);
}

template <class Value>
Value lerp(Value a, Value b, double t) {
  return a + (b - a) * t;
}

Axis makeAxis(double coordinate, float kernelScale) {
  const float scaled = static_cast<float>(coordinate) * kernelScale;
  Axis axis;
  axis.cells[0] = cellOf(scaled);
  axis.cells[1] = static_cast<int32_t>(static_cast<uint32_t>(axis.cells[0]) + 1U);
  for (int far = 0; far < 2; ++far)
    axis.offsets[far] = scaled - static_cast<float>(axis.cells[far]);
  return axis;
}

// The four corners of one plane of constant z, in the order near-near, near-far, far-near, far-far
// of (x, y): y varies fastest, so that halves of the result are the two ends of the x axis.
struct Gradients {
  Float4 x, y, z;
};

Gradients gather(const NoiseTableEntries& entries, const Axis& x, const int32_t (&hashes)[2]) {
  const auto gradient = [&entries](int32_t i, int32_t hash) {
    Float4 row;
    std::memcpy(&row, &entries.gradients[wrap(wrap(i) + hash)], sizeof row);
    return row;
  };
  const Float4 g00 = gradient(x.cells[0], hashes[0]);
  const Float4 g01 = gradient(x.cells[0], hashes[1]);
  const Float4 g10 = gradient(x.cells[1], hashes[0]);
  const Float4 g11 = gradient(x.cells[1], hashes[1]);
  const Float4 nearXy = __builtin_shufflevector(g00, g01, 0, 4, 1, 5);
  const Float4 farXy = __builtin_shufflevector(g10, g11, 0, 4, 1, 5);
  const Float4 nearZ = __builtin_shufflevector(g00, g01, 2, 6, 3, 7);
  const Float4 farZ = __builtin_shufflevector(g10, g11, 2, 6, 3, 7);
  return {__builtin_shufflevector(nearXy, farXy, 0, 1, 4, 5),
          __builtin_shufflevector(nearXy, farXy, 2, 3, 6, 7),
          __builtin_shufflevector(nearZ, farZ, 0, 1, 4, 5)};
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
  const auto& [ax, ay, az] = axes;
  const Double2 fadeXy = fadeCurve(Double2{ax.offsets[0], ay.offsets[0]});
  const double fadeZ = fadeCurve<double>(az.offsets[0]);
  const Float4 offsetsX = {ax.offsets[0], ax.offsets[0], ax.offsets[1], ax.offsets[1]};
  const Float4 offsetsY = {ay.offsets[0], ay.offsets[1], ay.offsets[0], ay.offsets[1]};

  double planes[2];
  for (int c = 0; c < 2; ++c) {
    const int32_t hashedZ = entries->permutation[wrap(az.cells[c])];
    const int32_t hashes[2] = {entries->permutation[wrap(wrap(ay.cells[0]) + hashedZ)],
                               entries->permutation[wrap(wrap(ay.cells[1]) + hashedZ)]};
    const Gradients g = gather(*entries, ax, hashes);
    const Float4 corners = (g.x * offsetsX + g.y * offsetsY) + g.z * az.offsets[c];
    const Double4 widened = __builtin_convertvector(corners, Double4);
    Double2 ends[2];
    std::memcpy(ends, &widened, sizeof ends);
    const Double2 edges = lerp(ends[0], ends[1], fadeXy[0]);
    planes[c] = lerp(edges[0], edges[1], fadeXy[1]);
  }
  return lerp(planes[0], planes[1], fadeZ);
}

}  // namespace shadermachine
