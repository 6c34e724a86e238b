// What the engine makes of small programs, as its listings show it. A case's own first line is the
// stage: built, form, records or batch.

#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>

#include "cli/listing/shader_listing.h"
#include "support/text_cases.h"

namespace shadermachine::tests {
namespace {

tools::Stage stageOf(const std::string& name) {
  if (name.find("built") == 0) return tools::Stage::BuiltForm;
  if (name.find("batch") == 0) return tools::Stage::Batch;
  return name.find("form") == 0 ? tools::Stage::Form : tools::Stage::Records;
}

class Listings : public testing::TestWithParam<TextCase> {};

TEST_P(Listings, AreAsWritten) {
#if !defined(SHADERMACHINE_HAVE_BATCH)
  if (stageOf(GetParam().own) == tools::Stage::Batch) GTEST_SKIP() << "built without batches";
#endif
  const tools::AssemblyResult result = tools::assemble(GetParam().body);
  ASSERT_TRUE(result.shader) << tools::formatError(result.errors.at(0), GetParam().body, "case");
  EXPECT_EQ(tools::shaderListing(result.shader->view(), stageOf(GetParam().own)),
            GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(All, Listings, testing::ValuesIn(readCases(ENGINE_LISTINGS)), kCaseName);

}  // namespace
}  // namespace shadermachine::tests
