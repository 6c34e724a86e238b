// Sizes of types and the structure table, safe to ask about any type code.
#pragma once

#include <shadermachine-tools/shader_view.h>

#include <cstdint>
#include <string>

namespace shadermachine::tools {

inline constexpr uint32_t kWordBytes = 4;

inline bool isBasic(TypeCode type, uint32_t count) { return type < 0 && count == 0; }
inline bool isBasic(const VarInfo& variable) { return isBasic(variable.type, variable.count); }

class Types {
 public:
  explicit Types(const ShaderView& view) : view_(view) {}

  // Null when the code names no entry.
  const StructInfo* structure(int32_t type) const;
  // Of one value; 0 when there is no such type.
  uint32_t elementBytes(TypeCode type) const;
  // Of a variable; 0 when there is no such type, and never truncated.
  uint64_t variableBytes(TypeCode type, uint32_t count) const;
  // "structure light", or "structure 3" when nothing is known of its name.
  std::string structureName(uint32_t type) const;
  // "structure light", "float[4]", "array of 4 of structure light"
  std::string describe(TypeCode type, uint32_t count) const;

 private:
  ShaderView view_;
};

// The global behind a built-in variable; -1 when it has none.
int32_t backingGlobal(const CompiledShader& shader, uint32_t builtinId);

}  // namespace shadermachine::tools
