// A host that answers every callback with arbitrary words, within the widths of host_contract.h.
#pragma once

#include <shadermachine/machine.h>

#include <concepts>
#include <cstdint>
#include <functional>
#include <random>

#include "render/host_callbacks.h"

namespace shadermachine::fuzz {

using MachinePtr = tools::MachineHandle;

// Its address is the userData of a run. The same seed gives the same answers.
class ArbitraryHost {
 public:
  explicit ArbitraryHost(uint32_t seed) : random_(seed) {}

  static const HostCallbacks& callbacks();
  StartupInfo startup(uint32_t timeout) const;

  // What to do at every access of a callback, before it.
  std::function<void()> onAccess;
  // That are looked at of the first output.
  uint32_t outputWords = VM_COMPONENT_COUNT;
  // At most so many of a variable are written anew.
  uint64_t mostWords = UINT64_MAX;
  // Every second host variable has one value, for all hosts that share them.
  bool sharesVariables = false;

  void answer(unsigned, const tools::Output0Request& request) { read(request.words, outputWords); }
  void answer(unsigned, const tools::Output1Request& request) { read(&request.value, 1); }
  void answer(unsigned slot, const tools::BuiltinRequest& request);
  void answer(unsigned, const LookupRequest& request);
  void answer(unsigned, const HostVariableRequest& request);
  uint32_t answer(unsigned, const HostOverrideRequestA& request);
  void answer(unsigned, const HostFunctionRequest& request);
  void answer(unsigned, const tools::OverrideBRequest& request);
  void answer(unsigned, const HostCallRequest267& request);
  void answer(unsigned, const HostCallRequest293& request);
  template <class Request>
  requires std::same_as<Request, HostCallRequest294> || std::same_as<Request, HostCallRequest297>
  void answer(unsigned, const Request& request) {
    read(request.b, 4);
    write(request.a, 4);
  }

  // What answers are made of.
  void write(void* target, uint64_t words);
  void read(const void* source, uint32_t words);
  uint32_t word();

  uint64_t calls() const { return calls_; }
  // Of all words read, any NaN being like any other.
  uint32_t checksum() const { return sum_; }

 private:
  std::minstd_rand random_;
  uint64_t calls_ = 0;
  uint32_t sum_ = 0;
};

MachinePtr makeMachine(bool withHost);

// Runs the shader some times in a row, so that later runs keep the globals of earlier ones. The
// machine holds no shader afterwards.
VmError runAndForget(ShaderMachine& machine, const CompiledShader* shader,
                     const StartupInfo& startup, int runs);

}  // namespace shadermachine::fuzz
