// Every feature of the language that the compiler supports, as small programs with the value that
// they have to give; and what it refuses, with the message.
#include <gtest/gtest.h>
#include <shadermachine-tools/validator.h>

#include <cmath>
#include <filesystem>
#include <sstream>

#include "glsl_run.h"
#include "support/text_cases.h"

namespace shadermachine::test {
namespace {

// In the files of cases/: the body of main(), which sets r; globals and functions are a case's own.
class Glsl : public testing::TestWithParam<tests::TextCase> {};

TEST_P(Glsl, givesTheExpectedValue) {
  const tests::TextCase& test = GetParam();
  const Fragment result = runGlsl(withBody(test.body, test.own));
  EXPECT_EQ(result.code, 0u);
  std::istringstream expected(test.expected);
  for (size_t i = 0; i < 4; ++i) {
    float value = NAN;
    expected >> value;
    EXPECT_NEAR(result.colour[i], value, 1e-6f * std::max(1.0f, std::abs(value)))
        << "component " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, Glsl, testing::ValuesIn(tests::readCases(GLSL_CASES)),
                         tests::kCaseName);

// In the files of sources/: whole sources, and the colour they give or the messages they get.
class GlslSource : public testing::TestWithParam<tests::TextCase> {};

TEST_P(GlslSource, isReadAsItIsMeant) {
  const tests::TextCase& test = GetParam();
  std::istringstream expected(test.expected);
  std::array<float, 4> colour;
  if (expected >> colour[0] >> colour[1] >> colour[2] >> colour[3]) {
    EXPECT_EQ(runGlsl(test.body).colour, colour);
    return;
  }
  const std::string messages = glslErrors(test.body);
  std::istringstream lines(test.expected);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_NE(messages.find(line), std::string::npos) << line << "\n" << messages;
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, GlslSource, testing::ValuesIn(tests::readCases(GLSL_SOURCES)),
                         tests::kCaseName);

TEST(GlslEntry, initialValuesOfUniforms) {
  const std::vector<tools::NamedValue> values =
      tools::compileGlsl(
          "#version 120\nuniform vec2 a = vec2(1.5, 2.0); uniform int n = -3; uniform float unused "
          "= 1.0;\nvoid main() { gl_FragColor = vec4(a, n, a.x); }")
          .uniformValues;
  ASSERT_EQ(values.size(), 2u);
  EXPECT_EQ(values[0].name + values[1].name, "an");
  EXPECT_EQ(values[0].components, (std::vector<double>{1.5, 2}));
  EXPECT_EQ(values[1].components, (std::vector<double>{-3}));
}

TEST(GlslEntry, depthAndDiscard) {
  const Fragment deep = runGlsl(withBody("r = vec4(1.0); gl_FragDepth = two / 8.0;"));
  EXPECT_EQ(deep.depth, 0.25f);
  const Fragment gone =
      runGlsl(withBody("float a[2]; a[0] = two; if (a[0] > 1.0) discard; r = vec4(1.0);"));
  EXPECT_EQ(gone.code, static_cast<uint32_t>(VM_ERR_DISCARDED));
  EXPECT_EQ(gone.colour[0], -1);
}

TEST(GlslGallery, everyShaderValidatesAndRuns) {
  size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(SHADERMACHINE_GLSL_GALLERY)) {
    SCOPED_TRACE(entry.path());
    const Fragment result = runGlsl(tests::readFile(entry.path()));
    EXPECT_EQ(result.code, 0u);
    EXPECT_EQ(result.colour[3], 1.0f);
    ++count;
  }
  EXPECT_GE(count, 10u);
}

TEST(GlslDerivatives, areReported) {
  const std::string source = withBody("r = vec4(dFdx(two), dFdy(two3).x, fwidth(two), 1.0);");
  const tools::GlslResult compiled = tools::compileGlsl(source);
  ASSERT_TRUE(compiled.shader);
  EXPECT_TRUE(compiled.usesDerivatives);
  EXPECT_TRUE(tools::validate(compiled.shader->view()).valid());
  EXPECT_FALSE(tools::compileGlsl(withBody("r = vec4(two);")).usesDerivatives);
}

std::string repeated(const std::string& text, int count) {
  std::string result;
  for (int i = 0; i < count; ++i) result += text;
  return result;
}

TEST(GlslErrors, monstersAreRefused) {
  const std::string deep = "void main() { float x; gl_FragColor = vec4(x" + repeated("-x", 20000);
  EXPECT_EQ(glslErrors(deep + "); }"), "a.frag:1: error: nested too deeply\n");
  std::string wide = "float f0(float x) { return x; }\n";
  for (int i = 1; i < 40; ++i) {
    const std::string call = "f" + std::to_string(i - 1) + "(x)";
    wide += "float f" + std::to_string(i) + "(float x) { return " + call + "+" + call + "+" + call +
            "; }\n";
  }
  EXPECT_EQ(glslErrors(wide + "void main() { gl_FragColor = vec4(f39(1.0)); }"), "");
}

}  // namespace
}  // namespace shadermachine::test
