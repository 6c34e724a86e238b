#include "fuzz/seeded_program.h"

#include <shadermachine-tools/validator.h>
#include <shadermachine/machine.h>

namespace shadermachine::fuzz {
namespace {

constexpr size_t kProgramBytes = 800;
constexpr uint32_t kFullStackEvery = 32;

SeedComparison compareProgram(std::span<const uint8_t> bytes, uint32_t seed, uint32_t fillers) {
  Choices choices(bytes);
  SeedComparison result = {
      generateProgram(choices, {.hidesNanBits = true, .ends = true, .fillers = fillers}),
      false,
      {}};
  result.valid = tools::validate(result.shader.view()).valid();
  if (result.valid) result.comparison = compareRuns(*result.shader.record(), seed);
  return result;
}

}  // namespace

SeedComparison compareSeed(uint32_t seed) {
  const auto bytes = randomBytes(seed, kProgramBytes);
  SeedComparison result = compareProgram(bytes, seed, 0);
  if (!result.valid || seed % kFullStackEvery != 0 || !result.comparison.difference.empty()) {
    return result;
  }
  // Once more with a full stack, and at times with one slot too few.
  const uint32_t missing = seed % (4 * kFullStackEvery) == 0 ? 1 : 0;
  return compareProgram(bytes, seed, VM_STACK_CAPACITY - result.comparison.slots + missing);
}

}  // namespace shadermachine::fuzz
