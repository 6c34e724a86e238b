// One run of a shader, from its preparation to the returned code. The steps are separate so that a
// tracer can go through a run instruction by instruction.
#pragma once

#include "machine/machine.h"

namespace shadermachine {

// The checks that a record must pass before a run.
inline VmError verifyShader(const CompiledShader* shader) {
  if (shader == nullptr || shader->functions == nullptr) return VM_ERR_INVALID_SHADER;
  if (shader->version != 1) return VM_ERR_NEWER_COMPILER;
  if (shader->entryIndex >= shader->functionCount) return VM_ERR_INVALID_ENTRY;
  return VM_OK;
}

// Releases the globals' blocks of the shader that the machine holds, if any.
void releaseGlobals(Machine& machine);

// Prepares frame 0 and the variables. Returns VM_OK when the run is under way (stopping already,
// when a variable could not be allocated); any other code has ended it.
VmError beginRun(Machine& machine, const CompiledShader& shader, const StartupInfo& startup);

// The last step of beginRun(). A translated program starts with one of its own instead.
void initEntryLocals(Machine& machine);

// Executes one instruction.
void stepInstruction(Machine& machine);

// Delivers the outputs, cleans the stack as the run's code demands, and returns that code.
VmError endRun(Machine& machine);

VmError runShader(Machine& machine, const CompiledShader& shader, const StartupInfo& startup);

// One of many runs that know nothing of each other: globals as a new machine's. The time limit goes
// on from the run before, startup.timeout is not read.
VmError runShaderAnew(Machine& machine, const CompiledShader& shader, const StartupInfo& startup);

}  // namespace shadermachine
