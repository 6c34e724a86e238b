#include <png.h>

#include <stdexcept>

#include "cli/picture_file.h"

namespace shadermachine::tools {
namespace {

[[noreturn]] void fail(png_image& png, const std::string& path) {
  const std::string reason = png.message;
  png_image_free(&png);
  throw std::runtime_error(path + ": " + reason);
}

bool isOpaque(const ByteImage& image) {
  for (size_t i = 3; i < image.rgba.size(); i += 4) {
    if (image.rgba[i] != 255) return false;
  }
  return true;
}

}  // namespace

ByteImage decodePng(const std::string& bytes, const std::string& path) {
  png_image png = {};
  png.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_memory(&png, bytes.data(), bytes.size()) == 0) fail(png, path);
  try {
    // 8 texels of one bit in a byte, and 1032 of those in one of the compressed file.
    requireSize(png.width, png.height, {path, bytes.size(), 8 * 1032});
  } catch (...) {
    png_image_free(&png);
    throw;
  }
  png.format = PNG_FORMAT_RGBA;
  ByteImage image(png.width, png.height);
  if (png_image_finish_read(&png, nullptr, image.rgba.data(), 0, nullptr) == 0) fail(png, path);
  return image;
}

void writePng(OutputFile& file, const std::string& path, const ByteImage& image) {
  png_image png = {};
  png.version = PNG_IMAGE_VERSION;
  png.width = image.width;
  png.height = image.height;
  const bool opaque = isOpaque(image);
  png.format = opaque ? PNG_FORMAT_RGB : PNG_FORMAT_RGBA;
  const std::vector<uint8_t> bytes = opaque ? withoutAlpha(image) : image.rgba;
  const bool isWritten =
      png_image_write_to_stdio(&png, file.stream(), 0, bytes.data(), 0, nullptr) != 0;
  // The file's own errors are seen when it is closed.
  if (!isWritten && std::ferror(file.stream()) == 0) fail(png, path);
}

}  // namespace shadermachine::tools
