// The constant tables of the noise generator, one pair for the whole process.
#pragma once

#include <atomic>
#include <cstdint>

namespace shadermachine {

inline constexpr unsigned kNoiseTableSize = 256;

// Padded to a vector register.
struct alignas(16) NoiseGradient {
  float x, y, z;
};

struct NoiseTableEntries {
  int32_t permutation[kNoiseTableSize];      // of the numbers 0 to 255
  NoiseGradient gradients[kNoiseTableSize];  // unit vectors
};

// Empty (null entries) until noiseTablesFill(); the entries never change afterwards, so any number
// of threads read them without locking.
struct NoiseTables {
  std::atomic<NoiseTableEntries*> entries{nullptr};

  const NoiseTableEntries* read() const { return entries.load(std::memory_order_acquire); }
};

// The process-wide tables. Their memory is freed when the library is unloaded.
NoiseTables& noiseTables();

// Fills empty tables and leaves filled ones alone. When several threads fill at once, all find the
// same entries afterwards. Without memory the tables stay empty, and a later call tries again.
void noiseTablesFill(NoiseTables& tables);

}  // namespace shadermachine
