// Reads the programs of programs/:
//
//   MNEMONIC title: tables and functions --- code | input | input => result
//
// The title, which names the instruction that the program is about, may be missing: then it is
// about its last. So may what stands before the code. Semicolons and line ends separate statements;
// of "{a,b}" the first alternatives make one program, the second ones another. Inputs are the words
// of host variables, pushed before the code. A result is "error N", or the words of the top slot,
// behind "[slots on the stack]" unless there is one. "..." behind the words: the slot keeps the
// first input's further words. Tables behind a bare "===" belong to all programs of the file. Lines
// that begin with # are comments.
#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "instructions/opcode_info.h"
#include "support/program.h"

namespace shadermachine::tests {
namespace {

uint32_t wordOf(const std::string& text) {
  if (text == "nan") return kAnyNan;
  const bool isFloat = text.find_first_of(".f") != std::string::npos && !text.starts_with("0x");
  return isFloat ? bits(std::stof(text)) : static_cast<uint32_t>(std::stoll(text, nullptr, 0));
}

void readResult(std::istringstream words, Program& program) {
  for (std::string word; words >> word;) {
    if (word == "error") {
      int error = 0;
      words >> error;
      program.error = static_cast<VmError>(error);
    } else if (word == "...") {
      program.keepsRest = true;
    } else if (word.starts_with("[")) {
      program.height = std::stoi(word.substr(1));
    } else {
      program.top.push_back(wordOf(word));
    }
  }
}

VmOpcode opcodeNamed(const std::string& mnemonic) {
  const auto named = [&](const OpcodeInfo& info) { return info.mnemonic == mnemonic; };
  const auto found = std::ranges::find_if(kOpcodeTable, named);
  if (found == std::end(kOpcodeTable)) throw std::runtime_error("no instruction " + mnemonic);
  return static_cast<VmOpcode>(found - std::begin(kOpcodeTable));
}

std::string firstWord(const std::string& text) {
  std::string word;
  std::istringstream(text) >> word;
  return word;
}

class Reader {
 public:
  explicit Reader(const std::filesystem::path& path)
      : file_(path), name_(path.filename().string()) {}

  std::vector<Program> programs() {
    while (nextLine()) {
      if (line_ == "===") {
        shared_ = linesUpTo("---");
        std::ranges::replace(shared_, ';', '\n');
        continue;
      }
      std::string text = line_;
      while (text.find("=>") == std::string::npos && nextLine()) text += "\n" + line_;
      for (const std::string& variant : variantsOf(text)) addProgram(variant);
    }
    return std::move(programs_);
  }

 private:
  bool nextLine() {
    while (std::getline(file_, line_)) {
      ++number_;
      if (!line_.empty() && !line_.starts_with("#")) return true;
    }
    return false;
  }

  // Leaves the line that ends them.
  std::string linesUpTo(const std::string& start) {
    std::string lines;
    while (nextLine() && !line_.starts_with(start)) lines += line_ + "\n";
    return lines;
  }

  static std::vector<std::string> variantsOf(const std::string& text) {
    std::vector<std::string> variants;
    for (size_t begin = 0, end = 0; (begin = text.find('{', end)) != std::string::npos;) {
      const std::string between = text.substr(end, begin - end);
      end = text.find('}', begin) + 1;
      std::istringstream alternatives(text.substr(begin + 1, end - begin - 2));
      size_t count = 0;
      for (std::string one; std::getline(alternatives, one, ','); ++count) {
        if (count == variants.size()) variants.emplace_back();
        variants[count] += between + one;
      }
    }
    if (variants.empty()) return {text};
    const std::string rest = text.substr(text.rfind('}') + 1);
    for (std::string& variant : variants) variant += rest;
    return variants;
  }

  // Takes what stands before the separator off the text.
  static std::string takeHead(std::string& text, const std::string& separator) {
    const size_t end = text.find(separator);
    if (end == std::string::npos) return "";
    std::string head = text.substr(0, end);
    text.erase(0, end + separator.size());
    return head;
  }

  void addProgram(std::string code) {
    const size_t arrow = code.find("=>");
    const std::string result = code.substr(arrow + 2);
    code.erase(arrow);
    Program program;
    for (size_t bar = code.rfind('|'); bar != std::string::npos; bar = code.rfind('|')) {
      program.inputs.emplace_back();
      std::istringstream words(code.substr(bar + 1));
      for (std::string word; words >> word;) program.inputs.back().push_back(wordOf(word));
      code.erase(bar);
    }
    std::ranges::reverse(program.inputs);
    const std::string title = takeHead(code, ": ");
    program.title = name_ + ":" + std::to_string(number_) + " " + title;
    std::ranges::replace(code, ';', '\n');
    const std::string own = takeHead(code, "---");
    const size_t last = code.find_last_of('\n', code.find_last_not_of(" \n"));
    program.opcode = opcodeNamed(firstWord(title.empty() ? code.substr(last + 1) : title));
    finish(program, own + "\n", code, result);
  }

  void finish(Program& program, const std::string& own, const std::string& code,
              const std::string& result) {
    readResult(std::istringstream(result), program);
    std::string inputs, loads;
    for (size_t i = 0; i < program.inputs.size(); ++i) {
      const std::string name = "input" + std::to_string(i);
      inputs += ".global mat4 " + name + " host\n";
      loads += "LOAD_GLOBAL " + name + "\n";
    }
    const std::string tail = program.height == 0 ? "\nPUSH_EMPTY" : "";  // the probe takes a slot
    const std::string text = inputs + ".declare main\n" + shared_ + own + ".function main\n" +
                             loads + code + tail + "\nHOST_UNARY_1\nRETURN\n.end\n";
    tools::AssemblyResult assembled = tools::assemble(text);
    if (!assembled.shader) {
      throw std::runtime_error(tools::formatError(assembled.errors.at(0), text, program.title));
    }
    program.shader = std::make_shared<BuiltShader>(std::move(*assembled.shader));
    programs_.push_back(std::move(program));
  }

  std::ifstream file_;
  std::string name_;
  std::string line_;
  int number_ = 0;
  std::string shared_;
  std::vector<Program> programs_;
};

}  // namespace

std::vector<Program> textPrograms() {
  std::vector<Program> all;
  for (const auto& entry : std::filesystem::directory_iterator(INSTRUCTION_PROGRAMS)) {
    for (Program& program : Reader(entry.path()).programs()) all.push_back(std::move(program));
  }
  return all;
}

}  // namespace shadermachine::tests
