// The parts of the program generator. An expression leaves exactly one value on the stack; a
// statement leaves the stack as it was.
#pragma once

#include <optional>
#include <vector>

#include "fuzz/program_generator.h"

namespace shadermachine::fuzz {

using tools::FunctionBuilder;
using tools::FunctionId;
using tools::GlobalId;
using tools::LocalId;
using tools::ShaderBuilder;

// What the words of an inline value may be: Float words can be NaNs with arbitrary bits.
enum class WordKind : uint8_t { Float, Bits };

struct Type {
  TypeCode code = VM_TYPE_FLOAT;
  uint32_t count = 0;  // array length

  bool operator==(const Type&) const = default;
  bool isBasic() const { return code < 0 && count == 0; }
  uint32_t words() const { return tools::basicTypeSize(code) / 4; }  // of an element
  WordKind kind() const;
};

// What an inline expression must give: at least so many words.
struct Wanted {
  WordKind kind;
  uint32_t words;
};

struct VariableRef {
  Type type;
  bool isGlobal;
  uint16_t index;
};

struct Signature {
  std::vector<Type> parameters;
  std::optional<Type> result;
};

// An argument that is read after the call, and as what.
struct KeptArgument {
  size_t number = SIZE_MAX;
  Wanted wanted = {};
};

// A built-in variable that stands for a global.
struct BuiltinView {
  Type type;
  uint16_t id;
};

// Where a part of an aggregate lies.
struct PartRef {
  Type whole;
  Type part;
  uint32_t member;  // of a structure; for an array the index is chosen anew
};

// A step into a part; bound: how many parts an index could pick, 0 for members of structures.
struct PathChoice {
  int64_t index;
  uint32_t bound;
};

class Generator {
 public:
  Generator(Choices& choices, const ProgramOptions& options);
  tools::BuiltShader build() &&;

 private:
  // Tables (program_generator.cpp)
  void addStructs();
  void addGlobals();
  void bindBuiltins();
  void declareFunctions();
  void offerToHost(Signature& signature, int32_t function);
  Signature anySignature();
  void writeFunction(size_t index);
  void addLocals(uint32_t most);
  Type anyType(bool allowAggregates);
  Type anyAggregate();

  // Statements (statement_generator.cpp)
  void statements(uint32_t depth);
  void statement(uint32_t depth);
  void assign();
  void assignAndKeep();
  void assignPart();
  void assignPartByStack(const VariableRef& variable);
  void assignPartByOperands(const VariableRef& variable);
  void branch(uint32_t depth);
  void loop(uint32_t depth);
  void callForEffect();
  void shuffleStack();
  void aggregateTricks();
  void anyBits(int32_t mask);
  void condition();
  void callHost();
  void endEarly();
  void stray();
  void finishFunction();
  Type walkInto(Type type, std::vector<PathChoice>& path);
  void pushStep(const PathChoice& step);
  void store(const VariableRef& variable);

  // Expressions (expression_generator.cpp)
  using Producer = bool (Generator::*)(Wanted, uint32_t depth);
  static const std::vector<Producer> kProducers;
  void value(Wanted wanted, uint32_t depth);
  void value(const Type& type, uint32_t depth);
  void aggregate(const Type& type, uint32_t depth);
  void construct(const Type& type, uint32_t depth);
  bool constant(Wanted wanted, uint32_t depth);
  bool variable(Wanted wanted, uint32_t depth);
  bool kernel(Wanted wanted, uint32_t depth);
  bool constructor(Wanted wanted, uint32_t depth);
  bool swizzle(Wanted wanted, uint32_t depth);
  bool product(Wanted wanted, uint32_t depth);
  bool geometric(Wanted wanted, uint32_t depth);
  bool idiom(Wanted wanted, uint32_t depth);
  bool noise(Wanted wanted, uint32_t depth);
  bool component(Wanted wanted, uint32_t depth);
  bool column(Wanted wanted, uint32_t depth);
  bool inlinePart(Wanted wanted, uint32_t depth);
  bool compareAggregates(Wanted wanted, uint32_t depth);
  bool reduction(Wanted wanted, uint32_t depth);
  bool twice(Wanted wanted, uint32_t depth);
  bool builtinVariable(Wanted wanted, uint32_t depth);
  bool hostValue(Wanted wanted, uint32_t depth);
  bool callResult(Wanted wanted, uint32_t depth);
  void kernelOperands(const struct OpcodeGroup& group, uint32_t words, Wanted first, uint32_t depth,
                      size_t from = 0);
  void pushConstant(WordKind kind);
  void pushIndex(uint32_t bound, uint32_t depth);
  void takePart(const PartRef& part, uint32_t depth);
  std::optional<uint16_t> functionGiving(Wanted wanted);

  // What no compiler makes (stack_generator.cpp)
  void probe();
  bool narrowed(Wanted wanted, uint32_t depth);
  void exactValue(Wanted wanted, uint32_t depth);
  bool conditional(Wanted wanted, uint32_t depth);
  bool outliving(Wanted wanted, uint32_t depth);
  bool heldAggregate(const Type& type, uint32_t depth);
  bool keptArgument(Wanted wanted, uint32_t depth);
  void workOn(Wanted top, uint32_t depth);
  bool workByKernel(Wanted top, uint32_t depth);
  bool workByGeometry(Wanted top, uint32_t depth);
  void call(uint16_t function, uint32_t depth);
  void finishWithSum();
  void pushArgument(const Type& type, const Wanted* kept, uint32_t depth);
  void pushArguments(const Signature& signature, const KeptArgument& kept, uint32_t depth);
  void manyTemporaries();
  void fullIndexStack();

  // What the host does not see (quiet_generator.cpp)
  const VariableRef* anyVariable(const Type* type);
  void load(const VariableRef& variable);
  void readQuietly(const VariableRef& variable);
  void changeQuietly(const VariableRef& variable);
  void quietCondition();
  void disturb(const VariableRef& held);
  std::optional<uint16_t> quietFunction(const Type& type);
  void consume(const Type& type);
  void passQuietly();
  void writeQuietFunction();

  WordKind operandKind(bool readsBits) const;
  bool hasOnlyBits(const Type& type) const;
  void listVariables();
  void listParts();

  Choices& choices_;
  ProgramOptions options_;
  ShaderBuilder shader_;
  std::vector<std::vector<Type>> structs_;
  std::vector<Type> globals_;
  std::vector<BuiltinView> builtinViews_;
  std::vector<Signature> functions_;

  // The function that is being written.
  FunctionBuilder* code_ = nullptr;
  uint16_t current_ = 0;
  std::vector<Type> locals_;
  std::vector<VariableRef> variables_;  // locals and globals
  std::vector<PartRef> parts_;          // of structures and of variables
  bool returnsEarly_ = false;
  uint32_t loopCount_ = 0;
  uint32_t budget_ = 0;  // instructions, roughly
};

}  // namespace shadermachine::fuzz
