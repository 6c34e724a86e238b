// Arithmetic: sums, products, quotients, bits and shifts of floats and of integers.
#include <algorithm>
#include <bit>

#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

// Forms of a float operator; VM_OP_NOP where there is none.
struct FloatForms {
  VmOpcode both;
  VmOpcode vectorScalar;
  VmOpcode scalarVector;
};

FloatForms floatForms(TOperator op) {
  switch (op) {
    case glslang::EOpAdd:
      return {VM_OP_ADD_F, VM_OP_ADD_VS_F, VM_OP_ADD_SV_F};
    case glslang::EOpSub:
      return {VM_OP_SUB_F, VM_OP_SUB_VS_F, VM_OP_SUB_SV_F};
    default:
      return {VM_OP_DIV_F, VM_OP_DIV_VS_F, VM_OP_DIV_SV_F};
  }
}

// The operator of a compound assignment, or the operator itself.
TOperator plainOperator(TOperator op) {
  switch (op) {
    case glslang::EOpAddAssign:
      return glslang::EOpAdd;
    case glslang::EOpSubAssign:
      return glslang::EOpSub;
    case glslang::EOpMulAssign:
    case glslang::EOpVectorTimesScalar:
    case glslang::EOpVectorTimesScalarAssign:
    case glslang::EOpMatrixTimesScalar:
    case glslang::EOpMatrixTimesScalarAssign:
      return glslang::EOpMul;
    case glslang::EOpVectorTimesMatrixAssign:
      return glslang::EOpVectorTimesMatrix;
    case glslang::EOpMatrixTimesMatrixAssign:
      return glslang::EOpMatrixTimesMatrix;
    case glslang::EOpDivAssign:
      return glslang::EOpDiv;
    case glslang::EOpModAssign:
      return glslang::EOpMod;
    case glslang::EOpAndAssign:
      return glslang::EOpAnd;
    case glslang::EOpInclusiveOrAssign:
      return glslang::EOpInclusiveOr;
    case glslang::EOpExclusiveOrAssign:
      return glslang::EOpExclusiveOr;
    case glslang::EOpLeftShiftAssign:
      return glslang::EOpLeftShift;
    case glslang::EOpRightShiftAssign:
      return glslang::EOpRightShift;
    default:
      return op;
  }
}

VmOpcode integerOpcode(TOperator op) {
  switch (op) {
    case glslang::EOpAdd:
      return VM_OP_ADD_I;
    case glslang::EOpSub:
      return VM_OP_SUB_I;
    case glslang::EOpMul:
      return VM_OP_MUL_I;
    case glslang::EOpDiv:
      return VM_OP_DIV_I;
    case glslang::EOpAnd:
      return VM_OP_BIT_AND;
    case glslang::EOpInclusiveOr:
      return VM_OP_BIT_OR;
    case glslang::EOpExclusiveOr:
      return VM_OP_BIT_XOR;
    default:
      return VM_OP_NOP;
  }
}

TypeCode integerCode(unsigned components) {
  if (components == 1) return VM_TYPE_INT;
  return static_cast<TypeCode>(VM_TYPE_IVEC2 + static_cast<int>(components) - 2);
}

VmOpcode splatOpcode(unsigned components) {
  return static_cast<VmOpcode>(VM_OP_CTOR_VEC2_A + components - 2);
}

VmOpcode matrixOpcode(unsigned dimension) {
  return static_cast<VmOpcode>(VM_OP_CTOR_MAT2 + dimension - 2);
}

}  // namespace

void FunctionGenerator::arithmetic(TOperator compound, const Operand& left, const Operand& right,
                                   const TSourceLoc& where) {
  const TOperator op = plainOperator(compound);
  if (left.shape.isOblong() || right.shape.isOblong()) {
    return matrixArithmetic(op, left, right, where);
  }
  switch (op) {
    case glslang::EOpMatrixTimesVector:
    case glslang::EOpVectorTimesMatrix:
    case glslang::EOpMatrixTimesMatrix: {
      left.emit();
      right.emit();
      const VmOpcode opcode = op == glslang::EOpMatrixTimesVector   ? VM_OP_MUL_MAT_VEC
                              : op == glslang::EOpVectorTimesMatrix ? VM_OP_MUL_VEC_MAT
                                                                    : VM_OP_MUL_MAT_MAT;
      return emitCounted(opcode, std::max(left.shape.dimension, right.shape.dimension));
    }
    case glslang::EOpLeftShift:
    case glslang::EOpRightShift:
      return shift(op, left, right, where);
    case glslang::EOpAdd:
    case glslang::EOpSub:
    case glslang::EOpMul:
    case glslang::EOpDiv:
      if (left.shape.scalar == Scalar::Float) return floatArithmetic(op, left, right);
      [[fallthrough]];
    case glslang::EOpMod:
    case glslang::EOpAnd:
    case glslang::EOpInclusiveOr:
    case glslang::EOpExclusiveOr:
      return integerArithmetic(op, left, right, where);
    default:
      throw Unsupported(where, "this operator is not supported");
  }
}

