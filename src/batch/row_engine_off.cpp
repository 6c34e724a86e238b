// A build without the translating engine: every invocation runs on the machine.
#include "batch/row_engine.h"

namespace shadermachine::batch {

bool runOnRows(ShaderBatch&, const CompiledShader&, const BatchStartupInfo&, VmError*) {
  return false;
}

void releasePrograms(ShaderBatch&) {}

}  // namespace shadermachine::batch
