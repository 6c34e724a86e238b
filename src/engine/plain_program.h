// The program of a shader that is left to the plain handlers: one record, which runs them.
#pragma once

#include "engine/records.h"
#include "instructions/opcode_table.h"

namespace shadermachine::engine {

extern const Record kPlainProgram;

// Runs instructions by their plain handlers. Looks at the clock between batches: code without jumps
// can be long.
template <class GoesOn>
void runPlainWhile(Machine& machine, GoesOn goesOn) {
  constexpr uint32_t kBatch = 1024;
  while (goesOn()) {
    for (uint32_t left = kBatch; left != 0 && goesOn(); --left) {
      kHandlers[fetchU8(machine)](machine);
    }
    if (machine.runState != VM_RUN_STOPPING && readTimeLimit(machine.timeLimit)) {
      stopRun(machine, VM_ERR_TIMEOUT);
    }
  }
}

inline void runPlainToEnd(Machine& machine) {
  runPlainWhile(machine, [&] { return machine.runState != VM_RUN_STOPPING; });
}

}  // namespace shadermachine::engine
