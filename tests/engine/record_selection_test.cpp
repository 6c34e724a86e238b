// Code that the translator joins into fewer records, or puts off, run plain and translated.

#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/validator.h>

#include "fuzz/engine_comparison.h"
#include "support/text_cases.h"

namespace shadermachine::tests {
namespace {

class RecordSelection : public testing::TestWithParam<TextCase> {};

TEST_P(RecordSelection, RunsLikeThePlainHandlers) {
  vmInitialize();
  const std::string text =
      readFile(RECORD_CASES "/scene.sasm") + GetParam().body + "RETURN\n.end\n";
  const tools::AssemblyResult result = tools::assemble(text);
  ASSERT_TRUE(result.shader) << tools::formatError(result.errors.at(0), text, "case");
  EXPECT_TRUE(tools::validate(result.shader->view()).valid());
  for (uint32_t seed = 1; seed <= 4; ++seed) {
    const fuzz::Comparison comparison = fuzz::compareRuns(*result.shader->record(), seed);
    EXPECT_EQ(comparison.difference, "");
    EXPECT_TRUE(comparison.translated);
    EXPECT_EQ(comparison.error, VM_OK);
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, RecordSelection, testing::ValuesIn(readCases(RECORD_CASES)),
                         kCaseName);

}  // namespace
}  // namespace shadermachine::tests
