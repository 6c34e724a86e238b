// Statements.
#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

// The comparison of integers (or equality of anything inline) that is true when the given one is
// false. Float order has none: with NaN both are false.
TOperator invertedComparison(const TIntermBinary& node) {
  const TIntermTyped& left = *node.getLeft();
  if (left.isArray() || left.isStruct()) return glslang::EOpNull;
  switch (node.getOp()) {
    case glslang::EOpEqual:
      return glslang::EOpNotEqual;
    case glslang::EOpNotEqual:
      return glslang::EOpEqual;
    default:
      break;
  }
  if (!shapeOf(left).isInteger()) return glslang::EOpNull;
  switch (node.getOp()) {
    case glslang::EOpLessThan:
      return glslang::EOpGreaterThanEqual;
    case glslang::EOpGreaterThan:
      return glslang::EOpLessThanEqual;
    case glslang::EOpLessThanEqual:
      return glslang::EOpGreaterThan;
    case glslang::EOpGreaterThanEqual:
      return glslang::EOpLessThan;
    default:
      return glslang::EOpNull;
  }
}

const TIntermTyped* negated(const TIntermTyped& node) {
  const TIntermUnary* unary = node.getAsUnaryNode();
  const bool isNot = unary != nullptr && unary->getOp() == glslang::EOpLogicalNot;
  return isNot ? unary->getOperand() : nullptr;
}

const TIntermBinary* asOperator(const TIntermTyped& node, TOperator op) {
  const TIntermBinary* binary = node.getAsBinaryNode();
  return binary != nullptr && binary->getOp() == op ? binary : nullptr;
}

}  // namespace

void FunctionGenerator::statement(const TIntermNode& node) {
  const At at(*this, node.getLoc());
  try {
    if (node.getAsTyped() == nullptr) beginStatement();
    if (const TIntermSelection* choice = node.getAsSelectionNode()) return selection(*choice);
    if (const TIntermLoop* repeated = node.getAsLoopNode()) return loop(*repeated);
    if (const TIntermSwitch* choice = node.getAsSwitchNode()) return switchStatement(*choice);
    if (const TIntermBranch* leaving = node.getAsBranchNode()) return branch(*leaving);
    const TIntermAggregate* aggregate = node.getAsAggregate();
    const bool isBlock = aggregate != nullptr && (aggregate->getOp() == glslang::EOpSequence ||
                                                  aggregate->getOp() == glslang::EOpScope ||
                                                  aggregate->getOp() == glslang::EOpNull);
    if (isBlock) return block(*aggregate);
    beginStatement();
    if (const TIntermTyped* typed = node.getAsTyped()) return discardValue(*typed);
    throw Unsupported(node.getLoc(), "this statement is not supported");
  } catch (const Unsupported& error) {
    // The next statement may have an error of its own. What this one began is never built.
    module_.diagnostics().add(error);
  }
}

void FunctionGenerator::block(const TIntermAggregate& node) {
  ++scope().blockDepth;
  for (const TIntermNode* child : children(node)) {
    if (child == nullptr) continue;
    statement(*child);
    if (alwaysLeaves(*child)) break;  // what follows is never reached
  }
  endVariables(node);
  --scope().blockDepth;
}

void FunctionGenerator::selection(const TIntermSelection& node) {
  const TIntermNode* whenTrue = node.getTrueBlock();
  const TIntermNode* whenFalse = node.getFalseBlock();
  if (const std::optional<bool> known = constantCondition(*node.getCondition())) {
    const TIntermNode* taken = *known ? whenTrue : whenFalse;
    if (taken != nullptr) statement(*taken);
    return;
  }
  const Label otherwise = code_.newLabel();
  if (whenTrue == nullptr) {
    jumpIfTrue(*node.getCondition(), otherwise);
  } else {
    jumpIfFalse(*node.getCondition(), otherwise);
    statement(*whenTrue);
  }
  if (whenFalse == nullptr) return code_.bind(otherwise);
  const Label end = code_.newLabel();
  if (whenTrue != nullptr && !alwaysLeaves(*whenTrue)) code_.jump(end);
  if (whenTrue != nullptr) code_.bind(otherwise);
  statement(*whenFalse);
  if (whenTrue == nullptr) code_.bind(otherwise);
  code_.bind(end);
}

void FunctionGenerator::loop(const TIntermLoop& node) {
  const Label start = code_.newLabel();
  const Label next = code_.newLabel();
  const Label end = code_.newLabel();
  const TIntermTyped* test = node.getTest();
  const bool isEndless = test == nullptr || constantCondition(*test) == true;
  code_.bind(start);
  if (node.testFirst()) beginStatement();
  if (node.testFirst() && !isEndless) jumpIfFalse(*test, end);
  exits_.push_back({end, next});
  if (node.getBody() != nullptr) statement(*node.getBody());
  exits_.pop_back();
  // Where continue goes on: with the last part of the head, or with the test behind the body.
  code_.bind(next);
  if (node.getTerminal() != nullptr) discardValue(*node.getTerminal());
  if (!node.testFirst() && !isEndless) {
    jumpIfTrue(*test, start);
  } else {
    code_.jump(start);
  }
  code_.bind(end);
}

