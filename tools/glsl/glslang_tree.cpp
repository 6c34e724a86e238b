#include "glslang_tree.h"

namespace shadermachine::tools::glsl {
namespace {

using Visit = std::function<void(const TIntermNode&)>;

void visitIfPresent(const TIntermNode* node, const Visit& visit) {
  if (node != nullptr) visit(*node);
}

// Of a built-in function that writes its last arguments.
size_t firstOutput(TOperator op) {
  switch (op) {
    case glslang::EOpModf:
    case glslang::EOpFrexp:
      return 1;
    case glslang::EOpAddCarry:
    case glslang::EOpSubBorrow:
    case glslang::EOpUMulExtended:
    case glslang::EOpIMulExtended:
      return 2;
    default:
      return SIZE_MAX;
  }
}

bool isDynamicIndex(const TIntermNode& node) {
  const TIntermBinary* binary = node.getAsBinaryNode();
  return binary != nullptr && binary->getOp() == glslang::EOpIndexIndirect;
}

}  // namespace

void forEachChild(const TIntermNode& node, const Visit& visit) {
  if (const TIntermAggregate* aggregate = node.getAsAggregate()) {
    for (const TIntermNode* child : children(*aggregate)) visitIfPresent(child, visit);
  } else if (const TIntermBinary* binary = node.getAsBinaryNode()) {
    visit(*binary->getLeft());
    visit(*binary->getRight());
  } else if (const TIntermUnary* unary = node.getAsUnaryNode()) {
    visit(*unary->getOperand());
  } else if (const TIntermSelection* selection = node.getAsSelectionNode()) {
    visit(*selection->getCondition());
    visitIfPresent(selection->getTrueBlock(), visit);
    visitIfPresent(selection->getFalseBlock(), visit);
  } else if (const TIntermLoop* loop = node.getAsLoopNode()) {
    visitIfPresent(loop->getTest(), visit);
    visitIfPresent(loop->getBody(), visit);
    visitIfPresent(loop->getTerminal(), visit);
  } else if (const TIntermSwitch* choice = node.getAsSwitchNode()) {
    visit(*choice->getCondition());
    visitIfPresent(choice->getBody(), visit);
  } else if (const TIntermBranch* branch = node.getAsBranchNode()) {
    visitIfPresent(branch->getExpression(), visit);
  }
}

void visitTree(const TIntermNode& node, const Visit& visit) {
  visit(node);
  forEachChild(node, [&](const TIntermNode& child) { visitTree(child, visit); });
}

bool anyNode(const TIntermNode& node, const std::function<bool(const TIntermNode&)>& test) {
  bool found = test(node);
  if (!found) {
    forEachChild(node, [&](const TIntermNode& child) { found = found || anyNode(child, test); });
  }
  return found;
}

unsigned treeSize(const TIntermNode& node) {
  unsigned size = 0;
  visitTree(node, [&](const TIntermNode&) { ++size; });
  return size;
}

const TIntermNode* deeperThan(const TIntermNode& node, unsigned limit) {
  if (limit == 0) return &node;
  const TIntermNode* found = nullptr;
  forEachChild(node, [&](const TIntermNode& child) {
    if (found == nullptr) found = deeperThan(child, limit - 1);
  });
  return found;
}

bool isAssignment(TOperator op) {
  return op >= glslang::EOpAssign && op <= glslang::EOpRightShiftAssign;
}

bool isIncrement(TOperator op) {
  return op == glslang::EOpPostIncrement || op == glslang::EOpPostDecrement ||
         op == glslang::EOpPreIncrement || op == glslang::EOpPreDecrement;
}

// Older versions of glslang have an operator for every pair of types there, newer ones one for all.
bool isConversion(TOperator op) {
  return op > glslang::EOpDeclare && op < glslang::EOpConvUint64ToPtr;
}

const TIntermSymbol* rootSymbol(const TIntermNode& node) {
  if (const TIntermSymbol* symbol = node.getAsSymbolNode()) return symbol;
  const TIntermBinary* binary = node.getAsBinaryNode();
  if (binary == nullptr) return nullptr;
  switch (binary->getOp()) {
    case glslang::EOpIndexDirect:
    case glslang::EOpIndexIndirect:
    case glslang::EOpIndexDirectStruct:
    case glslang::EOpVectorSwizzle:
      return rootSymbol(*binary->getLeft());
    default:
      return nullptr;
  }
}

bool writesVariables(const TIntermNode& node) {
  return anyNode(node, [](const TIntermNode& part) {
    if (isUserCall(part)) return true;
    if (const TIntermAggregate* call = part.getAsAggregate()) {
      return firstOutput(call->getOp()) != SIZE_MAX;
    }
    const TIntermTyped* typed = part.getAsTyped();
    const TIntermOperator* op = typed != nullptr ? typed->getAsOperator() : nullptr;
    return op != nullptr && (isAssignment(op->getOp()) || isIncrement(op->getOp()));
  });
}

bool hasEffects(const TIntermNode& node) {
  return writesVariables(node) || anyNode(node, isDynamicIndex);
}

bool alwaysLeaves(const TIntermNode& node) {
  if (node.getAsBranchNode() != nullptr) {
    const TOperator op = node.getAsBranchNode()->getFlowOp();
    return op != glslang::EOpCase && op != glslang::EOpDefault;
  }
  if (const TIntermSelection* selection = node.getAsSelectionNode()) {
    return selection->getTrueBlock() != nullptr && selection->getFalseBlock() != nullptr &&
           alwaysLeaves(*selection->getTrueBlock()) && alwaysLeaves(*selection->getFalseBlock());
  }
  const TIntermAggregate* block = node.getAsAggregate();
  if (block == nullptr) return false;
  if (block->getOp() != glslang::EOpSequence && block->getOp() != glslang::EOpScope) return false;
  for (const TIntermNode* child : children(*block)) {
    if (child != nullptr && alwaysLeaves(*child)) return true;
  }
  return false;
}

bool isOutputArgument(const TIntermAggregate& call, size_t index) {
  if (isUserCall(call)) {
    const glslang::TStorageQualifier qualifier = call.getQualifierList()[index];
    return qualifier == glslang::EvqOut || qualifier == glslang::EvqInOut;
  }
  return index >= firstOutput(call.getOp());
}

std::vector<const TIntermTyped*> typedChildren(const TIntermAggregate& node) {
  std::vector<const TIntermTyped*> typed;
  for (const TIntermNode* child : children(node)) typed.push_back(child->getAsTyped());
  return typed;
}

}  // namespace shadermachine::tools::glsl
