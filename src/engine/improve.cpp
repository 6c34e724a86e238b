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

// Each pass takes less than building the form did, so a look between them is enough.
bool improve(form::Form& form, Machine& machine) {
  using Pass = void (*)(form::Form&, Machine&);
  constexpr Pass kPasses[] = {
      [](form::Form& passed, Machine&) { form::borrowBlocks(passed); },
      [](form::Form& passed, Machine&) { form::settleAggregates(passed); },
      [](form::Form& passed, Machine&) { form::forwardLoads(passed); },
      &foldConstants,
      [](form::Form& passed, Machine&) { form::shareEqual(passed); },
      [](form::Form& passed, Machine&) { form::dropDead(passed); },
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
