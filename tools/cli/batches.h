// The functions of the batch library, in builds with it.
#pragma once

#include <shadermachine-tools/renderer.h>
#ifdef SHADERMACHINE_HAVE_BATCH
#include <shadermachine/batch.h>
#endif

namespace shadermachine::tools {

// Null in builds without.
inline const BatchFunctions* batchFunctions() {
#ifdef SHADERMACHINE_HAVE_BATCH
  static constexpr BatchFunctions kFunctions = {vmShaderBatchCreate, vmShaderBatchDestroy,
                                                vmShaderBatchExecuteShader};
  return &kFunctions;
#else
  return nullptr;
#endif
}

}  // namespace shadermachine::tools
