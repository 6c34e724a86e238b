/* A host of batches: colours a row of fragments in one call, with their positions from a batch
 * callback. The shader is that of minimal.c:
 *     in vec2 position;  out vec4 colour;
 *     void main() { colour = vec4(position, 0.5, 1.0); }
 */
#include <shadermachine/batch.h>
#include <shadermachine/opcodes.h>
#include <stdio.h>
#include <string.h>

enum { COLOUR, POSITION, GLOBAL_COUNT };
enum { FRAGMENT_COUNT = 3 };

/* 16-bit operand and float literal, little-endian as the bytecode wants them. */
#define U16(value) (value) & 0xff, (value) >> 8
#define HALF 0, 0, 0, 0x3f

/* clang-format off */
static const uint8_t code[] = {
    VM_OP_LOAD_GLOBAL,  U16(POSITION),   /* asks the host for the position */
    VM_OP_PUSH_U32,     HALF,            /* blue */
    VM_OP_PUSH_1_F,                      /* alpha */
    VM_OP_CTOR_VEC4_A,  U16(3), 2, 1, 1, /* of three operands with 2, 1 and 1 components */
    VM_OP_STORE_GLOBAL, U16(COLOUR),
    VM_OP_RETURN,
};
/* clang-format on */

static const VarInfo globals[GLOBAL_COUNT] = {
    {.type = VM_TYPE_VEC4, .byteSize = 16, .name = "colour"},
    {.type = VM_TYPE_VEC2, .flags = VM_VAR_HOST_0, .byteSize = 8, .name = "position"},
};

static const ShaderFunction entry = {.codeLength = sizeof code};
static const ShaderFunction* const functions[] = {&entry};
static const CompiledShader shader = {.version = 1,
                                      .functionCount = 1,
                                      .functions = functions,
                                      .code = code,
                                      .globalCount = GLOBAL_COUNT,
                                      .globals = globals,
                                      .outputGlobal0 = COLOUR,
                                      .outputGlobal1 = -1,
                                      .hostFunctionA = -1,
                                      .hostFunctionBase = -1,
                                      .hostFunctionB = -1,
                                      .hostFunctionAType = -1,
                                      .builtinGlobal300 = -1,
                                      .builtinGlobal303 = -1,
                                      .builtinGlobal304 = -1};

static int takesPart(const BatchRequest* group, uint32_t i) { return group->mask >> i & 1; }

/* Writes a float as word `word` of the group's invocation i. */
static void put(const BatchRequest* group, uint32_t word, uint32_t i, float value) {
  memcpy(&group->words[word * group->stride + i], &value, sizeof value);
}

static BatchAnswer givePositions(const BatchVariableRequest* request) {
  const BatchRequest* group = &request->group;
  for (uint32_t i = 0; i < group->count; ++i) {
    if (!takesPart(group, i)) continue;
    put(group, 0, i, (float)(group->first + i));
    put(group, 1, i, 0.25f);
  }
  return VM_BATCH_ANSWERED;
}

static float colours[FRAGMENT_COUNT][4];

static void takeColours(const BatchRequest* group) {
  for (uint32_t i = 0; i < group->count; ++i) {
    if (!takesPart(group, i)) continue;
    for (uint32_t word = 0; word < 4; ++word) {
      memcpy(&colours[group->first + i][word], &group->words[word * group->stride + i],
             sizeof(float));
    }
  }
}

int main(void) {
  const BatchCallbacks batchCallbacks = {.output0 = takeColours, .hostVariable = givePositions};
  const BatchCreateInfo info = {.batchCallbacks = &batchCallbacks};
  const uint64_t userData[FRAGMENT_COUNT] = {0};
  const BatchStartupInfo startup = {.count = FRAGMENT_COUNT, .userData = userData};
  VmError errors[FRAGMENT_COUNT];
  ShaderBatch* batch = vmShaderBatchCreate(&info);
  const VmError error = vmShaderBatchExecuteShader(batch, &shader, &startup, errors);
  for (int i = 0; error == VM_OK && i < FRAGMENT_COUNT; ++i) {
    printf("fragment %d: %.2f %.2f %.2f %.2f (%s)\n", i, (double)colours[i][0],
           (double)colours[i][1], (double)colours[i][2], (double)colours[i][3],
           vmGetErrorString(errors[i]));
  }
  vmShaderBatchDestroy(batch);
  return (int)error;
}
