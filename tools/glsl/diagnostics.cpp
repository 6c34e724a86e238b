#include "diagnostics.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>

#include "tidy.h"

namespace shadermachine::tools {

std::string toString(const GlslMessage& message) {
  std::string text = formatMessage({.file = message.file,
                                    .line = static_cast<uint32_t>(message.line),
                                    .column = static_cast<uint32_t>(message.column),
                                    .length = static_cast<uint32_t>(message.length),
                                    .lineText = message.lineText},
                                   message.isNote ? "note" : "error", message.text);
  text.pop_back();
  return text;
}

namespace glsl {

namespace {

bool isWordCharacter(char c) { return c == '_' || std::isalnum(static_cast<unsigned char>(c)); }

// Where the word stands alone in the line; 0 where it does not.
int columnOf(std::string_view line, std::string_view word) {
  if (word.empty()) return 0;
  for (size_t at = line.find(word); at != std::string_view::npos; at = line.find(word, at + 1)) {
    const size_t end = at + word.size();
    const bool goesOn =
        isWordCharacter(word[0]) && ((at > 0 && isWordCharacter(line[at - 1])) ||
                                     (end < line.size() && isWordCharacter(line[end])));
    if (!goesOn) return static_cast<int>(at) + 1;
  }
  return 0;
}

// The known column, else the word, else the line.
void underline(GlslMessage& message, uint32_t column, std::string_view word) {
  const int found = column > 0 ? static_cast<int>(column) : columnOf(message.lineText, word);
  const size_t start = message.lineText.find_first_not_of(" \t");
  if (found > 0) {
    message.column = found;
    message.length = column > 0 ? 1 : static_cast<int>(word.size());
  } else if (start != std::string::npos) {
    message.column = static_cast<int>(start) + 1;
    message.length = static_cast<int>(message.lineText.size() - start);
  }
}

}  // namespace

void Diagnostics::add(const Unsupported& error) {
  const TSourceLoc& where = error.location;
  addOnce(place(where.name != nullptr ? where.name->c_str() : "", where.line, where.column),
          error.what(), "");
}

void Diagnostics::addNote(std::string text) {
  GlslMessage note;
  note.file = files_->front().name;
  note.text = std::move(text);
  note.isNote = true;
  messages_.push_back(std::move(note));
}

// An error behind the source's end is one of its last line; texts with numbers for names are those
// that a #line directive made up.
SourcePosition Diagnostics::place(std::string_view name, int line, int column) const {
  SourcePosition position = {.file = 0,
                             .line = static_cast<uint32_t>(std::max(line, 0)),
                             .column = static_cast<uint32_t>(std::max(column, 0))};
  if (name == kPreambleText) return {};
  if (name == kVersionText) return {.line = static_cast<uint32_t>(versionLine_)};
  if (name == kEntryText) return {.line = static_cast<uint32_t>(lastLine_)};
  const auto file = std::ranges::find(*files_, name, &SourceFile::name);
  if (file != files_->end()) position.file = static_cast<uint32_t>(file - files_->begin());
  return position;
}

SourcePosition Diagnostics::position(const TSourceLoc& where) const {
  const std::string_view name = where.name != nullptr ? where.name->c_str() : "";
  if (where.line <= 0 || name == kVersionText || name == kEntryText) return {};
  return place(name, where.line, where.column);
}

void Diagnostics::addOnce(SourcePosition position, std::string text, std::string_view word) {
  const SourceFile& file = (*files_)[position.file];
  const auto line = static_cast<int>(position.line);
  const bool known = std::any_of(messages_.begin(), messages_.end(), [&](const GlslMessage& m) {
    return m.line == line && m.text == text && m.file == file.name;
  });
  if (known) return;
  GlslMessage message;
  message.file = file.name;
  message.line = line;
  message.text = std::move(text);
  message.lineText = lineOfText(file.text, position.line);
  underline(message, position.column, word);
  messages_.push_back(std::move(message));
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
      addOnce({}, line, "");
      continue;
    }
    std::string text = line.substr(end + 1);
    text.erase(0, text.find_first_not_of(' '));
    while (!text.empty() && text.back() == ' ') text.pop_back();
    const TidyMessage tidy = tidied(text);
    addOnce(place(std::string_view(line).substr(0, start), std::atoi(line.c_str() + start + 1), 0),
            tidy.text, tidy.word);
  }
  if (empty()) addOnce({}, "the source cannot be parsed", "");
}

}  // namespace glsl
}  // namespace shadermachine::tools
