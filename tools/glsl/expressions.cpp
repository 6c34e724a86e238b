// Values: variables, constants, parts of values, choices.
#include <algorithm>
#include <bit>

#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

constexpr unsigned kMaxImmediateIndex = 255;

bool isBlockMember(const TIntermBinary& node) {
  return node.getOp() == glslang::EOpIndexDirectStruct &&
         node.getLeft()->getBasicType() == glslang::EbtBlock &&
         node.getLeft()->getAsSymbolNode() != nullptr;
}

// The one scalar argument of a vector constructor.
const TIntermTyped* splatArgument(const TIntermTyped& node) {
  const TIntermAggregate* constructor = node.getAsAggregate();
  if (constructor == nullptr || !constructor->isConstructor() || node.isArray() ||
      node.isMatrix() || constructor->getSequence().size() != 1) {
    return nullptr;
  }
  const TIntermTyped* argument = constructor->getSequence()[0]->getAsTyped();
  const bool sameScalar = shapeOf(*argument).scalar == shapeOf(node).scalar;
  return sameScalar && argument->getType().isScalar() ? argument : nullptr;
}

bool isArithmetic(TOperator op) {
  return op == glslang::EOpAdd || op == glslang::EOpSub || op == glslang::EOpMul ||
         op == glslang::EOpDiv;
}

// What is evaluated all together, in an order that the language leaves open; nothing for operators
// that have one, and for what is only written.
std::vector<const TIntermTyped*> operandsOf(const TIntermTyped& node) {
  std::vector<const TIntermTyped*> operands;
  if (const TIntermBinary* binary = node.getAsBinaryNode()) {
    const bool isOrdered =
        isAssignment(binary->getOp()) || binary->getOp() == glslang::EOpLogicalAnd ||
        binary->getOp() == glslang::EOpLogicalOr || binary->getOp() == glslang::EOpComma;
    if (!isOrdered) operands = {binary->getLeft(), binary->getRight()};
  } else if (const TIntermAggregate* aggregate = node.getAsAggregate()) {
    if (aggregate->getOp() == glslang::EOpComma) return operands;
    for (size_t i = 0; i < aggregate->getSequence().size(); ++i) {
      if (isOutputArgument(*aggregate, i)) continue;
      operands.push_back(aggregate->getSequence()[i]->getAsTyped());
    }
  }
  return operands;
}

bool mentionsAny(const TIntermTyped& tree, const std::set<SymbolId>& variables) {
  return anyNode(tree, [&](const TIntermNode& node) {
    const TIntermSymbol* symbol = node.getAsSymbolNode();
    return symbol != nullptr && variables.contains(symbol->getId());
  });
}

}  // namespace

void FunctionGenerator::value(const TIntermTyped& node) {
  const At at(*this, node.getLoc());
  // First of all: what was evaluated beforehand must not run again.
  const auto fixed = fixedValues_.find(&node);
  if (fixed != fixedValues_.end()) return load(fixed->second);
  if (const TIntermSymbol* symbol = node.getAsSymbolNode()) return symbolValue(*symbol);
  if (const TIntermConstantUnion* constant = node.getAsConstantUnion()) {
    return constantValue(*constant);
  }
  if (const TIntermSelection* selection = node.getAsSelectionNode()) {
    return selectionValue(*selection);
  }
  if (const TIntermUnary* unary = node.getAsUnaryNode()) return unaryValue(*unary);
  // Before the operands are looked at: a constant has no effects that could need an order.
  if (const std::optional<float> number = constantFloat(node)) return code_.pushFloat(*number);
  if (const std::optional<int32_t> number = constantInt(node)) return code_.pushInt(*number);
  const std::vector<const TIntermTyped*> operands = operandsOf(node);
  const Hoisted hoisted = hoistEffects(operands, false);
  if (const TIntermBinary* binary = node.getAsBinaryNode()) {
    binaryValue(*binary);
  } else if (const TIntermAggregate* aggregate = node.getAsAggregate()) {
    aggregateValue(*aggregate);
  } else {
    throw Unsupported(node.getLoc(), "this expression is not supported");
  }
  forget(hoisted);
}

void FunctionGenerator::aggregateValue(const TIntermAggregate& node) {
  if (node.getOp() == glslang::EOpFunctionCall) return userCall(node);
  if (node.getOp() == glslang::EOpComma) return commaValue(node);
  if (node.isConstructor()) return construct(node.getType(), children(node), node.getLoc());
  builtinCall(node, typedChildren(node));
}

