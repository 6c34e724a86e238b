#include <algorithm>
#include <cctype>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "assembly/operand_names.h"
#include "assembly/symbols.h"
#include "cli/commands.h"
#include "cli/files.h"
#include "instructions/opcode_info.h"

namespace shadermachine::tools {
namespace {

struct OpcodeOptions {
  std::vector<std::string> names;
  bool json = false;
};

std::string slotsText(int8_t slots) { return slots == kVaries ? "*" : std::to_string(slots); }

void printLine(unsigned number) {
  const OpcodeInfo& info = kOpcodeTable[number];
  std::printf("%3u  %-22s %-28s %s\n", number, info.mnemonic, operandText(info).c_str(),
              info.pseudoCode);
}

void printWhole(unsigned number) {
  const OpcodeInfo& info = kOpcodeTable[number];
  std::printf("%s %s\n  opcode %u (0x%02x); pops %s, pushes %s\n  %s\n", info.mnemonic,
              operandText(info).c_str(), number, number, slotsText(info.pops).c_str(),
              slotsText(info.pushes).c_str(), info.pseudoCode);
  for (const OperandKind kind : info.operands) {
    if (kind == OperandKind::None) break;
    std::printf("  %s: %s\n", operandNames(kind).name, operandNames(kind).meaning);
  }
}

nlohmann::ordered_json toJson(unsigned number) {
  const auto slots = [](int8_t count) {
    return count == kVaries ? nlohmann::ordered_json() : nlohmann::ordered_json(count);
  };
  const OpcodeInfo& info = kOpcodeTable[number];
  auto operands = nlohmann::ordered_json::array();
  for (const OperandKind kind : info.operands) {
    if (kind == OperandKind::None) break;
    operands.push_back({{"name", operandNames(kind).name},
                        {"meaning", operandNames(kind).meaning},
                        {"bytes", operandWidth(kind)},
                        {"list", isOperandList(kind)}});
  }
  return {{"opcode", number},         {"name", info.mnemonic},        {"operands", operands},
          {"pops", slots(info.pops)}, {"pushes", slots(info.pushes)}, {"effect", info.pseudoCode}};
}

unsigned opcodeNamed(std::string name) {
  std::vector<std::string_view> names;
  std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::toupper(c); });
  for (unsigned number = 0; number < kOpcodeCount; ++number) {
    names.emplace_back(kOpcodeTable[number].mnemonic);
    if (name == names.back()) return number;
  }
  throw InputError("no instruction is named '" + name + "'" + assembly::suggestion(name, names));
}

void printReference(const OpcodeOptions& options) {
  std::vector<unsigned> numbers;
  for (const std::string& name : options.names) numbers.push_back(opcodeNamed(name));
  for (unsigned number = 0; options.names.empty() && number < kOpcodeCount; ++number) {
    numbers.push_back(number);
  }
  if (!options.json) {
    std::ranges::for_each(numbers, options.names.empty() ? printLine : printWhole);
    return;
  }
  auto table = nlohmann::ordered_json::array();
  for (const unsigned number : numbers) table.push_back(toJson(number));
  std::printf("%s\n", table.dump(1).c_str());
}

}  // namespace

void addOpcodesCommand(CLI::App& program, Outcome&) {
  CLI::App* command = program.add_subcommand(
      "opcodes", "Print every instruction, or some: number, name, operands, effect");
  auto options = std::make_shared<OpcodeOptions>();
  command->add_option("name", options->names, "instructions to describe")->type_name("NAME");
  command->add_flag("--json", options->json, "print JSON");
  command->callback([options] { printReference(*options); });
}

}  // namespace shadermachine::tools
