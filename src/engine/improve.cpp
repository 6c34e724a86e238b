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

void improve(form::Form& form, Machine& machine) {
  expectSound(form);
  form::forwardLoads(form);
  expectSound(form);
  foldConstants(form, machine);
  expectSound(form);
  form::shareEqual(form);
  expectSound(form);
  form::dropDead(form);
  expectSound(form);
}

}  // namespace shadermachine::engine