void FunctionGenerator::discardValue(const TIntermTyped& node) {
  const At at(*this, node.getLoc());
  if (const TIntermBinary* binary = node.getAsBinaryNode()) {
    if (isAssignment(binary->getOp())) return assign(*binary, false);
    if (binary->getOp() == glslang::EOpComma) {
      discardValue(*binary->getLeft());
      return discardValue(*binary->getRight());
    }
  }
  if (const TIntermUnary* unary = node.getAsUnaryNode()) {
    if (isIncrement(unary->getOp())) return increment(*unary, false);
  }
  if (const TIntermAggregate* aggregate = node.getAsAggregate()) {
    if (aggregate->getOp() == glslang::EOpComma) {
      for (const TIntermNode* child : children(*aggregate)) discardValue(*child->getAsTyped());
      return;
    }
  }
  if (!writesVariables(node)) return;
  value(node);
  if (node.getBasicType() != glslang::EbtVoid) popValue(node.getType(), node.getLoc());
}

void FunctionGenerator::commaValue(const TIntermAggregate& node) {
  const std::span<TIntermNode* const> parts = children(node);
  for (const TIntermNode* part : parts.first(parts.size() - 1)) discardValue(*part->getAsTyped());
  value(*parts.back()->getAsTyped());
}

void FunctionGenerator::popValue(const TType& type, const TSourceLoc& where) {
  const bool isInline = module_.types().valueType(type, where).isInline();
  code_.emit(isInline ? VM_OP_POP : VM_OP_POP_RELEASE);
}

void FunctionGenerator::load(const Place& place) {
  switch (place.kind) {
    case Place::Kind::Local:
      return code_.load(LocalId{place.index});
    case Place::Kind::Global:
      return code_.load(GlobalId{place.index});
    case Place::Kind::Builtin:
      return code_.emit(VM_OP_LOAD_BUILTIN, {place.index});
  }
}

void FunctionGenerator::store(const Place& place) {
  if (place.kind == Place::Kind::Local) return code_.store(LocalId{place.index});
  code_.store(GlobalId{place.index});
}

void FunctionGenerator::symbolValue(const TIntermSymbol& symbol) {
  if (const Binding* binding = findBinding(symbol)) {
    if (const auto* constant = std::get_if<const TIntermConstantUnion*>(binding)) {
      return constantValue(**constant);
    }
  } else if (const TIntermConstantUnion* constant = module_.constantValue(symbol)) {
    return constantValue(*constant);
  }
  load(symbolPlace(symbol));
}

void FunctionGenerator::constantValue(const TIntermConstantUnion& constant) {
  const std::vector<uint32_t> words = constantWords(constant);
  const ValueType type = valueType(constant);
  if (type.isInline() && words.size() == 1) {
    if (constant.getBasicType() == glslang::EbtFloat) {
      return code_.pushFloat(std::bit_cast<float>(words[0]));
    }
    return code_.pushInt(static_cast<int32_t>(words[0]));
  }
  const auto allAre = [&](uint32_t word) {
    return words.size() <= 4 && std::all_of(words.begin(), words.end(),
                                            [word](uint32_t other) { return other == word; });
  };
  if (type.isInline() && allAre(0)) return code_.emit(VM_OP_PUSH_ZERO4);
  if (type.isInline() && allAre(std::bit_cast<uint32_t>(1.0f))) {
    return code_.emit(VM_OP_PUSH_ONE4_F);
  }
  code_.load(module_.constant(constant.getType(), type, words));
}

void FunctionGenerator::indexValue(const TIntermBinary& node) {
  const TIntermTyped& base = *node.getLeft();
  if (hasElements(base.getType())) return arrayElement(node);
  if (loadComponent(node)) return;
  value(base);
  const Shape shape = shapeOf(base);
  const std::optional<int32_t> position = constantInt(*node.getRight());
  if (position && *position == 0) return;  // the first component or column is already in place
  if (position && shape.dimension == 0) {
    const auto component = static_cast<unsigned>(*position);
    return swizzle({&component, 1}, shape.components);
  }
  pushIndex(*node.getRight());
  if (shape.dimension > 0) return emitCounted(VM_OP_MAT_COLUMN, shape.dimension);
  emitCounted(VM_OP_VEC_ELEMENT, shape.components);
}

void FunctionGenerator::arrayElement(const TIntermBinary& node) {
  if (const std::optional<Place> output = outputElement(node)) return load(*output);
  const TIntermTyped& base = *node.getLeft();
  const TypeCode element = module_.types().elementCode(base.getType(), base.getLoc());
  value(base);
  pushIndex(*node.getRight());
  code_.emit(VM_OP_ARRAY_ELEMENT, {element});
  if (module_.types().isWrapped(base.getType())) code_.emit(VM_OP_STRUCT_FIELD, {element, 0});
}

std::optional<Place> FunctionGenerator::outputElement(const TIntermBinary& node) {
  const TIntermSymbol* base = node.getLeft()->getAsSymbolNode();
  if (base == nullptr || !module_.isOutputArray(*base)) return std::nullopt;
  const std::optional<int32_t> element = constantInt(*node.getRight());
  if (!element) throw Unsupported(node.getLoc(), "outputs are chosen by constant indices only");
  return module_.global(*base, *element);
}

