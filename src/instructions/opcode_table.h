// Dispatch: the handler of every opcode byte.
#pragma once

#include <array>

#include "machine/machine.h"

namespace shadermachine {

// Indexed by opcode byte; the bytes without an opcode end the run with 6.
extern const std::array<Handler, 256> kHandlers;

}  // namespace shadermachine
