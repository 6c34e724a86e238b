// The noise kernel for a vector of points, with the bits of noise/kernel.h in every lane. There one
// point's corners share a vector; here each corner's gradients of all points do.
#pragma once

#include <cstring>

#include "noise/evaluation.h"

namespace shadermachine::batch {
inline namespace SHADERMACHINE_TARGET {

// One axis of the points: their cells, and the distances to the cells' two lattice planes.
template <class F>
struct Axes {
  Like<F, int32_t> cells[2];
  F offsets[2];
};

template <class F, class D>
[[gnu::always_inline]] inline Axes<F> makeAxes(D coordinates, float kernelScale) {
  using I = Like<F, int32_t>;
  const F scaled = convertTo<float>(coordinates) * kernelScale;
  const D widened = convertTo<double>(scaled);
  const D lowered = widened < 0.0 ? widened - 1.0 + 1e-9 : widened;
  const auto fits = (lowered > -2147483649.0) & (lowered < 2147483648.0);
  const I whole = convertTo<int32_t>(fits ? lowered : D{});
  Axes<F> axes;
  axes.cells[0] = narrowed(fits) != 0 ? whole : splat<I>(INT32_MIN);
  axes.cells[1] = std::bit_cast<I>(bitsOf(axes.cells[0]) + 1u);
  for (int far = 0; far < 2; ++far) {
    axes.offsets[far] = scaled - convertTo<float>(axes.cells[far]);
  }
  return axes;
}

template <class I>
I lookUpPermutation(const NoiseTableEntries& entries, I index) {
  const I wrapped = index & 255;
#if defined(__AVX512F__)
  if constexpr (sizeof(I) == 32) {
    return I(_mm256_i32gather_epi32(entries.permutation, std::bit_cast<__m256i>(wrapped), 4));
  }
#endif
  I result;
  for (size_t i = 0; i < kLanes<I>; ++i) result[i] = entries.permutation[wrapped[i]];
  return result;
}

template <class F>
struct Gradients {
  F x, y, z;
};

template <class Row>
Row loadGradient(const NoiseGradient* table, uint32_t byte) {
  Row row;
  std::memcpy(&row, reinterpret_cast<const char*>(table) + byte, sizeof row);
  return row;
}

// The gradients at so many bytes from the table's start: unsigned, so that a lane is an address as
// it is. Four lanes are four rows of the table, turned; wider vectors are halves.
template <class F>
[[gnu::always_inline]] inline Gradients<F> gatherGradients(const NoiseGradient* table,
                                                           Like<F, uint32_t> bytes) {
  if constexpr (kLanes < F >> 4) {
    const auto low = gatherGradients<decltype(lowHalf(F{}))>(table, lowHalf(bytes));
    const auto high = gatherGradients<decltype(lowHalf(F{}))>(table, highHalf(bytes));
    return {joinHalves(low.x, high.x), joinHalves(low.y, high.y), joinHalves(low.z, high.z)};
  } else if constexpr (kLanes<F> == 4) {
    const F g0 = loadGradient<F>(table, bytes[0]);
    const F g1 = loadGradient<F>(table, bytes[1]);
    const F g2 = loadGradient<F>(table, bytes[2]);
    const F g3 = loadGradient<F>(table, bytes[3]);
    const F near = __builtin_shufflevector(g0, g1, 0, 4, 1, 5);
    const F far = __builtin_shufflevector(g2, g3, 0, 4, 1, 5);
    const F nearZ = __builtin_shufflevector(g0, g1, 2, 6, 3, 7);
    const F farZ = __builtin_shufflevector(g2, g3, 2, 6, 3, 7);
    return {__builtin_shufflevector(near, far, 0, 1, 4, 5),
            __builtin_shufflevector(near, far, 2, 3, 6, 7),
            __builtin_shufflevector(nearZ, farZ, 0, 1, 4, 5)};
  } else {
    Gradients<F> result;
    for (size_t i = 0; i < kLanes<F>; ++i) {
      const auto row = loadGradient<NoiseGradient>(table, bytes[i]);
      result.x[i] = row.x;
      result.y[i] = row.y;
      result.z[i] = row.z;
    }
    return result;
  }
}

template <class D>
D fadeCurve(D t) {
  return ((t * t) * t) * (t * (6.0 * t - 15.0) + 10.0);
}

template <class D>
D mixDoubles(D a, D b, D t) {
  return a + (b - a) * t;
}

template <class D>
D vectorNoise(const NoiseTableEntries& entries, const NoiseSettings& settings, D x, D y, D z) {
  using F = Like<D, float>;
  constexpr uint32_t kRowBytes = sizeof(NoiseGradient);
  const auto ax = makeAxes<F>(x, settings.kernelScale);
  const auto ay = makeAxes<F>(y, settings.kernelScale);
  const auto az = makeAxes<F>(z, settings.kernelScale);
  const D fadeX = fadeCurve(convertTo<double>(ax.offsets[0]));
  const D fadeY = fadeCurve(convertTo<double>(ay.offsets[0]));
  const D fadeZ = fadeCurve(convertTo<double>(az.offsets[0]));
  const auto corner = [&](int i, int j, int k, auto hash) __attribute__((always_inline)) {
    const auto rows = ((ax.cells[i] & 255) + hash) & 255;
    const auto g = gatherGradients<F>(entries.gradients, bitsOf(rows) * kRowBytes);
    return convertTo<double>((g.x * ax.offsets[i] + g.y * ay.offsets[j]) + g.z * az.offsets[k]);
  };
  const auto edge = [&](int j, int k, auto hashedZ) __attribute__((always_inline)) {
    const auto hash = lookUpPermutation(entries, (ay.cells[j] & 255) + hashedZ);
    return mixDoubles(corner(0, j, k, hash), corner(1, j, k, hash), fadeX);
  };
  const auto plane = [&](int k) __attribute__((always_inline)) {
    const auto hashedZ = lookUpPermutation(entries, az.cells[k]);
    return mixDoubles(edge(0, k, hashedZ), edge(1, k, hashedZ), fadeY);
  };
  return mixDoubles(plane(0), plane(1), fadeZ);
}

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine::batch

namespace shadermachine {
inline namespace SHADERMACHINE_TARGET {

template <class D>
requires kIsVector<D> D gradientNoise3(const NoiseTables& tables, const NoiseSettings& settings,
                                       D x, D y, D z) {
  const NoiseTableEntries* entries = tables.read();
  return entries == nullptr ? D{} : batch::vectorNoise(*entries, settings, x, y, z);
}

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine
