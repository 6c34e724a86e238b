#include "glsl_run.h"

#include <gtest/gtest.h>
#include <shadermachine-tools/validator.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "render/host_callbacks.h"

namespace shadermachine::test {
namespace {

struct Host {
  void answer(unsigned, const tools::Output0Request& request) {
    std::memcpy(result.colour.data(), request.words, sizeof(Fragment::colour));
  }
  void answer(unsigned, const tools::Output1Request& request) { result.depth = request.value; }
  void answer(unsigned, const HostVariableRequest& request);
  void answer(unsigned slot, const tools::BuiltinRequest& request);
  void answer(unsigned, const LookupRequest& request);

  Fragment result = {};
};

void Host::answer(unsigned, const HostVariableRequest& request) {
  const std::string_view name = request.varInfo->name;
  const uint32_t word = name == "three"           ? 3
                        : name == "yes"           ? 1
                        : name == "iResolution"   ? std::bit_cast<uint32_t>(64.0f)
                        : name.starts_with("two") ? std::bit_cast<uint32_t>(2.0f)
                                                  : 0;
  const std::vector<uint32_t> words(request.varInfo->byteSize / 4, word);
  std::memcpy(request.data, words.data(), request.varInfo->byteSize);
}

void Host::answer(unsigned slot, const tools::BuiltinRequest& request) {
  const uint32_t yes = 1;
  const float position[] = {10.5f, 20.5f, 0.5f, 1.0f};
  const uint16_t id = tools::kBuiltinsOfSlots[slot].id;
  if (id == tools::kFrontFacing) std::memcpy(request.data, &yes, sizeof yes);
  if (id == tools::kFragmentPosition) std::memcpy(request.data, position, sizeof position);
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

void Host::answer(unsigned, const LookupRequest& request) {
  float answer[4] = {0, 0, 0, -1};
  if (request.kind == 0 && request.hasExtra != 0) {
    answerDescribed(request, answer);
    std::memcpy(request.result, answer, sizeof answer);
    return;
  }
  std::memcpy(answer, request.coords, std::min(request.kind, 3u) * sizeof(float));
  if (request.hasExtra != 0) std::memcpy(answer + 3, &request.extra, sizeof(float));
  if (request.kind == 0) std::memcpy(answer, request.coords, 3 * sizeof(float));
  if (request.kind == 0 && request.param == 16) {
    answer[0] = 64;
    answer[1] = 32;
  }
  std::memcpy(request.result, answer, sizeof answer);
}

}  // namespace

Fragment runGlsl(const std::string& source, const tools::GlslOptions& options) {
  const tools::GlslResult compiled = tools::compileGlsl(source, options);
  for (const tools::GlslMessage& message : compiled.messages) {
    ADD_FAILURE() << toString(message) << "\n" << source;
  }
  if (!compiled.shader) return {};
  for (const tools::Diagnostic& remark : tools::validate(compiled.shader->view()).diagnostics) {
    ADD_FAILURE() << toString(remark) << "\n" << source;
  }
  if (testing::Test::HasFailure()) return {};
  vmInitialize();
  const HostCallbacks callbacks = tools::hostCallbacks<Host>();
  const MachineCreateInfo info{&callbacks};
  const tools::MachineHandle machine(vmShaderMachineCreate(&info));
  Host host;
  StartupInfo startup = {};
  startup.userData = reinterpret_cast<uint64_t>(&host);
  startup.timeout = 60000;
  // Twice, since a run must not depend on what the one before left.
  Fragment first = {};
  for (int run = 0; run < 2; ++run) {
    first = std::exchange(host.result, {});
    host.result.code =
        vmShaderMachineExecuteShader(machine.get(), compiled.shader->record(), &startup);
  }
  EXPECT_EQ(std::memcmp(&first.colour, &host.result.colour, sizeof first.colour), 0) << source;
  return host.result;
}

std::string glslErrors(const std::string& source) {
  std::string text;
  for (const tools::GlslMessage& message : tools::compileGlsl(source, {"a.frag"}).messages) {
    text += toString(message) + "\n";
  }
  return text;
}

}  // namespace shadermachine::test
