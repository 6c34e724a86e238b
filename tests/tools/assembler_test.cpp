// Limits and odd texts; what the language means is shown by the golden files.
#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>

#include <algorithm>
#include <string>

namespace shadermachine::tools {
namespace {

// With the repetition's number in place of the first #.
std::string repeated(const std::string& text, size_t count) {
  const size_t place = std::min(text.find('#'), text.size());
  std::string result;
  for (size_t i = 0; i < count; ++i) {
    result += text.substr(0, place);
    if (place < text.size()) result += std::to_string(i) + text.substr(place + 1);
  }
  return result;
}

std::string firstError(const std::string& text) {
  const AssemblyResult result = assemble(text);
  return result.shader || result.errors.empty() ? "" : result.errors[0].message;
}

TEST(Assembler, BuildsEmptyShaderFromEmptyText) {
  for (const char* text : {"", "\n", "; comment", "\r\n\r\n", "\xEF\xBB\xBF"}) {
    const AssemblyResult result = assemble(text);
    ASSERT_TRUE(result.shader) << text;
    EXPECT_EQ(result.shader->record()->functionCount, 0);
  }
}

TEST(Assembler, FillsTablesToTheirLimits) {
  struct Case {
    const char* before;
    const char* line;
    const char* after;
    size_t limit;
    const char* error;
  };
  const Case cases[] = {
      {"", ".global float g#\n", "", 65535, "too many globals, at most 65535 are possible"},
      {"", ".struct s# null\n", "", 32768, "too many structures, at most 32768 are possible"},
      {"", ".function f# null\n", "", 65535, "too many functions, at most 65535 are possible"},
      {".struct s\n", ".member float m#\n", ".end\n", 65535,
       "too many members, at most 65535 are possible"},
      {".function f(float p)\n", ".local float l#\n", ".end\n", 65534,
       "too many locals, at most 65534 are possible"},
      {".function f\nCTOR_VEC4_A 1", ", 1", "\n.end\n", 65534, "a list has at most 65535 entries"},
  };
  for (const Case& entry : cases) {
    const std::string full = entry.before + repeated(entry.line, entry.limit);
    EXPECT_EQ(firstError(full + entry.after), "");
    EXPECT_EQ(firstError(full + repeated(entry.line, 1) + entry.after), entry.error);
  }
  EXPECT_EQ(firstError(".declare d\n.function d null\n" + repeated(".function f# null\n", 65535)),
            "too many functions, at most 65535 are possible");
}

TEST(Assembler, StopsAfterAHundredErrors) {
  const AssemblyResult result = assemble(repeated("@\n", 1000));
  ASSERT_EQ(result.errors.size(), 100u);
  EXPECT_EQ(result.errors[99].line, 100u);
  EXPECT_EQ(result.errors[99].message,
            "unexpected character (too many errors, the rest is not shown)");
}

TEST(Assembler, SortsErrorsByPlace) {
  const AssemblyResult result = assemble(".entry missing\n.global vec9 x\n@\n");
  ASSERT_EQ(result.errors.size(), 3u);
  for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(result.errors[i].line, i + 1);
}

TEST(Assembler, ShowsAPieceOfALongLine) {
  const std::string text = ".entry " + std::string(5000, ' ') + "missing" + std::string(5000, ' ');
  const AssemblyResult result = assemble(text);
  ASSERT_EQ(result.errors.size(), 1u);
  EXPECT_EQ(formatError(result.errors[0], text, "f"),
            "f:1:5008: error: no function is named 'missing'\n  " + std::string(60, ' ') +
                "missing" + std::string(53, ' ') + "\n  " + std::string(60, ' ') + "^~~~~~~\n");
}

TEST(Assembler, PrintsNoControlCharacters) {
  const std::string text = "\x1b[31m\t\x01 .end\n";
  const AssemblyResult result = assemble(text);
  ASSERT_FALSE(result.errors.empty());
  const std::string message = formatError(result.errors[0], text, "f");
  EXPECT_EQ(message.find('\x1b'), std::string::npos);
  EXPECT_EQ(message.find('\x01'), std::string::npos);
}

TEST(Assembler, PrefersErrorsOfTheLexer) {
  const AssemblyResult result = assemble(".global float \"open\n");
  ASSERT_EQ(result.errors.size(), 1u);
  EXPECT_EQ(result.errors[0].message, "string without closing quote");
}

}  // namespace
}  // namespace shadermachine::tools
