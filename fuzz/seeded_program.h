// The random programs that both engines are compared by, numbered.
#pragma once

#include "fuzz/engine_comparison.h"
#include "fuzz/program_generator.h"

namespace shadermachine::fuzz {

struct SeedComparison {
  tools::BuiltShader shader;
  bool valid;  // else it was not run
  Comparison comparison;
};

// The same program and the same host for the same seed.
SeedComparison compareSeed(uint32_t seed);

}  // namespace shadermachine::fuzz
