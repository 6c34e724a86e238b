// Text over a picture, in a font of fixed width.
#pragma once

#include <shadermachine-tools/image.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace shadermachine::tools {

inline constexpr uint32_t kCharacterWidth = 7;
inline constexpr uint32_t kLineHeight = 14;

using TextColour = std::array<uint8_t, 3>;

// The text's lines, each broken where it would be longer than `width` characters.
std::vector<std::string> brokenLines(std::string_view text, size_t width);

// Draws lines from the given corner downwards, on a darkened rectangle; what lies outside of the
// picture is left out. Characters that the font lacks are drawn as question marks.
void drawText(ByteImage& image, uint32_t x, uint32_t y, const std::vector<std::string>& lines,
              TextColour colour);

}  // namespace shadermachine::tools
