#pragma once

#include <shadermachine/shadermachine.h>

namespace shadermachine {

// Static text of an error code.
const char* errorMessage(uint32_t code);

}  // namespace shadermachine
