// Runs a shader in a batch and once per invocation on a new machine, and compares how each
// invocation ended and what it told its host.
#pragma once

#include <shadermachine/shadermachine.h>

#include <string>

namespace shadermachine::fuzz {

struct BatchComparison {
  std::string difference;  // empty when there is none
  uint32_t finished = 0;   // invocations
  uint64_t calls = 0;
};

// Every invocation has a host of its own with other answers. The seed also says which callbacks are
// batch callbacks, and which of those leave some requests to the invocations. The shader must come
// to an end.
BatchComparison compareBatch(const CompiledShader& shader, uint32_t seed, uint32_t count);

}  // namespace shadermachine::fuzz
