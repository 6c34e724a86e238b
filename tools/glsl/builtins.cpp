// Built-in functions: most are one instruction, chosen from a table; others are written in GLSL
// (library.cpp), and a few need a sequence.
#include <algorithm>
#include <array>

#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

// Functions of floats with one instruction. `mixed` is the form for some scalar arguments beside
// vectors; positions of the arguments that are scalars in it are the set bits of `scalars`.
struct Row {
  TOperator op;
  unsigned arguments;
  VmOpcode opcode;
  VmOpcode mixed = VM_OP_NOP;
  unsigned scalars = 0;
};

constexpr std::array kRows = {
    Row{glslang::EOpRadians, 1, VM_OP_RADIANS},
    Row{glslang::EOpDegrees, 1, VM_OP_DEGREES},
    Row{glslang::EOpSin, 1, VM_OP_SIN},
    Row{glslang::EOpCos, 1, VM_OP_COS},
    Row{glslang::EOpTan, 1, VM_OP_TAN},
    Row{glslang::EOpAsin, 1, VM_OP_ASIN},
    Row{glslang::EOpAcos, 1, VM_OP_ACOS},
    Row{glslang::EOpAtan, 1, VM_OP_ATAN},
    Row{glslang::EOpAtan, 2, VM_OP_ATAN2},
    Row{glslang::EOpExp, 1, VM_OP_EXP},
    Row{glslang::EOpLog, 1, VM_OP_LOG},
    Row{glslang::EOpExp2, 1, VM_OP_EXP2},
    Row{glslang::EOpLog2, 1, VM_OP_LOG2},
    Row{glslang::EOpSqrt, 1, VM_OP_SQRT},
    Row{glslang::EOpInverseSqrt, 1, VM_OP_INVERSE_SQRT},
    Row{glslang::EOpAbs, 1, VM_OP_ABS},
    Row{glslang::EOpSign, 1, VM_OP_SIGN},
    Row{glslang::EOpFloor, 1, VM_OP_FLOOR},
    Row{glslang::EOpCeil, 1, VM_OP_CEIL},
    Row{glslang::EOpFract, 1, VM_OP_FRACT},
    Row{glslang::EOpMod, 2, VM_OP_MOD, VM_OP_MOD_VS, 0b10},
    Row{glslang::EOpMin, 2, VM_OP_MIN, VM_OP_MIN_VS, 0b10},
    Row{glslang::EOpMax, 2, VM_OP_MAX, VM_OP_MAX_VS, 0b10},
    Row{glslang::EOpClamp, 3, VM_OP_CLAMP, VM_OP_CLAMP_VSS, 0b110},
    Row{glslang::EOpMix, 3, VM_OP_MIX, VM_OP_MIX_VVS, 0b100},
    Row{glslang::EOpStep, 2, VM_OP_STEP, VM_OP_STEP_SV, 0b01},
    Row{glslang::EOpLength, 1, VM_OP_LENGTH},
    Row{glslang::EOpDistance, 2, VM_OP_DISTANCE},
    Row{glslang::EOpDot, 2, VM_OP_DOT},
    Row{glslang::EOpNormalize, 1, VM_OP_NORMALIZE},
    Row{glslang::EOpFaceForward, 3, VM_OP_FACEFORWARD},
    Row{glslang::EOpReflect, 2, VM_OP_REFLECT},
    Row{glslang::EOpRefract, 3, VM_OP_REFRACT, VM_OP_REFRACT, 0b100},
};

struct LibraryRow {
  TOperator op;
  const char* name;
};

