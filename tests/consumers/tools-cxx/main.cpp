// Builds a shader with the installed tools library and runs it with the installed library.
#include <shadermachine-tools/shader_builder.h>
#include <shadermachine/shadermachine.h>

#include <cstring>
#include <utility>

using namespace shadermachine::tools;

static void takeColour(const void* value, uint64_t userData) {
  float* colour = nullptr;
  static_assert(sizeof colour == sizeof userData);
  std::memcpy(&colour, &userData, sizeof colour);
  std::memcpy(colour, value, 4 * sizeof(float));
}

int main() {
  ShaderBuilder builder;
  const GlobalId colour = builder.addGlobal({"colour", VM_TYPE_VEC4});
  FunctionBuilder& entry = builder.addFunction("main");
  entry.pushFloat(0.25f);
  entry.construct(VM_OP_CTOR_VEC4_A, {1});
  entry.store(colour);
  entry.emit(VM_OP_RETURN);
  builder.record().outputGlobal0 = colour.index;
  const BuiltShader shader = std::move(builder).build();

  float result[4] = {};
  float* address = result;
  StartupInfo startup = {};
  std::memcpy(&startup.userData, &address, sizeof address);
  HostCallbacks callbacks = {};
  callbacks.output0 = takeColour;
  const MachineCreateInfo info = {&callbacks};
  ShaderMachine* machine = vmShaderMachineCreate(&info);
  const VmError error = vmShaderMachineExecuteShader(machine, shader.record(), &startup);
  vmShaderMachineDestroy(machine);
  return error == VM_OK && result[0] == 0.25f && result[3] == 0.25f ? 0 : 1;
}
