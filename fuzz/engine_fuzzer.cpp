// Programs out of the grammar run by the plain handlers and translated: a host sees no difference.

#include <shadermachine-tools/validator.h>

#include <cstdio>
#include <cstdlib>

#include "fuzz/engine_comparison.h"
#include "fuzz/program_generator.h"

using namespace shadermachine;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vmInitialize();
  fuzz::Choices choices({data, size});
  const uint32_t hostSeed = choices.value<uint16_t>();
  const tools::BuiltShader shader =
      fuzz::generateProgram(choices, {.hidesNanBits = true, .ends = true});
  if (!tools::validate(shader.view()).valid()) return 0;
  const std::string difference = fuzz::compareRuns(*shader.record(), hostSeed).difference;
  if (difference.empty()) return 0;
  std::fprintf(stderr, "%s\n", difference.c_str());
  std::abort();
}