constexpr std::array kLibraryRows = {
    LibraryRow{glslang::EOpSinh, "sinh"},
    LibraryRow{glslang::EOpCosh, "cosh"},
    LibraryRow{glslang::EOpTanh, "tanh"},
    LibraryRow{glslang::EOpAsinh, "asinh"},
    LibraryRow{glslang::EOpAcosh, "acosh"},
    LibraryRow{glslang::EOpAtanh, "atanh"},
    LibraryRow{glslang::EOpTrunc, "trunc"},
    LibraryRow{glslang::EOpRound, "round"},
    LibraryRow{glslang::EOpRoundEven, "round_even"},
    LibraryRow{glslang::EOpModf, "modf"},
    LibraryRow{glslang::EOpFrexp, "frexp"},
    LibraryRow{glslang::EOpLdexp, "ldexp"},
    LibraryRow{glslang::EOpIsInf, "isinf"},
    LibraryRow{glslang::EOpFma, "fma"},
    LibraryRow{glslang::EOpOuterProduct, "outer_product"},
    LibraryRow{glslang::EOpTranspose, "transpose"},
    LibraryRow{glslang::EOpDeterminant, "determinant"},
    LibraryRow{glslang::EOpMatrixInverse, "inverse"},
    LibraryRow{glslang::EOpBitFieldReverse, "bitfield_reverse"},
    LibraryRow{glslang::EOpBitCount, "bit_count"},
    LibraryRow{glslang::EOpFindLSB, "find_lsb"},
    LibraryRow{glslang::EOpAddCarry, "add_carry"},
    LibraryRow{glslang::EOpSubBorrow, "sub_borrow"},
    LibraryRow{glslang::EOpUMulExtended, "umul_extended"},
    LibraryRow{glslang::EOpIMulExtended, "imul_extended"},
    LibraryRow{glslang::EOpPackHalf2x16, "pack_half2x16"},
    LibraryRow{glslang::EOpUnpackHalf2x16, "unpack_half2x16"},
    LibraryRow{glslang::EOpPackSnorm4x8, "pack_snorm4x8"},
    LibraryRow{glslang::EOpUnpackSnorm4x8, "unpack_snorm4x8"},
    LibraryRow{glslang::EOpPackUnorm2x16, "pack_unorm2x16"},
    LibraryRow{glslang::EOpUnpackUnorm2x16, "unpack_unorm2x16"},
    LibraryRow{glslang::EOpPackSnorm2x16, "pack_snorm2x16"},
    LibraryRow{glslang::EOpUnpackSnorm2x16, "unpack_snorm2x16"},
    LibraryRow{glslang::EOpPackUnorm4x8, "pack_unorm4x8"},
    LibraryRow{glslang::EOpUnpackUnorm4x8, "unpack_unorm4x8"},
};

// Functions of integers that have another form for floats, or for unsigned integers.
const char* integerFunction(TOperator op, bool isUnsigned) {
  switch (op) {
    case glslang::EOpAbs:
      return "abs";
    case glslang::EOpSign:
      return "sign";
    case glslang::EOpMin:
      return isUnsigned ? "umin" : "min";
    case glslang::EOpMax:
      return isUnsigned ? "umax" : "max";
    case glslang::EOpClamp:
      return isUnsigned ? "uclamp" : "clamp";
    case glslang::EOpFindMSB:
      return isUnsigned ? "ufind_msb" : "find_msb";
    case glslang::EOpBitfieldExtract:
      return isUnsigned ? "ubitfield_extract" : "bitfield_extract";
    case glslang::EOpBitfieldInsert:
      return "bitfield_insert";
    default:
      return nullptr;
  }
}

bool isComparison(TOperator op) {
  switch (op) {
    case glslang::EOpLessThan:
    case glslang::EOpGreaterThan:
    case glslang::EOpLessThanEqual:
    case glslang::EOpGreaterThanEqual:
    case glslang::EOpVectorEqual:
    case glslang::EOpVectorNotEqual:
      return true;
    default:
      return false;
  }
}

VmOpcode derivativeOpcode(TOperator op) {
  switch (op) {
    case glslang::EOpDPdx:
    case glslang::EOpDPdxFine:
    case glslang::EOpDPdxCoarse:
      return VM_OP_HOST_UNARY_1;
    case glslang::EOpDPdy:
    case glslang::EOpDPdyFine:
    case glslang::EOpDPdyCoarse:
      return VM_OP_HOST_UNARY_2;
    case glslang::EOpFwidth:
    case glslang::EOpFwidthFine:
    case glslang::EOpFwidthCoarse:
      return VM_OP_HOST_UNARY_3;
    default:
      return VM_OP_NOP;
  }
}

unsigned largest(std::span<const TIntermTyped* const> arguments) {
  unsigned components = 1;
  for (const TIntermTyped* argument : arguments) {
    components = std::max(components, shapeOf(*argument).components);
  }
  return components;
}

VmOpcode booleanOpcode(TOperator op) {
  if (op == glslang::EOpAny) return VM_OP_ANY_B;
  return op == glslang::EOpAll ? VM_OP_ALL_B : VM_OP_NOT_B;
}

}  // namespace

Unsupported FunctionGenerator::unsupportedFunction(const TIntermOperator& node) {
  const bool isAtArgument = node.getAsAggregate() == nullptr;
  const Diagnostics& source = module_.diagnostics();
  return {node.getLoc(), source.calledFunction(node.getLoc(), isAtArgument) + " is not supported"};
}

void FunctionGenerator::builtinCall(const TIntermOperator& node,
                                    std::span<const TIntermTyped* const> arguments) {
  if (node.isTexture()) return textureCall(node, arguments);
  // From the particular to the general: the table knows neither integers nor matrices, and would
  // take the integers' min() for that of floats.
  if (oblongCall(node, arguments) || specialCall(node, arguments)) return;
  const Shape first = arguments.empty() ? Shape{} : shapeOf(*arguments[0]);
  const char* name = nullptr;
  if (first.isInteger()) name = integerFunction(node.getOp(), first.scalar == Scalar::Uint);
  for (const LibraryRow& row : kLibraryRows) {
    if (row.op == node.getOp()) name = row.name;
  }
  if (name == nullptr && tableCall(node, arguments)) return;
  if (name == nullptr) throw unsupportedFunction(node);
  std::vector<Operand> operands;
  for (const TIntermTyped* argument : arguments) operands.push_back(operand(*argument));
  callLibrary(name, operands, node.getLoc());
}

