// The fixed values behind the noise functions.
#pragma once

#include <cstdint>

namespace shadermachine {

struct NoiseSettings {
  float ampDivisor = 1.0F;   // after each octave the amplitude is divided by it ...
  float ampFactor = 1.0F;    // ... and multiplied by this
  float freqFactor = 2.0F;   // after each octave the frequency is multiplied by it
  float kernelScale = 1.0F;  // multiplies each coordinate inside the kernel
  float outAmplitude = 1.0F;
  int32_t octaves = 3;
  int32_t combineMode = 1;  // 0: the bare kernel, 1 and 3: mean of the octaves, 2: its magnitude
  float inputScale = 1.0F;  // multiplies the input point
  float outGain = 1.0F;
  int32_t absolute = 0;       // non-zero: magnitudes of the octaves and of their mean
  float midpoint = 0.5F;      // 1 - midpoint is the bend point of the final remapping
  float cosineWeight = 0.0F;  // non-zero: blends the unit value toward a cosine-eased curve
};

// What the noise instructions use; nothing can change it.
inline constexpr NoiseSettings kNoiseSettings;

}  // namespace shadermachine
