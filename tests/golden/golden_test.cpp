// Assembles every .sasm file of this folder and compares what comes of it with the end of the file:
//
//   ;;; errors         the messages of the assembler, or
//   ;;; disassembly    the annotated listing, and
//   ;;; result         how a run ended and its outputs, in files whose first line is "; run"
//
// With SHADERMACHINE_REBASE=1 in the environment the ends of the files are rewritten instead.
#include <gtest/gtest.h>
#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/disassembler.h>
#include <shadermachine-tools/validator.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "render/host_callbacks.h"
#include "support/record_difference.h"
#include "support/text_cases.h"

namespace shadermachine::tools {
namespace {

namespace fs = std::filesystem;
using tests::readFile;

constexpr const char* kRunMark = "; run\n";

// What stands before the expectations.
std::string sourceOf(const std::string& content) {
  const size_t end = content.find("\n;;; ");
  return content.substr(0, end == std::string::npos ? content.size() : end + 1);
}

std::string section(const std::string& title, const std::string& text) {
  std::string result = ";;; " + title + "\n";
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    result += line.empty() ? ";\n" : "; " + line + "\n";
  }
  return result;
}

// Writes down what a run gives.
struct OutputHost {
  // The components of the value, by the type of its global.
  void answer(unsigned, const Output0Request& request) {
    const bool isFloat = global0->type >= VM_TYPE_FLOAT && global0->type <= VM_TYPE_VEC4;
    text << "output0:";
    for (uint32_t i = 0; i < global0->byteSize / 4; ++i) {
      uint32_t word = 0;
      std::memcpy(&word, static_cast<const char*>(request.words) + 4 * i, 4);
      text << ' ';
      isFloat ? text << std::bit_cast<float>(word) : text << static_cast<int32_t>(word);
    }
    text << "\n";
  }
  void answer(unsigned, const Output1Request& request) {
    text << "output1: " << request.value << "\n";
  }

  const VarInfo* global0;
  std::ostringstream text = {};
};

std::string runShader(const CompiledShader& shader) {
  vmInitialize();
  const HostCallbacks callbacks = hostCallbacks<OutputHost>();
  const MachineCreateInfo info = {&callbacks};
  const MachineHandle machine(vmShaderMachineCreate(&info));
  OutputHost outputs = {shader.outputGlobal0 < 0 ? nullptr : &shader.globals[shader.outputGlobal0]};
  StartupInfo startup = {};
  startup.userData = reinterpret_cast<uint64_t>(&outputs);
  const VmError error = vmShaderMachineExecuteShader(machine.get(), &shader, &startup);
  return vmGetErrorString(error) + ("\n" + outputs.text.str());
}

std::string describe(const std::string& source, const std::string& fileName) {
  const AssemblyResult result = assemble(source);
  std::string errors;
  for (const AssemblyError& error : result.errors) errors += formatError(error, source, fileName);
  if (!result.shader) return section("errors", errors);
  std::string text = section("disassembly", disassemble(result.shader->view(), {.annotate = true}));
  if (source.starts_with(kRunMark)) {
    text += section("result", runShader(*result.shader->record()));
  }
  return text;
}

std::vector<fs::path> goldenFiles() {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(GOLDEN_FOLDER)) {
    if (entry.path().extension() == ".sasm") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void expectValid(const std::string& source) {
  const AssemblyResult result = assemble(source);
  ASSERT_TRUE(result.shader) << formatError(result.errors.at(0), source, "shader");
  for (const Diagnostic& diagnostic : validate(result.shader->view()).diagnostics) {
    ADD_FAILURE() << toString(diagnostic) << "\n" << source;
  }
}

class Golden : public ::testing::TestWithParam<fs::path> {};

TEST_P(Golden, MatchesItsEnd) {
  const std::string content = readFile(GetParam().string());
  const std::string source = sourceOf(content);
  const std::string described = source + describe(source, GetParam().filename().string());
  if (std::getenv("SHADERMACHINE_REBASE")) {
    std::ofstream(GetParam(), std::ios::binary) << described;
  } else {
    EXPECT_EQ(content, described);
  }
}

TEST_P(Golden, IsValidIfItRuns) {
  const std::string content = readFile(GetParam().string());
  if (!content.starts_with(kRunMark)) return;
  expectValid(content);
}

TEST_P(Golden, SurvivesTheRoundTrip) {
  const AssemblyResult first = assemble(readFile(GetParam().string()));
  if (!first.shader) return;  // a golden file of errors
  const std::string text = disassemble(first.shader->view());
  const AssemblyResult second = assemble(text);
  ASSERT_TRUE(second.shader) << text;
  EXPECT_EQ(shadermachine::testing::recordDifference(first.shader->view(), second.shader->view()),
            "");
}

// The examples of the manual can be copied from it.
TEST(Manual, ExamplesAreValid) {
  const std::string manual = readFile(ASSEMBLY_MANUAL);
  const std::string opening = "```sasm\n";
  int count = 0;
  for (size_t at = manual.find(opening); at != std::string::npos; at = manual.find(opening, at)) {
    at += opening.size();
    const std::string source = manual.substr(at, manual.find("```", at) - at);
    expectValid(source);
    ++count;
  }
  EXPECT_GE(count, 5);
}

INSTANTIATE_TEST_SUITE_P(Files, Golden, ::testing::ValuesIn(goldenFiles()),
                         [](const ::testing::TestParamInfo<fs::path>& file) {
                           return file.param.stem().string();
                         });

}  // namespace
}  // namespace shadermachine::tools
