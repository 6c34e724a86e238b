#include "engine/random_shader.h"

#include <bit>
#include <string>
#include <vector>

namespace shadermachine::tests {
namespace {

using tools::FunctionBuilder;
using tools::ShaderBuilder;

enum class Scalar { Float, Int, Bool };

// A value that the generator can make: a vector of a family, a square float matrix, a structure or
// an array of one of the three element types below.
struct Type {
  Scalar scalar = Scalar::Float;
  uint32_t n = 1;  // components; of matrices columns
  bool matrix = false;
  int32_t structure = -1;
  uint32_t count = 0;

  bool aggregate() const { return structure >= 0 || count > 0; }
  uint32_t words() const { return matrix ? n * n : n; }
  bool operator==(const Type&) const = default;
};

TypeCode codeOf(const Type& type) {
  if (type.structure >= 0) return static_cast<TypeCode>(type.structure);
  if (type.matrix) return static_cast<TypeCode>(VM_TYPE_MAT2 + static_cast<int>(type.n) - 2);
  constexpr TypeCode kScalars[] = {VM_TYPE_FLOAT, VM_TYPE_INT, VM_TYPE_BOOL};
  constexpr TypeCode kVectors[] = {VM_TYPE_VEC2, VM_TYPE_IVEC2, VM_TYPE_BVEC2};
  const auto scalar = static_cast<size_t>(type.scalar);
  return type.n == 1 ? kScalars[scalar]
                     : static_cast<TypeCode>(kVectors[scalar] + static_cast<int>(type.n) - 2);
}

struct Place {
  Type type;
  uint16_t index = 0;
  bool global = false;
};

struct Function {
  FunctionBuilder* builder = nullptr;
  std::vector<Type> params;
  Type result;
  bool returns = false;
};

class Generator {
 public:
  explicit Generator(Choices choices) : choices_(choices) {}

  tools::BuiltShader make() {
    addStructs();
    addGlobals();
    const uint32_t functions = 1 + choices_.below(4);
    for (uint32_t f = 0; f < functions; ++f) declareFunction(f);
    for (uint32_t f = functions; f-- > 0;) writeFunction(f);
    CompiledShader& record = shader_.record();
    record.outputGlobal0 = choices_.oneIn(8) ? -1 : static_cast<int32_t>(choices_.below(3));
    record.outputGlobal1 = static_cast<int32_t>(choices_.below(3));
    return std::move(shader_).build();
  }

 private:
  // Tables ------------------------------------------------------------------------------------

  void addStructs() {
    structs_.push_back({Type{}, Type{Scalar::Float, 3}, Type{Scalar::Float, 2, true}});
    shader_.addStruct("inner", {{"f", VM_TYPE_FLOAT}, {"v", VM_TYPE_VEC3}, {"m", VM_TYPE_MAT2}});
    Type inner;
    inner.structure = 0;
    Type list;
    list.count = 3;
    structs_.push_back({Type{Scalar::Int, 1}, inner, list, Type{Scalar::Float, 4}});
    shader_.addStruct("outer",
                      {{"i", VM_TYPE_INT}, {"s", 0}, {"a", VM_TYPE_FLOAT, 3}, {"c", VM_TYPE_VEC4}});
  }

  Type randomType(bool aggregates) {
    Type type;
    const uint32_t kind = choices_.below(aggregates ? 16 : 12);
    if (kind >= 12) {
      if (choices_.oneIn(2)) type.count = 2 + choices_.below(3);
      switch (choices_.below(3)) {
        case 0:
          type.structure = static_cast<int32_t>(choices_.below(2));
          break;
        case 1:
          if (type.count == 0) type.count = 4;
          type.n = 1 + choices_.below(4);
          break;
        default:
          if (type.count == 0) type.count = 2;
          type.n = 2 + choices_.below(3);
          type.matrix = true;
          break;
      }
      return type;
    }
    type.n = 1 + choices_.below(4);
    if (kind == 11) {
      type.n = 2 + choices_.below(3);
      type.matrix = true;
    } else if (kind >= 9) {
      type.scalar = Scalar::Bool;
    } else if (kind >= 6) {
      type.scalar = Scalar::Int;
    }
    return type;
  }

  void addGlobals() {
    addGlobal(Type{Scalar::Float, 4}, 0);
    addGlobal(Type{Scalar::Float, 3}, 0);
    addGlobal(Type{Scalar::Float, 1}, 0);
    const uint32_t more = 2 + choices_.below(5);
    for (uint32_t g = 0; g < more; ++g) {
      addGlobal(randomType(true), choices_.oneIn(4) ? uint16_t{VM_VAR_HOST_0} : uint16_t{0});
    }
  }

