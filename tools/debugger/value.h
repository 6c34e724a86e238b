// Values of the running program, with their types.
#pragma once

#include <shadermachine-tools/shader_view.h>

#include <cstdint>
#include <string>
#include <vector>

namespace shadermachine::tools {

// A variable's type as the record knows it, and as its language writes it.
struct DebugType {
  TypeCode code = VM_TYPE_FLOAT;
  uint32_t count = 0;  // array length; 0: not an array
  std::string name;

  bool isUnsigned() const { return name.starts_with('u'); }
};

struct DebugValue {
  DebugType type;
  std::vector<uint8_t> bytes;

  uint32_t word(size_t index) const;
  float asFloat(size_t index = 0) const;
  bool operator==(const DebugValue& other) const { return bytes == other.bytes; }
};

struct DebugPart {
  std::string name;  // "x", "[2]", a member's name
  DebugValue value;
};

// Of a scalar, the number of words is 1.
unsigned componentsOf(TypeCode code);
TypeCode scalarTypeOf(TypeCode code);
bool isFloatType(TypeCode code);
// Of a scalar, vector or matrix by its name in a source; float for others.
TypeCode typeCodeOf(const std::string& name);

// The type of an entry of the record's tables; `name` as the source has it, or empty.
DebugType debugType(const ShaderView& view, TypeCode code, uint32_t count, std::string name = "");
uint32_t sizeOf(const ShaderView& view, const DebugType& type);

// Elements, members, columns or components; none of a scalar. At most `limit`.
std::vector<DebugPart> partsOf(const ShaderView& view, const DebugValue& value,
                               size_t limit = SIZE_MAX);

// "vec3(1, 0.5, 0)", "{pos = vec2(0, 1), power = 2}", "{1, 2, 3}"
std::string formatValue(const ShaderView& view, const DebugValue& value);

// Whether some float in it is a NaN or infinite.
bool isNonFinite(const ShaderView& view, const DebugValue& value);

}  // namespace shadermachine::tools
