// The translating engine: runs a shader's functions as programs of records instead of byte by byte.
// Everything observable is as with the plain handlers; see docs/engine.md.
#pragma once

#include "machine/machine.h"

namespace shadermachine::engine {

// Executes the run that prepareRun() has set up, until some instruction stops it.
void execute(Machine& machine);

// True when the shader that the machine holds runs translated, not by the plain handlers.
bool isTranslated(const Machine& machine);

// Frees the machine's translations.
void release(Machine& machine);

}  // namespace shadermachine::engine
