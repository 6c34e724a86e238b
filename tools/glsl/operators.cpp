// What operators there are, comparisons, logic and conversions.
#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

constexpr int32_t kSignBit = INT32_MIN;

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

}  // namespace

void FunctionGenerator::unaryValue(const TIntermUnary& node) {
  if (isIncrement(node.getOp())) return increment(node, true);
  const TIntermTyped* operand = node.getOperand();
  const Shape shape = shapeOf(*operand);
  const Scalar result = shapeOf(node).scalar;
  if (isConversion(node.getOp()) && shape.scalar != Scalar::Other && result != Scalar::Other) {
    return converted(*operand, shape.scalar, result);
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
