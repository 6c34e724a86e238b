// Noise instructions.
#include "noise/evaluation.h"
#include "support/program.h"

namespace shadermachine::tests {

// The program's noise is that of the evaluation tested elsewhere.
std::vector<Program> noisePrograms() {
  constexpr VmOpcode kOpcodes[] = {VM_OP_NOISE1, VM_OP_NOISE2, VM_OP_NOISE3, VM_OP_NOISE4};
  const Words point = floats({0.5f, 0.25f, -7.3f, 1.75f});
  vmInitialize();
  std::vector<Program> programs;
  for (size_t results = 1; results <= 4; ++results) {
    for (uint32_t n = 0; n <= 4; ++n) {
      float values[4];
      for (size_t i = 0; i < 4; ++i) values[i] = asFloat(point[i]);
      const Words expected(results, bits(noiseScalar(values, n)));
      programs.push_back(onInputs(kOpcodes[results - 1], {n}, {point}, expected));
    }
  }
  return programs;
}

}  // namespace shadermachine::tests
