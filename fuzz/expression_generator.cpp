#include <shadermachine-tools/host_contract.h>

#include <algorithm>
#include <iterator>

#include "fuzz/generator.h"
#include "fuzz/opcode_groups.h"
#include "instructions/builtin_variables.h"
#include "instructions/lookup_form.h"

namespace shadermachine::fuzz {
namespace {

constexpr uint32_t kDeepest = 5;
constexpr float kFloats[] = {0.0F,   1.0F,  -1.0F,  0.5F,   2.0F,          3.25F, -0.0F,
                             1e-40F, 1e38F, -7.75F, 255.0F, 2147483648.0F, 0.01F};
constexpr int32_t kInts[] = {0, 1, 2, 3, 4, -1, -2, 7, 31, 255, INT32_MAX, INT32_MIN};

// The entries of a list for which the predicate holds.
template <class T, class Predicate>
std::vector<T> those(const std::vector<T>& list, Predicate predicate) {
  std::vector<T> result;
  std::ranges::copy_if(list, std::back_inserter(result), predicate);
  return result;
}

bool fits(const Type& type, Wanted wanted) {
  return type.isBasic() && type.words() >= wanted.words &&
         (wanted.kind == WordKind::Float || type.kind() == WordKind::Bits);
}

// Words that exactly one constructor makes.
std::optional<VmOpcode> constructorOf(uint32_t words) {
  switch (words) {
    case 2:
      return VM_OP_CTOR_VEC2_A;
    case 3:
      return VM_OP_CTOR_VEC3_A;
    case 4:
      return VM_OP_CTOR_VEC4_A;
    case 9:
      return VM_OP_CTOR_MAT3;
    case 16:
      return VM_OP_CTOR_MAT4;
    default:
      return std::nullopt;
  }
}

uint32_t constructedWords(uint32_t words) { return words <= 4 ? words : words <= 9 ? 9 : 16; }

}  // namespace

const std::vector<Generator::Producer> Generator::kProducers = {
    &Generator::constant,   &Generator::variable,     &Generator::kernel,
    &Generator::kernel,     &Generator::idiom,        &Generator::constructor,
    &Generator::swizzle,    &Generator::product,      &Generator::geometric,
    &Generator::noise,      &Generator::component,    &Generator::column,
    &Generator::inlinePart, &Generator::inlinePart,   &Generator::compareAggregates,
    &Generator::reduction,  &Generator::twice,        &Generator::builtinVariable,
    &Generator::hostValue,  &Generator::callResult,   &Generator::callResult,
    &Generator::narrowed,   &Generator::narrowed,     &Generator::conditional,
    &Generator::outliving,  &Generator::keptArgument, &Generator::keptArgument,
    &Generator::callResult,
};

WordKind Type::kind() const {
  const bool isFloat = (code >= VM_TYPE_FLOAT && code <= VM_TYPE_VEC4) ||
                       (code >= VM_TYPE_MAT2 && code <= VM_TYPE_MAT4);
  return isFloat ? WordKind::Float : WordKind::Bits;
}

// An instruction that reads bits gets words whose bits are certain, if that matters.
WordKind Generator::operandKind(bool readsBits) const {
  return readsBits && options_.hidesNanBits ? WordKind::Bits : WordKind::Float;
}

void Generator::value(Wanted wanted, uint32_t depth) {
  if (budget_ > 0) --budget_;
  const uint32_t count = static_cast<uint32_t>(kProducers.size());
  for (int attempt = 0; attempt < 4 && depth < kDeepest && budget_ > 0; ++attempt) {
    if (!(this->*kProducers[choices_.below(count)])(wanted, depth + 1)) continue;
    if (choices_.oneIn(32)) probe();
    return;
  }
  if (choices_.oneIn(4) || !variable(wanted, depth)) constant(wanted, depth);
}

void Generator::value(const Type& type, uint32_t depth) {
  if (type.isBasic()) {
    value({type.kind(), type.words()}, depth);
  } else {
    aggregate(type, depth);
  }
}

void Generator::pushConstant(WordKind kind) {
  if (kind == WordKind::Float && !choices_.oneIn(4)) {
    code_->pushFloat(choices_.of(kFloats));
  } else if (choices_.oneIn(8)) {
    // No NaN: its bits would be certain here but not after arithmetic.
    code_->pushInt(choices_.value<int32_t>() & 0x7F7FFFFF);
  } else {
    code_->pushInt(choices_.of(kInts));
  }
}

bool Generator::constant(Wanted wanted, uint32_t) {
  if (wanted.words <= 4 && choices_.oneIn(3)) {
    code_->emit(choices_.oneIn(2) ? VM_OP_PUSH_ONE4_F : VM_OP_PUSH_ZERO4);
    return true;
  }
  pushConstant(wanted.kind);
  const auto opcode = constructorOf(constructedWords(wanted.words));
  if (opcode) code_->construct(*opcode, {1});
  return true;
}

bool Generator::variable(Wanted wanted, uint32_t) {
  const auto list = those(variables_, [&](const VariableRef& v) { return fits(v.type, wanted); });
  if (list.empty()) return false;
  const VariableRef& chosen = choices_.of(list);
  if (!chosen.isGlobal && wanted.words == 1 && choices_.oneIn(4)) {
    const uint32_t bound = chosen.type.words();
    code_->emit(VM_OP_LOAD_LOCAL_COMPONENT, {bound, choices_.below(bound), chosen.index});
  } else {
    code_->emit(chosen.isGlobal ? VM_OP_LOAD_GLOBAL : VM_OP_LOAD_LOCAL, {chosen.index});
  }
  return true;
}

// From an operand on; the first may be asked to be more than the instruction needs.
void Generator::kernelOperands(const OpcodeGroup& group, uint32_t words, Wanted first,
                               uint32_t depth, size_t from) {
  const WordKind kind = operandKind(!group.readsFloats());
  for (size_t i = from; i < group.shape().operands; ++i) {
    Wanted operand = {kind, group.shape().operandWords(static_cast<uint32_t>(i), words)};
    if (i == 0) {
      operand.words = std::max(operand.words, first.words);
      if (first.kind == WordKind::Bits) operand.kind = WordKind::Bits;
    }
    value(operand, depth);
  }
}

bool Generator::kernel(Wanted wanted, uint32_t depth) {
  const OpcodeGroup& group = choices_.of(kOpcodeGroups);
  if (group.kernel.empty()) return false;
  if (group.givesFloats() && wanted.kind == WordKind::Bits) return false;
  if (group.givesOneWord() ? wanted.words != 1 : wanted.words > group.countLimit()) return false;
  const bool reduces = group.givesOneWord() && group.countLimit() != 0;
  const uint32_t words = reduces ? choices_.between(1, 4) : wanted.words;
  kernelOperands(group, words, {WordKind::Float, 0}, depth);
  if (group.countLimit() == 0) {
    code_->emit(group.opcode);
  } else {
    code_->emit(group.opcode, {words});
  }
  return true;
}

bool Generator::constructor(Wanted wanted, uint32_t depth) {
  const uint32_t components = constructedWords(wanted.words);
  const auto opcode = constructorOf(components);
  if (!opcode) return false;
  std::vector<int64_t> counts;
  for (uint32_t filled = 0; filled < components;) {
    const uint32_t words = choices_.between(1, std::min(components, 4U));
    value({wanted.kind, words}, depth);
    counts.push_back(words);
    filled += words;
  }
  code_->emit(*opcode, counts);
  return true;
}

bool Generator::swizzle(Wanted wanted, uint32_t depth) {
  if (wanted.words > 4) return false;
  constexpr VmOpcode kTwins[] = {VM_OP_SWIZZLE, VM_OP_SWIZZLE_2, VM_OP_SWIZZLE_3};
  const uint32_t source = choices_.between(1, 4);
  value({wanted.kind, source}, depth);
  uint32_t mask = 0;
  for (uint32_t i = 0; i < wanted.words; ++i) mask |= choices_.below(source) << (2 * i);
  code_->emit(choices_.of(kTwins), {0, wanted.words, mask});
  return true;
}

bool Generator::product(Wanted wanted, uint32_t depth) {
  if (wanted.kind == WordKind::Bits) return false;
  const uint32_t words = wanted.words;
  const uint32_t dimension = words <= 4 ? std::max(words, 2U) : words <= 9 ? 3 : 4;
  const bool vectorFirst = choices_.oneIn(2);
  const VmOpcode opcode = words > 4     ? VM_OP_MUL_MAT_MAT
                          : vectorFirst ? VM_OP_MUL_VEC_MAT
                                        : VM_OP_MUL_MAT_VEC;
  const OperandShape& shape = operandShape(static_cast<Opcode>(opcode));
  for (uint32_t i = 0; i < shape.operands; ++i) {
    value({WordKind::Float, shape.operandWords(i, dimension)}, depth);
  }
  code_->emit(opcode, {dimension});
  return true;
}

bool Generator::geometric(Wanted wanted, uint32_t depth) {
  constexpr VmOpcode kOpcodes[] = {VM_OP_LENGTH,    VM_OP_DISTANCE,    VM_OP_DOT,
                                   VM_OP_NORMALIZE, VM_OP_FACEFORWARD, VM_OP_REFLECT,
                                   VM_OP_REFRACT,   VM_OP_CROSS};
  const VmOpcode opcode = choices_.of(kOpcodes);
  const OperandShape& shape = operandShape(static_cast<Opcode>(opcode));
  const bool crosses = shape.out == WordCount::Three;
  const bool givesScalar = shape.out == WordCount::One;
  if (wanted.kind == WordKind::Bits || (givesScalar && wanted.words != 1)) return false;
  if (crosses && wanted.words > 3) return false;
  const uint32_t count = givesScalar ? choices_.between(1, 4) : wanted.words;
  for (uint32_t i = 0; i < shape.operands; ++i) {
    value({WordKind::Float, shape.operandWords(i, count)}, depth);
  }
  if (crosses) {
    code_->emit(opcode);
  } else {
    code_->emit(opcode, {count});
  }
  return true;
}

// Instructions that compilers put behind each other: the translator joins them.
bool Generator::idiom(Wanted wanted, uint32_t depth) {
  if (wanted.kind == WordKind::Bits || wanted.words > 4) return kernel(wanted, depth);
  const Wanted scalar = {WordKind::Float, 1};
  if (wanted.words == 1) {
    const uint32_t count = choices_.between(1, 4);
    value({WordKind::Float, count}, depth);
    value({WordKind::Float, count}, depth);
    code_->emit(VM_OP_DOT, {count});
    value(scalar, choices_.oneIn(2) ? kDeepest : depth);
    code_->emit(VM_OP_MAX, {1});
    return true;
  }
  const bool scalarFirst = choices_.oneIn(2);
  if (!scalarFirst) value(wanted, depth);
  value(scalar, depth);
  code_->emit(*constructorOf(wanted.words), {1});
  if (scalarFirst) value(wanted, choices_.oneIn(2) ? kDeepest : depth);
  code_->emit(VM_OP_MUL_F, {wanted.words});
  if (choices_.oneIn(2)) return true;
  constexpr VmOpcode kSeconds[] = {VM_OP_ADD_F, VM_OP_SUB_F, VM_OP_MUL_F, VM_OP_DIV_F};
  value(wanted, choices_.oneIn(2) ? kDeepest : depth);
  code_->emit(choices_.of(kSeconds), {wanted.words});
  return true;
}

bool Generator::noise(Wanted wanted, uint32_t depth) {
  if (wanted.kind == WordKind::Bits || wanted.words > 4) return false;
  const uint32_t count = choices_.between(1, 4);
  value({WordKind::Float, count}, depth);
  code_->emit(static_cast<VmOpcode>(VM_OP_NOISE1 + wanted.words - 1), {count});
  return true;
}

// Mostly inside the bound.
void Generator::pushIndex(uint32_t bound, uint32_t depth) {
  if (!choices_.oneIn(4)) {
    code_->emit(VM_OP_PUSH_INDEX_IMM, {choices_.oneIn(200) ? bound : choices_.below(bound)});
    return;
  }
  const int32_t mask = static_cast<int32_t>(bound & ~1U) - (bound > 1 ? 1 : 0);
  if (options_.isInline && choices_.oneIn(2)) {
    anyBits(mask);
  } else {
    value({WordKind::Bits, 1}, depth);
    if (!choices_.oneIn(20)) {
      code_->pushInt(mask);
      code_->emit(VM_OP_BIT_AND, {1});
    }
  }
  code_->emit(VM_OP_PUSH_INDEX);
}

bool Generator::component(Wanted wanted, uint32_t depth) {
  if (wanted.words != 1) return false;
  constexpr VmOpcode kTwins[] = {VM_OP_VEC_ELEMENT, VM_OP_VEC_ELEMENT_2, VM_OP_VEC_ELEMENT_3};
  const uint32_t count = choices_.between(1, 4);
  value({wanted.kind, count}, depth);
  pushIndex(count, depth);
  code_->emit(choices_.of(kTwins), {count});
  return true;
}

bool Generator::column(Wanted wanted, uint32_t depth) {
  if (wanted.words < 2 || wanted.words > 4) return false;
  value({wanted.kind, wanted.words * wanted.words}, depth);
  pushIndex(wanted.words, depth);
  code_->emit(VM_OP_MAT_COLUMN, {wanted.words});
  return true;
}

void Generator::takePart(const PartRef& part, uint32_t depth) {
  aggregate(part.whole, depth);
  if (part.whole.count == 0) {
    code_->emit(VM_OP_STRUCT_FIELD, {part.whole.code, part.member});
    return;
  }
  pushIndex(part.whole.count, depth);
  code_->emit(VM_OP_ARRAY_ELEMENT, {part.whole.code});
}

bool Generator::inlinePart(Wanted wanted, uint32_t depth) {
  const auto list = those(parts_, [&](const PartRef& p) { return fits(p.part, wanted); });
  if (list.empty()) return false;
  takePart(choices_.of(list), depth);
  return true;
}

bool Generator::hasOnlyBits(const Type& type) const {
  if (type.code < 0) return type.kind() == WordKind::Bits;
  const auto& members = structs_[static_cast<size_t>(type.code)];
  return std::ranges::all_of(members, [&](const Type& member) { return hasOnlyBits(member); });
}

bool Generator::compareAggregates(Wanted wanted, uint32_t depth) {
  if (wanted.words != 1 || options_.isInline) return false;
  const Type type = anyAggregate();
  if (options_.hidesNanBits && !hasOnlyBits(type)) return false;
  aggregate(type, depth);
  aggregate(type, depth);
  code_->emit(choices_.oneIn(2) ? VM_OP_EQ_AGG : VM_OP_NE_AGG);
  return true;
}

bool Generator::reduction(Wanted wanted, uint32_t depth) {
  if (wanted.words != 1) return false;
  const uint32_t count = choices_.between(1, 4);
  value({operandKind(true), count}, depth);
  code_->emit(choices_.oneIn(2) ? VM_OP_ANY_B : VM_OP_ALL_B, {count});
  return true;
}

// The same value as both operands.
bool Generator::twice(Wanted wanted, uint32_t depth) {
  value(wanted, depth);
  code_->emit(VM_OP_DUP);
  if (choices_.oneIn(2)) code_->emit(VM_OP_SWAP);
  const bool bits = wanted.kind == WordKind::Bits;
  code_->emit(bits ? VM_OP_ADD_I : VM_OP_MUL_F, {wanted.words});
  return true;
}

bool Generator::builtinVariable(Wanted wanted, uint32_t) {
  std::vector<uint32_t> ids;
  for (uint32_t id = kFirstBuiltinVariable; id <= kLastBuiltinVariable; ++id) {
    const BuiltinFamily family = shadermachine::builtinVariable(id).family;
    if (family == BuiltinFamily::None || family >= BuiltinFamily::GlobalElement) continue;
    if (tools::basicTypeSize(tools::builtinValue(id).type) >= 4 * wanted.words) ids.push_back(id);
  }
  if (ids.empty()) return false;
  code_->emit(VM_OP_LOAD_BUILTIN, {choices_.of(ids)});
  return true;
}

// Look-ups, transforms and served functions; all of them give at most four words.
bool Generator::hostValue(Wanted wanted, uint32_t depth) {
  if (wanted.words > 4) return false;
  const uint32_t which = choices_.below(options_.isInline ? 2 : 3);
  if (which == 0) {
    value({operandKind(true), 4}, depth);
    code_->emit(static_cast<VmOpcode>(VM_OP_HOST_UNARY_1 + choices_.below(3)), {0});
  } else if (which == 1) {
    const uint32_t kind = choices_.below(8);
    const bool hasExtra = choices_.oneIn(2);
    value({WordKind::Bits, tools::kSamplerWords}, depth);
    value({operandKind(true), 4}, depth);
    if (hasExtra) value({operandKind(true), 1}, depth);
    code_->emit(choices_.oneIn(2) ? VM_OP_HOST_LOOKUP_1 : VM_OP_HOST_LOOKUP_2,
                {lookupForm(hasExtra ? 3 : 2, kind)});
  } else {
    const auto& function = choices_.of(tools::kBuiltinFunctions);
    const bool leavesValue = function.operandCount > function.pops;
    if (!leavesValue || function.writes < wanted.words) return false;
    for (uint32_t i = 0; i < function.operandCount; ++i) value({operandKind(true), 4}, depth);
    code_->emit(VM_OP_CALL_BUILTIN, {function.id});
  }
  return true;
}

std::optional<uint16_t> Generator::functionGiving(Wanted wanted) {
  std::vector<uint16_t> list;
  for (size_t i = current_ + size_t{1}; i < functions_.size(); ++i) {
    const auto& result = functions_[i].result;
    if (result && fits(*result, wanted)) list.push_back(static_cast<uint16_t>(i));
  }
  if (list.empty()) return std::nullopt;
  return choices_.of(list);
}

bool Generator::callResult(Wanted wanted, uint32_t depth) {
  const auto function = functionGiving(wanted);
  if (function) call(*function, depth);
  return function.has_value();
}

void Generator::construct(const Type& type, uint32_t depth) {
  if (type.count > 0) {
    for (uint32_t i = 0; i < type.count; ++i) value(Type{type.code, 0}, depth);
    code_->emit(VM_OP_CTOR_ARRAY, {type.code, type.count});
    return;
  }
  for (const Type& member : structs_[static_cast<size_t>(type.code)]) value(member, depth);
  code_->emit(VM_OP_CTOR_STRUCT, {type.code});
}

void Generator::aggregate(const Type& type, uint32_t depth) {
  if (budget_ > 0) --budget_;
  const bool isSpecial = depth < kDeepest && budget_ > 0 && choices_.oneIn(4);
  if (isSpecial && heldAggregate(type, depth + 1)) return;
  const auto loads = those(variables_, [&](const VariableRef& v) { return v.type == type; });
  const auto takes = those(parts_, [&](const PartRef& p) { return p.part == type; });
  const auto views = those(builtinViews_, [&](const BuiltinView& v) { return v.type == type; });
  const uint32_t choice = choices_.below(5);
  if (!views.empty() && choice == 4) {
    code_->emit(VM_OP_LOAD_BUILTIN, {choices_.of(views).id});
  } else if (choice <= 1 && !loads.empty()) {
    const VariableRef& chosen = choices_.of(loads);
    code_->emit(chosen.isGlobal ? VM_OP_LOAD_GLOBAL : VM_OP_LOAD_LOCAL, {chosen.index});
  } else if (choice == 2 && !takes.empty() && depth < kDeepest && budget_ > 0) {
    takePart(choices_.of(takes), depth + 1);
  } else {
    construct(type, depth + 1);
  }
}

}  // namespace shadermachine::fuzz
