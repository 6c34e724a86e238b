// The host's side of one fragment: answers the machine's callbacks as host_contract.h says.
#pragma once

#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/shader_view.h>

#include <array>
#include <cstdint>

namespace shadermachine::tools {

// Per thread; StartupInfo.userData of its runs is its address.
class FragmentHost {
 public:
  FragmentHost(const ShaderView& view, const HostInputs& inputs);

  static HostCallbacks callbacks();

  // Moves on to the pixel whose centre is (x, y), y up.
  void startFragment(float x, float y);
  StartupInfo startupInfo(uint32_t timeout) const;

  const std::array<float, 4>& colour() const { return colour_; }
  float depth() const { return depth_; }

 private:
  friend struct FragmentCallbacks;

  const HostInputs* inputs_;
  uint32_t colourWords_;  // components of the colour output
  float x_ = 0;
  float y_ = 0;
  std::array<float, 4> colour_ = {};
  float depth_ = 1;
};

}  // namespace shadermachine::tools
