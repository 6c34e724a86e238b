// The form of a shader, and the records chosen for it, as text for people and tests.
#pragma once

#include <string>

#include "form/form.h"

namespace shadermachine::tools {

// Block by block; %n is the value of operation n, s3 a slot, i0 an index, t1 a scratch place, and
// s3.2+2 two words of slot 3 from word 2. A star marks operations at which the host can look.
std::string formText(const form::Form& form);

// One operation, without its number.
std::string operationText(const form::Form& form, const form::Operation& operation);

}  // namespace shadermachine::tools
