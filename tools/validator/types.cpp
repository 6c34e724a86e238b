#include "types.h"

#include <array>

#include "diagnostics.h"

namespace shadermachine::tools {

uint32_t basicTypeBytes(int32_t type) {
  static constexpr std::array<uint8_t, VM_TYPE_SAMPLER_7 - VM_TYPE_BOOL + 1> kWords = {
      1, 1, 1,                 // bool, int, float
      2, 3, 4,                 // vec
      2, 3, 4,                 // ivec
      2, 3, 4,                 // bvec
      4, 9, 16,                // mat
      2, 2, 2, 2, 2, 2, 2, 2,  // samplers
  };
  if (type < VM_TYPE_BOOL || type > VM_TYPE_SAMPLER_7) return 0;
  return kWords[static_cast<size_t>(type - VM_TYPE_BOOL)] * kWordBytes;
}

bool isVector(TypeCode type) { return type >= VM_TYPE_VEC2 && type <= VM_TYPE_BVEC4; }
bool isMatrix(TypeCode type) { return type >= VM_TYPE_MAT2 && type <= VM_TYPE_MAT4; }
bool isScalarOrVector(TypeCode type) { return type >= VM_TYPE_BOOL && type <= VM_TYPE_BVEC4; }

TypeCode componentType(TypeCode vector) {
  if (vector <= VM_TYPE_VEC4) return VM_TYPE_FLOAT;
  return vector <= VM_TYPE_IVEC4 ? VM_TYPE_INT : VM_TYPE_BOOL;
}

TypeCode columnType(TypeCode matrix) {
  return static_cast<TypeCode>(matrix - VM_TYPE_MAT2 + VM_TYPE_VEC2);
}

const StructInfo* Types::structure(int32_t type) const {
  const CompiledShader& shader = *view_.shader;
  if (type < 0 || static_cast<uint32_t>(type) >= view_.structCount) return nullptr;
  return shader.structTypes == nullptr ? nullptr : shader.structTypes[type];
}

uint32_t Types::elementBytes(int32_t type) const {
  if (type < 0) return basicTypeBytes(type);
  const StructInfo* info = structure(type);
  return info == nullptr ? 0 : info->size;
}

uint64_t Types::variableBytes(TypeCode type, uint32_t count) const {
  return uint64_t{elementBytes(type)} * (count == 0 ? 1 : count);
}

std::string describeAggregate(TypeCode type, uint32_t count) {
  const std::string element =
      type >= 0 ? text("structure ", type) : text("type ", type);
  return count == 0 ? element : text("array of ", count, " of ", element);
}

}  // namespace shadermachine::tools
