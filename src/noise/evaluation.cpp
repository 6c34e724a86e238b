#include "noise/evaluation.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "noise/kernel.h"

namespace shadermachine {
namespace {

struct Point {
  float x, y, z;
};

// How far the point moves per whole step of the fourth component.
constexpr Point kFourthAxisStep = {9.0F, 17.0F, 51.0F};

float floorByRounding(float w) {
  constexpr float kIntegersOnly = 0x1p23F;  // from here on every float is an integer
  if (!(std::fabs(w) < kIntegersOnly)) return w;
  const float shift = std::copysign(kIntegersOnly, w);
  const float rounded = (w + shift) - shift;
  return rounded > w ? rounded - 1.0F : rounded;
}

float cosineEased(float t, float weight) {
  const float m = (weight + 1.0F) * 0.5F;
  return t * (1.0F - m) + ((1.0F - std::cos(3.1415F * t)) * 0.5F) * m;
}

// r of 0 to 1 becomes -1 to 1.
float signedFromUnit(float r) { return (r - 1.0F) + r; }

float noiseAt(const NoiseTables& tables, const NoiseSettings& settings, Point p) {
  const double q[3] = {p.x * settings.inputScale, p.y * settings.inputScale,
                       p.z * settings.inputScale};
  return signedFromUnit(toUnit(settings, octaveSum(tables, settings, q)));
}

Point shifted(Point p, float steps) {
  return {kFourthAxisStep.x * steps + p.x, kFourthAxisStep.y * steps + p.y,
          kFourthAxisStep.z * steps + p.z};
}

}  // namespace

double octaveSum(const NoiseTables& tables, const NoiseSettings& settings,
                 const double (&point)[3]) {
  const auto [x, y, z] = point;
  if (settings.combineMode == 0) return gradientNoise3(tables, settings, x, y, z);
  const bool sums = settings.combineMode >= 1 && settings.combineMode <= 3;
  double amplitude = 1.0;
  double frequency = 1.0;
  double sum = 0.0;
  double total = 0.0;
  for (int32_t octave = 0; octave < settings.octaves; ++octave) {
    const double value =
        gradientNoise3(tables, settings, x * frequency, y * frequency, z * frequency);
    if (sums) sum += (settings.absolute != 0 ? std::fabs(value) : value) * amplitude;
    total += amplitude;
    frequency *= settings.freqFactor;
    amplitude = (amplitude / settings.ampDivisor) * settings.ampFactor;
  }
  const double mean = sum / total;
  return settings.combineMode == 2 || settings.absolute != 0 ? std::fabs(mean) : mean;
}

float toUnit(const NoiseSettings& settings, double value) {
  constexpr float kEpsilon = 1e-6F;
  constexpr float kOneAndEpsilon = std::bit_cast<float>(0x3F800008U);
  const float gain = settings.outAmplitude * settings.outGain;
  float t = static_cast<float>(1.0 + static_cast<double>(gain) * value) * 0.5F;
  if (settings.cosineWeight != 0.0F) t = cosineEased(t, settings.cosineWeight);
  const float bend = 1.0F - settings.midpoint;
  if (static_cast<double>(bend) + 1e-6 >= static_cast<double>(t))
    return (t * 0.5F) / (bend + kEpsilon);
  return ((t - bend) * 0.5F) / (kOneAndEpsilon - bend) + 0.5F;
}

float noiseScalar(const NoiseTables& tables, const NoiseSettings& settings, const float* values,
                  uint32_t count) {
  float components[4] = {};
  std::copy_n(values, std::min(count, 4U), components);
  const auto [x, y, z, w] = components;
  if (count < 4) return noiseAt(tables, settings, {x, y, z});
  const float whole = floorByRounding(w);
  const float fraction = w - whole;
  const float here = noiseAt(tables, settings, shifted({x, y, z}, whole));
  const float next = noiseAt(tables, settings, shifted({x, y, z}, whole + 1.0F));
  return (1.0F - fraction) * here + fraction * next;
}

float noiseScalar(const float* values, uint32_t count) {
  return noiseScalar(noiseTables(), kNoiseSettings, values, count);
}

}  // namespace shadermachine
