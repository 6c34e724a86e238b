// Global variables: host variables and built-in ones (copied once per run where they are used more
// than once), outputs, and the source's own.
#include <shadermachine-tools/host_contract.h>

#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

using glslang::TStorageQualifier;

std::optional<uint16_t> builtinId(const TIntermSymbol& symbol) {
  switch (symbol.getQualifier().storage) {
    case glslang::EvqFragCoord:
      return kFragmentPosition;
    case glslang::EvqFace:
      return kFrontFacing;
    case glslang::EvqPointCoord:
      return kPointPosition;
    default:
      return std::nullopt;
  }
}

bool isOutput(TStorageQualifier storage) {
  return storage == glslang::EvqVaryingOut || storage == glslang::EvqFragColor ||
         storage == glslang::EvqFragDepth;
}

bool isHostVariable(TStorageQualifier storage) {
  return storage == glslang::EvqUniform || storage == glslang::EvqVaryingIn;
}

double numberOf(const glslang::TConstUnion& value) {
  switch (value.getType()) {
    case glslang::EbtBool:
      return value.getBConst() ? 1 : 0;
    case glslang::EbtInt:
      return value.getIConst();
    case glslang::EbtUint:
      return value.getUConst();
    default:
      return value.getDConst();
  }
}

// The variable and constant of a global's initialization, when it is no more than that.
const TIntermBinary* initialization(const TIntermNode& node) {
  const TIntermBinary* assignment = node.getAsBinaryNode();
  return assignment != nullptr && assignment->getOp() == glslang::EOpAssign ? assignment : nullptr;
}

bool hasReturn(const TIntermNode& tree) {
  bool found = false;
  visitTree(tree, [&](const TIntermNode& node) {
    const TIntermBranch* branch = node.getAsBranchNode();
    found = found || (branch != nullptr && branch->getFlowOp() == glslang::EOpReturn);
  });
  return found;
}

}  // namespace

bool Module::isGlobal(const TIntermSymbol& symbol) const {
  const TStorageQualifier storage = symbol.getQualifier().storage;
  if (storage == glslang::EvqConstReadOnly) return initialized_.contains(symbol.getId());
  return storage == glslang::EvqGlobal || isOutput(storage) || isHostVariable(storage) ||
         builtinId(symbol).has_value();
}

// Globals that nothing but a constant is ever assigned to stand for it.
void Module::findConstantGlobals() {
  const FunctionInfo& main = program_.function(kMainFunction);
  const bool isKept = options_.isForDebugging;
  for (const TIntermNode* initializer : program_.initializers()) {
    visitTree(*initializer, [&](const TIntermNode& node) {
      const TIntermBinary* assignment = initialization(node);
      if (assignment == nullptr || assignment->getLeft()->getAsSymbolNode() == nullptr) return;
      const SymbolId id = assignment->getLeft()->getAsSymbolNode()->getId();
      initialized_.insert(id);
      const TIntermConstantUnion* constant = assignment->getRight()->getAsConstantUnion();
      if (constant == nullptr || isKept || main.written.contains(id)) return;
      constantValues_[id] = constant;
      describe(assignment->getLeft()->getAsSymbolNode()->getName().c_str(), *constant);
    });
  }
}

const TIntermConstantUnion* Module::constantValue(const TIntermSymbol& symbol) const {
  if (!isGlobal(symbol)) return nullptr;
  const auto found = constantValues_.find(symbol.getId());
  return found != constantValues_.end() ? found->second : nullptr;
}

Place Module::global(const TIntermSymbol& symbol, int member) {
  const GlobalKey key{symbol.getId(), member};
  const auto known = globals_.find(key);
  if (known != globals_.end()) return known->second.place;
  const TType& type = member < 0
                          ? symbol.getType()
                          : *(*symbol.getType().getStruct())[static_cast<size_t>(member)].type;
  const Global& declared = globals_[key] = declareGlobal(symbol, member, type);
  const std::string name = member < 0 ? symbol.getName().c_str() : type.getFieldName().c_str();
  describe(name, type, declared.place);
  return declared.place;
}