bool FunctionGenerator::tableCall(const TIntermOperator& node,
                                  std::span<const TIntermTyped* const> arguments) {
  const auto row = std::find_if(kRows.begin(), kRows.end(), [&](const Row& candidate) {
    return candidate.op == node.getOp() && candidate.arguments == arguments.size();
  });
  if (row == kRows.end()) return false;
  // Only NaN tells the order of these two, and a constant behind is cheaper.
  const bool isSymmetric = node.getOp() == glslang::EOpMin || node.getOp() == glslang::EOpMax;
  const TIntermTyped* exchanged[2];
  if (isSymmetric && asConstant(*arguments[0]) != nullptr && asConstant(*arguments[1]) == nullptr) {
    exchanged[0] = arguments[1];
    exchanged[1] = arguments[0];
    arguments = exchanged;
  }
  const unsigned components = largest(arguments);
  std::vector<Operand> operands;
  bool isMixed = row->mixed != VM_OP_NOP && components > 1;
  for (size_t i = 0; i < arguments.size(); ++i) {
    // The mixed form serves only where all arguments that are scalars in it can be.
    const bool mayBeScalar = (row->scalars >> i & 1) != 0;
    operands.push_back(mayBeScalar ? withoutSplat(operand(*arguments[i])) : operand(*arguments[i]));
    if (mayBeScalar) isMixed = isMixed && operands[i].shape.isScalar();
  }
  for (size_t i = 0; i < arguments.size(); ++i) {
    const bool isScalar = isMixed && (row->scalars >> i & 1) != 0;
    if (isScalar) {
      operands[i].emit();
    } else {
      splatted(operand(*arguments[i]), components);
    }
  }
  emitCounted(isMixed ? row->mixed : row->opcode, components);
  return true;
}

// A row for each function that has no opcode of its own.
// NOLINTNEXTLINE(readability-function-size)
bool FunctionGenerator::specialCall(const TIntermOperator& node,
                                    std::span<const TIntermTyped* const> arguments) {
  const TOperator op = node.getOp();
  const unsigned components = largest(arguments);
  if (isComparison(op)) {
    comparison(op, *arguments[0], *arguments[1], true);
    return true;
  }
  const VmOpcode derivative = derivativeOpcode(op);
  switch (op) {
    case glslang::EOpPow:
      power(*arguments[0], *arguments[1], components);
      return true;
    case glslang::EOpSmoothStep:
      return smoothstep(arguments, components);
    case glslang::EOpCross:
      value(*arguments[0]);
      value(*arguments[1]);
      code_.emit(VM_OP_CROSS);
      return true;
    case glslang::EOpMul:  // matrixCompMult
      value(*arguments[0]);
      value(*arguments[1]);
      emitCounted(VM_OP_COMP_MUL_F, components);
      return true;
    case glslang::EOpAny:
    case glslang::EOpAll:
    case glslang::EOpVectorLogicalNot:
      value(*arguments[0]);
      emitCounted(booleanOpcode(op), components);
      return true;
    case glslang::EOpFloatBitsToInt:
    case glslang::EOpFloatBitsToUint:
    case glslang::EOpIntBitsToFloat:
    case glslang::EOpUintBitsToFloat:
      value(*arguments[0]);
      return true;
    case glslang::EOpIsNan:
      value(*arguments[0]);
      code_.emit(VM_OP_DUP);
      emitCounted(VM_OP_NOT_EQUAL_F, components);
      return true;
    case glslang::EOpMix: {
      if (shapeOf(*arguments[2]).scalar != Scalar::Bool) return false;
      const Operand operands[] = {operand(*arguments[0]), operand(*arguments[1]),
                                  operand(*arguments[2])};
      callLibrary("select", operands, node.getLoc());
      return true;
    }
    case glslang::EOpBitfieldExtract:
    case glslang::EOpBitfieldInsert:
      return bitField(op, arguments);
    case glslang::EOpInterpolateAtCentroid:
    case glslang::EOpInterpolateAtSample:
      value(*arguments[0]);  // a pixel has one sample
      return true;
    case glslang::EOpInterpolateAtOffset:
      interpolateAtOffset(*arguments[0], *arguments[1]);
      return true;
    case glslang::EOpNoise:
      value(*arguments[0]);
      emitCounted(static_cast<VmOpcode>(VM_OP_NOISE1 + shapeOf(node).components - 1), components);
      return true;
    default:
      break;
  }
  if (derivative == VM_OP_NOP) return false;
  value(*arguments[0]);
  emitCounted(derivative, components);
  return true;
}