void FunctionGenerator::floatArithmetic(TOperator op, Operand left, Operand right) {
  const unsigned components = std::max(left.shape.components, right.shape.components);
  if (op == glslang::EOpMul) return multiplyFloat(left, right, components);
  // A vector made of one scalar stays the scalar, since there are instructions for that; not on
  // both sides, where nothing would say how many components the result has.
  const Operand plainRight = withoutSplat(right);
  if (plainRight.shape.isScalar() && !left.shape.isScalar()) {
    right = plainRight;
  } else if (!right.shape.isScalar()) {
    left = withoutSplat(left);
  }
  const FloatForms forms = floatForms(op);
  left.emit();
  right.emit();
  if (left.shape.isScalar() == right.shape.isScalar()) return emitCounted(forms.both, components);
  emitCounted(left.shape.isScalar() ? forms.scalarVector : forms.vectorScalar, components);
}

void FunctionGenerator::multiplyFloat(const Operand& left, const Operand& right,
                                      unsigned components) {
  splatted(left, components);
  splatted(right, components);
  emitCounted(VM_OP_MUL_F, components);
}

// Pushes an operand with all components; scalars are repeated.
void FunctionGenerator::splatted(const Operand& operand, unsigned components) {
  if (!operand.shape.isScalar() || components == 1) return operand.emit();
  if (operand.node != nullptr) {
    if (const std::optional<float> constant = constantFloat(*operand.node)) {
      return code_.load(module_.splat(*constant, components));
    }
  }
  operand.emit();
  const unsigned dimension = components == 9 ? 3 : components == 16 ? 4 : 0;
  code_.emit(splatOpcode(dimension > 0 ? dimension : components), {1});
  if (dimension == 0) return;
  for (unsigned column = 1; column < dimension; ++column) code_.emit(VM_OP_DUP);
  // Arithmetic repeats a scalar in every component of a matrix; its constructor would make a
  // diagonal.
  const std::vector<int64_t> counts(dimension, dimension);
  code_.emit(matrixOpcode(dimension), counts);
}

void FunctionGenerator::integerArithmetic(TOperator op, const Operand& left, const Operand& right,
                                          const TSourceLoc& where) {
  const unsigned components = std::max(left.shape.components, right.shape.components);
  const Shape shape{left.shape.scalar, components};
  const auto whole = [&](const Operand& part) {
    // The node stands for the operand as the source has it: of a scalar that is repeated it would
    // tell the wrong shape.
    const bool isWhole = part.shape.components == components;
    return Operand{shape, isWhole ? part.node : nullptr,
                   [this, part, components] { splatted(part, components); }};
  };
  const bool isUnsigned = left.shape.scalar == Scalar::Uint;
  if (isUnsigned && dividedByConstant(op, left, right, components)) return;
  if (op == glslang::EOpMod || (op == glslang::EOpDiv && isUnsigned)) {
    const char* name = op == glslang::EOpDiv ? "udiv" : isUnsigned ? "umod" : "imod";
    const Operand operands[] = {whole(left), whole(right)};
    return callLibrary(name, operands, where);
  }
  splatted(left, components);
  splatted(right, components);
  emitCounted(integerOpcode(op), components);
}

// Unsigned numbers by a constant, where the instructions for signed ones do.
bool FunctionGenerator::dividedByConstant(TOperator op, const Operand& left, const Operand& right,
                                          unsigned components) {
  const bool isRemainder = op == glslang::EOpMod;
  if ((op != glslang::EOpDiv && !isRemainder) || right.node == nullptr) return false;
  // A divisor with its top bit set is negative here, and left to the library.
  const std::optional<int32_t> known = constantInt(*right.node);
  if (!known || *known <= 0 || left.shape.components != components) return false;
  const auto divisor = static_cast<uint32_t>(*known);
  if (std::has_single_bit(divisor)) {
    if (isRemainder) {
      left.emit();
      withInteger(VM_OP_BIT_AND, *known - 1, components);
    } else if (divisor == 1) {
      left.emit();
    } else {
      shiftRight(left, std::countr_zero(divisor));
    }
    return true;
  }
  if (isRemainder || left.node == nullptr || !isNeverNegative(*left.node)) return false;
  left.emit();
  withInteger(VM_OP_DIV_I, *known, components);
  return true;
}

