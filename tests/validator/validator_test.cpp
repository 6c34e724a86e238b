// What the validator says of small programs: in the files of cases/, code of the function main, its
// own being tables and functions. scene.sasm stands before every case. Remarks on instructions of
// main come without their place.
#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/validator.h>

#include <random>
#include <string>
#include <vector>

#include "support/text_cases.h"

namespace shadermachine::tools {
namespace {

// Of scene.sasm.
enum Functions { kNothing = 1, kBodiless, kGivesVec3, kGivesPair, kEndless };

// Code of the function main, and tables and functions besides those of the scene.
ValidationResult validateInScene(const std::string& code, const std::string& own = "") {
  std::string text = tests::readFile(VALIDATOR_CASES "/scene.sasm");
  text.insert(text.rfind(".function main"), own);
  text += code + "RETURN\n.end\n";
  const AssemblyResult assembled = assemble(text);
  if (!assembled.shader) {
    ADD_FAILURE() << formatError(assembled.errors.at(0), text, "case");
    return {};
  }
  return validate(assembled.shader->view());
}

std::string findings(const ValidationResult& result) {
  std::string all;
  for (Diagnostic shown : result.diagnostics) {
    if (shown.function == 0 && shown.mnemonic != nullptr) {
      all += std::string(shown.mnemonic) + ": ";
      shown.function = -1;
    }
    all += toString(shown) + "\n";
  }
  return all;
}

class ValidatorCase : public testing::TestWithParam<tests::TextCase> {};

TEST_P(ValidatorCase, Finds) {
  const tests::TextCase& test = GetParam();
  EXPECT_EQ(findings(validateInScene(tests::linesOf(test.body), tests::linesOf(test.own))),
            test.expected);
}

INSTANTIATE_TEST_SUITE_P(Cases, ValidatorCase, testing::ValuesIn(tests::readCases(VALIDATOR_CASES)),
                         tests::kCaseName);

TEST(ValidatorTables, FindsMissingTables) {
  EXPECT_EQ(findings(validate({})), "error: there is no shader\n");
  CompiledShader shader = {};
  shader.globalCount = 1;
  EXPECT_EQ(findings(validate({&shader, 1, 1})),
            "error: functions is null\nerror: structTypes is null\nerror: globals is null\n"
            "error: code is null\n");
}

TEST(ValidatorTables, FindsMissingLocalsAndMembers) {
  ShaderFunction function = {};
  function.localCount = 1;
  function.codeLength = 1;
  const ShaderFunction* functions[] = {&function};
  StructInfo structure = {};
  structure.size = 4;
  structure.memberCount = 1;
  const StructInfo* structures[] = {&structure};
  const uint8_t code[] = {VM_OP_RETURN};
  CompiledShader shader = {};
  shader.version = 1;
  shader.functionCount = 1;
  shader.functions = functions;
  shader.structTypes = structures;
  shader.code = code;
  EXPECT_EQ(findings(validate({&shader, 1, 1})),
            "error: structure 0: members is null\nerror: function 0: locals is null\n");
}

TEST(ValidatorFacts, ReturnsThroughRecursion) {
  const ValidationResult result = validateInScene("", R"(
.function even
  PUSH_EMPTY
  CALL odd
  RETURN_VALUE
.end
.function odd
  PUSH_1
  JUMP_IF_FALSE other
  PUSH_ZERO4
  JUMP end
other:
  PUSH_EMPTY
  CALL even
  SWIZZLE .xyz
end:
  RETURN_VALUE
.end
)");
  EXPECT_EQ(findings(result),
            "function 6, offset 0: warning: the function can call itself\n"
            "function 7, offset 0: warning: the function can call itself\n");
  EXPECT_TRUE(result.valid());
  for (const uint32_t function : {6u, 7u}) {
    EXPECT_EQ(result.functions[function].returnKind, ReturnKind::Inline);
    EXPECT_EQ(result.functions[function].returnWords, 3u);
    EXPECT_TRUE(result.functions[function].recursive);
  }
}

TEST(ValidatorFacts, LongCycles) {
  std::string links;
  for (int next : {7, 8, 6}) {
    links += ".function unnamed" + std::to_string(next) + "\nCALL " + std::to_string(next) +
             "\nRETURN\n.end\n";
  }
  const ValidationResult result = validateInScene("", links);
  for (const uint32_t function : {6u, 7u, 8u})
    EXPECT_TRUE(result.functions[function].recursive) << function;
  EXPECT_FALSE(result.functions[kNothing].recursive);
}

TEST(ValidatorFacts, DepthsAndReturns) {
  const ValidationResult result = validateInScene("PUSH_0\nPUSH_1\nPOP_N 2\nHALT\nNOP\n");
  const FunctionFacts& entry = result.functions[0];
  EXPECT_EQ(entry.returnKind, ReturnKind::Never);
  EXPECT_EQ(entry.maximumDepth, 10u);
  EXPECT_FALSE(entry.recursive);
  std::vector<std::pair<uint32_t, int32_t>> depths;
  for (const InstructionFacts& at : entry.instructions) depths.emplace_back(at.offset, at.depth);
  EXPECT_EQ(depths, (std::vector<std::pair<uint32_t, int32_t>>{
                        {0, 8}, {1, 9}, {2, 10}, {4, 8}, {5, -1}, {6, -1}}));
  EXPECT_EQ(result.functions[kNothing].returnKind, ReturnKind::Nothing);
  EXPECT_EQ(result.functions[kGivesVec3].returnWords, 3u);
  EXPECT_EQ(result.functions[kGivesPair].returnKind, ReturnKind::Aggregate);
  EXPECT_EQ(result.functions[kGivesPair].returnType, 0);
  EXPECT_EQ(result.functions[kEndless].returnKind, ReturnKind::Never);
}

std::string repeat(int count, const std::string& text) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

TEST(ValidatorHostile, SurvivesAnyBytes) {
  std::mt19937 random(1);
  for (int round = 0; round < 500; ++round) {
    std::string code;
    const auto size = static_cast<uint32_t>(1 + random() % 60);
    // Mostly opcodes and small numbers: pure noise never gets past the first byte.
    for (uint32_t i = 0; i < size; ++i) {
      code += ".byte " + std::to_string(random() % (random() % 2 ? 206 : 4)) + "\n";
    }
    const ValidationResult result = validateInScene(code);
    ASSERT_EQ(result.functions.size(), 6u);
    for (const Diagnostic& diagnostic : result.diagnostics) {
      ASSERT_FALSE(diagnostic.message.empty());
      ASSERT_LE(diagnostic.offset, size);
    }
  }
}

TEST(ValidatorHostile, StopsAtItsLimits) {
  EXPECT_EQ(findings(validateInScene(repeat(2000, "PUSH_0\n"))),
            "PUSH_0: warning: the value stack is full: always stops with 10\n");
  // Each a block with a stack of its own.
  EXPECT_EQ(findings(validateInScene(repeat(1900, "PUSH_0\n") +
                                     repeat(10000, "PUSH_1\nJUMP_IF_FALSE +0\n"))),
            "error: the program is too complex to be checked\n");
  EXPECT_EQ(findings(validateInScene(repeat(600000, ".byte 0\n"),
                                     ".function again code 0 600000\n.end\n")),
            "error: the functions have 1200017 bytes of code, more than 1048576 are not checked\n");
}

// Structures and functions that share a table of wrong entries.
TEST(ValidatorHostile, ChecksSharedTablesWithinBounds) {
  VarInfo entry = {};
  entry.type = VM_TYPE_FLOAT;
  entry.byteSize = 8;
  const std::vector<VarInfo> entries(60000, entry);
  ShaderFunction function = {};
  function.codeLength = 1;
  function.localCount = 60000;
  function.locals = entries.data();
  StructInfo structure = {};
  structure.size = 4;
  structure.memberCount = 60000;
  structure.members = entries.data();
  const uint8_t code[] = {VM_OP_RETURN};
  for (const uint16_t count : {uint16_t{1}, uint16_t{60000}}) {
    const std::vector<const ShaderFunction*> functions(count, &function);
    const std::vector<const StructInfo*> structures(count, &structure);
    CompiledShader shader = {};
    shader.version = 1;
    shader.functionCount = count;
    shader.functions = functions.data();
    shader.structTypes = structures.data();
    shader.code = code;
    const ValidationResult result = validate({&shader, count, 1});
    EXPECT_FALSE(result.valid());
    EXPECT_EQ(result.diagnostics.size(), count == 1 ? 101u : 1u);
    EXPECT_EQ(toString(result.diagnostics.back()),
              count == 1 ? "error: and 179900 more errors"
                         : "error: there are 7200000000 globals, members and locals, more than "
                           "1048576 are not checked");
  }
}

// Each looks for twins among all the others.
TEST(ValidatorHostile, CountsOperandsAsWork) {
  std::string many = ".function many(";
  for (int i = 0; i < 900; ++i) many += (i == 0 ? "Pair p" : ", Pair p") + std::to_string(i);
  EXPECT_EQ(findings(validateInScene(
                repeat(900, "LOAD_LOCAL pair\n") + repeat(100000, "CALL many\n") + "HALT\n",
                many + ")\nRETURN\n.end\n")),
            "error: the program is too complex to be checked\n");
}

TEST(ValidatorHostile, FollowsLongChainsOfCalls) {
  std::string links;
  for (int i = 6; i < 20000; ++i) {
    const std::string number = std::to_string(i), next = std::to_string(i + 1);
    links += ".function link" + number + "\nCALL " + next + "\nRETURN\n.end\n";
  }
  const ValidationResult result = validateInScene("", links + ".function last\nDISCARD\n.end\n");
  EXPECT_EQ(findings(result), "");
  EXPECT_EQ(result.functions[6].returnKind, ReturnKind::Never);
}

}  // namespace
}  // namespace shadermachine::tools
