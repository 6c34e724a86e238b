// One machine alternating a thousand shaders: memory must stay flat.
//
//   soak RUNS
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "fuzz/arbitrary_host.h"
#include "fuzz/program_generator.h"
#include "support/allocations.h"
#include "support/resident_memory.h"

namespace {

using namespace shadermachine;

constexpr uint32_t kShaders = 1000;

std::vector<tools::BuiltShader> makeShaders() {
  std::vector<tools::BuiltShader> shaders;
  for (uint32_t seed = 0; seed < kShaders; ++seed) {
    const auto bytes = fuzz::randomBytes(seed, 300);
    fuzz::Choices choices(bytes);
    shaders.push_back(fuzz::generateProgram(choices));
  }
  return shaders;
}

void runAll(ShaderMachine& machine, const std::vector<tools::BuiltShader>& shaders, long runs) {
  constexpr uint32_t kTimeout = 1;
  const fuzz::ArbitraryHost host(1);
  const StartupInfo startup = host.startup(kTimeout);
  for (long run = 0; run < runs; ++run) {
    const auto& shader = shaders[static_cast<size_t>(run) % shaders.size()];
    vmShaderMachineExecuteShader(&machine, shader.record(), &startup);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const long runs = argc > 1 ? std::atol(argv[1]) : 0;
  vmInitialize();
  const auto shaders = makeShaders();
  const fuzz::MachinePtr machine = fuzz::makeMachine(true);
  runAll(*machine, shaders, 2 * kShaders);
  const int64_t blocksBefore = tests::liveAllocations();
  const long kilobytesBefore = tests::residentKilobytes();
  runAll(*machine, shaders, runs - runs % kShaders);
  const int64_t blocks = tests::liveAllocations() - blocksBefore;
  const long kilobytes = tests::residentKilobytes() - kilobytesBefore;
  std::printf("%ld runs, %ld allocations and %ld KiB more than before\n", runs,
              static_cast<long>(blocks), kilobytes);
  // The heap's own waste varies by about a megabyte; the allocations are what must not grow.
  constexpr long kAllowedKilobytes = 8192;
  return blocks == 0 && kilobytes < kAllowedKilobytes ? 0 : 1;
}
