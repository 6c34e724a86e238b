// Whatever validates runs without fault, on any host: programs out of the grammar, with flaws.

#include <shadermachine-tools/validator.h>

#include "fuzz/arbitrary_host.h"
#include "fuzz/program_generator.h"

using namespace shadermachine;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr uint32_t kTimeout = 2;
  static const fuzz::MachinePtr answered = fuzz::makeMachine(true);
  static const fuzz::MachinePtr lonely = fuzz::makeMachine(false);
  vmInitialize();
  fuzz::Choices choices({data, size});
  fuzz::ArbitraryHost host(choices.value<uint16_t>());
  const bool withHost = !choices.oneIn(8);
  const tools::BuiltShader shader =
      fuzz::generateProgram(choices, {.hidesNanBits = false, .hasFlaws = choices.oneIn(2)});
  if (!tools::validate(shader.view()).valid()) return 0;
  fuzz::runAndForget(withHost ? *answered : *lonely, shader.record(), host.startup(kTimeout), 2);
  return 0;
}
