// How many words each instruction on inline values reads of its operands and writes to its result,
// for everything that follows values: the form and its back ends.
#pragma once

#include "instructions/opcode_info.h"

namespace shadermachine {

// Words of an operand or result of an instruction on n components.
enum class WordCount : uint8_t {
  One,
  N,
  NSquared,
  Three,
};

struct OperandShape {
  uint8_t operands = 0;  // 0: no instruction on inline values alone
  WordCount in[3] = {};
  WordCount out = WordCount::One;
  uint8_t results = 0;  // noise: components of the result; else 0
  uint8_t least = 1;    // component counts that the instruction has a meaning for
  uint8_t most = 4;
  bool replacesSlot = false;  // the words beyond the result are not those of the first operand
  bool isComponentWise = false;

  uint32_t operandWords(uint32_t i, uint32_t n) const { return wordsOf(in[i], n); }
  uint32_t resultWords(uint32_t n) const { return results != 0 ? results : wordsOf(out, n); }

 private:
  static uint32_t wordsOf(WordCount count, uint32_t n) {
    switch (count) {
      case WordCount::One:
        return 1;
      case WordCount::Three:
        return 3;
      case WordCount::NSquared:
        return n * n;
      default:
        return n;
    }
  }
};

const OperandShape& operandShape(Opcode opcode);

constexpr OperandShape componentWise(uint8_t operands, WordCount a, WordCount b = WordCount::N,
                                     WordCount c = WordCount::N, WordCount out = WordCount::N) {
  OperandShape shape;
  shape.operands = operands;
  shape.in[0] = a;
  shape.in[1] = b;
  shape.in[2] = c;
  shape.out = out;
  shape.isComponentWise = true;
  return shape;
}

// What a constructor makes of words: a vector, or a square matrix of n * n.
struct ConstructedShape {
  bool isMatrix;
  uint8_t n;

  uint32_t words() const { return isMatrix ? n * n : n; }
};

// Of CTOR_VEC2_A to CTOR_MAT4.
ConstructedShape constructedShape(Opcode constructor);

// Dimension of the square matrix that a constructor's one operand of `count` words holds.
constexpr uint32_t squareDimension(uint32_t count) { return count >= 16 ? 4 : count >= 9 ? 3 : 2; }

// Word of its operand that a swizzle's result has as word i.
constexpr uint32_t swizzleSelector(uint32_t mask, uint32_t i) { return (mask >> (2 * i)) & 3; }

// Words of its operand that a swizzle to n words reaches into.
constexpr uint32_t swizzleReach(uint32_t mask, uint32_t n) {
  uint32_t reach = 0;
  for (uint32_t i = 0; i < n; ++i) {
    const uint32_t end = swizzleSelector(mask, i) + 1;
    if (end > reach) reach = end;
  }
  return reach;
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
  using enum WordCount;
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

}  // namespace shadermachine
