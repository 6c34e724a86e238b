// Calls of the source's functions and of the library's.
//
// Convention of a CALL: a slot for the result, then the arguments; afterwards the arguments still
// lie above the result, and output parameters are their slots' final values.
#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

constexpr size_t kMaxInlineDepth = 100;  // functions within functions

bool isOutput(const TIntermSymbol& parameter) { return parameter.getQualifier().isParamOutput(); }
bool isInput(const TIntermSymbol& parameter) { return parameter.getQualifier().isParamInput(); }

bool returnsValue(const FunctionInfo& info) {
  return info.definition->getBasicType() != glslang::EbtVoid;
}

bool leaves(const FunctionInfo& info) { return info.body != nullptr && alwaysLeaves(*info.body); }

const TIntermNode* lastStatement(const TIntermNode* node) {
  const TIntermAggregate* block = node != nullptr ? node->getAsAggregate() : nullptr;
  if (block == nullptr || block->getSequence().empty()) return node;
  if (block->getOp() != glslang::EOpSequence && block->getOp() != glslang::EOpScope) return node;
  return lastStatement(block->getSequence().back());
}

bool mentions(const TIntermNode& tree, SymbolId id) {
  bool found = false;
  visitTree(tree, [&](const TIntermNode& node) {
    const TIntermSymbol* symbol = node.getAsSymbolNode();
    found = found || (symbol != nullptr && symbol->getId() == id);
  });
  return found;
}

}  // namespace

void FunctionGenerator::userCall(const TIntermAggregate& node) {
  const std::string name = node.getName().c_str();
  const FunctionInfo* info = scope().program->findFunction(name);
  if (info == nullptr) {
    if (oldTextureCall(node)) return;
    throw Unsupported(node.getLoc(),
                      "function " + name.substr(0, name.find('(')) + "() has no body");
  }
  std::vector<Operand> arguments;
  for (const TIntermNode* child : children(node))
    arguments.push_back(operand(*child->getAsTyped()));
  call(*info, arguments);
}

void FunctionGenerator::call(const FunctionInfo& info, std::span<const Operand> arguments) {
  const bool isShallow = scopes_.size() <= kMaxInlineDepth && depth_ <= kMaxTreeDepth;
  if (isShallow && module_.shouldInline(info)) return inlineCall(info, arguments);
  callFunction(info, arguments);
}

void FunctionGenerator::callLibrary(const std::string& name, std::span<const Operand> arguments,
                                    const TSourceLoc& where) {
  std::vector<Shape> shapes;
  for (const Operand& argument : arguments) shapes.push_back(argument.shape);
  call(module_.libraryFunction(name, shapes, where), arguments);
}

std::vector<std::optional<Target>> FunctionGenerator::outputTargets(
    const FunctionInfo& info, std::span<const Operand> arguments) {
  std::vector<std::optional<Target>> targets(arguments.size());
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (!isOutput(*info.parameters[i])) continue;
    targets[i] = target(*arguments[i].node);
    fixIndices(*targets[i], Fix::All);
  }
  return targets;
}

void FunctionGenerator::callFunction(const FunctionInfo& info, std::span<const Operand> arguments) {
  const std::vector<std::optional<Target>> targets = outputTargets(info, arguments);
  if (returnsValue(info)) code_.emit(VM_OP_PUSH_EMPTY);
  for (size_t i = 0; i < arguments.size(); ++i) passArgument(info, i, arguments[i]);
  code_.call(module_.functionId(info));
  dropArguments(info, targets);
}

// A callee must not see its argument change, nor change the caller's variable: loading a variable
// only shares its block.
void FunctionGenerator::passArgument(const FunctionInfo& info, size_t index,
                                     const Operand& argument) {
  const TIntermSymbol& parameter = *info.parameters[index];
  const ValueType type = module_.types().valueType(parameter.getType(), parameter.getLoc());
  if (!isInput(parameter) && type.isInline() && basicTypeSize(type.code) <= 16) {
    return code_.emit(VM_OP_PUSH_ZERO4);
  }
  argument.emit();
  if (type.isInline() || argument.node == nullptr) return;
  const TIntermSymbol* root = rootSymbol(*argument.node);
  const bool isShared = info.written.contains(parameter.getId()) ||
                        (root != nullptr && info.written.contains(root->getId()));
  if (isShared) code_.emit(VM_OP_MAKE_UNIQUE);
}

