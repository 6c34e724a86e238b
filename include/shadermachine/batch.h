/* shadermachine-batch: runs a compiled shader many times in one call, once per invocation (a
 * fragment, as a rule). A library of its own, libshadermachine-batch, which needs nothing of
 * libshadermachine; valid C99 and C++.
 *
 * Invocation i ends, gives its outputs and calls the host exactly as a newly created machine with
 * the same callbacks would that runs the shader once with userData[i]: the same codes, the same
 * bits, the same calls in the same order. No invocation sees anything of another. Which of them is
 * ahead is not promised, and may change from one version to the next; no two callbacks run at the
 * same time.
 *
 * Besides the callbacks of a machine, which are called for one invocation each, a host may give
 * batch callbacks, which answer for many at once.
 *
 * Threads: as for machines. A batch is used by one thread at a time, batches may run at once on
 * different threads, and the library creates no threads.
 *
 * See docs/batch.md for a guide.
 */
#ifndef SHADERMACHINE_BATCH_H
#define SHADERMACHINE_BATCH_H

#include <shadermachine/shadermachine.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------
 * Requests to many invocations
 * --------------------------------------------------------------------------------------------- */

enum {
  VM_BATCH_GROUP_LIMIT = 64,       /* invocations of a request at most: the bits of its mask */
  VM_BATCH_ALIGNMENT = 64,         /* bytes; of `words` and of the distance between rows */
  VM_BATCH_AGGREGATE_LIMIT = 16384 /* bytes; of structures and arrays in requests */
};

/* The part that all requests begin with: a group of invocations and their values, one row of 32-bit
 * words for each word of a value.
 *
 * - The group is the invocations first to first + count - 1. Those whose bit is set in the mask
 * take part, and at least one does. The others are elsewhere in the shader, or have ended: their
 * words mean nothing when read and must not be written.
 * - How invocations are grouped is the library's choice, and so is who takes part: any single
 *   invocation may come alone. A host that looks at neighbours (for derivatives) must be ready to
 *   find them missing.
 * - Rows are aligned to VM_BATCH_ALIGNMENT, `stride` is a multiple of VM_BATCH_ALIGNMENT / 4 and at
 *   least count, so that whole vectors may be read at any position below count; past count, words
 *   may be read but not written.
 * - Requests and all they point to live on the library's side for the duration of the call only. */
typedef struct BatchRequest {
  uint32_t* words;          /* word w of invocation first + i: words[w * stride + i] */
  uint32_t stride;          /* words from one row to the next */
  uint32_t wordCount;       /* rows */
  uint32_t first;           /* number of the group's first invocation */
  uint32_t count;           /* invocations of the group, 1 to VM_BATCH_GROUP_LIMIT */
  uint64_t mask;            /* bit i: invocation first + i takes part; 0 from bit count upward */
  const uint64_t* userData; /* count entries: entry i is that of invocation first + i */
} BatchRequest;

/* LOAD_GLOBAL of a host variable. The host writes all of the value's rows; what they hold before
 * means nothing.
 *
 * A basic variable has up to 16 words. The words of a structure or array are those of its block
 * (HostVariableRequest.data) in their order, word w being the four bytes from byte 4w: the elements
 * of an array one after another, in each structure its members at their memberOffset, which can be
 * arrays and structures in turn, and columns of matrices one after another. */
typedef struct BatchVariableRequest {
  BatchRequest group; /* wordCount: varInfo->byteSize / 4 */
  const VarInfo* varInfo;
  const int32_t* elements; /* count entries: top of the index stack, -1 when it is empty */
  uint32_t index;          /* of the global */
} BatchVariableRequest;

/* LOAD_BUILTIN of a variable that the host answers with an inline value: 259 to 266, 279, 280, 283,
 * 284, 301, 302, 382 to 395, 412, 413 and 415 to 417. The host writes as many rows as the value
 * has words. */
