// What can be assigned to: variables and their parts.
#include <algorithm>

#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

bool isSelection(const PathStep& step) { return step.index == nullptr && step.constant < 0; }

unsigned selector(const PathStep& selection, unsigned i) {
  return static_cast<unsigned>(-selection.constant) >> 2 * i & 3;
}

// One component is chosen by its position, like an element; several by a pattern, which the machine
// knows by its sign.
int64_t selectionStep(std::span<const unsigned> selectors) {
  if (selectors.size() == 1) return selectors[0];
  int64_t pattern = static_cast<int64_t>(selectors.size()) << 8;
  for (unsigned i = 0; i < selectors.size(); ++i) pattern |= selectors[i] << 2 * i;
  return -pattern;
}

std::vector<unsigned> selectorsOf(const TIntermTyped& swizzle) {
  std::vector<unsigned> selectors;
  for (const TIntermNode* part : children(*swizzle.getAsAggregate())) {
    const TIntermConstantUnion* constant = part->getAsConstantUnion();
    selectors.push_back(static_cast<unsigned>(constant->getConstArray()[0].getIConst()));
  }
  return selectors;
}

}  // namespace

Target FunctionGenerator::target(const TIntermTyped& node) {
  if (const TIntermSymbol* symbol = node.getAsSymbolNode()) {
    Target result{&node, symbolPlace(*symbol), {}};
    if (result.root.kind == Place::Kind::Builtin || result.root.isReadOnly) {
      throw Unsupported(node.getLoc(), "this variable cannot be written");
    }
    return result;
  }
  const TIntermBinary* binary = node.getAsBinaryNode();
  if (binary == nullptr) throw Unsupported(node.getLoc(), "this cannot be assigned to");
  if (const std::optional<Place> output = outputElement(*binary)) return {&node, *output, {}};
  Target result = target(*binary->getLeft());
  result.node = &node;
  appendStep(result, *binary);
  return result;
}

void FunctionGenerator::appendStep(Target& target, const TIntermBinary& node) {
  if (node.getOp() == glslang::EOpVectorSwizzle) {
    return appendSelection(target, selectorsOf(*node.getRight()));
  }
  const std::optional<int32_t> position = constantInt(*node.getRight());
  const TIntermTyped& base = *node.getLeft();
  // A selection of one, so that an index into a swizzle is composed with it.
  if (position && !base.isArray() && !base.isMatrix() && base.isVector()) {
    const auto component = static_cast<unsigned>(*position);
    return appendSelection(target, {&component, 1});
  }
  if (position) {
    target.path.push_back({*position});
  } else {
    target.path.push_back({0, node.getRight()});
  }
  // What is reached is the structure around an inner array (types.h); its only member is the array.
  if (module_.types().isWrapped(base.getType())) target.path.push_back({0});
}

// A selection from a selection selects from the vector itself.
void FunctionGenerator::appendSelection(Target& target, std::span<const unsigned> selectors) {
  std::vector<unsigned> composed(selectors.begin(), selectors.end());
  if (!target.path.empty() && isSelection(target.path.back())) {
    for (unsigned& chosen : composed) chosen = selector(target.path.back(), chosen);
    target.path.pop_back();
  }
  target.path.push_back({selectionStep(composed)});
}

void FunctionGenerator::fixIndices(Target& target, Fix which) {
  for (const PathStep& step : target.path) {
    if (step.index == nullptr || fixedValues_.contains(step.index)) continue;
    if (which == Fix::Writing && !writesVariables(*step.index)) continue;
    if (which == Fix::Costly && !hasEffects(*step.index) && treeSize(*step.index) == 1) continue;
    const Place place = newLocal("index", valueType(*step.index));
    value(*step.index);
    store(place);
    fixedValues_[step.index] = place;
  }
}

void FunctionGenerator::forgetIndices(const Target& target) {
  for (const PathStep& step : target.path) fixedValues_.erase(step.index);
}

void FunctionGenerator::loadTarget(const Target& target) {
  const TIntermBinary* binary = target.node->getAsBinaryNode();
  const bool isWhole = target.path.empty();
  if (isWhole || binary == nullptr) return load(target.root);
  value(*target.node);
}

