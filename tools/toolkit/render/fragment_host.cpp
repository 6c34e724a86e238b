#include "render/fragment_host.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "render/texture.h"

namespace shadermachine::tools {

// Friends of the host with C signatures.
struct FragmentCallbacks {
  static FragmentHost& host(uint64_t userData) {
    return *reinterpret_cast<FragmentHost*>(userData);  // NOLINT(performance-no-int-to-ptr)
  }

  static void output0(const void* words, uint64_t userData) {
    FragmentHost& self = host(userData);
    self.colour_ = {0, 0, 0, 1};
    std::memcpy(self.colour_.data(), words, self.colourWords_ * sizeof(float));
    for (uint32_t i = 0; self.isInteger_ && i < self.colourWords_; ++i) {
      self.colour_[i] = static_cast<float>(std::bit_cast<int32_t>(self.colour_[i])) / 255;
    }
  }

  static void output1(float depth, uint64_t userData) { host(userData).depth_ = depth; }

  static void hostVariable(const HostVariableRequest* request) {
    const FragmentHost& self = host(request->userData);
    self.inputs_->write(request->index, self.x_, self.y_, request->data);
  }

  static void lookup(const LookupRequest* request) {
    const Texture* texture = host(request->userData).inputs_->texture(request->sampler);
    const std::array<float, 4> colour =
        texture != nullptr ? lookUp(*texture, *request) : std::array<float, 4>{0, 0, 0, 1};
    std::memcpy(request->result, colour.data(), sizeof colour);
  }

  static void derivativeX(void* data, uint32_t, int32_t, uint64_t userData) {
    derivative(data, userData, [](float dx, float) { return dx; });
  }
  static void derivativeY(void* data, uint32_t, int32_t, uint64_t userData) {
    derivative(data, userData, [](float, float dy) { return dy; });
  }
  static void derivativeSum(void* data, uint32_t, int32_t, uint64_t userData) {
    derivative(data, userData, [](float dx, float dy) { return std::abs(dx) + std::abs(dy); });
  }

  template <class Combine>
  static void derivative(void* data, uint64_t userData, Combine combine) {
    const FragmentHost& self = host(userData);
    DerivativeRecord::Value value;
    std::memcpy(value.data(), data, sizeof value);
    DerivativeRecord::Differences differences;
    if (self.derivatives_ != nullptr) {
      differences = self.derivatives_->answer(*self.machine_, value);
    }
    for (size_t i = 0; i < value.size(); ++i) {
      value[i] = combine(differences.dx[i], differences.dy[i]);
    }
    std::memcpy(data, value.data(), sizeof value);
  }

  static void fragmentPosition(void* data, uint32_t, int32_t, uint64_t userData) {
    const FragmentHost& self = host(userData);
    const float position[4] = {self.x_, self.y_, 0.5f, 1};
    std::memcpy(data, position, sizeof position);
  }

  // Every picture is one rectangle that faces the viewer.
  static void frontFacing(void* data, uint32_t, int32_t, uint64_t) {
    const uint32_t yes = 1;
    std::memcpy(data, &yes, sizeof yes);
  }

  static void pointPosition(void* data, uint32_t, int32_t, uint64_t userData) {
    const FragmentHost& self = host(userData);
    const std::array<float, 2> position = self.inputs_->unitPosition(self.x_, self.y_);
    std::memcpy(data, position.data(), sizeof position);
  }

  // The variables without a meaning here: all words that the contract promises are defined.
  static void zeros(void* data, uint32_t, int32_t, uint64_t) {
    std::memset(data, 0, 4 * sizeof(float));
  }
};

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

void fillInlineBuiltins(HostCallbacks& table) {
  constexpr VmBuiltinCallback kZeros = FragmentCallbacks::zeros;
  for (VmBuiltinCallback* slot :
       {&table.builtin259, &table.builtin260, &table.builtin261, &table.builtin262,
        &table.builtin263, &table.builtin264, &table.builtin265, &table.builtin266,
        &table.builtin279, &table.builtin301, &table.builtin302, &table.builtin412,
        &table.builtin413, &table.builtin415, &table.builtin416, &table.builtin417}) {
    *slot = kZeros;
  }
  for (VmBuiltinCallback& slot : table.builtin382to395) slot = kZeros;
  table.builtin280 = FragmentCallbacks::frontFacing;
  table.builtin283 = FragmentCallbacks::fragmentPosition;
  table.builtin284 = FragmentCallbacks::pointPosition;
}

}  // namespace

FragmentHost::FragmentHost(const ShaderView& view, const HostInputs& inputs)
    : inputs_(&inputs),
      colourWords_(componentsOf(*view.shader, view.shader->outputGlobal0)),
      isInteger_(colourWords_ > 0 && isInteger(view.shader->globals[view.shader->outputGlobal0])) {}

// Slots that stay null: functions of the host and variables backed by globals, whose zero-filled
// blocks the machine hands out as they are.
HostCallbacks FragmentHost::callbacks() {
  HostCallbacks table = {};
  table.output0 = FragmentCallbacks::output0;
  table.output1 = FragmentCallbacks::output1;
  table.hostUnary[0] = FragmentCallbacks::derivativeX;
  table.hostUnary[1] = FragmentCallbacks::derivativeY;
  table.hostUnary[2] = FragmentCallbacks::derivativeSum;
  table.lookup[0] = FragmentCallbacks::lookup;
  table.lookup[1] = FragmentCallbacks::lookup;
  table.hostVariable = FragmentCallbacks::hostVariable;
  fillInlineBuiltins(table);
  return table;
}

void FragmentHost::setDerivatives(DerivativeRecord& record, const ShaderMachine& machine) {
  derivatives_ = &record;
  machine_ = &machine;
}

void FragmentHost::startFragment(uint32_t column, uint32_t row) {
  x_ = static_cast<float>(column) + offset_[0];
  y_ = static_cast<float>(row) + offset_[1];
  depth_ = 1;
  if (derivatives_ != nullptr) derivatives_->startFragment((column & 1) | (row & 1) << 1);
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
