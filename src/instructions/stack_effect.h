// What one instruction does to the two stacks, told without running it: how many slots it takes and
// gives, how many indices, and where references to blocks go. The opcode table says it for most;
// here stands what depends on operands.
#pragma once

#include <shadermachine/shadermachine.h>

#include "instructions/decoded_instruction.h"

namespace shadermachine {

// Where the slots that an instruction gives may get a reference to a block from.
enum class Reference : uint8_t {
  None,     // they hold inline values
  OfFirst,  // the result is written over the first operand: the slot keeps what it held
  OfTop,    // DUP: a copy of the top slot
  Swapped,  // SWAP
  Fresh,    // the instruction may put one there
  Result,   // CALL: the slot below the arguments may get one
};

struct StackEffect {
  bool known;  // false: an operand names nothing, or decides in a way that only a run can tell
  uint32_t pops;
  uint32_t pushes;
  int32_t indices;  // entries gained on the index stack; what is below 0 must be there before
  Reference reference;
};

// `function` is the one that the instruction belongs to. The effect of CALL is that of a function
// that returns a value: its arguments stay, its result goes below them.
StackEffect stackEffect(const DecodedInstruction& instruction, const CompiledShader& shader,
                        const ShaderFunction& function);

// The variable that a load or store names, null for other instructions and for numbers without a
// variable.
const VarInfo* namedVariable(const DecodedInstruction& instruction, const CompiledShader& shader,
                             const ShaderFunction& function);

// True for the loads and stores of globals, which name a global.
bool namesGlobal(Opcode opcode);

}  // namespace shadermachine
