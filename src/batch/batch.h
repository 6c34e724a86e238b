// A batch: the programs on rows that it has made, the machine on which invocations of other shaders
// run one after another, and the host's callbacks.
//
//  - While a batch runs, the machine's callbacks are the host's own, except where the host gave a
//    batch callback: there stands a function that makes a request of it, for a group of one.
//  - Between runs the machine holds no shader.
#pragma once

#include <shadermachine/batch.h>

#include "machine/machine.h"

namespace shadermachine::batch {
struct RowProgram;
struct RowFunctions;
}  // namespace shadermachine::batch

struct ShaderBatch {
  static constexpr uint32_t kStride = VM_BATCH_ALIGNMENT / sizeof(uint32_t);

  alignas(VM_BATCH_ALIGNMENT) uint32_t words[VM_COMPONENT_COUNT * kStride];
  uint32_t coords[VM_COMPONENT_COUNT * kStride];
  uint32_t*
      blockWords;  // like `words`, for structures and arrays; null unless the host answers them
  void* memory;    // that was allocated
  shadermachine::Machine* machine;
  HostCallbacks callbacks;
  BatchCallbacks batchCallbacks;
  const uint64_t* userData;
  uint32_t invocation;  // that runs, or the first of the group
  uint32_t groupCount;
  uint32_t isRunning;
  const CompiledShader* shader;                  // that runs
  shadermachine::batch::RowProgram* programs;    // the one used last first
  shadermachine::batch::RowProgram* rowProgram;  // that runs
  const CompiledShader* met;  // address of the shader run last: a hint, never followed
  const shadermachine::batch::RowFunctions* rowFunctions;
};

namespace shadermachine::batch {

// The callbacks of the batch's machine.
HostCallbacks machineCallbacks(const ShaderBatch& batch);

VmBuiltinCallback callbackAt(const HostCallbacks& callbacks, uint32_t slot);

// The batch that runs on this thread; the functions of machineCallbacks() work for it.
ShaderBatch* exchangeRunning(ShaderBatch* batch);

}  // namespace shadermachine::batch
