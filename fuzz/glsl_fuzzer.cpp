// Any text may be given to the GLSL compiler; what it accepts validates, reads no word that nothing
// has written, whatever the host answers, and runs alike by the plain handlers and translated.

#include <shadermachine-tools/glsl.h>
#include <shadermachine-tools/validator.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "fuzz/engine_comparison.h"
#include "fuzz/glsl_mutation.h"

using namespace shadermachine;

namespace {

[[noreturn]] void fail(std::string_view source, const std::string& why) {
  std::fprintf(stderr, "%.*s\n%s\n", static_cast<int>(source.size()), source.data(), why.c_str());
  std::abort();
}

void check(std::string_view source, const tools::GlslOptions& options) {
  const tools::GlslResult result = tools::compileGlsl(source, options);
  if (result.shader.has_value() != result.messages.empty()) fail(source, "no shader, no message");
  if (result.isUnsound) fail(source, result.messages.back().text);
  if (!result.shader) return;
  const tools::ValidationResult validation = tools::validate(result.shader->view());
  if (!validation.valid()) fail(source, toString(validation.diagnostics.front()));
  // Another source, other answers: what a host says decides which components an index selects.
  const auto firstSeed = static_cast<uint32_t>(std::hash<std::string_view>{}(source));
  for (uint32_t hostSeed = firstSeed; hostSeed != firstSeed + 3; ++hostSeed) {
    const std::string difference = fuzz::compareRuns(*result.shader->record(), hostSeed).difference;
    if (!difference.empty()) fail(source, difference);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vmInitialize();
  const std::string_view source(reinterpret_cast<const char*>(data), size);
  check(source, {.isForDebugging = size % 4 == 0});
  return 0;
}

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t mostSize,
                                          unsigned seed) {
  static const std::vector<std::string> sources = fuzz::readGlslSources();
  std::minstd_rand random(seed);
  std::string text(reinterpret_cast<const char*>(data), size);
  text = fuzz::mutateGlsl(text, sources, random);
  text.resize(std::min(text.size(), mostSize));
  std::memcpy(data, text.data(), text.size());
  return text.size();
}
