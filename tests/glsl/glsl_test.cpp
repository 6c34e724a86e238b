// Every feature of the language that the compiler supports, as small programs with the value that
// they have to give; and what it refuses, with the message.
#include <gtest/gtest.h>
#include <shadermachine-tools/renderer.h>
#include <shadermachine-tools/validator.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>

#include "glsl_run.h"
#include "support/text_cases.h"

namespace shadermachine::test {
namespace {

// In the files of cases/: the body of main(), which sets r; globals and functions are a case's own.
class Glsl : public testing::TestWithParam<tests::TextCase> {};

TEST_P(Glsl, givesTheExpectedValue) {
  const tests::TextCase& test = GetParam();
  const std::string source = withBody(test.body, test.own);
  const Fragment result = runGlsl(source);
  EXPECT_EQ(result.code, 0u);
  const Fragment debugged = runGlsl(source, {.isForDebugging = true});
  // The language leaves open which of several output parameters a variable gets last.
  const bool isOpen = test.name == "functions_outputAliases";
  EXPECT_TRUE(isOpen || std::memcmp(&debugged.colour, &result.colour, sizeof result.colour) == 0);
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
  const tools::GlslResult result = tools::compileGlsl(
      "#version 120\nuniform vec2 a = vec2(1.5, 2.0); uniform int n = -3; uniform float unused "
      "= 1.0;\nvoid main() { gl_FragColor = vec4(a, n, a.x); }");
  const std::vector<tools::NamedValue>& values = result.uniformValues;
  ASSERT_EQ(values.size(), 2u);
  EXPECT_EQ(values[0].name + values[1].name, "an");
  EXPECT_EQ(values[0].components, (std::vector<double>{1.5, 2}));
  EXPECT_EQ(values[1].components, (std::vector<double>{-3}));
  EXPECT_EQ(result.unusedUniforms, std::vector<std::string>{"unused"});
}

// A39(x) doubles x forty times.
std::string macroBomb() {
  std::string bomb = "#define A0(x) x x\n";
  for (int i = 1; i < 40; ++i) {
    const std::string inner = "A" + std::to_string(i - 1) + "(x)";
    bomb += "#define A" + std::to_string(i) + "(x) " + inner + " " + inner + "\n";
  }
  return bomb;
}

TEST(GlslEntry, includesAndDefinitions) {
  const std::map<std::string, std::string> files = {
      {"a.glsl", "#pragma once\n#include \"b.glsl\"\n"},
      {"b.glsl", "float f() { return oops; }\n"},
      {"loop.glsl", "#include \"loop.glsl\"\n"},
      {"Common.glsl", "#define THREE 3.0\n"},
      {"bomb.glsl", macroBomb()}};
  tools::GlslOptions options = {"dir/a.frag", {"ONE", "oops=2.0"}, nullptr};
  options.include = [&files](const std::string& name,
                             const std::string&) -> std::optional<tools::GlslInclude> {
    const auto file = files.find(name);
    if (file == files.end()) return std::nullopt;
    return tools::GlslInclude{"dir/" + name, file->second};
  };
  const auto errors = [&](const std::string& source) {
    const std::vector<tools::GlslMessage> messages = tools::compileGlsl(source, options).messages;
    return messages.empty() ? "" : toString(messages.front());
  };
  const std::string image =
      "#include \"a.glsl\"\nvoid mainImage(out vec4 c, in vec2 p) { c = vec4(f() * THREE); }";
  EXPECT_EQ(errors(image), "");
  options.defines.pop_back();
  EXPECT_EQ(errors(image),
            "dir/b.glsl:1:20: error: undeclared identifier 'oops'\n  float f() { return oops; }\n" +
                std::string(21, ' ') + "^~~~");
  EXPECT_NE(errors("#include \"bomb.glsl\"\nvoid main() { float x = A39(1.0); }")
                .find("macros make the source too long"),
            std::string::npos);
  EXPECT_NE(errors("#include \"loop.glsl\"\nvoid main() { }").find("loop.glsl"), std::string::npos);
}

// The record's first output is the one that is asked for.
TEST(GlslEntry, outputsByLocation) {
  const char* source =
      "#version 300 es\nprecision highp float; layout(location = 1) out ivec2 b; "
      "layout(location = 0) out vec4 a; void main() { a = vec4(1.0); b = ivec2(7); }";
  const auto firstType = [&](std::optional<unsigned> output) -> int {
    tools::GlslOptions options;
    options.output = output;
    const tools::GlslResult result = tools::compileGlsl(source, options);
    if (!result.shader) return 0;
    const CompiledShader& record = *result.shader->record();
    return record.globals[record.outputGlobal0].type;
  };
  EXPECT_EQ(firstType(std::nullopt), VM_TYPE_VEC4);
  EXPECT_EQ(firstType(1), VM_TYPE_IVEC2);
  EXPECT_EQ(firstType(2), 0);
}

TEST(GlslEntry, depthAndDiscard) {
  const Fragment deep = runGlsl(withBody("r = vec4(1.0); gl_FragDepth = two / 8.0;"));
  EXPECT_EQ(deep.depth, 0.25f);
  const Fragment gone =
      runGlsl(withBody("float a[2]; a[0] = two; if (a[0] > 1.0) discard; r = vec4(1.0);"));
  EXPECT_EQ(gone.code, static_cast<uint32_t>(VM_ERR_DISCARDED));
  EXPECT_EQ(gone.colour[0], -1);
}

// Two by two texels: red 0 and 51 above, 102 and 153 below, green is 255; filtered linearly.
tools::Texture smallTexture() {
  tools::Texture texture;
  texture.image = tools::ByteImage(2, 2);
  for (uint8_t i = 0; i < 4; ++i) {
    uint8_t* texel = texture.image.pixel(i % 2u, i / 2u);
    texel[0] = static_cast<uint8_t>(51 * i);
    texel[1] = texel[3] = 255;
  }
  return texture;
}

TEST(GlslTextures, answersOfTheRenderer) {
  const struct {
    const char* expression;
    std::array<float, 4> colour;
  } cases[] = {
      {"texture(s.t[1], vec2(0.25, 0.75)) * s.c", {0, 0.5f, 0, 0.5f}},
      {"textureGather(s.t[1], vec2(0.5))", {0, 0.2f, 0.6f, 0.4f}},
      {"textureLod(s.t[1], vec2(0.1), 1.0)", {77 / 255.0f, 1, 0, 1}},
      {"textureGrad(s.t[1], vec2(0.1), vec2(2.0, 0.0), vec2(0.0))", {77 / 255.0f, 1, 0, 1}},
      {"texelFetchOffset(s.t[1], ivec2(0), 0, ivec2(1, 0))", {0.6f, 1, 0, 1}},
      {"vec4(texture(d, vec3(0.5, 0.5, 0.3)))", {0.5f, 0.5f, 0.5f, 0.5f}},
      {"vec4(texture(i, vec2(0.25, 0.25)))", {102, 255, 0, 255}},
      {"vec4(textureSize(a, 1), textureSize(s.t[1], 0).y)", {1, 1, 1, 2}},
      {"texture(a, vec3(0.75, 0.75, 3.0))", {0.2f, 1, 0, 1}},
      {"textureGatherOffsets(s.t[1], vec2(0.5), ivec2[](ivec2(0), ivec2(1, 0), ivec2(1), "
       "ivec2(0)))",
       {0.4f, 0.6f, 0.2f, 0.4f}},
      {"vec4(textureQueryLod(a, gl_FragCoord.xy * 2.0), textureSamples(m), aResolution.y)",
       {1, 2, 1, 2}},
      {"texelFetch(b, 3) - vec4(textureSize(b))", {0.2f - 4, -3, -4, -3}},
  };
  for (const auto& test : cases) {
    const std::string source =
        "#version 450\nstruct S { sampler2D t[2]; vec4 c; }; uniform S s; uniform sampler2DShadow "
        "d; "
        "uniform isampler2D i; uniform sampler2DArray a; uniform vec2 aResolution; "
        "uniform samplerBuffer b; uniform sampler2DMS m; out vec4 r; void main() { r = " +
        std::string(test.expression) + "; }";
    const tools::GlslResult compiled = tools::compileGlsl(source);
    ASSERT_TRUE(compiled.shader) << glslErrors(source);
    tools::Renderer renderer(compiled.shader->view());
    for (const char* name : {"s.t[1]", "d", "i", "a", "b", "m"}) {
      renderer.inputs().setTexture(name, smallTexture());
    }
    renderer.inputs().set("s.c", std::array{0.5, 0.5, 0.5, 0.5});
    tools::RenderSettings settings;
    settings.frame.width = settings.frame.height = 1;
    const tools::RenderResult result = renderer.render(settings);
    for (size_t i = 0; i < 4; ++i) {
      EXPECT_NEAR(result.colour.rgba[i], test.colour[i], 1e-5f) << test.expression << " " << i;
    }
  }
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
  const auto chain = [](int length) {
    return "void main() { float x; gl_FragColor = vec4(x" + repeated("-x", length) + "); }";
  };
  EXPECT_TRUE(
      glslErrors(chain(7000)).starts_with("a.frag:1:11053: error: nested too deeply\n  -x-x"));
  EXPECT_EQ(glslErrors(chain(300000)), "a.frag: error: a statement has too many operators\n");
  EXPECT_EQ(glslErrors("void main() { float x; x = (x" + repeated(",x", 200000) + "); }"),
            "a.frag: error: a statement has too many operators\n");
  EXPECT_EQ(glslErrors(repeated("struct S { float x; };", 20000)),
            "a.frag: error: too many structures\n");
  EXPECT_EQ(glslErrors("void main() { switch (1) {" + repeated("case 1:", 20000) + "; } }"),
            "a.frag: error: too many cases\n");
  EXPECT_EQ(glslErrors("void main() {" + repeated("{", 1000) + repeated("}", 1001)),
            "a.frag: error: blocks are nested too deeply\n");
  EXPECT_TRUE(glslErrors("uniform B { float x" + repeated(", x", 5000) + "; }; void main() { }")
                  .starts_with("a.frag: error: structure B has more than 4096 members\n"));
  std::string nested = "struct S0 { float x; };";
  for (int i = 1; i < 9000; ++i) {
    nested += "struct S" + std::to_string(i) + " { S" + std::to_string(i - 1) + " s; };";
  }
  for (int i = 0; i < 9000; ++i) nested += "S" + std::to_string(i) + " s" + std::to_string(i) + ";";
  EXPECT_TRUE(glslErrors(nested + "void main() { gl_FragColor = vec4(s8999 == s8999); }")
                  .starts_with("a.frag: error: structure S200 is nested more than 200 deep\n"));
  std::string doubled = "struct S0 { float x; };";
  for (int i = 1; i < 60; ++i) {
    const std::string inner = "S" + std::to_string(i - 1);
    doubled += "struct S" + std::to_string(i) + " { " + inner + " a, b; };";
  }
  EXPECT_NE(glslErrors(doubled + "void main() { S59 s; gl_FragColor = vec4(1.0); }")
                .find("has too many members for a source of this length"),
            std::string::npos);
  EXPECT_EQ(glslErrors(chain(600000)), "a.frag: error: the source is longer than 1 MiB\n");
  EXPECT_EQ(glslErrors("uniform float x; // = " + repeated("1", 300000) +
                       "\nvec4 transition(vec2 p) { return vec4(x); }"),
            "");
  std::string many = "void main() {";
  for (int i = 0; i < 500; ++i) many += "x" + std::to_string(i) + ";";
  const auto messages = tools::compileGlsl(many + "}").messages;
  EXPECT_EQ(messages.size(), 102u);
  EXPECT_EQ(messages[101].text, "and 400 more errors");
  EXPECT_EQ(glslErrors(macroBomb() + "void main() { float x = A39(1.0); }"),
            "a.frag: error: macros make the source too long\n");
  EXPECT_EQ(glslErrors(std::string("void main() {\r\n}\r\n\0", 19)),
            "a.frag:3:1: error: a NUL byte in the source\n  ?\n  ^\n");
  std::string wide = "float f0(float x) { return x; }\n";
  for (int i = 1; i < 40; ++i) {
    const std::string call = "f" + std::to_string(i - 1) + "(x)";
    wide += "float f" + std::to_string(i) + "(float x) { return " + call + "+" + call + "+" + call +
            "; }\n";
  }
  // Calls as deep as there are functions.
  std::string deep = "float g0(float x) { return x; }\n";
  for (int i = 1; i < 6000; ++i) {
    deep += "float g" + std::to_string(i) + "(float x) { return g" + std::to_string(i - 1) +
            "(x) + 1.0; }\n";
  }
  EXPECT_EQ(glslErrors(deep + "void main() { gl_FragColor = vec4(g5999(1.0)); }"), "");
  EXPECT_EQ(glslErrors(wide + "void main() { gl_FragColor = vec4(f39(1.0)); }"), "");
}

}  // namespace
}  // namespace shadermachine::test
