// Random valid shaders run by the plain handlers and translated: nothing a host can see differs.

#include <gtest/gtest.h>
#include <shadermachine-tools/disassembler.h>
#include <shadermachine-tools/validator.h>

#include "fuzz/engine_comparison.h"
#include "fuzz/program_generator.h"

namespace shadermachine::tests {
namespace {

constexpr uint32_t kShaders = 20000;
constexpr size_t kShaderBytes = 400;

TEST(Differential, RandomShadersRunTheSame) {
  vmInitialize();
  size_t callbacks = 0;
  uint32_t finished = 0;
  uint32_t translated = 0;
  for (uint32_t seed = 1; seed <= kShaders; ++seed) {
    const auto bytes = fuzz::randomBytes(seed, kShaderBytes);
    fuzz::Choices choices(bytes);
    const tools::BuiltShader shader =
        fuzz::generateProgram(choices, {.hidesNanBits = true, .ends = true});
    if (!tools::validate(shader.view()).valid()) continue;
    const fuzz::Comparison comparison = fuzz::compareRuns(*shader.record(), seed);
    ASSERT_EQ(comparison.difference, "") << "seed " << seed << "\n"
                                         << tools::disassemble(shader.view(), {.annotate = true});
    callbacks += comparison.callbacks;
    translated += comparison.translated ? 1 : 0;
    finished += comparison.error == VM_OK ? 1 : 0;
  }
  // The shaders must have had something to compare.
  EXPECT_GT(translated, kShaders - kShaders / 50);
  EXPECT_GT(callbacks, 10 * kShaders);
  EXPECT_GT(finished, kShaders / 2);
}

}  // namespace
}  // namespace shadermachine::tests
