// The host's side of one fragment: answers the machine's callbacks as host_contract.h says.
#pragma once

#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/shader_view.h>

#include <array>
#include <cstdint>
#include <memory>

#include "render/derivatives.h"

namespace shadermachine::tools {

struct MachineDeleter {
  void operator()(ShaderMachine* machine) const { vmShaderMachineDestroy(machine); }
};
using MachineHandle = std::unique_ptr<ShaderMachine, MachineDeleter>;

// Per thread; StartupInfo.userData of its runs is its address.
class FragmentHost {
 public:
  FragmentHost(const ShaderView& view, const HostInputs& inputs);
  FragmentHost(const FragmentHost&) = delete;
  FragmentHost& operator=(const FragmentHost&) = delete;

  static HostCallbacks callbacks();

  // What derivatives are answered from, for runs of this machine.
  void setDerivatives(DerivativeRecord& record, const ShaderMachine& machine);
  // Where in their pixels fragments lie from now on; the centre is 0.5, 0.5.
  void setOffset(std::array<float, 2> offset) { offset_ = offset; }
  // Moves on to a pixel, counted from the bottom left.
  void startFragment(uint32_t column, uint32_t row);
  StartupInfo startupInfo(uint32_t timeout);

  const std::array<float, 4>& colour() const { return colour_; }
  float depth() const { return depth_; }

 private:
  friend struct FragmentCallbacks;

  const HostInputs* inputs_;
  uint32_t colourWords_;  // components of the colour output
  bool isInteger_;        // a colour output of integers shows bytes
  std::array<float, 2> offset_ = {0.5f, 0.5f};
  float x_ = 0;  // place of the fragment, y up
  float y_ = 0;
  std::array<float, 4> colour_ = {};
  float depth_ = 1;
  DerivativeRecord* derivatives_ = nullptr;
  const ShaderMachine* machine_ = nullptr;
};

}  // namespace shadermachine::tools
