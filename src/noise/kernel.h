// Three-dimensional gradient noise: zero at every integer point, with a pseudo-random gradient
// there, blended between the points by a quintic fade curve.
#pragma once

#include "noise/settings.h"
#include "noise/tables.h"

namespace shadermachine {

// The mix of single and double precision inside is part of the result. Empty tables give 0.
double gradientNoise3(const NoiseTables& tables, const NoiseSettings& settings, double x, double y,
                      double z);

// Row of the gradient table for an integer point.
uint32_t gradientIndex(const NoiseTableEntries& entries, int32_t i, int32_t j, int32_t k);

}  // namespace shadermachine
