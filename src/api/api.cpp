// The exported functions: argument checks, then the machine.

#include <shadermachine/shadermachine.h>

#include <cstring>

#include "api/error_messages.h"
#include "machine/machine.h"
#include "machine/run_loop.h"
#include "noise/tables.h"

#if defined(__FAST_MATH__) || __FINITE_MATH_ONLY__ > 0
#error "results are defined to the bit, with infinities and NaNs: build without -ffast-math"
#endif

using shadermachine::Machine;

namespace {

bool isBusy(const Machine& machine) {
  return machine.runState != VM_RUN_IDLE || machine.isDelivering != 0;
}

}  // namespace

VmError vmInitialize(void) {
  shadermachine::noiseTablesFill(shadermachine::noiseTables());
  return VM_OK;
}

VmError vmFinalize(void) { return VM_OK; }

VmError vmCompiledShaderVerify(const CompiledShader* shader) {
  return shadermachine::verifyShader(shader);
}

ShaderMachine* vmShaderMachineCreate(const MachineCreateInfo* info) {
  return shadermachine::createMachine(info == nullptr ? nullptr : info->callbacks);
}

VmError vmShaderMachineDestroy(ShaderMachine* machine) {
  auto* own = static_cast<Machine*>(machine);
  if (own != nullptr && !isBusy(*own)) shadermachine::destroyMachine(own);
  return VM_OK;
}

VmError vmShaderMachineExecuteShader(ShaderMachine* machine, const CompiledShader* shader,
                                     const StartupInfo* startup) {
  if (machine == nullptr) return VM_ERR_INVALID_HANDLE;
  auto& own = static_cast<Machine&>(*machine);
  if (isBusy(own)) return VM_ERR_ALREADY_RUNNING;
  if (startup == nullptr) return VM_ERR_NO_STARTUP_INFO;
  const VmError invalid = shadermachine::verifyShader(shader);
  if (invalid != VM_OK) return invalid;
  return shadermachine::runShader(own, *shader, *startup);
}

int32_t vmCompiledShaderGetVarId(const CompiledShader* shader, const char* name, int32_t mask) {
  if (shader == nullptr || name == nullptr || shader->globals == nullptr) return -1;
  for (int32_t g = 0; g < shader->globalCount; ++g) {
    const VarInfo& info = shader->globals[g];
    const int32_t flags = static_cast<int16_t>(info.flags);
    if ((flags & mask) != 0 && info.name != nullptr && std::strcmp(info.name, name) == 0) return g;
  }
  return -1;
}

const char* vmGetErrorString(uint32_t code) { return shadermachine::errorMessage(code); }