  void addGlobal(const Type& type, uint16_t flags) {
    const std::string name = "g" + std::to_string(globals_.size());
    const auto id = shader_.addGlobal({name, codeOf(type), type.count, flags});
    globals_.push_back({type, id.index, true});
  }

  void declareFunction(uint32_t f) {
    Function function;
    function.builder = &shader_.addFunction("f" + std::to_string(f));
    if (f > 0) {
      const uint32_t params = choices_.below(4);
      for (uint32_t p = 0; p < params; ++p) function.params.push_back(randomType(true));
      function.returns = !choices_.oneIn(4);
      function.result = randomType(true);
    }
    functions_.push_back(function);
  }

  // Functions ---------------------------------------------------------------------------------

  void writeFunction(uint32_t f) {
    current_ = f;
    code_ = functions_[f].builder;
    places_ = globals_;
    loops_ = 0;
    calls_ = 0;
    for (const Type& type : functions_[f].params) addLocal(type, true);
    const uint32_t locals = 2 + choices_.below(5);
    for (uint32_t k = 0; k < locals; ++k) addLocal(randomType(true), false);
    counters_.clear();
    for (int k = 0; k < 2; ++k) {
      counters_.push_back(code_->addLocal({"loop" + std::to_string(k), VM_TYPE_INT}).index);
    }
    writeBlock(2, 3 + choices_.below(6));
    finishFunction();
  }

  void addLocal(const Type& type, bool param) {
    const tools::Variable variable = {"l" + std::to_string(places_.size()), codeOf(type),
                                      type.count};
    const auto id = param ? code_->addParam(variable) : code_->addLocal(variable);
    places_.push_back({type, id.index, false});
  }

  void finishFunction() {
    const Function& function = functions_[current_];
    if (function.returns) {
      expression(function.result, 3);
      code_->emit(VM_OP_RETURN_VALUE);
    } else {
      code_->emit(VM_OP_RETURN);
    }
  }

  // Statements --------------------------------------------------------------------------------

  void writeBlock(uint32_t depth, uint32_t statements) {
    for (uint32_t i = 0; i < statements; ++i) statement(depth);
  }

  void statement(uint32_t depth) {
    switch (choices_.below(14)) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4:
        return assign();
      case 5:
      case 6:
        return assignPart();
      case 7:
      case 8:
        return depth > 0 ? branch(depth) : assign();
      case 9:
        return depth > 0 && loops_ < 2 ? loop(depth) : assign();
      case 10:
        return callStatement();
      case 11:
        return hostStatement();
      case 12:
        return stackStatement();
      default:
        return endStatement();
    }
  }

  const Place& somePlace() {
    return places_[choices_.below(static_cast<uint32_t>(places_.size()))];
  }

  void load(const Place& place) {
    code_->emit(place.global ? VM_OP_LOAD_GLOBAL : VM_OP_LOAD_LOCAL, {place.index});
  }

  void store(const Place& place) {
    code_->emit(place.global ? VM_OP_STORE_GLOBAL : VM_OP_STORE_LOCAL, {place.index});
  }

  void assign() {
    const Place place = somePlace();
    expression(place.type, 3);
    if (!place.global && choices_.oneIn(5)) {
      code_->emit(VM_OP_STORE_LOCAL_KEEP, {place.index});
      code_->emit(VM_OP_POP_RELEASE);
    } else {
      store(place);
    }
  }

  // One step into a type, as an index; false when there is none.
  bool step(Type& type, int64_t& index) {
    if (type.count > 0) {
      index = choices_.below(type.count + (choices_.oneIn(8) ? 1 : 0));
      type.count = 0;
    } else if (type.structure >= 0) {
      const auto& members = structs_[static_cast<size_t>(type.structure)];
      index = choices_.below(static_cast<uint32_t>(members.size()));
      type = members[static_cast<size_t>(index)];
    } else if (type.matrix) {
      index = choices_.below(type.n);
      type = Type{Scalar::Float, type.n};
    } else if (type.n > 1) {
      index = choices_.below(type.n);
      type.n = 1;
    } else {
      return false;
    }
    return true;
  }