void FunctionGenerator::interpolateAtOffset(const TIntermTyped& varying,
                                            const TIntermTyped& offset) {
  const unsigned components = shapeOf(varying).components;
  value(varying);
  for (unsigned axis = 0; axis < 2; ++axis) {
    value(varying);
    emitCounted(axis == 0 ? VM_OP_HOST_UNARY_1 : VM_OP_HOST_UNARY_2, components);
    splatted({Shape{Scalar::Float}, nullptr,
              [&] {
                value(offset);
                swizzle({&axis, 1}, 2);
              }},
             components);
    emitCounted(VM_OP_MUL_F, components);
    emitCounted(VM_OP_ADD_F, components);
  }
}

// At a place that is known: masks and constant shifts.
bool FunctionGenerator::bitField(TOperator op, std::span<const TIntermTyped* const> arguments) {
  const std::optional<int32_t> first = constantInt(*arguments[arguments.size() - 2]);
  const std::optional<int32_t> bits = constantInt(*arguments.back());
  // Below the sign, so that signed products and quotients are right.
  if (!first || !bits || *first < 0 || *bits < 1 || *first + *bits > 31) return false;
  const unsigned components = shapeOf(*arguments[0]).components;
  const bool isExtract = op == glslang::EOpBitfieldExtract;
  // The unit would be 2^31.
  if (isExtract && shapeOf(*arguments[0]).scalar == Scalar::Int && *bits == 1) return false;
  const int32_t mask = static_cast<int32_t>(((1u << *bits) - 1) << *first);
  const auto moved = [&](const TIntermTyped& node, int32_t distance) {
    value(node);
    if (distance > 0) withInteger(VM_OP_MUL_I, static_cast<int32_t>(1u << distance), components);
  };
  if (!isExtract) {
    value(*arguments[0]);
    withInteger(VM_OP_BIT_AND, ~mask, components);
    moved(*arguments[1], *first);
    withInteger(VM_OP_BIT_AND, mask, components);
    emitCounted(VM_OP_BIT_OR, components);
  } else if (shapeOf(*arguments[0]).scalar == Scalar::Uint) {
    value(*arguments[0]);
    withInteger(VM_OP_BIT_AND, mask, components);
    if (*first > 0) withInteger(VM_OP_DIV_I, static_cast<int32_t>(1u << *first), components);
  } else {
    // The field's sign bit becomes the word's; what is below the field is cut off.
    moved(*arguments[0], 32 - *first - *bits);
    const auto unit = static_cast<int32_t>(1u << (32 - *bits));
    withInteger(VM_OP_BIT_AND, -unit, components);
    withInteger(VM_OP_DIV_I, unit, components);
  }
  return true;
}

// Squares are so common that they are worth a product.
void FunctionGenerator::power(const TIntermTyped& base, const TIntermTyped& exponent,
                              unsigned components) {
  splatted(operand(base), components);
  const Operand plain = withoutSplat(operand(exponent));
  const TIntermConstantUnion* constant = asConstant(exponent);
  const bool isSquare = plain.shape.isScalar() && constant != nullptr &&
                        constant->getConstArray()[0].getDConst() == 2.0;
  if (isSquare) {
    code_.emit(VM_OP_DUP);
    return emitCounted(VM_OP_MUL_F, components);
  }
  splatted(operand(exponent), components);
  emitCounted(VM_OP_POW, components);
}

// The instruction is right for rising edges only; others are written out by the library.
bool FunctionGenerator::smoothstep(std::span<const TIntermTyped* const> arguments,
                                   unsigned components) {
  const auto edge = [&](const TIntermTyped& node) -> std::optional<float> {
    const TIntermConstantUnion* constant = asConstant(node);
    if (constant == nullptr) return std::nullopt;
    const auto first = static_cast<float>(constant->getConstArray()[0].getDConst());
    const bool isScalar = withoutSplat(operand(node)).shape.isScalar();
    return isScalar ? std::optional<float>(first) : std::nullopt;
  };
  const std::optional<float> low = edge(*arguments[0]);
  const std::optional<float> high = edge(*arguments[1]);
  if (low && high && *low < *high) {
    code_.pushFloat(*low);
    code_.pushFloat(*high);
    value(*arguments[2]);
    emitCounted(VM_OP_SMOOTHSTEP_SSV, components);
    return true;
  }
  std::vector<Operand> operands;
  for (const TIntermTyped* argument : arguments) operands.push_back(operand(*argument));
  callLibrary("smoothstep", operands, arguments[0]->getLoc());
  return true;
}

}  // namespace shadermachine::tools::glsl
