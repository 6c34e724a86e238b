#include "machine/memory.h"

#include <cassert>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "machine/blocks.h"
#include "machine/machine.h"

namespace shadermachine {
namespace {

constexpr uint32_t kSmallestSpare = 4096;
constexpr uint32_t kSparesLookedAt = 8;
constexpr uint32_t kFreedAtOnce = 1u << 22;

uint64_t bytesOf(const BlockHead& head) { return sizeof(BlockHead) + uint64_t{head.size}; }

// Gives a piece of the newest spare block back; false when there is none or the time is over.
bool freePiece(Machine& machine) {
  BlockHead* const head = machine.spareBlocks;
  if (head == nullptr || !chargeBytes(machine, kFreedAtOnce)) return false;
  BlockHead* const next = head->next;
  uint64_t freed = bytesOf(*head);
  BlockHead* rest = nullptr;
  if (head->size > kFreedAtOnce) {
    // Where nothing can be cut off the whole block goes, whatever time that takes.
    rest = static_cast<BlockHead*>(std::realloc(head, freed - kFreedAtOnce));
    freed = rest == nullptr ? freed : kFreedAtOnce;
  }
  if (rest == nullptr) {
    std::free(head);
  } else {
    rest->size -= kFreedAtOnce;
    rest->next = next;
  }
  machine.spareBlocks = rest == nullptr ? next : rest;
  unreserveMemory(machine, freed);
  return true;
}

// Takes a spare block of the size, if one of the newest has it.
BlockHead* takeSpare(Machine& machine, uint32_t size) {
  BlockHead** link = &machine.spareBlocks;
  // Only at the newest: a long list must not make every block slow to get.
  for (uint32_t i = 0; i < kSparesLookedAt && *link != nullptr; ++i, link = &(*link)->next) {
    BlockHead* const head = *link;
    if (head->size != size) continue;
    *link = head->next;
    return head;
  }
  return nullptr;
}

BlockHead* newBlock(Machine& machine, uint32_t size, bool zeroed) {
  const uint64_t bytes = sizeof(BlockHead) + uint64_t{size};
  if (!reserveMemory(machine, bytes)) return nullptr;
  // Large blocks come zeroed from the system. For small ones calloc() is slower than malloc(): some
  // libraries keep memory for the next malloc() that calloc() does not look at.
  const bool isSmall = size < kSmallestSpare;
  void* memory;
  // The system may have less than the limit allows: spare blocks go back to it first.
  do {
    memory = zeroed && !isSmall ? std::calloc(1, bytes) : std::malloc(bytes);
  } while (memory == nullptr && freePiece(machine));
  if (memory == nullptr) {
    unreserveMemory(machine, bytes);
  } else if (zeroed && isSmall) {
    std::memset(memory, 0, bytes);
  }
  return static_cast<BlockHead*>(memory);
}

}  // namespace

bool reserveMemory(Machine& machine, uint64_t bytes) {
  const uint64_t limit = machine.memory.limit - memoryForTranslations(machine.memory);
  // Written so that nothing wraps, whatever size is asked for.
  while (bytes > limit || machine.blockBytes > limit - bytes) {
    if (!freePiece(machine)) return false;
  }
  machine.blockBytes += bytes;
  machine.memory.inUse += bytes;
  return true;
}

void unreserveMemory(Machine& machine, uint64_t bytes) {
  assert(bytes <= machine.blockBytes && machine.blockBytes <= machine.memory.inUse);
  machine.blockBytes -= bytes;
  machine.memory.inUse -= bytes;
}

BlockHead* allocateBlock(Machine& machine, uint32_t size, bool zeroed) {
  BlockHead* head = size < kSmallestSpare ? nullptr : takeSpare(machine, size);
  const bool isSpare = head != nullptr;
  if (!isSpare) head = newBlock(machine, size, zeroed);
  if (head == nullptr) return nullptr;
  head->machine = &machine;
  head->size = size;
  head->counted.referenceCount = 1;
  if (isSpare && zeroed && !clearBytes(machine, head + 1, size)) {
    // Spare again, with its old content: the next one to take it clears it.
    freeBlock(&head->counted);
    return nullptr;
  }
  return head;
}

uint8_t* takeFixedBlock(Machine& machine, FixedBlock& block, uint32_t size) {
  if (!reserveMemory(machine, sizeof(BlockHead) + uint64_t{size})) return nullptr;
  block.bytes = size;
  block.head.machine = &machine;
  block.head.size = 0;
  block.head.counted.referenceCount = 1;
  auto* data = reinterpret_cast<uint8_t*>(&block + 1);
  std::memset(data, 0, size);
  return data;
}

void freeBlock(DataBlock* block) {
  BlockHead* const head = headOf(block);
  Machine& machine = *head->machine;
  if (head->size == 0) {
    const char* const start = reinterpret_cast<const char*>(head) - offsetof(FixedBlock, head);
    const auto& fixed = *objectAt<FixedBlock>(start);
    return unreserveMemory(machine, sizeof(BlockHead) + fixed.bytes);
  }
  if (head->size >= kSmallestSpare) {
    head->next = machine.spareBlocks;
    machine.spareBlocks = head;
    return;
  }
  unreserveMemory(machine, bytesOf(*head));
  std::free(head);
}

void freeSpareBlocks(Machine& machine) {
  while (machine.spareBlocks != nullptr) {
    BlockHead* const head = machine.spareBlocks;
    machine.spareBlocks = head->next;
    unreserveMemory(machine, bytesOf(*head));
    std::free(head);
  }
}

}  // namespace shadermachine
