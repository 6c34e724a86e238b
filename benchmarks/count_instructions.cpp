// How many instructions a pixel takes: prints a table of shaders, in GLSL or as assembly text.
//
// Counted are pixels that lie evenly over the picture, each in a machine's second run: the first
// one fills what stays for the next ones.
#include <shadermachine-tools/assembler.h>
#include <shadermachine-tools/glsl.h>
#include <shadermachine/shadermachine.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <stdexcept>
#include <string>

#include "machine/run_loop.h"
#include "render/quad.h"

namespace {

using namespace shadermachine;
using namespace shadermachine::tools;

constexpr uint32_t kWidth = 32;
constexpr uint32_t kHeight = 18;
constexpr float kTime = 1.5f;

struct Loaded {
  BuiltShader shader;
  std::vector<NamedValue> values;
};

Loaded load(const std::string& path) {
  std::ifstream file(path);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!file) throw std::runtime_error(path + ": cannot be read");
  if (path.ends_with(".sasm")) {
    AssemblyResult result = assemble(text, path);
    if (!result.shader) throw std::runtime_error(path + ": does not assemble");
    return {std::move(*result.shader), {}};
  }
  GlslResult result = compileGlsl(text, {.fileName = path});
  if (!result.shader) throw std::runtime_error(toString(result.messages.front()));
  return {std::move(*result.shader), std::move(result.uniformValues)};
}

VmError countRun(Machine& machine, const ShaderView& view, const StartupInfo& startup,
                 uint64_t& instructions) {
  const VmError refused = beginRun(machine, *view.shader, startup);
  if (refused != VM_OK) return refused;
  for (instructions = 0; machine.runState != VM_RUN_STOPPING; ++instructions) {
    stepInstruction(machine);
  }
  return endRun(machine);
}

void count(const std::string& path) {
  const Loaded loaded = load(path);
  const ShaderView view = loaded.shader.view();
  HostInputs inputs(view);
  for (const NamedValue& value : loaded.values) inputs.set(value.name, value.components);
  const FrameInputs frame = {.width = kWidth, .height = kHeight, .time = kTime};
  inputs.startFrame(frame);
  const HostCallbacks callbacks = FragmentHost::callbacks();
  const MachineHandle handle(createMachine(&callbacks));
  auto* const machine = static_cast<Machine*>(handle.get());
  if (machine == nullptr) throw std::bad_alloc();
  QuadRunner runner(view, inputs, *machine, 0);
  uint64_t sum = 0, most = 0;
  for (uint32_t y = 0; y < kHeight; ++y) {
    for (uint32_t x = 0; x < kWidth; ++x) {
      uint64_t instructions = 0;
      const auto run = [&](const StartupInfo& startup) {
        return countRun(*machine, view, startup, instructions);
      };
      if (sum == 0) runner.runOne(x, y, run);
      runner.runOne(x, y, run);
      sum += instructions;
      most = std::max(most, instructions);
    }
  }
  std::printf("| %s | %.1f | %llu | %u |\n", std::filesystem::path(path).filename().c_str(),
              static_cast<double>(sum) / (kWidth * kHeight), static_cast<unsigned long long>(most),
              view.codeSize);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    vmInitialize();
    std::puts("| shader | instructions per pixel | most | bytes of code |\n|---|---|---|---|");
    for (int i = 1; i < argc; ++i) count(argv[i]);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "count-instructions: %s\n", error.what());
    return 1;
  }
}
