#include "shaders.h"

#include <shadermachine-tools/assembler.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace shadermachine::benchmarks {
namespace {

constexpr Subject kSubjects[] = {
    {"empty", nativeEmpty, false},
    {"mandelbrot", nativeMandelbrot},
    {"phong", nativePhong},
    {"march", nativeMarch},
    {"lights", nativeLights},
    {"hash_noise", nativeHashNoise},
    {"noise", nativeNoise},
    {"empty_discard", nullptr, false, "empty"},
    {"mandelbrot_discard", nullptr, false, "mandelbrot"},
    {"phong_discard", nullptr, false, "phong"},
};

struct Input {
  const char* name;
  size_t offset;
};

constexpr Input kInputs[] = {
    {"coord", offsetof(Inputs, coord)},   {"position", offsetof(Inputs, position)},
    {"normal", offsetof(Inputs, normal)}, {"direction", offsetof(Inputs, direction)},
    {"model", offsetof(Inputs, model)},   {"sceneLights", offsetof(Inputs, lights)},
};

}  // namespace

std::span<const Subject> subjects() { return kSubjects; }

tools::BuiltShader loadShader(const Subject& subject) {
  const bool discards = subject.discarding != nullptr;
  const std::string path = std::string(BENCHMARK_SHADERS) + "/" +
                           (discards ? subject.discarding : subject.name) + ".sasm";
  std::ostringstream read;
  read << std::ifstream(path).rdbuf();
  std::string text = read.str();
  if (discards) text.replace(text.rfind("RETURN"), std::strlen("RETURN"), "DISCARD");
  tools::AssemblyResult result = tools::assemble(text);
  for (const tools::AssemblyError& error : result.errors) {
    std::fprintf(stderr, "%s\n", tools::formatError(error, text, path).c_str());
  }
  if (!result.shader) std::exit(1);
  return std::move(*result.shader);
}

Bench::Bench(const Subject& subject) : shader_(loadShader(subject)) {
  HostCallbacks callbacks = {};
  callbacks.hostVariable = fillVariable;
  if (subject.deliversColor) callbacks.output0 = takeColor;
  const MachineCreateInfo info = {&callbacks};
  machine_ = vmShaderMachineCreate(&info);
  startup_.userData = reinterpret_cast<uintptr_t>(&fragment_);
}

Bench::~Bench() { vmShaderMachineDestroy(machine_); }

// The lookup by name is what a host does once per shader; here the first letters tell.
size_t inputOffset(const VarInfo& info) {
  for (const Input& input : kInputs) {
    if (info.name[0] == input.name[0] && info.name[1] == input.name[1]) return input.offset;
  }
  std::abort();
}

void fillVariable(const HostVariableRequest* request) {
  const auto& fragment = *reinterpret_cast<const Fragment*>(request->userData);
  const auto* inputs = reinterpret_cast<const char*>(&fragment.inputs);
  std::memcpy(request->data, inputs + inputOffset(*request->varInfo), request->varInfo->byteSize);
}

void takeColor(const void* inlineArea, uint64_t userData) {
  auto& fragment = *reinterpret_cast<Fragment*>(userData);
  std::memcpy(fragment.color.data(), inlineArea, sizeof fragment.color);
}

}  // namespace shadermachine::benchmarks
