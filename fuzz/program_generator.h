// Random programs out of a grammar: structured code over random tables, as a compiler could have
// made it. Nearly all of them validate unless flaws are asked for.
#pragma once

#include <shadermachine-tools/shader_builder.h>

#include "fuzz/choices.h"

namespace shadermachine::fuzz {

struct ProgramOptions {
  // No result depends on sign or payload of a NaN that arithmetic produced, which engines may
  // choose differently.
  bool hidesNanBits = false;
  // Now and then something against the rules: stray instructions, bytes and table entries.
  bool hasFlaws = false;
  // No endless loops and no recursion.
  bool ends = false;
  // Nothing that only plain handlers do.
  bool isInline = false;
  bool hasAggregates = true;
  // Globals that nothing uses, behind the others: they fill the value stack.
  uint32_t fillers = 0;
};

tools::BuiltShader generateProgram(Choices& choices, const ProgramOptions& options = {});

}  // namespace shadermachine::fuzz
