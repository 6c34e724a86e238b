#include "glsl_run.h"

#include <gtest/gtest.h>
#include <shadermachine-tools/host_contract.h>
#include <shadermachine-tools/validator.h>
#include <shadermachine/shadermachine.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

namespace shadermachine::test {
namespace {

Fragment& fragment(uint64_t userData) {
  return *reinterpret_cast<Fragment*>(userData);  // NOLINT(performance-no-int-to-ptr)
}

void takeColour(const void* words, uint64_t userData) {
  std::memcpy(fragment(userData).colour.data(), words, sizeof(Fragment::colour));
}

void takeDepth(float depth, uint64_t userData) { fragment(userData).depth = depth; }

void answerVariable(const HostVariableRequest* request) {
  const std::string_view name = request->varInfo->name;
  std::vector<uint32_t> words(request->varInfo->byteSize / 4);
  const float two = 2;
  uint32_t word = name == "three" ? 3 : name == "yes" ? 1 : 0;
  if (name.starts_with("two")) std::memcpy(&word, &two, sizeof word);
  std::fill(words.begin(), words.end(), word);
  std::memcpy(request->data, words.data(), request->varInfo->byteSize);
}

void answerPosition(void* data, uint32_t, int32_t, uint64_t) {
  const float position[] = {10.5f, 20.5f, 0.5f, 1.0f};
  std::memcpy(data, position, sizeof position);
}

void answerFacing(void* data, uint32_t, int32_t, uint64_t) {
  const uint32_t yes = 1;
  std::memcpy(data, &yes, sizeof yes);
}

// Of a described look-up the coordinates with the offset, and one word that the operation has.
void answerDescribed(const LookupRequest& request, float* answer) {
  const auto operation =
      static_cast<tools::LookupOperation>(request.extra >> tools::kLookupOperationShift);
  const float size[] = {64, 32, 1};
  const bool isFetch = operation == tools::LookupOperation::Texel;
  for (size_t i = 0; i < 3; ++i) {
    answer[i] = request.coords[i] + request.coords[12 + i] / (isFetch ? 1 : size[i]);
  }
  answer[3] = request.coords[11];
  if (operation == tools::LookupOperation::Gradient)
    answer[3] = request.coords[4] + request.coords[8];
  if (operation == tools::LookupOperation::Gather) answer[3] = request.coords[15];
  const int32_t integers[] = {64, 32, 5, static_cast<int32_t>(request.extra)};
  if (operation >= tools::LookupOperation::Size ||
      (request.extra & tools::kLookupGivesIntegers) != 0) {
    std::memcpy(answer, integers, sizeof integers);
  }
}

void answerLookup(const LookupRequest* request) {
  float answer[4] = {0, 0, 0, -1};
  if (request->kind == 0 && request->hasExtra != 0) {
    answerDescribed(*request, answer);
    std::memcpy(request->result, answer, sizeof answer);
    return;
  }
  std::memcpy(answer, request->coords, std::min(request->kind, 3u) * sizeof(float));
  if (request->hasExtra != 0) std::memcpy(answer + 3, &request->extra, sizeof(float));
  if (request->kind == 0) std::memcpy(answer, request->coords, 3 * sizeof(float));
  if (request->kind == 0 && request->param == 16) {
    answer[0] = 64;
    answer[1] = 32;
  }
  std::memcpy(request->result, answer, sizeof answer);
}

HostCallbacks callbacks() {
  HostCallbacks table = {};
  table.output0 = takeColour;
  table.output1 = takeDepth;
  table.hostVariable = answerVariable;
  table.builtin283 = answerPosition;
  table.builtin280 = answerFacing;
  table.lookup[0] = answerLookup;
  table.lookup[1] = answerLookup;
  return table;
}

}  // namespace

Fragment runGlsl(const std::string& source, const tools::GlslOptions& options) {
  Fragment result;
  const tools::GlslResult compiled = tools::compileGlsl(source, options);
  for (const tools::GlslMessage& message : compiled.messages) {
    ADD_FAILURE() << toString(message) << "\n" << source;
  }
  if (!compiled.shader) return result;
  for (const tools::Diagnostic& remark : tools::validate(compiled.shader->view()).diagnostics) {
    ADD_FAILURE() << toString(remark) << "\n" << source;
  }
  if (testing::Test::HasFailure()) return result;
  vmInitialize();
  const HostCallbacks table = callbacks();
  const MachineCreateInfo info{&table};
  ShaderMachine* machine = vmShaderMachineCreate(&info);
  StartupInfo startup = {};
  startup.userData = reinterpret_cast<uint64_t>(&result);
  startup.timeout = 2000;
  for (int run = 0; run < 2; ++run) {
    result = {};
    result.code = vmShaderMachineExecuteShader(machine, compiled.shader->record(), &startup);
  }
  vmShaderMachineDestroy(machine);
  return result;
}

std::string withBody(const std::string& body, const std::string& globals) {
  return "#version 310 es\nprecision highp float; precision highp int;\n"
         "uniform float two; uniform vec3 two3; uniform int three; uniform bool yes;\n"
         "out vec4 r;\n" +
         globals + "\nvoid main() {\n" + body + "\n}\n";
}

std::string glslErrors(const std::string& source) {
  std::string text;
  for (const tools::GlslMessage& message : tools::compileGlsl(source, {"a.frag"}).messages) {
    text += toString(message) + "\n";
  }
  return text;
}

}  // namespace shadermachine::test
