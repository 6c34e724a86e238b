// A source's text before glslang sees it: line ends, #version, and what must not grow without end.
//
// glslang has no limits of its own on macros or on the length of an expression, so both are
// measured here first: macros by expanding them once, into nothing but a count.
#pragma once

#include <glslang/build_info.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics.h"

namespace shadermachine::tools::glsl {

inline constexpr size_t kMaxSourceBytes = 1 << 20;
inline constexpr size_t kMaxIncludedBytes = 4 * kMaxSourceBytes;
inline constexpr unsigned kMaxIncludeDepth = 50;
inline constexpr const char* kCommonFile = "Common.glsl";  // in front of a source with mainImage()
inline constexpr size_t kMaxExpandedTokens = 1 << 21;
// Of one statement. glslang recurses with each; newer versions take more of the stack.
inline constexpr size_t kMaxOperators = GLSLANG_VERSION_MAJOR > 12 ? 8000 : 20000;
inline constexpr size_t kMaxStructures = 10000;  // each may contain the one before
// glslang compares each case of a switch with all before it.
inline constexpr size_t kMaxCases = 10000;
// Of blocks within each other: a name is looked for in each of them.
inline constexpr size_t kMaxBlockDepth = 250;

struct Source {
  std::string text;              // without byte order mark, lines end with "\n", no #version
  std::string versionDirective;  // "#version 300 es"; empty when there is none
  int version = 0;
  int versionLine = 0;
  int lines = 1;
};

// False, with an error, when the text is none that a compiler should see.
bool readSource(std::string_view text, Source& source, Diagnostics& diagnostics);

// Words and single other characters, without white space and comments.
std::vector<std::string_view> tokensOf(std::string_view text);

struct Expanded {
  std::string problem;                   // why glslang would choke on the source; else empty
  std::map<std::string, size_t> tokens;  // of each file, with those of what it includes
};

// The source with all that it includes, whose macros it may use. Conditional directives are not
// followed: the last definition of a macro counts, and what guards itself is read once.
Expanded expanded(const Source& source, const GlslOptions& options);

bool definesFunction(const std::vector<std::string_view>& tokens, std::string_view type,
                     std::string_view name);
// With a type, and perhaps a precision, between.
bool declaresUniform(const std::vector<std::string_view>& tokens, std::string_view name);

}  // namespace shadermachine::tools::glsl
