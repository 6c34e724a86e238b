#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfOutputFile.h>

#include <cstddef>

#include "cli/picture_file.h"

namespace shadermachine::tools {
namespace {

// The library goes back to fill in a table, which standard output could not.
class Memory : public Imf::OStream {
 public:
  Memory() : OStream("picture") {}

  void write(const char bytes[], int count) override {
    const auto end = position_ + static_cast<size_t>(count);
    if (bytes_.size() < end) bytes_.resize(end);
    bytes_.replace(position_, static_cast<size_t>(count), bytes, static_cast<size_t>(count));
    position_ = end;
  }
  uint64_t tellp() override { return position_; }
  void seekp(uint64_t position) override { position_ = position; }

  std::string take() { return std::move(bytes_); }

 private:
  std::string bytes_;
  size_t position_ = 0;
};

}  // namespace

std::string encodeExr(const FloatImage& image) {
  Imf::Header header(static_cast<int>(image.width), static_cast<int>(image.height));
  Imf::FrameBuffer frame;
  constexpr const char* kChannels[] = {"R", "G", "B", "A"};
  for (size_t i = 0; i < std::size(kChannels); ++i) {
    header.channels().insert(kChannels[i], Imf::Channel(Imf::FLOAT));
    // The library only reads, through a pointer that does not say so.
    auto* const first = reinterpret_cast<char*>(const_cast<float*>(image.rgba.data() + i));
    frame.insert(kChannels[i],
                 Imf::Slice(Imf::FLOAT, first, 4 * sizeof(float), 4 * sizeof(float) * image.width));
  }
  Memory memory;
  {
    Imf::OutputFile file(memory, header);
    file.setFrameBuffer(frame);
    file.writePixels(static_cast<int>(image.height));
  }
  return memory.take();
}

}  // namespace shadermachine::tools
