// Random valid shaders run by the plain handlers and translated: nothing a host can see differs.

#include <gtest/gtest.h>
#include <shadermachine-tools/disassembler.h>
#include <shadermachine-tools/validator.h>

#include "engine/comparison.h"
#include "engine/random_shader.h"

namespace shadermachine::tests {
namespace {

constexpr uint32_t kShaders = 20000;

TEST(Differential, RandomShadersRunTheSame) {
  vmInitialize();
  size_t callbacks = 0;
  uint32_t finished = 0;
  uint32_t translated = 0;
  for (uint32_t seed = 1; seed <= kShaders; ++seed) {
    const tools::BuiltShader shader = randomShader(Choices(seed));
    if (seed % 16 == 0) {
      for (const tools::Diagnostic& remark : tools::validate(shader.view()).diagnostics) {
        ASSERT_NE(remark.severity, tools::Severity::Error)
            << "seed " << seed << ": " << tools::toString(remark);
      }
    }
    const Comparison comparison = compareRuns(*shader.record());
    ASSERT_EQ(comparison.difference, "") << "seed " << seed << "\n"
                                         << tools::disassemble(shader.view(), {.annotate = true});
    callbacks += comparison.callbacks;
    translated += comparison.translated ? 1 : 0;
    finished += comparison.error == VM_OK ? 1 : 0;
  }
  // The shaders must have had something to compare.
  EXPECT_GT(translated, kShaders - kShaders / 50);
  EXPECT_GT(callbacks, kShaders);
  EXPECT_GT(finished, kShaders / 2);
}

}  // namespace
}  // namespace shadermachine::tests
