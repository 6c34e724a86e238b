// Where the parts of a compiled shader come from. The map stands beside the record: neither machine
// nor validator reads it, and a record without one runs just the same.
//
// Invariants: the rows of a function are in ascending order of their offsets, no two at the same
// one; file numbers lie within `files`; a variable's begin is not behind its end.
#pragma once

#include <shadermachine/shadermachine.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace shadermachine::tools {

struct ShaderView;

struct SourceFile {
  std::string name;
  std::string text;        // empty when only the name is known
  bool isListing = false;  // the assembly text itself, not what that was made from
};

// Lines and columns count from 1, columns in bytes.
struct SourcePosition {
  uint32_t file = 0;
  uint32_t line = 0;    // 0: comes from no source
  uint32_t column = 0;  // 0: unknown

  bool isKnown() const { return line > 0; }
  bool operator==(const SourcePosition&) const = default;
};

// Holds from its offset in the function's code to the next row.
struct SourceRow {
  uint32_t offset = 0;
  SourcePosition position;
  bool isStatement = false;  // a statement begins here: where a debugger stops

  bool operator==(const SourceRow&) const = default;
};

struct SourceVariable {
  enum class Home : uint8_t { Local, Global, Constant, Gone };

  std::string name;
  std::string type;  // as the language writes it: "float[4]", "uint"
  Home home = Home::Local;
  uint16_t index = 0;           // of the local or global
  std::vector<uint32_t> words;  // of a constant, by components
  // Where in the function's code the name stands for this; of globals everywhere.
  uint32_t begin = 0;
  uint32_t end = UINT32_MAX;

  bool isIn(uint32_t offset) const { return begin <= offset && offset < end; }
  bool operator==(const SourceVariable&) const = default;
};

struct SourceFunction {
  std::string signature;  // as the language writes it: "float shade(vec3 p)"; may be empty
  std::vector<SourceRow> rows;
  std::vector<SourceVariable> variables;
};

struct SourceMap {
  std::vector<SourceFile> files;
  std::vector<SourceFunction> functions;  // by function number; may be fewer
  std::vector<SourceVariable> globals;

  // The row that an offset belongs to; null when there is none.
  const SourceRow* row(uint32_t function, uint32_t offset) const;
  SourcePosition position(uint32_t function, uint32_t offset) const;
};

// The text with spaces for tabs and question marks for other characters that cannot be shown.
std::string printable(std::string_view text);

// Line `number` of a text without its end; empty when there are not so many.
std::string_view lineOfText(std::string_view text, uint32_t number);

// What a message is about. Without a line only file and message are shown, without its text no
// caret.
struct MessagePlace {
  std::string_view file;
  uint32_t line = 0;
  uint32_t column = 0;
  uint32_t length = 1;  // bytes to underline, within the line
  std::string_view lineText = {};
};

// "picture.frag:12:9: error: message", the line, and a caret below the place; each line ends with a
// newline. `severity` is "error" or "warning".
std::string formatMessage(const MessagePlace& place, std::string_view severity,
                          std::string_view message);

// The place of an instruction; of the file alone where the map does not know it or there is none.
MessagePlace messagePlace(const ShaderView& view, int32_t function, uint32_t offset,
                          std::string_view fileName);

// The function as its language writes it, else its name, else its number.
std::string functionText(const ShaderView& view, uint32_t function);

}  // namespace shadermachine::tools