  void assignPart() {
    const Place place = somePlace();
    std::vector<int64_t> path;
    Type type = place.type;
    int64_t index = 0;
    const uint32_t most = 1 + choices_.below(4);
    while (path.size() < most && step(type, index)) path.push_back(index);
    if (path.empty()) return assign();
    if (!type.aggregate() && !type.matrix && type.n > 1 && choices_.oneIn(2)) {
      constexpr const char* kSwizzles[] = {"x", "yx", "xy", "y", "zx", "zyx", "wx", "wzyx"};
      const uint32_t pick = choices_.below(type.n == 2 ? 4 : type.n == 3 ? 6 : 8);
      path.push_back(tools::swizzleStep(kSwizzles[pick]));
      type.n = static_cast<uint32_t>(std::string(kSwizzles[pick]).size());
    }
    expression(type, 2);
    if (choices_.oneIn(2)) {
      std::vector<int64_t> operands = {place.index};
      operands.insert(operands.end(), path.begin(), path.end());
      code_->emit(place.global ? VM_OP_STORE_GLOBAL_ELEM_IMM : VM_OP_STORE_LOCAL_ELEM_IMM,
                  operands);
      return;
    }
    for (size_t i = path.size(); i-- > 0;) code_->pushInt(static_cast<int32_t>(path[i]));
    code_->emit(place.global ? VM_OP_STORE_GLOBAL_ELEM : VM_OP_STORE_LOCAL_ELEM,
                {place.index, static_cast<int64_t>(path.size())});
  }

  void branch(uint32_t depth) {
    const auto other = code_->newLabel();
    const auto end = code_->newLabel();
    expression(Type{Scalar::Bool, 1}, 2);
    code_->jumpIfFalse(other);
    writeBlock(depth - 1, 1 + choices_.below(3));
    code_->jump(end);
    code_->bind(other);
    writeBlock(depth - 1, choices_.below(3));
    code_->bind(end);
    code_->emit(VM_OP_NOP);
  }

  // The counter's local belongs to the loop alone; the shape varies with where the test is.
  void loop(uint32_t depth) {
    const int64_t counter = counters_[loops_++];
    const auto start = code_->newLabel();
    const auto test = code_->newLabel();
    const auto end = code_->newLabel();
    const bool testLast = choices_.oneIn(2);
    code_->emit(VM_OP_PUSH_0);
    code_->emit(VM_OP_STORE_LOCAL, {counter});
    if (testLast) code_->jump(test);
    code_->bind(start);
    if (!testLast) {
      loopTest(counter);
      code_->jumpIfFalse(end);
    }
    writeBlock(depth - 1, 1 + choices_.below(3));
    code_->emit(VM_OP_LOAD_LOCAL, {counter});
    code_->emit(VM_OP_INC_I, {1});
    code_->emit(VM_OP_STORE_LOCAL, {counter});
    code_->bind(test);
    if (testLast) {
      loopTest(counter);
      code_->emit(VM_OP_LOGICAL_NOT_B);
      code_->jumpIfFalse(start);
    } else {
      code_->jump(start);
    }
    code_->bind(end);
    --loops_;
  }

  void loopTest(int64_t counter) {
    code_->emit(VM_OP_LOAD_LOCAL, {counter});
    code_->pushInt(static_cast<int32_t>(1 + choices_.below(3)));
    code_->emit(VM_OP_LT_I);
  }

  void callStatement() {
    const uint32_t callee = someCallee();
    if (callee == 0) return assign();
    emitCall(callee);
    if (functions_[callee].returns) code_->emit(VM_OP_POP_RELEASE);
  }

  uint32_t someCallee() {
    const auto count = static_cast<uint32_t>(functions_.size());
    if (current_ + 1 >= count || ++calls_ > 4) return 0;
    return current_ + 1 + choices_.below(count - current_ - 1);
  }

  void emitCall(uint32_t callee) {
    const Function& function = functions_[callee];
    if (function.returns) code_->emit(VM_OP_PUSH_EMPTY);
    for (const Type& type : function.params) expression(type, 2);
    code_->emit(VM_OP_CALL, {static_cast<int64_t>(callee)});
    for (size_t p = 0; p < function.params.size(); ++p) code_->emit(VM_OP_POP_RELEASE);
  }

  void hostStatement() {
    switch (choices_.below(3)) {
      case 0:
        expression(Type{Scalar::Float, 4}, 2);
        code_->emit(VM_OP_HOST_UNARY_2, {0});
        return code_->emit(VM_OP_POP);
      case 1:  // id 293 takes two values
        operands(Type{Scalar::Float, 4}, 2, 2);
        return code_->emit(VM_OP_CALL_BUILTIN, {293});
      default:
        code_->emit(VM_OP_LOAD_BUILTIN, {258});
        return code_->emit(VM_OP_POP);
    }
  }

  // Values that change places before they are used.
  void stackStatement() {
    const Type type = randomType(false);
    expression(type, 2);
    expression(type, 2);
    switch (choices_.below(4)) {
      case 0:
        code_->emit(VM_OP_SWAP);
        break;
      case 1:
        code_->emit(VM_OP_DUP);
        emitEqual(type, false);
        code_->emit(VM_OP_POP);
        expression(type, 1);
        break;
      case 2:
        code_->emit(VM_OP_DUP);
        code_->emit(VM_OP_POP);
        break;
      default:
        hostStatement();
        break;
    }
    emitEqual(type, false);
    storeSomewhere(Type{Scalar::Bool, 1});
  }

