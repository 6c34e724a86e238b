#include "cli/picture_file.h"

#include <png.h>

#include <cmath>
#include <stdexcept>

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

template <class T>
std::vector<T> withoutAlpha(const Image<T>& image) {
  std::vector<T> rgb;
  rgb.reserve(image.rgba.size() / 4 * 3);
  for (size_t i = 0; i < image.rgba.size(); ++i) {
    if (i % 4 != 3) rgb.push_back(image.rgba[i]);
  }
  return rgb;
}

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

void writePpm(std::FILE* file, const ByteImage& image) {
  const std::vector<uint8_t> rgb = withoutAlpha(image);
  std::fprintf(file, "P6\n%u %u\n255\n", image.width, image.height);
  std::fwrite(rgb.data(), 1, rgb.size(), file);
}

// Rows from the bottom; the sign of the scale says little-endian.
void writePfm(std::FILE* file, const FloatImage& image) {
  const std::vector<float> rgb = withoutAlpha(image);
  std::fprintf(file, "PF\n%u %u\n-1.0\n", image.width, image.height);
  for (uint32_t row = image.height; row-- > 0;) {
    const size_t rowSize = size_t{3} * image.width;
    std::fwrite(&rgb[row * rowSize], sizeof(float), rowSize, file);
  }
}

FloatImage withGamma(FloatImage image, float gamma) {
  for (size_t i = 0; i < image.rgba.size(); ++i) {
    float& value = image.rgba[i];
    if (i % 4 != 3 && value > 0) value = std::pow(value, 1 / gamma);
  }
  return image;
}

struct FormatName {
  const char* name;
  PictureFormat format;
};

constexpr FormatName kFormats[] = {
#ifdef SHADERMACHINE_HAVE_EXR
    {"exr", PictureFormat::Exr},
#endif
    {"pfm", PictureFormat::Pfm}, {"png", PictureFormat::Png},
    {"ppm", PictureFormat::Ppm}, {"raw", PictureFormat::Raw},
};

}  // namespace

void requireSize(uint64_t width, uint64_t height, const PictureSource& source) {
  if (width * height > kMaxTexels) throw std::runtime_error(source.path + ": picture is too large");
  if (width * height > source.bytes * source.texelsPerByte) {
    throw std::runtime_error(source.path + ": the file is too short for its picture");
  }
}

std::optional<PictureFormat> pictureFormat(const std::string& name) {
  for (const FormatName& format : kFormats) {
    if (name == format.name) return format.format;
  }
  return std::nullopt;
}

std::string pictureFormatNames() {
  std::string names;
  for (const FormatName& format : kFormats) {
    const bool isLast = &format == std::end(kFormats) - 1;
    names += (names.empty() ? "" : isLast ? " or " : ", ") + std::string(format.name);
  }
  return names;
}

ByteImage readPicture(const std::string& path) { return decodePicture(readText(path), path); }

ByteImage decodePicture(const std::string& bytes, const std::string& path) {
  if (bytes.starts_with("\x89PNG")) return decodePng(bytes, path);
#ifdef SHADERMACHINE_HAVE_JPEG
  if (bytes.starts_with("\xff\xd8")) return decodeJpeg(bytes, path);
  throw std::runtime_error(path + ": neither PNG nor JPEG");
#else
  throw std::runtime_error(path + ": not PNG");
#endif
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

void writePicture(OutputFile& file, const std::string& path, const FloatImage& image,
                  PictureFormat format, float gamma) {
  std::FILE* const stream = file.stream();
  if (format == PictureFormat::Pfm) {
    writePfm(stream, image);
    return;
  }
#ifdef SHADERMACHINE_HAVE_EXR
  if (format == PictureFormat::Exr) {
    const std::string bytes = encodeExr(image);
    std::fwrite(bytes.data(), 1, bytes.size(), stream);
    return;
  }
#endif
  const ByteImage bytes = quantize(gamma != 1 ? withGamma(image, gamma) : image);
  if (format == PictureFormat::Png) writePng(file, path, bytes);
  if (format == PictureFormat::Ppm) writePpm(stream, bytes);
  if (format == PictureFormat::Raw) std::fwrite(bytes.rgba.data(), 1, bytes.rgba.size(), stream);
}

}  // namespace shadermachine::tools