typedef struct BatchBuiltinRequest {
  BatchRequest group;     /* wordCount: 16 */
  const int32_t* indices; /* count entries: as the callback of one invocation gets its index */
  uint32_t id;            /* of the built-in variable */
} BatchBuiltinRequest;

/* HOST_LOOKUP_1 and 2. The host writes the result's rows to group.words; before the call they hold
 * the sampler's words. */
typedef struct BatchLookupRequest {
  BatchRequest group;       /* wordCount: 16 */
  const uint64_t* samplers; /* count entries: the sampler values */
  const uint32_t* coords;   /* 16 rows with the group's stride: the coordinates, floats */
  const uint32_t* extra;    /* count entries: the third argument; null when there is none */
  uint32_t kind;            /* as in LookupRequest */
  uint32_t param;           /* 16 for HOST_LOOKUP_1, 0 for HOST_LOOKUP_2 */
} BatchLookupRequest;

/* What the host says to a request. */
typedef uint32_t BatchAnswer;

enum {
  /* The host has not written anything: the invocations that take part ask one by one, through the
   * callbacks of BatchCreateInfo.callbacks. */
  VM_BATCH_ONE_BY_ONE = 0,
  /* The rows hold the answer. */
  VM_BATCH_ANSWERED = 1,
  /* The answer is the same for all that take part, and stands in column 0: word w at
   * words[w * stride], whatever the mask. The library may compute what depends on such values only
   * once for the group. Not for hostUnary and lookup, where it counts as VM_BATCH_ANSWERED. */
  VM_BATCH_SAME_FOR_ALL = 2
};

/* ------------------------------------------------------------------------------------------------
 * Batch callbacks
 *
 * Any slot may be null: the invocations then call the callbacks of BatchCreateInfo.callbacks one by
 * one. A slot that is set takes the place of its counterpart there, which is then called only where
 * the answer is VM_BATCH_ONE_BY_ONE. What is said of callbacks in shadermachine.h holds here too:
 * they are synchronous and must return; running the batch that called gives VM_ERR_ALREADY_RUNNING,
 * destroying it does nothing.
 * --------------------------------------------------------------------------------------------- */

typedef void (*VmBatchOutputCallback)(const BatchRequest* request);
typedef BatchAnswer (*VmBatchVariableCallback)(const BatchVariableRequest* request);
typedef BatchAnswer (*VmBatchBuiltinCallback)(const BatchBuiltinRequest* request);
typedef BatchAnswer (*VmBatchUnaryCallback)(const BatchRequest* request);
typedef BatchAnswer (*VmBatchLookupCallback)(const BatchLookupRequest* request);

/* 10 function pointers, 80 bytes. */
typedef struct BatchCallbacks {
  /* For HostCallbacks.output0: invocations that ended with VM_OK or VM_ERR_HALTED. The words are
   * those of outputGlobal0's inline area, 16 rows, to be read only. */
  VmBatchOutputCallback output0;
  VmBatchOutputCallback output1;        /* output1: one row, component 0 of outputGlobal1 */
  VmBatchVariableCallback hostVariable; /* hostVariable, for basic variables */
  VmBatchBuiltinCallback builtin;       /* builtinN, for the ids of BatchBuiltinRequest */
  VmBatchUnaryCallback hostUnary[3];    /* hostUnary: 16 rows, the value in place */
  VmBatchLookupCallback lookup[2];      /* lookup, for HOST_LOOKUP_1 and 2 but not function 277 */
  /* hostVariable, for structures and arrays. Those of more than VM_BATCH_AGGREGATE_LIMIT bytes, or
   * of a byteSize that is no multiple of 4, are left to HostCallbacks.hostVariable. */
  VmBatchVariableCallback hostAggregate;
} BatchCallbacks;

/* ------------------------------------------------------------------------------------------------
 * Functions
 * --------------------------------------------------------------------------------------------- */

typedef struct ShaderBatch ShaderBatch;

typedef struct BatchCreateInfo {
  const HostCallbacks* callbacks;       /* copied; may be null */
  const BatchCallbacks* batchCallbacks; /* copied; may be null */
} BatchCreateInfo;

