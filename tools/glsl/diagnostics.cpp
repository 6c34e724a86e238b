#include "diagnostics.h"

#include <algorithm>
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

// Each message keeps its line, and a source may be one line of nothing but errors.
constexpr size_t kMaxMessages = 100;
constexpr size_t kMaxLineBytes = size_t{1} << 20;  // of all together, but the first one's

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

std::vector<GlslMessage> Diagnostics::take() {
  if (dropped_ != 0) addNote("and " + std::to_string(dropped_) + " more errors");
  return std::move(messages_);
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

// glslang places a call of one argument where that is, and others at their closing bracket.
std::string Diagnostics::calledFunction(const TSourceLoc& where, bool isAtArgument) const {
  const SourcePosition at = position(where);
  const std::string_view line = lineOfText((*files_)[at.file].text, at.line);
  if (at.column == 0 || at.column > line.size()) return "this function";
  size_t i = at.column - (isAtArgument ? 0 : 1);
  unsigned closed = 0;
  while (i > 0 && (line[i - 1] != '(' || closed > 0)) {
    --i;
    if (line[i] == ')') ++closed;
    if (line[i] == '(') --closed;
  }
  size_t end = i == 0 ? 0 : i - 1;
  while (end > 0 && line[end - 1] == ' ') --end;
  size_t start = end;
  while (start > 0 && isWordCharacter(line[start - 1])) --start;
  if (start == end) return "this function";
  return std::string(line.substr(start, end - start)) + "()";
}

void Diagnostics::addOnce(SourcePosition position, std::string text, std::string_view word) {
  const SourceFile& file = (*files_)[position.file];
  const auto line = static_cast<int>(position.line);
  const bool known = std::any_of(messages_.begin(), messages_.end(), [&](const GlslMessage& m) {
    return m.line == line && m.text == text && m.file == file.name;
  });
  if (known) return;
  if (messages_.size() >= kMaxMessages) {
    ++dropped_;
    return;
  }
  GlslMessage message;
  message.file = file.name;
  message.line = line;
  message.text = std::move(text);
  message.lineText = lineOfText(file.text, position.line);
  underline(message, position.column, word);
  lineBytes_ += message.lineText.size();
  if (lineBytes_ > kMaxLineBytes && !messages_.empty()) message.lineText.clear();
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
