// Runs a shader's invocations on rows, up to 64 at a time.
#pragma once

#include "batch/batch.h"

namespace shadermachine::batch {

// False when they must run on the machine; nothing has been called or written then. The machine's
// time limit has been started.
bool runOnRows(ShaderBatch& batch, const CompiledShader& shader, const BatchStartupInfo& startup,
               VmError* errors);

void releasePrograms(ShaderBatch& batch);

}  // namespace shadermachine::batch
