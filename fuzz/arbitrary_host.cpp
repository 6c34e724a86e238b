#include "fuzz/arbitrary_host.h"

#include <shadermachine-tools/host_contract.h>
#include <shadermachine-tools/shader_builder.h>
#include <shadermachine/opcodes.h>

#include <array>
#include <cstring>
#include <utility>

#include "instructions/builtin_variables.h"

namespace shadermachine::fuzz {
namespace {

constexpr uint32_t kWords[] = {0,          1,          0x3F800000, 0xBF800000, 0x80000000,
                               0x7FC00000, 0x7F800000, 3,          0xFFFFFFFF, 0x40490FDB};

ArbitraryHost& hostOf(uint64_t userData) { return *reinterpret_cast<ArbitraryHost*>(userData); }

// Words that LOAD_BUILTIN of a callback slot wants per element.
constexpr auto wordsOfSlots() {
  std::array<uint8_t, 80> words = {};
  for (uint32_t id = kFirstBuiltinVariable; id <= kLastBuiltinVariable; ++id) {
    const BuiltinVariable variable = builtinVariable(id);
    if (variable.family < BuiltinFamily::HostValue) continue;
    const TypeCode type = tools::builtinValue(id).type;
    words[variable.callbackSlot] = type == VM_TYPE_VEC4 ? 4 : type == VM_TYPE_VEC2 ? 2 : 1;
  }
  return words;
}
constexpr auto kSlotWords = wordsOfSlots();

template <unsigned slot>
void onBuiltin(void* data, uint32_t count, int32_t, uint64_t userData) {
  hostOf(userData).answer(data, uint64_t{kSlotWords[slot]} * count);
}

void onHostUnary(void* data, uint32_t, int32_t, uint64_t userData) {
  hostOf(userData).answer(data, tools::kHostUnaryWords);
}

void onOutput0(const void* inlineArea, uint64_t userData) { hostOf(userData).read(inlineArea, 1); }

void onOutput1(float component, uint64_t userData) { hostOf(userData).read(&component, 1); }

void onLookup(const LookupRequest* request) {
  ArbitraryHost& host = hostOf(request->userData);
  host.read(request->coords,
            request->kind < 8 ? tools::kLookupKinds[request->kind].coordinates : 0);
  host.answer(request->result, tools::kLookupResultWords);
}

void onHostVariable(const HostVariableRequest* request) {
  hostOf(request->userData).answer(request->data, request->varInfo->byteSize / 4);
}

uint32_t onOverrideA(const HostOverrideRequestA* request) {
  ArbitraryHost& host = hostOf(request->userData);
  host.answer(request->value, 4);
  return host.word();
}

void onHostFunction(const HostFunctionRequest* request) {
  ArbitraryHost& host = hostOf(request->userData);
  host.answer(request->a, tools::kHostFunctionWords);
  host.answer(request->b, tools::kHostFunctionWords);
}

void onOverrideB(void* output, const HostOverrideRequestB* request) {
  ArbitraryHost& host = hostOf(request->userData);
  host.read(request->record, 1);
  host.answer(output, tools::kOverrideBWords);
}

void onCall267(const HostCallRequest267* request) {
  ArbitraryHost& host = hostOf(request->userData);
  host.read(request->a, 4);
  host.read(request->b, 4);
  host.read(request->block, 1);
}

void onCall293(const HostCallRequest293* request) {
  hostOf(request->userData).read(request->a, 4);
  hostOf(request->userData).read(request->b, 4);
}

void onCall294(const HostCallRequest294* request) {
  hostOf(request->userData).read(request->b, 4);
  hostOf(request->userData).answer(request->a, 4);
}

void onCall297(const HostCallRequest297* request) {
  hostOf(request->userData).read(request->b, 4);
  hostOf(request->userData).answer(request->a, 4);
}

template <size_t... slot>
HostCallbacks makeCallbacks(std::index_sequence<slot...>) {
  HostCallbacks callbacks;
  const VmBuiltinCallback functions[] = {&onBuiltin<slot>...};
  static_assert(sizeof functions == sizeof callbacks);
  std::memcpy(static_cast<void*>(&callbacks), functions, sizeof callbacks);
  callbacks.output0 = &onOutput0;
  callbacks.output1 = &onOutput1;
  for (auto& unary : callbacks.hostUnary) unary = &onHostUnary;
  for (auto& lookup : callbacks.lookup) lookup = &onLookup;
  callbacks.hostVariable = &onHostVariable;
  callbacks.overrideA = &onOverrideA;
  callbacks.hostFunction = &onHostFunction;
  callbacks.call267 = &onCall267;
  callbacks.overrideB = &onOverrideB;
  callbacks.call293 = &onCall293;
  for (auto& call : callbacks.call294to296) call = &onCall294;
  callbacks.call297 = &onCall297;
  callbacks.call298 = &onCall293;
  return callbacks;
}

}  // namespace

const HostCallbacks& ArbitraryHost::callbacks() {
  static const HostCallbacks table = makeCallbacks(std::make_index_sequence<kSlotWords.size()>());
  return table;
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

void ArbitraryHost::answer(void* target, uint64_t words) {
  ++calls_;
  if (onAccess) onAccess();
  if (target == nullptr) return;
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
