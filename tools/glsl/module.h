// One shader under construction: its globals, constants and functions.
//
// Invariants: everything that start() clears belongs to the builder that it makes; places and ids
// of an earlier one mean nothing. Whether constants must be filled at run time is known only once
// all code has been made, so a shader that has some is made twice, and must become the same both
// times.
#pragma once

#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/shader_builder.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "program.h"
#include "types.h"

namespace shadermachine::tools::glsl {

class FunctionGenerator;

// A variable of the machine.
struct Place {
  enum class Kind { Local, Global, Builtin };
  Kind kind = Kind::Local;
  uint16_t index = 0;  // of a built-in variable: its id
  ValueType type;
  bool isReadOnly = false;
};

struct ModuleOptions {
  std::vector<SourceFile> sources;
  bool isForDebugging = false;
  // Location of the colour that is the record's first output; the lowest unless given.
  std::optional<unsigned> output = std::nullopt;
};

class Module {
 public:
  Module(const Program& program, Diagnostics& diagnostics, ModuleOptions options);

  // Generates everything. Empty when there were errors.
  std::optional<BuiltShader> build();
  std::vector<NamedValue> takeUniformValues() { return std::move(uniformValues_); }

  bool isUnsound() const { return isUnsound_; }
  const std::vector<std::string>& varyings() const { return varyings_; }
  // Uniforms that no code mentions.
  std::vector<std::string> unusedUniforms() const;

  ShaderBuilder& builder() { return *builder_; }
  TypeTable& types() { return *types_; }
  Diagnostics& diagnostics() { return diagnostics_; }
  const Program& program() const { return program_; }
  const ModuleOptions& options() const { return options_; }

  bool isGlobal(const TIntermSymbol& symbol) const;
  // Elements of these are globals of their own.
  static bool isOutputArray(const TIntermSymbol& symbol);
  // Where a global lives; `member` of a uniform block, or element of an array of outputs, else -1.
  Place global(const TIntermSymbol& symbol, int member = -1);
  // The value of a global that nothing changes; null for others.
  const TIntermConstantUnion* constantValue(const TIntermSymbol& symbol) const;

  // A hidden global that is never written.
  GlobalId zero(const ValueType& type);
  // A hidden global that holds these words (a flat constant of the type) in every run.
  GlobalId constant(const TType& type, const ValueType& value, const std::vector<uint32_t>& words);
  GlobalId splat(float value, unsigned components);

  // Declares the function; its code is made later.
  FunctionId functionId(const FunctionInfo& info);
  bool shouldInline(const FunctionInfo& info) const;
  void noteInlined(uint32_t bytes) { inlinedBytes_ += bytes; }
  // A function of the library for operands of these shapes; throws Unsupported.
  const FunctionInfo& libraryFunction(const std::string& name, const std::vector<Shape>& shapes,
                                      const TSourceLoc& where);

 private:
  struct GlobalKey {
    SymbolId symbol;
    int member;
    auto operator<=>(const GlobalKey&) const = default;
  };
  struct Global {
    Place place;                // as functions see it
    std::optional<Place> host;  // what the copy in `place` is made from
  };
  struct Constant {
    GlobalId global;
    ValueType value;
    const TType* type;  // null for inline values
    std::vector<uint32_t> words;
  };

  void start(bool withConstants);
  void analyse();
  void countMentions(const TIntermNode& node, unsigned weight);
  void countInitializer(const TIntermNode& node);
  static std::string libraryKey(const FunctionInfo& info);

  // globals.cpp
  void findConstantGlobals();
  bool isUsed(SymbolId id) const;
  void declareGlobals();
  Global declareGlobal(const TIntermSymbol& symbol, int member, const TType& type);
  Global withCopy(const TIntermSymbol& symbol, const Place& host, const std::string& name);
  Place declareOutput(const TIntermSymbol& symbol, int element);
  static bool isDepth(const TIntermSymbol& symbol);
  void numberOutputs();
  void forEachUsedTree(const std::function<void(const TIntermNode&)>& visit) const;
  Place pictureSize();
  void moveOrigin(FunctionGenerator& generator);
  Place addPlain(const std::string& name, const ValueType& type);
  void generatePrologue(FunctionGenerator& generator);
  void generateInitializer(FunctionGenerator& generator, const TIntermNode& node);
  // origins.cpp
  void describe(const std::string& name, const TType& type, const Place& place);
  void describe(const std::string& name, const TIntermConstantUnion& constant);
  void noteUniformValue(const TIntermSymbol& symbol);
  bool isFirstWritten(SymbolId id) const;
  bool mentionsInCalls(const TIntermNode& tree, SymbolId id) const;

  void generateFunctions();
  void generateEntry(FunctionBuilder& entry);
  void generateConstants();

  const Program& program_;
  Diagnostics& diagnostics_;
  ModuleOptions options_;
  std::unique_ptr<ShaderBuilder> builder_;
  std::unique_ptr<TypeTable> types_;

  std::unique_ptr<Program> library_;
  std::map<std::string, const FunctionInfo*> libraryFunctions_;

  std::map<SymbolId, unsigned> mentions_;
  std::map<SymbolId, const TIntermConstantUnion*> constantValues_;
  std::set<SymbolId> initialized_;
  std::map<std::string, unsigned> callCounts_;
  std::map<GlobalKey, Global> globals_;
  std::vector<NamedValue> uniformValues_;
  std::vector<std::string> varyings_;
  std::map<GlobalKey, unsigned> outputs_;  // locations of the colours that are used
  std::optional<unsigned> firstOutput_;
  std::optional<Place> originSize_;  // height that gl_FragCoord counts down from

  std::map<const FunctionInfo*, FunctionId> functionIds_;
  std::vector<std::pair<FunctionId, const FunctionInfo*>> pending_;
  std::map<ValueType, GlobalId> zeros_;
  std::map<std::pair<ValueType, std::vector<uint32_t>>, size_t> constantIndex_;
  std::vector<Constant> constants_;
  uint64_t inlinedBytes_ = 0;
  bool withConstants_ = false;
  bool isUnsound_ = false;
  GlobalId constantsReady_;
  FunctionId fillConstants_;
};

// The words of a constant, in the order of its components.
std::vector<uint32_t> constantWords(const TIntermConstantUnion& constant);

// Push a constant of a type by words and constructors; take its words off the front.
void pushWords(FunctionBuilder& code, TypeCode type, const uint32_t*& words);
void pushConstant(FunctionBuilder& code, TypeTable& types, const TType& type, int dimension,
                  const uint32_t*& words);

}  // namespace shadermachine::tools::glsl
