// Stands in for the engine in builds without it (SHADERMACHINE_ENGINE=OFF): every run is by the
// plain handlers.

#include "engine/engine.h"
#include "engine/plain_program.h"

namespace shadermachine::engine {

const Record* selectProgram(Machine& machine) {
  machine.heldProgram = nullptr;
  return &kPlainProgram;
}

bool isTranslated(const Machine&) { return false; }

void release(Machine&) {}

}  // namespace shadermachine::engine