// Compares with one case after the other, then jumps to the place of the first that is equal.
void FunctionGenerator::switchStatement(const TIntermSwitch& node) {
  const TIntermTyped& condition = *node.getCondition()->getAsTyped();
  const Place chosen = newLocal("chosen", valueType(condition));
  value(condition);
  // In a variable of its own: cases compare with it again, and its expression may have effects.
  store(chosen);
  const Label end = code_.newLabel();
  Label fallback = end;
  std::map<const TIntermNode*, Label> places;
  for (const TIntermNode* child : children(*node.getBody())) {
    const TIntermBranch* mark = child->getAsBranchNode();
    if (mark == nullptr) continue;
    if (mark->getFlowOp() == glslang::EOpDefault) {
      fallback = places[child] = code_.newLabel();
    } else if (mark->getFlowOp() == glslang::EOpCase) {
      places[child] = code_.newLabel();
      load(chosen);
      value(*mark->getExpression());
      emitCounted(VM_OP_NE_I, 1);
      code_.jumpIfFalse(places[child]);
    }
  }
  code_.jump(fallback);
  // A switch ends what breaks; what continues is the loop around it.
  const std::optional<Label> onContinue = exits_.empty() ? std::nullopt : exits_.back().onContinue;
  exits_.push_back({end, onContinue});
  for (const TIntermNode* child : children(*node.getBody())) {
    const auto place = places.find(child);
    if (place != places.end()) {
      code_.bind(place->second);
    } else {
      statement(*child);
    }
  }
  exits_.pop_back();
  code_.bind(end);
}

void FunctionGenerator::branch(const TIntermBranch& node) {
  switch (node.getFlowOp()) {
    case glslang::EOpKill:
    case glslang::EOpTerminateInvocation:
    case glslang::EOpDemote:
      return code_.emit(VM_OP_DISCARD);
    case glslang::EOpBreak:
      return code_.jump(*exits_.back().onBreak);
    case glslang::EOpContinue:
      return code_.jump(*exits_.back().onContinue);
    case glslang::EOpReturn:
      return returnStatement(node);
    default:
      throw Unsupported(node.getLoc(), "this statement is not supported");
  }
}

void FunctionGenerator::returnStatement(const TIntermBranch& node) {
  const bool hasValue =
      node.getExpression() != nullptr && node.getExpression()->getBasicType() != glslang::EbtVoid;
  if (hasValue) value(*node.getExpression());
  if (scope().returnTarget) {
    // At the end of the body its label is bound right behind.
    if (&node != scope().lastStatement) code_.jump(*scope().returnTarget);
    return;
  }
  code_.emit(hasValue ? VM_OP_RETURN_VALUE : VM_OP_RETURN);
}

std::optional<bool> FunctionGenerator::constantCondition(const TIntermTyped& condition) const {
  const TIntermConstantUnion* constant = asConstant(condition);
  if (constant == nullptr) return std::nullopt;
  return constant->getConstArray()[0].getBConst();
}

void FunctionGenerator::jumpIfFalse(const TIntermTyped& condition, Label label) {
  if (const TIntermTyped* operand = negated(condition)) return jumpIfTrue(*operand, label);
  if (const TIntermBinary* both = asOperator(condition, glslang::EOpLogicalAnd)) {
    jumpIfFalse(*both->getLeft(), label);
    return jumpIfFalse(*both->getRight(), label);
  }
  if (const TIntermBinary* either = asOperator(condition, glslang::EOpLogicalOr)) {
    const Label isTrue = code_.newLabel();
    jumpIfTrue(*either->getLeft(), isTrue);
    jumpIfFalse(*either->getRight(), label);
    return code_.bind(isTrue);
  }
  value(condition);
  code_.jumpIfFalse(label);
}

void FunctionGenerator::jumpIfTrue(const TIntermTyped& condition, Label label) {
  if (const TIntermTyped* operand = negated(condition)) return jumpIfFalse(*operand, label);
  if (const TIntermBinary* either = asOperator(condition, glslang::EOpLogicalOr)) {
    jumpIfTrue(*either->getLeft(), label);
    return jumpIfTrue(*either->getRight(), label);
  }
  if (const TIntermBinary* both = asOperator(condition, glslang::EOpLogicalAnd)) {
    const Label isFalse = code_.newLabel();
    jumpIfFalse(*both->getLeft(), isFalse);
    jumpIfTrue(*both->getRight(), label);
    return code_.bind(isFalse);
  }
  const TIntermBinary* compared = condition.getAsBinaryNode();
  const TOperator inverted = compared != nullptr ? invertedComparison(*compared) : glslang::EOpNull;
  if (inverted != glslang::EOpNull) {
    comparison(inverted, *compared->getLeft(), *compared->getRight(), false);
  } else {
    value(condition);
    code_.emit(VM_OP_LOGICAL_NOT_B);
  }
  code_.jumpIfFalse(label);
}

}  // namespace shadermachine::tools::glsl
