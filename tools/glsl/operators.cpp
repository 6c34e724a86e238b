// Operators and conversions.
#include <algorithm>
#include <bit>

#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

constexpr int32_t kSignBit = INT32_MIN;

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

// Comparisons of scalars as one boolean, and of vectors component by component.
struct OrderForms {
  VmOpcode scalarI, scalarF, vectorI, vectorF;
};

OrderForms orderForms(TOperator op) {
  switch (op) {
    case glslang::EOpLessThan:
      return {VM_OP_LT_I, VM_OP_LT_F, VM_OP_LESS_THAN_I, VM_OP_LESS_THAN_F};
    case glslang::EOpGreaterThan:
      return {VM_OP_GT_I, VM_OP_GT_F, VM_OP_GREATER_THAN_I, VM_OP_GREATER_THAN_F};
    case glslang::EOpLessThanEqual:
      return {VM_OP_LE_I, VM_OP_LE_F, VM_OP_LESS_EQUAL_I, VM_OP_LESS_EQUAL_F};
    default:
      return {VM_OP_GE_I, VM_OP_GE_F, VM_OP_GREATER_EQUAL_I, VM_OP_GREATER_EQUAL_F};
  }
}

VmOpcode equalityOpcode(bool wantsEqual, bool isComponentWise, Scalar scalar) {
  const bool isFloat = scalar == Scalar::Float;
  const bool isBool = scalar == Scalar::Bool;
  if (isComponentWise && wantsEqual) {
    return isFloat ? VM_OP_EQUAL_F : isBool ? VM_OP_EQUAL_B : VM_OP_EQUAL_I;
  }
  if (isComponentWise) {
    return isFloat ? VM_OP_NOT_EQUAL_F : isBool ? VM_OP_NOT_EQUAL_B : VM_OP_NOT_EQUAL_I;
  }
  if (wantsEqual) return isFloat ? VM_OP_EQ_F : isBool ? VM_OP_EQ_B : VM_OP_EQ_I;
  return isFloat ? VM_OP_NE_F : isBool ? VM_OP_NE_B : VM_OP_NE_I;
}

struct Conversion {
  Scalar from, to;
};

// The component types that a conversion operator goes between.
std::optional<Conversion> conversionOf(TOperator op) {
  switch (op) {
    case glslang::EOpConvIntToBool:
    case glslang::EOpConvUintToBool:
      return Conversion{Scalar::Int, Scalar::Bool};
    case glslang::EOpConvFloatToBool:
      return Conversion{Scalar::Float, Scalar::Bool};
    case glslang::EOpConvBoolToInt:
    case glslang::EOpConvBoolToUint:
      return Conversion{Scalar::Bool, Scalar::Int};
    case glslang::EOpConvBoolToFloat:
      return Conversion{Scalar::Bool, Scalar::Float};
    case glslang::EOpConvIntToUint:
    case glslang::EOpConvUintToInt:
      return Conversion{Scalar::Int, Scalar::Int};
    case glslang::EOpConvIntToFloat:
      return Conversion{Scalar::Int, Scalar::Float};
    case glslang::EOpConvUintToFloat:
      return Conversion{Scalar::Uint, Scalar::Float};
    case glslang::EOpConvFloatToInt:
      return Conversion{Scalar::Float, Scalar::Int};
    case glslang::EOpConvFloatToUint:
      return Conversion{Scalar::Float, Scalar::Uint};
    default:
      return std::nullopt;
  }
}

}  // namespace

