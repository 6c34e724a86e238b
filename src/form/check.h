// Checks a form's invariants, for debug and fuzz builds and for the tools.
#pragma once

#include "form/form.h"

namespace shadermachine::form {

struct Fault {
  const char* text = nullptr;  // null: nothing is wrong
  uint32_t operation = 0;
};

Fault check(const Form& form);

}  // namespace shadermachine::form
