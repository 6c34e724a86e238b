// The benchmark shaders, each beside its work in plain C++.
#pragma once

#include <shadermachine-tools/shader_builder.h>

#include <optional>
#include <span>

#include "machine/machine.h"
#include "native.h"

namespace shadermachine::benchmarks {

struct Subject {
  const char* name;  // of the file in benchmarks/shaders
  NativeShader native;
  bool deliversColor = true;
  // Instead of a file and a twin: the subject that this one is, but for ending with DISCARD.
  const char* discarding = nullptr;
};

std::span<const Subject> subjects();

// Assembles the subject's shader; exits with a message when that fails.
tools::BuiltShader loadShader(const Subject& subject);

struct Fragment {
  Inputs inputs;
  Color color = {};
};

// Where a variable's value is in a fragment's inputs.
size_t inputOffset(const VarInfo& info);

// Callbacks whose user data is a fragment.
void fillVariable(const HostVariableRequest* request);
void takeColor(const void* inlineArea, uint64_t userData);

// A machine whose host answers from `inputs` and takes the colour.
class Bench {
 public:
  explicit Bench(const Subject& subject);
  ~Bench();
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  VmError run() { return vmShaderMachineExecuteShader(machine_, record_, &startup_); }
  const Color& color() const { return fragment_.color; }
  Machine& machine() { return *static_cast<Machine*>(machine_); }

 private:
  tools::BuiltShader shader_;
  const CompiledShader* record_ = shader_.record();
  Fragment fragment_;
  StartupInfo startup_ = {};
  ShaderMachine* machine_;
};

}  // namespace shadermachine::benchmarks
