// How values of GLSL's types are laid out in the machine.
#pragma once

#include <shadermachine-tools/shader_builder.h>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "glslang_tree.h"

namespace shadermachine::tools::glsl {

// A variable's type as the machine knows it.
struct ValueType {
  TypeCode code = VM_TYPE_FLOAT;
  uint32_t count = 0;  // array length; 0: not an array

  bool isInline() const { return code < 0 && count == 0; }
  auto operator<=>(const ValueType&) const = default;
};

// Unsigned integers are words of the integer family; only some operations tell them apart.
enum class Scalar { Float, Int, Uint, Bool, Other };

// Of a scalar, vector or matrix.
struct Shape {
  Scalar scalar = Scalar::Float;
  unsigned components = 1;  // of a matrix: all
  unsigned dimension = 0;   // of a matrix: columns
  unsigned height = 0;      // of a matrix that is not square: rows

  unsigned rows() const { return height != 0 ? height : dimension; }
  bool isOblong() const { return height != 0; }
  bool isScalar() const { return components == 1; }
  bool isInteger() const { return scalar == Scalar::Int || scalar == Scalar::Uint; }
  bool operator==(const Shape&) const = default;
};

// Of scalars and vectors of floats, and of all matrices.
ValueType floatType(const Shape& shape);

Shape shapeOf(const TType& type);
inline Shape shapeOf(const TIntermTyped& node) { return shapeOf(node.getType()); }

// "f", "f3", "i2", "b", "m3": distinguishes overloads in the library's tables.
std::string shapeName(const Shape& shape);

// As the language writes it: "vec3", "float[4]".
std::string typeName(const TType& type);

// Look-up kind (host_contract.h) of a sampler; none for samplers that no host serves.
std::optional<unsigned> lookupKind(const glslang::TSampler& sampler);

// An array that is declared without a length is as long as its largest constant index asks for.
inline unsigned arrayLength(const TType& type, int dimension = 0) {
  const glslang::TArraySizes& sizes = *type.getArraySizes();
  const int length = sizes.getDimSize(dimension);
  return static_cast<unsigned>(length == 0 && dimension == 0 ? sizes.getImplicitSize() : length);
}

// Bytes of one variable: more than any picture needs, and less than sizes in records hold.
inline constexpr uint64_t kMaxVariableBytes = 64 << 20;

// A matrix that is not square, or an array of them.
inline bool isOblong(const TType& type) {
  return type.isMatrix() && type.getMatrixCols() != type.getMatrixRows();
}
// What has elements that an index chooses: arrays, and matrices that are arrays of their columns.
inline bool hasElements(const TType& type) { return type.isArray() || isOblong(type); }

// Maps types and declares the structures that they need. There are no arrays of arrays in the
// machine: an inner array becomes the only member of a structure.
class TypeTable {
 public:
  explicit TypeTable(ShaderBuilder& builder) : builder_(builder) {}

  // Throws Unsupported. `where`: what a message refers to.
  ValueType valueType(const TType& type, const TSourceLoc& where);
  // Of the elements of an array type: a structure for inner arrays.
  TypeCode elementCode(const TType& arrayType, const TSourceLoc& where, int dimension = 0) {
    return elementFrom(arrayType, dimension, where);
  }
  // Of the type without its array lengths.
  TypeCode baseCode(const TType& type, const TSourceLoc& where);
  bool isWrapped(const TType& arrayType) const {
    return arrayType.isArray() &&
           (arrayType.getArraySizes()->getNumDims() > 1 || isOblong(arrayType));
  }

 private:
  // What makes two structures the same to glslang, wherever they are declared.
  struct StructKey {
    std::string name;
    std::vector<std::pair<std::string, ValueType>> members;
    auto operator<=>(const StructKey&) const = default;
  };

  ValueType arrayFrom(const TType& type, int dimension, const TSourceLoc& where);
  TypeCode elementFrom(const TType& type, int dimension, const TSourceLoc& where);
  TypeCode structCode(const TType& type, const TSourceLoc& where);

  ShaderBuilder& builder_;
  uint64_t sizeOf(const ValueType& type) const;
  TypeCode addStruct(const StructKey& key, const TSourceLoc& where);

  std::map<const glslang::TTypeList*, TypeCode> structs_;
  std::map<StructKey, TypeCode> structsByContent_;
  std::map<TypeCode, uint64_t> structSizes_;
  std::map<ValueType, TypeCode> wrappers_;
};

}  // namespace shadermachine::tools::glsl
