// All passes over a form, in the order in which each finds what the one before has made.
#pragma once

#include "form/form.h"
#include "machine/machine.h"

namespace shadermachine::engine {

// Debug and sanitizer builds check the form's invariants after every pass. False when half of the
// run's time is over: the form is sound then, but nobody should go on with it.
bool improve(form::Form& form, Machine& machine);

// Component-wise operations on constants become constants, computed by the handlers themselves.
void foldConstants(form::Form& form, Machine& machine);

}  // namespace shadermachine::engine
