// What the compiler takes from the host contract (host_contract.h).
#pragma once

#include <cstdint>

namespace shadermachine::tools::glsl {

inline constexpr uint16_t kFrontFacing = 280;
inline constexpr uint16_t kFragmentPosition = 283;
inline constexpr uint16_t kPointPosition = 284;

// A texel's coordinates are its column, row and level.
inline constexpr unsigned kTexelKind = 0;

}  // namespace shadermachine::tools::glsl
