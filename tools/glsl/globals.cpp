// Global variables: host variables and built-in ones (copied once per run where they are used more
// than once), outputs, and the source's own.
#include <shadermachine-tools/host_contract.h>

#include <algorithm>
#include <bit>

#include "function_generator.h"

namespace shadermachine::tools::glsl {
namespace {

using glslang::TStorageQualifier;

constexpr uint32_t kOne = std::bit_cast<uint32_t>(1.0f);
constexpr uint32_t kMinusOne = std::bit_cast<uint32_t>(-1.0f);
constexpr uint32_t kHalf = std::bit_cast<uint32_t>(0.5f);

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

// Its members are variables of their own; an array of blocks is a variable like others.
bool isBlock(const TIntermSymbol& symbol) {
  return symbol.getBasicType() == glslang::EbtBlock && !symbol.isArray();
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

// What a location counts for; the second colour of a blending is none of the picture's.
bool isColour(const TIntermSymbol& symbol) {
  const glslang::TQualifier& qualifier = symbol.getQualifier();
  const bool isSecond = qualifier.hasIndex() && qualifier.layoutIndex > 0;
  return isOutput(qualifier.storage) && !isSecond && qualifier.builtIn != glslang::EbvSampleMask &&
         qualifier.builtIn != glslang::EbvFragStencilRef;
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
  const bool isWhole = member < 0 || isOutputArray(symbol);
  const TType& type = isWhole ? symbol.getType()
                              : *(*symbol.getType().getStruct())[static_cast<size_t>(member)].type;
  const Global& declared = globals_[key] = declareGlobal(symbol, member, type);
  const bool isMember = member >= 0 && !isOutputArray(symbol);
  describe(isMember ? type.getFieldName().c_str() : symbol.getName().c_str(), type, declared.place);
  return declared.place;
}

Module::Global Module::declareGlobal(const TIntermSymbol& symbol, int member, const TType& type) {
  const TStorageQualifier storage = symbol.getQualifier().storage;
  if (const std::optional<uint16_t> id = builtinId(symbol)) {
    const ValueType value = types_->valueType(type, symbol.getLoc());
    const Place place = {Place::Kind::Builtin, *id, value, false};
    if (*id == kFragmentPosition && program_.movesOrigin()) {
      originSize_ = program_.hasUpperOrigin() ? std::optional(pictureSize()) : std::nullopt;
      return {addPlain("moved gl_FragCoord", value), place};
    }
    return withCopy(symbol, place, symbol.getName().c_str());
  }
  if (isOutput(storage)) return {declareOutput(symbol, member), std::nullopt};
  const std::string name = member < 0 ? symbol.getName().c_str() : type.getFieldName().c_str();
  const ValueType value = types_->valueType(type, symbol.getLoc());
  if (storage == glslang::EvqBuffer || storage == glslang::EvqShared) {
    throw Unsupported(symbol.getLoc(), "storage buffers are not supported");
  }
  if (!isHostVariable(storage)) return {addPlain(name, value), std::nullopt};
  if (isBlock(symbol) && member < 0) {
    throw Unsupported(symbol.getLoc(), "uniform blocks are supported by member only");
  }
  const GlobalId host = builder_->addGlobal({name, value.code, value.count, VM_VAR_HOST_0});
  noteUniformValue(symbol);
  if (storage == glslang::EvqVaryingIn) varyings_.push_back(name);
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

// The size of the picture, which the host names as for shaders with mainImage().
Place Module::pictureSize() {
  for (const TIntermSymbol* symbol : program_.uniforms()) {
    if (symbol->getName() == "iResolution") return global(*symbol);
  }
  const GlobalId size = builder_->addGlobal({"iResolution", VM_TYPE_VEC3, 0, VM_VAR_HOST_0});
  return {Place::Kind::Global, size.index, {VM_TYPE_VEC3, 0}, true};
}

// The fragment's position is on the stack, counted from the bottom left.
void Module::moveOrigin(FunctionGenerator& generator) {
  FunctionBuilder& code = generator.code();
  if (originSize_) {
    code.load(constant(TType(), {VM_TYPE_VEC4, 0}, {kOne, kMinusOne, kOne, kOne}));
    code.emit(VM_OP_MUL_F, {4});
    code.pushFloat(0);
    generator.load(*originSize_);
    code.swizzle("y");
    code.emit(VM_OP_PUSH_ZERO4);
    code.emit(VM_OP_CTOR_VEC4_A, {1, 1, 2});
    code.emit(VM_OP_ADD_F, {4});
  }
  if (!program_.countsFromCorners()) return;
  code.load(constant(TType(), {VM_TYPE_VEC4, 0}, {kHalf, kHalf, 0, 0}));
  code.emit(VM_OP_SUB_F, {4});
}

Place Module::addPlain(const std::string& name, const ValueType& type) {
  const GlobalId id = builder_->addGlobal({name, type.code, type.count});
  return {Place::Kind::Global, id.index, type, false};
}

// Colour outputs are numbered by location: the lowest that is used, or the one that was asked for,
// is the record's first output. The others are globals that a host may look at after the run.
Place Module::declareOutput(const TIntermSymbol& symbol, int element) {
  std::string name = symbol.getName().c_str();
  if (isDepth(symbol)) {
    const Place depth = addPlain(name, {VM_TYPE_FLOAT, 0});
    builder_->record().outputGlobal1 = depth.index;
    return depth;
  }
  const TType& whole = symbol.getType();
  if (whole.isArray() && element < 0) {
    throw Unsupported(symbol.getLoc(), "of output " + name + " only elements can be used");
  }
  const ValueType type = whole.isArray() ? types_->valueType(TType(whole, 0), symbol.getLoc())
                                         : types_->valueType(whole, symbol.getLoc());
  const bool isVector = type.isInline() && type.code <= VM_TYPE_IVEC4;
  if (!isVector || shapeOf(whole).scalar == Scalar::Bool) {
    throw Unsupported(symbol.getLoc(), "output " + name + " is no number or vector");
  }
  if (element >= 0) name += "[" + std::to_string(element) + "]";
  const Place colour = addPlain(name, type);
  const auto number = outputs_.find({symbol.getId(), element});
  if (number != outputs_.end() && number->second == firstOutput_) {
    builder_->record().outputGlobal0 = colour.index;
  }
  return colour;
}

bool Module::isDepth(const TIntermSymbol& symbol) {
  return symbol.getQualifier().storage == glslang::EvqFragDepth ||
         symbol.getName().rfind("gl_FragDepth", 0) == 0;
}

bool Module::isOutputArray(const TIntermSymbol& symbol) {
  return isOutput(symbol.getQualifier().storage) && symbol.isArray();
}

// Locations of outputs without one are those that are free, in the order of their declaration.
void Module::numberOutputs() {
  std::map<SymbolId, unsigned> bases;
  unsigned next = 0;
  for (const TIntermSymbol* symbol : program_.outputs()) {
    const glslang::TQualifier& qualifier = symbol->getQualifier();
    const unsigned base = qualifier.hasLocation() ? qualifier.layoutLocation : next;
    bases[symbol->getId()] = base;
    if (isColour(*symbol) && !isDepth(*symbol))
      next = base + (symbol->isArray() ? arrayLength(symbol->getType()) : 1);
  }
  forEachUsedTree([&](const TIntermNode& node) {
    const TIntermBinary* binary = node.getAsBinaryNode();
    const TIntermSymbol* symbol =
        binary != nullptr ? binary->getLeft()->getAsSymbolNode() : node.getAsSymbolNode();
    if (symbol == nullptr || !isColour(*symbol) || isDepth(*symbol)) return;
    const unsigned base = bases[symbol->getId()];
    if (!symbol->isArray()) {
      outputs_[{symbol->getId(), -1}] = base;
    } else if (binary != nullptr && binary->getOp() == glslang::EOpIndexDirect) {
      const int element = binary->getRight()->getAsConstantUnion()->getConstArray()[0].getIConst();
      outputs_[{symbol->getId(), element}] = base + static_cast<unsigned>(element);
    }
  });
  for (const auto& [key, location] : outputs_) {
    firstOutput_ = std::min(firstOutput_.value_or(location), location);
  }
  if (!options_.output) return;
  firstOutput_ = options_.output;
  if (std::ranges::none_of(outputs_, [&](const auto& o) { return o.second == *options_.output; })) {
    throw Unsupported(TSourceLoc(),
                      "nothing is written to output " + std::to_string(*options_.output));
  }
}

// Every node of the code that can run.
void Module::forEachUsedTree(const std::function<void(const TIntermNode&)>& visit) const {
  for (const TIntermNode* initializer : program_.initializers()) visitTree(*initializer, visit);
  for (const FunctionInfo* info : program_.reachable(kMainFunction)) {
    if (info->body != nullptr) visitTree(*info->body, visit);
  }
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
  forEachUsedTree([this](const TIntermNode& node) {
    const TIntermBinary* binary = node.getAsBinaryNode();
    const TIntermSymbol* base = binary != nullptr ? binary->getLeft()->getAsSymbolNode() : nullptr;
    const TIntermConstantUnion* part =
        base != nullptr ? binary->getRight()->getAsConstantUnion() : nullptr;
    const bool isPart =
        part != nullptr &&
        (isBlock(*base) ? binary->getOp() == glslang::EOpIndexDirectStruct : isOutputArray(*base));
    if (isPart) global(*base, part->getConstArray()[0].getIConst());
    const TIntermSymbol* symbol = node.getAsSymbolNode();
    if (symbol == nullptr || !isGlobal(*symbol) || constantValue(*symbol) != nullptr) return;
    const bool hasParts = isBlock(*symbol) || isOutputArray(*symbol);
    if (!hasParts && isUsed(symbol->getId())) global(*symbol);
  });
}

// Sets what a run must not take over from the run before it: copies of host values, and the
// source's globals and outputs unless main() sets them before anything reads them.
void Module::generatePrologue(FunctionGenerator& generator) {
  // Numbers first: an output is declared as the record's first by its location.
  numberOutputs();
  declareGlobals();
  const auto isMoved = [this](const Global& global) {
    return global.host && global.host->kind == Place::Kind::Builtin &&
           global.host->index == kFragmentPosition && program_.movesOrigin();
  };
  const FunctionInfo& main = program_.function(kMainFunction);
  for (const auto& [key, global] : globals_) {
    const bool isWritten = main.written.contains(key.symbol) && !initialized_.contains(key.symbol);
    if (global.host && !isMoved(global)) {
      generator.load(*global.host);
      generator.store(global.place);
    } else if (!global.host && isWritten && !isFirstWritten(key.symbol)) {
      generator.pushZero(global.place.type);
      generator.store(global.place);
    }
  }
  // Only now: the height that it is counted from may be one of the copies.
  for (const auto& [key, global] : globals_) {
    if (!isMoved(global)) continue;
    generator.load(*global.host);
    moveOrigin(generator);
    generator.store(global.place);
  }
  // Last: initial values may read what has been set until here.
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