  // Floats are never compared as words: the bits of a NaN that arithmetic makes are not fixed.
  void emitEqual(const Type& type, bool negated) {
    constexpr VmOpcode kEqual[] = {VM_OP_EQ_F, VM_OP_EQ_I, VM_OP_EQ_B};
    constexpr VmOpcode kNotEqual[] = {VM_OP_NE_F, VM_OP_NE_I, VM_OP_NE_B};
    const auto scalar = static_cast<size_t>(type.scalar);
    code_->emit(negated ? kNotEqual[scalar] : kEqual[scalar], {static_cast<int64_t>(type.words())});
  }

  void storeSomewhere(const Type& type) {
    for (const Place& place : places_) {
      if (place.type == type) return store(place);
    }
    code_->emit(VM_OP_POP_RELEASE);
  }

  void endStatement() {
    if (!choices_.oneIn(6)) return assign();
    const auto end = code_->newLabel();
    expression(Type{Scalar::Bool, 1}, 2);
    code_->jumpIfFalse(end);
    constexpr VmOpcode kEnds[] = {VM_OP_DISCARD, VM_OP_HALT, VM_OP_RESERVED_199};
    if (choices_.oneIn(2)) {
      finishFunction();
    } else {
      const VmOpcode opcode = kEnds[choices_.below(3)];
      if (opcode == VM_OP_RESERVED_199) {
        code_->emit(opcode, {0});
        code_->emit(VM_OP_HALT);
      } else {
        code_->emit(opcode);
      }
    }
    code_->bind(end);
  }

  // Expressions -------------------------------------------------------------------------------

  // Code that leaves one slot holding a value of the type.
  void expression(const Type& type, uint32_t depth) {
    if (depth == 0) return leaf(type);
    const uint32_t kind = choices_.below(12);
    if (kind == 0) return choose(type, depth);
    if (kind == 1 && callFor(type)) return;
    if (kind <= 3 && readPart(type, depth)) return;
    if (kind <= 5) return leaf(type);
    if (type.aggregate()) return construct(type, depth);
    if (type.matrix) return matrixValue(type, depth);
    switch (type.scalar) {
      case Scalar::Float:
        return floatValue(type.n, depth);
      case Scalar::Int:
        return intValue(type.n, depth);
      default:
        return boolValue(type.n, depth);
    }
  }

  void leaf(const Type& type) {
    if (!choices_.oneIn(3)) {
      for (uint32_t tries = 0; tries < 6; ++tries) {
        const Place& place = somePlace();
        if (place.type == type) return load(place);
      }
    }
    if (type.aggregate()) return construct(type, 0);
    constant(type);
  }

  void constant(const Type& type) {
    if (!type.matrix && type.n == 4 && choices_.oneIn(4)) {
      return code_->emit(type.scalar == Scalar::Float && choices_.oneIn(2) ? VM_OP_PUSH_ONE4_F
                                                                           : VM_OP_PUSH_ZERO4);
    }
    const uint32_t words = type.matrix ? 1 : type.n;
    for (uint32_t i = 0; i < words; ++i) scalarConstant(type.scalar);
    if (type.matrix) {
      code_->construct(constructorOf(type), {1});
    } else if (type.n > 1) {
      std::vector<int64_t> counts(type.n, 1);
      code_->emit(constructorOf(type), counts);
    }
  }

  void scalarConstant(Scalar scalar) {
    constexpr float kFloats[] = {0.0f, 1.0f, -0.0f, 0.5f, -1.5f, 3.25f, 1e10f, -7.0f};
    switch (scalar) {
      case Scalar::Float:
        return code_->pushFloat(kFloats[choices_.below(8)]);
      case Scalar::Int:
        return code_->pushInt(choices_.oneIn(6) ? static_cast<int32_t>(choices_.word())
                                                : static_cast<int32_t>(choices_.below(12)) - 2);
      default:
        return code_->emit(choices_.oneIn(2) ? VM_OP_PUSH_0 : VM_OP_PUSH_1);
    }
  }

  VmOpcode constructorOf(const Type& type) {
    if (type.matrix) return static_cast<VmOpcode>(VM_OP_CTOR_MAT2 + type.n - 2);
    return static_cast<VmOpcode>(VM_OP_CTOR_VEC2_A + 3 * choices_.below(3) + type.n - 2);
  }

  void choose(const Type& type, uint32_t depth) {
    const auto other = code_->newLabel();
    const auto end = code_->newLabel();
    expression(Type{Scalar::Bool, 1}, depth - 1);
    code_->jumpIfFalse(other);
    exactValue(type, depth - 1);
    code_->jump(end);
    code_->bind(other);
    exactValue(type, depth - 1);
    code_->bind(end);
  }

