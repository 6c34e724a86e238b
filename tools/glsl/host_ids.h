// What the compiler takes from the host contract (host_contract.h).
#pragma once

#include <cstdint>

namespace shadermachine::tools::glsl {

inline constexpr uint16_t kFrontFacing = 284;
inline constexpr uint16_t kFragmentPosition = 283;
inline constexpr uint16_t kPointPosition = 301;

// Look-up kinds beside those that lookupKind() gives. The texel kind's coordinates are the texel's
// position and level; with the ordinary look-up it answers the size of the texture at that level.
inline constexpr unsigned kTexelKind = 7;

}  // namespace shadermachine::tools::glsl