Module::Global Module::declareGlobal(const TIntermSymbol& symbol, int member, const TType& type) {
  const std::string name = member < 0 ? symbol.getName().c_str() : type.getFieldName().c_str();
  const TStorageQualifier storage = symbol.getQualifier().storage;
  if (const std::optional<uint16_t> id = builtinId(symbol)) {
    const ValueType value = types_->valueType(type, symbol.getLoc());
    return withCopy(symbol, {Place::Kind::Builtin, *id, value, false}, name);
  }
  if (isOutput(storage)) return {declareOutput(symbol), std::nullopt};
  const ValueType value = types_->valueType(type, symbol.getLoc());
  if (storage == glslang::EvqBuffer || storage == glslang::EvqShared) {
    throw Unsupported(symbol.getLoc(), "storage buffers are not supported");
  }
  if (!isHostVariable(storage)) return {addPlain(name, value), std::nullopt};
  if (symbol.getType().getBasicType() == glslang::EbtBlock && member < 0) {
    throw Unsupported(symbol.getLoc(), "uniform blocks are supported by member only");
  }
  const GlobalId host = builder_->addGlobal({name, value.code, value.count, VM_VAR_HOST_0});
  noteUniformValue(symbol);
  return withCopy(symbol, {Place::Kind::Global, host.index, value, false}, name);
}

void Module::noteUniformValue(const TIntermSymbol& symbol) {
  const glslang::TConstUnionArray& values = symbol.getConstArray();
  if (symbol.getQualifier().storage != glslang::EvqUniform || values.empty()) return;
  NamedValue initial{symbol.getName().c_str(), {}};
  for (int i = 0; i < values.size(); ++i) {
    const glslang::TConstUnion& component = values[static_cast<size_t>(i)];
    initial.components.push_back(numberOf(component));
  }
  uniformValues_.push_back(std::move(initial));
}

// Asking the host costs a call; what is read more than once is asked for once per run.
Module::Global Module::withCopy(const TIntermSymbol& symbol, const Place& host,
                                const std::string& name) {
  if (mentions_[symbol.getId()] <= 1 && !options_.isForDebugging) return {host, std::nullopt};
  Place copy = addPlain("copy of " + name, host.type);
  copy.isReadOnly = true;
  return {copy, host};
}

Place Module::addPlain(const std::string& name, const ValueType& type) {
  const GlobalId id = builder_->addGlobal({name, type.code, type.count});
  return {Place::Kind::Global, id.index, type, false};
}

Place Module::declareOutput(const TIntermSymbol& symbol) {
  const std::string name = symbol.getName().c_str();
  if (symbol.getQualifier().storage == glslang::EvqFragDepth || name.starts_with("gl_FragDepth")) {
    const Place depth = addPlain(name, {VM_TYPE_FLOAT, 0});
    builder_->record().outputGlobal1 = depth.index;
    return depth;
  }
  ValueType type{VM_TYPE_VEC4, 0};
  if (name != "gl_FragData") type = types_->valueType(symbol.getType(), symbol.getLoc());
  if (!type.isInline() || type.code < VM_TYPE_FLOAT || type.code > VM_TYPE_VEC4) {
    throw Unsupported(symbol.getLoc(), "output " + name + " is not of a float type");
  }
  if (hasColour_) {
    throw Unsupported(symbol.getLoc(), "output " + name + ": a shader has one colour output");
  }
  hasColour_ = true;
  const Place colour = addPlain(name, type);
  builder_->record().outputGlobal0 = colour.index;
  return colour;
}

std::vector<std::string> Module::unusedUniforms() const {
  std::vector<std::string> names;
  for (const TIntermSymbol* symbol : program_.uniforms()) {
    if (!isUsed(symbol->getId())) names.emplace_back(symbol->getName().c_str());
  }
  return names;
}

// Whether code mentions the global, apart from its own initialization.
bool Module::isUsed(SymbolId id) const { return mentions_.contains(id); }