void FunctionGenerator::storeTarget(const Target& target) {
  if (target.path.empty()) return store(target.root);
  const bool isLocal = target.root.kind == Place::Kind::Local;
  bool isConstant = true;
  for (const PathStep& step : target.path) {
    // Steps among the operands have 16 bits.
    isConstant = isConstant && step.index == nullptr && step.constant <= INT16_MAX;
  }
  std::vector<int64_t> operands{target.root.index};
  if (isConstant) {
    for (const PathStep& step : target.path) operands.push_back(step.constant);
    return code_.emit(isLocal ? VM_OP_STORE_LOCAL_ELEM_IMM : VM_OP_STORE_GLOBAL_ELEM_IMM, operands);
  }
  // From the last: the machine takes the first step from the top of the stack.
  for (size_t i = target.path.size(); i-- > 0;) {
    const PathStep& step = target.path[i];
    if (step.index != nullptr) {
      value(*step.index);
      // A negative index would select components; without its sign it is outside, and stores
      // nothing.
      code_.pushInt(INT32_MAX);
      emitCounted(VM_OP_BIT_AND, 1);
    } else {
      code_.pushInt(static_cast<int32_t>(step.constant));
    }
  }
  operands.push_back(static_cast<int64_t>(target.path.size()));
  code_.emit(isLocal ? VM_OP_STORE_LOCAL_ELEM : VM_OP_STORE_GLOBAL_ELEM, operands);
}

// A local that only ever gets a constant stands for it, from there on; not where the assignment may
// be left out, since people count on zeros then.
bool FunctionGenerator::bindConstant(const TIntermBinary& node) {
  const TIntermSymbol* symbol = node.getLeft()->getAsSymbolNode();
  const TIntermConstantUnion* constant = asConstant(*node.getRight());
  if (node.getOp() != glslang::EOpAssign || symbol == nullptr || constant == nullptr) return false;
  if (module_.options().isForDebugging && isSource()) return false;
  if (symbol->getQualifier().storage != glslang::EvqTemporary || findBinding(*symbol) != nullptr) {
    return false;
  }
  // One assignment, and a statement of the body itself: it has run before whatever follows it.
  const auto writes = scope().function->writeCounts.find(symbol->getId());
  if (writes == scope().function->writeCounts.end() || writes->second != 1) return false;
  const std::span<TIntermNode* const> statements = children(*scope().function->body);
  if (std::find(statements.begin(), statements.end(), &node) == statements.end()) return false;
  valueType(*symbol);  // refuses what the machine has no type for
  scope().bindings.emplace(symbol->getId(), constant);
  describe(*symbol, constant);
  return true;
}

// What an assignment reads of its own left side, it reads after the effects of the right side.
void FunctionGenerator::assign(const TIntermBinary& node, bool wantsValue) {
  if (!wantsValue && bindConstant(node)) return;
  Target destination = target(*node.getLeft());
  // What the indices write, they write before the right side runs. The others are evaluated by the
  // store; where the target is used a second time, that must not run or fail anew.
  fixIndices(destination, Fix::Writing);
  if (node.getOp() == glslang::EOpAssign) {
    value(*node.getRight());
    if (wantsValue) fixIndices(destination, Fix::Costly);
  } else {
    const TIntermTyped* sides[] = {node.getLeft(), node.getRight()};
    const Hoisted hoisted = hoistEffects(sides, true);
    fixIndices(destination, Fix::Costly);
    const Operand current{shapeOf(*node.getLeft()), nullptr, [&] { loadTarget(destination); }};
    arithmetic(node.getOp(), current, operand(*node.getRight()), node.getLoc());
    forget(hoisted);
  }
  const bool isLocal = destination.path.empty() && destination.root.kind == Place::Kind::Local;
  if (wantsValue && isLocal && destination.root.type.isInline()) {
    return code_.emit(VM_OP_STORE_LOCAL_KEEP, {destination.root.index});
  }
  storeTarget(destination);
  if (wantsValue) loadTarget(destination);
  forgetIndices(destination);
}

void FunctionGenerator::increment(const TIntermUnary& node, bool wantsValue) {
  const TOperator op = node.getOp();
  const bool isUp = op == glslang::EOpPostIncrement || op == glslang::EOpPreIncrement;
  const bool isPost = op == glslang::EOpPostIncrement || op == glslang::EOpPostDecrement;
  const Shape shape = shapeOf(*node.getOperand());
  Target destination = target(*node.getOperand());
  fixIndices(destination, Fix::Costly);
  loadTarget(destination);
  if (wantsValue && isPost && shape.isOblong()) {
    // Two loads and no DUP: its twin would still name the block when the other one is consumed.
    const Place before = newLocal("before", floatType(shape));
    store(before);
    load(before);
    load(before);
  } else if (wantsValue && isPost) {
    code_.emit(VM_OP_DUP);
  }
  if (shape.isOblong()) {
    const Operand one{{Scalar::Float}, nullptr, [this] { code_.pushFloat(1); }};
    matrixArithmetic(isUp ? glslang::EOpAdd : glslang::EOpSub, {shape, nullptr, [] {}}, one,
                     node.getLoc());
  } else if (shape.isInteger()) {
    emitCounted(isUp ? VM_OP_INC_I : VM_OP_DEC_I, shape.components);
  } else {
    emitCounted(isUp ? VM_OP_INC_F : VM_OP_DEC_F, shape.components);
  }
  storeTarget(destination);
  if (wantsValue && !isPost) loadTarget(destination);
  forgetIndices(destination);
}

}  // namespace shadermachine::tools::glsl
