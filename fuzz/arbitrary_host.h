// A host that answers every callback with arbitrary words, within the widths of host_contract.h.
#pragma once

#include <shadermachine/machine.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <random>

namespace shadermachine::fuzz {

struct MachineDeleter {
  void operator()(ShaderMachine* machine) const { vmShaderMachineDestroy(machine); }
};
using MachinePtr = std::unique_ptr<ShaderMachine, MachineDeleter>;

// Its address is the userData of a run. The same seed gives the same answers.
class ArbitraryHost {
 public:
  explicit ArbitraryHost(uint32_t seed) : random_(seed) {}

  static const HostCallbacks& callbacks();
  StartupInfo startup(uint32_t timeout) const;

  // What to do at every access of a callback, before it.
  std::function<void()> onAccess;

  // Called by the callbacks.
  void answer(void* target, uint64_t words);
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
