// The noise functions of the shading language: octaves of the kernel, mapped into -1 to 1.
#pragma once

#include "noise/settings.h"
#include "noise/tables.h"

namespace shadermachine {

// Noise of a point of `count` components, 0 to 4 (above: as 4). A fourth component blends two
// three-dimensional evaluations. A NaN component gives NaN.
float noiseScalar(const float* values, uint32_t count);

// The steps of noiseScalar() for any tables and settings.
float noiseScalar(const NoiseTables& tables, const NoiseSettings& settings, const float* values,
                  uint32_t count);
double octaveSum(const NoiseTables& tables, const NoiseSettings& settings,
                 const double (&point)[3]);
float toUnit(const NoiseSettings& settings, double value);

}  // namespace shadermachine
