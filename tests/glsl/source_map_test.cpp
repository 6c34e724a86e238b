// What the compiler notes about where code and values come from, and that assembly text keeps it.
#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/disassembler.h>
#include <shadermachine-tools/glsl.h>

#include <algorithm>

namespace shadermachine::tools {
namespace {

using Home = SourceVariable::Home;

constexpr const char* kSource = R"(#version 120
uniform vec2 size;
float gain = 2.0;
struct Light { vec3 pos; float power; };
float shade(vec3 p, Light l) {
  float d = length(p - l.pos);
  for (int i = 0; i < 3; ++i) {
    float part = d;
    d += part;
  }
  return l.power / d;
}
void main() {
  float k = 4.0;
  Light light = Light(vec3(0.5), gain);
  float a[3];
  a[1] = shade(vec3(size, k), light);
  gl_FragColor = vec4(a[1]);
}
)";

BuiltShader compiled(bool isForDebugging) {
  GlslResult result =
      compileGlsl(kSource, {.fileName = "a.frag", .isForDebugging = isForDebugging});
  return std::move(result.shader.value());
}

// The variable of the name that is in scope where the line's first statement begins.
const SourceVariable* findVariable(const SourceMap& map, const std::string& name, uint32_t line) {
  for (const SourceFunction& function : map.functions) {
    const auto row = std::find_if(function.rows.begin(), function.rows.end(), [&](auto& known) {
      return known.position.line == line && known.isStatement;
    });
    if (row == function.rows.end()) continue;
    for (const SourceVariable& variable : function.variables) {
      if (variable.name == name && variable.isIn(row->offset)) return &variable;
    }
  }
  for (const SourceVariable& variable : map.globals) {
    if (variable.name == name) return &variable;
  }
  return nullptr;
}

TEST(SourceMap, knowsVariables) {
  struct Case {
    const char* name;
    uint32_t line;
    const char* type;
    Home optimised, debugged;
  };
  constexpr Case kCases[] = {
      {"size", 17, "vec2", Home::Global, Home::Global},
      {"gain", 17, "float", Home::Constant, Home::Global},
      {"k", 17, "float", Home::Local, Home::Local},
      {"a", 18, "float[3]", Home::Local, Home::Local},
      {"light", 17, "Light", Home::Local, Home::Local},
      {"l", 7, "Light", Home::Local, Home::Local},
      {"part", 9, "float", Home::Local, Home::Local},
  };
  for (const bool isForDebugging : {false, true}) {
    const BuiltShader shader = compiled(isForDebugging);
    const SourceMap& map = *shader.view().sources;
    for (const Case& c : kCases) {
      const SourceVariable* variable = findVariable(map, c.name, c.line);
      ASSERT_NE(variable, nullptr) << c.name;
      EXPECT_EQ(variable->home, isForDebugging ? c.debugged : c.optimised) << c.name;
      EXPECT_EQ(variable->type, c.type);
    }
    EXPECT_EQ(findVariable(map, "part", 11), nullptr);
    EXPECT_EQ(findVariable(map, "i", 11), nullptr);
    EXPECT_EQ(findVariable(map, "d", 18), nullptr);
  }
}

TEST(SourceMap, debuggedFunctionsStayFunctions) {
  const BuiltShader shader = compiled(true);
  std::vector<std::string> signatures;
  for (const SourceFunction& function : shader.view().sources->functions) {
    if (!function.rows.empty()) signatures.push_back(function.signature);
  }
  EXPECT_EQ(signatures, (std::vector<std::string>{"void main()", "float shade(vec3 p, Light l)"}));
}

TEST(SourceMap, survivesAssemblyText) {
  for (const bool isForDebugging : {false, true}) {
    const BuiltShader first = compiled(isForDebugging);
    const std::string text = disassemble(first.view());
    const AssemblyResult second = assemble(text, "a.sasm");
    ASSERT_TRUE(second.shader) << text;
    EXPECT_EQ(disassemble(second.shader->view()), text);
    const SourceMap& before = *first.view().sources;
    const SourceMap& after = *second.shader->view().sources;
    EXPECT_EQ(after.globals, before.globals);
    for (size_t i = 0; i < before.functions.size(); ++i) {
      EXPECT_EQ(after.functions[i].signature, before.functions[i].signature);
      EXPECT_EQ(after.functions[i].variables, before.functions[i].variables);
      if (before.functions[i].rows.empty()) continue;  // made by the compiler alone
      std::vector<SourceRow> rows = after.functions[i].rows;
      for (SourceRow& row : rows) row.position.file = 0;
      EXPECT_EQ(rows, before.functions[i].rows);
      EXPECT_TRUE(std::ranges::is_sorted(rows, {}, &SourceRow::offset));
    }
  }
}

TEST(SourceMap, variablesInScopeNowhereAreNoText) {
  const GlslResult result = compileGlsl(
      "#version 330\nout vec4 c; void f(int a) {} void main() { c = vec4(1); f(1); c.x = 2.0; }");
  ASSERT_TRUE(result.shader);
  const std::string text = disassemble(result.shader->view());
  EXPECT_TRUE(assemble(text, "a.sasm").shader) << text;
}

}  // namespace
}  // namespace shadermachine::tools
