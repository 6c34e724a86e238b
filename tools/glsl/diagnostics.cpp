#include "diagnostics.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace shadermachine::tools {

std::string toString(const GlslMessage& message) {
  const std::string place =
      message.line > 0 ? message.file + ":" + std::to_string(message.line) : message.file;
  return place + (message.isNote ? ": note: " : ": error: ") + message.text;
}

namespace glsl {

void Diagnostics::add(const Unsupported& error) {
  const TSourceLoc& where = error.location;
  addAt(where.name != nullptr ? where.name->c_str() : "", where.line, error.what());
}

// An error behind the source's end is one of its last line; texts with numbers for names are those
// that a #line directive made up.
void Diagnostics::addAt(std::string_view place, int line, std::string text) {
  if (place == kVersionText) return addOnce(fileName_, versionLine_, std::move(text));
  if (place == kPreambleText) return addOnce(fileName_, 0, std::move(text));
  if (place == kEntryText) return addOnce(fileName_, lastLine_, std::move(text));
  const bool isNumber = place.find_first_not_of("0123456789") == std::string_view::npos;
  addOnce(isNumber ? fileName_ : std::string(place), line, std::move(text));
}

void Diagnostics::addOnce(const std::string& file, int line, std::string text) {
  const bool known = std::any_of(messages_.begin(), messages_.end(), [&](const GlslMessage& m) {
    return m.line == line && m.text == text && m.file == file;
  });
  if (!known) messages_.push_back({file, line, std::move(text)});
}

void Diagnostics::addLog(const char* log) {
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    constexpr std::string_view kPrefix = "ERROR: ";
    const bool isSummary = line.find("compilation errors") != std::string::npos ||
                           line.find("compilation terminated") != std::string::npos;
    if (!line.starts_with(kPrefix) || isSummary) continue;
    line.erase(0, kPrefix.size());
    // "<name>:<line>: <text>"; the summary at the end has no place.
    size_t start = line.find(':');
    size_t end = start;
    while (start != std::string::npos) {
      end = line.find_first_not_of("0123456789", start + 1);
      if (end != std::string::npos && end > start + 1 && line[end] == ':') break;
      start = line.find(':', start + 1);
    }
    if (start == std::string::npos) {
      addOnce(fileName_, 0, line);
      continue;
    }
    std::string text = line.substr(end + 1);
    text.erase(0, text.find_first_not_of(' '));
    while (!text.empty() && text.back() == ' ') text.pop_back();
    addAt(std::string_view(line).substr(0, start), std::atoi(line.c_str() + start + 1),
          std::move(text));
  }
  if (empty()) addOnce(fileName_, 0, "the source cannot be parsed");
}

}  // namespace glsl
}  // namespace shadermachine::tools
