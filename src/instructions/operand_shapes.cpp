#include "instructions/operand_shapes.h"

namespace shadermachine {
namespace {

using enum WordCount;

constexpr OperandShape componentWise(uint8_t operands, WordCount a, WordCount b = N,
                                     WordCount c = N, WordCount out = N) {
  OperandShape shape;
  shape.operands = operands;
  shape.in[0] = a;
  shape.in[1] = b;
  shape.in[2] = c;
  shape.out = out;
  shape.isComponentWise = true;
  return shape;
}

// The shapes that the opcode table names, as component_handlers.h has them.

enum class KernelShape {
  unary,
  scalarUnary,
  binary,
  binaryVS,
  binarySV,
  scalarBinary,
  ternary,
  ternaryVSS,
  ternaryVVS,
  ternarySSV,
  allOf,
  anyOf,
};

constexpr OperandShape kernelShape(KernelShape shape) {
  switch (shape) {
    case KernelShape::unary:
      return componentWise(1, N);
    case KernelShape::scalarUnary:
      return componentWise(1, One, One, One, One);
    case KernelShape::binaryVS:
      return componentWise(2, N, One);
    case KernelShape::binarySV:
      return componentWise(2, One, N);
    case KernelShape::scalarBinary:
      return componentWise(2, One, One, One, One);
    case KernelShape::ternary:
      return componentWise(3, N);
    case KernelShape::ternaryVSS:
      return componentWise(3, N, One, One);
    case KernelShape::ternaryVVS:
      return componentWise(3, N, N, One);
    case KernelShape::ternarySSV:
      return componentWise(3, One, One, N);
    case KernelShape::allOf:
    case KernelShape::anyOf:
      return componentWise(2, N, N, N, One);
    default:
      return componentWise(2, N);
  }
}

constexpr OperandShape vectorShape(uint8_t operands, WordCount a, WordCount b, WordCount c,
                                   WordCount out, bool replaces) {
  OperandShape shape;
  shape.operands = operands;
  shape.in[0] = a;
  shape.in[1] = b;
  shape.in[2] = c;
  shape.out = out;
  shape.least = 2;
  shape.replacesSlot = replaces;
  return shape;
}

constexpr OperandShape noiseShape(uint8_t results) {
  OperandShape shape;
  shape.operands = 1;
  shape.in[0] = N;
  shape.results = results;
  return shape;
}

constexpr OperandShape handlerShape(Opcode opcode) {
  using enum Opcode;
  switch (opcode) {
    case LENGTH:
      return vectorShape(1, N, N, N, One, false);
    case NORMALIZE:
      return vectorShape(1, N, N, N, N, false);
    case DISTANCE:
    case DOT:
      return vectorShape(2, N, N, N, One, false);
    case CROSS:
      return vectorShape(2, Three, Three, N, Three, true);
    case REFLECT:
      return vectorShape(2, N, N, N, N, true);
    case REFRACT:
      return vectorShape(3, N, N, One, N, true);
    case FACEFORWARD:
      return vectorShape(3, N, N, N, N, false);
    case MUL_MAT_MAT:
      return vectorShape(2, NSquared, NSquared, N, NSquared, true);
    case MUL_VEC_MAT:
      return vectorShape(2, N, NSquared, N, N, true);
    case MUL_MAT_VEC:
      return vectorShape(2, NSquared, N, N, N, true);
    case NOISE1:
    case NOISE2:
    case NOISE3:
    case NOISE4:
      return noiseShape(
          static_cast<uint8_t>(static_cast<unsigned>(opcode) - static_cast<unsigned>(NOISE1) + 1));
    default:
      return {};
  }
}

#define HANDLER(...) false, KernelShape::unary
#define KERNEL(shape, kernel) true, KernelShape::shape
#define OPCODE(number, mnemonic, handler, ...) shapeOf(Opcode::mnemonic, handler),

constexpr OperandShape shapeOf(Opcode opcode, bool hasKernel, KernelShape shape) {
  return hasKernel ? kernelShape(shape) : handlerShape(opcode);
}

constexpr std::array<OperandShape, kOpcodeCount> kShapes = {
#include "instructions/opcodes.def"
};

#undef OPCODE
#undef KERNEL
#undef HANDLER

}  // namespace

const OperandShape& operandShape(Opcode opcode) { return kShapes[static_cast<unsigned>(opcode)]; }

}  // namespace shadermachine