void FunctionGenerator::unaryValue(const TIntermUnary& node) {
  if (isIncrement(node.getOp())) return increment(node, true);
  const TIntermTyped* operand = node.getOperand();
  const Shape shape = shapeOf(*operand);
  if (const std::optional<Conversion> conversion = conversionOf(node.getOp())) {
    return converted(*operand, conversion->from, conversion->to);
  }
  switch (node.getOp()) {
    case glslang::EOpNegative:
      if (shape.isOblong()) return negateMatrix(this->operand(*operand));
      value(*operand);
      return emitCounted(shape.isInteger() ? VM_OP_NEG_I : VM_OP_NEG_F, shape.components);
    case glslang::EOpLogicalNot:
      value(*operand);
      return code_.emit(VM_OP_LOGICAL_NOT_B);
    case glslang::EOpVectorLogicalNot:
      value(*operand);
      return emitCounted(VM_OP_NOT_B, shape.components);
    case glslang::EOpBitwiseNot:
      value(*operand);
      return emitCounted(VM_OP_BIT_NOT, shape.components);
    case glslang::EOpArrayLength:
      return code_.pushInt(static_cast<int32_t>(arrayLength(operand->getType())));
    default:
      break;
  }
  if (node.isConstructor()) {
    TIntermNode* argument = const_cast<TIntermTyped*>(operand);
    return construct(node.getType(), {&argument, 1}, node.getLoc());
  }
  builtinCall(node, {&operand, 1});
}

void FunctionGenerator::binaryValue(const TIntermBinary& node) {
  const TIntermTyped& left = *node.getLeft();
  const TIntermTyped& right = *node.getRight();
  if (isAssignment(node.getOp())) return assign(node, true);
  switch (node.getOp()) {
    case glslang::EOpIndexDirect:
    case glslang::EOpIndexIndirect:
      return indexValue(node);
    case glslang::EOpIndexDirectStruct:
      return memberValue(node);
    case glslang::EOpVectorSwizzle:
      return swizzleValue(node);
    case glslang::EOpComma:
      discardValue(left);
      return value(right);
    case glslang::EOpLogicalAnd:
    case glslang::EOpLogicalOr:
    case glslang::EOpLogicalXor:
      return logical(node);
    case glslang::EOpEqual:
    case glslang::EOpNotEqual:
    case glslang::EOpLessThan:
    case glslang::EOpGreaterThan:
    case glslang::EOpLessThanEqual:
    case glslang::EOpGreaterThanEqual:
    case glslang::EOpVectorEqual:
    case glslang::EOpVectorNotEqual: {
      const bool isComponentWise = shapeOf(node).components > 1;
      return comparison(node.getOp(), left, right, isComponentWise);
    }
    default:
      return arithmetic(node.getOp(), operand(left), operand(right), node.getLoc());
  }
}

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
  const std::vector<int64_t> counts(dimension, dimension);
  code_.emit(matrixOpcode(dimension), counts);
}

