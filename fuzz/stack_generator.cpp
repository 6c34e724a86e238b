// What instructions allow and compilers never make: values of other widths than the instructions
// that work on them, values that stay on the stack over branches, statements and calls, results in
// the place of other values.

#include <shadermachine/machine.h>

#include <algorithm>
#include <utility>

#include "fuzz/generator.h"
#include "fuzz/opcode_groups.h"

namespace shadermachine::fuzz {
namespace {

constexpr uint32_t kLeaf = UINT32_MAX - 1;  // as depth of an expression: nothing nested
constexpr uint32_t kArgumentDepth = 3;      // of an expression too, at most
constexpr uint32_t kInnermost = 3;          // as depth of a statement

}  // namespace

// Shows the host the whole stack.
void Generator::probe() {
  code_->pushInt(0);
  code_->emit(VM_OP_HOST_UNARY_1, {0});
  code_->emit(VM_OP_POP);
}

// Widths ------------------------------------------------------------------------------------------

bool Generator::workByKernel(Wanted top, uint32_t depth) {
  const OpcodeGroup& group = choices_.of(kOpcodeGroups);
  if (group.kernel.empty()) return false;
  const bool bits = top.kind == WordKind::Bits;
  if (bits ? group.givesFloats() : !group.readsFloats()) return false;
  const bool counted = group.countLimit() != 0;
  const uint32_t words = counted ? choices_.between(1, std::min(top.words, group.countLimit())) : 1;
  kernelOperands(group, words, top, depth, 1);
  if (counted) {
    code_->emit(group.opcode, {words});
  } else {
    code_->emit(group.opcode);
  }
  return true;
}

bool Generator::workByGeometry(Wanted top, uint32_t depth) {
  if (top.kind == WordKind::Bits) return false;
  const uint32_t words = choices_.between(1, std::min(top.words, 4U));
  switch (choices_.below(5)) {
    case 0:
      code_->emit(choices_.oneIn(2) ? VM_OP_LENGTH : VM_OP_NORMALIZE, {words});
      return true;
    case 1:
      value({WordKind::Float, words}, depth);
      code_->emit(choices_.oneIn(2) ? VM_OP_DOT : VM_OP_DISTANCE, {words});
      return true;
    case 2:
      code_->emit(static_cast<VmOpcode>(VM_OP_NOISE1 + choices_.below(words)), {words});
      return true;
    case 3:
      pushIndex(words, depth);
      code_->emit(VM_OP_VEC_ELEMENT, {words});
      return true;
    default:
      if (top.words < 2) return false;
      value({WordKind::Float, 1}, depth);
      code_->construct(VM_OP_CTOR_VEC2_A, {1, 1});
      return true;
  }
}

// Instructions on some words of the top value, which keeps the others.
void Generator::workOn(Wanted top, uint32_t depth) {
  for (uint32_t i = choices_.between(1, 2); i > 0; --i) {
    if (choices_.oneIn(3) && workByGeometry(top, depth)) continue;
    for (int attempt = 0; attempt < 4; ++attempt) {
      if (workByKernel(top, depth)) break;
    }
  }
}

bool Generator::narrowed(Wanted wanted, uint32_t depth) {
  if (wanted.words < 2) wanted.words = choices_.between(2, 4);
  value(wanted, depth);
  workOn(wanted, depth);
  return true;
}

// Lifetimes ---------------------------------------------------------------------------------------

// A value of so many words and no more. Where ways meet, a word means something only if all of them
// have defined it, which a run of one of them cannot tell.
void Generator::exactValue(Wanted wanted, uint32_t depth) {
  constexpr uint32_t kIdentity = 0b11'10'01'00;
  value(wanted, depth);
  code_->emit(VM_OP_SWIZZLE, {0, wanted.words, kIdentity & ((1U << 2 * wanted.words) - 1)});
}

// A value that one way of two changes or replaces.
bool Generator::conditional(Wanted wanted, uint32_t depth) {
  if (wanted.words > 4) return false;
  const tools::Label end = code_->newLabel();
  exactValue(wanted, depth);
  value({WordKind::Bits, 1}, depth);
  code_->jumpIfFalse(end);
  if (choices_.oneIn(2)) {
    code_->emit(VM_OP_POP);
    exactValue(wanted, depth);
  } else {
    workOn(wanted, depth);
  }
  code_->bind(end);
  return true;
}

// A reference on the stack while its variable, or anything, is stored into; or one of two.
bool Generator::heldAggregate(const Type& type, uint32_t depth) {
  if (choices_.oneIn(3)) {
    const tools::Label otherwise = code_->newLabel();
    const tools::Label end = code_->newLabel();
    condition();
    code_->jumpIfFalse(otherwise);
    aggregate(type, depth);
    code_->jump(end);
    code_->bind(otherwise);
    aggregate(type, depth);
    code_->bind(end);
    return true;
  }
  for (const VariableRef& variable : variables_) {
    const Type element = {variable.type.code, 0};
    const bool isElement = variable.type.count > 0 && type == element;
    if (variable.type != type && !isElement) continue;
    code_->emit(variable.isGlobal ? VM_OP_LOAD_GLOBAL : VM_OP_LOAD_LOCAL, {variable.index});
    if (isElement) pushIndex(variable.type.count, depth);
    if (isElement) code_->emit(VM_OP_ARRAY_ELEMENT, {type.code});
    if (choices_.oneIn(2)) probe();
    if (choices_.oneIn(4)) code_->emit(VM_OP_MAKE_UNIQUE);
    if (choices_.oneIn(3)) {
      statement(kInnermost - choices_.below(2));
    } else if (choices_.oneIn(2)) {
      aggregate(variable.type, depth);
      store(variable);
    } else {
      assignPartByOperands(variable);
    }
    return true;
  }
  return false;
}

// A value with statements above it.
bool Generator::outliving(Wanted wanted, uint32_t depth) {
  value(wanted, depth);
  const bool twin = choices_.oneIn(2);
  if (twin) code_->emit(VM_OP_DUP);
  statement(kInnermost - choices_.below(2));
  if (!twin) return true;
  if (choices_.oneIn(2)) code_->emit(VM_OP_SWAP);
  code_->emit(VM_OP_POP);
  return true;
}

// Calls -------------------------------------------------------------------------------------------

void Generator::pushArgument(const Type& type, const Wanted* kept, uint32_t depth) {
  if (!type.isBasic()) return aggregate(type, depth);
  Wanted wanted = {type.kind(), type.words()};
  if (kept != nullptr) {
    wanted.words = std::max(wanted.words, kept->words);
    if (kept->kind == WordKind::Bits) wanted.kind = WordKind::Bits;
  }
  value(wanted, depth);
  if (choices_.oneIn(3)) workOn(wanted, kLeaf);
}

// The result replaces what lies below the arguments: nothing, another value, or that which the
// first argument duplicates.
void Generator::pushArguments(const Signature& signature, const KeptArgument& kept,
                              uint32_t depth) {
  depth = std::min(depth, kArgumentDepth);
  const auto& parameters = signature.parameters;
  const auto push = [&](size_t i) {
    pushArgument(parameters[i], i == kept.number ? &kept.wanted : nullptr, depth);
  };
  size_t first = 0;
  if (signature.result) {
    const uint32_t words = choices_.oneIn(2) ? 1 : choices_.between(1, 4);
    switch (choices_.below(4)) {
      case 1:
        value({WordKind::Float, words}, depth);
        break;
      case 2:
        value({WordKind::Float, words}, depth);
        code_->emit(VM_OP_NEG_F, {words});
        break;
      case 3:
        if (parameters.empty() || !parameters[0].isBasic()) {
          code_->emit(VM_OP_PUSH_ONE4_F);
          break;
        }
        push(first++);
        code_->emit(VM_OP_DUP);
        break;
      default:
        code_->emit(VM_OP_PUSH_EMPTY);
    }
  }
  for (size_t i = first; i < parameters.size(); ++i) push(i);
}

// A function that touches one register at the most.
void Generator::finishWithSum() {
  const auto& result = functions_[current_].result;
  if (!result || !result->isBasic() || result->kind() == WordKind::Bits) return finishFunction();
  const uint32_t words = result->words();
  value(*result, kLeaf);
  value(*result, kLeaf);
  code_->emit(choices_.oneIn(2) ? VM_OP_ADD_F : VM_OP_COMP_MUL_F, {words});
  code_->emit(VM_OP_RETURN_VALUE);
}

void Generator::call(uint16_t function, uint32_t depth) {
  const Signature& signature = functions_[function];
  pushArguments(signature, {}, depth);
  code_->emit(VM_OP_CALL, {function});
  if (choices_.oneIn(8)) probe();
  for (size_t i = signature.parameters.size(); i-- > 0;) {
    code_->emit(signature.parameters[i].isBasic() ? VM_OP_POP : VM_OP_POP_RELEASE);
  }
  if (!signature.result || !signature.result->isBasic() || choices_.oneIn(2)) return;
  workOn({signature.result->kind(), signature.result->words()}, kLeaf);
}

// Of what a call leaves on the stack an argument is used instead of the result.
bool Generator::keptArgument(Wanted wanted, uint32_t depth) {
  std::vector<std::pair<uint16_t, size_t>> list;
  for (size_t f = current_ + size_t{1}; f < functions_.size(); ++f) {
    const auto& parameters = functions_[f].parameters;
    for (size_t p = 0; p < parameters.size(); ++p) {
      const bool fits = wanted.kind == WordKind::Float || parameters[p].kind() == WordKind::Bits;
      if (parameters[p].isBasic() && fits) list.emplace_back(static_cast<uint16_t>(f), p);
    }
  }
  if (list.empty()) return false;
  const auto [function, number] = choices_.of(list);
  const Signature& signature = functions_[function];
  pushArguments(signature, {number, wanted}, depth);
  code_->emit(VM_OP_CALL, {function});
  if (choices_.oneIn(4)) probe();
  const auto release = [&](const Type& type) {
    code_->emit(type.isBasic() ? VM_OP_POP : VM_OP_POP_RELEASE);
  };
  for (size_t i = signature.parameters.size() - 1; i > number; --i) {
    release(signature.parameters[i]);
  }
  for (size_t i = number; i-- > 0;) {
    code_->emit(VM_OP_SWAP);
    release(signature.parameters[i]);
  }
  if (signature.result) {
    code_->emit(VM_OP_SWAP);
    release(*signature.result);
  }
  return true;
}

// Limits ------------------------------------------------------------------------------------------

// More than translations keep apart, or a few less.
void Generator::manyTemporaries() {
  const uint32_t count = choices_.between(36, 56);
  const uint32_t words = choices_.between(1, 4);
  for (uint32_t i = 0; i < count; ++i) value({WordKind::Float, words}, kLeaf);
  if (choices_.oneIn(2)) statement(kInnermost);
  probe();
  for (uint32_t i = 1; i < count; ++i) code_->emit(VM_OP_ADD_F, {choices_.between(1, words)});
  probe();
  code_->emit(VM_OP_POP);
}

// All entries of the index stack, or nearly all; what runs above may overflow it.
void Generator::fullIndexStack() {
  const uint32_t count = VM_INDEX_STACK_CAPACITY - choices_.below(4);
  for (uint32_t i = 0; i < count; ++i) code_->emit(VM_OP_PUSH_INDEX_IMM, {choices_.below(2)});
  if (choices_.oneIn(2)) statement(kInnermost);
  probe();
  value({WordKind::Float, 2}, kLeaf);
  for (uint32_t i = 0; i < count; ++i) code_->emit(VM_OP_VEC_ELEMENT, {2});
  code_->emit(VM_OP_POP);
}

}  // namespace shadermachine::fuzz