  // A value whose slot has defined words of its own type only: both sides of a join must agree.
  void exactValue(const Type& type, uint32_t depth) {
    if (type.matrix) return leaf(type);
    expression(type, depth);
    constexpr const char* kAll[] = {"x", "xy", "xyz", "xyzw"};
    if (!type.aggregate()) code_->swizzle(kAll[type.n - 1]);
  }

  bool callFor(const Type& type) {
    for (uint32_t f = current_ + 1; f < functions_.size(); ++f) {
      if (!functions_[f].returns || !(functions_[f].result == type) || calls_ >= 4) continue;
      ++calls_;
      emitCall(f);
      return true;
    }
    return false;
  }

  // A part of a wider value: component, column, element or member.
  bool readPart(const Type& type, uint32_t depth) {
    if (!type.aggregate() && !type.matrix && choices_.oneIn(2)) return swizzle(type, depth);
    for (const Place& place : places_) {
      Type at = place.type;
      const bool wanted = !(at == type) && choices_.oneIn(3);
      if (wanted && canReach(at, type, 3)) {
        load(place);
        reach(at, type, 3);
        return true;
      }
    }
    return false;
  }

  bool swizzle(const Type& type, uint32_t depth) {
    const uint32_t from = 2 + choices_.below(3);
    expression(Type{type.scalar, from}, depth - 1);
    uint32_t mask = 0;
    for (uint32_t i = 0; i < type.n; ++i) mask |= choices_.below(from) << (2 * i);
    code_->emit(static_cast<VmOpcode>(VM_OP_SWIZZLE + choices_.below(3)),
                {0, static_cast<int64_t>(type.n), static_cast<int64_t>(mask)});
    return true;
  }

  std::vector<Type> partsOf(const Type& type) const {
    if (type.count > 0) {
      Type element = type;
      element.count = 0;
      return {element};
    }
    if (type.structure >= 0) return structs_[static_cast<size_t>(type.structure)];
    if (type.matrix) return {Type{Scalar::Float, type.n}};
    if (type.n > 1) return {Type{type.scalar, 1}};
    return {};
  }

  bool canReach(const Type& from, const Type& to, uint32_t steps) const {
    if (from == to) return true;
    if (steps == 0) return false;
    for (const Type& part : partsOf(from)) {
      if (canReach(part, to, steps - 1)) return true;
    }
    return false;
  }

  void reach(const Type& from, const Type& to, uint32_t steps) {
    if (from == to) return;
    const std::vector<Type> parts = partsOf(from);
    for (size_t p = 0; p < parts.size(); ++p) {
      if (!canReach(parts[p], to, steps - 1)) continue;
      emitPart(from, parts[p], p);
      return reach(parts[p], to, steps - 1);
    }
  }

  void emitPart(const Type& from, const Type& part, size_t member) {
    if (from.count == 0 && from.structure >= 0) {
      code_->emit(VM_OP_STRUCT_FIELD, {from.structure, static_cast<int64_t>(member)});
      return;
    }
    pushIndex(from.count > 0 ? from.count : from.n);
    if (from.count > 0) {
      code_->emit(VM_OP_ARRAY_ELEMENT, {codeOf(part)});
    } else if (from.matrix) {
      code_->emit(VM_OP_MAT_COLUMN, {static_cast<int64_t>(from.n)});
    } else {
      code_->emit(static_cast<VmOpcode>(VM_OP_VEC_ELEMENT + choices_.below(3)),
                  {static_cast<int64_t>(from.n)});
    }
  }

  void pushIndex(uint32_t bound) {
    const uint32_t index = choices_.below(bound + (choices_.oneIn(60) ? 1 : 0));
    if (choices_.oneIn(2)) {
      code_->emit(VM_OP_PUSH_INDEX_IMM, {static_cast<int64_t>(index)});
      return;
    }
    if (choices_.oneIn(3)) {
      code_->pushInt(static_cast<int32_t>(index));
    } else {  // an index that only the run knows
      expression(Type{Scalar::Int, 1}, 1);
      code_->pushInt(1);
      code_->emit(VM_OP_BIT_AND, {1});
    }
    code_->emit(VM_OP_PUSH_INDEX);
  }

  void construct(const Type& type, uint32_t depth) {
    const uint32_t inner = depth > 0 ? depth - 1 : 0;
    if (type.count > 0) {
      Type element = type;
      element.count = 0;
      for (uint32_t i = 0; i < type.count; ++i) expression(element, inner);
      code_->emit(VM_OP_CTOR_ARRAY, {codeOf(element), static_cast<int64_t>(type.count)});
    } else {
      const std::vector<Type> members = structs_[static_cast<size_t>(type.structure)];
      for (const Type& member : members) expression(member, inner);
      code_->emit(VM_OP_CTOR_STRUCT, {type.structure});
    }
    if (choices_.oneIn(8)) code_->emit(VM_OP_MAKE_UNIQUE);
  }

