// Compiles a GLSL shader, checks that it validates, and runs it for one fragment.
#pragma once

#include <shadermachine-tools/glsl.h>

#include <array>
#include <string>

#include "glsl_source.h"

namespace shadermachine::test {

struct Fragment {
  uint32_t code = 0;  // how the run ended
  std::array<float, 4> colour = {-1, -1, -1, -1};
  float depth = -1;
};

// Fails the test when the source does not compile or validate. Host variables: "two" is 2.0 (all
// components), "three" the integer 3, "yes" true; the fragment is at (10.5, 20.5); a texture holds
// its coordinates, and its level in w; it has 64 times 32 texels. The second of two runs of one
// machine is returned, so that what a run leaves behind shows.
Fragment runGlsl(const std::string& source, const tools::GlslOptions& options = {});

// The compiler's messages, one per line.
std::string glslErrors(const std::string& source);

}  // namespace shadermachine::test