typedef struct BatchStartupInfo {
  uint32_t count;           /* invocations */
  uint32_t timeout;         /* milliseconds for the whole call; 0: no limit */
  const uint64_t* userData; /* count entries */
  uint32_t builtin258;      /* values of the built-in variables, the same for all invocations */
  uint32_t builtin281;
  uint32_t builtin282;
  uint32_t builtin285;
} BatchStartupInfo;

/* Returns a new batch, owned by the caller, or null when memory is short. info and its pointers may
 * be null. Builds the process-wide noise tables as vmInitialize() does. */
SHADERMACHINE_API ShaderBatch* vmShaderBatchCreate(const BatchCreateInfo* info);

/* Frees a batch. Null is accepted. Called from one of the batch's own callbacks it does nothing.
 * Always returns VM_OK. */
SHADERMACHINE_API VmError vmShaderBatchDestroy(ShaderBatch* batch);

/* Runs startup->count invocations of the shader's entry function to their ends and writes to
 * errors[i] how invocation i ended. DISCARD, HALT and every error end one invocation; the others go
 * on. Returns VM_OK when the invocations were run, however they ended.
 *
 * Arguments are checked in the order of vmShaderMachineExecuteShader(), and with its codes; errors
 * is not written then: batch null (VM_ERR_INVALID_HANDLE), batch running (VM_ERR_ALREADY_RUNNING),
 * startup, errors or startup->userData null (VM_ERR_NO_STARTUP_INFO), then the shader as
 * vmCompiledShaderVerify() does and a null entry function (VM_ERR_INVALID_ENTRY). A count of 0 runs
 * nothing.
 *
 * The time limit is one for the whole call: when it passes, the invocations under way and those
 * that have not begun end with VM_ERR_TIMEOUT, without outputs.
 *
 * The batch is usable again after every code. It holds nothing of the shader between calls: the
 * record must stay valid and unchanged during the call only. */
SHADERMACHINE_API VmError vmShaderBatchExecuteShader(ShaderBatch* batch,
                                                     const CompiledShader* shader,
                                                     const BatchStartupInfo* startup,
                                                     VmError* errors);

/* The library also exports vmInitialize(), vmFinalize(), vmCompiledShaderVerify(),
 * vmCompiledShaderGetVarId() and vmGetErrorString(), as shadermachine.h describes them. */

#ifdef __cplusplus
} /* extern "C" */
#endif

SHADERMACHINE_STATIC_ASSERT(batch_request_size, sizeof(BatchRequest) == 40);
SHADERMACHINE_STATIC_ASSERT(batch_request_mask, offsetof(BatchRequest, mask) == 24);
SHADERMACHINE_STATIC_ASSERT(batch_variable_size, sizeof(BatchVariableRequest) == 64);
SHADERMACHINE_STATIC_ASSERT(batch_builtin_size, sizeof(BatchBuiltinRequest) == 56);
SHADERMACHINE_STATIC_ASSERT(batch_lookup_size, sizeof(BatchLookupRequest) == 72);
SHADERMACHINE_STATIC_ASSERT(batch_lookup_kind, offsetof(BatchLookupRequest, kind) == 64);
SHADERMACHINE_STATIC_ASSERT(batch_callbacks_size, sizeof(BatchCallbacks) == 80);
SHADERMACHINE_STATIC_ASSERT(batch_callbacks_aggregate,
                            offsetof(BatchCallbacks, hostAggregate) == 72);
SHADERMACHINE_STATIC_ASSERT(batch_create_size, sizeof(BatchCreateInfo) == 16);
SHADERMACHINE_STATIC_ASSERT(batch_startup_size, sizeof(BatchStartupInfo) == 32);
SHADERMACHINE_STATIC_ASSERT(batch_startup_builtins, offsetof(BatchStartupInfo, builtin258) == 16);

#endif /* SHADERMACHINE_BATCH_H */
