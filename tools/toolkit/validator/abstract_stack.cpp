#include "abstract_stack.h"

#include <algorithm>
#include <utility>

namespace shadermachine::tools {
namespace {

bool sameView(const Slot& a, const Slot& b) {
  return a.type == b.type && a.count == b.count && a.reference == b.reference;
}

bool mergeInline(Slot& into, const Slot& from) {
  bool changed = false;
  // Whatever changes, less is known than before: that is what ends the search over loops.
  if (from.words < into.words) {
    into.words = from.words;
    changed = true;
  }
  if (into.constant && into.constant != from.constant) {
    into.constant.reset();
    changed = true;
  }
  if (into.isPosition && !from.isPosition) {
    into.isPosition = false;
    changed = true;
  }
  return changed;
}

bool mergeSlot(Slot& into, const Slot& from) {
  if (!into.isKnown()) return false;
  if (from.isKnown() && into.kind == from.kind) {
    if (into.isInline()) return mergeInline(into, from);
    if (sameView(into, from)) return false;
  }
  // Known against known of another kind is the mistake; what is unknown already was reported where
  // it became so.
  const SlotKind kind = from.isKnown() ? SlotKind::Conflict : from.kind;
  into = unknownSlot();
  into.kind = kind;
  return true;
}

}  // namespace

Slot inlineSlot(uint32_t words) {
  Slot slot;
  slot.words = static_cast<uint8_t>(words);
  return slot;
}

Slot constantSlot(int32_t value) {
  Slot slot = inlineSlot(1);
  slot.constant = value;
  slot.isPosition = value >= 0;
  return slot;
}

Slot viewSlot(TypeCode type, uint32_t count) {
  Slot slot;
  slot.kind = SlotKind::View;
  slot.type = type;
  slot.count = count;
  return slot;
}

Slot unknownSlot() {
  Slot slot;
  slot.kind = SlotKind::Unknown;
  return slot;
}

std::string describe(const Types& types, const Slot& slot) {
  if (!slot.isView()) return "an inline value";
  return "a view of " + types.describe(slot.type, slot.count);
}

void AbstractStack::push(Slot slot) {
  slot.reference = static_cast<uint16_t>(slots_.size());
  slots_.push_back(slot);
}

void AbstractStack::duplicate() { slots_.push_back(Slot(slots_.back())); }

void AbstractStack::swap() {
  const auto top = static_cast<uint16_t>(slots_.size() - 1);
  Slot& a = below(1);
  Slot& b = below(0);
  // Twins: either way the same.
  if (a.isView() && b.isView() && a.reference == b.reference) return;
  std::swap(a, b);
  // The lowest name of a reference moves with the slot; other names cannot lie above the two.
  if (a.reference == top) a.reference = static_cast<uint16_t>(top - 1);
  if (b.reference == top - 1) b.reference = top;
}

void AbstractStack::set(uint32_t k, Slot slot) {
  // A value that is put here has no twin yet, and a reference is named by its lowest position.
  slot.reference = static_cast<uint16_t>(slots_.size() - 1 - k);
  below(k) = slot;
}

bool AbstractStack::hasTwin(uint32_t k) const {
  const uint16_t reference = below(k).reference;
  // The lowest twin gives the name: another name means that one lies below, the same name that
  // others may lie above.
  if (reference != slots_.size() - 1 - k) return true;
  return std::any_of(slots_.end() - k, slots_.end(), [&](const Slot& other) {
    return other.isView() && other.reference == reference;
  });
}

bool AbstractStack::mergeWith(const AbstractStack& other) {
  bool changed = false;
  for (size_t i = 0; i < slots_.size(); ++i) changed |= mergeSlot(slots_[i], other.slots_[i]);
  return changed;
}

}  // namespace shadermachine::tools
