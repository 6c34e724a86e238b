// Makes the code of one function. Its methods are spread over one file per concern: expressions,
// operators, constructors, assignments, control_flow, calls, builtins and textures.
//
// Statements leave the stack as they find it, so a callee's body can be generated at its call, with
// values of the caller below.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <variant>
#include <vector>

#include "module.h"

namespace shadermachine::tools::glsl {

// Something that pushes a value; `node` is null for values that are no expression of the source.
struct Operand {
  Shape shape;
  const TIntermTyped* node = nullptr;
  std::function<void()> emit;
};

// One step of an access path: a position known beforehand (or swizzle pattern), or an expression.
struct PathStep {
  int64_t constant = 0;
  const TIntermTyped* index = nullptr;
};

struct Target {
  const TIntermTyped* node = nullptr;
  Place root;
  std::vector<PathStep> path;
};

struct TextureCall;
using TextureArguments = std::span<const TIntermTyped* const>;

class FunctionGenerator {
 public:
  FunctionGenerator(Module& module, FunctionBuilder& code)
      : module_(module), code_(code), scopes_(1) {
    scope().program = &module.program();
    scope().function = &module.program().function(kMainFunction);
  }

  // The complete code of an ordinary function.
  void generate(const FunctionInfo& info);
  // The body of a function as part of this one.
  void generateBody(const FunctionInfo& info);

  void statement(const TIntermNode& node);
  FunctionBuilder& code() { return code_; }

  void load(const Place& place);
  void store(const Place& place);
  void pushZero(const ValueType& type);

 private:
  using Binding = std::variant<Place, const TIntermConstantUnion*>;

  // A variable of the source map that is still in scope, and the depth of the block whose end may
  // end it.
  struct OpenVariable {
    size_t index;
    SymbolId symbol;
    unsigned depth;
  };

  // The function whose body is being generated: the whole one, or one of those inlined.
  struct Scope {
    const Program* program = nullptr;  // where its calls find functions
    const FunctionInfo* function = nullptr;
    std::map<SymbolId, Binding> bindings;
    std::vector<Place> owned;           // locals, free for others afterwards
    std::optional<Label> returnTarget;  // of an inlined function
    const TIntermNode* lastStatement = nullptr;
    std::vector<OpenVariable> open;
    unsigned blockDepth = 0;
  };
  struct Exits {
    std::optional<Label> onBreak;
    std::optional<Label> onContinue;
  };

  // origins.cpp: where code comes from. Positions hold until the end of the C++ block.
  class At {
   public:
    At(FunctionGenerator& generator, const TSourceLoc& where);
    ~At() {
      code_.setPosition(outer_);
      --depth_;
    }
    At(const At&) = delete;
    At& operator=(const At&) = delete;

   private:
    FunctionBuilder& code_;
    SourcePosition outer_;
    unsigned& depth_;
  };
  bool isSource() const { return scope().program == &module_.program(); }
  void beginStatement();
  void describe(const TIntermSymbol& symbol, const Binding& binding);
  void endVariables(const TIntermNode& block);

  // expressions.cpp
  void value(const TIntermTyped& node);
  void aggregateValue(const TIntermAggregate& node);
  void discardValue(const TIntermTyped& node);
  void commaValue(const TIntermAggregate& node);
  void popValue(const TType& type, const TSourceLoc& where);
  void symbolValue(const TIntermSymbol& symbol);
  void constantValue(const TIntermConstantUnion& constant);
  void indexValue(const TIntermBinary& node);
  void memberValue(const TIntermBinary& node);
  void swizzleValue(const TIntermBinary& node);
  void arrayElement(const TIntermBinary& node);
  std::optional<Place> outputElement(const TIntermBinary& node);
  void pushIndex(const TIntermTyped& index);
  bool loadComponent(const TIntermTyped& node);
  void selectionValue(const TIntermSelection& node);
  void swizzle(std::span<const unsigned> selectors, unsigned sourceSize);
  Operand operand(const TIntermTyped& node);
  // Operands whose values were made beforehand, in locals, since others read what they write.
  using Hoisted = std::vector<const TIntermTyped*>;
  Hoisted hoistEffects(std::span<const TIntermTyped* const> operands, bool firstIsTarget);
  void forget(const Hoisted& hoisted);
  Operand withoutSplat(const Operand& operand);
  const TIntermConstantUnion* asConstant(const TIntermTyped& node) const;
  std::optional<float> constantFloat(const TIntermTyped& node) const;
  std::optional<int32_t> constantInt(const TIntermTyped& node) const;

