// The noise functions of the shading language: octaves of the kernel, mapped into -1 to 1. The
// steps are templates over the value: F is a float or a vector of them, D the same of doubles.
#pragma once

#include "instructions/kernels_functions.h"
#include "noise/kernel.h"

namespace shadermachine {

// Noise of a point of `count` components, 0 to 4 (above: as 4). A fourth component blends two
// three-dimensional evaluations. A NaN component gives NaN.
float noiseScalar(const float* values, uint32_t count);
float noiseScalar(const NoiseTables& tables, const NoiseSettings& settings, const float* values,
                  uint32_t count);

}  // namespace shadermachine

namespace shadermachine {
inline namespace SHADERMACHINE_TARGET {

template <class D>
D octaveSum(const NoiseTables& tables, const NoiseSettings& settings, const D (&point)[3]) {
  const auto [x, y, z] = point;
  if (settings.combineMode == 0) return gradientNoise3(tables, settings, x, y, z);
  const bool sums = settings.combineMode >= 1 && settings.combineMode <= 3;
  double amplitude = 1.0;
  double frequency = 1.0;
  D sum = {};
  double total = 0.0;
  for (int32_t octave = 0; octave < settings.octaves; ++octave) {
    const D value = gradientNoise3(tables, settings, x * frequency, y * frequency, z * frequency);
    if (sums) sum += (settings.absolute != 0 ? magnitude(value) : value) * amplitude;
    total += amplitude;
    frequency *= settings.freqFactor;
    amplitude = (amplitude / settings.ampDivisor) * settings.ampFactor;
  }
  const D mean = sum / total;
  return settings.combineMode == 2 || settings.absolute != 0 ? magnitude(mean) : mean;
}

template <class F>
F cosineEased(F t, float weight) {
  const float m = (weight + 1.0F) * 0.5F;
  return t * (1.0F - m) + ((1.0F - CLibrary<F>::cos(3.1415F * t)) * 0.5F) * m;
}

template <class D>
auto toUnit(const NoiseSettings& settings, D value) {
  constexpr float kEpsilon = 1e-6F;
  constexpr float kOneAndEpsilon = std::bit_cast<float>(0x3F800008U);
  const double gain = settings.outAmplitude * settings.outGain;
  auto t = convertTo<float>(1.0 + gain * value) * 0.5F;
  if (settings.cosineWeight != 0.0F) t = cosineEased(t, settings.cosineWeight);
  const float bend = 1.0F - settings.midpoint;
  const auto isLow = narrowed(static_cast<double>(bend) + 1e-6 >= convertTo<double>(t));
  const auto low = (t * 0.5F) / (bend + kEpsilon);
  const auto high = ((t - bend) * 0.5F) / (kOneAndEpsilon - bend) + 0.5F;
  return isLow ? low : high;
}

template <class F>
struct NoisePoint {
  F x, y, z;
};

template <class F>
F noiseAt(const NoiseTables& tables, const NoiseSettings& settings, const NoisePoint<F>& p) {
  const auto scaled = [&settings](F c) { return convertTo<double>(c * settings.inputScale); };
  const Like<F, double> q[3] = {scaled(p.x), scaled(p.y), scaled(p.z)};
  const F unit = toUnit(settings, octaveSum(tables, settings, q));
  return (unit - 1.0F) + unit;
}

// The point after so many whole steps of the fourth component.
template <class F>
NoisePoint<F> shiftedPoint(const NoisePoint<F>& p, F steps) {
  return {9.0F * steps + p.x, 17.0F * steps + p.y, 51.0F * steps + p.z};
}

template <class F>
F noiseOf(const NoiseTables& tables, const NoiseSettings& settings, const F* values,
          uint32_t count) {
  F c[4] = {};
  for (uint32_t i = 0; i < count && i < 4; ++i) c[i] = values[i];
  const NoisePoint<F> point = {c[0], c[1], c[2]};
  if (count < 4) return noiseAt(tables, settings, point);
  const F whole = floorValue(c[3]);
  const F fraction = c[3] - whole;
  const F here = noiseAt(tables, settings, shiftedPoint(point, whole));
  const F next = noiseAt(tables, settings, shiftedPoint<F>(point, whole + 1.0F));
  return (1.0F - fraction) * here + fraction * next;
}

}  // namespace SHADERMACHINE_TARGET
}  // namespace shadermachine
