// Callbacks of a machine that ask the batch callbacks instead, for a group of one invocation.

#include <utility>

#include "batch/batch.h"
#include "instructions/builtin_variables.h"

namespace shadermachine::batch {
namespace {

// Callbacks get nothing but the host's user data.
thread_local ShaderBatch* running = nullptr;

void fillColumn(uint32_t* rows, const void* words, uint32_t count) {
  const auto* source = static_cast<const uint8_t*>(words);
  for (uint32_t w = 0; w < count; ++w) {
    std::memcpy(&rows[w * ShaderBatch::kStride], source + w * sizeof(uint32_t), sizeof(uint32_t));
  }
}

void readColumn(void* words, const uint32_t* rows, uint32_t count) {
  auto* target = static_cast<uint8_t*>(words);
  for (uint32_t w = 0; w < count; ++w) {
    std::memcpy(target + w * sizeof(uint32_t), &rows[w * ShaderBatch::kStride], sizeof(uint32_t));
  }
}

// The running invocation as a group.
BatchRequest groupOfOne(ShaderBatch& batch, uint32_t* rows, uint32_t count) {
  return {
      rows, ShaderBatch::kStride, count, batch.invocation, 1, 1, &batch.userData[batch.invocation]};
}

// With `count` words of `words` in its rows.
BatchRequest groupOfOne(ShaderBatch& batch, const void* words, uint32_t count) {
  fillColumn(batch.words, words, count);
  return groupOfOne(batch, batch.words, count);
}

void takeOutput0(const void* inlineArea, uint64_t) {
  const BatchRequest request = groupOfOne(*running, inlineArea, VM_COMPONENT_COUNT);
  running->batchCallbacks.output0(&request);
}

void takeOutput1(float component0, uint64_t) {
  const BatchRequest request = groupOfOne(*running, &component0, 1);
  running->batchCallbacks.output1(&request);
}

bool isInRequests(const VarInfo& info) {
  return info.byteSize % sizeof(uint32_t) == 0 && info.byteSize != 0 &&
         info.byteSize <= VM_BATCH_AGGREGATE_LIMIT;
}

// False where the callback leaves it. Requests are finished before the callback runs: it may run
// another batch on this thread, but `running` is this one again afterwards.
bool answerWide(VmBatchVariableCallback callback, const HostVariableRequest& request,
                uint32_t* rows, uint32_t count) {
  const BatchVariableRequest wide = {groupOfOne(*running, rows, count), request.varInfo,
                                     &request.element, request.index};
  if (callback(&wide) == VM_BATCH_ONE_BY_ONE) return false;
  readColumn(request.data, rows, count);
  return true;
}

void answerVariable(const HostVariableRequest* request) {
  ShaderBatch& batch = *running;
  const VarInfo& info = *request->varInfo;
  const bool isBasic = isBasicVar(info);
  const VmBatchVariableCallback wide =
      isBasic ? batch.batchCallbacks.hostVariable : batch.batchCallbacks.hostAggregate;
  if (wide != nullptr && (isBasic || isInRequests(info))) {
    const uint32_t bytes = isBasic ? inlineByteSize(info) : info.byteSize;
    uint32_t* const rows = isBasic ? batch.words : batch.blockWords;
    if (answerWide(wide, *request, rows, bytes / sizeof(uint32_t))) return;
  }
  if (batch.callbacks.hostVariable != nullptr) batch.callbacks.hostVariable(request);
}

template <uint32_t id>
void answerBuiltin(void* data, uint32_t count, int32_t index, uint64_t userData) {
  ShaderBatch& batch = *running;
  const BatchBuiltinRequest wide = {groupOfOne(batch, data, VM_COMPONENT_COUNT), &index, id};
  if (batch.batchCallbacks.builtin(&wide) != VM_BATCH_ONE_BY_ONE) {
    return readColumn(data, batch.words, VM_COMPONENT_COUNT);
  }
  const VmBuiltinCallback own = callbackAt(batch.callbacks, builtinVariable(id).callbackSlot);
  if (own != nullptr) own(data, count, index, userData);
}

template <uint32_t which>
void answerUnary(void* data, uint32_t count, int32_t index, uint64_t userData) {
  ShaderBatch& batch = *running;
  const BatchRequest wide = groupOfOne(batch, data, VM_COMPONENT_COUNT);
  if (batch.batchCallbacks.hostUnary[which](&wide) != VM_BATCH_ONE_BY_ONE) {
    return readColumn(data, batch.words, VM_COMPONENT_COUNT);
  }
  const VmBuiltinCallback own = batch.callbacks.hostUnary[which];
  if (own != nullptr) own(data, count, index, userData);
}

// The look-up instructions pass a value slot as coordinates, built-in function 277 does not.
bool isInstruction(const Machine& machine, const LookupRequest& request) {
  const auto address = reinterpret_cast<uintptr_t>(request.coords);
  const auto stack = reinterpret_cast<uintptr_t>(machine.stack);
  return address >= stack && address - stack < VM_STACK_CAPACITY * sizeof(ValueSlot);
}

template <uint32_t which>
void answerLookup(const LookupRequest* request) {
  ShaderBatch& batch = *running;
  if (isInstruction(*batch.machine, *request)) {
    fillColumn(batch.coords, request->coords, VM_COMPONENT_COUNT);
    const BatchLookupRequest wide = {
        groupOfOne(batch, request->result, VM_COMPONENT_COUNT), &request->sampler, batch.coords,
        request->hasExtra != 0 ? &request->extra : nullptr,     request->kind,     request->param};
    if (batch.batchCallbacks.lookup[which](&wide) != VM_BATCH_ONE_BY_ONE) {
      return readColumn(request->result, batch.words, VM_COMPONENT_COUNT);
    }
  }
  if (batch.callbacks.lookup[which] != nullptr) batch.callbacks.lookup[which](request);
}

template <uint32_t id>
void placeBuiltin(HostCallbacks& callbacks) {
  constexpr BuiltinVariable kVariable = builtinVariable(id);
  if constexpr (kVariable.family == BuiltinFamily::HostValue ||
                kVariable.family == BuiltinFamily::IndexedValue) {
    const VmBuiltinCallback callback = answerBuiltin<id>;
    std::memcpy(reinterpret_cast<uint8_t*>(&callbacks) + kVariable.callbackSlot * sizeof callback,
                &callback, sizeof callback);
  }
}

template <uint32_t... i>
void placeBuiltins(HostCallbacks& callbacks, std::integer_sequence<uint32_t, i...>) {
  (placeBuiltin<kFirstBuiltinVariable + i>(callbacks), ...);
}

}  // namespace

VmBuiltinCallback callbackAt(const HostCallbacks& callbacks, uint32_t slot) {
  VmBuiltinCallback callback;
  std::memcpy(&callback, reinterpret_cast<const uint8_t*>(&callbacks) + slot * sizeof callback,
              sizeof callback);
  return callback;
}

HostCallbacks machineCallbacks(const ShaderBatch& batch) {
  constexpr uint32_t kIds = kLastBuiltinVariable - kFirstBuiltinVariable + 1;
  const BatchCallbacks& wide = batch.batchCallbacks;
  HostCallbacks callbacks = batch.callbacks;
  if (wide.output0 != nullptr) callbacks.output0 = takeOutput0;
  if (wide.output1 != nullptr) callbacks.output1 = takeOutput1;
  const bool answersVariables = wide.hostVariable != nullptr || wide.hostAggregate != nullptr;
  if (answersVariables) callbacks.hostVariable = answerVariable;
  if (wide.builtin != nullptr) {
    placeBuiltins(callbacks, std::make_integer_sequence<uint32_t, kIds>{});
  }
  if (wide.hostUnary[0] != nullptr) callbacks.hostUnary[0] = answerUnary<0>;
  if (wide.hostUnary[1] != nullptr) callbacks.hostUnary[1] = answerUnary<1>;
  if (wide.hostUnary[2] != nullptr) callbacks.hostUnary[2] = answerUnary<2>;
  if (wide.lookup[0] != nullptr) callbacks.lookup[0] = answerLookup<0>;
  if (wide.lookup[1] != nullptr) callbacks.lookup[1] = answerLookup<1>;
  return callbacks;
}

ShaderBatch* exchangeRunning(ShaderBatch* batch) { return std::exchange(running, batch); }

}  // namespace shadermachine::batch
