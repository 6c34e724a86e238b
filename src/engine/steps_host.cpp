// Variables that the host fills, and stores of aggregates.

#include "engine/plain_program.h"
#include "engine/steps.h"
#include "engine/vectors.h"
#include "instructions/builtin_variables.h"

namespace shadermachine::engine {
namespace {

// Apart from their handlers: what takes the address of a local, or calls, saves registers.

[[gnu::noinline]] void askHost(Machine& machine, const Record& record, void* data) {
  enterSite(machine, *record.site);
  const VarInfo& info = machine.shader->globals[record.x];
  const HostVariableRequest request = {
      data, &info, record.x, info.count, currentIndex(machine), machine.userData};
  chargeHostCall(machine);
  machine.callbacks.hostVariable(&request);
}

[[gnu::noinline]] void askHostForBlock(Machine& machine, const Record& record) {
  BlockView& view = slotOf(record.d).view;
  blockShare(&view, &machine.stack[record.x].view);
  askHost(machine, record, view.data);
  blockRelease(&view);
}

[[gnu::noinline]] void askHostForBuiltin(Machine& machine, const Record& record) {
  enterSite(machine, *record.site);
  const VmBuiltinCallback callback = builtinCallback(machine, record.x);
  if (callback == nullptr) return;
  chargeHostCall(machine);
  callback(record.d, 1, record.y != 0 ? currentIndex(machine) : -1, machine.userData);
}

bool storeFailed(Machine& machine, const Site& site) {
  enterSite(machine, site);
  stopWithoutBlock(machine);
  return false;
}

[[gnu::noinline]] bool storeBlock(Machine& machine, const Record& record) {
  BlockView& source = slotOf(record.a).view;
  const bool stored =
      chargeBytes(machine, source.size) && blockStore(machine, &slotOf(record.d).view, &source);
  blockRelease(&source);
  return stored || storeFailed(machine, *record.site);
}

// The part of a view that LOAD and the instructions after it would have left; empty when it does
// not lie inside.
BlockView partOf(const BlockView& whole, const PartSource& part) {
  const uint64_t index = part.index == nullptr ? 0 : *part.index;
  const uint64_t offset = part.offset + index * part.stride;
  if (whole.data == nullptr || offset + part.bytes > whole.size) return {nullptr, 0, 0};
  const auto at = static_cast<uint32_t>(offset);
  return {whole.data + at, part.bytes, whole.offset + at};
}

[[gnu::noinline]] bool copyBlock(Machine& machine, const Record& record) {
  BlockView source = slotOf(record.a).view;
  const auto* part = objectAt<PartSource>(record.c);
  if (part != nullptr) source = partOf(source, *part);
  const bool stored =
      chargeBytes(machine, source.size) && blockCopyInto(machine, &slotOf(record.d).view, &source);
  return stored || storeFailed(machine, *record.site);
}

// A block of the size could be made: then its memory is free again.
[[gnu::noinline]] bool canMakeBlock(Machine& machine, const Record& record) {
  const uint64_t bytes = sizeof(BlockHead) + uint64_t{record.x};
  if (!chargeBytes(machine, record.x) || !reserveMemory(machine, bytes)) {
    return storeFailed(machine, *record.site);
  }
  unreserveMemory(machine, bytes);
  return true;
}

[[gnu::noinline]] bool renewBlock(Machine& machine, const Record& record) {
  BlockView& variable = slotOf(record.d).view;
  const bool isOwn = blockRefCount(&variable) == 1 && variable.offset == 0;
  if (isOwn && variable.size == record.x) return canMakeBlock(machine, record);
  BlockView fresh;
  if (!chargeBytes(machine, record.x) || !blockAlloc(machine, &fresh, record.x, nullptr)) {
    return storeFailed(machine, *record.site);
  }
  blockRelease(&variable);
  variable = fresh;
  return true;
}

[[gnu::noinline]] bool openStorage(Machine& machine, const Record& record) {
  auto& block = *objectAt<FixedBlock>(const_cast<uint32_t*>(record.a));
  uint8_t* const data =
      chargeBytes(machine, record.x) ? takeFixedBlock(machine, block, record.x) : nullptr;
  if (data == nullptr) return storeFailed(machine, *record.site);
  slotOf(record.d).view = {data, record.x, 0};
  return true;
}

[[gnu::noinline]] void finishPlain(Machine& machine, const Site& site) {
  enterSite(machine, site);
  runPlainToEnd(machine);
}

// Word by word: the host may have written them in pieces of any size, and a load that spans two
// stores waits for both.
template <uint32_t n>
FloatVector gatherVector(const uint32_t* words) {
  const auto at = [words](uint32_t i) { return i < n ? std::bit_cast<float>(words[i]) : 0.0f; };
  return FloatVector{at(0), at(1), at(2), at(3)};
}

template <uint32_t n, bool stores>
Step hostVariableStep(ENGINE_STATE) {
  askHost(machine, *record, const_cast<uint32_t*>(record->a));
  if (machine.runState == VM_RUN_STOPPING) ENGINE_END;
  ENGINE_FORGET;
  if constexpr (n == 1) {
    word = *record->a;
    scalar = std::bit_cast<float>(word);
    if constexpr (stores) *record->d = word;
  } else if constexpr (n <= 4) {
    vector = gatherVector<n>(record->a);
    if constexpr (stores) storeVector<n>(record->d, vector);
  }
  ENGINE_NEXT;
}

template <uint32_t n>
consteval StepPair hostVariablePair() {
  return {&hostVariableStep<n, false>, &hostVariableStep<n, true>};
}

}  // namespace

StepPair hostVariableSteps(uint32_t n) {
  constexpr StepPair kSteps[] = {hostVariablePair<1>(), hostVariablePair<2>(),
                                 hostVariablePair<3>(), hostVariablePair<4>(),
                                 hostVariablePair<5>()};
  return kSteps[(n > 4 ? 5 : n) - 1];
}

Step hostAggregateStep(ENGINE_STATE) {
  askHostForBlock(machine, *record);
  if (machine.runState == VM_RUN_STOPPING) ENGINE_END;
  ENGINE_FORGET;
  ENGINE_NEXT;
}

Step hostBuiltinStep(ENGINE_STATE) {
  askHostForBuiltin(machine, *record);
  if (machine.runState == VM_RUN_STOPPING) ENGINE_END;
  ENGINE_FORGET;
  vector = gatherVector<4>(record->d);
  storeVector<4>(record->d, vector);
  ENGINE_NEXT;
}

Step storeBlockStep(ENGINE_STATE) {
  if (!storeBlock(machine, *record)) ENGINE_END;
  ENGINE_FORGET;
  ENGINE_NEXT;
}

Step copyBlockStep(ENGINE_STATE) {
  if (!copyBlock(machine, *record)) ENGINE_END;
  ENGINE_FORGET;
  ENGINE_NEXT;
}

Step fillStorageStep(ENGINE_STATE) {
  if (!copyBlock(machine, *record)) ENGINE_END;
  ENGINE_FORGET;
  if (slotOf(record->d).view.data == reinterpret_cast<const uint8_t*>(record->b)) ENGINE_NEXT;
  finishPlain(machine, *record->site);
  ENGINE_END;
}

Step renewStep(ENGINE_STATE) {
  if (!renewBlock(machine, *record)) ENGINE_END;
  ENGINE_FORGET;
  ENGINE_NEXT;
}

Step openStorageStep(ENGINE_STATE) {
  if (!openStorage(machine, *record)) ENGINE_END;
  ENGINE_FORGET;
  ENGINE_NEXT;
}

Step reserveStep(ENGINE_STATE) {
  if (!canMakeBlock(machine, *record)) ENGINE_END;
  ENGINE_FORGET;
  ENGINE_NEXT;
}

}  // namespace shadermachine::engine
