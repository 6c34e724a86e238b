// Programs for which the translator has records or rules of its own, run plain and translated.
//
// Before the body of a case stands scene.sasm; a case with an entry function of its own is the
// whole program, and a number before its "---" is that of further globals. What is expected says
// where the case is not, as the others, valid, translated and run to the end.

#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/validator.h>

#include "fuzz/engine_comparison.h"
#include "support/text_cases.h"

namespace shadermachine::tests {
namespace {

std::string programOf(const TextCase& given) {
  if (given.body.find(".entry") == std::string::npos) {
    return readFile(ENGINE_CASES "/scene.sasm") + linesOf(given.body) + "RETURN\n.end\n";
  }
  std::string text;
  const int globals = given.own.empty() ? 0 : std::stoi(given.own);
  for (int g = 0; g < globals; ++g) text += ".global float filler" + std::to_string(g) + "\n";
  return text + linesOf(given.body);
}

class EngineCases : public testing::TestWithParam<TextCase> {};

TEST_P(EngineCases, RunLikeThePlainHandlers) {
  vmInitialize();
  const std::string text = programOf(GetParam());
  const tools::AssemblyResult result = tools::assemble(text);
  ASSERT_TRUE(result.shader) << tools::formatError(result.errors.at(0), text, "case");
  const bool valid = tools::validate(result.shader->view()).valid();
  for (uint32_t seed = 1; seed <= 4; ++seed) {
    const fuzz::Comparison comparison = fuzz::compareRuns(*result.shader->record(), seed);
    EXPECT_EQ(comparison.difference, "");
    std::string unusual = valid ? "" : "not valid\n";
    if (!comparison.translated) unusual += "not translated\n";
    if (comparison.error != VM_OK)
      unusual += "ends with " + std::to_string(comparison.error) + "\n";
    EXPECT_EQ(unusual, GetParam().expected);
  }
}

INSTANTIATE_TEST_SUITE_P(All, EngineCases, testing::ValuesIn(readCases(ENGINE_CASES)), kCaseName);

}  // namespace
}  // namespace shadermachine::tests