void FunctionGenerator::pushIndex(const TIntermTyped& index) {
  const std::optional<int32_t> position = constantInt(index);
  if (position && static_cast<uint32_t>(*position) <= kMaxImmediateIndex) {
    return code_.emit(VM_OP_PUSH_INDEX_IMM, {*position});
  }
  value(index);
  code_.emit(VM_OP_PUSH_INDEX);
}

// A component of a local vector or matrix, when every index is known: one instruction.
bool FunctionGenerator::loadComponent(const TIntermTyped& node) {
  if (!node.getType().isScalar() || node.isArray()) return false;
  unsigned component = 0;
  const TIntermTyped* part = &node;
  while (const TIntermBinary* binary = part->getAsBinaryNode()) {
    const std::optional<int32_t> position = constantInt(*binary->getRight());
    if (binary->getOp() != glslang::EOpIndexDirect || !position) return false;
    const TIntermTyped& base = *binary->getLeft();
    if (hasElements(base.getType())) return false;
    const unsigned stride = base.isMatrix() ? shapeOf(base).dimension : 1;
    component += static_cast<unsigned>(*position) * stride;
    part = &base;
  }
  const TIntermSymbol* symbol = part->getAsSymbolNode();
  if (symbol == nullptr || module_.isGlobal(*symbol)) return false;
  const Binding* binding = findBinding(*symbol);
  if (binding != nullptr && std::holds_alternative<const TIntermConstantUnion*>(*binding)) {
    return false;
  }
  const Place place = symbolPlace(*symbol);
  if (place.kind != Place::Kind::Local) return false;
  code_.emit(VM_OP_LOAD_LOCAL_COMPONENT, {shapeOf(*symbol).components, component, place.index});
  return true;
}

void FunctionGenerator::memberValue(const TIntermBinary& node) {
  const int64_t member = *constantInt(*node.getRight());
  if (isBlockMember(node)) {
    return load(module_.global(*node.getLeft()->getAsSymbolNode(), static_cast<int>(member)));
  }
  value(*node.getLeft());
  code_.emit(VM_OP_STRUCT_FIELD, {valueType(*node.getLeft()).code, member});
}

void FunctionGenerator::swizzleValue(const TIntermBinary& node) {
  std::vector<unsigned> selectors;
  for (const TIntermNode* selector : children(*node.getRight()->getAsAggregate())) {
    const TIntermConstantUnion* constant = selector->getAsConstantUnion();
    selectors.push_back(static_cast<unsigned>(constant->getConstArray()[0].getIConst()));
  }
  value(*node.getLeft());
  swizzle(selectors, shapeOf(*node.getLeft()).components);
}

void FunctionGenerator::swizzle(std::span<const unsigned> selectors, unsigned sourceSize) {
  unsigned mask = 0;
  bool isPrefix = selectors.size() <= sourceSize;
  for (unsigned i = 0; i < selectors.size(); ++i) {
    mask |= selectors[i] << 2 * i;
    isPrefix = isPrefix && selectors[i] == i;
  }
  // Components beyond those in use do no harm.
  if (!isPrefix)
    code_.emit(VM_OP_SWIZZLE, {sourceSize, static_cast<int64_t>(selectors.size()), mask});
}

void FunctionGenerator::selectionValue(const TIntermSelection& node) {
  const TIntermTyped& whenTrue = *node.getTrueBlock()->getAsTyped();
  const TIntermTyped& whenFalse = *node.getFalseBlock()->getAsTyped();
  if (const std::optional<bool> known = constantCondition(*node.getCondition())) {
    return value(*known ? whenTrue : whenFalse);
  }
  const Label otherwise = code_.newLabel();
  const Label end = code_.newLabel();
  jumpIfFalse(*node.getCondition(), otherwise);
  value(whenTrue);
  code_.jump(end);
  code_.bind(otherwise);
  value(whenFalse);
  code_.bind(end);
}

Operand FunctionGenerator::operand(const TIntermTyped& node) {
  return {shapeOf(node), &node, [this, &node] { value(node); }};
}

