/* Uses the tools from plain C. */
#include <shadermachine-tools/shadermachine-tools.h>
#include <shadermachine/opcodes.h>
#include <stdio.h>
#include <string.h>

static int messageCount;
static char lastMessage[500];

static void keepMessage(const char* message, void* userData) {
  ++*(int*)userData;
  snprintf(lastMessage, sizeof lastMessage, "%s", message);
}

static int failures;

static void expect(int condition, const char* what) {
  if (condition) return;
  printf("failed: %s (last message: %s)\n", what, lastMessage);
  ++failures;
}

static VmToolsShader* assembleText(const char* text) {
  messageCount = 0;
  return vmToolsAssemble(text, strlen(text), "file.sasm", keepMessage, &messageCount);
}

/* colour = vec4(0.25) until the shader reads element 4 of it, by a loop's end that never comes. */
static VmToolsShader* buildByHand(int32_t label) {
  const VmToolsVariable colour = {"colour", VM_TYPE_VEC4, 0, 0};
  const int64_t one = 1;
  const int64_t words = 4;
  VmToolsBuilder* builder = vmToolsCreateBuilder();
  const int32_t global = vmToolsAddGlobal(builder, &colour);
  const int32_t main = vmToolsAddFunction(builder, "main");
  const int64_t target = global;
  vmToolsAddLabel(builder, main);
  vmToolsPushFloat(builder, main, 0.25f);
  vmToolsEmit(builder, main, VM_OP_CTOR_VEC4_A, &one, 1);
  vmToolsEmit(builder, main, VM_OP_STORE_GLOBAL, &target, 1);
  vmToolsEmitJump(builder, main, VM_OP_JUMP, label);
  vmToolsBindLabel(builder, main, 0);
  vmToolsEmit(builder, main, VM_OP_PUSH_INDEX_IMM, &words, 1);
  vmToolsEmit(builder, main, VM_OP_LOAD_GLOBAL, &target, 1);
  vmToolsEmit(builder, main, VM_OP_VEC_ELEMENT, &words, 1);
  vmToolsEmit(builder, main, VM_OP_RETURN, NULL, 0);
  vmToolsBuilderRecord(builder)->outputGlobal0 = global;
  messageCount = 0;
  return vmToolsBuild(builder, keepMessage, &messageCount);
}

static void testBuilder(void) {
  expect(!buildByHand(1) && strstr(lastMessage, "vmToolsEmitJump: no such label") != NULL,
         "a missing label");
  VmToolsShader* shader = buildByHand(0);
  expect(shader != NULL, "a shader built by hand");
  const VmToolsView view = vmToolsShaderView(shader);
  size_t length = 0;
  char* bytes = vmToolsWriteBinary(&view, &length);
  VmToolsShader* copy = vmToolsReadBinary(bytes, length, keepMessage, &messageCount);
  expect(copy != NULL, "a shader read again");
  expect(!vmToolsReadBinary(bytes, length - 1, keepMessage, &messageCount) &&
             strcmp(lastMessage, "error: the file is cut off") == 0,
         "half a shader");
  const VmToolsView copied = vmToolsShaderView(copy);
  const MachineCreateInfo info = {NULL};
  const StartupInfo startup = {0, 0, 0, 0, 0, 0, 0};
  ShaderMachine* machine = vmShaderMachineCreate(&info);
  const VmError error = vmShaderMachineExecuteShader(machine, copied.shader, &startup);
  char where[100];
  vmToolsDescribeFailure(machine, &copied, error, where, sizeof where);
  expect(strstr(where, "(function main, offset 22, VEC_ELEMENT)") != NULL, where);
  vmShaderMachineDestroy(machine);
  vmToolsFreeShader(copy);
  vmToolsFreeText(bytes);
  vmToolsFreeShader(shader);
}

int main(void) {
  testBuilder();
  expect(strcmp(vmToolsVersion(), SHADERMACHINE_VERSION_STRING) == 0, "version");
  expect(!assembleText(".entry mian\n"), "a wrong text gives no shader");
  expect(messageCount == 1, "one message");
  expect(
      strcmp(lastMessage,
             "file.sasm:1:8: error: no function is named 'mian'\n  .entry mian\n         ^~~~") ==
          0,
      "message with place and caret");

  VmToolsShader* shader = assembleText(".function main\nPOP\n.end\n");
  expect(shader != NULL && messageCount == 0, "a right text gives a shader");
  const VmToolsView view = vmToolsShaderView(shader);
  expect(view.shader->functionCount == 1 && view.codeSize == 1, "the shader's parts");
  expect(vmToolsValidate(&view, keepMessage, &messageCount) > 0, "pop below the locals");
  expect(messageCount > 0 && strstr(lastMessage, "file.sasm:2:1: error: ") == lastMessage,
         "validator's message");

  char* text = vmToolsDisassemble(&view, 0);
  expect(text && strcmp(text, ".entry main\n\n.function main\n  POP\n.end\n") == 0, "disassembly");
  vmToolsFreeText(text);
  vmToolsFreeShader(shader);
  vmToolsFreeShader(NULL);
  return failures;
}
