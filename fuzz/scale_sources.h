// Sources of few ideas and large numbers: chains, nests, tables, sizes, straight lines, indices of
// every value.
#pragma once

#include <string>

#include "fuzz/choices.h"

namespace shadermachine::fuzz {

struct ScaleSource {
  std::string text;
  bool isGlsl;
};

// With a divisor there are as many times fewer repetitions.
ScaleSource scaleSource(Choices& choices, bool withGlsl, uint32_t divisor = 1);

// The bytes of a PNG file that is little more than a header with any size.
std::string scalePicture(Choices& choices);

}  // namespace shadermachine::fuzz
