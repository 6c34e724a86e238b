#include "module.h"

#include <shadermachine-tools/validator.h>

#include <bit>
#include <stdexcept>

#include "function_generator.h"
#include "library.h"

namespace shadermachine::tools::glsl {
namespace {

constexpr unsigned kInlineSize = 60;        // nodes of a function that is worth repeating
constexpr unsigned kInlineOnceSize = 3000;  // and of one that is called in one place only
constexpr uint32_t kInlineBudget = 200000;  // bytes repeated in all, after which calls stay calls

constexpr uint32_t kMaxCodeSize = 1 << 20;  // what the validator takes

}  // namespace

Module::Module(const Program& program, Diagnostics& diagnostics, ModuleOptions options)
    : program_(program), diagnostics_(diagnostics), options_(std::move(options)) {}

std::optional<BuiltShader> Module::build() {
  try {
    start(false);
    analyse();
    generateFunctions();
    // Which there are, only the code tells, and the entry comes first in it: so all is made twice.
    if (!constants_.empty()) {
      // Now that there are hidden constants, the entry has to fill them.
      start(true);
      analyse();
      generateFunctions();
    }
  } catch (const Unsupported& error) {
    diagnostics_.add(error);
  } catch (const std::length_error& error) {  // the builder's: tables and lists have 16-bit counts
    diagnostics_.add(Unsupported(TSourceLoc(), error.what()));
  }
  if (!diagnostics_.empty()) return std::nullopt;
  BuiltShader shader = std::move(*builder_).build();
  if (shader.view().codeSize > kMaxCodeSize) {
    diagnostics_.add(Unsupported(TSourceLoc(), "the shader is too large"));
    return std::nullopt;
  }
  // A fault of this compiler must not reach a host as code.
  for (const Diagnostic& remark : validate(shader.view()).diagnostics) {
    if (remark.severity != Severity::Error) continue;
    isUnsound_ = true;
    diagnostics_.add(Unsupported(TSourceLoc(), "cannot be compiled soundly: " + toString(remark)));
    return std::nullopt;
  }
  return shader;
}

void Module::start(bool withConstants) {
  builder_ = std::make_unique<ShaderBuilder>();
  builder_->sources().files = options_.sources;
  types_ = std::make_unique<TypeTable>(*builder_);
  mentions_.clear();
  callCounts_.clear();
  globals_.clear();
  functionIds_.clear();
  pending_.clear();
  zeros_.clear();
  constantIndex_.clear();
  constants_.clear();
  uniformValues_.clear();
  varyings_.clear();
  outputs_.clear();
  firstOutput_.reset();
  originSize_.reset();
  inlinedBytes_ = 0;
  withConstants_ = withConstants;
}

void Module::analyse() {
  if (program_.findFunction(kMainFunction) == nullptr) {
    throw Unsupported(TSourceLoc(), "main() is missing");
  }
  for (const FunctionInfo* info : program_.reachable(kMainFunction)) {
    if (info->body != nullptr) countMentions(*info->body, info->name == kMainFunction ? 1 : 2);
  }
  for (const TIntermNode* initializer : program_.initializers()) countInitializer(*initializer);
  findConstantGlobals();
}

// Mentions inside loops and called functions weigh as if there were several.
void Module::countMentions(const TIntermNode& node, unsigned weight) {
  if (const TIntermSymbol* symbol = node.getAsSymbolNode()) {
    mentions_[symbol->getId()] += weight;
  } else if (isUserCall(node)) {
    ++callCounts_[node.getAsAggregate()->getName().c_str()];
  }
  const unsigned inner = node.getAsLoopNode() != nullptr ? 2 : weight;
  forEachChild(node, [&](const TIntermNode& child) { countMentions(child, inner); });
}

// The variable that is initialized is not mentioned by that.
void Module::countInitializer(const TIntermNode& node) {
  if (const TIntermBinary* assignment = node.getAsBinaryNode()) {
    countMentions(*assignment->getRight(), 1);
  } else {
    forEachChild(node, [this](const TIntermNode& child) { countInitializer(child); });
  }
}

bool Module::shouldInline(const FunctionInfo& info) const {
  if (inlinedBytes_ > kInlineBudget) return false;
  // Whoever debugs steps into functions of the source, so these stay functions.
  const bool isKept = options_.isForDebugging && info.owner == &program_;
  if (info.size <= kInlineSize) return !isKept;
  if (info.owner != &program_ || isKept) return false;
  const auto calls = callCounts_.find(info.name);
  return calls != callCounts_.end() && calls->second == 1 && info.size <= kInlineOnceSize;
}

FunctionId Module::functionId(const FunctionInfo& info) {
  const auto known = functionIds_.find(&info);
  if (known != functionIds_.end()) return known->second;
  const FunctionId id = builder_->addFunction(info.name.substr(0, info.name.find('('))).id();
  pending_.emplace_back(id, &info);
  return functionIds_[&info] = id;
}

const FunctionInfo& Module::libraryFunction(const std::string& name,
                                            const std::vector<Shape>& shapes,
                                            const TSourceLoc& where) {
  if (library_ == nullptr) {
    // Parsed where a shader needs it, which most do not.
    const std::vector<SourceFile> files = {{"library", kLibrarySource, false}};
    Diagnostics errors(files);
    library_ = Program::parse(kLibrarySource, {}, errors);
    if (library_ == nullptr) throw std::logic_error(toString(errors.take().front()));
    for (const auto& [mangled, info] : library_->functions()) {
      libraryFunctions_[libraryKey(info)] = &info;
    }
  }
  std::string key = name;
  for (const Shape& shape : shapes) key += " " + shapeName(shape);
  const auto found = libraryFunctions_.find(key);
  if (found == libraryFunctions_.end()) {
    throw Unsupported(where, diagnostics_.calledFunction(where, false) + " is not supported");
  }
  return *found->second;
}

std::string Module::libraryKey(const FunctionInfo& info) {
  std::string key = info.name.substr(0, info.name.find('('));
  for (const TIntermSymbol* parameter : info.parameters) {
    key += " " + shapeName(shapeOf(*parameter));
  }
  return key;
}

void Module::generateFunctions() {
  // The first function, which is what entryIndex says unless told otherwise.
  FunctionBuilder& entry = builder_->addFunction("main");
  if (withConstants_) {
    constantsReady_ = builder_->addGlobal({"constants ready", VM_TYPE_BOOL});
    fillConstants_ = builder_->addFunction("fill constants").id();
  }
  generateEntry(entry);
  // Bodies add to the list what they call, so by number.
  for (size_t i = 0; i < pending_.size(); ++i) {
    const auto [id, info] = pending_[i];
    FunctionGenerator(*this, builder_->function(id)).generate(*info);
  }
  if (withConstants_) generateConstants();
}

// The first run of a machine fills the constants; they stay for the next runs.
void Module::generateEntry(FunctionBuilder& entry) {
  FunctionGenerator generator(*this, entry);
  const FunctionInfo& info = program_.function(kMainFunction);
  entry.source().signature = signatureOf(info);
  // Filling stands behind the body, out of the way of all runs but the first.
  const Label fill = entry.newLabel();
  const Label ready = entry.newLabel();
  if (withConstants_) {
    entry.load(constantsReady_);
    entry.jumpIfFalse(fill);
    entry.bind(ready);
  }
  generatePrologue(generator);
  generator.generateBody(info);
  if (info.body == nullptr || !alwaysLeaves(*info.body)) entry.emit(VM_OP_RETURN);
  if (!withConstants_) return;
  entry.bind(fill);
  entry.call(fillConstants_);
  entry.jump(ready);
}

void Module::generateConstants() {
  FunctionBuilder& code = builder_->function(fillConstants_);
  for (const Constant& constant : constants_) {
    const uint32_t* words = constant.words.data();
    if (constant.type != nullptr) {
      pushConstant(code, *types_, *constant.type, 0, words);
    } else {
      pushWords(code, constant.value.code, words);
    }
    code.store(constant.global);
  }
  code.pushInt(1);
  code.store(constantsReady_);
  code.emit(VM_OP_RETURN);
}

GlobalId Module::zero(const ValueType& type) {
  const auto known = zeros_.find(type);
  if (known != zeros_.end()) return known->second;
  return zeros_[type] = builder_->addGlobal({"zero", type.code, type.count});
}

GlobalId Module::constant(const TType& type, const ValueType& value,
                          const std::vector<uint32_t>& words) {
  const auto key = std::make_pair(value, words);
  const auto known = constantIndex_.find(key);
  if (known != constantIndex_.end()) return constants_[known->second].global;
  const std::string name = "constant " + std::to_string(constants_.size());
  const GlobalId global = builder_->addGlobal({name, value.code, value.count});
  constantIndex_[key] = constants_.size();
  constants_.push_back({global, value, value.isInline() ? nullptr : &type, words});
  return global;
}

GlobalId Module::splat(float value, unsigned components) {
  TypeCode code = VM_TYPE_VEC2;
  for (const TypeCode candidate : {VM_TYPE_VEC3, VM_TYPE_VEC4, VM_TYPE_MAT3, VM_TYPE_MAT4}) {
    if (basicTypeSize(candidate) == components * sizeof(float)) code = candidate;
  }
  const std::vector<uint32_t> words(components, std::bit_cast<uint32_t>(value));
  return constant(TType(), {code, 0}, words);
}

}  // namespace shadermachine::tools::glsl
