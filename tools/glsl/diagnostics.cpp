#include "diagnostics.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace shadermachine::tools {

std::string toString(const GlslMessage& message) {
  const std::string place =
      message.line > 0 ? message.file + ":" + std::to_string(message.line) : message.file;
  return place + ": error: " + message.text;
}

namespace glsl {

void Diagnostics::add(const Unsupported& error) {
  addOnce(sourceLine(error.location.string, error.location.line), error.what());
}

void Diagnostics::addOnce(int line, std::string text) {
  const bool known = std::any_of(messages_.begin(), messages_.end(), [&](const GlslMessage& m) {
    return m.line == line && m.text == text;
  });
  if (!known) messages_.push_back({fileName_, line, std::move(text)});
}

void Diagnostics::addLog(const char* log) {
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    constexpr std::string_view kPrefix = "ERROR: ";
    const bool isSummary = line.find("compilation errors") != std::string::npos ||
                           line.find("compilation terminated") != std::string::npos;
    if (!line.starts_with(kPrefix) || isSummary) continue;
    line.erase(0, kPrefix.size());
    // "<string number>:<line>: <text>"; the summary at the end has no place.
    const size_t first = line.find(':');
    const size_t second = first == std::string::npos ? first : line.find(':', first + 1);
    const bool isNumber = first > 0 && second != std::string::npos &&
                          line.find_first_not_of("0123456789", first + 1) == second;
    if (!isNumber) {
      addOnce(0, line);
      continue;
    }
    std::string text = line.substr(second + 1);
    text.erase(0, text.find_first_not_of(' '));
    while (!text.empty() && text.back() == ' ') text.pop_back();
    const int number = std::atoi(line.c_str() + first + 1);
    addOnce(sourceLine(std::atoi(line.c_str()), number), std::move(text));
  }
  if (empty()) addOnce(0, "the source cannot be parsed");
}

}  // namespace glsl
}  // namespace shadermachine::tools