void FunctionGenerator::integerArithmetic(TOperator op, const Operand& left, const Operand& right,
                                          const TSourceLoc& where) {
  const unsigned components = std::max(left.shape.components, right.shape.components);
  const Shape shape{left.shape.scalar, components};
  const auto whole = [&](const Operand& part) {
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
    const TOperator op = unary->getOp();
    return (op == glslang::EOpConvIntToUint || op == glslang::EOpConvUintToInt) &&
           isNeverNegative(*unary->getOperand());
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
  const int32_t known = right.node != nullptr ? constantInt(*right.node).value_or(-1) : -1;
  const bool isLeft = op == glslang::EOpLeftShift;
  if (isLeft && known >= 0 && known < 32) {
    left.emit();
    return withInteger(VM_OP_MUL_I, static_cast<int32_t>(1u << known), shape.components);
  }
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
  if (!isLocal) freeLocals_[number.type].push_back(number);
  freeLocals_[number.type].push_back(sign);
}

void FunctionGenerator::comparison(TOperator op, const TIntermTyped& left,
                                   const TIntermTyped& right, bool isComponentWise) {
  const bool wantsEqual = op == glslang::EOpEqual || op == glslang::EOpVectorEqual;
  const bool wantsUnequal = op == glslang::EOpNotEqual || op == glslang::EOpVectorNotEqual;
  if (!wantsEqual && !wantsUnequal) {
    return ordered(op, operand(left), operand(right), isComponentWise);
  }
  if (!left.isArray() && shapeOf(left).isOblong()) {
    return compareMatrices(operand(left), operand(right), wantsEqual);
  }
  value(left);
  value(right);
  if (left.isArray() || left.isStruct()) {
    return code_.emit(wantsEqual ? VM_OP_EQ_AGG : VM_OP_NE_AGG);
  }
  const Shape shape = shapeOf(left);
  emitCounted(equalityOpcode(wantsEqual, isComponentWise, shape.scalar), shape.components);
}

void FunctionGenerator::ordered(TOperator op, const Operand& left, const Operand& right,
                                bool isComponentWise) {
  // Unsigned order is signed order of the words with their top bits turned over.
  const auto isPlain = [this](const Operand& side) {
    return side.node != nullptr && isNeverNegative(*side.node);
  };
  const bool isTurned = left.shape.scalar == Scalar::Uint && !(isPlain(left) && isPlain(right));
  const auto emit = [&](const Operand& side) {
    const std::optional<int32_t> known =
        isTurned && side.node != nullptr ? constantInt(*side.node) : std::nullopt;
    if (known) return code_.pushInt(*known ^ kSignBit);
    side.emit();
    if (isTurned) withInteger(VM_OP_BIT_XOR, kSignBit, side.shape.components);
  };
  emit(left);
  emit(right);
  const OrderForms forms = orderForms(op);
  const bool isFloat = left.shape.scalar == Scalar::Float;
  if (!isComponentWise) return code_.emit(isFloat ? forms.scalarF : forms.scalarI);
  emitCounted(isFloat ? forms.vectorF : forms.vectorI, left.shape.components);
}

// The right side runs only when it counts, unless running it is cheap and changes nothing.
void FunctionGenerator::logical(const TIntermBinary& node) {
  constexpr unsigned kCheapSize = 6;
  const TIntermTyped& right = *node.getRight();
  const bool isXor = node.getOp() == glslang::EOpLogicalXor;
  if (isXor || (!hasEffects(right) && treeSize(right) <= kCheapSize)) {
    value(*node.getLeft());
    value(right);
    return code_.emit(isXor                                    ? VM_OP_LOGICAL_XOR_B
                      : node.getOp() == glslang::EOpLogicalAnd ? VM_OP_LOGICAL_AND_B
                                                               : VM_OP_LOGICAL_OR_B);
  }
  const Label decided = code_.newLabel();
  const Label end = code_.newLabel();
  const bool isAnd = node.getOp() == glslang::EOpLogicalAnd;
  if (isAnd) {
    jumpIfFalse(*node.getLeft(), decided);
  } else {
    jumpIfTrue(*node.getLeft(), decided);
  }
  value(right);
  code_.jump(end);
  code_.bind(decided);
  code_.pushInt(isAnd ? 0 : 1);
  code_.bind(end);
}

// Pushes a value with its components converted.
void FunctionGenerator::converted(const TIntermTyped& node, Scalar from, Scalar to) {
  const unsigned components = shapeOf(node).components;
  const bool fromFloat = from == Scalar::Float;
  if (from == Scalar::Uint && isNeverNegative(node)) from = Scalar::Int;
  if ((fromFloat && to == Scalar::Uint) || (from == Scalar::Uint && to == Scalar::Float)) {
    const Operand argument = operand(node);
    return callLibrary(fromFloat ? "float_to_uint" : "uint_to_float", {&argument, 1},
                       node.getLoc());
  }
  value(node);
  const auto isInteger = [](Scalar scalar) {
    return scalar == Scalar::Int || scalar == Scalar::Uint;
  };
  if (from == to || (isInteger(from) && isInteger(to))) return;
  if (to == Scalar::Bool) {
    return emitCounted(fromFloat ? VM_OP_FLOAT_TO_BOOL : VM_OP_INT_TO_BOOL, components);
  }
  if (from == Scalar::Bool) {
    return emitCounted(to == Scalar::Float ? VM_OP_BOOL_TO_FLOAT : VM_OP_BOOL_TO_INT, components);
  }
  emitCounted(fromFloat ? VM_OP_FLOAT_TO_INT : VM_OP_INT_TO_FLOAT, components);
}

}  // namespace shadermachine::tools::glsl
