#include "engine/improve.h"

#include <cassert>

#include "form/check.h"
#include "form/passes.h"

namespace shadermachine::engine {
namespace {

void expectSound([[maybe_unused]] const form::Form& form) {
  assert(form::check(form).text == nullptr);
}

}  // namespace

// Most passes take less than building the form did, so that a look between them is enough; the
// others look themselves.
bool improve(form::Form& form, Machine& machine) {
  using Pass = void (*)(form::Form&, Machine&);
  constexpr Pass kPasses[] = {
      [](form::Form& passed, Machine& m) { form::borrowBlocks(passed, m.timeLimit); },
      [](form::Form& passed, Machine&) { form::settleAggregates(passed); },
      [](form::Form& passed, Machine&) { form::forwardLoads(passed); },
      &foldConstants,
      [](form::Form& passed, Machine&) { form::shareEqual(passed); },
      [](form::Form& passed, Machine& m) { form::dropDead(passed, m.timeLimit); },
  };
  expectSound(form);
  for (const Pass pass : kPasses) {
    if (isHalfOver(machine.timeLimit)) return false;
    pass(form, machine);
    expectSound(form);
  }
  return !isHalfOver(machine.timeLimit);
}

}  // namespace shadermachine::engine