// Whether an integer, read as a signed one, has no sign.
bool FunctionGenerator::isNeverNegative(const TIntermTyped& node) const {
  if (const std::optional<int32_t> constant = constantInt(node)) return *constant >= 0;
  if (const TIntermUnary* unary = node.getAsUnaryNode()) {
    const TIntermTyped& operand = *unary->getOperand();
    return isConversion(unary->getOp()) && shapeOf(operand).isInteger() && isNeverNegative(operand);
  }
  const TIntermBinary* binary = node.getAsBinaryNode();
  if (binary == nullptr || !shapeOf(node).isInteger()) return false;
  const std::optional<int32_t> right = constantInt(*binary->getRight());
  const bool isUnsigned = shapeOf(node).scalar == Scalar::Uint;
  switch (binary->getOp()) {
    case glslang::EOpAnd:
      return isNeverNegative(*binary->getLeft()) || isNeverNegative(*binary->getRight());
    case glslang::EOpRightShift:
      return isUnsigned ? right && *right > 0 && *right < 32 : isNeverNegative(*binary->getLeft());
    case glslang::EOpMod:
    case glslang::EOpDiv:
      return isUnsigned && right && *right > 1;
    default:
      return false;
  }
}

// By a known distance, shifting left is a product and shifting right a division with a correction;
// the rest is in the library.
void FunctionGenerator::shift(TOperator op, const Operand& left, const Operand& right,
                              const TSourceLoc& where) {
  const Shape shape = left.shape;
  const Operand distance = {{Scalar::Int, shape.components}, right.node, right.emit};
  // -1 for distances that are not known, which are the library's as those outside the word are.
  const int32_t known = right.node != nullptr ? constantInt(*right.node).value_or(-1) : -1;
  const bool isLeft = op == glslang::EOpLeftShift;
  if (isLeft && known >= 0 && known < 32) {
    left.emit();
    return withInteger(VM_OP_MUL_I, static_cast<int32_t>(1u << known), shape.components);
  }
  // By 31 there is no positive divisor.
  if (!isLeft && known > 0 && known < 31) return shiftRight(left, known);
  const char* name = isLeft ? "ishl" : shape.scalar == Scalar::Uint ? "ushr" : "ishr";
  const bool isWhole = right.shape.components == shape.components;
  const Operand operands[] = {left,
                              {distance.shape, isWhole ? right.node : nullptr,
                               [this, right, shape] { splatted(right, shape.components); }}};
  callLibrary(name, operands, where);
}

// The operand on the stack and a constant.
void FunctionGenerator::withInteger(VmOpcode opcode, int32_t constant, unsigned components) {
  splatted({Shape{Scalar::Int}, nullptr, [this, constant] { code_.pushInt(constant); }},
           components);
  emitCounted(opcode, components);
}

// Division rounds towards zero. Unsigned numbers are divided without their top bit, which is added
// where it belongs; of negative ones the complement is divided, and complemented again.
void FunctionGenerator::shiftRight(const Operand& left, int32_t distance) {
  const unsigned components = left.shape.components;
  const int32_t divisor = 1 << distance;
  // A local is read where it is, as often as needed: nothing that is emitted here changes it. A
  // variable that stands for a constant has no place.
  const TIntermSymbol* variable = left.node != nullptr && asConstant(*left.node) == nullptr
                                      ? left.node->getAsSymbolNode()
                                      : nullptr;
  const bool isLocal = variable != nullptr && symbolPlace(*variable).kind == Place::Kind::Local;
  Place number;
  if (isLocal) {
    number = symbolPlace(*variable);
  } else {
    left.emit();
    number = takeLocal("shifted", {integerCode(components), 0});
    store(number);
  }
  const auto isNegative = [&] {
    load(number);
    code_.emit(VM_OP_PUSH_ZERO4);
    if (components == 1) {
      code_.emit(VM_OP_LT_I);
    } else {
      emitCounted(VM_OP_LESS_THAN_I, components);
    }
    emitCounted(VM_OP_BOOL_TO_INT, components);
  };
  if (left.shape.scalar == Scalar::Uint) {
    load(number);
    withInteger(VM_OP_BIT_AND, INT32_MAX, components);
    withInteger(VM_OP_DIV_I, divisor, components);
    isNegative();
    withInteger(VM_OP_MUL_I, 1 << (31 - distance), components);
    emitCounted(VM_OP_ADD_I, components);
    if (!isLocal) freeLocals_[number.type].push_back(number);
    return;
  }
  // 0 or -1: an exclusive or with it complements just the negative ones.
  const Place sign = takeLocal("sign", number.type);
  isNegative();
  emitCounted(VM_OP_NEG_I, components);
  store(sign);
  load(number);
  load(sign);
  emitCounted(VM_OP_BIT_XOR, components);
  withInteger(VM_OP_DIV_I, divisor, components);
  load(sign);
  emitCounted(VM_OP_BIT_XOR, components);
  // Both only now, or they could be the same.
  if (!isLocal) freeLocals_[number.type].push_back(number);
  freeLocals_[number.type].push_back(sign);
}

}  // namespace shadermachine::tools::glsl
