// Runs the fragments of a block of 2 x 2 pixels, so that they can take derivatives.
#pragma once

#include <shadermachine-tools/renderer.h>

#include "render/fragment_host.h"

namespace shadermachine::tools {

struct FragmentResult {
  bool isComplete = false;  // false: not run, or for its neighbours' derivatives only
  VmError error = VM_OK;
  std::array<float, 4> colour = {};
  float depth = 1;
  RunFailure failure;  // of a run that failed; without x and y
};

// Per thread. Fragments are numbered as in DerivativeRecord.
class QuadRunner {
 public:
  using Results = std::array<FragmentResult, DerivativeRecord::kFragments>;
  // Derivatives of derivatives, and so on, that are followed. A TileRunner, which could follow
  // more, leaves those that may be deeper to this, so that a pixel is the same whoever runs it.
  static constexpr unsigned kMaxReplays = 32;

  QuadRunner(const ShaderView& view, const HostInputs& inputs, ShaderMachine& machine,
             uint32_t timeout);

  void setOffset(std::array<float, 2> offset) { host_.setOffset(offset); }
  void setPixelSize(uint32_t size) { host_.setPixelSize(size); }

  // Runs the fragments in columns 2 * blockX and the next, rows 2 * blockY and the next (counted
  // from the bottom), that lie in a picture of this size. The others are run only when derivatives
  // ask for them. Ends at once when a fragment runs into its time limit.
  const Results& run(uint32_t blockX, uint32_t blockY, uint32_t width, uint32_t height);

  // Once more one fragment of any picture, as the given function runs it, with the derivatives that
  // its neighbours give.
  template <class Execute>
  VmError runOne(uint32_t column, uint32_t row, const Execute& execute) {
    const StartupInfo startup = prepareOne(column, row);
    startOne(column, row);
    return execute(startup);
  }
  // The same in parts, for those who run the fragment themselves, as often as they like.
  StartupInfo prepareOne(uint32_t column, uint32_t row) {
    // A picture that just reaches this fragment: those behind it run for their derivatives alone.
    run(column / 2, row / 2, column + 1, row + 1);
    derivatives_.turn();
    return startup_;
  }
  void startOne(uint32_t column, uint32_t row) { host_.startFragment(column, row); }
  // Goes on with it in the middle, where it had asked for so many derivatives.
  void resumeOne(uint32_t column, uint32_t row, size_t derivatives) {
    startOne(column, row);
    derivatives_.resume(derivatives);
  }
  size_t derivativesAsked() const { return derivatives_.asked(); }
  const FragmentHost& host() const { return host_; }

 private:
  // False when the time is up.
  bool runFragment(unsigned fragment, uint32_t column, uint32_t row);

  const ShaderView& view_;
  ShaderMachine& machine_;
  FragmentHost host_;
  DerivativeRecord derivatives_;
  StartupInfo startup_;
  Results results_;
};

}  // namespace shadermachine::tools
