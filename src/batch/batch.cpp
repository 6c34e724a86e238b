// The exported functions of the batch library.

#include "batch/batch.h"

#include <cstdlib>
#include <memory>

#include "batch/row_engine.h"
#include "batch/rows.h"
#include "machine/run_loop.h"
#include "noise/tables.h"

namespace {

using shadermachine::Machine;

// Besides its instructions, an invocation costs about as much as so many jumps.
constexpr uint32_t kTicksPerInvocation = 16;

constexpr size_t kBlockBytes = size_t{VM_BATCH_AGGREGATE_LIMIT} * ShaderBatch::kStride;

// Zeroed. malloc() and its kin align to less.
ShaderBatch* allocateBatch(bool answersAggregates) {
  const size_t blockBytes = answersAggregates ? kBlockBytes : 0;
  size_t space = sizeof(ShaderBatch) + blockBytes + alignof(ShaderBatch);
  void* const memory = std::calloc(1, space);
  if (memory == nullptr) return nullptr;
  void* place = memory;
  auto* batch = static_cast<ShaderBatch*>(
      std::align(alignof(ShaderBatch), sizeof(ShaderBatch), place, space));
  batch->memory = memory;
  if (answersAggregates) batch->blockWords = reinterpret_cast<uint32_t*>(batch + 1);
  return batch;
}

VmError checkArguments(const ShaderBatch* batch, const CompiledShader* shader,
                       const BatchStartupInfo* startup, const VmError* errors) {
  if (batch == nullptr) return VM_ERR_INVALID_HANDLE;
  if (batch->isRunning != 0) return VM_ERR_ALREADY_RUNNING;
  if (startup == nullptr || startup->userData == nullptr || errors == nullptr) {
    return VM_ERR_NO_STARTUP_INFO;
  }
  const VmError invalid = shadermachine::verifyShader(shader);
  if (invalid != VM_OK) return invalid;
  return shader->functions[shader->entryIndex] == nullptr ? VM_ERR_INVALID_ENTRY : VM_OK;
}

void runInvocations(ShaderBatch& batch, const CompiledShader& shader,
                    const BatchStartupInfo& startup, VmError* errors) {
  Machine& machine = *batch.machine;
  shadermachine::startTimeLimit(machine.timeLimit, startup.timeout);
  if (shadermachine::batch::runOnRows(batch, shader, startup, errors)) return;
  StartupInfo single = {.userData = 0,
                        .builtin258 = startup.builtin258,
                        .timeout = 0,
                        .reserved16 = 0,
                        .builtin281 = startup.builtin281,
                        .builtin282 = startup.builtin282,
                        .builtin285 = startup.builtin285};
  bool isOver = false;
  for (uint32_t i = 0; i < startup.count; ++i) {
    shadermachine::chargeTimeLimit(machine.timeLimit, kTicksPerInvocation);
    isOver = isOver || shadermachine::tickTimeLimit(machine.timeLimit);
    batch.invocation = i;
    single.userData = startup.userData[i];
    // Those that there is no time for do not begin, so that no callback of theirs is called.
    errors[i] =
        isOver ? VmError{VM_ERR_TIMEOUT} : shadermachine::runShaderAnew(machine, shader, single);
    isOver = isOver || errors[i] == VM_ERR_TIMEOUT;
  }
  shadermachine::releaseGlobals(machine);
  machine.shader = nullptr;
}

}  // namespace

ShaderBatch* vmShaderBatchCreate(const BatchCreateInfo* info) {
  const BatchCallbacks* const wide = info == nullptr ? nullptr : info->batchCallbacks;
  ShaderBatch* batch = allocateBatch(wide != nullptr && wide->hostAggregate != nullptr);
  if (batch == nullptr) return nullptr;
  if (info != nullptr && info->callbacks != nullptr) batch->callbacks = *info->callbacks;
  if (wide != nullptr) batch->batchCallbacks = *wide;
  const HostCallbacks callbacks = shadermachine::batch::machineCallbacks(*batch);
  batch->machine = shadermachine::createMachine(&callbacks);
  if (batch->machine == nullptr) {
    std::free(batch->memory);
    return nullptr;
  }
  const bool answersBasic =
      batch->callbacks.hostVariable != nullptr || batch->batchCallbacks.hostVariable != nullptr;
  batch->machine->keepsBasicVariables = answersBasic ? 0 : 1;
  batch->rowFunctions = &shadermachine::batch::bestRowFunctions();
  shadermachine::noiseTablesFill(shadermachine::noiseTables());
  return batch;
}

VmError vmShaderBatchDestroy(ShaderBatch* batch) {
  if (batch == nullptr || batch->isRunning != 0) return VM_OK;
  shadermachine::batch::releasePrograms(*batch);
  shadermachine::destroyMachine(batch->machine);
  std::free(batch->memory);
  return VM_OK;
}

VmError vmShaderBatchExecuteShader(ShaderBatch* batch, const CompiledShader* shader,
                                   const BatchStartupInfo* startup, VmError* errors) {
  const VmError refused = checkArguments(batch, shader, startup, errors);
  if (refused != VM_OK) return refused;
  // Before the first callback can run: one that calls with this batch is refused.
  batch->isRunning = 1;
  batch->userData = startup->userData;
  ShaderBatch* const outer = shadermachine::batch::exchangeRunning(batch);
  runInvocations(*batch, *shader, *startup, errors);
  shadermachine::batch::exchangeRunning(outer);
  batch->isRunning = 0;
  return VM_OK;
}
