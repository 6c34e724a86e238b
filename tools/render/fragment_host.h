// The host's side of one fragment: answers the machine's callbacks as host_contract.h says.
#pragma once

#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/shader_view.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace shadermachine::tools {

struct MachineDeleter {
  void operator()(ShaderMachine* machine) const { vmShaderMachineDestroy(machine); }
};
using MachineHandle = std::unique_ptr<ShaderMachine, MachineDeleter>;

// Per thread; StartupInfo.userData of its runs is its address.
class FragmentHost {
 public:
  FragmentHost(const ShaderView& view, const HostInputs& inputs);
  ~FragmentHost();
  FragmentHost(const FragmentHost&) = delete;
  FragmentHost& operator=(const FragmentHost&) = delete;

  static HostCallbacks callbacks();

  // Moves on to the pixel whose centre is (x, y), y up.
  void startFragment(float x, float y);
  StartupInfo startupInfo(uint32_t timeout);

  const std::array<float, 4>& colour() const { return colour_; }
  float depth() const { return depth_; }

 private:
  friend struct FragmentCallbacks;

  // The values that a fragment passed to HOST_UNARY, in the order of the calls; the first ones.
  struct PassedValues {
    std::array<std::array<float, 4>, 64> values = {};
    size_t count = 0;
  };
  struct Neighbours;

  void runNeighbours();
  std::array<float, 4> difference(const float* value, size_t call, uint32_t axis) const;

  const CompiledShader* shader_;
  const HostInputs* inputs_;
  uint32_t colourWords_;  // components of the colour output
  uint32_t timeout_ = 0;
  float x_ = 0;
  float y_ = 0;
  std::array<float, 4> colour_ = {};
  float depth_ = 1;

  // Derivatives are differences within a block of 2 x 2 pixels. At the first one that a fragment
  // asks for, its two neighbours are run on a machine of their own, for the values they pass.
  PassedValues* recordInto_ = nullptr;  // set in the host of a neighbour
  std::unique_ptr<Neighbours> neighbours_;
  size_t unaryCalls_ = 0;  // of this fragment
};

}  // namespace shadermachine::tools
