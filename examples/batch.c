/* A host of batches: colours a row of fragments in one call, with their positions from a batch
 * callback.
 */
#include <shadermachine/batch.h>
#include <stdio.h>
#include <string.h>

#include "colour_shader.h"

enum { FRAGMENT_COUNT = 3 };

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
  const CompiledShader shader = makeShader();
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
