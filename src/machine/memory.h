// The memory of a machine besides the record itself, its stack and its first frames.
//
// `inUse` counts every block with its head, the frames added by calls and the translations, and
// never exceeds `limit`. Blocks and frames get at most three quarters of it and translations the
// rest, so that where a run ends does not depend on what is translated.
//
// A block that nobody holds any more is freed when it is small. A larger one stays in the machine,
// counted, until another of its size or the memory is needed: to free it takes time in proportion
// to its size, which a run that is over its time does not have.
#pragma once

#include <shadermachine/machine.h>

namespace shadermachine {

struct Machine;

// The object that lies at an address, as whoever keeps the address knows: a cast that compilers for
// processors with strict alignment do not warn of.
template <class T>
T* objectAt(void* address) {
  return static_cast<T*>(address);
}
template <class T>
const T* objectAt(const void* address) {
  return static_cast<const T*>(address);
}

// Before the first data byte of every block.
struct BlockHead {
  union {
    Machine* machine;  // while somebody holds the block
    BlockHead* next;   // while it is spare
  };
  uint32_t size;  // data bytes
  DataBlock counted;
};
static_assert(sizeof(BlockHead) == 16);

// A block whose memory somebody else owns; its head's size is 0. It is counted while it is held.
struct FixedBlock {
  uint64_t bytes;
  uint64_t unused;
  BlockHead head;
};
static_assert(sizeof(FixedBlock) == 32);

constexpr uint64_t memoryForTranslations(const MachineMemory& memory) { return memory.limit / 4; }

// Counts so many bytes for blocks and frames; false when the limit or the run's time does not allow
// them.
bool reserveMemory(Machine& machine, uint64_t bytes);
void unreserveMemory(Machine& machine, uint64_t bytes);

// Counted once; null when memory is short, or the limit or the run's time does not allow it.
BlockHead* allocateBlock(Machine& machine, uint32_t size, bool zeroed);
void freeBlock(DataBlock* block);
// The data of a fixed block that nobody holds, all zero and counted once; null as of
// allocateBlock(). Only for sizes that need no look at the clock.
uint8_t* takeFixedBlock(Machine& machine, FixedBlock& block, uint32_t size);
void freeSpareBlocks(Machine& machine);

}  // namespace shadermachine
