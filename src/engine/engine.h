// The translating engine: runs a shader's functions as programs of records instead of byte by byte.
// Everything observable is as with the plain handlers; see docs/engine.md.
#pragma once

#include "machine/machine.h"

namespace shadermachine::engine {

struct Record;

// The program for a run that is prepared but for its locals. The machine holds it when it is one of
// the shader's own: until the machine forgets the shader, further runs are of the same program.
const Record* selectProgram(Machine& machine);

// True when the shader that the machine holds runs translated, not by the plain handlers.
bool isTranslated(const Machine& machine);

// Frees the machine's translations.
void release(Machine& machine);

}  // namespace shadermachine::engine
