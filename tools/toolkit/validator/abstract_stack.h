// What is known about the value stack above a function's locals at one place in its code.
#pragma once

#include <shadermachine/machine.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "types.h"

namespace shadermachine::tools {

enum class SlotKind : uint8_t {
  Inline,
  View,
  Unknown,   // after an error; every use is accepted so that one mistake is reported once
  Conflict,  // differs between the paths that lead here; accepted likewise
};

struct Slot {
  SlotKind kind = SlotKind::Inline;
  uint8_t words = 0;                // defined words of an inline value, from component 0
  uint16_t reference = 0;           // of a view: lowest position that names the same reference
  TypeCode type = 0;                // of a view: structure, or element type of an array
  uint32_t count = 0;               // of a view: array length; 0 for a structure
  std::optional<int32_t> constant;  // component 0 where it is known
  bool isPosition = false;          // component 0, an integer, is known not to be negative

  bool isInline() const { return kind == SlotKind::Inline; }
  bool isView() const { return kind == SlotKind::View; }
  bool isKnown() const { return isInline() || isView(); }
};

Slot inlineSlot(uint32_t words);
Slot constantSlot(int32_t value);
Slot viewSlot(TypeCode type, uint32_t count);
Slot unknownSlot();

// "an inline value", "a view of structure light"
std::string describe(const Types& types, const Slot& slot);

// Position 0 lies just above the locals. Views hold one reference each; twins made by DUP share
// one, which their equal `reference` tells.
class AbstractStack {
 public:
  uint32_t size() const { return static_cast<uint32_t>(slots_.size()); }
  Slot& below(uint32_t k) { return slots_[slots_.size() - 1 - k]; }
  const Slot& below(uint32_t k) const { return slots_[slots_.size() - 1 - k]; }
  const Slot& at(uint32_t position) const { return slots_[position]; }

  void push(Slot slot);
  // Another name for the top's reference, or a copy of an inline value.
  void duplicate();
  void swap();
  // The slot's value is replaced; a view is a reference of its own.
  void set(uint32_t k, Slot slot);
  void drop(uint32_t n) { slots_.resize(slots_.size() - n); }

  // True when another slot names the same reference as the view k below the top.
  bool hasTwin(uint32_t k) const;

  // Keeps what holds of both. The sizes must be equal. True when something changed.
  bool mergeWith(const AbstractStack& other);

 private:
  std::vector<Slot> slots_;
};

}  // namespace shadermachine::tools
