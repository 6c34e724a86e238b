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

TEST(GlslEntry, versionsAreTried) {
  const char* sources[] = {
      "void main() { gl_FragColor = vec4(1.0, 2.0, 3.0, 4.0); }",
      "varying vec2 v; void main() { float a[2] = float[2](1.0, 2.0); gl_FragColor = vec4(a[0], "
      "a[1], 3, 4); }",
      "out vec4 c; void main() { uint u = 1u; c = vec4(u, 2, 3, 4); }",
      "#version 130\nout vec4 c; void main() { c = vec4(1, 2, 3, 4); }",
      "#version 330 core\nlayout(location = 0) out vec4 c; void main() { c = vec4(1, 2, 3, 4); }",
      "#version 120\nvoid main() { gl_FragColor = vec4(1, 2, 3, 4) + gl_TexCoord[1]; }",
      "#ifdef GL_ES\nprecision mediump float;\n#endif\nvoid main() { gl_FragData[0] = vec4(1, 2, "
      "3, 4); }",
  };
  for (const char* source : sources) {
    EXPECT_EQ(runGlsl(source).colour, (std::array<float, 4>{1, 2, 3, 4})) << source;
  }
}

TEST(GlslEntry, imageShadersGetAnEntry) {
  const Fragment result =
      runGlsl("void mainImage(out vec4 c, in vec2 p) { c = vec4(p, iTime + iResolution.x, 0.0); }");
  EXPECT_EQ(result.colour, (std::array<float, 4>{10.5f, 20.5f, 0, 1}));
}

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

struct Refusal {
  const char* source;
  const char* message;
};

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

TEST(GlslErrors, nameFileLineAndReason) {
  const Refusal refusals[] = {
      {"void main() {\n  gl_FragColor = vec4(x);\n}",
       "a.frag:2: error: 'x' : undeclared identifier"},
      {"precision highp float;\nvoid f() { }\n", "a.frag: error: main() is missing"},
      {"#version 300 es\nprecision highp float;\nout vec4 c;\nvoid main() {\n  mat2x3 m = "
       "mat2x3(1.0);\n  c = vec4(m[0].x);\n}",
       "a.frag:5: error: non-square matrices are not supported"},
      {"#version 400\nout vec4 c;\nvoid main() { double d = 1.0; c = vec4(d); }",
       "type double is not supported"},
      {"#version 300 es\nprecision highp float;\nlayout(location = 0) out vec4 a;\nlayout(location "
       "= 1) out vec4 b;\nvoid main() {\n  a = vec4(0.0);\n  b = vec4(1.0);\n}",
       "a.frag:7: error: output b: a shader has one colour output"},
      {"void main() {\n  gl_FragData[1] = vec4(1.0);\n}", "only gl_FragData[0] is supported"},
      {"#version 300 es\nprecision highp float;\nout vec4 c;\nuniform highp sampler2DArray "
       "s;\nvoid main() {\n  c = texture(s, vec3(0.0));\n}",
       "a.frag:6: error: samplers of type"},
      {"#version 110\nvoid main() {\n  gl_FragColor = 1;\n}", "a.frag:3: error: 'assign'"},
      {"#version 150\nlayout(origin_upper_left) in vec4 gl_FragCoord;\nout vec4 c;\nvoid main() { "
       "c "
       "= gl_FragCoord; }",
       "a.frag: error: redeclared origins of gl_FragCoord are not supported"},
      {"#version 300 es\nprecision highp float;\nuniform highp sampler3D s;\nout vec4 c;\nvoid "
       "main() {\n  c = textureOffset(s, vec3(0.0), ivec3(1));\n}",
       "a.frag:6: error: offsets are supported in 2D textures only"},
      {"#version 430\nbuffer B { float x; };\nout vec4 c;\nvoid main() {\n  c = vec4(x);\n}",
       "a.frag:5: error: storage buffers are not supported"},
      {"float f(float x);\nvoid main() {\n  gl_FragColor = vec4(f(1.0));\n}",
       "a.frag:3: error: function f() has no body"},
      {"float f(float x);\nfloat g(float x) { return f(x); }\nfloat f(float x) { return g(x); "
       "}\nvoid main() { gl_FragColor = vec4(f(1.0)); }",
       "recursion through f()"},
  };
  for (const Refusal& refusal : refusals) {
    EXPECT_NE(glslErrors(refusal.source).find(refusal.message), std::string::npos)
        << refusal.message << "\n"
        << glslErrors(refusal.source);
  }
}

}  // namespace
}  // namespace shadermachine::test
