#include "step.h"

#include <algorithm>

namespace shadermachine::tools {

bool ReturnSummary::disagreesWith(const ReturnSummary& other) const {
  if (kind == ReturnKind::Never || other.kind == ReturnKind::Never) return false;
  if (kind != other.kind) return true;
  return kind == ReturnKind::Aggregate && (type != other.type || count != other.count);
}

bool ReturnSummary::mergeWith(const ReturnSummary& other) {
  if (other.kind == ReturnKind::Never || isMixed) return false;
  if (kind == ReturnKind::Never) {
    *this = other;
    return true;
  }
  // Mixed is the last that can be known: what it was before stays for the messages.
  if (disagreesWith(other) || other.isMixed) {
    isMixed = true;
    return true;
  }
  if (other.words >= words) return false;
  words = other.words;
  return true;
}

std::string describe(const Types& types, const ReturnSummary& summary) {
  switch (summary.kind) {
    case ReturnKind::Inline:
      return "an inline value";
    case ReturnKind::Aggregate:
      return "a view of " + types.describe(summary.type, summary.count);
    default:
      return "nothing";
  }
}

void Step::needWords(uint32_t k, uint32_t words) {
  const Slot& slot = stack.below(k);
  if (slot.isView()) {
    error("S", k, " is ", describe(program.types, slot), ", an inline value is needed");
  } else if (slot.isInline() && slot.words < words) {
    error("S", k, " has ", counted(slot.words, "defined word"), ", ", words, " needed");
  }
}

void Step::needView(uint32_t k) {
  if (stack.below(k).isInline()) error("S", k, " is inline, a view is needed");
}

void Step::needView(uint32_t k, TypeCode type, uint32_t count) {
  const Slot& slot = stack.below(k);
  if (!slot.isKnown() || (slot.isView() && slot.type == type && slot.count == count)) return;
  error("S", k, " is ", describe(program.types, slot), ", a view of ",
        program.types.describe(type, count), " is needed");
}

void Step::needSole(uint32_t k) {
  if (stack.below(k).isView() && stack.hasTwin(k)) {
    error("S", k, " has a twin made by DUP, which must be dropped first");
  }
}

void Step::needValueOf(uint32_t k, const VarInfo& variable) {
  if (isBasic(variable)) return needWords(k, variable.byteSize / kWordBytes);
  needView(k, variable.type, variable.count);
  needSole(k);
}

const VarInfo* Step::localBelow(uint32_t k) const {
  // Wraps where k is a value's; then it is no local's.
  const uint32_t depth = k - stack.size();
  const bool isLocal = k >= stack.size() && depth < function.localCount;
  return isLocal ? &function.locals[function.localCount - 1 - depth] : nullptr;
}

bool Step::needDepth(uint32_t n) {
  if (stack.size() >= n) return true;
  error("needs ", counted(n, "value"), " above the locals, there ",
        stack.size() == 1 ? "is " : "are ", stack.size());
  end();
  return false;
}

bool Step::needRoom() {
  if (function.localCount + stack.size() < VM_STACK_CAPACITY) return true;
  stops(VM_ERR_STACK_OVERFLOW, "the value stack is full");
  return false;
}

void Step::push(const Slot& slot) {
  if (needRoom()) stack.push(slot);
}

void Step::drop(uint32_t n) {
  for (uint32_t k = 0; k < n; ++k) {
    if (stack.below(0).isView() && !stack.hasTwin(0)) {
      error("S", k, " is ", describe(program.types, stack.below(0)), " and leaves without release");
    }
    stack.drop(1);
  }
}

void Step::write(uint32_t k, uint32_t words) {
  Slot& slot = stack.below(k);
  if (slot.isView()) return stack.set(k, unknownSlot());  // reported by needWords()
  if (!slot.isInline()) return;
  // Fewer words may be written than there were; those behind them stay defined.
  slot.words = static_cast<uint8_t>(std::max<uint32_t>(slot.words, words));
  slot.constant.reset();
  slot.isPosition = false;
}

Slot Step::slotOf(const VarInfo& variable) const {
  if (isBasic(variable)) return inlineSlot(variable.byteSize / kWordBytes);
  return viewSlot(variable.type, variable.count);
}

}  // namespace shadermachine::tools
