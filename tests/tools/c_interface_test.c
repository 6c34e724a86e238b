/* Uses the tools from plain C. */
#include <shadermachine-tools/shadermachine-tools.h>
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

int main(void) {
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
