#include "assembly/diagnostics.h"

#include <shadermachine-tools/source_map.h>

#include <algorithm>
#include <utility>

namespace shadermachine::tools {
namespace {

constexpr size_t kMaxQuoted = 60;

}  // namespace

std::string formatError(const AssemblyError& error, std::string_view text,
                        std::string_view fileName) {
  return formatMessage({.file = fileName,
                        .line = error.line,
                        .column = error.column,
                        .length = error.length,
                        .lineText = lineOfText(text, error.line)},
                       "error", error.message);
}

namespace assembly {

Diagnostics::Diagnostics(std::string_view text) : text_(text), lineStarts_{0} {
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n') lineStarts_.push_back(static_cast<uint32_t>(i + 1));
  }
}

SourcePosition Diagnostics::positionOf(std::string_view place) const {
  const auto offset = static_cast<uint32_t>(place.data() - text_.data());
  const auto next = std::upper_bound(lineStarts_.begin(), lineStarts_.end(), offset);
  return {.file = 0,
          .line = static_cast<uint32_t>(next - lineStarts_.begin()),
          .column = offset - *std::prev(next) + 1};
}

void Diagnostics::error(std::string_view place, std::string message) {
  if (isFull()) return;
  const auto [file, line, column] = positionOf(place);
  if (!linesWithErrors_.insert(line).second) return;
  if (errors_.size() + 1 == kMaxErrors) message += " (too many errors, the rest is not shown)";
  errors_.push_back({line, column, static_cast<uint32_t>(place.size()), std::move(message)});
}

bool Diagnostics::keepsErrorAt(std::string_view place) const {
  return !isFull() && !linesWithErrors_.contains(positionOf(place).line);
}

std::vector<AssemblyError> Diagnostics::take() {
  std::stable_sort(errors_.begin(), errors_.end(),
                   [](const AssemblyError& a, const AssemblyError& b) {
                     return std::pair(a.line, a.column) < std::pair(b.line, b.column);
                   });
  return std::move(errors_);
}

std::string quoted(std::string_view text) {
  const bool isLong = text.size() > kMaxQuoted;
  return "'" + printable(text.substr(0, kMaxQuoted)) + (isLong ? "...'" : "'");
}

}  // namespace assembly
}  // namespace shadermachine::tools
