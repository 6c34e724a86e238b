// Constants as words, and as the code that makes them.
#include <bit>

#include "module.h"

namespace shadermachine::tools::glsl {
namespace {

uint32_t wordOf(const glslang::TConstUnion& value) {
  switch (value.getType()) {
    case glslang::EbtFloat:
    case glslang::EbtDouble:
      return std::bit_cast<uint32_t>(static_cast<float>(value.getDConst()));
    case glslang::EbtBool:
      return value.getBConst() ? 1 : 0;
    default:
      return value.getUConst();
  }
}

VmOpcode constructorOf(TypeCode type) {
  switch (type) {
    case VM_TYPE_MAT2:
      return VM_OP_CTOR_MAT2;
    case VM_TYPE_MAT3:
      return VM_OP_CTOR_MAT3;
    case VM_TYPE_MAT4:
      return VM_OP_CTOR_MAT4;
    default:
      return static_cast<VmOpcode>(VM_OP_CTOR_VEC2_A + basicTypeSize(type) / 4 - 2);
  }
}

}  // namespace

std::vector<uint32_t> constantWords(const TIntermConstantUnion& constant) {
  const glslang::TConstUnionArray& values = constant.getConstArray();
  std::vector<uint32_t> words;
  for (int i = 0; i < values.size(); ++i) words.push_back(wordOf(values[static_cast<size_t>(i)]));
  return words;
}

void pushWords(FunctionBuilder& code, TypeCode type, const uint32_t*& words) {
  const uint32_t count = basicTypeSize(type) / 4;
  for (uint32_t i = 0; i < count; ++i) code.pushInt(static_cast<int32_t>(*words++));
  if (count > 1) code.emit(constructorOf(type), std::vector<int64_t>(count, 1));
}

void pushConstant(FunctionBuilder& code, TypeTable& types, const TType& type, int dimension,
                  const uint32_t*& words) {
  // Nothing is refused here any more: valueType() has seen this type.
  const TSourceLoc nowhere{};
  const int dimensions = type.isArray() ? type.getArraySizes()->getNumDims() : 0;
  if (dimension < dimensions) {
    const unsigned length = arrayLength(type, dimension);
    const TypeCode element = types.elementCode(type, nowhere, dimension);
    for (unsigned i = 0; i < length; ++i) {
      pushConstant(code, types, type, dimension + 1, words);
      const bool isWrapped = dimension + 1 < dimensions || isOblong(type);
      if (isWrapped) code.emit(VM_OP_CTOR_STRUCT, {element});
    }
    return code.emit(VM_OP_CTOR_ARRAY, {element, length});
  }
  if (isOblong(type)) {
    const ValueType columns = floatType(shapeOf(type));
    for (unsigned i = 0; i < columns.count; ++i) pushWords(code, columns.code, words);
    return code.emit(VM_OP_CTOR_ARRAY, {columns.code, columns.count});
  }
  const TypeCode base = types.baseCode(type, nowhere);
  if (base < 0) return pushWords(code, base, words);
  for (const glslang::TTypeLoc& member : *type.getStruct()) {
    pushConstant(code, types, *member.type, 0, words);
  }
  code.emit(VM_OP_CTOR_STRUCT, {base});
}

}  // namespace shadermachine::tools::glsl
