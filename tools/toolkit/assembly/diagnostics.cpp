#include "assembly/diagnostics.h"

#include <algorithm>
#include <utility>

namespace shadermachine::tools {
namespace {

constexpr size_t kMaxQuoted = 60;
constexpr size_t kMaxContext = 120;  // bytes of a source line shown

bool isPrintable(char c) { return c >= ' ' && c != 127; }

std::string printable(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    const bool isUtf8 = static_cast<unsigned char>(c) >= 0x80;
    if (!isUtf8 && !isPrintable(c)) c = c == '\t' ? ' ' : '?';
  }
  return result;
}

std::string_view lineOfText(std::string_view text, uint32_t line) {
  for (uint32_t skipped = 1; skipped < line; ++skipped) {
    const size_t end = text.find('\n');
    if (end == std::string_view::npos) return {};
    text.remove_prefix(end + 1);
  }
  return text.substr(0, text.find('\n'));
}

}  // namespace

std::string formatError(const AssemblyError& error, std::string_view text,
                        std::string_view fileName) {
  std::string_view line = lineOfText(text, error.line);
  size_t column = error.column - 1;
  if (column > kMaxContext / 2) {
    const size_t hidden = std::min(line.size(), column - kMaxContext / 2);
    line.remove_prefix(hidden);
    column -= hidden;
  }
  line = line.substr(0, kMaxContext);
  const size_t room = line.size() > column ? line.size() - column : 1;
  const size_t length = std::clamp<size_t>(error.length, 1, room);
  return std::string(fileName) + ":" + std::to_string(error.line) + ":" +
         std::to_string(error.column) + ": error: " + error.message + "\n  " + printable(line) +
         "\n  " + std::string(column, ' ') + "^" + std::string(length - 1, '~') + "\n";
}

namespace assembly {

Diagnostics::Diagnostics(std::string_view text) : text_(text), lineStarts_{0} {
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n') lineStarts_.push_back(static_cast<uint32_t>(i + 1));
  }
}

uint32_t Diagnostics::lineOf(std::string_view place) const {
  const auto offset = static_cast<uint32_t>(place.data() - text_.data());
  const auto next = std::upper_bound(lineStarts_.begin(), lineStarts_.end(), offset);
  return static_cast<uint32_t>(next - lineStarts_.begin());
}

void Diagnostics::error(std::string_view place, std::string message) {
  const uint32_t line = lineOf(place);
  if (isFull() || !linesWithErrors_.insert(line).second) return;
  if (errors_.size() + 1 == kMaxErrors) message += " (too many errors, the rest is not shown)";
  const auto offset = static_cast<uint32_t>(place.data() - text_.data());
  errors_.push_back({line, offset - lineStarts_[line - 1] + 1, static_cast<uint32_t>(place.size()),
                     std::move(message)});
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
