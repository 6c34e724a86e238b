// Random valid shaders run by the plain handlers and translated: nothing a host can see differs.

#include <gtest/gtest.h>
#include <shadermachine-tools/disassembler.h>

#include "fuzz/seeded_program.h"

namespace shadermachine::tests {
namespace {

constexpr uint32_t kShaders = 5000;

TEST(Differential, RandomShadersRunTheSame) {
  vmInitialize();
  size_t callbacks = 0;
  uint32_t finished = 0;
  uint32_t translated = 0;
  for (uint32_t seed = 1; seed <= kShaders; ++seed) {
    const fuzz::SeedComparison result = fuzz::compareSeed(seed);
    const fuzz::Comparison& comparison = result.comparison;
    if (!result.valid) continue;
    ASSERT_EQ(comparison.difference, "")
        << "seed " << seed << "\n"
        << tools::disassemble(result.shader.view(), {.annotate = true});
    callbacks += comparison.callbacks;
    translated += comparison.translated ? 1 : 0;
    finished += comparison.error == VM_OK ? 1 : 0;
  }
  // The shaders must have had something to compare.
  EXPECT_GT(translated, kShaders - kShaders / 5);
  EXPECT_GT(callbacks, 10 * kShaders);
  EXPECT_GT(finished, kShaders / 2);
}

}  // namespace
}  // namespace shadermachine::tests
