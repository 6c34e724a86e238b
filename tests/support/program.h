// Short programs, each about one instruction, with what must hold after it.
#pragma once

#include <shadermachine/opcodes.h>

#include <string>
#include <vector>

#include "support/rig.h"

namespace shadermachine::tests {

struct Program {
  VmOpcode opcode;                                      // the instruction that the program is about
  std::string title;                                    // what is special about this program
  std::shared_ptr<const BuiltShader> shader = nullptr;  // it ends with a probe and RETURN
  std::vector<Words> inputs = {};
  VmError error = VM_OK;
  Words top = {};      // first words of the top slot in the end
  int32_t height = 1;  // slots on the stack in the end, locals included
  // The top slot keeps the first input's words after those of `top`.
  bool keepsRest = false;
};

// Pushes the inputs, deepest first, and executes the instruction with these operands.
Program onInputs(VmOpcode opcode, std::vector<int64_t> operands, std::vector<Words> inputs,
                 Words top);

// A program with a body of its own, which leaves these words on top of `height` slots.
Program giving(VmOpcode opcode, std::string title, const Body& body, Words top, int32_t height = 1);

// Runs the program on a machine of its own and checks all of the above, and that no block is left.
void check(const Program& program);

// Those that are written as text, and those of the families that are not.
std::vector<Program> textPrograms();
std::vector<Program> builtinVariablePrograms();
std::vector<Program> componentPrograms();
std::vector<Program> hostPrograms();
std::vector<Program> noisePrograms();

}  // namespace shadermachine::tests
