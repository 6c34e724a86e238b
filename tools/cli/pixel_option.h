// Which pixel of the picture: for commands that run a shader once.
#pragma once

#include <shadermachine-tools/host_inputs.h>

#include <CLI/CLI.hpp>
#include <vector>

namespace shadermachine::tools {

struct PixelOption {
  std::vector<uint32_t> given;  // x, y from the top left; empty: the middle
};

struct Pixel {
  uint32_t x = 0;
  uint32_t y = 0;
};

void addPixelOption(CLI::App& command, PixelOption& option);

// Throws CLI::ValidationError for a pixel outside of the picture.
Pixel choosePixel(const PixelOption& option, const FrameInputs& frame);

}  // namespace shadermachine::tools