  // arithmetic.cpp
  void arithmetic(TOperator op, const Operand& left, const Operand& right, const TSourceLoc& where);
  void floatArithmetic(TOperator op, Operand left, Operand right);
  void integerArithmetic(TOperator op, const Operand& left, const Operand& right,
                         const TSourceLoc& where);
  bool dividedByConstant(TOperator op, const Operand& left, const Operand& right,
                         unsigned components);
  bool isNeverNegative(const TIntermTyped& node) const;
  void shift(TOperator op, const Operand& left, const Operand& right, const TSourceLoc& where);
  void shiftRight(const Operand& left, int32_t distance);
  void withInteger(VmOpcode opcode, int32_t constant, unsigned components);
  void multiplyFloat(const Operand& left, const Operand& right, unsigned components);
  void splatted(const Operand& operand, unsigned components);
  void emitCounted(VmOpcode opcode, unsigned count) { code_.emit(opcode, {count}); }

  // operators.cpp
  void unaryValue(const TIntermUnary& node);
  void binaryValue(const TIntermBinary& node);
  void comparison(TOperator op, const TIntermTyped& left, const TIntermTyped& right,
                  bool isComponentWise);
  void ordered(TOperator op, const Operand& left, const Operand& right, bool isComponentWise);
  void logical(const TIntermBinary& node);
  void converted(const TIntermTyped& node, Scalar from, Scalar to);

  // constructors.cpp
  void construct(const TType& type, std::span<TIntermNode* const> arguments,
                 const TSourceLoc& where);
  void constructAggregate(const TType& type, std::span<TIntermNode* const> arguments,
                          const TSourceLoc& where);
  void constructMatrix(const Shape& shape, std::span<TIntermNode* const> arguments,
                       const TSourceLoc& where);
  void constructFrom(VmOpcode opcode, const Shape& shape, std::span<TIntermNode* const> arguments,
                     const TSourceLoc& where);

  // matrices.cpp: those that are not square
  struct Kept {
    Shape shape;
    Place place;
  };
  Kept keep(const Operand& operand);
  void release(const Kept& kept);
  Operand columnOf(const Kept& kept, unsigned column);
  Operand componentOf(const Operand& vector, unsigned component);
  void joinColumns(const Shape& shape);
  void joinComponents(unsigned count);
  void matrixArithmetic(TOperator op, const Operand& left, const Operand& right,
                        const TSourceLoc& where);
  void matrixTimesVector(const Kept& matrix, const Operand& vector, const TSourceLoc& where);
  void negateMatrix(const Operand& operand);
  void compareMatrices(const Operand& left, const Operand& right, bool wantsEqual);
  void transposeMatrix(const Operand& operand);
  void outerProduct(const Operand& left, const Operand& right, const TSourceLoc& where);
  bool oblongCall(const TIntermOperator& node, std::span<const TIntermTyped* const> arguments);
  void constructColumns(const Shape& shape, std::span<TIntermNode* const> arguments);
  void pushComponent(const Kept& source, unsigned component);
  void pushOfDiagonal(const Kept& source, unsigned column, unsigned row);

  // assignments.cpp
  Target target(const TIntermTyped& node);
  void appendStep(Target& target, const TIntermBinary& node);
  void appendSelection(Target& target, std::span<const unsigned> selectors);
  // Evaluates indices now, so that the target can be used twice or later.
  enum class Fix { Writing, Costly, All };  // those that write variables, or cost or may fail
  void fixIndices(Target& target, Fix which);
  void forgetIndices(const Target& target);
  void loadTarget(const Target& target);
  void storeTarget(const Target& target);
  bool bindConstant(const TIntermBinary& node);
  void assign(const TIntermBinary& node, bool wantsValue);
  void increment(const TIntermUnary& node, bool wantsValue);

