// What the basic type codes say about size and parts.
#pragma once

#include <shadermachine/shadermachine.h>

namespace shadermachine {

struct BasicType {
  uint8_t byteSize;
  uint8_t stride;     // bytes that one index picks out of a vector or matrix
  TypeCode partType;  // of what an index picks
};

inline constexpr TypeCode kFirstBasicType = VM_TYPE_BOOL;
inline constexpr TypeCode kLastBasicType = VM_TYPE_SAMPLER_7;

// Indexed by type code + 100. Scalars have a stride too, although an index picks nothing of them.
inline constexpr BasicType kBasicTypes[kLastBasicType - kFirstBasicType + 1] = {
    {4, 4, 0},
    {4, 4, 0},
    {4, 4, 0},
    {8, 4, VM_TYPE_FLOAT},
    {12, 4, VM_TYPE_FLOAT},
    {16, 4, VM_TYPE_FLOAT},
    {8, 4, VM_TYPE_INT},
    {12, 4, VM_TYPE_INT},
    {16, 4, VM_TYPE_INT},
    {8, 4, VM_TYPE_BOOL},
    {12, 4, VM_TYPE_BOOL},
    {16, 4, VM_TYPE_BOOL},
    {16, 8, VM_TYPE_VEC2},
    {36, 12, VM_TYPE_VEC3},
    {64, 16, VM_TYPE_VEC4},
    {8, 0, 0},  // the eight samplers
    {8, 0, 0},
    {8, 0, 0},
    {8, 0, 0},
    {8, 0, 0},
    {8, 0, 0},
    {8, 0, 0},
    {8, 0, 0},
};

constexpr bool isBasicType(TypeCode type) {
  return type >= kFirstBasicType && type <= kLastBasicType;
}
constexpr bool isVectorType(TypeCode type) { return type >= VM_TYPE_VEC2 && type <= VM_TYPE_BVEC4; }
constexpr bool isMatrixType(TypeCode type) { return type >= VM_TYPE_MAT2 && type <= VM_TYPE_MAT4; }

constexpr uint32_t typeByteSize(TypeCode type) {
  return isBasicType(type) ? kBasicTypes[type - kFirstBasicType].byteSize : 0;
}
constexpr uint32_t typeStride(TypeCode type) {
  return isBasicType(type) ? kBasicTypes[type - kFirstBasicType].stride : 0;
}
constexpr TypeCode vectorScalarType(TypeCode type) {
  return isVectorType(type) ? kBasicTypes[type - kFirstBasicType].partType : TypeCode{0};
}
constexpr TypeCode matrixColumnType(TypeCode type) {
  return isMatrixType(type) ? kBasicTypes[type - kFirstBasicType].partType : TypeCode{0};
}

}  // namespace shadermachine
