// Callbacks that are members of a class: the host's side for renderer, tests and fuzzers.
//
// A host has members `answer(unsigned slot, const Request&)`, one for each kind of request that it
// answers; its address is the run's user data. Slots of the other kinds stay null.
#pragma once

#include <shadermachine-tools/host_contract.h>

#include <array>
#include <cstring>
#include <memory>
#include <utility>

#include "instructions/builtin_variables.h"

namespace shadermachine::tools {

struct MachineDeleter {
  void operator()(ShaderMachine* machine) const { vmShaderMachineDestroy(machine); }
};
using MachineHandle = std::unique_ptr<ShaderMachine, MachineDeleter>;

// Slots of HostCallbacks.
enum HostSlot : unsigned {
  kOutput0 = 0,
  kOutput1 = 1,
  kHostUnary1 = 47,
  kLookup1 = 50,
  kLookup2 = 51,
  kHostVariable = 52,
  kOverrideA = 53,
  kHostFunction = 54,
  kCall267 = 55,
  kOverrideB = 56,
  kCall293 = 74,
  kCall294 = 75,
  kCall297 = 78,
  kCall298 = 79,
  kHostSlotCount = sizeof(HostCallbacks) / sizeof(VmBuiltinCallback),
};

// The arguments of callbacks that get more than a record.
struct Output0Request {
  const void* words;
  uint64_t userData;
};
struct Output1Request {
  float value;
  uint64_t userData;
};
struct BuiltinRequest {  // of HOST_UNARY too
  void* data;
  uint32_t count;
  int32_t index;
  uint64_t userData;
};
struct OverrideBRequest {
  void* output;
  const HostOverrideRequestB* record;
  uint64_t userData;
};

// What answers LOAD_BUILTIN through a slot; id 0 for slots that do something else.
struct BuiltinOfSlot {
  uint16_t id = 0;
  bool isInline = false;  // the value is pushed, not the block of a global
  uint8_t words = 0;      // that the host writes, per element
};

inline constexpr auto kBuiltinsOfSlots = [] {
  std::array<BuiltinOfSlot, kHostSlotCount> table = {};
  for (uint16_t id = kFirstBuiltinVariable; id <= kLastBuiltinVariable; ++id) {
    const BuiltinVariable variable = builtinVariable(id);
    if (variable.family < BuiltinFamily::HostValue) continue;
    const TypeCode type = builtinValue(id).type;
    const uint8_t words = type == VM_TYPE_VEC4 ? 4 : type == VM_TYPE_VEC2 ? 2 : 1;
    table[variable.callbackSlot] = {id, variable.family < BuiltinFamily::GlobalElement, words};
  }
  return table;
}();

namespace detail {

template <class Host, unsigned slot>
struct HostStubs {
  template <class Request>
  static auto answer(const Request& request) {
    return reinterpret_cast<Host*>(request.userData)->answer(slot, request);  // NOLINT
  }

  template <class Request>
  static auto request(const Request* record) {
    return answer(*record);
  }
  static void output0(const void* words, uint64_t userData) {
    answer(Output0Request{words, userData});
  }
  static void output1(float value, uint64_t userData) { answer(Output1Request{value, userData}); }
  static void builtin(void* data, uint32_t count, int32_t index, uint64_t userData) {
    answer(BuiltinRequest{data, count, index, userData});
  }
  static void overrideB(void* output, const HostOverrideRequestB* record) {
    answer(OverrideBRequest{output, record, record->userData});
  }
};

template <class Host, class Request>
concept Answers = requires(Host& host, const Request& request) {
  host.answer(0U, request);
};

template <class Host, unsigned slot, class Request>
void placeRequest(void (*&callback)(const Request*)) {
  if constexpr (Answers<Host, Request>) callback = HostStubs<Host, slot>::template request<Request>;
}

template <class Host, size_t... slot>
void placeBuiltins(HostCallbacks& callbacks, std::index_sequence<slot...>) {
  // All slots are pointers of one size in one row (the record's layout is pinned), so the table of
  // variables gives their numbers.
  const VmBuiltinCallback stubs[] = {HostStubs<Host, slot>::builtin...};
  for (size_t i = 0; i < kHostSlotCount; ++i) {
    const bool isUnary = i - kHostUnary1 < std::size(callbacks.hostUnary);
    if (kBuiltinsOfSlots[i].id == 0 && !isUnary) continue;
    std::memcpy(reinterpret_cast<uint8_t*>(&callbacks) + i * sizeof stubs[i], &stubs[i],
                sizeof stubs[i]);
  }
}

}  // namespace detail

template <class Host>
HostCallbacks hostCallbacks() {
  using namespace detail;
  HostCallbacks callbacks = {};
  if constexpr (Answers<Host, BuiltinRequest>) {
    placeBuiltins<Host>(callbacks, std::make_index_sequence<kHostSlotCount>());
  }
  if constexpr (Answers<Host, Output0Request>) {
    callbacks.output0 = HostStubs<Host, kOutput0>::output0;
  }
  if constexpr (Answers<Host, Output1Request>) {
    callbacks.output1 = HostStubs<Host, kOutput1>::output1;
  }
  placeRequest<Host, kLookup1>(callbacks.lookup[0]);
  placeRequest<Host, kLookup2>(callbacks.lookup[1]);
  placeRequest<Host, kHostVariable>(callbacks.hostVariable);
  if constexpr (Answers<Host, HostOverrideRequestA>) {
    callbacks.overrideA = HostStubs<Host, kOverrideA>::template request<HostOverrideRequestA>;
  }
  placeRequest<Host, kHostFunction>(callbacks.hostFunction);
  placeRequest<Host, kCall267>(callbacks.call267);
  if constexpr (Answers<Host, OverrideBRequest>) {
    callbacks.overrideB = HostStubs<Host, kOverrideB>::overrideB;
  }
  placeRequest<Host, kCall293>(callbacks.call293);
  placeRequest<Host, kCall294>(callbacks.call294to296[0]);
  placeRequest<Host, kCall294 + 1>(callbacks.call294to296[1]);
  placeRequest<Host, kCall294 + 2>(callbacks.call294to296[2]);
  placeRequest<Host, kCall297>(callbacks.call297);
  placeRequest<Host, kCall298>(callbacks.call298);
  return callbacks;
}

}  // namespace shadermachine::tools
