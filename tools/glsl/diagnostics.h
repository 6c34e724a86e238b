// Errors of the compiler: thrown where they are found, collected statement by statement.
#pragma once

#include <shadermachine-tools/glsl.h>
#include <shadermachine-tools/source_map.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "glslang_tree.h"

namespace shadermachine::tools::glsl {

constexpr bool isWordCharacter(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

// Something that the instruction set cannot carry, or this compiler does not know.
struct Unsupported : std::runtime_error {
  Unsupported(const TSourceLoc& where, const std::string& reason)
      : std::runtime_error(reason), location(where) {}
  TSourceLoc location;
};

// Names of the texts around the source that glslang gets. The source, and what it includes, have
// their files' names.
inline constexpr const char* kVersionText = "<version>";
inline constexpr const char* kPreambleText = "<preamble>";
inline constexpr const char* kEntryText = "<entry>";

class Diagnostics {
 public:
  // The source, then what it includes as that is found; must outlive it.
  explicit Diagnostics(const std::vector<SourceFile>& files) : files_(&files) {}

  // Where the source's #version was, and which line is its last.
  void setLines(int version, int last) {
    versionLine_ = version;
    lastLine_ = last;
  }
  void add(const Unsupported& error);
  // Takes the errors out of a log of glslang's, whose lines start with "ERROR: ".
  void addLog(const char* log);

  void addNote(std::string text);

  // How far the source was understood.
  int firstErrorLine() const { return messages_.empty() ? 0 : messages_.front().line; }

  // A place in the source or a file that it includes, as people count; unknown in the texts around.
  SourcePosition position(const TSourceLoc& where) const;

  // "f()" for the call at the place, "this function" when the line does not tell.
  std::string calledFunction(const TSourceLoc& where, bool isAtArgument) const;

  bool empty() const { return messages_.empty(); }
  size_t count() const { return messages_.size() + dropped_; }
  // The first hundred errors, and how many more there are.
  std::vector<GlslMessage> take();

 private:
  // `name`: what glslang calls the text that the line is in.
  SourcePosition place(std::string_view name, int line, int column) const;
  // Without a column, it is that of the word in the line, if there is one.
  void addOnce(SourcePosition position, std::string text, std::string_view word);

  const std::vector<SourceFile>* files_;
  int versionLine_ = 0;
  int lastLine_ = 0;
  std::vector<GlslMessage> messages_;
  size_t dropped_ = 0;
  size_t lineBytes_ = 0;
};

}  // namespace shadermachine::tools::glsl