// The language leaves open when the variables among several operands are read; drivers read them
// after the effects of all operands, and programs count on it.
FunctionGenerator::Hoisted FunctionGenerator::hoistEffects(
    std::span<const TIntermTyped* const> operands, bool firstIsTarget) {
  std::vector<const TIntermTyped*> writing;
  std::set<SymbolId> written;  // by the operands behind
  bool isNeeded = false;
  // From the last: what an operand reads matters only if one behind it writes that. All that they
  // write is in one set, since a list may be as long as the source likes.
  for (size_t i = operands.size(); i-- > 0;) {
    if (!(i == 0 && firstIsTarget) && writesVariables(*operands[i])) {
      writing.push_back(operands[i]);
      written.merge(scope().program->writtenBy(*operands[i]));
    } else {
      isNeeded = isNeeded || (!written.empty() && mentionsAny(*operands[i], written));
    }
  }
  std::reverse(writing.begin(), writing.end());
  Hoisted hoisted;
  // If one must be made beforehand, all that write are, in their order.
  for (const TIntermTyped* node : writing) {
    if (!isNeeded || node->getBasicType() == glslang::EbtVoid) continue;
    const Place place = newLocal("value", valueType(*node));
    value(*node);
    store(place);
    fixedValues_[node] = place;
    hoisted.push_back(node);
  }
  return hoisted;
}

void FunctionGenerator::forget(const Hoisted& hoisted) {
  for (const TIntermTyped* node : hoisted) fixedValues_.erase(node);
}

// The scalar that all components are made from, or the operand itself.
Operand FunctionGenerator::withoutSplat(const Operand& operand) {
  if (operand.node == nullptr || operand.shape.isScalar() || operand.shape.dimension > 0) {
    return operand;
  }
  const Shape scalar{operand.shape.scalar};
  if (const TIntermTyped* argument = splatArgument(*operand.node)) return this->operand(*argument);
  const TIntermConstantUnion* constant = asConstant(*operand.node);
  if (constant == nullptr || operand.shape.scalar != Scalar::Float) return operand;
  const std::vector<uint32_t> words = constantWords(*constant);
  const bool isSplat =
      std::all_of(words.begin(), words.end(), [&](uint32_t word) { return word == words[0]; });
  if (!isSplat) return operand;
  const float component = std::bit_cast<float>(words[0]);
  return {scalar, nullptr, [this, component] { code_.pushFloat(component); }};
}

const TIntermConstantUnion* FunctionGenerator::asConstant(const TIntermTyped& node) const {
  if (const TIntermConstantUnion* constant = node.getAsConstantUnion()) return constant;
  const TIntermSymbol* symbol = node.getAsSymbolNode();
  if (symbol == nullptr) return nullptr;
  if (const Binding* binding = findBinding(*symbol)) {
    const auto* constant = std::get_if<const TIntermConstantUnion*>(binding);
    return constant != nullptr ? *constant : nullptr;
  }
  return module_.constantValue(*symbol);
}

// Constants that stand for variables make constants of the operations on them, which glslang
// could not know.
std::optional<float> FunctionGenerator::constantFloat(const TIntermTyped& node) const {
  if (shapeOf(node) != Shape{Scalar::Float} || node.isArray()) return std::nullopt;
  if (const TIntermConstantUnion* constant = asConstant(node)) {
    return static_cast<float>(constant->getConstArray()[0].getDConst());
  }
  const TIntermBinary* binary = node.getAsBinaryNode();
  if (binary == nullptr || !isArithmetic(binary->getOp())) return std::nullopt;
  const std::optional<float> left = constantFloat(*binary->getLeft());
  const std::optional<float> right = left ? constantFloat(*binary->getRight()) : std::nullopt;
  if (!right) return std::nullopt;
  switch (binary->getOp()) {
    case glslang::EOpAdd:
      return *left + *right;
    case glslang::EOpSub:
      return *left - *right;
    case glslang::EOpMul:
      return *left * *right;
    default:
      // Left to the machine, whose answer a constant would have to repeat.
      return *right != 0 ? std::optional(*left / *right) : std::nullopt;
  }
}

std::optional<int32_t> FunctionGenerator::constantInt(const TIntermTyped& node) const {
  if (!shapeOf(node).isInteger() || !shapeOf(node).isScalar() || node.isArray()) {
    return std::nullopt;
  }
  if (const TIntermConstantUnion* constant = asConstant(node)) {
    return static_cast<int32_t>(constantWords(*constant)[0]);
  }
  const TIntermBinary* binary = node.getAsBinaryNode();
  if (binary == nullptr || !isArithmetic(binary->getOp())) return std::nullopt;
  const std::optional<int32_t> left = constantInt(*binary->getLeft());
  const std::optional<int32_t> right = left ? constantInt(*binary->getRight()) : std::nullopt;
  if (!right) return std::nullopt;
  // Without sign, since the machine's integers wrap around.
  const auto a = static_cast<uint32_t>(*left), b = static_cast<uint32_t>(*right);
  switch (binary->getOp()) {
    case glslang::EOpAdd:
      return static_cast<int32_t>(a + b);
    case glslang::EOpSub:
      return static_cast<int32_t>(a - b);
    case glslang::EOpMul:
      return static_cast<int32_t>(a * b);
    default:
      return std::nullopt;
  }
}

}  // namespace shadermachine::tools::glsl
