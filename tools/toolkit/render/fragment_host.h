// The host's side of one fragment: answers the machine's callbacks as host_contract.h says.
#pragma once

#include <shadermachine-tools/host_inputs.h>
#include <shadermachine-tools/shader_view.h>

#include <array>
#include <bit>
#include <cstdint>

#include "render/derivatives.h"
#include "render/host_callbacks.h"

namespace shadermachine::tools {

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
  // How many columns and rows of the frame a pixel stands for.
  void setPixelSize(uint32_t size) { pixelSize_ = static_cast<float>(size); }
  // Moves on to a pixel, counted from the bottom left.
  void startFragment(uint32_t column, uint32_t row) {
    x_ = (static_cast<float>(column) + offset_[0]) * pixelSize_;
    y_ = (static_cast<float>(row) + offset_[1]) * pixelSize_;
    depth_ = 1;
    if (derivatives_ != nullptr) derivatives_->startFragment((column & 1) | (row & 1) << 1);
  }
  StartupInfo startupInfo(uint32_t timeout);

  const std::array<float, 4>& colour() const { return colour_; }
  float depth() const { return depth_; }
  // The four first words of the colour output.
  void takeColour(const uint32_t* words) {
    constexpr std::array<float, 4> kNone = {0, 0, 0, 1};
    for (uint32_t i = 0; i < 4; ++i) {
      colour_[i] = i < colourWords_ ? std::bit_cast<float>(words[i]) : kNone[i];
    }
    if (isInteger_) [[unlikely]]
      takeBytes();
  }
  void takeDepth(float depth) { depth_ = depth; }
  std::array<float, 4> builtinValue(uint16_t id) const;
  float x() const { return x_; }
  float y() const { return y_; }

  // What host_callbacks.h wants.
  void answer(unsigned, const Output0Request& request) {
    takeColour(static_cast<const uint32_t*>(request.words));
  }
  void answer(unsigned, const Output1Request& request) { depth_ = request.value; }
  void answer(unsigned slot, const BuiltinRequest& request);
  void answer(unsigned slot, const LookupRequest& request);
  void answer(unsigned slot, const HostVariableRequest& request);

 private:
  void takeBytes();
  void answerDerivative(unsigned which, void* data) const;

  const HostInputs* inputs_;
  uint32_t colourWords_;  // components of the colour output
  bool isInteger_;        // a colour output of integers shows bytes
  std::array<float, 2> offset_ = {0.5f, 0.5f};
  float pixelSize_ = 1;
  float x_ = 0;  // place of the fragment, y up
  float y_ = 0;
  std::array<float, 4> colour_ = {};
  float depth_ = 1;
  DerivativeRecord* derivatives_ = nullptr;
  const ShaderMachine* machine_ = nullptr;
};

}  // namespace shadermachine::tools
