// A machine with a host that records what the machine asks it, and the stack at that moment.
#pragma once

#include <shadermachine-tools/shader_builder.h>
#include <shadermachine/machine.h>

#include <functional>
#include <vector>

#include "render/host_callbacks.h"
#include "support/words.h"

namespace shadermachine::tests {

using tools::BuiltShader;
using tools::FunctionBuilder;
using tools::FunctionId;
using tools::GlobalId;
using tools::Label;
using tools::LocalId;
using tools::ShaderBuilder;

using enum tools::HostSlot;
inline constexpr unsigned kProbe = tools::kHostUnary1;  // tests use it to look at the stack

struct HostCall {
  unsigned slot = 0;
  // Of the record passed (or the arguments), in order; pointers as numbers, signed fields widened
  // from their 32 bits.
  std::vector<uint64_t> fields;

  // The machine during the call.
  int32_t frameIndex = 0;
  int32_t top = 0;
  int32_t indexTop = 0;
  uint32_t pc = 0;
  std::vector<ValueSlot> stack;  // value stack from slot 0 to the current top
};

inline uint64_t address(const void* pointer) { return reinterpret_cast<uintptr_t>(pointer); }

using MachinePtr = tools::MachineHandle;

// One that never translates when the environment has SHADERMACHINE_TEST_PLAIN.
MachinePtr makeMachine(const HostCallbacks* callbacks = nullptr);

// Answers all 80 slots except those listed; the run's user data is the rig's address.
class Rig {
 public:
  explicit Rig(std::initializer_list<unsigned> nullSlots = {});
  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;

  VmError run(const CompiledShader* shader);
  VmError run(const BuiltShader& shader) { return run(shader.record()); }
  // Keeps the shader: a machine may hold it until the machine is destroyed.
  VmError run(BuiltShader&& shader) {
    kept.push_back(std::move(shader));
    return run(kept.back());
  }

  // The only call of a slot in the last run.
  const HostCall& only(unsigned slot) const;
  size_t count(unsigned slot) const;

  // What host_callbacks.h wants.
  template <class Request>
  auto answer(unsigned slot, const Request& request);

  HostCallbacks callbacks = {};
  std::vector<BuiltShader> kept;
  MachinePtr machine;
  StartupInfo startup = {};
  std::vector<HostCall> calls;  // of the last run
  // What LOAD_GLOBAL of a host variable of four-by-four matrix type gives, by global number; words
  // past the stated ones are filler words.
  std::vector<Words> inputs;
  // Called in every callback with the memory that the host may write (null for outputs).
  std::function<void(const HostCall&, void* target)> reply;
  uint32_t overrideResult = 0;

 private:
  void record(unsigned slot, void* target, std::vector<uint64_t> fields);
};

// Emits HOST_UNARY_1.
void probe(FunctionBuilder& code);

// Adds a global that LOAD_GLOBAL fills from Rig::inputs.
GlobalId addInput(ShaderBuilder& shader);

// A shader of one function.
using Body = std::function<void(ShaderBuilder&, FunctionBuilder&)>;
BuiltShader buildShader(const Body& body);

}  // namespace shadermachine::tests
