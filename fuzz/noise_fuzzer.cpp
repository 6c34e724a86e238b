// Noise of arbitrary words: no fault, a NaN only for a NaN or an infinity, the range of the result.

#include <cmath>
#include <cstdlib>

#include "fuzz/choices.h"
#include "noise/evaluation.h"
#include "noise/tables.h"

using namespace shadermachine;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  noiseTablesFill(noiseTables());
  fuzz::Choices choices({data, size});
  const uint32_t count = choices.between(1, 4);
  float values[4];
  bool ordinary = true;
  for (float& value : values) {
    value = choices.value<float>();
    // Far out, floats no longer tell where in its cell a point lies.
    ordinary = ordinary && std::fabs(value) < 100.0F;
  }
  const float first = noiseScalar(values, count);
  const float again = noiseScalar(values, count);
  if (std::isnan(first) ? !std::isnan(again) : first != again) std::abort();
  if (ordinary && !(std::fabs(first) <= 1.5F)) std::abort();
  return 0;
}
