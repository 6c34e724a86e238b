// Built-in functions that the host computes. A missing callback is no error: the arguments are
// still consumed and the result slot keeps what it held.

#include <iterator>

#include "instructions/builtin_functions.h"
#include "instructions/handlers.h"
#include "instructions/lookup_form.h"

namespace shadermachine {
namespace {

uint32_t* words(Machine& machine, int32_t k) { return topSlot(machine, k).value.words; }

// Takes the place of the structure that CALL hands to the override callbacks.
struct ScratchRecord {
  alignas(8) uint8_t bytes[256] = {};

  void put(uint32_t offset, const void* source, uint32_t size) {
    std::memcpy(bytes + offset, source, size);
  }
};

constexpr uint32_t kLevelOffset = 88;
constexpr uint32_t kPointOffset = 120;
constexpr uint32_t kSelectorOffset = 212;
constexpr uint32_t kVec3Bytes = 12;

void call267(Machine& machine) {
  if (machine.callbacks.call267 != nullptr) {
    const HostCallRequest267 request = {words(machine, 2), words(machine, 1), words(machine, 3)[0],
                                        topSlot(machine).view.data, machine.userData};
    machine.callbacks.call267(&request);
  }
  blockRelease(&topSlot(machine).view);
}

void override275(Machine& machine) {
  if (machine.callbacks.overrideA == nullptr) return;
  constexpr float kLevel = 1.44f;
  static_assert(std::bit_cast<uint32_t>(kLevel) == 1069044204);
  ScratchRecord record;
  record.put(kLevelOffset, &kLevel, sizeof kLevel);
  record.put(kPointOffset, words(machine, 0), kVec3Bytes);
  const HostOverrideRequestA request = {words(machine, 1)[0], words(machine, 1), record.bytes,
                                        machine.userData};
  machine.callbacks.overrideA(&request);
}

void override276(Machine& machine) {
  if (machine.callbacks.overrideB == nullptr) return;
  ScratchRecord record;
  record.put(kPointOffset, words(machine, 1), kVec3Bytes);
  record.put(kSelectorOffset, words(machine, 0), sizeof(uint32_t));
  const HostOverrideRequestB request = {record.bytes, 1, machine.userData};
  uint32_t output[3] = {};
  machine.callbacks.overrideB(output, &request);
  std::memcpy(words(machine, 1), output, sizeof output);
}

void lookup277(Machine& machine) {
  if (machine.callbacks.lookup[0] == nullptr) return;
  constexpr uint32_t kKind = 3;
  float coords[3] = {0.0f, 0.0f, static_cast<float>(static_cast<int32_t>(words(machine, 1)[0]))};
  const LookupRequest request = {words(machine, 1),    0, coords, kKind,
                                 words(machine, 0)[0], 0, 0,      machine.userData};
  machine.callbacks.lookup[0](&request);
}

void override278(Machine& machine) {
  if (machine.callbacks.overrideA == nullptr) return;
  ScratchRecord record;
  record.put(kLevelOffset, words(machine, 0), sizeof(uint32_t));
  record.put(kPointOffset, words(machine, 1), kVec3Bytes);
  const HostOverrideRequestA request = {words(machine, 2)[0], words(machine, 2), record.bytes,
                                        machine.userData};
  machine.callbacks.overrideA(&request);
}

void callPair(Machine& machine, VmCall293Callback callback) {
  if (callback == nullptr) return;
  const HostCallRequest293 request = {words(machine, 1), words(machine, 0), machine.userData};
  callback(&request);
}

void call293(Machine& machine) { callPair(machine, machine.callbacks.call293); }
void call298(Machine& machine) { callPair(machine, machine.callbacks.call298); }

template <uint32_t which>
void call294(Machine& machine) {
  const VmCall294Callback callback = machine.callbacks.call294to296[which];
  if (callback == nullptr) return;
  const HostCallRequest294 request = {words(machine, 3), words(machine, 2), words(machine, 1)[0],
                                      words(machine, 0)[0], machine.userData};
  callback(&request);
}

void call297(Machine& machine) {
  if (machine.callbacks.call297 == nullptr) return;
  const HostCallRequest297 request = {words(machine, 4),    words(machine, 3),
                                      words(machine, 2)[0], words(machine, 1)[0],
                                      words(machine, 0)[0], machine.userData};
  machine.callbacks.call297(&request);
}

// In the order of kServedFunctions.
constexpr Handler kServices[] = {call267,     override275, override276, lookup277,
                                 override278, call293,     call294<0>,  call294<1>,
                                 call294<2>,  call297,     call298};
static_assert(std::size(kServices) == std::size(kServedFunctions));

}  // namespace

void callBuiltin(Machine& machine) {
  const uint32_t id = fetchU16(machine);
  chargeHostCall(machine);
  for (size_t i = 0; i < std::size(kServices); ++i) {
    if (kServedFunctions[i].id != id) continue;
    kServices[i](machine);
    return popSlots(machine, kServedFunctions[i].pops);
  }
  stopRun(machine, VM_ERR_NOT_IMPLEMENTED);
}

void callHostUnary(Machine& machine, uint32_t which) {
  fetchU8(machine);
  chargeHostCall(machine);
  const VmBuiltinCallback callback = machine.callbacks.hostUnary[which];
  if (callback != nullptr) callback(words(machine, 0), 1, -1, machine.userData);
}

void callHostLookup(Machine& machine, uint32_t which) {
  const uint32_t form = fetchU8(machine);
  const uint32_t arguments = lookupArguments(form);
  if (arguments < 2) return;
  const bool hasExtra = arguments == 3;
  const VmLookupCallback callback = machine.callbacks.lookup[which];
  if (callback != nullptr) {
    chargeHostCall(machine);
    uint32_t* result = words(machine, hasExtra ? 2 : 1);
    float* coords = reinterpret_cast<float*>(words(machine, hasExtra ? 1 : 0));
    uint64_t sampler;
    std::memcpy(&sampler, result, sizeof sampler);
    const LookupRequest request = {result,
                                   sampler,
                                   coords,
                                   lookupKind(form),
                                   which == 0 ? 16u : 0u,
                                   hasExtra ? words(machine, 0)[0] : 0u,
                                   hasExtra ? 1u : 0u,
                                   machine.userData};
    callback(&request);
  }
  popSlots(machine, hasExtra ? 2 : 1);
}

}  // namespace shadermachine
