// A compiled shader with what its record lacks: two sizes, and optionally names and sources.
#pragma once

#include <shadermachine/shadermachine.h>

#include <cstdint>

namespace shadermachine::tools {

struct SourceMap;

// Borrowed: everything the record points to must outlive the view.
struct ShaderView {
  const CompiledShader* shader = nullptr;
  uint32_t structCount = 0;  // entries of shader->structTypes
  uint32_t codeSize = 0;     // bytes at shader->code

  // Names for messages and listings, which the record itself has no room for; null when unknown.
  const char* const* functionNames = nullptr;  // shader->functionCount entries
  const char* const* structNames = nullptr;    // structCount entries
  const SourceMap* sources = nullptr;          // where its parts come from; null when unknown
};

}  // namespace shadermachine::tools
