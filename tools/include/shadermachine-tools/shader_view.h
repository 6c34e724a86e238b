// A compiled shader with the two sizes that its record lacks.
#pragma once

#include <shadermachine/shadermachine.h>

#include <cstdint>

namespace shadermachine::tools {

// Borrowed: everything the record points to must outlive the view.
struct ShaderView {
  const CompiledShader* shader = nullptr;
  uint32_t structCount = 0;  // entries of shader->structTypes
  uint32_t codeSize = 0;     // bytes at shader->code
};

}  // namespace shadermachine::tools
