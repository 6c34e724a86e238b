#include "cli/pixel_option.h"

namespace shadermachine::tools {

void addPixelOption(CLI::App& command, PixelOption& option) {
  command
      .add_option("--pixel", option.given,
                  "column and row, counted from the top left; the middle unless given")
      ->expected(2)
      ->delimiter(',')
      ->type_name("X,Y");
}

Pixel choosePixel(const PixelOption& option, const FrameInputs& frame) {
  if (option.given.empty()) return {frame.width / 2, frame.height / 2};
  const Pixel pixel = {option.given[0], option.given[1]};
  if (pixel.x >= frame.width || pixel.y >= frame.height) {
    throw CLI::ValidationError("--pixel", "the pixel lies outside of the picture");
  }
  return pixel;
}

}  // namespace shadermachine::tools
