#include "render/quad.h"

namespace shadermachine::tools {
QuadRunner::QuadRunner(const ShaderView& view, const HostInputs& inputs, ShaderMachine& machine,
                       uint32_t timeout)
    : view_(view), machine_(machine), host_(view, inputs), startup_(host_.startupInfo(timeout)) {
  host_.setDerivatives(derivatives_, machine);
}

const QuadRunner::Results& QuadRunner::run(uint32_t blockX, uint32_t blockY, uint32_t width,
                                           uint32_t height) {
  const auto column = [&](unsigned fragment) { return 2 * blockX + (fragment & 1); };
  const auto row = [&](unsigned fragment) { return 2 * blockY + (fragment >> 1); };
  const auto isInside = [&](unsigned fragment) {
    return column(fragment) < width && row(fragment) < height;
  };
  const auto runAll = [&](auto isWanted) {
    for (unsigned i = 0; i < DerivativeRecord::kFragments; ++i) {
      if (isWanted(i) && !runFragment(i, column(i), row(i))) return false;
    }
    return true;
  };
  results_ = {};
  derivatives_.clear();
  // Neighbours outside of the picture run only for those who ask for derivatives, and then everyone
  // runs again until no answer would change: each turn settles derivatives one level deeper.
  bool isInTime = runAll(isInside);
  if (isInTime && derivatives_.isUsed()) {
    isInTime = runAll([&](unsigned fragment) { return !isInside(fragment); });
    for (unsigned replay = 0; isInTime && replay < kMaxReplays; ++replay) {
      derivatives_.turn();
      isInTime = runAll([](unsigned) { return true; });
      if (derivatives_.isSettled()) break;
    }
  }
  for (unsigned i = 0; i < DerivativeRecord::kFragments; ++i) {
    // What ran for its neighbours only has no pixel.
    results_[i].isComplete = results_[i].isComplete && isInside(i);
  }
  return results_;
}

bool QuadRunner::runFragment(unsigned fragment, uint32_t column, uint32_t row) {
  host_.startFragment(column, row);
  FragmentResult& result = results_[fragment];
  result.isComplete = true;
  result.error = vmShaderMachineExecuteShader(&machine_, view_.shader, &startup_);
  if (isFailure(result.error)) {
    result.failure = {.error = result.error};
    locateFailure(machine_, view_, result.failure);
  } else {
    result.colour = host_.colour();
    result.depth = host_.depth();
  }
  return result.error != VM_ERR_TIMEOUT;
}

}  // namespace shadermachine::tools