  void matrixValue(const Type& type, uint32_t depth) {
    const auto n = static_cast<int64_t>(type.n);
    switch (choices_.below(4)) {
      case 0:
        expression(type, depth - 1);
        expression(type, depth - 1);
        return code_->emit(VM_OP_MUL_MAT_MAT, {n});
      case 1:
        expression(type, depth - 1);
        expression(type, depth - 1);
        return code_->emit(VM_OP_ADD_F, {n * n});
      case 2: {
        for (uint32_t c = 0; c < type.n; ++c) expression(Type{Scalar::Float, type.n}, depth - 1);
        std::vector<int64_t> counts(type.n, n);
        return code_->emit(constructorOf(type), counts);
      }
      default: {
        Type larger = type;
        larger.n = type.n + choices_.below(5 - type.n);
        expression(larger, depth - 1);
        if (larger.n == type.n) return;
        return code_->construct(constructorOf(type), {static_cast<int64_t>(larger.words())});
      }
    }
  }

  void operands(const Type& type, uint32_t count, uint32_t depth) {
    for (uint32_t i = 0; i < count; ++i) expression(type, depth - 1);
  }

  void vectorConstructor(Scalar scalar, uint32_t n, uint32_t depth) {
    std::vector<int64_t> counts;
    uint32_t reached = 0;
    if (choices_.oneIn(4)) {
      expression(Type{scalar, 1}, depth - 1);
      counts.push_back(1);
    } else {
      while (reached < n) {
        const uint32_t m = 1 + choices_.below(4);
        if (m == 1 && reached == 0 && n == 1) break;
        expression(Type{scalar, m}, depth - 1);
        counts.push_back(m);
        reached += m;
      }
    }
    code_->emit(constructorOf(Type{scalar, n}), counts);
  }

  void floatValue(uint32_t n, uint32_t depth) {
    const auto count = static_cast<int64_t>(n);
    const Type type = {Scalar::Float, n};
    const Type one = {Scalar::Float, 1};
    switch (choices_.below(16)) {
      case 0:
      case 1:
      case 2: {
        constexpr VmOpcode kBinary[] = {VM_OP_ADD_F,      VM_OP_SUB_F, VM_OP_MUL_F, VM_OP_DIV_F,
                                        VM_OP_COMP_MUL_F, VM_OP_MIN,   VM_OP_MAX,   VM_OP_STEP,
                                        VM_OP_MOD,        VM_OP_POW,   VM_OP_ATAN2};
        operands(type, 2, depth);
        return code_->emit(kBinary[choices_.below(11)], {count});
      }
      case 3: {
        constexpr VmOpcode kVectorScalar[] = {VM_OP_ADD_VS_F, VM_OP_SUB_VS_F, VM_OP_DIV_VS_F,
                                              VM_OP_MOD_VS,   VM_OP_MIN_VS,   VM_OP_MAX_VS};
        expression(type, depth - 1);
        expression(one, depth - 1);
        return code_->emit(kVectorScalar[choices_.below(6)], {count});
      }
      case 4: {
        constexpr VmOpcode kScalarVector[] = {VM_OP_ADD_SV_F, VM_OP_SUB_SV_F, VM_OP_DIV_SV_F,
                                              VM_OP_STEP_SV};
        expression(one, depth - 1);
        expression(type, depth - 1);
        return code_->emit(kScalarVector[choices_.below(4)], {count});
      }
      case 5:
      case 6: {
        constexpr VmOpcode kUnary[] = {
            VM_OP_NEG_F, VM_OP_INC_F, VM_OP_DEC_F, VM_OP_RADIANS, VM_OP_DEGREES,      VM_OP_SIN,
            VM_OP_COS,   VM_OP_TAN,   VM_OP_ASIN,  VM_OP_ACOS,    VM_OP_ATAN,         VM_OP_EXP,
            VM_OP_LOG,   VM_OP_EXP2,  VM_OP_LOG2,  VM_OP_SQRT,    VM_OP_INVERSE_SQRT, VM_OP_ABS,
            VM_OP_SIGN,  VM_OP_FLOOR, VM_OP_CEIL,  VM_OP_FRACT};
        expression(type, depth - 1);
        return code_->emit(kUnary[choices_.below(22)], {count});
      }
      case 7: {
        constexpr VmOpcode kTernary[] = {VM_OP_CLAMP, VM_OP_MIX, VM_OP_SMOOTHSTEP};
        operands(type, 3, depth);
        return code_->emit(kTernary[choices_.below(3)], {count});
      }
      case 8:
        return mixedTernary(type, depth);
      case 9: {
        expression(Type{choices_.oneIn(2) ? Scalar::Int : Scalar::Bool, n}, depth - 1);
        return code_->emit(choices_.oneIn(2) ? VM_OP_INT_TO_FLOAT : VM_OP_BOOL_TO_FLOAT, {count});
      }
      case 10: {
        const uint32_t m = 1 + choices_.below(4);
        expression(Type{Scalar::Float, m}, depth - 1);
        code_->emit(static_cast<VmOpcode>(VM_OP_NOISE1 + n - 1), {static_cast<int64_t>(m)});
        return;
      }
      case 11:
        return hostValue(n, depth);
      case 12:
        if (n > 1) return vectorConstructor(Scalar::Float, n, depth);
        return reduction(depth);
      case 13:
      case 14:
        return n == 1 ? reduction(depth) : geometric(type, depth);
      default:
        return n == 1 ? reduction(depth) : product(n, depth);
    }
  }

