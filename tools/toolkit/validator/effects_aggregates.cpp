// Structures and arrays: constructors, comparison, parts and element stores.

#include "access_path.h"
#include "effects.h"

namespace shadermachine::tools::effects {
namespace {

// n operands are moved into a new block.
void construct(Step& step, uint32_t n, const Slot& result) {
  step.stack.drop(n - 1);
  step.stack.set(0, result);
}

VarInfo element(TypeCode type, uint32_t bytes) {
  VarInfo info = {};
  info.type = type;
  info.byteSize = bytes;
  return info;
}

}  // namespace

void constructStruct(Step& step) {
  const uint32_t type = step.operand(0);
  const StructInfo* info = step.program.types.structure(static_cast<TypeCode>(type));
  if (info == nullptr || info->memberCount == 0) {
    step.error(step.program.types.structureName(type),
               info == nullptr ? " has no type code" : " has no members");
    return step.end();
  }
  const uint32_t n = info->memberCount;
  if (!step.needDepth(n)) return;
  // The first member was pushed first and lies deepest.
  for (uint32_t i = 0; i < n; ++i) step.needValueOf(n - 1 - i, info->members[i]);
  construct(step, n, viewSlot(static_cast<TypeCode>(type), 0));
}

void constructArray(Step& step) {
  const auto type = static_cast<TypeCode>(step.operand(0));
  const uint32_t n = step.operand(1);
  const uint32_t bytes = step.program.types.elementBytes(type);
  if (bytes == 0 || n == 0 || uint64_t{bytes} * n > UINT32_MAX) {
    step.error(bytes == 0 ? text("there is no type ", type)
                          : text("an array of ", n, " elements cannot be made"));
    return step.end();
  }
  if (!step.needDepth(n)) return;
  const VarInfo info = element(type, bytes);
  for (uint32_t i = 0; i < n; ++i) step.needValueOf(n - 1 - i, info);
  construct(step, n, viewSlot(type, n));
}

void equalAggregates(Step& step) {
  // The comparison releases both, so that neither may be named a second time.
  for (uint32_t k = 0; k < 2; ++k) {
    step.needView(k);
    step.needSole(k);
  }
  const Slot& a = step.stack.below(1);
  const Slot& b = step.stack.below(0);
  if (a.isView() && b.isView() && (a.type != b.type || a.count != b.count)) {
    step.warning("compares ", describe(step.program.types, a), " with ",
                 describe(step.program.types, b));
  }
  step.stack.drop(1);
  step.stack.set(0, inlineSlot(1));
}

void notEqualAggregates(Step& step) { equalAggregates(step); }

void structField(Step& step) {
  const uint32_t type = step.operand(0);
  const uint32_t number = step.operand(1);
  const StructInfo* info = step.program.types.structure(static_cast<int32_t>(type));
  if (info == nullptr || number >= info->memberCount) {
    step.error(step.program.types.structureName(type), " has no member ", number);
    return step.stack.set(0, unknownSlot());
  }
  // Taking a part ends the reference to the whole.
  step.needView(0, static_cast<TypeCode>(type), 0);
  step.needSole(0);
  step.stack.set(0, step.slotOf(info->members[number]));
}

void arrayElement(Step& step) {
  const auto type = static_cast<TypeCode>(step.operand(0));
  const uint32_t bytes = step.program.types.elementBytes(type);
  const Slot& slot = step.stack.below(0);
  if (bytes == 0) {
    step.error("there is no type ", type);
    return step.stack.set(0, unknownSlot());
  }
  if (slot.isKnown() && (!slot.isView() || slot.count == 0 || slot.type != type)) {
    step.error("S0 is ", describe(step.program.types, slot), ", a view of an array of ",
               step.program.types.describe(type, 0), " is needed");
  }
  step.needSole(0);
  step.stack.set(0, step.slotOf(element(type, bytes)));
}

// Element stores ----------------------------------------------------------------------------------

namespace {

// What a negative index could make of the store.
void needStrayWords(Step& step, const AccessPaths& paths, uint32_t n) {
  const Slot& value = step.stack.below(n);
  const uint32_t words = paths.strayWords();
  if (!paths.strayProblem().empty()) {
    step.error("an index may be negative: ", paths.strayProblem());
  } else if (words != 0 && value.isKnown() && (value.isView() || value.words < words)) {
    step.error("an index may be negative and select components: S", n, " must be inline with ",
               counted(words, "defined word"));
  }
}

// The value lies n slots below the top, the indices above it.
void storeElement(Step& step, const AccessPaths& paths, uint32_t n) {
  const AccessPath& path = paths.meant();
  const std::string reason = path.dropReason();
  if (!path.problem().empty()) {
    step.error(path.problem());
  } else if (!reason.empty()) {
    step.warning("never stores: ", reason);
  } else if (path.isAggregate() && !path.writesNothing()) {
    step.needView(n, path.type(), path.count());
  } else if (!path.writesNothing()) {
    step.needWords(n, path.words());
  }
  needStrayWords(step, paths, n);
  step.needSole(n);
  step.stack.drop(n + 1);
}

void storeByStack(Step& step, const VarInfo& variable) {
  const uint32_t n = step.operand(1);
  if (!step.needDepth(n + 1)) return;
  AccessPaths paths(step.program.types, variable);
  bool isFollowed = true;
  // The index on top is applied first.
  for (uint32_t k = 0; k < n; ++k) {
    step.needWords(k, 1);
    const Slot& index = step.stack.below(k);
    // What is unknown after an error counts as fixed, so that the error is told once.
    const bool isFixed = index.constant || index.isPosition || !index.isKnown();
    isFollowed = isFollowed && paths.step(index.constant, isFixed);
  }
  storeElement(step, paths, n);
}

void storeByOperands(Step& step, const VarInfo& variable) {
  if (!step.needDepth(1)) return;
  AccessPaths paths(step.program.types, variable);
  for (uint32_t k = 0; k < step.operand(1); ++k) {
    if (!paths.step(step.instruction.listedIndex(k), true)) break;
  }
  storeElement(step, paths, 0);
}

}  // namespace

void storeLocalElem(Step& step) { storeByStack(step, step.function.locals[step.operand(0)]); }
void storeLocalElemImm(Step& step) { storeByOperands(step, step.function.locals[step.operand(0)]); }

void storeGlobalElem(Step& step) {
  storeByStack(step, step.program.shader.globals[step.operand(0)]);
}
void storeGlobalElemImm(Step& step) {
  storeByOperands(step, step.program.shader.globals[step.operand(0)]);
}

}  // namespace shadermachine::tools::effects