void FunctionGenerator::dropArguments(const FunctionInfo& info,
                                      const std::vector<std::optional<Target>>& targets) {
  unsigned pending = 0;
  const auto flush = [&] {
    if (pending == 1) code_.emit(VM_OP_POP);
    if (pending > 1) emitCounted(VM_OP_POP_N, pending);
    pending = 0;
  };
  for (size_t i = info.parameters.size(); i-- > 0;) {
    const TIntermSymbol& parameter = *info.parameters[i];
    const bool isInline =
        module_.types().valueType(parameter.getType(), parameter.getLoc()).isInline();
    if (!targets[i] && isInline) {
      ++pending;
      continue;
    }
    flush();
    if (targets[i]) {
      storeTarget(*targets[i]);
      forgetIndices(*targets[i]);
    } else {
      code_.emit(VM_OP_POP_RELEASE);
    }
  }
  flush();
}

void FunctionGenerator::inlineCall(const FunctionInfo& info, std::span<const Operand> arguments) {
  const uint32_t start = code_.size();
  Scope inner;
  inner.program = info.owner;
  inner.function = &info;
  std::vector<std::optional<Place>> outputs(arguments.size());
  std::vector<std::optional<Target>> targets(arguments.size());
  for (size_t i = 0; i < arguments.size(); ++i) {
    const SymbolId parameter = info.parameters[i]->getId();
    if (const std::optional<Binding> alias = aliasFor(info, i, arguments)) {
      inner.bindings.emplace(parameter, *alias);
      continue;
    }
    if (isOutput(*info.parameters[i])) {
      targets[i] = target(*arguments[i].node);
      fixIndices(*targets[i], Fix::All);
    }
    const Place place = passInline(info, i, arguments[i]);
    inner.bindings.emplace(parameter, place);
    inner.owned.push_back(place);
    outputs[i] = place;
  }
  inner.returnTarget = code_.newLabel();
  inner.lastStatement = lastStatement(info.body);
  scopes_.push_back(std::move(inner));
  for (const TIntermSymbol* parameter : info.parameters) {
    if (const Binding* binding = findBinding(*parameter)) describe(*parameter, *binding);
  }
  zeroReadFirst(info);
  finishBody(info);
  code_.bind(*scope().returnTarget);
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (!targets[i]) continue;
    load(*outputs[i]);
    storeTarget(*targets[i]);
    forgetIndices(*targets[i]);
  }
  leaveScope();
  module_.noteInlined(code_.size() - start);
}

Place FunctionGenerator::passInline(const FunctionInfo& info, size_t index,
                                    const Operand& argument) {
  const TIntermSymbol& parameter = *info.parameters[index];
  const ValueType type = module_.types().valueType(parameter.getType(), parameter.getLoc());
  if (isInput(parameter) || !type.isInline()) argument.emit();
  const Place place = takeLocal(parameter.getName().c_str(), type);
  if (isInput(parameter) || !type.isInline()) store(place);
  return place;
}

// What a parameter can stand for without a copy: a constant, or a variable that does not change
// while the body runs. Output parameters may write straight into a local that is named only once.
std::optional<FunctionGenerator::Binding> FunctionGenerator::aliasFor(
    const FunctionInfo& info, size_t index, std::span<const Operand> arguments) {
  const TIntermSymbol& parameter = *info.parameters[index];
  if (arguments[index].node == nullptr) return std::nullopt;
  const TIntermTyped& node = *arguments[index].node;
  const bool isChanged = isOutput(parameter) || info.written.contains(parameter.getId());
  const TIntermConstantUnion* constant = asConstant(node);
  if (constant != nullptr && !isChanged) return constant;
  const TIntermSymbol* symbol = node.getAsSymbolNode();
  if (symbol == nullptr || (isChanged && !isOutput(parameter))) return std::nullopt;
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (i == index || arguments[i].node == nullptr) continue;
    const bool interferes =
        isOutput(parameter) || isOutput(*info.parameters[i]) || writesVariables(*arguments[i].node);
    if (interferes && mentions(*arguments[i].node, symbol->getId())) return std::nullopt;
  }
  if (asConstant(node) != nullptr) return std::nullopt;
  const Place place = symbolPlace(*symbol);
  const bool isOwnLocal = place.kind == Place::Kind::Local;
  if (!isOwnLocal && (isOutput(parameter) || !place.isReadOnly)) return std::nullopt;
  return place;
}

