#include "view/text.h"

#include <algorithm>

namespace shadermachine::tools {
namespace {

constexpr uint32_t kRows = 13;
constexpr uint32_t kMargin = 4;
constexpr uint8_t kFont[][kRows] = {
#include "view/font.inc"
};

void darken(ByteImage& image, uint32_t x, uint32_t y, uint32_t width, uint32_t height) {
  for (uint32_t row = y; row < std::min(y + height, image.height); ++row) {
    for (uint32_t column = x; column < std::min(x + width, image.width); ++column) {
      uint8_t* const pixel = image.pixel(column, row);
      for (size_t i = 0; i < 3; ++i) pixel[i] = static_cast<uint8_t>(pixel[i] / 4);
    }
  }
}

void drawCharacter(ByteImage& image, uint32_t x, uint32_t y, char character, TextColour colour) {
  const bool isKnown = character >= ' ' && character <= '~';
  const auto& rows = kFont[(isKnown ? character : '?') - ' '];
  for (uint32_t row = 0; row < kRows && y + row < image.height; ++row) {
    for (uint32_t column = 0; column < kCharacterWidth && x + column < image.width; ++column) {
      if ((rows[row] & 0x80 >> column) == 0) continue;
      std::ranges::copy(colour, image.pixel(x + column, y + row));
    }
  }
}

}  // namespace

std::vector<std::string> brokenLines(std::string_view text, size_t width) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    do {
      const size_t length = std::min(line.size(), std::max<size_t>(width, 1));
      lines.emplace_back(line.substr(0, length));
      line.remove_prefix(length);
    } while (!line.empty());
  }
  return lines;
}

void drawText(ByteImage& image, uint32_t x, uint32_t y, const std::vector<std::string>& lines,
              TextColour colour) {
  if (lines.empty()) return;
  const auto length = [](const std::string& line) { return line.size(); };
  const size_t longest = std::ranges::max(lines, {}, length).size();
  darken(image, x, y, static_cast<uint32_t>(longest) * kCharacterWidth + 2 * kMargin,
         static_cast<uint32_t>(lines.size()) * kLineHeight + 2 * kMargin);
  for (size_t line = 0; line < lines.size(); ++line) {
    for (size_t i = 0; i < lines[line].size(); ++i) {
      drawCharacter(image, x + kMargin + static_cast<uint32_t>(i) * kCharacterWidth,
                    y + kMargin + static_cast<uint32_t>(line) * kLineHeight, lines[line][i],
                    colour);
    }
  }
}

}  // namespace shadermachine::tools