  void mixedTernary(const Type& type, uint32_t depth) {
    const auto count = static_cast<int64_t>(type.n);
    const Type one = {Scalar::Float, 1};
    switch (choices_.below(3)) {
      case 0:
        expression(type, depth - 1);
        operands(one, 2, depth);
        return code_->emit(VM_OP_CLAMP_VSS, {count});
      case 1:
        operands(type, 2, depth);
        expression(one, depth - 1);
        return code_->emit(VM_OP_MIX_VVS, {count});
      default:
        operands(one, 2, depth);
        expression(type, depth - 1);
        return code_->emit(VM_OP_SMOOTHSTEP_SSV, {count});
    }
  }

  void reduction(uint32_t depth) {
    const uint32_t n = 1 + choices_.below(4);
    const Type type = {Scalar::Float, n};
    constexpr VmOpcode kReductions[] = {VM_OP_LENGTH, VM_OP_DISTANCE, VM_OP_DOT};
    const uint32_t which = choices_.below(3);
    operands(type, which == 0 ? 1 : 2, depth);
    code_->emit(kReductions[which], {static_cast<int64_t>(n)});
  }

  void geometric(const Type& type, uint32_t depth) {
    const auto count = static_cast<int64_t>(type.n);
    switch (choices_.below(5)) {
      case 0:
        if (type.n == 3) {
          operands(type, 2, depth);
          return code_->emit(VM_OP_CROSS);
        }
        [[fallthrough]];
      case 1:
        expression(type, depth - 1);
        return code_->emit(VM_OP_NORMALIZE, {count});
      case 2:
        operands(type, 3, depth);
        return code_->emit(VM_OP_FACEFORWARD, {count});
      case 3:
        operands(type, 2, depth);
        return code_->emit(VM_OP_REFLECT, {count});
      default:
        operands(type, 2, depth);
        expression(Type{Scalar::Float, 1}, depth - 1);
        return code_->emit(VM_OP_REFRACT, {count});
    }
  }

  void product(uint32_t n, uint32_t depth) {
    const Type matrix = {Scalar::Float, n, true};
    const Type vector = {Scalar::Float, n};
    const bool matrixFirst = choices_.oneIn(2);
    expression(matrixFirst ? matrix : vector, depth - 1);
    expression(matrixFirst ? vector : matrix, depth - 1);
    code_->emit(matrixFirst ? VM_OP_MUL_MAT_VEC : VM_OP_MUL_VEC_MAT, {static_cast<int64_t>(n)});
  }

  // A value that the host has a hand in.
  void hostValue(uint32_t n, uint32_t depth) {
    const Type type = {Scalar::Float, n};
    expression(type, depth - 1);
    switch (choices_.below(3)) {
      case 0:
        return code_->emit(VM_OP_HOST_UNARY_1, {0});
      case 1:
        expression(Type{Scalar::Float, 4}, depth - 1);
        // Ids 294 to 296 leave S3 behind.
        expression(Type{Scalar::Int, 1}, depth - 1);
        expression(Type{Scalar::Int, 1}, depth - 1);
        return code_->emit(VM_OP_CALL_BUILTIN, {294});
      default:
        return;
    }
  }