void FunctionGenerator::zeroReadFirst(const FunctionInfo& info) {
  for (const TIntermSymbol* symbol : info.readFirst) {
    const ValueType type = valueType(*symbol);
    if (!type.isInline() || type.code >= VM_TYPE_SAMPLER_0 || module_.isGlobal(*symbol)) continue;
    pushZero(type);
    store(symbolPlace(*symbol));
  }
}

void FunctionGenerator::generateBody(const FunctionInfo& info) {
  if (info.body != nullptr) statement(*info.body);
}

// The body, and a value where control falls off its end without one.
void FunctionGenerator::finishBody(const FunctionInfo& info) {
  if (info.body != nullptr) statement(*info.body);
  if (returnsValue(info) && !leaves(info)) {
    pushZero(module_.types().valueType(info.definition->getType(), info.definition->getLoc()));
  }
}

void FunctionGenerator::generate(const FunctionInfo& info) {
  scope().program = info.owner;
  scope().function = &info;
  if (isSource()) code_.source().signature = signatureOf(info);
  for (const TIntermSymbol* parameter : info.parameters) {
    const ValueType type = module_.types().valueType(parameter->getType(), parameter->getLoc());
    const LocalId local = code_.addParam({parameter->getName().c_str(), type.code, type.count});
    const Place place{Place::Kind::Local, local.index, type};
    scope().bindings.emplace(parameter->getId(), place);
    describe(*parameter, place);
  }
  finishBody(info);
  if (leaves(info)) return;
  code_.emit(returnsValue(info) ? VM_OP_RETURN_VALUE : VM_OP_RETURN);
}

void FunctionGenerator::pushZero(const ValueType& type) {
  const bool isSmall = type.isInline() && basicTypeSize(type.code) <= 16;
  if (isSmall) return code_.emit(VM_OP_PUSH_ZERO4);
  code_.load(module_.zero(type));
}

Place FunctionGenerator::takeLocal(const std::string& name, const ValueType& type) {
  std::vector<Place>& free = freeLocals_[type];
  if (free.empty()) {
    return {Place::Kind::Local, code_.addLocal({name, type.code, type.count}).index, type};
  }
  const Place place = free.back();
  free.pop_back();
  return place;
}

Place FunctionGenerator::newLocal(const std::string& name, const ValueType& type) {
  const Place place = takeLocal(name, type);
  scope().owned.push_back(place);
  return place;
}

void FunctionGenerator::leaveScope() {
  for (const OpenVariable& open : scope().open) {
    code_.source().variables[open.index].end = code_.size();
  }
  for (const Place& place : scope().owned) freeLocals_[place.type].push_back(place);
  scopes_.pop_back();
}

const FunctionGenerator::Binding* FunctionGenerator::findBinding(
    const TIntermSymbol& symbol) const {
  const auto found = scopes_.back().bindings.find(symbol.getId());
  return found != scopes_.back().bindings.end() ? &found->second : nullptr;
}

Place FunctionGenerator::symbolPlace(const TIntermSymbol& symbol) {
  if (const Binding* binding = findBinding(symbol)) return std::get<Place>(*binding);
  if (module_.isGlobal(symbol)) return module_.global(symbol);
  const Place place = newLocal(symbol.getName().c_str(), valueType(symbol));
  scope().bindings.emplace(symbol.getId(), place);
  describe(symbol, place);
  return place;
}

}  // namespace shadermachine::tools::glsl
