#include "instructions/operand_shapes.h"

namespace shadermachine {
namespace {

using enum WordCount;

// Instructions that are more than their components.
struct HandlerShape {
  Opcode opcode;
  uint8_t operands;
  WordCount in[3];
  WordCount out;
  bool replaces;
};

using enum Opcode;
constexpr HandlerShape kHandlerShapes[] = {
    {LENGTH, 1, {N}, One, false},
    {NORMALIZE, 1, {N}, N, false},
    {DISTANCE, 2, {N, N}, One, false},
    {DOT, 2, {N, N}, One, false},
    {CROSS, 2, {Three, Three}, Three, true},
    {REFLECT, 2, {N, N}, N, true},
    {REFRACT, 3, {N, N, One}, N, true},
    {FACEFORWARD, 3, {N, N, N}, N, false},
    {MUL_MAT_MAT, 2, {NSquared, NSquared}, NSquared, true},
    {MUL_VEC_MAT, 2, {N, NSquared}, N, true},
    {MUL_MAT_VEC, 2, {NSquared, N}, N, true},
};

constexpr OperandShape noiseShape(uint8_t results) {
  OperandShape shape;
  shape.operands = 1;
  shape.in[0] = N;
  shape.results = results;
  return shape;
}

constexpr OperandShape handlerShape(Opcode opcode) {
  if (opcode >= NOISE1 && opcode <= NOISE4) {
    return noiseShape(
        static_cast<uint8_t>(static_cast<unsigned>(opcode) - static_cast<unsigned>(NOISE1) + 1));
  }
  OperandShape shape;
  for (const HandlerShape& row : kHandlerShapes) {
    if (row.opcode != opcode) continue;
    shape.operands = row.operands;
    for (int i = 0; i < 3; ++i) shape.in[i] = row.in[i];
    shape.out = row.out;
    shape.least = 2;
    shape.replacesSlot = row.replaces;
  }
  return shape;
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

ConstructedShape constructedShape(Opcode constructor) {
  // The table lists three sets of vectors, each from 2 to 4 components, and then the matrices.
  const auto after = [&](Opcode first) {
    return static_cast<unsigned>(constructor) - static_cast<unsigned>(first);
  };
  if (constructor >= CTOR_MAT2) return {true, static_cast<uint8_t>(after(CTOR_MAT2) + 2)};
  return {false, static_cast<uint8_t>(after(CTOR_VEC2_A) % 3 + 2)};
}

const OperandShape& operandShape(Opcode opcode) { return kShapes[static_cast<unsigned>(opcode)]; }

}  // namespace shadermachine
