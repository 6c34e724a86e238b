// The machine as the library sees it, and the small operations that instruction handlers are made
// of.
#pragma once

#include <shadermachine/machine.h>

#include <bit>
#include <cstring>

#include "machine/blocks.h"
#include "machine/memory.h"
#include "machine/time_limit.h"

namespace shadermachine {

namespace engine {
struct Record;
class TranslationCache;
}  // namespace engine

// For tests and benchmarks.
enum class EngineUse : uint32_t {
  WhenWorth,  // what every machine has: from a shader's second run on
  Never,
  AtOnce,  // in a shader's first run
};

// The public record followed by what hosts have no business with.
struct Machine : ShaderMachine {
  MachineMemory memory;      // hosts find it here
  uint64_t blockBytes;       // of memory.inUse, blocks and frames
  BlockHead* spareBlocks;    // that nobody holds; the last one released first
  uint32_t isDelivering;     // 1 while the outputs are delivered: the run state is idle then
  uint32_t heldGlobalCount;  // globals on the stack of the shader that the machine holds
  TimeLimit timeLimit;
  ValueSlot stray;  // stands in for slots and variables that do not exist
  EngineUse engineUse;
  uint32_t keepsBasicVariables;            // 1: the host is asked for structures and arrays only
  engine::TranslationCache* translations;  // owned; null until there is one
  const engine::Record* heldProgram;  // translation of the shader that the machine holds, or null
};

// Every instruction handler: reads its operands at the current frame's pc, works on the top slots,
// and ends the run with stopRun() if it must.
using Handler = void (*)(Machine&);

Machine* createMachine(const HostCallbacks* callbacks);
void destroyMachine(Machine* machine);

inline CallFrame& currentFrame(Machine& machine) { return machine.frames[machine.frameIndex]; }

inline void stopRun(Machine& machine, VmError error) {
  machine.runState = VM_RUN_STOPPING;
  machine.error = error;
}

// For a handler that did not get its block: the run may be over its time already.
inline void stopWithoutBlock(Machine& machine) {
  if (machine.runState != VM_RUN_STOPPING) stopRun(machine, VM_ERR_OUT_OF_MEMORY);
}

// Host callbacks and blocks take time that jumps do not show. False when the run's time is over;
// the run then ends with 11.
inline bool chargeTicks(Machine& machine, uint64_t ticks) {
  if (!chargeTimeLimit(machine.timeLimit, ticks)) return true;
  stopRun(machine, VM_ERR_TIMEOUT);
  return false;
}
inline bool chargeHostCall(Machine& machine) {
  constexpr uint32_t kTicks = 128;
  return chargeTicks(machine, kTicks);
}
inline bool chargeBytes(Machine& machine, uint64_t bytes) {
  constexpr uint32_t kBytesPerTick = 64;
  return chargeTicks(machine, bytes / kBytesPerTick);
}

// Operand fetch -----------------------------------------------------------------------------------

template <class T>
T fetchOperand(Machine& machine) {
  static_assert(std::endian::native == std::endian::little);
  CallFrame& frame = currentFrame(machine);
  T value;
  std::memcpy(&value, frame.code + frame.pc, sizeof(T));
  frame.pc += static_cast<uint32_t>(sizeof(T));
  return value;
}

inline uint8_t fetchU8(Machine& machine) { return fetchOperand<uint8_t>(machine); }
inline uint16_t fetchU16(Machine& machine) { return fetchOperand<uint16_t>(machine); }
inline uint32_t fetchU32(Machine& machine) { return fetchOperand<uint32_t>(machine); }
inline int16_t fetchI16(Machine& machine) { return fetchOperand<int16_t>(machine); }

// Fetches a component count (or dimension) and ends the run when it is beyond its limit.
inline bool fetchCount(Machine& machine, uint32_t limit, uint32_t& count) {
  count = fetchU8(machine);
  if (count <= limit) return true;
  stopRun(machine, VM_ERR_INVALID_SHADER);
  return false;
}

// Value stack -------------------------------------------------------------------------------------

// Ends the run with 2 and gives a slot that nobody owns: for code that reaches outside its frame or
// names what is not there.
ValueSlot& straySlot(Machine& machine);

// The slot k below the top.
inline ValueSlot& topSlot(Machine& machine, int32_t k = 0) {
  CallFrame& frame = currentFrame(machine);
  if (frame.top < k) [[unlikely]]
    return straySlot(machine);
  return frame.locals[frame.top - k];
}

// True when the frame holds so many slots; otherwise the run ends with 2.
inline bool checkStackDepth(Machine& machine, uint32_t count) {
  if (currentFrame(machine).top + int64_t{1} >= count) return true;
  stopRun(machine, VM_ERR_INVALID_SHADER);
  return false;
}

// True when one more slot fits above the current frame's top; otherwise the run ends with 10.
inline bool checkStackRoom(Machine& machine) {
  const CallFrame& frame = currentFrame(machine);
  if (frame.locals + frame.top + 1 - machine.stack < machine.stackCapacity) return true;
  stopRun(machine, VM_ERR_STACK_OVERFLOW);
  return false;
}

// The pushed slot, its words unwritten; null when the stack is full.
inline ValueSlot* pushSlot(Machine& machine) {
  if (!checkStackRoom(machine)) return nullptr;
  ++currentFrame(machine).top;
  return &topSlot(machine);
}

inline void popSlot(Machine& machine) {
  topSlot(machine).view.data = nullptr;
  CallFrame& frame = currentFrame(machine);
  if (frame.top >= 0) --frame.top;
}

inline void popSlots(Machine& machine, uint32_t count) {
  while (count-- > 0) popSlot(machine);
}

inline void popRelease(Machine& machine) {
  blockRelease(&topSlot(machine).view);
  popSlot(machine);
}

// Replaces a slot by an inline value whose words past `count` are zero.
inline void setInline(ValueSlot& slot, const void* words, uint32_t count) {
  InlineValue value = {};
  std::memcpy(value.words, words, count * sizeof(uint32_t));
  slot.value = value;
}

// Index stack -------------------------------------------------------------------------------------

// Top of the index stack; -1 when it is empty (or has overflowed).
inline int32_t currentIndex(const Machine& machine) {
  const int32_t top = machine.indexTop;
  return top >= 0 && top < VM_INDEX_STACK_CAPACITY ? static_cast<int32_t>(machine.indexStack[top])
                                                   : -1;
}

// Shader tables -----------------------------------------------------------------------------------

inline bool isBasicVar(const VarInfo& info) { return info.type < 0 && info.count == 0; }

// Whether the host is asked for a global's value.
inline bool asksHost(const Machine& machine, const VarInfo& info) {
  return (info.flags & VM_VAR_HOST) != 0 && machine.callbacks.hostVariable != nullptr &&
         (machine.keepsBasicVariables == 0 || !isBasicVar(info));
}

// Of what a slot holds itself.
inline constexpr uint32_t kInlineBytes = VM_COMPONENT_COUNT * sizeof(uint32_t);
inline constexpr uint32_t kMaxDimension = 4;  // of its matrices

// Bytes of a basic variable; a wrong table must not lead outside the slot.
inline uint32_t inlineByteSize(const VarInfo& info) {
  return info.byteSize < kInlineBytes ? info.byteSize : kInlineBytes;
}

// The structure type of a non-negative code; null when the shader lacks it.
inline const StructInfo* structType(const Machine& machine, int32_t code) {
  if (machine.shader == nullptr || machine.shader->structTypes == nullptr) return nullptr;
  return machine.shader->structTypes[code];
}

// Gives variables their initial state: zeroed, aggregates with a zero-filled block of their own.
// Ends the run with 9 when a block cannot be allocated, with 11 when its time is over.
void initVariables(Machine& machine, ValueSlot* slots, const VarInfo* entries, uint32_t count);

}  // namespace shadermachine
