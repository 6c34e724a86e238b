// Constructors: vectors, matrices, structures and arrays out of their parts.
#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

VmOpcode vectorConstructor(const Shape& shape) {
  const int set = shape.scalar == Scalar::Float  ? VM_OP_CTOR_VEC2_A
                  : shape.scalar == Scalar::Bool ? VM_OP_CTOR_VEC2_C
                                                 : VM_OP_CTOR_VEC2_B;
  return static_cast<VmOpcode>(set + static_cast<int>(shape.components) - 2);
}

const TIntermTyped& typed(const TIntermNode* node) { return *node->getAsTyped(); }

}  // namespace

void FunctionGenerator::construct(const TType& type, std::span<TIntermNode* const> arguments,
                                  const TSourceLoc& where) {
  module_.types().valueType(type, where);  // refuses what the machine has no type for
  if (type.isArray() || type.isStruct()) return constructAggregate(type, arguments, where);
  const Shape shape = shapeOf(type);
  if (shape.isOblong() || shapeOf(typed(arguments[0])).isOblong()) {
    return constructColumns(shape, arguments);
  }
  if (shape.isScalar()) {
    // Of a vector, the first component.
    const TIntermTyped& argument = typed(arguments[0]);
    return converted(argument, shapeOf(argument).scalar, shape.scalar);
  }
  if (shape.dimension > 0) return constructMatrix(shape, arguments, where);
  constructFrom(vectorConstructor(shape), shape, arguments, where);
}

void FunctionGenerator::constructAggregate(const TType& type,
                                           std::span<TIntermNode* const> arguments,
                                           const TSourceLoc& where) {
  for (const TIntermNode* argument : arguments) {
    value(typed(argument));
    if (!module_.types().isWrapped(type)) continue;
    code_.emit(VM_OP_CTOR_STRUCT, {module_.types().elementCode(type, where)});
  }
  if (!type.isArray()) {
    return code_.emit(VM_OP_CTOR_STRUCT, {module_.types().valueType(type, where).code});
  }
  code_.emit(VM_OP_CTOR_ARRAY,
             {module_.types().elementCode(type, where), static_cast<int64_t>(arguments.size())});
}

// One scalar makes a diagonal; a smaller matrix is completed by the library.
void FunctionGenerator::constructMatrix(const Shape& shape, std::span<TIntermNode* const> arguments,
                                        const TSourceLoc& where) {
  const auto opcode = static_cast<VmOpcode>(VM_OP_CTOR_MAT2 + shape.dimension - 2);
  const TIntermTyped& first = typed(arguments[0]);
  if (arguments.size() == 1 && first.isMatrix()) {
    const Shape source = shapeOf(first);
    if (source.dimension < shape.dimension) {
      const Operand argument = operand(first);
      return callLibrary("to_mat" + std::to_string(shape.dimension), {&argument, 1}, where);
    }
    value(first);
    // The instruction takes the upper left block of a larger matrix.
    if (source.dimension > shape.dimension) code_.emit(opcode, {source.components});
    return;
  }
  constructFrom(opcode, shape, arguments, where);
}

void FunctionGenerator::constructFrom(VmOpcode opcode, const Shape& shape,
                                      std::span<TIntermNode* const> arguments,
                                      const TSourceLoc& where) {
  std::vector<int64_t> counts;
  unsigned filled = 0;
  for (const TIntermNode* node : arguments) {
    const TIntermTyped& argument = typed(node);
    if (argument.isArray() || argument.isStruct()) {
      throw Unsupported(where, "this constructor's argument is not supported");
    }
    const Shape part = shapeOf(argument);
    converted(argument, part.scalar, shape.scalar);
    counts.push_back(part.components);
    filled += part.components;
  }
  // A value that has all components already needs nothing more.
  if (counts.size() == 1 && filled >= shape.components) return;
  code_.emit(opcode, counts);
}

}  // namespace shadermachine::tools::glsl
