#pragma once

#include <shadermachine-tools/host_inputs.h>

#include <array>
#include <cstdint>

namespace shadermachine::tools {

// Answers a look-up (see kLookupKinds). A picture serves every kind: 1D reads its middle row, 3D
// leaves out the third coordinate, and a direction finds its place on one of the six faces or on a
// panorama (all directions, +y up, -z in the middle). Levels are those of a picture of bytes; faces
// and pictures of floats have one.
std::array<float, 4> lookUp(const Texture& texture, const LookupRequest& request);

// The same; black without a texture.
std::array<float, 4> lookUpIn(const Texture* texture, const LookupRequest& request);

struct TextureSize {
  uint32_t width = 0;
  uint32_t height = 0;
};
// Of level 0.
TextureSize sizeOf(const Texture& texture);

// Levels 1 and up: each half the size of the one before, down to one texel.
std::vector<ByteImage> smallerLevels(const ByteImage& image);

}  // namespace shadermachine::tools
