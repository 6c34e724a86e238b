#include "fuzz/generator.h"
#include "instructions/opcode_info.h"

namespace shadermachine::fuzz {
namespace {

constexpr uint32_t kDeepestStatement = 3;
constexpr uint32_t kExpressionDepth = 1;

bool isVector(TypeCode code) { return code >= VM_TYPE_VEC2 && code <= VM_TYPE_BVEC4; }
bool isMatrix(TypeCode code) { return code >= VM_TYPE_MAT2 && code <= VM_TYPE_MAT4; }

uint32_t dimensionOf(TypeCode matrix) { return static_cast<uint32_t>(matrix - VM_TYPE_MAT2) + 2; }

Type componentOf(TypeCode vector) {
  if (vector <= VM_TYPE_VEC4) return {VM_TYPE_FLOAT, 0};
  if (vector <= VM_TYPE_IVEC4) return {VM_TYPE_INT, 0};
  return {VM_TYPE_BOOL, 0};
}

}  // namespace

void Generator::statements(uint32_t depth) {
  const uint32_t count = choices_.between(1, 5);
  for (uint32_t i = 0; i < count && budget_ > 0 && !choices_.empty(); ++i) statement(depth);
}

void Generator::statement(uint32_t depth) {
  if (options_.hasFlaws && choices_.oneIn(16)) return stray();
  if (choices_.oneIn(60)) return endEarly();
  if (choices_.oneIn(120)) return manyTemporaries();
  if (options_.hasAggregates && choices_.oneIn(6)) return passQuietly();
  if (choices_.oneIn(250) && !options_.isInline) return fullIndexStack();
  const uint32_t kinds = !options_.isInline ? 16 : options_.hasAggregates ? 13 : 12;
  switch (choices_.below(kinds)) {
    case 4:
      return assignAndKeep();
    case 5:
    case 6:
    case 7:
      return assignPart();
    case 8:
      if (depth < kDeepestStatement) return branch(depth);
      return assign();
    case 9:
      if (depth < kDeepestStatement) return loop(depth);
      return assign();
    case 10:
      return callForEffect();
    case 11:
      return shuffleStack();
    case 12:
      return aggregateTricks();
    case 13:
      return callHost();
    default:
      return assign();
  }
}

void Generator::store(const VariableRef& variable) {
  code_->emit(variable.isGlobal ? VM_OP_STORE_GLOBAL : VM_OP_STORE_LOCAL, {variable.index});
}

void Generator::assign() {
  const VariableRef variable = choices_.of(variables_);
  value(variable.type, kExpressionDepth);
  store(variable);
}

void Generator::assignAndKeep() {
  if (locals_.empty()) return assign();
  const uint16_t local =
      static_cast<uint16_t>(choices_.below(static_cast<uint32_t>(locals_.size())));
  if (options_.isInline && !locals_[local].isBasic()) return assign();
  value(locals_[local], kExpressionDepth);
  code_->emit(VM_OP_STORE_LOCAL_KEEP, {local});
  code_->emit(locals_[local].isBasic() ? VM_OP_POP : VM_OP_POP_RELEASE);
}

// Goes some steps into a value and returns the type of the part reached.
Type Generator::walkInto(Type type, std::vector<PathChoice>& path) {
  while (path.size() < 6) {
    if (type.count > 0) {
      path.push_back({choices_.oneIn(20) ? type.count : choices_.below(type.count), type.count});
      type.count = 0;
    } else if (type.code >= 0) {
      const auto& members = structs_[static_cast<size_t>(type.code)];
      path.push_back({choices_.below(static_cast<uint32_t>(members.size())), 0});
      type = members[static_cast<size_t>(path.back().index)];
    } else if (isMatrix(type.code)) {
      const uint32_t dimension = dimensionOf(type.code);
      path.push_back({choices_.below(dimension), dimension});
      type = {static_cast<TypeCode>(VM_TYPE_VEC2 + static_cast<int>(dimension) - 2), 0};
    } else if (isVector(type.code)) {
      path.push_back({choices_.below(type.words()), type.words()});
      type = componentOf(type.code);
    }
    if (type.isBasic() && (!isVector(type.code) && !isMatrix(type.code))) break;
    if (choices_.oneIn(3)) break;
  }
  return type;
}

void Generator::assignPartByOperands(const VariableRef& variable) {
  std::vector<PathChoice> path;
  const Type part = walkInto(variable.type, path);
  value(part, kExpressionDepth);
  if (part.count == 0 && isVector(part.code) && choices_.oneIn(2)) {
    std::string components;
    const uint32_t selected = choices_.between(1, part.words());
    for (uint32_t i = 0; i < selected; ++i) components += "xyzw"[choices_.below(part.words())];
    path.push_back({tools::swizzleStep(components), 0});
  }
  std::vector<int64_t> operands = {variable.index};
  for (const PathChoice& step : path) operands.push_back(step.index);
  code_->emit(variable.isGlobal ? VM_OP_STORE_GLOBAL_ELEM_IMM : VM_OP_STORE_LOCAL_ELEM_IMM,
              operands);
}

// Computed indices are masked as compilers do it, and may lead a little too far.
void Generator::pushStep(const PathChoice& step) {
  if (step.bound == 0 || choices_.oneIn(2)) return code_->pushInt(static_cast<int32_t>(step.index));
  const int32_t mask = step.bound < 3 ? 1 : step.bound < 5 ? 3 : 7;
  if (options_.isInline && choices_.oneIn(2)) return anyBits(mask);
  value({WordKind::Bits, 1}, kExpressionDepth);
  code_->pushInt(mask);
  code_->emit(VM_OP_BIT_AND, {1});
}

// The step applied first is pushed last.
void Generator::assignPartByStack(const VariableRef& variable) {
  std::vector<PathChoice> path;
  const Type part = walkInto(variable.type, path);
  value(part, kExpressionDepth);
  for (size_t i = path.size(); i-- > 0;) pushStep(path[i]);
  code_->emit(variable.isGlobal ? VM_OP_STORE_GLOBAL_ELEM : VM_OP_STORE_LOCAL_ELEM,
              {variable.index, static_cast<int64_t>(path.size())});
}

// Low bits of a word that every run gets another value of.
void Generator::anyBits(int32_t mask) {
  constexpr uint32_t kWordOfHost = 259;
  code_->emit(VM_OP_LOAD_BUILTIN, {kWordOfHost});
  code_->pushInt(mask);
  code_->emit(VM_OP_BIT_AND, {1});
}

void Generator::condition() {
  if (options_.isInline && choices_.oneIn(2)) return anyBits(1);
  value({WordKind::Bits, 1}, kExpressionDepth);
}

void Generator::assignPart() {
  const VariableRef variable = choices_.of(variables_);
  if (choices_.oneIn(2)) {
    assignPartByStack(variable);
  } else {
    assignPartByOperands(variable);
  }
}

void Generator::branch(uint32_t depth) {
  const tools::Label otherwise = code_->newLabel();
  const tools::Label end = code_->newLabel();
  condition();
  code_->jumpIfFalse(otherwise);
  statements(depth + 1);
  const bool hasElse = choices_.oneIn(2);
  if (hasElse) code_->jump(end);
  code_->bind(otherwise);
  if (hasElse) statements(depth + 1);
  code_->bind(end);
}

// A counted loop; once in a while it never ends.
void Generator::loop(uint32_t depth) {
  const LocalId counter =
      code_->addLocal({"loop" + std::to_string(loopCount_++), VM_TYPE_INT, 0, 0});
  const tools::Label start = code_->newLabel();
  const tools::Label end = code_->newLabel();
  code_->pushInt(choices_.oneIn(50) && !options_.ends ? INT32_MIN : 0);
  code_->store(counter);
  code_->bind(start);
  code_->load(counter);
  if (options_.isInline && choices_.oneIn(2)) {
    anyBits(3);
  } else {
    code_->pushInt(static_cast<int32_t>(choices_.between(1, 4)));
  }
  code_->emit(VM_OP_LT_I);
  code_->jumpIfFalse(end);
  statements(depth + 1);
  code_->load(counter);
  code_->emit(VM_OP_INC_I, {1});
  code_->store(counter);
  code_->jump(start);
  code_->bind(end);
}

void Generator::callForEffect() {
  if (current_ + size_t{1} >= functions_.size()) return assign();
  const uint32_t later = static_cast<uint32_t>(functions_.size()) - current_ - 1;
  // Once in a while the function calls itself.
  const bool recurses = choices_.oneIn(20) && !options_.ends;
  const uint32_t step = recurses ? 0 : choices_.between(1, later);
  const auto function = static_cast<uint16_t>(current_ + step);
  call(function, kExpressionDepth);
  const auto& result = functions_[function].result;
  if (choices_.oneIn(2)) probe();
  if (result) code_->emit(result->isBasic() ? VM_OP_POP : VM_OP_POP_RELEASE);
}

void Generator::shuffleStack() {
  const uint32_t count = choices_.between(1, 3);
  for (uint32_t i = 0; i <= count; ++i) value({WordKind::Float, 1}, kExpressionDepth);
  if (choices_.oneIn(2)) code_->emit(VM_OP_SWAP);
  if (choices_.oneIn(4)) code_->emit(choices_.oneIn(2) ? VM_OP_NOP : VM_OP_NOP_49);
  code_->emit(VM_OP_POP_N, {count});
  code_->emit(VM_OP_POP);
}

void Generator::aggregateTricks() {
  const Type type = anyAggregate();
  aggregate(type, kExpressionDepth);
  if (choices_.oneIn(3)) statement(kDeepestStatement);
  switch (choices_.below(4)) {
    case 0:
      code_->emit(VM_OP_MAKE_UNIQUE);
      break;
    case 1:
      code_->emit(VM_OP_DUP);
      if (choices_.oneIn(2)) probe();
      code_->emit(VM_OP_POP);
      break;
    case 2:
      aggregate(type, kExpressionDepth);
      code_->emit(VM_OP_SWAP);
      code_->emit(VM_OP_POP_RELEASE);
      break;
    default:
      break;
  }
  if (choices_.oneIn(2)) probe();
  code_->emit(VM_OP_POP_RELEASE);
}

// Built-in functions that leave nothing.
void Generator::callHost() {
  if (choices_.oneIn(2)) {
    for (int i = 0; i < 3; ++i) value({operandKind(true), 4}, kExpressionDepth);
    aggregate(anyAggregate(), kExpressionDepth);
    code_->emit(VM_OP_CALL_BUILTIN, {267});
  } else {
    for (int i = 0; i < 2; ++i) value({operandKind(true), 4}, kExpressionDepth);
    code_->emit(VM_OP_CALL_BUILTIN, {293});
  }
}

// Behind a condition, so that code follows.
void Generator::endEarly() {
  const tools::Label end = code_->newLabel();
  condition();
  code_->jumpIfFalse(end);
  if (!returnsEarly_ || choices_.oneIn(2)) {
    code_->emit(choices_.oneIn(2) ? VM_OP_DISCARD : VM_OP_HALT);
  } else {
    finishFunction();
  }
  code_->bind(end);
}

void Generator::finishFunction() {
  const auto& result = functions_[current_].result;
  if (result) {
    if (returnsEarly_ && result->isBasic()) {
      exactValue({result->kind(), result->words()}, kExpressionDepth);
    } else {
      value(*result, kExpressionDepth);
    }
    code_->emit(choices_.oneIn(2) ? VM_OP_RETURN_VALUE : VM_OP_RETURN_VALUE_2);
  } else {
    code_->emit(VM_OP_RETURN);
  }
}

// Anything at all: an instruction with random operands, or bytes.
void Generator::stray() {
  const auto opcode = static_cast<Opcode>(choices_.below(kOpcodeCount));
  uint8_t bytes[8] = {static_cast<uint8_t>(opcode)};
  uint32_t size = 1;
  for (OperandKind kind : opcodeInfo(opcode).operands) {
    // Small values in the first byte reach further than wild ones.
    const unsigned width = operandWidth(kind);
    for (unsigned i = 0; i < width && size < sizeof bytes; ++i) {
      bytes[size++] = i == 0 || choices_.oneIn(8) ? choices_.value<uint8_t>() % 32 : uint8_t{0};
    }
  }
  code_->emitBytes(std::span(bytes, size));
}

}  // namespace shadermachine::fuzz
