#include <cstdio>

#include "assembly/operand_names.h"
#include "cli/commands.h"
#include "instructions/opcode_info.h"

namespace shadermachine::tools {
namespace {

void printReference() {
  for (unsigned number = 0; number < kOpcodeCount; ++number) {
    const OpcodeInfo& info = kOpcodeTable[number];
    std::printf("%3u  %-22s %-28s %s\n", number, info.mnemonic, operandText(info).c_str(),
                info.pseudoCode);
  }
}

}  // namespace

void addOpcodesCommand(CLI::App& program, Outcome&) {
  program.add_subcommand("opcodes", "Print every instruction: number, name, operands, effect")
      ->callback(printReference);
}

}  // namespace shadermachine::tools
