// From assembly text to compiled shaders. docs/assembly.md describes the language.
#pragma once

#include <shadermachine-tools/shader_builder.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace shadermachine::tools {

// An error at a place in a text; lines and columns count from 1, columns in bytes.
struct AssemblyError {
  uint32_t line = 1;
  uint32_t column = 1;
  uint32_t length = 1;  // bytes to underline, within the line
  std::string message;
};

struct AssemblyResult {
  std::optional<BuiltShader> shader;  // empty when there are errors
  std::vector<AssemblyError> errors;  // in the order of the text; at most 100
};

// Any bytes may be given. The result does not refer to the text, but for messages about its code it
// keeps a copy of text and file name (source_map.h).
AssemblyResult assemble(std::string_view text, std::string_view fileName = {});

// "file:line:column: error: message", the line of the text, and a caret below the place.
std::string formatError(const AssemblyError& error, std::string_view text,
                        std::string_view fileName);

}  // namespace shadermachine::tools
