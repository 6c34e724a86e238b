// Comparison of aggregates and reductions of boolean vectors.

#include "instructions/handlers.h"

namespace shadermachine {
namespace {

// The cleared view leaves A as an inline value whose component 1 is 0.
void compareAggregates(Machine& machine, bool wanted) {
  BlockView& a = topSlot(machine, 1).view;
  BlockView& b = topSlot(machine).view;
  if (!chargeBytes(machine, a.size)) return;
  const bool equal = blockEqual(machine, &a, &b);
  blockRelease(&b);
  blockRelease(&a);
  topSlot(machine, 1).value.words[0] = equal == wanted ? 1 : 0;
  popSlot(machine);
}

// T[0] = `wanted` when some component has that truth value, else the other truth value.
void findTruth(Machine& machine, bool wanted) {
  uint32_t n;
  if (!fetchCount(machine, VM_COMPONENT_COUNT, n)) return;
  uint32_t* t = topSlot(machine).value.words;
  uint32_t i = 0;
  while (i < n && (t[i] != 0) != wanted) ++i;
  t[0] = (i < n) == wanted ? 1 : 0;
}

}  // namespace

void equalAggregates(Machine& machine) { compareAggregates(machine, true); }
void notEqualAggregates(Machine& machine) { compareAggregates(machine, false); }
void anyTrue(Machine& machine) { findTruth(machine, true); }
void allTrue(Machine& machine) { findTruth(machine, false); }

}  // namespace shadermachine
