#include "noise/evaluation.h"

namespace shadermachine {

float noiseScalar(const NoiseTables& tables, const NoiseSettings& settings, const float* values,
                  uint32_t count) {
  return noiseOf(tables, settings, values, count);
}

float noiseScalar(const float* values, uint32_t count) {
  return noiseOf(noiseTables(), kNoiseSettings, values, count);
}

}  // namespace shadermachine