// Declares every global that is mentioned, so that the beginning of the run can set it.
void Module::declareGlobals() {
  const auto declare = [this](const TIntermNode& tree) {
    visitTree(tree, [this](const TIntermNode& node) {
      const TIntermBinary* binary = node.getAsBinaryNode();
      if (binary != nullptr && binary->getOp() == glslang::EOpIndexDirectStruct) {
        const TIntermSymbol* block = binary->getLeft()->getAsSymbolNode();
        if (block != nullptr && block->getBasicType() == glslang::EbtBlock) {
          const TIntermConstantUnion* member = binary->getRight()->getAsConstantUnion();
          global(*block, member->getConstArray()[0].getIConst());
        }
      }
      const TIntermSymbol* symbol = node.getAsSymbolNode();
      if (symbol == nullptr || !isGlobal(*symbol) || constantValue(*symbol) != nullptr) return;
      const bool isBlock = symbol->getBasicType() == glslang::EbtBlock;
      if (!isBlock && isUsed(symbol->getId())) global(*symbol);
    });
  };
  for (const TIntermNode* initializer : program_.initializers()) declare(*initializer);
  for (const FunctionInfo* info : program_.reachable(kMainFunction)) {
    if (info->body != nullptr) declare(*info->body);
  }
}

// Sets what a run must not take over from the run before it: copies of host values, and the
// source's globals and outputs unless main() sets them before anything reads them.
void Module::generatePrologue(FunctionGenerator& generator) {
  declareGlobals();
  const FunctionInfo& main = program_.function(kMainFunction);
  for (const auto& [key, global] : globals_) {
    const bool isWritten = main.written.contains(key.symbol) && !initialized_.contains(key.symbol);
    if (global.host) {
      generator.load(*global.host);
      generator.store(global.place);
    } else if (isWritten && !isFirstWritten(key.symbol)) {
      generator.pushZero(global.place.type);
      generator.store(global.place);
    }
  }
  for (const TIntermNode* initializer : program_.initializers()) {
    generateInitializer(generator, *initializer);
  }
}

void Module::generateInitializer(FunctionGenerator& generator, const TIntermNode& node) {
  if (const TIntermAggregate* several = node.getAsAggregate()) {
    for (const TIntermNode* child : children(*several)) generateInitializer(generator, *child);
    return;
  }
  const TIntermBinary* assignment = initialization(node);
  const TIntermSymbol* symbol =
      assignment != nullptr ? assignment->getLeft()->getAsSymbolNode() : nullptr;
  if (symbol == nullptr) return;
  if (isUsed(symbol->getId()) && constantValue(*symbol) == nullptr) generator.statement(node);
}

// Whether main() assigns the whole variable before anything can read it or the run can end.
bool Module::isFirstWritten(SymbolId id) const {
  const FunctionInfo& main = program_.function(kMainFunction);
  if (main.body == nullptr) return false;
  for (const TIntermNode* statement : children(*main.body)) {
    const TIntermBinary* assignment = initialization(*statement);
    const TIntermSymbol* left =
        assignment != nullptr ? assignment->getLeft()->getAsSymbolNode() : nullptr;
    const bool isItsAssignment = left != nullptr && left->getId() == id;
    const TIntermNode& reader = isItsAssignment ? *assignment->getRight() : *statement;
    if (mentionsInCalls(reader, id) || hasReturn(reader)) return false;
    if (isItsAssignment) return true;
  }
  return false;
}

bool Module::mentionsInCalls(const TIntermNode& tree, SymbolId id) const {
  bool found = false;
  visitTree(tree, [&](const TIntermNode& node) {
    if (const TIntermSymbol* symbol = node.getAsSymbolNode()) {
      found = found || symbol->getId() == id;
    } else if (isUserCall(node)) {
      const FunctionInfo* called = program_.findFunction(node.getAsAggregate()->getName().c_str());
      found = found || called == nullptr || called->mentioned.contains(id);
    }
  });
  return found;
}

}  // namespace shadermachine::tools::glsl
