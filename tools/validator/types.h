// Sizes of types and the structure table, safe to ask about any type code.
#pragma once

#include <shadermachine-tools/shader_view.h>

#include <cstdint>
#include <string>

namespace shadermachine::tools {

inline constexpr uint32_t kWordBytes = 4;

// 0 for a code that is no basic type.
uint32_t basicTypeBytes(int32_t type);

inline bool isBasic(TypeCode type, uint32_t count) { return type < 0 && count == 0; }
inline bool isBasic(const VarInfo& variable) { return isBasic(variable.type, variable.count); }

bool isVector(TypeCode type);
bool isMatrix(TypeCode type);
bool isScalarOrVector(TypeCode type);  // of words; samplers are neither
TypeCode componentType(TypeCode vector);
TypeCode columnType(TypeCode matrix);

class Types {
 public:
  explicit Types(const ShaderView& view) : view_(view) {}

  // Null when the code names no entry.
  const StructInfo* structure(int32_t type) const;
  // Of one value; 0 when there is no such type.
  uint32_t elementBytes(int32_t type) const;
  // Of a variable; 0 when there is no such type, and never truncated.
  uint64_t variableBytes(TypeCode type, uint32_t count) const;

 private:
  ShaderView view_;
};

// "an inline value" never appears here: "a structure 3", "an array of 4 of type -98".
std::string describeAggregate(TypeCode type, uint32_t count);

}  // namespace shadermachine::tools
