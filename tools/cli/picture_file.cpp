#include "cli/picture_file.h"

#include <cmath>
#include <stdexcept>

namespace shadermachine::tools {
namespace {

// Decoded texels, 4 bytes each; larger files are refused before they are read.
constexpr uint64_t kMaxTexels = uint64_t{1} << 28;

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
    {"pfm", PictureFormat::Pfm},
#ifdef SHADERMACHINE_HAVE_PNG
    {"png", PictureFormat::Png},
#endif
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

std::string readableFormatNames() {
  std::string names;
#ifdef SHADERMACHINE_HAVE_PNG
  names = "PNG";
#endif
#ifdef SHADERMACHINE_HAVE_JPEG
  names += names.empty() ? "JPEG" : " and JPEG";
#endif
  return names.empty() ? "no pictures" : names;
}

ByteImage readPicture(const std::string& path) { return decodePicture(readText(path), path); }

ByteImage decodePicture([[maybe_unused]] const std::string& bytes, const std::string& path) {
#ifdef SHADERMACHINE_HAVE_PNG
  if (bytes.starts_with("\x89PNG")) return decodePng(bytes, path);
#endif
#ifdef SHADERMACHINE_HAVE_JPEG
  if (bytes.starts_with("\xff\xd8")) return decodeJpeg(bytes, path);
#endif
  throw std::runtime_error(path + ": this build reads " + readableFormatNames());
}

void writePicture(OutputFile& file, [[maybe_unused]] const std::string& path,
                  const FloatImage& image, PictureFormat format, float gamma) {
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
#ifdef SHADERMACHINE_HAVE_PNG
  if (format == PictureFormat::Png) writePng(file, path, bytes);
#endif
  if (format == PictureFormat::Ppm) writePpm(stream, bytes);
  if (format == PictureFormat::Raw) std::fwrite(bytes.rgba.data(), 1, bytes.rgba.size(), stream);
}

}  // namespace shadermachine::tools
