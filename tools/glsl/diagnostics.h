// Errors of the compiler: thrown where they are found, collected statement by statement.
#pragma once

#include <shadermachine-tools/glsl.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "glslang_tree.h"

namespace shadermachine::tools::glsl {

// Something that the instruction set cannot carry, or this compiler does not know.
struct Unsupported : std::runtime_error {
  Unsupported(const TSourceLoc& where, const std::string& reason)
      : std::runtime_error(reason), location(where) {}
  TSourceLoc location;
};

class Diagnostics {
 public:
  explicit Diagnostics(std::string fileName) : fileName_(std::move(fileName)) {}

  // The source is the given one of the strings that glslang gets, after so many lines.
  void setFirstLine(int string, std::ptrdiff_t linesBefore) {
    sourceString_ = string;
    linesBefore_ = static_cast<int>(linesBefore);
  }
  void add(const Unsupported& error);
  // Takes the errors out of a log of glslang's, whose lines start with "ERROR: ".
  void addLog(const char* log);

  bool empty() const { return messages_.empty(); }
  size_t count() const { return messages_.size(); }
  std::vector<GlslMessage> take() { return std::move(messages_); }

 private:
  int sourceLine(int string, int line) const {
    return string == sourceString_ && line > 0 ? line + linesBefore_ : line;
  }
  void addOnce(int line, std::string text);

  std::string fileName_;
  int sourceString_ = 0;
  int linesBefore_ = 0;
  std::vector<GlslMessage> messages_;
};

}  // namespace shadermachine::tools::glsl
