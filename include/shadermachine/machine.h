/* The state of a machine, for debuggers, tracing hosts and callbacks that look at it. Valid C99 and
 * C++. Reading is fine while the machine is idle or inside one of its callbacks; writing is not,
 * except through the pointers that callbacks receive.
 *
 * The listed fields are ABI; the library's own fields follow them and are not described here, so
 * machines are only ever made by vmShaderMachineCreate().
 */
#ifndef SHADERMACHINE_MACHINE_H
#define SHADERMACHINE_MACHINE_H

#include <shadermachine/shadermachine.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
  VM_STACK_CAPACITY = 2000, /* value slots of a machine; the stack never grows */
  VM_FRAME_INCREMENT = 256, /* frames at creation, and how many are added at a time */
  VM_FRAME_LIMIT = 1048576, /* frames at most; a CALL beyond ends the run with code 10 */
  VM_INDEX_STACK_CAPACITY = 256,
  VM_COMPONENT_COUNT = 16 /* 32-bit components of an inline value */
};

/* Reference to (part of) a block. The block's count lies 4 bytes before data - offset. A view with
 * null data is empty. */
typedef struct BlockView {
  uint8_t* data;   /* first viewed byte */
  uint32_t size;   /* viewed bytes */
  uint32_t offset; /* distance of data from the block's first data byte */
} BlockView;

/* Head of a heap block; `size` data bytes follow it without padding. Counts are plain integers:
 * blocks are never shared between machines. */
typedef struct DataBlock {
  uint32_t referenceCount;
} DataBlock;

typedef struct InlineValue {
  void* block; /* null: this is what tells an inline value from a block value */
  uint32_t words[VM_COMPONENT_COUNT];
} InlineValue;

/* One slot of the value stack: an inline value when its first 8 bytes are null, else a view. */
typedef union ValueSlot {
  InlineValue value;
  BlockView view;
} ValueSlot;

typedef struct CallFrame {
  const ShaderFunction* function;
  const uint8_t* code; /* the function's first instruction */
  ValueSlot* locals; /* first local; the parameters come first, temporaries lie above the locals */
  uint32_t pc;       /* next code byte, from code */
  int32_t top;       /* top slot, from locals; -1 when the frame holds no slot */
} CallFrame;

enum RunState { VM_RUN_IDLE = 0, VM_RUN_RUNNING = 1, VM_RUN_STOPPING = 2 };

struct ShaderMachine {
  ValueSlot* stack; /* globals first (global g in slot g), then the frames one after another */
  int32_t stackCapacity;
  CallFrame* frames;
  int32_t frameCapacity;
  int32_t frameIndex;           /* current frame; -1 at creation, 0 in the entry function */
  const CompiledShader* shader; /* of the current run or of the last that ended with 0, else null */
  uint64_t userData;
  uint32_t indexStack[VM_INDEX_STACK_CAPACITY];
  int32_t indexTop; /* -1 when the index stack is empty */
  uint32_t runState;
  VmError error;
  uint32_t builtin258; /* the run's words of StartupInfo */
  uint32_t builtin281;
  uint32_t builtin282;
  uint32_t builtin285;
  uint32_t sameShader; /* 1 when the machine held this run's shader before it started */
  HostCallbacks callbacks;
};

/* What a machine holds beside the some 154 KiB it starts with: blocks, frames that calls added, and
 * translations. A block or frame for which the limit leaves no room ends the run with code 9. The
 * limit is the only field that a host may write, while the machine is idle. */
typedef struct MachineMemory {
  uint64_t limit; /* bytes, VM_MEMORY_LIMIT at creation */
  uint64_t inUse; /* bytes, those included that are kept for the next block of their size */
} MachineMemory;

enum { VM_MEMORY_LIMIT = 268435456 };

/* It lies behind the fields above. */
static inline MachineMemory* vmShaderMachineMemory(struct ShaderMachine* machine) {
  return (MachineMemory*)(machine + 1);
}

/* Makes an idle machine forget its shader and give back the blocks that it keeps, so that the
 * shader's record may be changed or freed. (A run of a null entry function does that.) */
static inline void vmShaderMachineForget(struct ShaderMachine* machine) {
  const ShaderFunction* const none = NULL;
  CompiledShader shader;
  StartupInfo startup;
  memset(&shader, 0, sizeof shader);
  memset(&startup, 0, sizeof startup);
  shader.version = 1;
  shader.functionCount = 1;
  shader.functions = &none;
  vmShaderMachineExecuteShader(machine, &shader, &startup);
}

#ifdef __cplusplus
} /* extern "C" */
#endif

SHADERMACHINE_STATIC_ASSERT(view_size, sizeof(BlockView) == 16);
SHADERMACHINE_STATIC_ASSERT(view_offset, offsetof(BlockView, offset) == 12);
SHADERMACHINE_STATIC_ASSERT(block_size, sizeof(DataBlock) == 4);
SHADERMACHINE_STATIC_ASSERT(slot_size, sizeof(ValueSlot) == 72);
SHADERMACHINE_STATIC_ASSERT(slot_words, offsetof(InlineValue, words) == 8);
SHADERMACHINE_STATIC_ASSERT(frame_size, sizeof(CallFrame) == 32);
SHADERMACHINE_STATIC_ASSERT(frame_pc, offsetof(CallFrame, pc) == 24);
SHADERMACHINE_STATIC_ASSERT(machine_frames, offsetof(struct ShaderMachine, frames) == 16);
SHADERMACHINE_STATIC_ASSERT(machine_shader, offsetof(struct ShaderMachine, shader) == 32);
SHADERMACHINE_STATIC_ASSERT(machine_indices, offsetof(struct ShaderMachine, indexStack) == 48);
SHADERMACHINE_STATIC_ASSERT(machine_index_top, offsetof(struct ShaderMachine, indexTop) == 1072);
SHADERMACHINE_STATIC_ASSERT(machine_error, offsetof(struct ShaderMachine, error) == 1080);
SHADERMACHINE_STATIC_ASSERT(machine_same, offsetof(struct ShaderMachine, sameShader) == 1100);
SHADERMACHINE_STATIC_ASSERT(machine_callbacks, offsetof(struct ShaderMachine, callbacks) == 1104);

#endif /* SHADERMACHINE_MACHINE_H */
