// Random programs: nothing leaks, however a run ends and whichever allocation fails.
#include <gtest/gtest.h>
#include <shadermachine-tools/validator.h>

#include <algorithm>
#include <set>
#include <thread>

#include "fuzz/arbitrary_host.h"
#include "fuzz/program_generator.h"
#include "support/allocations.h"

namespace shadermachine::tests {
namespace {

using fuzz::ArbitraryHost;

constexpr size_t kProgramBytes = 600;
constexpr uint32_t kTimeout = 5;

tools::BuiltShader program(uint32_t seed) {
  const auto bytes = fuzz::randomBytes(seed, kProgramBytes);
  fuzz::Choices choices(bytes);
  return fuzz::generateProgram(choices);
}

VmError run(ShaderMachine& machine, const tools::BuiltShader& shader, uint32_t seed,
            uint32_t timeout = kTimeout) {
  const ArbitraryHost host(seed);
  const StartupInfo startup = host.startup(timeout);
  return vmShaderMachineExecuteShader(&machine, shader.record(), &startup);
}

TEST(RandomPrograms, NearlyAllValidate) {
  constexpr uint32_t kPrograms = 200;
  uint32_t valid = 0;
  for (uint32_t seed = 0; seed < kPrograms; ++seed) {
    if (tools::validate(program(seed).view()).valid()) ++valid;
  }
  EXPECT_GE(valid, kPrograms * 9 / 10);
}

TEST(RandomPrograms, FreeEveryBlockOnce) {
  // A deep recursion comes to its end under sanitizers on a busy machine too.
  constexpr uint32_t kLongTimeout = 1000;
  const int64_t before = liveAllocations();
  std::set<VmError> codes;
  for (uint32_t seed = 0; seed < 200; ++seed) {
    const tools::BuiltShader first = program(seed);
    const tools::BuiltShader second = program(seed + 1);
    // Destroyed while it holds a shader, if the last run was successful.
    const fuzz::MachinePtr machine = fuzz::makeMachine(seed % 4 != 0);
    for (const auto* shader : {&first, &first, &second}) {
      codes.insert(run(*machine, *shader, seed));
    }
    codes.insert(run(*machine, first, seed, kLongTimeout));
  }
  EXPECT_EQ(liveAllocations(), before);
  for (VmError code : {VM_OK, VM_ERR_STACK_OVERFLOW, VM_ERR_TIMEOUT, VM_ERR_INDEX_OUT_OF_BOUNDS,
                       VM_ERR_DISCARDED, VM_ERR_HALTED}) {
    EXPECT_TRUE(codes.contains(code)) << code << ": the programs no longer end in every way";
  }
}

// Every allocation of a run fails in turn, alone or with all that follow. The run ends with 9, or
// as it would have ended if the allocation was one that the machine can do without.
TEST(RandomPrograms, SurviveEveryAllocationFailure) {
  const int64_t before = liveAllocations();
  for (uint32_t seed = 0; seed < 30; ++seed) {
    const tools::BuiltShader shader = program(seed);
    const fuzz::MachinePtr reference = fuzz::makeMachine(true);
    const int64_t requestedBefore = requestedAllocations();
    const VmError expected = run(*reference, shader, seed);
    const int64_t allocations = std::min<int64_t>(requestedAllocations() - requestedBefore, 60);
    if (expected == VM_ERR_TIMEOUT || expected == VM_ERR_STACK_OVERFLOW) continue;  // endless
    for (int64_t n = 0; n < allocations; ++n) {
      for (int64_t count : {int64_t{1}, INT64_MAX}) {
        const fuzz::MachinePtr machine = fuzz::makeMachine(true);
        {
          const AllocationFailure failure(n, count);
          const VmError code = run(*machine, shader, seed, 0);
          EXPECT_TRUE(code == VM_ERR_OUT_OF_MEMORY || code == expected)
              << "seed " << seed << ", allocation " << n << ": code " << code;
        }
        EXPECT_EQ(run(*machine, shader, seed, 0), expected) << "seed " << seed;
      }
    }
  }
  EXPECT_EQ(liveAllocations(), before);
}

// Codes of all programs and checksums of what their hosts read.
std::vector<uint32_t> outputs(uint32_t programs) {
  vmInitialize();
  const fuzz::MachinePtr machine = fuzz::makeMachine(true);
  std::vector<uint32_t> words;
  for (uint32_t seed = 0; seed < programs; ++seed) {
    const tools::BuiltShader shader = program(seed);
    const ArbitraryHost host(seed);
    words.push_back(fuzz::runAndForget(*machine, shader.record(), host.startup(0), 1));
    words.push_back(host.checksum());
  }
  return words;
}

TEST(RandomPrograms, GiveTheSameOnManyThreads) {
  constexpr uint32_t kPrograms = 12;  // none of which is endless
  std::vector<std::vector<uint32_t>> results(8);
  std::vector<std::thread> threads;
  for (auto& result : results) threads.emplace_back([&] { result = outputs(kPrograms); });
  for (std::thread& thread : threads) thread.join();
  for (const auto& result : results) EXPECT_EQ(result, results[0]);
}

}  // namespace
}  // namespace shadermachine::tests
