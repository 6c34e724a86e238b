// Runs a shader by the plain handlers and translated, and compares everything a host can see.
#pragma once

#include <shadermachine/shadermachine.h>

#include <string>

namespace shadermachine::tests {

struct Comparison {
  std::string difference;  // empty when there is none
  VmError error = VM_OK;
  size_t callbacks = 0;
  bool translated = false;
};

// Several runs on one machine each, so that globals and kept translations take part.
Comparison compareRuns(const CompiledShader& shader);

}  // namespace shadermachine::tests
