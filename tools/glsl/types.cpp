#include "types.h"

#include <algorithm>

#include "diagnostics.h"

namespace shadermachine::tools::glsl {
namespace {

Scalar scalarOf(glslang::TBasicType type) {
  switch (type) {
    case glslang::EbtFloat:
      return Scalar::Float;
    case glslang::EbtInt:
      return Scalar::Int;
    case glslang::EbtUint:
      return Scalar::Uint;
    case glslang::EbtBool:
      return Scalar::Bool;
    default:
      return Scalar::Other;
  }
}

TypeCode vectorCode(Scalar scalar, unsigned size) {
  const bool isFloat = scalar == Scalar::Float;
  const bool isBool = scalar == Scalar::Bool;
  if (size == 1) return isFloat ? VM_TYPE_FLOAT : isBool ? VM_TYPE_BOOL : VM_TYPE_INT;
  const int pair = isFloat ? VM_TYPE_VEC2 : isBool ? VM_TYPE_BVEC2 : VM_TYPE_IVEC2;
  return static_cast<TypeCode>(pair + static_cast<int>(size) - 2);
}

TypeCode matrixCode(unsigned dimension) {
  return static_cast<TypeCode>(VM_TYPE_MAT2 + static_cast<int>(dimension) - 2);
}

TypeCode samplerCode(const TType& type, const TSourceLoc& where) {
  const glslang::TSampler& sampler = type.getSampler();
  const std::optional<unsigned> kind = lookupKind(sampler);
  const bool isKnown = sampler.type == glslang::EbtFloat || sampler.type == glslang::EbtInt ||
                       sampler.type == glslang::EbtUint;
  if (!kind || !isKnown || sampler.isImage() || !sampler.isCombined()) {
    throw Unsupported(where, "samplers of type " + std::string(sampler.getString().c_str()) +
                                 " are not supported");
  }
  return static_cast<TypeCode>(VM_TYPE_SAMPLER_0 + static_cast<int>(*kind));
}

}  // namespace

Shape shapeOf(const TType& type) {
  Shape shape{scalarOf(type.getBasicType())};
  if (type.isMatrix()) {
    shape.dimension = static_cast<unsigned>(type.getMatrixCols());
    shape.components = shape.dimension * static_cast<unsigned>(type.getMatrixRows());
    if (isOblong(type)) shape.height = static_cast<unsigned>(type.getMatrixRows());
  } else if (type.isVector()) {
    shape.components = static_cast<unsigned>(type.getVectorSize());
  }
  return shape;
}

ValueType floatType(const Shape& shape) {
  if (shape.dimension == 0) return {vectorCode(Scalar::Float, shape.components), 0};
  if (shape.isOblong()) return {vectorCode(Scalar::Float, shape.height), shape.dimension};
  return {matrixCode(shape.dimension), 0};
}

std::string shapeName(const Shape& shape) {
  if (shape.isOblong()) return "";  // nothing in the library takes these
  if (shape.dimension > 0) return "m" + std::to_string(shape.dimension);
  const char* letter = shape.scalar == Scalar::Float  ? "f"
                       : shape.scalar == Scalar::Bool ? "b"
                                                      : "i";
  return shape.isScalar() ? letter : letter + std::to_string(shape.components);
}

std::string typeName(const TType& type) {
  std::string name = type.getBasicTypeString().c_str();
  if (type.isStruct()) {
    name = type.getTypeName().c_str();
  } else if (type.getBasicType() == glslang::EbtSampler) {
    name = type.getSampler().getString().c_str();
  } else if (type.isMatrix()) {
    name = "mat" + std::to_string(type.getMatrixCols());
    if (type.getMatrixCols() != type.getMatrixRows()) {
      name += "x" + std::to_string(type.getMatrixRows());
    }
  } else if (type.isVector()) {
    const std::string letter = name == "float" ? "" : name.substr(0, 1);
    name = letter + "vec" + std::to_string(type.getVectorSize());
  }
  const int dimensions = type.isArray() ? type.getArraySizes()->getNumDims() : 0;
  for (int i = 0; i < dimensions; ++i) name += "[" + std::to_string(arrayLength(type, i)) + "]";
  return name;
}

std::optional<unsigned> lookupKind(const glslang::TSampler& sampler) {
  switch (sampler.dim) {
    case glslang::Esd1D:
    case glslang::EsdBuffer:
      return 1;
    case glslang::Esd2D:
    case glslang::EsdRect:
      return 2;
    case glslang::Esd3D:
      return 3;
    case glslang::EsdCube:
      return 4;
    default:
      return std::nullopt;
  }
}

ValueType TypeTable::valueType(const TType& type, const TSourceLoc& where) {
  const ValueType value = arrayFrom(type, 0, where);
  if (sizeOf(value) > kMaxVariableBytes) {
    throw Unsupported(where, "a variable of this type is larger than 64 MiB");
  }
  return value;
}

// Never wraps: sizes of structures are below the limit, and counts have 32 bits.
uint64_t TypeTable::sizeOf(const ValueType& type) const {
  const uint64_t element = type.code < 0 ? basicTypeSize(type.code) : structSizes_.at(type.code);
  return element * std::max(type.count, 1u);
}

ValueType TypeTable::arrayFrom(const TType& type, int dimension, const TSourceLoc& where) {
  const int dimensions = type.isArray() ? type.getArraySizes()->getNumDims() : 0;
  if (dimension == dimensions && isOblong(type)) return floatType(shapeOf(type));
  if (dimension == dimensions) return {baseCode(type, where), 0};
  return {elementFrom(type, dimension, where), arrayLength(type, dimension)};
}

TypeCode TypeTable::elementFrom(const TType& type, int dimension, const TSourceLoc& where) {
  if (!type.isArray()) return floatType(shapeOf(type)).code;
  const ValueType element = arrayFrom(type, dimension + 1, where);
  if (element.count == 0) return element.code;
  const auto known = wrappers_.find(element);
  if (known != wrappers_.end()) return known->second;
  return wrappers_[element] = addStruct({"array", {{"elements", element}}}, where);
}

TypeCode TypeTable::baseCode(const TType& type, const TSourceLoc& where) {
  if (type.isStruct()) return structCode(type, where);
  if (type.getBasicType() == glslang::EbtSampler) return samplerCode(type, where);
  const Scalar scalar = scalarOf(type.getBasicType());
  if (scalar == Scalar::Other) {
    throw Unsupported(
        where, "type " + std::string(type.getBasicTypeString().c_str()) + " is not supported");
  }
  if (!type.isMatrix()) return vectorCode(scalar, static_cast<unsigned>(type.getVectorSize()));
  return matrixCode(static_cast<unsigned>(type.getMatrixCols()));
}

TypeCode TypeTable::structCode(const TType& type, const TSourceLoc& where) {
  // By the list of members, which types of one declaration share; two declarations with the same
  // members are one structure by content, below.
  const auto known = structs_.find(type.getStruct());
  if (known != structs_.end()) return known->second;
  // Recursion over structures within each other, of which there are at most kMaxStructDepth.
  StructKey key{type.getTypeName().c_str(), {}};
  for (const glslang::TTypeLoc& member : *type.getStruct()) {
    const ValueType value = valueType(*member.type, member.loc.line > 0 ? member.loc : where);
    key.members.emplace_back(member.type->getFieldName().c_str(), value);
  }
  return structs_[type.getStruct()] = addStruct(key, where);
}

TypeCode TypeTable::addStruct(const StructKey& key, const TSourceLoc& where) {
  const auto known = structsByContent_.find(key);
  if (known != structsByContent_.end()) return known->second;
  uint64_t size = 0;
  std::vector<Variable> members;
  for (const auto& [name, value] : key.members) {
    size += sizeOf(value);
    members.push_back({name, value.code, value.count});
  }
  if (size > kMaxVariableBytes) {
    throw Unsupported(where, "structure " + key.name + " is larger than 64 MiB");
  }
  const TypeCode code = builder_.addStruct(key.name, members);
  structSizes_[code] = size;
  return structsByContent_[key] = code;
}

}  // namespace shadermachine::tools::glsl
