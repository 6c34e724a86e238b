// Runs a shader in a batch and once per invocation on a new machine, and compares how each
// invocation ended and what it told its host.
#pragma once

#include <shadermachine-tools/shader_builder.h>
#include <shadermachine/shadermachine.h>

#include <string>

namespace shadermachine::fuzz {

struct BatchComparison {
  std::string difference;  // empty when there is none
  uint32_t finished = 0;   // invocations
  uint64_t calls = 0;
  bool onRows = false;  // not on the machine
};

// Every invocation has a host of its own with other answers. The seed also says which callbacks are
// batch callbacks, and which of those leave some requests to the invocations. The shader must come
// to an end.
BatchComparison compareBatch(const CompiledShader& shader, uint32_t seed, uint32_t count);

// The random program of a seed; every second one has no structures and arrays.
tools::BuiltShader batchProgram(uint32_t seed);

}  // namespace shadermachine::fuzz