  // control_flow.cpp
  void block(const TIntermAggregate& node);
  void selection(const TIntermSelection& node);
  void loop(const TIntermLoop& node);
  void switchStatement(const TIntermSwitch& node);
  void branch(const TIntermBranch& node);
  void returnStatement(const TIntermBranch& node);
  void jumpIfFalse(const TIntermTyped& condition, Label label);
  void jumpIfTrue(const TIntermTyped& condition, Label label);
  std::optional<bool> constantCondition(const TIntermTyped& condition) const;

  // calls.cpp
  void userCall(const TIntermAggregate& node);
  void call(const FunctionInfo& info, std::span<const Operand> arguments);
  void callFunction(const FunctionInfo& info, std::span<const Operand> arguments);
  void inlineCall(const FunctionInfo& info, std::span<const Operand> arguments);
  void passArgument(const FunctionInfo& info, size_t index, const Operand& argument);
  void dropArguments(const FunctionInfo& info, const std::vector<std::optional<Target>>& targets);
  std::vector<std::optional<Target>> outputTargets(const FunctionInfo& info,
                                                   std::span<const Operand> arguments);
  // How many arguments of a call mention a variable.
  struct ArgumentMentions {
    size_t all = 0;
    size_t withEffects = 0;  // in arguments that write, or are written by the call
  };
  using MentionCounts = std::map<SymbolId, ArgumentMentions>;
  static MentionCounts mentionsIn(const FunctionInfo& info, std::span<const Operand> arguments);
  std::optional<Binding> aliasFor(const TIntermSymbol& parameter, bool isChanged,
                                  const Operand& argument, const MentionCounts& mentions);
  Place passInline(const FunctionInfo& info, size_t index, const Operand& argument);
  void callLibrary(const std::string& name, std::span<const Operand> arguments,
                   const TSourceLoc& where);
  void zeroReadFirst(const FunctionInfo& info);
  void finishBody(const FunctionInfo& info);

  // builtins.cpp
  void builtinCall(const TIntermOperator& node, std::span<const TIntermTyped* const> arguments);
  Unsupported unsupportedFunction(const TIntermOperator& node);
  bool tableCall(const TIntermOperator& node, std::span<const TIntermTyped* const> arguments);
  bool specialCall(const TIntermOperator& node, std::span<const TIntermTyped* const> arguments);
  void interpolateAtOffset(const TIntermTyped& varying, const TIntermTyped& offset);
  bool bitField(TOperator op, std::span<const TIntermTyped* const> arguments);
  void power(const TIntermTyped& base, const TIntermTyped& exponent, unsigned components);
  bool smoothstep(std::span<const TIntermTyped* const> arguments, unsigned components);

  // textures.cpp
  void textureCall(const TIntermOperator& node, TextureArguments arguments);
  bool oldTextureCall(const TIntermAggregate& node);
  void lookUp(const TextureCall& call, const TSourceLoc& where);
  void lookUpRepeatedly(const TextureCall& call);
  void describedLookUp(const TextureCall& call, unsigned corner = 0);
  unsigned gradientOf(const TextureCall& call, unsigned axis);
  unsigned offsetOf(const TextureCall& call, unsigned corner);
  unsigned floatArgument(const TextureCall& call, size_t index);
  void textureCoordinates(const TextureCall& call);
  void fetchTexel(const TextureCall& call);
  void levelOf(const TextureCall& call);

  // A local of the scope, or of nobody yet.
  Place newLocal(const std::string& name, const ValueType& type);
  Place takeLocal(const std::string& name, const ValueType& type);
  Place symbolPlace(const TIntermSymbol& symbol);
  const Binding* findBinding(const TIntermSymbol& symbol) const;
  ValueType valueType(const TIntermTyped& node) {
    return module_.types().valueType(node.getType(), node.getLoc());
  }
  Scope& scope() { return scopes_.back(); }
  const Scope& scope() const { return scopes_.back(); }
  void leaveScope();

  Module& module_;
  FunctionBuilder& code_;
  std::vector<Scope> scopes_;
  unsigned depth_ = 0;  // of the recursion through trees, which bodies of other functions deepen
  std::vector<Exits> exits_;
  // Locals that nobody holds: taken by takeLocal(), given back by who took them, once.
  std::map<ValueType, std::vector<Place>> freeLocals_;
  // Expressions that value() loads instead of evaluating them, until what fixed them forgets them.
  std::map<const TIntermTyped*, Place> fixedValues_;
};

}  // namespace shadermachine::tools::glsl
