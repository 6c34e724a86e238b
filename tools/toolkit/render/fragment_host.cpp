#include "render/fragment_host.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "render/texture.h"

namespace shadermachine::tools {

namespace {

uint32_t componentsOf(const CompiledShader& shader, int32_t global) {
  if (global < 0 || global >= shader.globalCount) return 0;
  const VarInfo& info = shader.globals[global];
  if (info.type >= 0 || info.count > 0) return 0;
  return std::min<uint32_t>(info.byteSize / sizeof(float), 4);
}

bool isInteger(const VarInfo& variable) {
  return variable.type == VM_TYPE_INT ||
         (variable.type >= VM_TYPE_IVEC2 && variable.type <= VM_TYPE_IVEC4);
}

}  // namespace

FragmentHost::FragmentHost(const ShaderView& view, const HostInputs& inputs)
    : inputs_(&inputs),
      colourWords_(componentsOf(*view.shader, view.shader->outputGlobal0)),
      isInteger_(colourWords_ > 0 && isInteger(view.shader->globals[view.shader->outputGlobal0])) {}

// Functions of the host stay null.
HostCallbacks FragmentHost::callbacks() { return hostCallbacks<FragmentHost>(); }

void FragmentHost::takeBytes() {
  for (uint32_t i = 0; i < colourWords_; ++i) {
    colour_[i] = static_cast<float>(std::bit_cast<int32_t>(colour_[i])) / 255;
  }
}

void FragmentHost::answer(unsigned, const HostVariableRequest& request) {
  inputs_->write(request.index, x_, y_, request.data);
}

void FragmentHost::answer(unsigned, const LookupRequest& request) {
  const std::array<float, 4> colour = lookUpIn(inputs_->texture(request.sampler), request);
  std::memcpy(request.result, colour.data(), sizeof colour);
}

void FragmentHost::answer(unsigned slot, const BuiltinRequest& request) {
  const BuiltinOfSlot builtin = kBuiltinsOfSlots[slot];
  if (builtin.id == 0) return answerDerivative(slot - kHostUnary1, request.data);
  if (!builtin.isInline) return;  // the machine hands out the zeros of the global's block
  const std::array<float, 4> value = builtinValue(builtin.id);
  std::memcpy(request.data, value.data(), builtin.words * sizeof(float));
}

// Variables without a meaning here are zero: all words that the contract promises are defined.
std::array<float, 4> FragmentHost::builtinValue(uint16_t id) const {
  switch (id) {
    case kFrontFacing:  // every picture is one rectangle that faces the viewer
      return {std::bit_cast<float>(1)};
    case kFragmentPosition:
      return {x_, y_, 0.5f, 1};
    case kPointPosition: {
      const std::array<float, 2> position = inputs_->unitPosition(x_, y_);
      return {position[0], position[1]};
    }
    default:
      return {};
  }
}

// To the right, upwards, or the sum of both without signs.
void FragmentHost::answerDerivative(unsigned which, void* data) const {
  DerivativeRecord::Value value;
  std::memcpy(value.data(), data, sizeof value);
  DerivativeRecord::Differences differences;
  if (derivatives_ != nullptr) differences = derivatives_->answer(*machine_, value);
  for (size_t i = 0; i < value.size(); ++i) {
    const float dx = differences.dx[i];
    const float dy = differences.dy[i];
    value[i] = which == 0 ? dx : which == 1 ? dy : std::abs(dx) + std::abs(dy);
  }
  std::memcpy(data, value.data(), sizeof value);
}

void FragmentHost::setDerivatives(DerivativeRecord& record, const ShaderMachine& machine) {
  derivatives_ = &record;
  machine_ = &machine;
}

StartupInfo FragmentHost::startupInfo(uint32_t timeout) {
  return {.userData = reinterpret_cast<uint64_t>(this),
          .builtin258 = 0,
          .timeout = timeout,
          .reserved16 = 0,
          .builtin281 = 0,
          .builtin282 = 0,
          .builtin285 = 0};
}

}  // namespace shadermachine::tools
