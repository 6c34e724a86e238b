// Runs a shader by the plain handlers and translated, and compares everything a host can see: the
// state at every callback, and what is left of each run.
#pragma once

#include <shadermachine/shadermachine.h>

#include <string>

namespace shadermachine::fuzz {

struct Comparison {
  std::string difference;  // empty when there is none
  VmError error = VM_OK;
  size_t callbacks = 0;
  bool translated = false;
  uint32_t slots = 0;  // of the value stack that the plain run used
};

// Several runs on one machine each, so that globals and kept translations take part. What takes too
// long, or has too much to be looked at, ends with VM_ERR_TIMEOUT and without a comparison.
Comparison compareRuns(const CompiledShader& shader, uint32_t hostSeed);

}  // namespace shadermachine::fuzz
