// Pictures in files.
#pragma once

#include <shadermachine-tools/image.h>

#include <optional>
#include <string>
#include <vector>

#include "cli/files.h"

namespace shadermachine::tools {

// PNG and JPEG, each in builds with the library for it; "-" is standard input. Throws
// std::runtime_error that names the file and what is wrong with it.
ByteImage readPicture(const std::string& path);
// Of the bytes of such a file.
ByteImage decodePicture(const std::string& bytes, const std::string& path);

enum class PictureFormat : uint8_t {
  Png,  // 8 bits; alpha is left out when every pixel is opaque; in builds with the library for it
  Ppm,  // 8 bits, no alpha
  Raw,  // 8 bits, red, green, blue, alpha, row by row from the top; no header
  Pfm,  // floats, no alpha
  Exr,  // floats; in builds with the library for it
};

// By a format's name, which is its extension too; what this build lacks is none.
std::optional<PictureFormat> pictureFormat(const std::string& name);
// "exr, pfm, png, ppm or raw"
std::string pictureFormatNames();
// "PNG and JPEG"
std::string readableFormatNames();

// Of pictures for which nothing else is asked.
#ifdef SHADERMACHINE_HAVE_PNG
inline constexpr const char* kUsualFormat = "png";
#else
inline constexpr const char* kUsualFormat = "ppm";
#endif

// Colours of 8-bit formats are raised to the power 1 / gamma; the others stay as they are.
void writePicture(OutputFile& file, const std::string& path, const FloatImage& image,
                  PictureFormat format, float gamma);

// In exr_file.cpp, jpeg_file.cpp and png_file.cpp.
void writePng(OutputFile& file, const std::string& path, const ByteImage& image);
ByteImage decodePng(const std::string& bytes, const std::string& path);
std::string encodeExr(const FloatImage& image);
ByteImage decodeJpeg(const std::string& bytes, const std::string& path);

template <class T>
std::vector<T> withoutAlpha(const Image<T>& image) {
  std::vector<T> rgb;
  rgb.reserve(image.rgba.size() / 4 * 3);
  for (size_t i = 0; i < image.rgba.size(); ++i) {
    if (i % 4 != 3) rgb.push_back(image.rgba[i]);
  }
  return rgb;
}

struct PictureSource {
  const std::string& path;
  uint64_t bytes;
  uint64_t texelsPerByte;  // that the format can give at most
};

// Throws when a picture has more texels than are read, or than its file can hold: memory is only
// taken for what is there.
void requireSize(uint64_t width, uint64_t height, const PictureSource& source);

}  // namespace shadermachine::tools
