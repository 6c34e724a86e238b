// Which pixel of a picture a place in the window shows.
#pragma once

#include <shadermachine-tools/image.h>

#include <array>

namespace shadermachine::tools {

class Zoom {
 public:
  static constexpr int kMaxScale = 64;

  int scale() const { return scale_; }
  // Doubles or halves so often; the place under the pointer stays where it is.
  void change(int steps, int x, int y);
  void drag(int x, int y);
  void reset() { *this = Zoom(); }

  // May lie outside of the picture.
  std::array<int, 2> pixelAt(int x, int y) const;
  std::array<double, 2> placeAt(double x, double y) const;
  // Where the top left corner of a pixel is.
  std::array<int, 2> windowPlace(int column, int row) const;
  // What a window of the picture's own size shows; transparent pixels show a checkerboard.
  ByteImage show(const FloatImage& picture, uint32_t width, uint32_t height) const;

 private:
  int scale_ = 1;
  int left_ = 0;  // of the picture, in the window
  int top_ = 0;
};

}  // namespace shadermachine::tools
