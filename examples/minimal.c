/* The smallest host: runs the shader of colour_shader.h, made by hand, for three fragments. */
#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include "colour_shader.h"

/* userData is whatever the host put into StartupInfo: here the fragment's number. */
static void provideVariable(const HostVariableRequest* request) {
  const float position[2] = {(float)request->userData, 0.25f};
  if (request->index == POSITION) memcpy(request->data, position, sizeof position);
}

static void takeColour(const void* value, uint64_t userData) {
  float colour[4];
  memcpy(colour, value, sizeof colour);
  printf("fragment %" PRIu64 ": %.2f %.2f %.2f %.2f\n", userData, (double)colour[0],
         (double)colour[1], (double)colour[2], (double)colour[3]);
}

int main(void) {
  const HostCallbacks callbacks = {.output0 = takeColour, .hostVariable = provideVariable};
  const MachineCreateInfo info = {&callbacks};
  const CompiledShader shader = makeShader();
  vmInitialize();
  ShaderMachine* machine = vmShaderMachineCreate(&info);
  if (!machine) return 1;
  VmError error = VM_OK;
  for (uint64_t fragment = 0; fragment < 3 && error == VM_OK; ++fragment) {
    const StartupInfo startup = {.userData = fragment};
    error = vmShaderMachineExecuteShader(machine, &shader, &startup);
  }
  if (error != VM_OK) fprintf(stderr, "error: %s\n", vmGetErrorString(error));
  vmShaderMachineDestroy(machine);
  vmFinalize();
  return error == VM_OK ? 0 : 1;
}
