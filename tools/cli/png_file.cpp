#include "cli/png_file.h"

#include <png.h>

#include <stdexcept>

#include "cli/output_file.h"

namespace shadermachine::tools {
namespace {

// Decoded texels, 4 bytes each; larger files are refused before they are read.
constexpr uint64_t kMaxTexels = uint64_t{1} << 28;

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

std::vector<uint8_t> withoutAlpha(const ByteImage& image) {
  std::vector<uint8_t> rgb;
  rgb.reserve(image.rgba.size() / 4 * 3);
  for (size_t i = 0; i < image.rgba.size(); ++i) {
    if (i % 4 != 3) rgb.push_back(image.rgba[i]);
  }
  return rgb;
}

}  // namespace

ByteImage readPng(const std::string& path) {
  png_image png = {};
  png.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&png, path.c_str()) == 0) fail(png, path);
  if (uint64_t{png.width} * png.height > kMaxTexels) {
    png_image_free(&png);
    throw std::runtime_error(path + ": picture is too large");
  }
  png.format = PNG_FORMAT_RGBA;
  ByteImage image(png.width, png.height);
  if (png_image_finish_read(&png, nullptr, image.rgba.data(), 0, nullptr) == 0) fail(png, path);
  return image;
}

void writePng(const std::string& path, const ByteImage& image) {
  png_image png = {};
  png.version = PNG_IMAGE_VERSION;
  png.width = image.width;
  png.height = image.height;
  const bool opaque = isOpaque(image);
  png.format = opaque ? PNG_FORMAT_RGB : PNG_FORMAT_RGBA;
  const std::vector<uint8_t> bytes = opaque ? withoutAlpha(image) : image.rgba;
  OutputFile file(path);
  if (png_image_write_to_stdio(&png, file.stream(), 0, bytes.data(), 0, nullptr) == 0 &&
      std::ferror(file.stream()) == 0) {
    fail(png, path);
  }
  file.commit();
}

}  // namespace shadermachine::tools
