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

ScaleSource scaleSource(Choices& choices, bool withGlsl);

}  // namespace shadermachine::fuzz
