#include <zlib.h>

#include <array>

#include "fuzz/scale_sources.h"

namespace shadermachine::fuzz {
namespace {

uint32_t anySize(Choices& choices) { return (uint32_t{1} << choices.below(31)) + choices.below(3); }

std::string bigEndian(uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
  return bytes;
}

std::string pngChunk(const std::string& content) {
  const auto* bytes = reinterpret_cast<const Bytef*>(content.data());
  const auto size = static_cast<uInt>(content.size());
  return bigEndian(size - 4) + content + bigEndian(static_cast<uint32_t>(crc32(0, bytes, size)));
}

}  // namespace

std::string scalePicture(Choices& choices) {
  constexpr char kEmptyStream[] = "\x78\x9c\x03\0\0\0\0\x01";
  std::string header = "IHDR";
  header += bigEndian(anySize(choices));
  header += bigEndian(anySize(choices));
  header += static_cast<char>(uint32_t{1} << choices.below(5));          // bits
  header += choices.of(std::array<char, 5>{0, 2, 3, 4, 6});              // kind of colours
  header += std::string(2, '\0') + static_cast<char>(choices.below(2));  // interlaced
  return "\x89PNG\r\n\x1a\n" + pngChunk(header) + pngChunk("IDAT" + std::string(kEmptyStream, 8)) +
         pngChunk("IEND");
}

}  // namespace shadermachine::fuzz
