#include <turbojpeg.h>

#include <memory>
#include <new>
#include <stdexcept>

#include "cli/picture_file.h"

namespace shadermachine::tools {

ByteImage decodeJpeg(const std::string& bytes, const std::string& path) {
  const std::unique_ptr<void, decltype(&tjDestroy)> decoder(tjInitDecompress(), &tjDestroy);
  if (decoder == nullptr) throw std::bad_alloc();
  const auto fail = [&] { return std::runtime_error(path + ": " + tjGetErrorStr2(decoder.get())); };
  const auto* const data = reinterpret_cast<const unsigned char*>(bytes.data());
  int width = 0;
  int height = 0;
  int subsampling = 0;
  int colours = 0;
  if (tjDecompressHeader3(decoder.get(), data, bytes.size(), &width, &height, &subsampling,
                          &colours) != 0) {
    throw fail();
  }
  // A block of 8 x 8 takes one bit at least.
  requireSize(static_cast<uint64_t>(width), static_cast<uint64_t>(height),
              {path, bytes.size(), 8 * 64});
  ByteImage image(static_cast<uint32_t>(width), static_cast<uint32_t>(height));
  if (tjDecompress2(decoder.get(), data, bytes.size(), image.rgba.data(), width, 0, height,
                    TJPF_RGBA, 0) != 0) {
    throw fail();
  }
  return image;
}

}  // namespace shadermachine::tools