  void intValue(uint32_t n, uint32_t depth) {
    const auto count = static_cast<int64_t>(n);
    const Type type = {Scalar::Int, n};
    switch (choices_.below(6)) {
      case 0:
      case 1:
      case 2: {
        constexpr VmOpcode kBinary[] = {VM_OP_ADD_I,  VM_OP_SUB_I,   VM_OP_MUL_I,  VM_OP_DIV_I,
                                        VM_OP_BIT_OR, VM_OP_BIT_XOR, VM_OP_BIT_AND};
        operands(type, 2, depth);
        return code_->emit(kBinary[choices_.below(7)], {count});
      }
      case 3: {
        constexpr VmOpcode kUnary[] = {VM_OP_NEG_I, VM_OP_INC_I, VM_OP_DEC_I, VM_OP_BIT_NOT};
        expression(type, depth - 1);
        return code_->emit(kUnary[choices_.below(4)], {count});
      }
      case 4:
        expression(Type{choices_.oneIn(2) ? Scalar::Float : Scalar::Bool, n}, depth - 1);
        return code_->emit(choices_.oneIn(2) ? VM_OP_FLOAT_TO_INT : VM_OP_BOOL_TO_INT, {count});
      default:
        if (n > 1) return vectorConstructor(Scalar::Int, n, depth);
        code_->emit(VM_OP_LOAD_BUILTIN, {281});
        return;
    }
  }

  void boolValue(uint32_t n, uint32_t depth) {
    const auto count = static_cast<int64_t>(n);
    if (n > 1) return boolVector(n, depth);
    switch (choices_.below(6)) {
      case 0: {
        operands(Type{Scalar::Float, 1}, 2, depth);
        constexpr VmOpcode kOrders[] = {VM_OP_LT_F, VM_OP_GT_F, VM_OP_LE_F, VM_OP_GE_F};
        return code_->emit(kOrders[choices_.below(4)]);
      }
      case 1: {
        operands(Type{Scalar::Int, 1}, 2, depth);
        constexpr VmOpcode kOrders[] = {VM_OP_LT_I, VM_OP_GT_I, VM_OP_LE_I, VM_OP_GE_I};
        return code_->emit(kOrders[choices_.below(4)]);
      }
      case 2: {
        constexpr VmOpcode kLogic[] = {VM_OP_LOGICAL_AND_B, VM_OP_LOGICAL_OR_B,
                                       VM_OP_LOGICAL_XOR_B};
        operands(Type{Scalar::Bool, 1}, 2, depth);
        return code_->emit(kLogic[choices_.below(3)]);
      }
      case 3: {
        const Type type = randomType(true);
        operands(type, 2, depth > 1 ? depth - 1 : 1);
        if (type.aggregate()) return code_->emit(choices_.oneIn(2) ? VM_OP_EQ_AGG : VM_OP_NE_AGG);
        return emitEqual(type, choices_.oneIn(2));
      }
      case 4: {
        const uint32_t m = 1 + choices_.below(4);
        expression(Type{Scalar::Bool, m}, depth - 1);
        return code_->emit(choices_.oneIn(2) ? VM_OP_ANY_B : VM_OP_ALL_B,
                           {static_cast<int64_t>(m)});
      }
      default:
        expression(Type{Scalar::Bool, 1}, depth - 1);
        if (choices_.oneIn(2)) return code_->emit(VM_OP_LOGICAL_NOT_B);
        return code_->emit(VM_OP_NOT_B, {count});
    }
  }

  void boolVector(uint32_t n, uint32_t depth) {
    const auto count = static_cast<int64_t>(n);
    const bool ints = choices_.oneIn(2);
    switch (choices_.below(4)) {
      case 0:
        return vectorConstructor(Scalar::Bool, n, depth);
      case 1:
        expression(Type{ints ? Scalar::Int : Scalar::Float, n}, depth - 1);
        return code_->emit(ints ? VM_OP_INT_TO_BOOL : VM_OP_FLOAT_TO_BOOL, {count});
      default: {
        operands(Type{ints ? Scalar::Int : Scalar::Float, n}, 2, depth);
        constexpr VmOpcode kInts[] = {VM_OP_LESS_THAN_I,    VM_OP_LESS_EQUAL_I,
                                      VM_OP_GREATER_THAN_I, VM_OP_GREATER_EQUAL_I,
                                      VM_OP_EQUAL_I,        VM_OP_NOT_EQUAL_I};
        constexpr VmOpcode kFloats[] = {VM_OP_LESS_THAN_F,    VM_OP_LESS_EQUAL_F,
                                        VM_OP_GREATER_THAN_F, VM_OP_GREATER_EQUAL_F,
                                        VM_OP_EQUAL_F,        VM_OP_NOT_EQUAL_F};
        const uint32_t which = choices_.below(6);
        return code_->emit(ints ? kInts[which] : kFloats[which], {count});
      }
    }
  }

  Choices choices_;
  ShaderBuilder shader_;
  std::vector<std::vector<Type>> structs_;
  std::vector<Place> globals_;
  std::vector<Place> places_;
  std::vector<Function> functions_;
  std::vector<int64_t> counters_;
  FunctionBuilder* code_ = nullptr;
  uint32_t current_ = 0;
  uint32_t loops_ = 0;
  uint32_t calls_ = 0;
};

}  // namespace

tools::BuiltShader randomShader(Choices choices) { return Generator(choices).make(); }

}  // namespace shadermachine::tests
