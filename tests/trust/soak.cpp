// One machine alternating a thousand shaders: memory must stay flat while it lives, and nothing may
// be left of it afterwards.
//
//   soak RUNS
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "fuzz/arbitrary_host.h"
#include "fuzz/program_generator.h"
#include "machine/machine.h"
#include "support/allocations.h"
#include "support/heap_memory.h"

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
  constexpr uint32_t kTimeout = 1;  // some shaders never end
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
  const int64_t blocksWithoutMachine = tests::liveAllocations();
  fuzz::MachinePtr machine = fuzz::makeMachine(true);
  // Else shaders would be met, and translated, long after the machine has warmed up.
  static_cast<Machine&>(*machine).engineUse = EngineUse::AtOnce;
  runAll(*machine, shaders, 2 * kShaders);
  const int64_t blocksBefore = tests::liveAllocations();
  const long bytesBefore = tests::heapBytes();
  runAll(*machine, shaders, runs - runs % kShaders);
  const int64_t blocks = tests::liveAllocations() - blocksBefore;
  const long bytes = tests::heapBytes() - bytesBefore;
  machine.reset();
  const int64_t blocksLeft = tests::liveAllocations() - blocksWithoutMachine;
  std::printf("%ld runs, %ld allocations and %ld bytes more than before, %ld allocations left\n",
              runs, static_cast<long>(blocks), bytes, static_cast<long>(blocksLeft));
  // A translation that met the time limit while the machine warmed up is made later, and a busy
  // processor has more of them: a few blocks each, where a leak would be one a run.
  const int64_t allowedBlocks = runs / 100;
  // What the machine keeps for later varies by megabytes.
  constexpr long kAllowedBytes = 8 << 20;
  return blocks < allowedBlocks && bytes < kAllowedBytes && blocksLeft == 0 ? 0 : 1;
}
