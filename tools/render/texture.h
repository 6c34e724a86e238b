#pragma once

#include <shadermachine-tools/host_inputs.h>

#include <array>
#include <cstdint>

namespace shadermachine::tools {

// Looks a texture up at coordinates of a look-up request's kind (see kLookupKinds). A picture
// serves every kind: 1D reads its middle row, 3D leaves out the third coordinate, and a direction
// finds its place on a panorama (all directions, +y up, -z in the middle).
std::array<float, 4> lookUp(const Texture& texture, uint32_t kind, const float* coordinates);

}  // namespace shadermachine::tools
