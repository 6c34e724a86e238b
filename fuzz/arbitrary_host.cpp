#include "fuzz/arbitrary_host.h"

#include <shadermachine-tools/shader_builder.h>
#include <shadermachine/opcodes.h>

#include <algorithm>
#include <cstring>

namespace shadermachine::fuzz {
namespace {

// Three of them are, as indices of stores, patterns that select components.
constexpr uint32_t kWords[] = {0,
                               1,
                               0x3F800000,
                               0xBF800000,
                               0x80000000,
                               0x7FC00000,
                               0x7F800000,
                               3,
                               0xFFFFFFFF,
                               0x40490FDB,
                               2,
                               static_cast<uint32_t>(-1252),
                               static_cast<uint32_t>(-257),
                               static_cast<uint32_t>(-516)};

}  // namespace

const HostCallbacks& ArbitraryHost::callbacks() {
  static const HostCallbacks table = tools::hostCallbacks<ArbitraryHost>();
  return table;
}

void ArbitraryHost::answer(unsigned slot, const tools::BuiltinRequest& request) {
  const uint32_t words = tools::kBuiltinsOfSlots[slot].words;
  write(request.data, words != 0 ? uint64_t{words} * request.count : tools::kHostUnaryWords);
}

void ArbitraryHost::answer(unsigned, const LookupRequest& request) {
  read(request.coords, request.kind < 8 ? tools::kLookupKinds[request.kind].coordinates : 0);
  write(request.result, tools::kLookupResultWords);
}

void ArbitraryHost::answer(unsigned, const HostVariableRequest& request) {
  const std::minstd_rand own = random_;
  const bool isShared = sharesVariables && request.index % 2 == 0;
  if (isShared) random_.seed(request.index + 1);
  write(request.data, request.varInfo->byteSize / 4);
  if (isShared) random_ = own;
}

uint32_t ArbitraryHost::answer(unsigned, const HostOverrideRequestA& request) {
  write(request.value, 4);
  return word();
}

void ArbitraryHost::answer(unsigned, const HostFunctionRequest& request) {
  write(request.a, tools::kHostFunctionWords);
  write(request.b, tools::kHostFunctionWords);
}

void ArbitraryHost::answer(unsigned, const tools::OverrideBRequest& request) {
  read(request.record->record, 1);
  write(request.output, tools::kOverrideBWords);
}

void ArbitraryHost::answer(unsigned, const HostCallRequest267& request) {
  read(request.a, 4);
  read(request.b, 4);
  read(request.block, 1);
}

void ArbitraryHost::answer(unsigned, const HostCallRequest293& request) {
  read(request.a, 4);
  read(request.b, 4);
}

StartupInfo ArbitraryHost::startup(uint32_t timeout) const {
  StartupInfo startup = {};
  startup.userData = reinterpret_cast<uintptr_t>(this);
  startup.timeout = timeout;
  startup.builtin258 = 1;
  startup.builtin285 = 0x3F000000;
  return startup;
}

uint32_t ArbitraryHost::word() {
  const auto random = static_cast<uint32_t>(random_());
  return random % 4 == 0 ? random : kWords[random % std::size(kWords)];
}

void ArbitraryHost::write(void* target, uint64_t words) {
  ++calls_;
  if (onAccess) onAccess();
  if (target == nullptr) return;
  words = std::min(words, mostWords);
  for (uint64_t i = 0; i < words; ++i) {
    const uint32_t value = word();
    std::memcpy(static_cast<uint8_t*>(target) + 4 * i, &value, sizeof value);
  }
}

void ArbitraryHost::read(const void* source, uint32_t words) {
  ++calls_;
  if (onAccess) onAccess();
  if (source == nullptr) return;
  for (uint32_t i = 0; i < words; ++i) {
    uint32_t value;
    std::memcpy(&value, static_cast<const uint8_t*>(source) + size_t{4} * i, sizeof value);
    const bool isNan = (value & 0x7FFFFFFF) > 0x7F800000;
    sum_ = sum_ * 31 + (isNan ? 0x7FC00000 : value);
  }
}

MachinePtr makeMachine(bool withHost) {
  const MachineCreateInfo info = {withHost ? &ArbitraryHost::callbacks() : nullptr};
  return MachinePtr(vmShaderMachineCreate(&info));
}

VmError runAndForget(ShaderMachine& machine, const CompiledShader* shader,
                     const StartupInfo& startup, int runs) {
  VmError result = VM_OK;
  for (int run = 0; run < runs; ++run) {
    result = vmShaderMachineExecuteShader(&machine, shader, &startup);
  }
  constexpr uint8_t kCode[] = {VM_OP_DISCARD};
  ShaderFunction discarding = {};
  discarding.codeLength = sizeof kCode;
  const ShaderFunction* const functions[] = {&discarding};
  CompiledShader other = {};
  other.version = 1;
  other.functionCount = 1;
  other.functions = functions;
  other.code = kCode;
  vmShaderMachineExecuteShader(&machine, &other, &startup);
  return result;
}

}  // namespace shadermachine::fuzz
