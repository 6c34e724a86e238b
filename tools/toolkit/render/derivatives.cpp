#include "render/derivatives.h"

#include <shadermachine-tools/host_contract.h>

#include <cstring>
#include <new>
#include <utility>

namespace shadermachine::tools {
namespace {

// The machine skips the instruction's operand, so any byte may be there. Words beyond the
// components are nobody's and may change from run to run.
uint32_t componentsOf(const CallFrame& frame) {
  const uint8_t operand = frame.code[frame.pc - 1];
  return operand >= 1 && operand <= kHostUnaryWords ? operand : kHostUnaryWords;
}

}  // namespace

void DerivativeRecord::clear() {
  if (!isUsed_) return;
  isUsed_ = false;
  for (Run& run : *noted_) run.count = 0;
  for (Run& run : *answering_) run.count = 0;
}

void DerivativeRecord::turn() {
  if (!isUsed_) return;
  std::swap(noted_, answering_);
  for (Run& run : *noted_) run.count = 0;
}

void DerivativeRecord::startFragment(unsigned fragment) {
  fragment_ = fragment;
  if (isUsed_) (*noted_)[fragment].count = 0;
}

bool DerivativeRecord::isSettled() const {
  if (!isUsed_) return true;
  const auto isSame = [](const Call& a, const Call& b) {
    return a.isSameSite(b) && std::memcmp(&a.value, &b.value, a.components * sizeof(float)) == 0;
  };
  for (unsigned i = 0; i < kFragments; ++i) {
    const Run& now = (*noted_)[i];
    const Run& before = (*answering_)[i];
    // Another number of calls means that a neighbour took another way, with other values.
    if (now.count != before.count) return false;
    for (size_t k = 0; k < now.count; ++k) {
      if (!isSame(now.calls[k], before.calls[k])) return false;
    }
  }
  return true;
}

DerivativeRecord::Differences DerivativeRecord::answer(const ShaderMachine& machine,
                                                       const Value& value) {
  Differences result;
  // Only now: most shaders never ask, and the two records are large. It is the machine that calls,
  // so nothing may be thrown.
  if (noted_ == nullptr) noted_.reset(new (std::nothrow) Runs);
  if (answering_ == nullptr) answering_.reset(new (std::nothrow) Runs);
  if (noted_ == nullptr || answering_ == nullptr) return result;
  isUsed_ = true;
  Run& run = (*noted_)[fragment_];
  // Beyond that a derivative is zero: what is noted has a bound, whatever the shader does.
  if (run.count == kMaxCalls) return result;
  const CallFrame& frame = machine.frames[machine.frameIndex];
  Call call = {frame.function, frame.pc, 0, componentsOf(frame), value};
  // The last call of the same place knows how many there were.
  for (size_t k = run.count; k-- > 0;) {
    if (!run.calls[k].isSameSite(call)) continue;
    call.occurrence = run.calls[k].occurrence + 1;
    break;
  }
  const size_t index = run.count++;
  run.calls[index] = call;
  const auto difference = [&](unsigned axis) {
    Value steps = {};
    const unsigned bit = 1u << axis;
    // Neighbours answer from their last run, whose values are complete; in this one, some have not
    // come here yet.
    const Value* other = find(fragment_ ^ bit, call, index);
    if (other == nullptr) return steps;
    const float sign = (fragment_ & bit) == 0 ? 1.0f : -1.0f;
    for (size_t i = 0; i < steps.size(); ++i) steps[i] = sign * ((*other)[i] - value[i]);
    return steps;
  };
  result.dx = difference(0);
  result.dy = difference(1);
  return result;
}

// Fragments mostly take the same way, so that the call is looked for at its own place first.
const DerivativeRecord::Value* DerivativeRecord::find(unsigned fragment, const Call& call,
                                                      size_t index) const {
  const Run& run = (*answering_)[fragment];
  const auto isIt = [&](const Call& other) {
    return other.isSameSite(call) && other.occurrence == call.occurrence;
  };
  if (index < run.count && isIt(run.calls[index])) return &run.calls[index].value;
  for (size_t k = 0; k < run.count; ++k) {
    if (isIt(run.calls[k])) return &run.calls[k].value;
  }
  return nullptr;
}

}  // namespace shadermachine::tools
