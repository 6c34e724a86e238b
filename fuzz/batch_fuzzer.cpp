// Programs out of the grammar run in a batch and by machines: no invocation sees a difference.

#include <shadermachine-tools/validator.h>

#include <cstdio>
#include <cstdlib>

#include "fuzz/batch_comparison.h"
#include "fuzz/program_generator.h"

using namespace shadermachine;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr uint32_t kMostInvocations = 70;
  vmInitialize();
  fuzz::Choices choices({data, size});
  const uint32_t seed = choices.value<uint16_t>();
  const tools::BuiltShader shader =
      fuzz::generateProgram(choices, {.hidesNanBits = true, .ends = true});
  if (!tools::validate(shader.view()).valid()) return 0;
  const std::string difference =
      fuzz::compareBatch(*shader.record(), seed, seed % kMostInvocations + 1).difference;
  if (difference.empty()) return 0;
  std::fprintf(stderr, "%s\n", difference.c_str());
  std::abort();
}
