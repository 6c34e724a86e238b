#include <shadermachine-tools/source_map.h>

#include <algorithm>

namespace shadermachine::tools {
namespace {

constexpr size_t kMaxContext = 120;  // bytes of a source line shown

}  // namespace

std::string printable(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isShown = byte >= 0x80 || (byte >= ' ' && byte != 127);
    if (!isShown) c = c == '\t' ? ' ' : '?';
  }
  return result;
}

std::string_view lineOfText(std::string_view text, uint32_t number) {
  for (uint32_t skipped = 1; skipped < number; ++skipped) {
    const size_t end = text.find('\n');
    if (end == std::string_view::npos) return {};
    text.remove_prefix(end + 1);
  }
  std::string_view line = text.substr(0, text.find('\n'));
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

std::string formatMessage(const MessagePlace& place, std::string_view severity,
                          std::string_view message) {
  std::string text(place.file);
  if (place.line > 0) text += ":" + std::to_string(place.line);
  if (place.line > 0 && place.column > 0) text += ":" + std::to_string(place.column);
  text += ": " + std::string(severity) + ": " + std::string(message) + "\n";
  std::string_view line = place.lineText;
  if (place.line == 0 || place.column == 0 || line.data() == nullptr) return text;
  size_t column = place.column - 1;
  if (column > kMaxContext / 2) {
    const size_t hidden = std::min(line.size(), column - kMaxContext / 2);
    line.remove_prefix(hidden);
    column -= hidden;
  }
  line = line.substr(0, kMaxContext);
  const size_t room = line.size() > column ? line.size() - column : 1;
  const size_t length = std::clamp<size_t>(place.length, 1, room);
  return text + "  " + printable(line) + "\n  " + std::string(std::min(column, kMaxContext), ' ') +
         "^" + std::string(length - 1, '~') + "\n";
}

}  // namespace shadermachine::tools
