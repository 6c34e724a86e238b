// Collects the errors of one text.
#pragma once

#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/source_map.h>

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace shadermachine::tools::assembly {

inline constexpr size_t kMaxErrors = 100;

class Diagnostics {
 public:
  explicit Diagnostics(std::string_view text);

  // `place` must be a part of the text. Only the first error of a line is kept: the others are
  // likely to follow from it.
  void error(std::string_view place, std::string message);
  bool isFull() const { return errors_.size() >= kMaxErrors; }
  // Whether an error at the place would be kept: who makes a hint that takes long asks first.
  bool keepsErrorAt(std::string_view place) const;
  bool isEmpty() const { return errors_.empty(); }
  // Of a part of the text, whose number as a file is 0.
  SourcePosition positionOf(std::string_view place) const;

  // The errors in the order of the text.
  std::vector<AssemblyError> take();

 private:
  std::string_view text_;
  std::vector<uint32_t> lineStarts_;
  std::unordered_set<uint32_t> linesWithErrors_;
  std::vector<AssemblyError> errors_;
};

// Quotes a piece of the text for a message, printable and not too long.
std::string quoted(std::string_view text);

}  // namespace shadermachine::tools::assembly
