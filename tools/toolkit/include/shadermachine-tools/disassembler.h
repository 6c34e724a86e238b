// From compiled shaders to assembly text.
#pragma once

#include <shadermachine-tools/shader_view.h>

#include <cstdint>
#include <string>

namespace shadermachine::tools {

struct DisassemblyOptions {
  // Adds a comment to every instruction: its offset in the function, its bytes, and how many slots
  // lie above the locals before it runs ("?" where that depends on code that cannot be followed).
  bool annotate = false;
};

// A text that assembles to an equal record: tables, fields and code, right or wrong. Names of
// structures and functions are taken from the view when it has them. Reads `codeSize` bytes of code
// and the tables as the record counts them, whatever they hold; tables that are null count as
// empty.
std::string disassemble(const ShaderView& view, const DisassemblyOptions& options = {});

// The instruction at an offset of a function's code, without names of labels: for messages and
// traces. Empty when there is none.
std::string disassembleInstruction(const ShaderView& view, uint32_t function, uint32_t offset);

}  // namespace shadermachine::tools
