// Writes what is made from the opcode table: the public opcode numbers and the reference manual.
//
//   generate_reference header|manual TABLE FILE [--check]
//
// TABLE is opcodes.def, read for its group headings. With --check the file is compared instead of
// written, and a difference is an error.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

#include "assembly/operand_names.h"
#include "instructions/opcode_info.h"

namespace shadermachine::tools {
namespace {

using Headings = std::map<unsigned, std::string>;  // by the first opcode of the group

// A heading is a comment line directly above a row.
Headings readHeadings(const std::string& path) {
  std::ifstream table(path);
  Headings headings;
  std::string previous;
  for (std::string line; std::getline(table, line); previous = line) {
    unsigned number = 0;
    if (std::sscanf(line.c_str(), "OPCODE( %u", &number) == 1 && previous.starts_with("// ")) {
      headings[number] = previous.substr(3);
    }
  }
  return headings;
}

std::string lengthText(const OpcodeInfo& info) {
  unsigned fixed = 1;
  std::string list;
  for (OperandKind kind : info.operands) {
    if (isOperandList(kind)) {
      list = operandWidth(kind) == 1 ? " + length" : " + 2 length";
    } else {
      fixed += operandWidth(kind);
    }
  }
  return std::to_string(fixed) + list;
}

std::string slotsText(int8_t slots) { return slots == kVaries ? "*" : std::to_string(slots); }

// The pipe would end a table cell.
std::string escapeCell(const std::string& text) {
  std::string escaped;
  for (char c : text) escaped += c == '|' ? "\\|" : std::string(1, c);
  return escaped;
}

std::string headerText(const Headings& headings) {
  std::ostringstream out;
  out << "/* Numbers of the instructions, for whoever writes or reads bytecode. Valid C99 and "
         "C++.\n"
         " *\n"
         " * Generated from src/instructions/opcodes.def, do not edit: build the target "
         "generate-reference.\n"
         " *\n"
         " * The comments say what each instruction does: T is the top slot, A and B the two top\n"
         " * slots with B on top, X, Y and Z the three top slots with Z on top, Sk the slot k "
         "below\n"
         " * the top; i runs over the components 0 to n-1; stop(c) ends the run with error c.\n"
         " * docs/opcodes.md adds operands and stack effects.\n"
         " */\n"
         "#ifndef SHADERMACHINE_OPCODES_H\n"
         "#define SHADERMACHINE_OPCODES_H\n"
         "\n"
         "/* clang-format off */\n\n"
         "typedef enum VmOpcode {\n";
  for (unsigned opcode = 0; opcode < kOpcodeCount; ++opcode) {
    if (const auto heading = headings.find(opcode); heading != headings.end()) {
      out << (opcode == 0 ? "" : "\n") << "  /* " << heading->second << " */\n";
    }
    const OpcodeInfo& info = kOpcodeTable[opcode];
    out << "  VM_OP_" << std::left << std::setw(21) << info.mnemonic << " = " << std::right
        << std::setw(3) << opcode << ", /* " << info.pseudoCode << " */\n";
  }
  out << "\n  VM_OPCODE_COUNT = " << kOpcodeCount
      << "\n} VmOpcode;\n\n/* clang-format on */\n\n#endif /* SHADERMACHINE_OPCODES_H */\n";
  return out.str();
}

void writeOperandKinds(std::ostream& out) {
  std::map<std::string, std::string> meanings;
  for (unsigned kind = 1; kind <= static_cast<unsigned>(OperandKind::Path); ++kind) {
    const OperandNames& names = operandNames(static_cast<OperandKind>(kind));
    std::string& meaning = meanings[names.name];
    if (meaning.find(names.meaning) != std::string::npos) continue;
    meaning += (meaning.empty() ? "" : "; or ") + std::string(names.meaning);
  }
  out << "| Operand | Meaning |\n|---|---|\n";
  for (const auto& [name, meaning] : meanings) out << "| " << name << " | " << meaning << " |\n";
}

std::string manualText(const Headings& headings) {
  std::ostringstream out;
  out << "# Instruction reference\n\n"
         "<!-- Generated from src/instructions/opcodes.def, do not edit: build the target "
         "generate-reference. -->\n\n"
         "An instruction is one opcode byte and its operands, packed without padding, "
         "little-endian. *Bytes* is its whole length; *pops* and *pushes* count value slots, "
         "`*` where the operands decide.\n\n"
         "In the effects, T is the top slot, A and B are the two top slots with B on top, X, Y and "
         "Z the three top slots with Z on top, Sk is the slot k below the top; i runs over the "
         "components 0 to n-1, components from n upward are kept. *Share* adds a reference to a "
         "block, *release* drops one; stop(c) ends the run with error c. The result of an "
         "instruction with several operands replaces the deepest of them.\n\n"
         "## Operands\n\n";
  writeOperandKinds(out);
  for (unsigned opcode = 0; opcode < kOpcodeCount; ++opcode) {
    if (const auto heading = headings.find(opcode); heading != headings.end()) {
      out << "\n## " << heading->second
          << "\n\n| No. | Mnemonic | Operands | Bytes | Pops | Pushes | Effect |\n"
             "|---:|---|---|---|---:|---:|---|\n";
    }
    const OpcodeInfo& info = kOpcodeTable[opcode];
    out << "| " << opcode << " | `" << info.mnemonic << "` | " << operandText(info) << " | "
        << lengthText(info) << " | " << slotsText(info.pops) << " | " << slotsText(info.pushes)
        << " | " << escapeCell(info.pseudoCode) << " |\n";
  }
  return out.str();
}

bool isUpToDate(const std::string& text, const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return file && content.str() == text;
}

int run(const std::string& kind, const std::string& table, const std::string& path, bool check) {
  const Headings headings = readHeadings(table);
  if (headings.empty()) {
    std::cerr << table << ": no group headings found\n";
    return 1;
  }
  const std::string text = kind == "header" ? headerText(headings) : manualText(headings);
  if (check) {
    if (isUpToDate(text, path)) return 0;
    std::cerr << path << " is stale: build the target generate-reference\n";
    return 1;
  }
  return std::ofstream(path, std::ios::binary) << text ? 0 : 1;
}

}  // namespace
}  // namespace shadermachine::tools

int main(int argc, char** argv) {
  const bool check = argc == 5 && std::strcmp(argv[4], "--check") == 0;
  if (argc != 4 && !check) {
    std::cerr << "usage: generate_reference header|manual TABLE FILE [--check]\n";
    return 2;
  }
  return shadermachine::tools::run(argv[1], argv[2], argv[3], check);
}
